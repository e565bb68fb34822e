/* VLAN database in the shared segment "VLAN-SHM". */
#ifndef BRIDGE_VLAN_DB_H
#define BRIDGE_VLAN_DB_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

#define BRI_VLAN_ENTRIES 4095u /* entries in the table, VLAN id 0..4094; entry 0 is never used */
#define BRI_VID_MIN 1u
#define BRI_VID_MAX 4094u
#define BRI_VLAN_NAME_SIZE 36u

/* VLAN modes. */
enum bri_vlan_mode { BRI_VLAN_STATIC = 1, BRI_VLAN_DYNAMIC = 2, BRI_VLAN_SUPER = 4 };

/* VLAN entry. */
struct vle {
    uint8_t proxy;                 /*  0: 1 once initialised; shown ON / OFF */
    uint8_t vswpt_num;             /*  1: virtual switch-port number */
    uint8_t created_by_cli;        /*  2: 1: configured by the operator */
    uint8_t reserved;              /*  3: zero */
    uint16_t version;              /*  4: raised each time the entry is initialised; survives clearing */
    uint16_t vid;                  /*  6: own VLAN id; 0: the entry is empty */
    uint16_t manage_vid;           /*  8: super VLAN it belongs to, else its own id */
    uint16_t ref;                  /* 10: users of the VLAN */
    uint32_t mode;                 /* 12: enum bri_vlan_mode */
    uint32_t svi_ifx;              /* 16: routed interface, 0 for none */
    uint32_t up_mem;               /* 20: members that are up */
    uint32_t create_time;          /* 24: uptime in seconds x 100 at initialisation */
    char name[BRI_VLAN_NAME_SIZE]; /* 28: NUL-terminated */
    uint32_t svi_state_a;          /* 64: cleared when the SVI is removed */
    uint32_t svi_state_b;          /* 68: cleared when the SVI is removed */
    uint32_t members[2];           /* 72: static member ports: bit ifx & 31 of word ifx >> 5 */
};
BRI_SIZE(vle, 80);
BRI_AT(vle, proxy, 0);
BRI_AT(vle, vswpt_num, 1);
BRI_AT(vle, created_by_cli, 2);
BRI_AT(vle, reserved, 3);
BRI_AT(vle, version, 4);
BRI_AT(vle, vid, 6);
BRI_AT(vle, manage_vid, 8);
BRI_AT(vle, ref, 10);
BRI_AT(vle, mode, 12);
BRI_AT(vle, svi_ifx, 16);
BRI_AT(vle, up_mem, 20);
BRI_AT(vle, create_time, 24);
BRI_AT(vle, name, 28);
BRI_AT(vle, svi_state_a, 64);
BRI_AT(vle, svi_state_b, 68);
BRI_AT(vle, members, 72);

/* Statistics block behind the VLAN entries. */
struct vl_stat {
    uint16_t min_vid;        /*  0: lowest valid VLAN id */
    uint16_t max_vid;        /*  2: highest valid VLAN id */
    int32_t max_vlan_num;    /*  4: most VLANs */
    int32_t cur_vlan_num;    /*  8: VLANs now */
    int32_t max_svi_num;     /* 12: most SVIs */
    int32_t cur_svi_num;     /* 16: SVIs now */
    int32_t total_del_times; /* 20: deletions since creation */
    uint8_t server[512];     /* 24: the server's */
};
BRI_SIZE(vl_stat, 536);
BRI_AT(vl_stat, min_vid, 0);
BRI_AT(vl_stat, max_vid, 2);
BRI_AT(vl_stat, max_vlan_num, 4);
BRI_AT(vl_stat, cur_vlan_num, 8);
BRI_AT(vl_stat, max_svi_num, 12);
BRI_AT(vl_stat, cur_svi_num, 16);
BRI_AT(vl_stat, total_del_times, 20);
BRI_AT(vl_stat, server, 24);

/* Bridge-protocol registry behind the statistics block. */
struct bri_proto_registry {
    uint32_t state;        /* 0: bit p: protocol p is enabled */
    uint32_t prejudge[14]; /* 4: bit q of word p: p conflicts with q */
};
BRI_SIZE(bri_proto_registry, 60);
BRI_AT(bri_proto_registry, state, 0);
BRI_AT(bri_proto_registry, prejudge, 4);

/* Data area of the segment "VLAN-SHM". */
struct bri_vlandb {
    struct vle vlans[BRI_VLAN_ENTRIES]; /*      0: entry of VLAN id v at index v */
    struct vl_stat stat;                /* 327600: statistics */
    struct bri_proto_registry proto;    /* 328136: protocol registry */
};
BRI_SIZE(bri_vlandb, 328196);
BRI_AT(bri_vlandb, vlans, 0);
BRI_AT(bri_vlandb, stat, 327600);
BRI_AT(bri_vlandb, proto, 328136);

/* Where this process has the VLAN database mapped; all null before vl_vlandb_init succeeded. */
struct vl_mng {
    struct bri_shm_handle *shm;
    struct bri_sem_lock *lock;
    struct vle *entries;
    struct vl_stat *stat;
    struct bri_proto_registry *proto_state;
};

