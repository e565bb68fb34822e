/* Bridge-protocol state registry: which layer-2 protocols run, and which exclude each other.
 *
 * The registry stands at the end of the segment "VLAN-SHM" (struct bri_proto_registry of vlan_db.h) and is mapped by
 * vl_vlandb_init; before that every operation gives 0 and does nothing. A protocol stays enabled until some process
 * unsets it, also after the process that set it has ended. No operation takes a lock or sends a message; any thread
 * may call.
 *
 * Debug lines: flag BRI_DBG_VLAN, module "BRIDGE", tag "VLAN-DB".
 *
 * @code
 * int spanning_tree_runs(void) {
 *     return bridge_proto_state_get(BRI_PROT_MSTP);
 * }
 * @endcode
 */
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

/* Mark the beginning of a read, of a write, and their end. They take no lock. */
BRI_API void bp_rdown(void);
BRI_API void bp_wdown(void);
BRI_API void bp_up(void);

/* Name of a protocol, for print; "BRI_PROT_UNKOWN" for 13 and for everything above 14. Never null. */
BRI_API const char *bridge_proto_get_name(uint32_t proto);

/* Enables a protocol, 0..13, unless an enabled one of 1..13 stands in its mask: 1 and *conflict 0, or 0 and
 * *conflict the lowest such protocol. 0 with *conflict untouched for another number, a null pointer or before
 * set-up. The test and the change are two steps: processes that may enable conflicting protocols at once agree among
 * themselves. */
BRI_API int bridge_proto_state_set(uint32_t proto, uint32_t *conflict);

/* Disables a protocol. The lowest five bits of proto name the bit, so callers pass 0..13. */
BRI_API void bridge_proto_state_unset(uint32_t proto);

/* 1 while the protocol, 0..13, is enabled. */
BRI_API int bridge_proto_state_get(uint32_t proto);

/* All states: bit p is set while protocol p is enabled. */
BRI_API uint32_t bridge_proto_get_state_all(void);

/* Replaces the mask of a protocol, 0..13: bit q set lets an enabled q block proto, not the other way round. 1, or 0
 * for another number or before set-up. Bit 0 and the protocol's own bit are stored but block nothing. */
BRI_API int bridge_proto_set_prejudge(uint32_t proto, uint32_t mask);

/* Prints the enabled protocols and the masks to the log, whatever the debug flags say; nothing before set-up. */
BRI_API void bridge_proto_state_show(void);

BRI_END_DECLS

#endif
