/* VLAN events: version checks, re-search on look-up, origin-data replay.
 *
 * The server raises a VLAN's version with every incarnation and stamps creates and deletes with it. This process keeps
 * the newest one it has accepted of each VLAN, its private version, and drops what is late. Versions are compared as
 * signed 16-bit numbers, so one that wraps past 32767 counts as older. A look-up (the re-search) brings the private
 * version up to the VLAN table and gives the handlers the creates that were missed.
 *
 * A handler may look VLANs up and ask for replays in its turn. A VLAN whose re-search runs is not searched again inside
 * it, and re-searches lie at most 8 deep inside each other: what is left out, the next look-up tells. Replays of every
 * kind (see bridge/services.h) lie at most 8 deep too; a deeper one is discarded with a debug line.
 *
 * @code
 * static void count(struct spcb *port, void *arg) {
 *     (void)port;
 *     ++*(int *)arg;
 * }
 *
 * int switched_ports(void) {
 *     int ports = 0;
 *     vl_clnt_swport_walk_throught(count, &ports);
 *     return ports;
 * }
 * @endcode
 */
#ifndef BRIDGE_VLAN_CLIENT_H
#define BRIDGE_VLAN_CLIENT_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Why a vl_evt_vlan_rec was sent. */
enum bri_vlan_occasion {
    BRI_VLAN_OCCASION_NONE = 0,
    BRI_VLAN_OCCASION_RECREATE = 1, /* a destroy that the re-search sends ahead of its create */
    BRI_VLAN_OCCASION_REPLAY = 2    /* a dynamic VLAN's mode in the replay */
};

/* Kind of a vl_evt_intf_vlanset_rec. */
enum bri_membership_kind { BRI_MEMBERSHIP_STATIC = 1, BRI_MEMBERSHIP_DYNAMIC = 2 };

/* Payload of VLAN_EVENT_CREATE_INDEX, _DESTROY_INDEX, _RENAME and _MODIFY_VLAN_MODE. */
struct vl_evt_vlan_rec {
    uint16_t vid;         /*  0: VLAN id */
    uint16_t version;     /*  2: set by the server in create and destroy */
    char name[36];        /*  4: VLAN name, NUL-terminated */
    uint32_t occasion;    /* 40: enum bri_vlan_occasion */
    uint32_t mode;        /* 44: enum bri_vlan_mode */
    uint32_t reserved[2]; /* 48: zero */
};
BRI_SIZE(vl_evt_vlan_rec, 56);
BRI_AT(vl_evt_vlan_rec, vid, 0);
BRI_AT(vl_evt_vlan_rec, version, 2);
BRI_AT(vl_evt_vlan_rec, name, 4);
BRI_AT(vl_evt_vlan_rec, occasion, 40);
BRI_AT(vl_evt_vlan_rec, mode, 44);
BRI_AT(vl_evt_vlan_rec, reserved, 48);

/* Payload of VLAN_EVENT_CREATE_RANGE and _DESTROY_RANGE. */
struct vl_evt_vlanset_rec {
    struct vlanset vlans;    /*    0: the VLANs */
    uint16_t versions[4096]; /*  512: version of each VLAN */
    uint32_t origin_data;    /* 8704: 1 in the replay's create */
};
BRI_SIZE(vl_evt_vlanset_rec, 8708);
BRI_AT(vl_evt_vlanset_rec, vlans, 0);
BRI_AT(vl_evt_vlanset_rec, versions, 512);
BRI_AT(vl_evt_vlanset_rec, origin_data, 8704);

/* Payload of VLAN_EVENT_CREATE_INTF. */
struct vl_evt_intf_rec {
    uint32_t ifx;          /*  0: port */
    uint8_t reserved1[12]; /*  4: zero */
    uint32_t mode;         /* 16: enum bri_port_mode */
    uint16_t pvid;         /* 20: default VLAN */
    uint16_t reserved2;    /* 22: zero */
    uint32_t reserved3;    /* 24: zero */
};
BRI_SIZE(vl_evt_intf_rec, 28);
BRI_AT(vl_evt_intf_rec, ifx, 0);
BRI_AT(vl_evt_intf_rec, reserved1, 4);
BRI_AT(vl_evt_intf_rec, mode, 16);
BRI_AT(vl_evt_intf_rec, pvid, 20);
BRI_AT(vl_evt_intf_rec, reserved2, 22);
BRI_AT(vl_evt_intf_rec, reserved3, 24);