BRI_API extern struct vl_mng g_vl_mng;

BRI_API int vl_vlandb_init(void);

BRI_API void vl_vlandb_deinit(void);

BRI_API void vl_rdown(void);

BRI_API void vl_wdown(void);

BRI_API void vl_up(void);

BRI_API int vl_check_vlanid_valid(int32_t vid);

BRI_API void vl_get_vlan_range(uint32_t *min, uint32_t *max);

BRI_API void vl_set_vlan_range(uint32_t min, uint32_t max);

BRI_API int vl_check_vlan_capacity(void);

BRI_API void vl_increase_vlan_number(void);

BRI_API void vl_decrease_vlan_number(void);

BRI_API int32_t vl_get_vlan_number(void);

BRI_API int32_t vl_get_total_del_times(void);

BRI_API void vl_increase_svi_number(void);

BRI_API void vl_decrease_svi_number(void);

BRI_API struct vle *vl_get_raw_vlan_entry(uint16_t vid);

BRI_API struct vle *vl_get_vlan_entry(uint16_t vid);

BRI_API void vl_get_vle_from_vid(uint16_t vid, struct vle **out);

BRI_API int vl_get_vlan_copy(uint16_t vid, struct vle *dst);

BRI_API int vl_exist(uint16_t vid, uint32_t mode);

BRI_API int vl_exist_imp(uint16_t vid, uint32_t mode);

BRI_API int vl_vlanset_exist(uint32_t mode, const struct vlanset *set, struct vlanset *missing);

BRI_API uint16_t vl_get_vlan_latest_version(uint16_t vid);

BRI_API int vl_get_vlan_mode(uint16_t vid, uint32_t *mode); /* 1 and the mode, else 0 */

BRI_API int vl_get_vlan_name(uint16_t vid, char *dst);      /* 1 and the name (dst holds 36 bytes), else 0 */

BRI_API uint32_t vl_get_svi_ifx(uint16_t vid);

BRI_API uint16_t vl_get_manage_vid(uint16_t vid);

BRI_API uint32_t vl_get_vlan_up_mem(uint16_t vid);

BRI_API uint16_t vl_get_vlan_ref(uint16_t vid);

BRI_API int vl_is_created_by_cli(uint16_t vid);

BRI_API uint8_t vl_get_vswpt_num(uint16_t vid);

BRI_API uint16_t vl_get_vid_from_svifx(uint32_t ifx);

BRI_API int vl_is_subvlan(uint16_t vid);

BRI_API int vl_is_supervlan(uint16_t vid);

BRI_API int vl_is_vlan_member(uint16_t vid, int32_t ifx);

BRI_API int vl_is_vlan_static_member(uint16_t vid, int32_t ifx);

BRI_API int vl_is_vlan_have_port(uint16_t vid);

BRI_API int vl_get_vlan_port_count(uint16_t vid);

BRI_API int vl_get_vlan_port_bmap(uint16_t vid, uint32_t out[2]);

BRI_API int vl_is_vlanset_not_empty(const struct vlanset *set);

BRI_API void vl_add_static_member(int32_t ifx, uint16_t vid);

BRI_API void vl_del_static_member(int32_t ifx, uint16_t vid);

BRI_API int vl_is_vlan_dynamic_member(uint16_t vid, int32_t ifx);

BRI_API void vl_add_dynamic_member(int32_t ifx, uint16_t vid);

BRI_API void vl_del_dynamic_member(int32_t ifx, uint16_t vid);

BRI_API int vl_set_iprange(uint16_t vid, uint32_t low, uint32_t high);

BRI_API int vl_get_subvlan_iprange(uint16_t vid, uint32_t *low, uint32_t *high);

BRI_API int vl_svlan_is_subvid_ip(uint16_t vid, uint32_t ip);

BRI_API int vl_svlan_search_ip(uint16_t vid, uint32_t ip);

BRI_API void vl_initial_vlan_entry(uint16_t vid, uint32_t mode);

BRI_API void vl_clear_vlan_entry(uint16_t vid);

BRI_API void vl_set_vlan_mode(uint16_t vid, uint32_t mode);

BRI_API void vl_set_vlan_mode_batch(const struct vlanset *set, uint32_t mode);

BRI_API int vl_set_svi(uint16_t vid, uint32_t ifx);

BRI_API uint32_t vl_increase_vlan_ref(uint16_t vid);

BRI_API uint32_t vl_decrease_vlan_ref(uint16_t vid);

BRI_API int vl_set_created_by_cli(uint16_t vid);

BRI_API int vl_clear_created_by_cli(uint16_t vid);

BRI_API void vl_range_set_created_by_cli(const struct vlanset *set);

BRI_API int vl_set_vswpt_num(uint16_t vid, uint8_t n);

BRI_API int vldb_get_shm_head(uint32_t *key, uint32_t *shmid, uint32_t *size, char *name);

BRI_API void vl_vlandb_show_status(void);

BRI_END_DECLS

#endif
