/* VLAN questions and walks over member ports. */
#ifndef BRIDGE_VLAN_QUERY_H
#define BRIDGE_VLAN_QUERY_H

#include <bridge/base.h>

BRI_BEGIN_DECLS

typedef int (*vl_member_fn)(int32_t ifx, void *arg);

BRI_API int vl_clnt_exist(uint16_t vid, uint32_t flag);

BRI_API int vl_clnt_get_vlan_mode(uint16_t vid, uint32_t *mode);

BRI_API struct spcb *vl_clnt_ifindex_to_spcb(int32_t ifx);

BRI_API int vl_clnt_check_ifindex_valid(int32_t ifx);

BRI_API int vl_clnt_is_allowvlan_mem(uint16_t vid, int32_t ifx);

BRI_API int vl_clnt_if_is_dyn_member(int32_t ifx, uint16_t vid);

BRI_API uint16_t vl_clnt_get_manage_vid(uint16_t vid);

BRI_API int vl_clnt_is_supervlan(uint16_t vid);

BRI_API int vl_clnt_is_subvlan(uint16_t vid);

BRI_API uint32_t vl_clnt_get_svifx_from_vid(uint16_t vid);

BRI_API uint16_t vl_clnt_get_vid_from_svifx(uint32_t ifx);

BRI_API int vl_clnt_get_vlan_port_cnt(uint16_t vid, uint32_t *count);

BRI_API int vl_clnt_get_port_default_vid(int32_t ifx, uint16_t *vid);

BRI_API int vl_clnt_get_portmode_by_index(int32_t ifx, uint32_t *mode);

BRI_API int vl_clnt_get_member_info(uint16_t vid, int32_t ifx, uint32_t *tag);

BRI_API int vl_clnt_get_enable_vlans(int32_t ifx, struct vlanset *set);

BRI_API int vl_clnt_get_vlan_name(uint16_t vid, char *buf, int32_t size);

BRI_API void vl_clnt_member_walk_through(uint16_t vid, vl_member_fn action, void *action_arg, vl_member_fn rollback, void *rollback_arg);

BRI_END_DECLS

#endif
