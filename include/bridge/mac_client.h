/* MAC addresses: requests to the server, look-ups in the kernel, server messages and statistics.
 *
 * @code
 * // How many addresses the kernel knows behind a port.
 * uint32_t addresses_of(uint32_t ifx) {
 *     struct bri_mac_entry entry = {.field = BRI_MAC_FIELD_IFX, .ifx = ifx};
 *     uint32_t count = 0;
 *     int missing = bridge_maddr_find_first_on_ifx(&entry);
 *     for (; !missing; missing = bridge_maddr_find_next_on_ifx(&entry, &entry))
 *         count++;
 *     return count;
 * }
 * @endcode
 */
#ifndef BRIDGE_MAC_CLIENT_H
#define BRIDGE_MAC_CLIENT_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Address types. */
enum bri_mac_type {
    BRI_MAC_TYPE_DYNAMIC = 1,
    BRI_MAC_TYPE_STATIC = 2,
    BRI_MAC_TYPE_FILTER = 3,
    BRI_MAC_TYPE_LOCAL = 4,
    BRI_MAC_TYPE_COPY = 5,
    BRI_MAC_TYPE_SECU = 6,
    BRI_MAC_TYPE_OTHER = 7,
    BRI_MAC_TYPE_TRUST = 8
};

/* Which fields of an entry are valid, or select a look-up. */
enum bri_mac_field { BRI_MAC_FIELD_MAC = 1, BRI_MAC_FIELD_IFX = 2, BRI_MAC_FIELD_TYPE = 4, BRI_MAC_FIELD_BCAST_ID = 8 };

/* What a request does with the entry. */
enum bri_mac_oper { BRI_MAC_ADD = 1, BRI_MAC_DEL = 2 };

/* MAC entry. */
struct bri_mac_entry {
    uint8_t flags;         /*  0: 1: forced operation */
    uint8_t reserved1[2];  /*  1: zero */
    uint8_t field;         /*  3: enum bri_mac_field bits */
    uint8_t mac[6];        /*  4: address, transmission order */
    uint16_t bcast_id;     /* 10: broadcast domain, the entry's VLAN */
    uint32_t ifx;          /* 12: port */
    uint32_t type;         /* 16: enum bri_mac_type */
    uint8_t reserved2[12]; /* 20: zero */
};
BRI_SIZE(bri_mac_entry, 32);
BRI_AT(bri_mac_entry, flags, 0);
BRI_AT(bri_mac_entry, reserved1, 1);
BRI_AT(bri_mac_entry, field, 3);
BRI_AT(bri_mac_entry, mac, 4);
BRI_AT(bri_mac_entry, bcast_id, 10);
BRI_AT(bri_mac_entry, ifx, 12);
BRI_AT(bri_mac_entry, type, 16);
BRI_AT(bri_mac_entry, reserved2, 20);

/* MAC request record; element of address notifications. */
struct bri_mac_msg {
    uint32_t reserved;          /* 0: zero */
    uint32_t oper;              /* 4: enum bri_mac_oper */
    struct bri_mac_entry entry; /* 8: the entry */
};
BRI_SIZE(bri_mac_msg, 40);
BRI_AT(bri_mac_msg, reserved, 0);
BRI_AT(bri_mac_msg, oper, 4);
BRI_AT(bri_mac_msg, entry, 8);

/* Payload of MAC_EVENT_DEL_DYN_ON_VLANMAP and _ON_INTF_VLANMAP. */
struct bri_mac_vlanmap_del {
    uint8_t force_flush;  /* 0: 1: flush now */
    uint8_t reserved[3];  /* 1: zero */
    uint32_t ifx;         /* 4: port, 0 for all */
    struct vlanset vlans; /* 8: the VLANs */
};
BRI_SIZE(bri_mac_vlanmap_del, 520);
BRI_AT(bri_mac_vlanmap_del, force_flush, 0);
BRI_AT(bri_mac_vlanmap_del, reserved, 1);
BRI_AT(bri_mac_vlanmap_del, ifx, 4);
BRI_AT(bri_mac_vlanmap_del, vlans, 8);

/* Payload of MAC_EVENT_INTF_LEARN. */
struct bri_mac_intf_learn {
    uint32_t ifx;          /* 0: port */
    uint8_t learn_disable; /* 4: 0 learning on, 1 off */
    uint8_t reserved[3];   /* 5: zero */
};
BRI_SIZE(bri_mac_intf_learn, 8);
BRI_AT(bri_mac_intf_learn, ifx, 0);
BRI_AT(bri_mac_intf_learn, learn_disable, 4);
BRI_AT(bri_mac_intf_learn, reserved, 5);

