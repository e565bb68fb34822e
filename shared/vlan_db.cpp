// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

vl_mng g_vl_mng;
int vl_vlandb_init() { return 0; }
void vl_vlandb_deinit() {}
void vl_rdown() {}
void vl_wdown() {}
void vl_up() {}
int vl_check_vlanid_valid(int32_t ) { return 0; }
void vl_get_vlan_range(uint32_t *, uint32_t *) {}
void vl_set_vlan_range(uint32_t , uint32_t ) {}
int vl_check_vlan_capacity() { return 0; }
void vl_increase_vlan_number() {}
void vl_decrease_vlan_number() {}
int32_t vl_get_vlan_number() { return 0; }
int32_t vl_get_total_del_times() { return 0; }
void vl_increase_svi_number() {}
void vl_decrease_svi_number() {}
struct vle *vl_get_raw_vlan_entry(uint16_t ) { return nullptr; }
struct vle *vl_get_vlan_entry(uint16_t ) { return nullptr; }
void vl_get_vle_from_vid(uint16_t , struct vle **) {}
int vl_get_vlan_copy(uint16_t , struct vle *) { return 0; }
int vl_exist(uint16_t , uint32_t ) { return 0; }
int vl_exist_imp(uint16_t , uint32_t ) { return 0; }
int vl_vlanset_exist(uint32_t , const struct vlanset *, struct vlanset *) { return 0; }
uint16_t vl_get_vlan_latest_version(uint16_t ) { return 0; }
int vl_get_vlan_mode(uint16_t , uint32_t *) { return 0; }
int vl_get_vlan_name(uint16_t , char *) { return 0; }
uint32_t vl_get_svi_ifx(uint16_t ) { return 0; }
uint16_t vl_get_manage_vid(uint16_t ) { return 0; }
uint32_t vl_get_vlan_up_mem(uint16_t ) { return 0; }
uint16_t vl_get_vlan_ref(uint16_t ) { return 0; }
int vl_is_created_by_cli(uint16_t ) { return 0; }
uint8_t vl_get_vswpt_num(uint16_t ) { return 0; }
uint16_t vl_get_vid_from_svifx(uint32_t ) { return 0; }
int vl_is_subvlan(uint16_t ) { return 0; }
int vl_is_supervlan(uint16_t ) { return 0; }
int vl_is_vlan_member(uint16_t , int32_t ) { return 0; }
int vl_is_vlan_static_member(uint16_t , int32_t ) { return 0; }
int vl_is_vlan_have_port(uint16_t ) { return 0; }
int vl_get_vlan_port_count(uint16_t ) { return 0; }
int vl_get_vlan_port_bmap(uint16_t , uint32_t *) { return 0; }
int vl_is_vlanset_not_empty(const struct vlanset *) { return 0; }
void vl_add_static_member(int32_t , uint16_t ) {}
void vl_del_static_member(int32_t , uint16_t ) {}
int vl_is_vlan_dynamic_member(uint16_t , int32_t ) { return 0; }
void vl_add_dynamic_member(int32_t , uint16_t ) {}
void vl_del_dynamic_member(int32_t , uint16_t ) {}
int vl_set_iprange(uint16_t , uint32_t , uint32_t ) { return 0; }
int vl_get_subvlan_iprange(uint16_t , uint32_t *, uint32_t *) { return 0; }
int vl_svlan_is_subvid_ip(uint16_t , uint32_t ) { return 0; }
int vl_svlan_search_ip(uint16_t , uint32_t ) { return 0; }
void vl_initial_vlan_entry(uint16_t , uint32_t ) {}
void vl_clear_vlan_entry(uint16_t ) {}
void vl_set_vlan_mode(uint16_t , uint32_t ) {}
void vl_set_vlan_mode_batch(const struct vlanset *, uint32_t ) {}
int vl_set_svi(uint16_t , uint32_t ) { return 0; }
uint32_t vl_increase_vlan_ref(uint16_t ) { return 0; }
uint32_t vl_decrease_vlan_ref(uint16_t ) { return 0; }
int vl_set_created_by_cli(uint16_t ) { return 0; }
int vl_clear_created_by_cli(uint16_t ) { return 0; }
void vl_range_set_created_by_cli(const struct vlanset *) {}
int vl_set_vswpt_num(uint16_t , uint8_t ) { return 0; }
int vldb_get_shm_head(uint32_t *, uint32_t *, uint32_t *, char *) { return 0; }
void vl_vlandb_show_status() {}
