/* SPDX-License-Identifier: GPL-2.0 */
/* The parts of the lab's bridge module: its tables, what hosts ask of them over generic netlink, and a file by which a
 * test sets them and makes the module fail. One mutex, held by family and control, guards all. */
#ifndef EF_BRIDGE_H
#define EF_BRIDGE_H

/* First, as the kernel's headers make a macro of `current`. */
#include <bridge/mac_client.h>
#include <bridge/mac_vlan.h>

#include <linux/mutex.h>
#include <linux/seq_file.h>

/* How the module answers: as it should; every message with an error; at more length than a host takes; not at all. */
enum ef_state { EF_UP, EF_ERROR, EF_LONG, EF_SILENT, EF_STATES };

struct ef_module {
    struct mutex lock;
    enum ef_state state;
    u32 error;     /* of EF_ERROR */
    u32 portid;    /* of the socket that sent the last one-way message */
    u32 messages;  /* taken so far */
    u32 last_type; /* of the last one: the host's type, and the bytes of its data */
    u32 last_size;
};
extern struct ef_module ef_module;

/* family.c */
int ef_family_register(void);
void ef_family_unregister(void);
/* Sends the host of the last one-way message a message of the family that it has not asked for. */
int ef_family_notify(const struct bri_mac_msg *notice);

/* mac_table.c: addresses in the order of address and domain. */
enum { EF_ADDRESSES_MAX = 65536 };
u32 ef_mac_count(void);
/* Takes one record: an add names one address whole, a delete all that its fields select. A learned address does not
 * take the place of a configured one. 0; -EINVAL for an add that lacks address, domain or type; -ENOMEM, or -ENOSPC
 * when the table is full. */
int ef_mac_apply(const struct bri_mac_msg *record);
/* The first entry that the key selects, and the first one behind `last`; null without one. A key's address alone is
 * where to start, with a domain it is the one to find; port and type must match where given. */
const struct bri_mac_entry *ef_mac_first(const struct bri_mac_entry *key);
const struct bri_mac_entry *ef_mac_next(const struct bri_mac_entry *key, const struct bri_mac_entry *last);
/* Learned addresses that nobody adds again between begin and end are gone then. */
void ef_mac_begin_check(void);
void ef_mac_end_check(void);
void ef_mac_clear(void);
void ef_mac_show(struct seq_file *file);

/* host_vlans.c: the VLANs that hosts are put in by their address. */
enum { EF_HOST_ADD = 0, EF_HOST_DEL = 1 };
u32 ef_hosts_count(void);
/* An add or a delete; an entry is known by its address and mask. 0 or a negative error. */
int ef_hosts_apply(const struct mvlan_msg *request);
/* The entry for a host address: of several whose mask covers it, the one with the longest mask; null without one. */
const struct mvlan_msg *ef_hosts_find(const u8 *mac);
void ef_hosts_clear(void);
void ef_hosts_show(struct seq_file *file);

/* control.c: /proc/ef_bridge. */
int ef_control_register(void);
void ef_control_unregister(void);

#endif
