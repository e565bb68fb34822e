// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

char g_bglib_client_name_mac[20];
char *mac_client_init(struct bri_clnt_ctx *) { return nullptr; }
int bridge_maddr_add_static(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_add_secu(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_add_trust(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_add_other(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_del_static(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_del_dyn(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_force_del_dyn(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_del_secu(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_del_trust(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_del_other(const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_rollback(uint32_t , const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_bypass(uint32_t , const uint8_t *, uint32_t , uint32_t ) { return 0; }
int bridge_maddr_del_dyn_on_vlanmap(const struct vlanset *, uint32_t , uint8_t ) { return 0; }
int bridge_maddr_set_intf_learn(uint32_t , uint32_t ) { return 0; }
int bridge_maddr_set_dyn_life_range(uint32_t , uint32_t , uint32_t ) { return 0; }
int bridge_maddr_set_available_mac(uint32_t , uint32_t , uint32_t ) { return 0; }
int bridge_maddr_nondyn_check_begin(uint32_t ) { return 0; }
int bridge_maddr_nondyn_check_end(uint32_t ) { return 0; }
int bridge_maddr_set_root_bridge_mode(uint8_t ) { return 0; }
int bridge_maddr_dynmac_check_begin() { return 0; }
int bridge_maddr_dynmac_check_end() { return 0; }
int bridge_maddr_notify(const struct bri_mac_msg *, uint32_t ) { return 0; }
int bridge_maddr_find_first_on_mac(struct bri_mac_entry *) { return 0; }
int bridge_maddr_find_first_on_ifx(struct bri_mac_entry *) { return 0; }
int bridge_maddr_find_next_on_mac(const struct bri_mac_entry *, struct bri_mac_entry *) { return 0; }
int bridge_maddr_find_next_on_ifx(const struct bri_mac_entry *, struct bri_mac_entry *) { return 0; }
int bridge_maddr_find_static_on_ifx(uint32_t ) { return 0; }
int bridge_maddr_find_single(const uint8_t *, uint32_t , struct bri_mac_entry *) { return 0; }
int bridge_maddr_get_available_total(uint32_t *) { return 0; }
void mac_client_on_server_msg(struct bri_msg_hdr *) {}
uint32_t mac_client_get_available_total() { return 0; }
void mac_client_set_available_total(uint32_t ) {}
void mac_client_show_statistic() {}
