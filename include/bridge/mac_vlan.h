/* MAC-based VLAN entries.
 *
 * @code
 * // The host that 802.1X has let in joins a VLAN, unless it is in one.
 * void let_in(const uint8_t *mac, uint32_t ifx) {
 *     uint16_t vlan = 0;
 *     if (mvlan_clnt_get_dyn_entry(mac, &vlan) != 0)
 *         mvlan_clnt_add_dyn_entry_dot1x(mac, 10, ifx);
 * }
 * @endcode
 */
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

/* Tell the server that the host with this address (6 bytes) belongs to a VLAN; the second names the port that let the
 * host in. Nothing happens without an address. The outcome shows only in the log. Sent as
 * MVLAN_EVENT_NOTIFY_ENTRY, which leaves at once. Any thread. */
BRI_API void mvlan_clnt_add_dyn_entry(const uint8_t *mac, uint16_t vlan);
BRI_API void mvlan_clnt_add_dyn_entry_dot1x(const uint8_t *mac, uint16_t vlan, uint32_t ifx);

/* Tell the server that the host with this address (6 bytes) has no VLAN of its own any more. Nothing happens without an
 * address. MVLAN_EVENT_NOTIFY_ENTRY, which leaves at once. Any thread. */
BRI_API void mvlan_clnt_del_dyn_entry(const uint8_t *mac);

/* Asks the kernel for the VLAN of a host address and waits for the answer, see bridge_lib_query_netlink. 0 and the
 * VLAN; -1 and *vlan 0 when the address has none; -1 and *vlan untouched without an answer, which a notice reports
 * that is always logged. -1 when either argument is null. Loop's thread. */
BRI_API int mvlan_clnt_get_dyn_entry(const uint8_t *mac, uint16_t *vlan);

/* Reports a failed entry to the server as it stands. Nothing is sent without one. MVLAN_EVENT_ERROR. Any thread. */
BRI_API void mvlan_clnt_send_error_result(const struct mvlan_entry *entry);

/* Takes one message of the submodule, header and payload whole in memory, and hands it to the host's handlers; null is
 * ignored. Called by the dispatcher, on the loop's thread. */
BRI_API void bridge_mvlan_lib_dispose_msg(struct bri_msg_hdr *msg);

BRI_END_DECLS

#endif
