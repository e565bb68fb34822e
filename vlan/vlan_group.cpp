// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

vlan_group_manager vlan_group_mng;
int vlan_group_shm_init() { return 0; }
void bridge_vlan_group_lib_dispose_msg(struct bri_msg_hdr *) {}
void vlan_group_wr_lock() {}
void vlan_group_read_lock() {}
void vlan_group_unlock() {}
struct vlan_group_entry *vlan_group_base_entry() { return nullptr; }
struct vlan_group_entry *vlan_group_get_entry(uint8_t ) { return nullptr; }
int vlan_group_check_exist(uint8_t ) { return 0; }
int vg_clnt_check_exist(uint8_t ) { return 0; }
int vlan_group_creat_entry(uint8_t ) { return 0; }
void vlan_group_free_entry(uint8_t ) {}
int vlan_group_set_default_vlan(uint8_t , uint16_t ) { return 0; }
int vlan_group_get_default_vlan(uint8_t , uint16_t *) { return 0; }
int vlan_group_set_vlan_assign_mode(uint8_t , uint8_t ) { return 0; }
int vlan_group_get_vlan_assign_mode(uint8_t , uint8_t *) { return 0; }
int vlan_group_get_member_vlan_cnt(uint8_t , uint8_t *) { return 0; }
int vlan_group_set_member_vlan(uint8_t , const struct vlanset *, struct vlanset *, struct vlanset *, uint8_t *, uint8_t *) { return 0; }
int vlan_group_get_entry_copy(uint8_t , struct vlan_group_entry *) { return 0; }
int vlan_group_check_vlan_is_member_vlan(uint8_t , uint16_t ) { return 0; }
int vlan_group_get_member_vlan_bitmap(uint8_t , struct vlanset *) { return 0; }
int vg_clnt_get_vlan_list(uint8_t , struct vlanset *) { return 0; }
uint16_t vg_clnt_get_default_vid(uint8_t ) { return 0; }
uint8_t vg_clnt_get_assign_mode(uint8_t ) { return 0; }
int vg_clnt_is_member_of_any_group(uint16_t , uint8_t *) { return 0; }
int vg_clnt_change_array_to_bitmap(const uint16_t *, uint8_t , struct vlanset *) { return 0; }
