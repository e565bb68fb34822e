// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

int vl_clnt_create_vlan_entry(uint16_t ) { return 0; }
int vl_clnt_delete_vlan_entry(uint16_t ) { return 0; }
void bridge_client_vlan_reply(const uint32_t *) {}
void bridge_client_vlanset_reply(const struct vl_vlanset_reply *) {}
void bridge_client_vlan_rollback(uint16_t ) {}
void bridge_client_vlanset_rollback(const struct vlanset *) {}
void vl_clnt_set_native_vlan(int32_t , uint16_t ) {}
int vl_clnt_add_dyn_member(int32_t , uint16_t ) { return 0; }
int vl_clnt_del_dyn_member(int32_t , uint16_t ) { return 0; }
int vl_clnt_dyn_member_add_rang(int32_t , const struct vlanset *) { return 0; }
int vl_clnt_dyn_member_del_rang(int32_t , const struct vlanset *) { return 0; }
int vl_clnt_swport_add_allow_vlanset(int32_t , const struct vlanset *) { return 0; }
int vl_clnt_swport_rmv_allow_vlanset(int32_t , const struct vlanset *) { return 0; }
int vl_clnt_swport_rmv_sub_if_vlanset(int32_t , const struct vlanset *) { return 0; }
void vl_clnt_notify_set_vswpt_num(const uint8_t *, const uint8_t *) {}
int vl_clnt_set_trill_vswpt_num(const uint8_t *, const uint8_t *) { return 0; }
int vl_clnt_set_bri_dyn_member(uint32_t , int32_t , uint16_t ) { return 0; }
int vl_clnt_set_bri_dyn_member_rang(uint32_t , int32_t , const struct vlanset *) { return 0; }
