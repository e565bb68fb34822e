/* VLAN requests to the server, pre-judgement replies and rollback.
 *
 * VLAN state changes only through the server: a request is sent, the server applies it to the shared tables and tells
 * every client with an event of the same number. A request that is sent is not waited for. Sending fails (-1) while
 * there is no connection; nothing is kept for later or tried again. Requests wait for the send batch to leave (50 ms at
 * most), replies leave at once. Any thread may call these functions, except vl_clnt_del_dyn_member, which runs the
 * re-search (see bridge/vlan_client.h) and belongs to the event-loop thread.
 *
 * Pre-judgement: before it creates a VLAN (or a set) the server sends VLAN_EVENT_CREATE_PREJ (or _CREATE_RANGE_PREJ) to
 * the clients that registered for it. Each answers exactly once with bridge_client_vlan_reply (or _vlanset_reply). One
 * that accepted, but then fails to apply the created VLAN, takes it back with a rollback.
 *
 * @code
 * #include <bridge/vlan_client.h>
 *
 * // A handler of VLAN_EVENT_CREATE_PREJ that wants VLANs up to 100 only.
 * static void judge(const struct vl_evt_vlan_rec *vlan) {
 *     const uint32_t refused = vlan->vid > 100;
 *     bridge_client_vlan_reply(&refused);
 * }
 * @endcode
 */
#ifndef BRIDGE_VLAN_REQUEST_H
#define BRIDGE_VLAN_REQUEST_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* Payload of VLAN_EVENT_CREATE_RANGE_PREJ as a reply. All zero: every VLAN was accepted. */
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

/* Asks for the VLAN to be created: VLAN_EVENT_CREATE_INDEX with the id alone. Gives 0 when it is queued, and also when
 * nothing is sent because the id is outside the database's range; -1 when it cannot be sent. */
BRI_API int vl_clnt_create_vlan_entry(uint16_t vid);

/* Asks for the VLAN to be deleted: VLAN_EVENT_DESTROY_INDEX with the id alone. Gives 0 when it is queued, and also when
 * nothing is sent because there is no such VLAN; -1 when it cannot be sent. */
BRI_API int vl_clnt_delete_vlan_entry(uint16_t vid);

/* Answers the pre-judgement of one VLAN, VLAN_EVENT_CREATE_PREJ: `*result` is 0 to accept, anything else to refuse.
 * Leaves at once, ahead of waiting requests. Sends nothing for null. */
BRI_API void bridge_client_vlan_reply(const uint32_t *result);

/* Answers the pre-judgement of a VLAN set, VLAN_EVENT_CREATE_RANGE_PREJ, with the record as the caller filled it.
 * Leaves at once, ahead of waiting requests. Sends nothing for null. */
BRI_API void bridge_client_vlanset_reply(const struct vl_vlanset_reply *reply);

/* Takes one VLAN back, as a set of one. Sends nothing for an id of 4096 and above. */
BRI_API void bridge_client_vlan_rollback(uint16_t vid);

/* Takes VLANs back: VLAN_EVENT_DESTROY_RANGE without versions. Sends nothing for null. */
BRI_API void bridge_client_vlanset_rollback(const struct vlanset *set);

/* Asks for a port's native VLAN to be changed: VLAN_EVENT_MODIFY_INTF_PVID. Nothing is checked here. */
BRI_API void vl_clnt_set_native_vlan(int32_t ifx, uint16_t vid);

/* Asks for a trunk port to become a dynamic member of a VLAN: VLAN_EVENT_SET_ADD_DYN_INTF. Gives 0 when it is queued,
 * and also when nothing is sent because the id is outside the database's range or the port is not present; 2 when the
 * port's mode is not BRI_PORT_TRUNK; -1 when it cannot be sent. */
BRI_API int vl_clnt_add_dyn_member(int32_t ifx, uint16_t vid);

/* Asks for the dynamic membership to end: VLAN_EVENT_SET_DEL_DYN_INTF. Results as of vl_clnt_add_dyn_member; also 0,
 * with nothing sent, when there is no such VLAN. Re-search first. Event-loop thread. */
BRI_API int vl_clnt_del_dyn_member(int32_t ifx, uint16_t vid);

/* Ask for the dynamic membership in a set of VLANs to begin or end, unchecked: VLAN_EVENT_DYN_MEM_ADD_RANG and
 * _DYN_MEM_DEL_RANG. Give 0 when queued; -1 for null or when it cannot be sent. */
BRI_API int vl_clnt_dyn_member_add_rang(int32_t ifx, const struct vlanset *set);
BRI_API int vl_clnt_dyn_member_del_rang(int32_t ifx, const struct vlanset *set);

/* Ask for VLANs to be allowed or no longer allowed on a port, or for those of its sub-interfaces to be removed:
 * VLAN_EVENT_SP_ADD_ALLOW_VLAN, _SP_RMV_ALLOW_VLAN and _SP_RMV_SUB_IF_VLAN. Give 0 when queued; -1 for null or when it
 * cannot be sent. */
BRI_API int vl_clnt_swport_add_allow_vlanset(int32_t ifx, const struct vlanset *set);
BRI_API int vl_clnt_swport_rmv_allow_vlanset(int32_t ifx, const struct vlanset *set);
BRI_API int vl_clnt_swport_rmv_sub_if_vlanset(int32_t ifx, const struct vlanset *set);

/* Passes two tables of 512 bytes on to the server, VLAN_EVENT_SET_VSWPT_NUM. Sends nothing when one is null. */
BRI_API void vl_clnt_notify_set_vswpt_num(const uint8_t *first, const uint8_t *second);

/* Passes two tables of 512 bytes on, as vl_clnt_notify_set_vswpt_num does; 0 also when it could not be sent, -1 when a
 * table is null. */
BRI_API int vl_clnt_set_trill_vswpt_num(const uint8_t *first, const uint8_t *second);

/* Build and send the two port records, of one VLAN (24 bytes) and of a VLAN set (516 bytes), as an event type of the
 * caller's choice. Nothing is checked but the pointer. Give 0 when queued; -1 for null or when it cannot be sent. */
BRI_API int vl_clnt_set_bri_dyn_member(uint32_t type, int32_t ifx, uint16_t vid);
BRI_API int vl_clnt_set_bri_dyn_member_rang(uint32_t type, int32_t ifx, const struct vlanset *set);

BRI_END_DECLS

#endif