/* Payload of VLAN_EVENT_MODIFY_INTF_MODE. */
struct vl_evt_intf_mode_rec {
    uint32_t ifx;  /* 0: port */
    uint32_t mode; /* 4: enum bri_port_mode */
};
BRI_SIZE(vl_evt_intf_mode_rec, 8);
BRI_AT(vl_evt_intf_mode_rec, ifx, 0);
BRI_AT(vl_evt_intf_mode_rec, mode, 4);

/* Payload of VLAN_EVENT_MODIFY_INTF_PVID, also as a request. */
struct vl_evt_intf_pvid_rec {
    uint32_t ifx;      /* 0: port */
    uint16_t pvid;     /* 4: default VLAN */
    uint16_t reserved; /* 6: zero */
};
BRI_SIZE(vl_evt_intf_pvid_rec, 8);
BRI_AT(vl_evt_intf_pvid_rec, ifx, 0);
BRI_AT(vl_evt_intf_pvid_rec, pvid, 4);
BRI_AT(vl_evt_intf_pvid_rec, reserved, 6);

/* Payload of VLAN_EVENT_MODIFY_INTF_ALLOWVL. */
struct vl_evt_intf_allow_rec {
    uint32_t ifx;          /*   0: port */
    struct vlanset allow;  /*   4: allowed VLANs */
    uint8_t reserved[520]; /* 516: zero */
};
BRI_SIZE(vl_evt_intf_allow_rec, 1036);
BRI_AT(vl_evt_intf_allow_rec, ifx, 0);
BRI_AT(vl_evt_intf_allow_rec, allow, 4);
BRI_AT(vl_evt_intf_allow_rec, reserved, 516);

/* Payload of VLAN_EVENT_ADD_INTF. */
struct vl_evt_intf_vlan_rec {
    uint32_t ifx;       /*  0: port */
    uint16_t vid;       /*  4: VLAN id */
    uint16_t reserved1; /*  6: zero */
    uint32_t reserved2; /*  8: zero */
    uint32_t value;     /* 12: 3 */
    uint32_t mode;      /* 16: enum bri_port_mode */
    uint32_t reserved3; /* 20: zero */
};
BRI_SIZE(vl_evt_intf_vlan_rec, 24);
BRI_AT(vl_evt_intf_vlan_rec, ifx, 0);
BRI_AT(vl_evt_intf_vlan_rec, vid, 4);
BRI_AT(vl_evt_intf_vlan_rec, reserved1, 6);
BRI_AT(vl_evt_intf_vlan_rec, reserved2, 8);
BRI_AT(vl_evt_intf_vlan_rec, value, 12);
BRI_AT(vl_evt_intf_vlan_rec, mode, 16);
BRI_AT(vl_evt_intf_vlan_rec, reserved3, 20);

/* Payload of VLAN_EVENT_RANGE_ADD_INTF. */
struct vl_evt_intf_vlanset_rec {
    uint32_t ifx;          /*    0: port */
    struct vlanset vlans;  /*    4: VLANs of which the port is a member */
    struct vlanset tagged; /*  516: VLANs whose tag rule on the port is 4 */
    uint32_t kind;         /* 1028: enum bri_membership_kind */
    uint32_t reserved;     /* 1032: zero */
};
BRI_SIZE(vl_evt_intf_vlanset_rec, 1036);
BRI_AT(vl_evt_intf_vlanset_rec, ifx, 0);
BRI_AT(vl_evt_intf_vlanset_rec, vlans, 4);
BRI_AT(vl_evt_intf_vlanset_rec, tagged, 516);
BRI_AT(vl_evt_intf_vlanset_rec, kind, 1028);
BRI_AT(vl_evt_intf_vlanset_rec, reserved, 1032);

/* Payload of VLAN_EVENT_SVI_CREATE_DESTROY. */
struct vl_evt_svi_rec {
    uint32_t svi_ifx;     /*  0: routed interface */
    uint32_t reserved1;   /*  4: zero */
    uint16_t vid;         /*  8: VLAN id */
    uint8_t reserved2[6]; /* 10: zero */
};
BRI_SIZE(vl_evt_svi_rec, 16);
BRI_AT(vl_evt_svi_rec, svi_ifx, 0);
BRI_AT(vl_evt_svi_rec, reserved1, 4);
BRI_AT(vl_evt_svi_rec, vid, 8);
BRI_AT(vl_evt_svi_rec, reserved2, 10);

/* Private versions by VLAN id; entry 0 is never used. All zero at load, kept until the process ends: a reconnect does
 * not reset them. Read and written on the event-loop thread. */
BRI_API extern uint16_t g_vlan_private_version[4095];

/* Called by vl_clnt_swport_walk_throught with a present port's block inside the shared segment and the caller's
 * argument. */
typedef void (*vl_swport_walk_fn)(struct spcb *port, void *arg);