/* Payload of MAC_EVENT_SET_AGETIME_RANGE. */
struct bri_mac_age_range {
    uint32_t min;  /* 0: lowest */
    uint32_t max;  /* 4: highest */
    uint32_t step; /* 8: step */
};
BRI_SIZE(bri_mac_age_range, 12);
BRI_AT(bri_mac_age_range, min, 0);
BRI_AT(bri_mac_age_range, max, 4);
BRI_AT(bri_mac_age_range, step, 8);

/* Payload of MAC_EVENT_SET_AVAILABLE_MAC. */
struct bri_mac_available {
    uint32_t static_num; /* 0: static addresses */
    uint32_t filter_num; /* 4: filter addresses */
    uint32_t total_num;  /* 8: all addresses */
};
BRI_SIZE(bri_mac_available, 12);
BRI_AT(bri_mac_available, static_num, 0);
BRI_AT(bri_mac_available, filter_num, 4);
BRI_AT(bri_mac_available, total_num, 8);

/* Kernel look-up: the first entry that matches the key. */
struct bri_mac_find_first {
    struct bri_mac_entry key;    /*  0: what to look for */
    uint32_t found;              /* 32: non-zero in an answer with a result */
    struct bri_mac_entry result; /* 36: the answer */
};
BRI_SIZE(bri_mac_find_first, 68);
BRI_AT(bri_mac_find_first, key, 0);
BRI_AT(bri_mac_find_first, found, 32);
BRI_AT(bri_mac_find_first, result, 36);

/* Kernel look-up: the next entry that matches the key. */
struct bri_mac_find_next {
    struct bri_mac_entry key;     /*  0: what to look for */
    struct bri_mac_entry current; /* 32: entry to continue after */
    uint32_t found;               /* 64: non-zero in an answer with a result */
    struct bri_mac_entry result;  /* 68: the answer */
};
BRI_SIZE(bri_mac_find_next, 100);
BRI_AT(bri_mac_find_next, key, 0);
BRI_AT(bri_mac_find_next, current, 32);
BRI_AT(bri_mac_find_next, found, 64);
BRI_AT(bri_mac_find_next, result, 68);

/* The MAC client's copy of the client name, NUL-terminated. */
BRI_API extern char g_bglib_client_name_mac[20];

/* Keeps the client's name for the log lines; called once by bridge_agent_init, and sends nothing. The copy, or null
 * without a client. */
BRI_API char *mac_client_init(struct bri_clnt_ctx *client);

/* Requests that change address entries.
 *
 * Each sends one struct bri_mac_msg to the server and returns what bridge_client_send_message gives: 0 queued, -1 not.
 * A refused argument gives -1 and sends nothing. `mac` is 6 bytes, the low 16 bits of `bcast_id` count, `ifx` is a
 * port; the entry's field mask names those that are present (not null, not 0). Any thread. */

/* Add an address of the type in the operation's name to a port and a broadcast domain. mac and bcast_id must be present
 * and the port must exist. Sent as MAC_EVENT_NOTIFY_ADDR. */
