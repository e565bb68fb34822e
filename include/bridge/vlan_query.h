/* VLAN questions and walks over member ports.
 *
 * All of them read the shared tables in place and send nothing; each may be called from any thread, except the two that
 * run the re-search (see bridge/vlan_client.h) and may thereby call event handlers: vl_clnt_exist and
 * vl_clnt_get_vlan_mode belong to the event-loop thread. A VLAN id outside the database's range is a VLAN that does not
 * exist, a port outside 1..63 a port that does not.
 *
 * @code
 * #include <stdio.h>
 *
 * static int show(int32_t ifx, void *arg) {
 *     printf("port %d is in VLAN %d\n", (int)ifx, *(const int *)arg);
 *     return BRI_WALK_GO_ON;
 * }
 *
 * void show_members(int vid) {
 *     vl_clnt_member_walk_through((uint16_t)vid, show, &vid, NULL, NULL);
 * }
 * @endcode
 */
#ifndef BRIDGE_VLAN_QUERY_H
#define BRIDGE_VLAN_QUERY_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

/* What an action of vl_clnt_member_walk_through wants next. Any other result goes on too, but stops a walk without a
 * rollback. */
enum bri_walk_result {
    BRI_WALK_GO_ON = 0,
    BRI_WALK_STOP = 1,
    BRI_WALK_UNDO_THIS = 2,   /* roll this port back and stop */
    BRI_WALK_UNDO_EARLIER = 3 /* roll the ports below this one back and stop */
};

/* Called for one member port with the argument that was given for it. The result of an action is an enum
 * bri_walk_result, that of a rollback is ignored. */
typedef int (*vl_member_fn)(int32_t ifx, void *arg);

/* Whether the VLAN exists, and has the mode `flag` (enum bri_vlan_mode) unless that is 0: 1 or 0. Re-search first. */
BRI_API int vl_clnt_exist(uint16_t vid, uint32_t flag);

/* 0 and the VLAN's mode (enum bri_vlan_mode) in `*mode`; -1 when there is no such VLAN or `mode` is null. Re-search
 * first, in every case. */
BRI_API int vl_clnt_get_vlan_mode(uint16_t vid, uint32_t *mode);

/* The port's block inside the shared segment; null when the port is not present. */
BRI_API struct spcb *vl_clnt_ifindex_to_spcb(int32_t ifx);

/* 1 for an interface index 1..63, else 0. */
BRI_API int vl_clnt_check_ifindex_valid(int32_t ifx);

/* 0 when the port is present and allows the VLAN, else -2. */
BRI_API int vl_clnt_is_allowvlan_mem(uint16_t vid, int32_t ifx);

/* 0 when the port is a dynamic member of the VLAN, else -2. The database keeps no dynamic memberships: always -2. */
BRI_API int vl_clnt_if_is_dyn_member(int32_t ifx, uint16_t vid);

/* Super VLAN that the VLAN belongs to; its own id when it belongs to none or does not exist. */
BRI_API uint16_t vl_clnt_get_manage_vid(uint16_t vid);

/* Whether the VLAN is a super VLAN, and whether it is a sub-VLAN: 1 or 0. */
BRI_API int vl_clnt_is_supervlan(uint16_t vid);
BRI_API int vl_clnt_is_subvlan(uint16_t vid);

/* Interface index of the VLAN's routed interface; 0 for none. */
BRI_API uint32_t vl_clnt_get_svifx_from_vid(uint16_t vid);

/* Lowest VLAN 1..4094 whose routed interface is `ifx`, searched in the table as it is now; 0 for none. */
BRI_API uint16_t vl_clnt_get_vid_from_svifx(uint32_t ifx);

/* 0 and the number of present member ports in `*count` (0 for a VLAN that does not exist); -1 for null. */
BRI_API int vl_clnt_get_vlan_port_cnt(uint16_t vid, uint32_t *count);

/* The port's native VLAN in `*vid`, 0 when the port is not present. Gives 0; -9 when the stored value is 0; -1 for
 * null. */
BRI_API int vl_clnt_get_port_default_vid(int32_t ifx, uint16_t *vid);

/* 0 and the port's mode (enum bri_port_mode) in `*mode`; -9 when the port is not present; -1 for null. */
BRI_API int vl_clnt_get_portmode_by_index(int32_t ifx, uint32_t *mode);

/* How the port carries the VLAN (enum bri_tag_rule) in `*tag`. Not a member is also the answer when the port or the
 * VLAN does not exist and for a super VLAN. Gives 0; -1 for null. */
BRI_API int vl_clnt_get_member_info(uint16_t vid, int32_t ifx, uint32_t *tag);

/* Fills `*set` with the VLANs 1..4094 of which vl_clnt_get_member_info calls the port a member. Gives 0; -1 for null;
 * -9 when the port is not present and -10 when it is routed (`*set` is left as it was). */
BRI_API int vl_clnt_get_enable_vlans(int32_t ifx, struct vlanset *set);

/* Copies the VLAN's name into `buf` and fills up with NUL to size - 1 bytes. The byte behind them is not written: a
 * name of size - 1 characters ends without NUL unless the caller cleared the buffer of `size` bytes. Gives 0; -1 for
 * null; -7 when there is no such VLAN; -2 when the name (at most 35 characters) is longer than size - 1. */
BRI_API int vl_clnt_get_vlan_name(uint16_t vid, char *buf, int32_t size);

/* Calls `action` for each port 1..63 that is a member of the VLAN when the walk starts, rising, until it asks to stop.
 * BRI_WALK_UNDO_EARLIER calls `rollback` for each port below that is present and a member of the VLAN at that moment,
 * falling; the port that asked is not among them. With a null `rollback` every result but BRI_WALK_GO_ON stops. Nothing
 * for a null `action` or a VLAN that does not exist. The callbacks may change the tables. */
BRI_API void vl_clnt_member_walk_through(uint16_t vid, vl_member_fn action, void *action_arg, vl_member_fn rollback,
                                         void *rollback_arg);

BRI_END_DECLS

#endif
