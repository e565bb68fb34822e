/* VLAN groups in the shared segment "VLAN-GROUP-SHM".
 *
 * A group is a numbered set of VLANs with a default VLAN and a VLAN assign mode. The entry of group id g, 1..128, is at
 * index g; it is in use while its first byte is not 0. Ids 129..255 have no entry: such a group never exists. Id 0 is
 * no group either, though it has an entry: no search finds it, and making it gives 1 and makes nothing.
 *
 * No operation takes a lock or sends anything, and none but the message entry calls anyone; who needs an entry in one
 * piece takes a copy. Any thread may call once vlan_group_shm_init has succeeded; before that every operation gives its
 * failure value.
 *
 * Debug lines: flag BRI_DBG_MSG, module "BRIDGE", tag "LIB_DEBUG".
 *
 * @code
 * // The VLAN of a host that has none of its own; 0 without one.
 * uint16_t vlan_of_guests(uint8_t group) {
 *     return vg_clnt_check_exist(group) ? vg_clnt_get_default_vid(group) : 0;
 * }
 * @endcode
 */
#ifndef BRIDGE_VLAN_GROUP_H
#define BRIDGE_VLAN_GROUP_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

#define BRI_VLAN_GROUP_ENTRIES 129u /* group ids 1..128; entry 0 is never a group */

/* One VLAN group. */
struct vlan_group_entry {
    uint8_t id;             /* 0: group id; 0: the entry is free */
    uint8_t assign_mode;    /* 1: VLAN assign mode */
    uint8_t member_count;   /* 2: member VLANs, wraps beyond 255 */
    uint8_t reserved1;      /* 3: zero */
    uint16_t default_vid;   /* 4: default VLAN */
    uint16_t reserved2;     /* 6: zero */
    struct vlanset members; /* 8: member VLANs */
};
BRI_SIZE(vlan_group_entry, 520);
BRI_AT(vlan_group_entry, id, 0);
BRI_AT(vlan_group_entry, assign_mode, 1);
BRI_AT(vlan_group_entry, member_count, 2);
BRI_AT(vlan_group_entry, reserved1, 3);
BRI_AT(vlan_group_entry, default_vid, 4);
BRI_AT(vlan_group_entry, reserved2, 6);
BRI_AT(vlan_group_entry, members, 8);

/* Data area of the segment "VLAN-GROUP-SHM". */
struct bri_vlan_groups {
    struct vlan_group_entry groups[BRI_VLAN_GROUP_ENTRIES]; /* 0: entry of group id g at index g */
};
BRI_SIZE(bri_vlan_groups, 67080);
BRI_AT(bri_vlan_groups, groups, 0);

/* Where this process has the group table mapped; all null before vlan_group_shm_init succeeded. */
struct vlan_group_manager {
    struct bri_shm_handle *shm;       /* the segment */
    struct bri_sem_lock *lock;        /* its semaphore */
    struct vlan_group_entry *entries; /* BRI_VLAN_GROUP_ENTRIES of them */
};

/* Read-only for everyone but vlan_group_shm_init. */
BRI_API extern struct vlan_group_manager vlan_group_mng;

/* Creates or joins the semaphore and the segment of the group table and maps it; the key is 0x5A5B7C3D plus the
 * environment variable VSDID. 1, or 0 without a usable key, semaphore or segment, with a debug line that says which.
 * From the event-loop thread, before other threads use the table; bridge_agent_init does it. Whoever does it again gets
 * a mapping of its own: the handles and addresses of the one before stay valid. Without a key nothing changes; after
 * another failure the table is not mapped. */
BRI_API int vlan_group_shm_init(void);

/* Hands a VLAN-group message of the server (submodule 8) to the registered handlers, with a debug line that names
 * the event. msg is a whole message, header and payload, at any address; nothing in it is checked. Event-loop
 * thread. */
BRI_API void bridge_vlan_group_lib_dispose_msg(struct bri_msg_hdr *msg);

/* Do nothing: the table is never locked. */
BRI_API void vlan_group_wr_lock(void);
BRI_API void vlan_group_read_lock(void);
BRI_API void vlan_group_unlock(void);

/* Entry 0 of the table; null before set-up. */
BRI_API struct vlan_group_entry *vlan_group_base_entry(void);

/* The entry of a group inside the segment; null when it is free. */
BRI_API struct vlan_group_entry *vlan_group_get_entry(uint8_t id);

/* 1 when the group exists. The two are one. */
BRI_API int vlan_group_check_exist(uint8_t id);
BRI_API int vg_clnt_check_exist(uint8_t id);

/* Makes an empty group; an entry that holds another id is overwritten, one that holds this id is kept. 1, or 0
 * before set-up and for an id without an entry. */
BRI_API int vlan_group_creat_entry(uint8_t id);

/* Clears the entry, whatever it holds. */
BRI_API void vlan_group_free_entry(uint8_t id);

/* Write and read the default VLAN: 1, or 0 without a group or vid. */
BRI_API int vlan_group_set_default_vlan(uint8_t id, uint16_t vid);
BRI_API int vlan_group_get_default_vlan(uint8_t id, uint16_t *vid);

/* Write and read the VLAN assign mode: 1, or 0 without a group or mode. */
BRI_API int vlan_group_set_vlan_assign_mode(uint8_t id, uint8_t mode);
BRI_API int vlan_group_get_vlan_assign_mode(uint8_t id, uint8_t *mode);

/* Number of member VLANs, modulo 256: 1, or 0 without a group or count. */
BRI_API int vlan_group_get_member_vlan_cnt(uint8_t id, uint8_t *count);

/* Makes the members 1..4094 of the group equal to new_set; ids 0 and 4095 are left alone. What was added and removed
 * is set in added and removed and counted, modulo 256, on top of what the caller passes there; nothing is cleared
 * first. 1, or 0 without a group or with a null pointer, and nothing changed. */
BRI_API int vlan_group_set_member_vlan(uint8_t id, const struct vlanset *new_set, struct vlanset *added,
                                       struct vlanset *removed, uint8_t *added_count, uint8_t *removed_count);

/* Copies the entry: 1, or 0 without a group or dst. */
BRI_API int vlan_group_get_entry_copy(uint8_t id, struct vlan_group_entry *dst);

/* 1 when the VLAN is a member of the group; 0 for ids of 4096 and above. */
BRI_API int vlan_group_check_vlan_is_member_vlan(uint8_t id, uint16_t vid);

/* Copies the members: 0; -22 when out is null; -1 without a group. */
BRI_API int vlan_group_get_member_vlan_bitmap(uint8_t id, struct vlanset *out);

/* Copies the members, as vlan_group_get_member_vlan_bitmap does: 1, or 0 on any failure. */
BRI_API int vg_clnt_get_vlan_list(uint8_t id, struct vlanset *out);

/* The default VLAN; 0 without a group. */
BRI_API uint16_t vg_clnt_get_default_vid(uint8_t id);

/* The VLAN assign mode; 0 without a group. */
BRI_API uint8_t vg_clnt_get_assign_mode(uint8_t id);

/* 1 and the id of the first group 1..128 that holds the VLAN, as that entry's id byte has it; 0 when none does. id
 * may be null. */
BRI_API int vg_clnt_is_member_of_any_group(uint16_t vid, uint8_t *id);

/* Sets the bits of count VLAN ids in a set that the caller has cleared; ids of 4096 and above are skipped. Gives
 * count + 1, on purpose; 0 when count is not 0 and vids or set is null. */
BRI_API int vg_clnt_change_array_to_bitmap(const uint16_t *vids, uint8_t count, struct vlanset *set);

BRI_END_DECLS

#endif
