/* VLAN database in the shared segment "VLAN-SHM".
 *
 * The server and every client read and write the segment in place. No operation here takes a lock, sends a message or
 * allocates: single words are read and written whole, bits and counters change by atomic steps, and who needs an entry
 * in one piece takes a copy. Any thread may call once vl_vlandb_init has succeeded; before that every operation gives
 * 0, null or its failure value and does nothing.
 *
 * Debug lines: flag BRI_DBG_VLAN, module "BRIDGE", tag "VLAN-DB".
 *
 * @code
 * // How many members of the VLAN have their link.
 * uint32_t members_up(uint16_t vid) {
 *     struct vle vlan;
 *     return vl_get_vlan_copy(vid, &vlan) ? vlan.up_mem : 0;
 * }
 * @endcode
 */
#ifndef BRIDGE_VLAN_DB_H
#define BRIDGE_VLAN_DB_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

#define BRI_VLAN_ENTRIES   4095u /* entries in the table, VLAN id 0..4094; entry 0 is never used */
#define BRI_VID_MIN        1u    /* least VLAN id */
#define BRI_VID_MAX        4094u /* greatest VLAN id */
#define BRI_VLAN_NAME_SIZE 36u   /* bytes of a name, its NUL included */

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

/* Where this process has the VLAN database mapped; all null before vl_vlandb_init succeeded, but for the lock where
 * only the segment could not be had. */
struct vl_mng {
    struct bri_shm_handle *shm;             /* the segment */
    struct bri_sem_lock *lock;              /* its semaphore, which no operation takes */
    struct vle *entries;                    /* BRI_VLAN_ENTRIES of them */
    struct vl_stat *stat;                   /* the statistics block */
    struct bri_proto_registry *proto_state; /* the protocol registry */
};

/* Read-only for everyone but vl_vlandb_init. */
BRI_API extern struct vl_mng g_vl_mng;

/* Creates or joins the semaphore and the segment of the VLAN database and maps it; the key is 0x11110001 plus the
 * environment variable VSDID. 1 on success; 0 without a usable key, semaphore or segment, with a debug line that says
 * which. A failure leaves g_vl_mng null, but for the lock where only the segment failed; without a usable key (0) it
 * stays as it was. A second call maps anew and sets the table's lock free. The handles and the mapping of the first
 * stay valid: whoever kept them may go on using them, and may give them back.
 * Once, from the event-loop thread, before other threads use the database. bridge_agent_init does it. */
BRI_API int vl_vlandb_init(void);

/* Does nothing: the mapping lives as long as the process. */
BRI_API void vl_vlandb_deinit(void);

/* Mark the beginning of a read, of a write, and their end. They take no lock: see the head of this file. */
BRI_API void vl_rdown(void);
BRI_API void vl_wdown(void);
BRI_API void vl_up(void);

/* 1 when vid lies within the limits of the statistics block, both ends included. The limits are the server's: before
 * an id indexes a table of 4095 entries it is also held against BRI_VID_MAX. */
BRI_API int vl_check_vlanid_valid(int32_t vid);

/* The limits for VLAN ids; 0 and 0 before set-up. A null pointer is passed over. */
BRI_API void vl_get_vlan_range(uint32_t *min, uint32_t *max);

/* Stores the limits for VLAN ids, the low 16 bits of each. */
BRI_API void vl_set_vlan_range(uint32_t min, uint32_t max);

/* 1 while fewer than 4095 VLANs are counted. */
BRI_API int vl_check_vlan_capacity(void);

/* Counts one VLAN more, up to 4095. */
BRI_API void vl_increase_vlan_number(void);

/* Counts one VLAN less and one deletion more; nothing at 0 or below. */
BRI_API void vl_decrease_vlan_number(void);

/* VLANs counted now. */
BRI_API int32_t vl_get_vlan_number(void);

/* Deletions counted since the segment was created. */
BRI_API int32_t vl_get_total_del_times(void);

