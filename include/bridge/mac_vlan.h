/* MAC-based VLAN entries. */
#ifndef BRIDGE_MAC_VLAN_H
#define BRIDGE_MAC_VLAN_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* MAC-VLAN entry. */
struct mvlan_entry {
    uint8_t op_flag;     /*  0: 2 in a delete request */
    uint8_t reserved[3]; /*  1: zero */
    uint32_t type;       /*  4: 0 add, 1 delete, 2 query */
    uint8_t mac[6];      /*  8: host address */
    uint8_t mask[6];     /* 14: all ones: exact match */
    uint16_t vlan;       /* 20: VLAN id */
    uint8_t priority;    /* 22: 0 */
    uint8_t flag;        /* 23: 2: dynamic entry */
};
BRI_SIZE(mvlan_entry, 24);
BRI_AT(mvlan_entry, op_flag, 0);
BRI_AT(mvlan_entry, reserved, 1);
BRI_AT(mvlan_entry, type, 4);
BRI_AT(mvlan_entry, mac, 8);
BRI_AT(mvlan_entry, mask, 14);
BRI_AT(mvlan_entry, vlan, 20);
BRI_AT(mvlan_entry, priority, 22);
BRI_AT(mvlan_entry, flag, 23);

/* MAC-VLAN request. */
struct mvlan_msg {
    uint32_t ifx;             /* 0: port of an 802.1X add, else 0 */
    struct mvlan_entry entry; /* 4: the entry */
};
BRI_SIZE(mvlan_msg, 28);
BRI_AT(mvlan_msg, ifx, 0);
BRI_AT(mvlan_msg, entry, 4);

BRI_API void mvlan_clnt_add_dyn_entry(const uint8_t *mac, uint16_t vlan);

BRI_API void mvlan_clnt_add_dyn_entry_dot1x(const uint8_t *mac, uint16_t vlan, uint32_t ifx);

BRI_API void mvlan_clnt_del_dyn_entry(const uint8_t *mac);

BRI_API int mvlan_clnt_get_dyn_entry(const uint8_t *mac, uint16_t *vlan);

BRI_API void mvlan_clnt_send_error_result(const struct mvlan_entry *entry);

BRI_API void bridge_mvlan_lib_dispose_msg(struct bri_msg_hdr *msg);

BRI_END_DECLS

#endif
