// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

int vl_clnt_exist(uint16_t , uint32_t ) { return 0; }
int vl_clnt_get_vlan_mode(uint16_t , uint32_t *) { return 0; }
struct spcb *vl_clnt_ifindex_to_spcb(int32_t ) { return nullptr; }
int vl_clnt_check_ifindex_valid(int32_t ) { return 0; }
int vl_clnt_is_allowvlan_mem(uint16_t , int32_t ) { return 0; }
int vl_clnt_if_is_dyn_member(int32_t , uint16_t ) { return 0; }
uint16_t vl_clnt_get_manage_vid(uint16_t ) { return 0; }
int vl_clnt_is_supervlan(uint16_t ) { return 0; }
int vl_clnt_is_subvlan(uint16_t ) { return 0; }
uint32_t vl_clnt_get_svifx_from_vid(uint16_t ) { return 0; }
uint16_t vl_clnt_get_vid_from_svifx(uint32_t ) { return 0; }
int vl_clnt_get_vlan_port_cnt(uint16_t , uint32_t *) { return 0; }
int vl_clnt_get_port_default_vid(int32_t , uint16_t *) { return 0; }
int vl_clnt_get_portmode_by_index(int32_t , uint32_t *) { return 0; }
int vl_clnt_get_member_info(uint16_t , int32_t , uint32_t *) { return 0; }
int vl_clnt_get_enable_vlans(int32_t , struct vlanset *) { return 0; }
int vl_clnt_get_vlan_name(uint16_t , char *, int32_t ) { return 0; }
void vl_clnt_member_walk_through(uint16_t , vl_member_fn , void *, vl_member_fn , void *) {}
