/* VLAN groups in the shared segment "VLAN-GROUP-SHM". */
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
    struct bri_shm_handle *shm;
    struct bri_sem_lock *lock;
    struct vlan_group_entry *entries;
};

BRI_API extern struct vlan_group_manager vlan_group_mng;

BRI_API int vlan_group_shm_init(void);

BRI_API void bridge_vlan_group_lib_dispose_msg(struct bri_msg_hdr *msg);

BRI_API void vlan_group_wr_lock(void);

BRI_API void vlan_group_read_lock(void);

BRI_API void vlan_group_unlock(void);

BRI_API struct vlan_group_entry *vlan_group_base_entry(void);

BRI_API struct vlan_group_entry *vlan_group_get_entry(uint8_t id);

BRI_API int vlan_group_check_exist(uint8_t id);

BRI_API int vg_clnt_check_exist(uint8_t id);

BRI_API int vlan_group_creat_entry(uint8_t id);

BRI_API void vlan_group_free_entry(uint8_t id);

BRI_API int vlan_group_set_default_vlan(uint8_t id, uint16_t vid);

BRI_API int vlan_group_get_default_vlan(uint8_t id, uint16_t *vid);

BRI_API int vlan_group_set_vlan_assign_mode(uint8_t id, uint8_t mode);

BRI_API int vlan_group_get_vlan_assign_mode(uint8_t id, uint8_t *mode);

BRI_API int vlan_group_get_member_vlan_cnt(uint8_t id, uint8_t *count);

BRI_API int vlan_group_set_member_vlan(uint8_t id, const struct vlanset *new_set, struct vlanset *added, struct vlanset *removed, uint8_t *added_count, uint8_t *removed_count);

BRI_API int vlan_group_get_entry_copy(uint8_t id, struct vlan_group_entry *dst);

BRI_API int vlan_group_check_vlan_is_member_vlan(uint8_t id, uint16_t vid);

BRI_API int vlan_group_get_member_vlan_bitmap(uint8_t id, struct vlanset *out);

BRI_API int vg_clnt_get_vlan_list(uint8_t id, struct vlanset *out);

BRI_API uint16_t vg_clnt_get_default_vid(uint8_t id);

BRI_API uint8_t vg_clnt_get_assign_mode(uint8_t id);

BRI_API int vg_clnt_is_member_of_any_group(uint16_t vid, uint8_t *id);

BRI_API int vg_clnt_change_array_to_bitmap(const uint16_t *vids, uint8_t count, struct vlanset *set);

BRI_END_DECLS

#endif
