/* Switch-port database in the shared segment "SWPORT-SHM".
 *
 * Before bridge_portdb_init succeeded every port is absent. Look-ups read the segment in place, send nothing and log
 * nothing; set-up and swport_get_shm_head write debug lines, while flag BRI_DBG_VLAN is set (module "BRIDGE", tag
 * "PORT-DB"). Mapping, and the calls that change this process's own count, belong to the thread that runs the host's
 * event loop; all others may run in any thread once the database is mapped. `ifx` is an interface index, `vid` a VLAN
 * id.
 *
 * @code
 * // How many ports carry a VLAN untagged.
 * int untagged_ports(uint16_t vid) {
 *     int count = 0;
 *     for (int32_t ifx = 1; ifx < (int32_t)BRI_PORT_SLOTS; ifx++)
 *         count += swport_get_vlan_tag_rule(ifx, vid) == BRI_TAG_UNTAGGED;
 *     return count;
 * }
 * @endcode
 */
#ifndef BRIDGE_PORT_DB_H
#define BRIDGE_PORT_DB_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

#define BRI_PORT_SLOTS        64u  /* blocks in the table; interface index 0 is never valid */
#define BRI_STP_INSTANCES     65u  /* spanning-tree instances 0..64 */
#define BRI_STP_INSTANCE_NONE 1022 /* answer for a VLAN without an instance */

/* Port modes. */
enum bri_port_mode {
    BRI_PORT_ROUTE = 0,
    BRI_PORT_ACCESS = 1,
    BRI_PORT_TRUNK = 2,
    BRI_PORT_HOST = 3,
    BRI_PORT_PROMIS = 4,
    BRI_PORT_TUNNEL = 5,
    BRI_PORT_UPLINK = 6,
    BRI_PORT_HYBRID = 7
};

/* How a port carries a VLAN. */
enum bri_tag_rule { BRI_TAG_NOT_MEMBER = 1, BRI_TAG_UNTAGGED = 3, BRI_TAG_TAGGED = 4 };

/* Switch-port control block. The library writes only attr_exclude and tag_vlan. */
struct spcb {
    uint16_t default_vid;                  /*    0: native / access VLAN */
    uint8_t reserved1[2];                  /*    2: padding */
    uint32_t ifx;                          /*    4: own interface index; 0: the port does not exist */
    uint32_t attr_exclude;                 /*    8: port functions that exclude each other */
    uint32_t version;                      /*   12: change counter of the server */
    uint32_t mode;                         /*   16: enum bri_port_mode */
    uint32_t default_mode;                 /*   20: mode the port returns to */
    uint8_t server1[268];                  /*   24: the server's */
    uint16_t fwd_state[BRI_STP_INSTANCES]; /*  292: forwarding state per instance 0..64 */
    uint8_t server2[2];                    /*  422: the server's */
    struct vlanset tag_vlan;               /*  424: VLANs carried tagged */
    struct vlanset allow_vlan;             /*  936: VLANs that may pass */
    uint8_t server3[512];                  /* 1448: the server's */
};
BRI_SIZE(spcb, 1960);
BRI_AT(spcb, default_vid, 0);
BRI_AT(spcb, reserved1, 2);
BRI_AT(spcb, ifx, 4);
BRI_AT(spcb, attr_exclude, 8);
BRI_AT(spcb, version, 12);
BRI_AT(spcb, mode, 16);
BRI_AT(spcb, default_mode, 20);
BRI_AT(spcb, server1, 24);
BRI_AT(spcb, fwd_state, 292);
BRI_AT(spcb, server2, 422);
BRI_AT(spcb, tag_vlan, 424);
BRI_AT(spcb, allow_vlan, 936);
BRI_AT(spcb, server3, 1448);

/* Data area of the segment "SWPORT-SHM". */
struct bri_portdb {
    struct spcb ports[BRI_PORT_SLOTS]; /*      0: block i for interface index i */
    uint16_t stp_instance[4096];       /* 125440: spanning-tree instance of each VLAN */
    uint8_t reserved[1960];            /* 133632: not used by the library */
};
BRI_SIZE(bri_portdb, 135592);
BRI_AT(bri_portdb, ports, 0);
BRI_AT(bri_portdb, stp_instance, 125440);
BRI_AT(bri_portdb, reserved, 133632);

/* Maps the database: makes or joins its segment and its lock (key 0x22220001 + VSDID). 1, or 0 with a debug line. A
 * repetition maps anew and forgets this process's own count; earlier block addresses stay readable. One that fails
 * leaves nothing mapped, except that without a usable key (0) everything stays as it was. */
BRI_API int bridge_portdb_init(void);

/* Does nothing: the mapping lasts as long as the process. */
BRI_API void bridge_portdb_deinit(void);

/* Markers around accesses to the database: begin of reading, begin of writing, end. They take no lock, on purpose. */
BRI_API void swport_rdown(void);
BRI_API void swport_wdown(void);
BRI_API void swport_up(void);

/* 1 for an interface index from 1 to 63, else 0. */
BRI_API int swport_check_ifindex_valid(int32_t ifx);

/* The block of a valid index in shared memory, whether the port is there or not; null for an invalid index and
 * while nothing is mapped. */
