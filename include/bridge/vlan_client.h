/* VLAN events: version checks, re-search on look-up, origin-data replay. */
#ifndef BRIDGE_VLAN_CLIENT_H
#define BRIDGE_VLAN_CLIENT_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Payload of VLAN_EVENT_CREATE_INDEX, _DESTROY_INDEX, _RENAME and _MODIFY_VLAN_MODE. */
struct vl_evt_vlan_rec {
    uint16_t vid;         /*  0: VLAN id */
    uint16_t version;     /*  2: set by the server in create and destroy */
    char name[36];        /*  4: VLAN name, NUL-terminated */
    uint32_t occasion;    /* 40: 1: destroy ahead of a re-create, 2: mode in a replay */
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
    uint32_t kind;         /* 1028: 1 static, 2 dynamic */
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

BRI_API extern uint16_t g_vlan_private_version[4095];

typedef void (*vl_swport_walk_fn)(struct spcb *port, void *arg);

BRI_API char *vl_clnt_manage_init(struct bri_clnt_ctx *client);

BRI_API int vl_clnt_on_server_msg(struct bri_msg_hdr *msg);

BRI_API void vl_clnt_notify_origin_data(void);

BRI_API uint16_t vl_get_vlan_private_version(uint16_t vid);

BRI_API int vl_version_check_on_create_notify(uint16_t vid, uint16_t version);

BRI_API int vl_version_check_on_destroy_notify(uint16_t vid, uint16_t version);

BRI_API int vl_version_check_on_range_create_notify(struct vl_evt_vlanset_rec *rec);

BRI_API int vl_version_check_on_range_destroy_notify(struct vl_evt_vlanset_rec *rec);

BRI_API void vl_version_check_on_reserch(uint16_t vid);

BRI_API void vl_version_update(uint16_t vid, uint16_t version);

BRI_API void vl_clnt_get_vle_from_vid(uint16_t vid, struct vle **out);

BRI_API void vl_clnt_swport_walk_throught(vl_swport_walk_fn callback, void *arg);

BRI_END_DECLS

#endif
