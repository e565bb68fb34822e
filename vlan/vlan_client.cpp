// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

uint16_t g_vlan_private_version[4095];
char *vl_clnt_manage_init(struct bri_clnt_ctx *) { return nullptr; }
int vl_clnt_on_server_msg(struct bri_msg_hdr *) { return 0; }
void vl_clnt_notify_origin_data() {}
uint16_t vl_get_vlan_private_version(uint16_t ) { return 0; }
int vl_version_check_on_create_notify(uint16_t , uint16_t ) { return 0; }
int vl_version_check_on_destroy_notify(uint16_t , uint16_t ) { return 0; }
int vl_version_check_on_range_create_notify(struct vl_evt_vlanset_rec *) { return 0; }
int vl_version_check_on_range_destroy_notify(struct vl_evt_vlanset_rec *) { return 0; }
void vl_version_check_on_reserch(uint16_t ) {}
void vl_version_update(uint16_t , uint16_t ) {}
void vl_clnt_get_vle_from_vid(uint16_t , struct vle **) {}
void vl_clnt_swport_walk_throught(vl_swport_walk_fn , void *) {}
