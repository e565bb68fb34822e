/* VLAN requests to the server, pre-judgement replies and rollback. */
#ifndef BRIDGE_VLAN_REQUEST_H
#define BRIDGE_VLAN_REQUEST_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Payload of VLAN_EVENT_CREATE_RANGE_PREJ as a reply. */
struct vl_vlanset_reply {
    struct vlanset failed; /*   0: VLANs that could not be accepted */
    uint32_t failure;      /* 512: 0: all succeeded */
};
BRI_SIZE(vl_vlanset_reply, 516);
BRI_AT(vl_vlanset_reply, failed, 0);
BRI_AT(vl_vlanset_reply, failure, 512);

/* Requests about one VLAN of a port (413, 414). */
struct vl_dyn_member_req {
    uint32_t ifx;         /* 0: port */
    uint16_t vid;         /* 4: VLAN id */
    uint8_t reserved[18]; /* 6: zero */
};
BRI_SIZE(vl_dyn_member_req, 24);
BRI_AT(vl_dyn_member_req, ifx, 0);
BRI_AT(vl_dyn_member_req, vid, 4);
BRI_AT(vl_dyn_member_req, reserved, 6);

/* Requests about a VLAN set of a port (415 to 418, 421). */
struct vl_port_vlanset_req {
    uint32_t ifx;         /* 0: port */
    struct vlanset vlans; /* 4: the VLANs */
};
BRI_SIZE(vl_port_vlanset_req, 516);
BRI_AT(vl_port_vlanset_req, ifx, 0);
BRI_AT(vl_port_vlanset_req, vlans, 4);

/* Payload of VLAN_EVENT_SET_VSWPT_NUM. */
struct vl_vswpt_req {
    uint8_t first[512];  /*   0: first table */
    uint8_t second[512]; /* 512: second table */
};
BRI_SIZE(vl_vswpt_req, 1024);
BRI_AT(vl_vswpt_req, first, 0);
BRI_AT(vl_vswpt_req, second, 512);

BRI_API int vl_clnt_create_vlan_entry(uint16_t vid);

BRI_API int vl_clnt_delete_vlan_entry(uint16_t vid);

BRI_API void bridge_client_vlan_reply(const uint32_t *result);

BRI_API void bridge_client_vlanset_reply(const struct vl_vlanset_reply *reply);

BRI_API void bridge_client_vlan_rollback(uint16_t vid);

BRI_API void bridge_client_vlanset_rollback(const struct vlanset *set);

BRI_API void vl_clnt_set_native_vlan(int32_t ifx, uint16_t vid);

BRI_API int vl_clnt_add_dyn_member(int32_t ifx, uint16_t vid);

BRI_API int vl_clnt_del_dyn_member(int32_t ifx, uint16_t vid);

BRI_API int vl_clnt_dyn_member_add_rang(int32_t ifx, const struct vlanset *set);

BRI_API int vl_clnt_dyn_member_del_rang(int32_t ifx, const struct vlanset *set);

BRI_API int vl_clnt_swport_add_allow_vlanset(int32_t ifx, const struct vlanset *set);

BRI_API int vl_clnt_swport_rmv_allow_vlanset(int32_t ifx, const struct vlanset *set);

BRI_API int vl_clnt_swport_rmv_sub_if_vlanset(int32_t ifx, const struct vlanset *set);

BRI_API void vl_clnt_notify_set_vswpt_num(const uint8_t *first, const uint8_t *second);

BRI_API int vl_clnt_set_trill_vswpt_num(const uint8_t *first, const uint8_t *second);

BRI_API int vl_clnt_set_bri_dyn_member(uint32_t type, int32_t ifx, uint16_t vid);

BRI_API int vl_clnt_set_bri_dyn_member_rang(uint32_t type, int32_t ifx, const struct vlanset *set);

BRI_END_DECLS

#endif