/* Count one routed interface (SVI) more or less, without bounds. */
BRI_API void vl_increase_svi_number(void);
BRI_API void vl_decrease_svi_number(void);

/* The entry of a VLAN id, empty or not, inside the segment; null for an id outside the limits or above BRI_VID_MAX. */
BRI_API struct vle *vl_get_raw_vlan_entry(uint16_t vid);

/* The same, null also when the entry is empty. Its fields change under the reader's eyes. */
BRI_API struct vle *vl_get_vlan_entry(uint16_t vid);

/* Stores what vl_get_vlan_entry gives into *out. */
BRI_API void vl_get_vle_from_vid(uint16_t vid, struct vle **out);

/* Copies a live entry to dst: 1, or 0 without an entry or dst. */
BRI_API int vl_get_vlan_copy(uint16_t vid, struct vle *dst);

/* 1 when the VLAN exists and mode is 0 or the VLAN's own (enum bri_vlan_mode). The two are one. */
BRI_API int vl_exist(uint16_t vid, uint32_t mode);
BRI_API int vl_exist_imp(uint16_t vid, uint32_t mode);

/* Whether each VLAN 1..4094 of set exists with that mode (0: any): 1, or 0 and the bit of each that does not is set
 * in missing, which is not cleared first. 0 also for a null pointer and, with missing untouched, before set-up. */
BRI_API int vl_vlanset_exist(uint32_t mode, const struct vlanset *set, struct vlanset *missing);

/* Version of the entry, also of an empty one; 0 for an id without an entry. */
BRI_API uint16_t vl_get_vlan_latest_version(uint16_t vid);

/* Mode of the VLAN (enum bri_vlan_mode): 1 and *mode, or 0 without a VLAN or mode. */
BRI_API int vl_get_vlan_mode(uint16_t vid, uint32_t *mode);

/* Name of the VLAN: 1 and 36 bytes at dst, at most 35 of them before the NUL; 0 without a VLAN or dst. */
BRI_API int vl_get_vlan_name(uint16_t vid, char *dst);

/* Interface index of the VLAN's routed interface; 0 for none and without a VLAN. */
BRI_API uint32_t vl_get_svi_ifx(uint16_t vid);

/* The super VLAN that the VLAN belongs to, or the VLAN itself; vid when there is no such VLAN. */
BRI_API uint16_t vl_get_manage_vid(uint16_t vid);

/* The server's number of members that are up; 0 without a VLAN. */
BRI_API uint32_t vl_get_vlan_up_mem(uint16_t vid);

/* Users of the VLAN; 0 without a VLAN. */
BRI_API uint16_t vl_get_vlan_ref(uint16_t vid);

/* 1 when the operator configured the VLAN. */
BRI_API int vl_is_created_by_cli(uint16_t vid);

/* Virtual switch-port number of the VLAN; 0 without a VLAN. */
BRI_API uint8_t vl_get_vswpt_num(uint16_t vid);

/* The lowest VLAN 1..4094 whose routed interface is ifx; 0 for none and for ifx 0. */
BRI_API uint16_t vl_get_vid_from_svifx(uint32_t ifx);

/* 1 when the VLAN is of mode BRI_VLAN_SUPER and belongs to another VLAN. */
BRI_API int vl_is_subvlan(uint16_t vid);

/* 1 when the VLAN is of mode BRI_VLAN_SUPER and belongs to itself. */
BRI_API int vl_is_supervlan(uint16_t vid);

/* 1 when the port, interface index 1..63, is a member of the VLAN, whether the port is present or not. */
BRI_API int vl_is_vlan_member(uint16_t vid, int32_t ifx);

/* 1 when the port is a member of the VLAN: vl_is_vlan_member, with a debug line for an interface index outside 1..63.
 */
BRI_API int vl_is_vlan_static_member(uint16_t vid, int32_t ifx);

/* 1 when any member bit of the VLAN is set. */
BRI_API int vl_is_vlan_have_port(uint16_t vid);

/* Number of present ports that are members of the VLAN; 0 and a debug line without a VLAN. */
BRI_API int vl_get_vlan_port_count(uint16_t vid);