/* Starts the VLAN client: maps the switch-port and the VLAN database and keeps the client's name for log lines. Called
 * once by bridge_agent_init, before any other function of this header. Gives the kept name, or null when `client` is
 * null or a database cannot be mapped. Sends nothing. */
BRI_API char *vl_clnt_manage_init(struct bri_clnt_ctx *client);

/* Handles one message of the VLAN submodule: header, and header.len payload bytes behind it, at any alignment. Creates
 * and deletes pass their version check first; a late one is dropped. A create or delete of a VLAN set loses the bits of
 * its late VLANs in place, in the message itself, and is dropped when none is left. Types 412, 413, 414 and 2177 are
 * never passed on; the others go to the registered handlers with their payload as it stands. A create or delete whose
 * payload is too short to be checked (below 4 bytes, of a set below 8708) is dropped. Gives -1 for null, else 0, also
 * for a dropped message. Event-loop thread; sends nothing. */
BRI_API int vl_clnt_on_server_msg(struct bri_msg_hdr *msg);

/* Gives the handlers the whole VLAN and port state as events, in this order: one VLAN_EVENT_CREATE_RANGE of every VLAN;
 * for each VLAN its mode when dynamic, its name when it is not the default one, its SVI when it has one; each present
 * port's creation; each port's mode, native VLAN and allowed VLANs; each port's memberships. Routed ports are left out:
 * nothing tells of them here. An access port is told with one VLAN_EVENT_ADD_INTF, also when its native VLAN is 0;
 * every other port with one VLAN_EVENT_RANGE_ADD_INTF, also when it is a member of none. Every record is built from the
 * tables right before its event, so what a handler changes shows in the records behind it; a VLAN or port that it
 * removes is skipped from there on. The re-search runs on every VLAN look-up. Event-loop thread; sends nothing. */
BRI_API void vl_clnt_notify_origin_data(void);

/* Private version of a VLAN; 0 for an id outside the database's range. Event-loop thread; sends nothing. */
BRI_API uint16_t vl_get_vlan_private_version(uint16_t vid);

/* Whether a create of this version is new: 1 and the version is kept when it is above the private one, else 0. For an
 * id outside the database's range nothing is kept: its private version counts as 0 each time, so any version above 0 is
 * new there. Event-loop thread; sends nothing. */
BRI_API int vl_version_check_on_create_notify(uint16_t vid, uint16_t version);

/* Whether a delete of this version is current: 0 when it is below the private one; 1 when it is equal, or above, which
 * also keeps it. Outside the database's range as above: every version that is not negative is current. Event-loop
 * thread; sends nothing. */
BRI_API int vl_version_check_on_destroy_notify(uint16_t vid, uint16_t version);

/* Whether creates or deletes are new or current, for each VLAN 1..4094 of a set with that VLAN's version; the bits of
 * dropped VLANs are cleared in `rec`, which may be at any alignment. 1 when at least one VLAN was accepted; 0 when none
 * was or `rec` is null. Event-loop thread; send nothing. */
BRI_API int vl_version_check_on_range_create_notify(struct vl_evt_vlanset_rec *rec);
BRI_API int vl_version_check_on_range_destroy_notify(struct vl_evt_vlanset_rec *rec);

/* The re-search: when the VLAN exists and its version in the database differs from the private one, the private one
 * takes it over. When it was below, the handlers first get VLAN_EVENT_DESTROY_INDEX if the private version was not 0,
 * then VLAN_EVENT_CREATE_INDEX, both with name and mode and with version 0: vl_get_vlan_private_version has it. Every
 * look-up runs it, those of an origin-data replay included, so such a create may come before the server's, which is
 * dropped then as late. Event-loop thread; sends nothing. */
BRI_API void vl_version_check_on_reserch(uint16_t vid);

/* Sets the private version of a VLAN; nothing for an id outside the database's range. Event-loop thread;
 * sends nothing. */
BRI_API void vl_version_update(uint16_t vid, uint16_t version);

/* Stores the VLAN's entry, which lies in the shared segment, or null when there is none in `*out`, and runs the
 * re-search for one that was found. Nothing for a null `out`. A handler that the re-search calls may remove the VLAN:
 * the address stays readable, the entry is empty then. Event-loop thread; sends nothing. */
BRI_API void vl_clnt_get_vle_from_vid(uint16_t vid, struct vle **out);

/* Calls back for each port 1..63 that is present and not routed (mode word 0), rising. Nothing for a null
 * callback. Event-loop thread; sends nothing. */
BRI_API void vl_clnt_swport_walk_throught(vl_swport_walk_fn callback, void *arg);

BRI_END_DECLS

#endif
