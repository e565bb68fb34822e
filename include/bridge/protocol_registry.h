/* Bridge-protocol state registry: which layer-2 protocols run, and which exclude each other. */
#ifndef BRIDGE_PROTOCOL_REGISTRY_H
#define BRIDGE_PROTOCOL_REGISTRY_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Bridge protocols; the registry takes 0..13. */
enum bri_protocol {
    BRI_PROT_MIN = 0,
    BRI_PROT_MSTP = 1,
    BRI_PROT_GVRP = 2,
    BRI_PROT_LLDP = 3,
    BRI_PROT_ERPS = 4,
    BRI_PROT_RERP = 5,
    BRI_PROT_REUP = 6,
    BRI_PROT_RLDP = 7,
    BRI_PROT_TPP = 8,
    BRI_PROT_CDP = 9,
    BRI_PROT_DHCP4 = 10,
    BRI_PROT_DHCP6 = 11,
    BRI_PROT_TILL = 12,
    BRI_PROT_MAX = 14
};

BRI_API void bp_rdown(void);

BRI_API void bp_wdown(void);

BRI_API void bp_up(void);

BRI_API const char *bridge_proto_get_name(uint32_t proto);

BRI_API int bridge_proto_state_set(uint32_t proto, uint32_t *conflict);

BRI_API void bridge_proto_state_unset(uint32_t proto);

BRI_API int bridge_proto_state_get(uint32_t proto);

BRI_API uint32_t bridge_proto_get_state_all(void);

BRI_API int bridge_proto_set_prejudge(uint32_t proto, uint32_t mask);

BRI_API void bridge_proto_state_show(void);

BRI_END_DECLS

#endif