BRI_API struct spcb *swport_get_raw_spcb(int32_t ifx);

/* The block of a port that is there, in shared memory, where the server may change it at any time; else null. */
BRI_API struct spcb *swport_get_spcb(int32_t ifx);

/* The same as swport_get_spcb. */
BRI_API struct spcb *vl_ifindex_to_swport(int32_t ifx);

/* 1 when the port is there, else 0. */
BRI_API int swport_check_exist(int32_t ifx);

/* Copies the whole block, 1960 bytes. 1, or 0 for an absent port or a null `dst`. */
BRI_API int swport_get_spcb_copy(int32_t ifx, struct spcb *dst);

/* The block's version; 0 for an absent port. */
BRI_API uint32_t swport_get_version(int32_t ifx);

/* The port's mode, and the mode it returns to (enum bri_port_mode). 1 with the value in *mode, or 0 for an absent port
 * or a null pointer. */
BRI_API int swport_get_port_mode(int32_t ifx, uint32_t *mode);
BRI_API int swport_get_port_default_mode(int32_t ifx, uint32_t *mode);

/* The port's native VLAN; 0 for an absent port. */
BRI_API uint16_t swport_get_port_default_vid(int32_t ifx);

/* The tag-VLAN bitmap in shared memory; null for an absent port. */
BRI_API struct vlanset *swport_get_tag_vlan(int32_t ifx);

/* 1 when the VLAN may pass the port, else 0 (also for a vid above 4095). */
BRI_API int swport_is_allow_vlan(int32_t ifx, uint16_t vid);

/* How many of the ports 1 to 63 are there. */
BRI_API int swport_get_total_port_num(void);

/* Name of a port mode, in upper case; "Unkonw-swport- mode" for any value above 7. */
BRI_API const char *swport_vlan_mode_name(uint32_t mode);

/* How the port carries the VLAN (enum bri_tag_rule): 1 when the port is absent or no member, 4 tagged, 3 untagged. A
 * trunk tags all but its native VLAN, an uplink tags every VLAN, a hybrid port tags the VLANs of its tag bitmap except
 * the native one, and every other mode tags none. */
BRI_API int swport_get_vlan_tag_rule(int32_t ifx, uint16_t vid);

/* Marks the VLAN as carried tagged. 0; -17 when it is already; -22 when the port is absent or the vid above 4095. */
BRI_API int swport_tag_vlan_add(int32_t ifx, uint16_t vid);

/* Takes the mark away. 0; -22 when it is not there, the port is absent or the vid above 4095. */
BRI_API int swport_tag_vlan_del(int32_t ifx, uint16_t vid);

/* Marks every VLAN of `map` as carried tagged. Nothing for an absent port or a null map. */
BRI_API void swport_tag_vlan_merge_map(int32_t ifx, const struct vlanset *map);

/* Takes the marks of every VLAN in `map` away and leaves in `map` exactly those that this call took away. Nothing, and
 * the map as it was, for an absent port; nothing for a null map. */
BRI_API void swport_tag_vlan_rmv_map(int32_t ifx, struct vlanset *map);

/* Takes all marks away. Nothing for an absent port. */
BRI_API void swport_reset_tag_vlan(int32_t ifx);

/* Claims or gives up port functions, in one step across all processes and under the database's lock, for which it waits
 * as bridge_wr_lock does. With the low 8 bits of `set` not zero, sets `bits` unless a function of the group 0x1fc0
 * (bits 6 to 12) that is in `conflict_mask` is set already; with them zero, clears `bits`. The functions of this word
 * are the daemons' own: of the names in port_exclusion.h, which are those of another table, only BRI_PROMISCUOUS (bit
 * 6) lies in the group, and a conflict with any of the others is never found here. 1 when the port is there, else 0
 * with *conflicts untouched. With 1, *conflicts (null allowed) holds the functions in the way, and 0 means that the
 * change was made. */
BRI_API int swport_set_attr_exclude(int32_t ifx, uint32_t bits, uint32_t set, uint32_t conflict_mask,
                                    uint32_t *conflicts);

/* The 4096 instance numbers by VLAN id, in shared memory; null while nothing is mapped. */
BRI_API uint16_t *swport_get_stp_instance_table(void);

/* Copies 4096 instance numbers from `src` into the table. Nothing for null or while nothing is mapped. */
BRI_API void swport_set_instance_table(const uint16_t *src);

/* The spanning-tree instance of a VLAN; 1022 (BRI_STP_INSTANCE_NONE) for a vid outside the VLAN database's range or
 * while either database is not mapped. */
BRI_API uint16_t swport_get_stp_instance(uint16_t vid);

/* Counts this process's own number of ports up, to 65 at most, and down, to 0 at least. */
BRI_API void swport_inc_total_num(void);
BRI_API void swport_dec_total_num(void);

/* Key, id, data size in bytes and name (`name` holds 64 bytes) from the segment's header. 1, or 0 for a null pointer
 * or, with a debug line, while nothing is mapped. */
BRI_API int swport_get_shm_head(uint32_t *key, uint32_t *shmid, uint32_t *size, char *name);

/* Prints the segment, the table addresses and this process's own number of ports, whatever the debug flags say. */
BRI_API void swport_show_status(void);

BRI_END_DECLS

#endif