BRI_API int bridge_maddr_add_static(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
BRI_API int bridge_maddr_add_secu(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
BRI_API int bridge_maddr_add_trust(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
BRI_API int bridge_maddr_add_other(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);

/* Delete the addresses of a type that fit: an absent argument matches every entry, so (null, 0, 0) deletes all of the
 * type. Forced deletion marks the entry's flags. Sent as MAC_EVENT_NOTIFY_ADDR. */
BRI_API int bridge_maddr_del_static(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
BRI_API int bridge_maddr_del_dyn(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
BRI_API int bridge_maddr_force_del_dyn(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);

/* Delete one address of the type in the operation's name: all three must be present; the port need not exist. Sent as
 * MAC_EVENT_NOTIFY_ADDR. */
BRI_API int bridge_maddr_del_secu(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
BRI_API int bridge_maddr_del_trust(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
BRI_API int bridge_maddr_del_other(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);

/* Takes a static or filter address back: `type` must be STATIC or FILTER and mac and bcast_id present; `ifx` may be 0.
 * The record names no type. Sent as MAC_EVENT_ROLLBACK_ADDR. */
BRI_API int bridge_maddr_rollback(uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);

/* Adds an entry past the server's checks: `type` must be DYNAMIC, mac and bcast_id present, and the port must exist.
 * Sent as MAC_EVENT_BYPASS_ADDR. */
BRI_API int bridge_maddr_bypass(uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);

/* Other requests to the server. 0 queued, -1 refused or not queued. Any thread. */

/* Deletes the dynamic addresses of a set of VLANs, on one port (MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP) or, with ifx 0, on
 * all (MAC_EVENT_DEL_DYN_ON_VLANMAP). A force_flush that is not 0 flushes now. `vlanmap` must be given. */
BRI_API int bridge_maddr_del_dyn_on_vlanmap(const struct vlanset *vlanmap, uint32_t ifx, uint8_t force_flush);

/* Switches learning on a port, which must exist: on when the low 8 bits of `learn` are not 0.
 * MAC_EVENT_INTF_LEARN. */
BRI_API int bridge_maddr_set_intf_learn(uint32_t ifx, uint32_t learn);

/* Sets the range of ageing times, in seconds. MAC_EVENT_SET_AGETIME_RANGE. */
BRI_API int bridge_maddr_set_dyn_life_range(uint32_t min, uint32_t max, uint32_t step);

/* Sets how many static, filter and all addresses may be configured. MAC_EVENT_SET_AVAILABLE_MAC. */
BRI_API int bridge_maddr_set_available_mac(uint32_t static_num, uint32_t filter_num, uint32_t total_num);

/* Bracket a check of the addresses that are not dynamic; `type` is the server's and passed through.
 * MAC_EVENT_NONDYN_CHECK_BEGIN and _END. */
BRI_API int bridge_maddr_nondyn_check_begin(uint32_t type);
BRI_API int bridge_maddr_nondyn_check_end(uint32_t type);

/* Switches the root-bridge mode; the byte is passed through. MAC_EVENT_SET_ROOT_BRIDGE_MODE. */
BRI_API int bridge_maddr_set_root_bridge_mode(uint8_t enable);

/* One-way messages to the kernel over the persistent channel. 0 sent, -1 refused or not sent. Loop's thread, which also
 * opens and closes that channel. */

/* Bracket a check of the dynamic addresses. MAC_EVENT_DYN_CHECK_BEGIN and _END, without data. */
BRI_API int bridge_maddr_dynmac_check_begin(void);
BRI_API int bridge_maddr_dynmac_check_end(void);

/* Hands address changes to the kernel: at most 204 records, as they stand. MAC_EVENT_SS_NOTIFY_ADDR. */
BRI_API int bridge_maddr_notify(const struct bri_mac_msg *records, uint32_t count);

/* Look-ups in the kernel's table.
 *
 * Each asks the kernel and waits for the answer, see bridge_lib_query_netlink. 0 and the entry when there is one; -1
 * when the arguments are refused, the kernel does not answer or has no such entry, and the destination is untouched.
 * Loop's thread.
 *
 * A walk of the table: an entry whose field is exactly BRI_MAC_FIELD_MAC (or _IFX) and a start address (or port), one
 * find_first, then find_next from each entry to the next until it gives -1. */

/* Finds the first entry of the kernel's table from entry->mac on; entry->field is exactly BRI_MAC_FIELD_MAC. Overwrites
 * *entry. */
BRI_API int bridge_maddr_find_first_on_mac(struct bri_mac_entry *entry);

/* Finds the first entry of port entry->ifx in the kernel's table; entry->field is exactly BRI_MAC_FIELD_IFX. Overwrites
 * *entry. */
BRI_API int bridge_maddr_find_first_on_ifx(struct bri_mac_entry *entry);

/* Finds the entry behind *cur in the kernel's table. `out` may be `cur`. */
BRI_API int bridge_maddr_find_next_on_mac(const struct bri_mac_entry *cur, struct bri_mac_entry *out);

/* Finds the entry behind *cur on the same port in the kernel's table. `out` may be `cur`. */
BRI_API int bridge_maddr_find_next_on_ifx(const struct bri_mac_entry *cur, struct bri_mac_entry *out);

/* Whether the port (not 0) has a static address: 0 it has, -1 it has none or the kernel does not answer. */
BRI_API int bridge_maddr_find_static_on_ifx(uint32_t ifx);

/* Finds the entry of one address in one broadcast domain in the kernel's table; both must be present. `out` may be
 * null. */
BRI_API int bridge_maddr_find_single(const uint8_t *mac, uint32_t bcast_id, struct bri_mac_entry *out);

/* The process's copy of the available-address total. 0, or -1 when `total` is null. Sends nothing. Any thread. */
BRI_API int bridge_maddr_get_available_total(uint32_t *total);

/* Takes one message of the MAC submodule, header and payload whole in memory; null is ignored. Address notifications
 * are handed to the host's handlers record by record, each as an aligned copy of 40 bytes; a last record that is cut
 * short is completed with zeros, and one that neither adds nor deletes ends the message. For the client "SS" LOCAL
 * entries are left out and all types but DYNAMIC and FILTER become STATIC, in the message too. A new available-address
 * total is kept; a message too short for it is dropped with a debug line. Called by the dispatcher, on the loop's
 * thread; sends nothing. */
BRI_API void mac_client_on_server_msg(struct bri_msg_hdr *msg);

/* Addresses that may still be configured, as the server last announced; 1024 before. Any thread. */
BRI_API uint32_t mac_client_get_available_total(void);

/* Stores the total in this process. Sends nothing. Any thread. */
BRI_API void mac_client_set_available_total(uint32_t total);

/* Prints the address counters to the log, whatever the debug flags. Sends nothing. Any thread. */
BRI_API void mac_client_show_statistic(void);

BRI_END_DECLS

#endif
