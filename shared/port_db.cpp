// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

int bridge_portdb_init() { return 0; }
void bridge_portdb_deinit() {}
void swport_rdown() {}
void swport_wdown() {}
void swport_up() {}
int swport_check_ifindex_valid(int32_t ) { return 0; }
struct spcb *swport_get_raw_spcb(int32_t ) { return nullptr; }
struct spcb *swport_get_spcb(int32_t ) { return nullptr; }
struct spcb *vl_ifindex_to_swport(int32_t ) { return nullptr; }
int swport_check_exist(int32_t ) { return 0; }
int swport_get_spcb_copy(int32_t , struct spcb *) { return 0; }
uint32_t swport_get_version(int32_t ) { return 0; }
int swport_get_port_mode(int32_t , uint32_t *) { return 0; }
int swport_get_port_default_mode(int32_t , uint32_t *) { return 0; }
uint16_t swport_get_port_default_vid(int32_t ) { return 0; }
struct vlanset *swport_get_tag_vlan(int32_t ) { return nullptr; }
int swport_is_allow_vlan(int32_t , uint16_t ) { return 0; }
int swport_get_total_port_num() { return 0; }
const char *swport_vlan_mode_name(uint32_t ) { return ""; }
int swport_get_vlan_tag_rule(int32_t , uint16_t ) { return 0; }
int swport_tag_vlan_add(int32_t , uint16_t ) { return 0; }
int swport_tag_vlan_del(int32_t , uint16_t ) { return 0; }
void swport_tag_vlan_merge_map(int32_t , const struct vlanset *) {}
void swport_tag_vlan_rmv_map(int32_t , struct vlanset *) {}
void swport_reset_tag_vlan(int32_t ) {}
int swport_set_attr_exclude(int32_t , uint32_t , uint32_t , uint32_t , uint32_t *) { return 0; }
uint16_t *swport_get_stp_instance_table() { return nullptr; }
void swport_set_instance_table(const uint16_t *) {}
uint16_t swport_get_stp_instance(uint16_t ) { return 0; }
void swport_inc_total_num() {}
void swport_dec_total_num() {}
int swport_get_shm_head(uint32_t *, uint32_t *, uint32_t *, char *) { return 0; }
void swport_show_status() {}