/* The two member words: 1, or 0 without a VLAN or out. */
BRI_API int vl_get_vlan_port_bmap(uint16_t vid, uint32_t out[2]);

/* 1 when any of the 4096 bits is set; 0 for null. */
BRI_API int vl_is_vlanset_not_empty(const struct vlanset *set);

/* Set or clear the member bit of a port, without losing the bits that other processes change at the same time.
 * Interface indexes outside 0..63 change nothing. A debug line tells the change, or that there is no such VLAN. */
BRI_API void vl_add_static_member(int32_t ifx, uint16_t vid);
BRI_API void vl_del_static_member(int32_t ifx, uint16_t vid);

/* Dynamic members are not kept in this table: always 0, and no change. */
BRI_API int vl_is_vlan_dynamic_member(uint16_t vid, int32_t ifx);
BRI_API void vl_add_dynamic_member(int32_t ifx, uint16_t vid);
BRI_API void vl_del_dynamic_member(int32_t ifx, uint16_t vid);

/* Address ranges of sub-VLANs are not kept in this table: always 0. */
BRI_API int vl_set_iprange(uint16_t vid, uint32_t low, uint32_t high);
BRI_API int vl_get_subvlan_iprange(uint16_t vid, uint32_t *low, uint32_t *high);
BRI_API int vl_svlan_is_subvid_ip(uint16_t vid, uint32_t ip);
BRI_API int vl_svlan_search_ip(uint16_t vid, uint32_t ip);

/* Begins a new life of the entry: all fields zero but the id and manage id, the name ("VLAN%04u", or "DVLAN%04u" for
 * BRI_VLAN_DYNAMIC), the version (one up, 16 bits), proxy 1, mode and creation time; and counts one VLAN more, also
 * when the entry was live. */
BRI_API void vl_initial_vlan_entry(uint16_t vid, uint32_t mode);

/* Empties a live entry, its version excepted, and counts one VLAN less. */
BRI_API void vl_clear_vlan_entry(uint16_t vid);

/* Store another mode in one live entry, or in those of the VLANs 1..4094 of a set. A dynamic VLAN made static is
 * renamed to "VLAN%04u"; a static one made dynamic keeps its name. */
BRI_API void vl_set_vlan_mode(uint16_t vid, uint32_t mode);
BRI_API void vl_set_vlan_mode_batch(const struct vlanset *set, uint32_t mode);

/* Gives the VLAN a routed interface, or with 0 takes it away and clears up_mem and the two SVI state words; the SVI
 * count follows. 0, also when ifx is what stands there; -1 when another interface stands there; -2 without a VLAN. */
BRI_API int vl_set_svi(uint16_t vid, uint32_t ifx);

/* One user more, wrapping at 16 bits, or one less, staying at 0. The new count; 0xFFFFFFFF without a VLAN. */
BRI_API uint32_t vl_increase_vlan_ref(uint16_t vid);
BRI_API uint32_t vl_decrease_vlan_ref(uint16_t vid);

/* Mark the VLAN as configured by the operator, or not: 1, or 0 without a VLAN. */
BRI_API int vl_set_created_by_cli(uint16_t vid);
BRI_API int vl_clear_created_by_cli(uint16_t vid);

/* The mark for each live VLAN 1..4094 of a set. */
BRI_API void vl_range_set_created_by_cli(const struct vlanset *set);

/* Stores the virtual switch-port number: 0, or -2 without a VLAN. */
BRI_API int vl_set_vswpt_num(uint16_t vid, uint8_t n);

/* Key, id, data size in bytes and name (64 bytes, NUL included) of the segment: 1, or 0 with a null pointer or, with
 * a debug line, without a segment. */
BRI_API int vldb_get_shm_head(uint32_t *key, uint32_t *shmid, uint32_t *size, char *name);

/* Prints the segment and the statistics to the log, whatever the debug flags say. */
BRI_API void vl_vlandb_show_status(void);

BRI_END_DECLS

#endif
