// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

void l2top_clnt_init(const char *) {}
int bridge_set_port_fwd_status(const struct l2top_port_status_batch *) { return 0; }
int bridge_set_port_instance_status(const struct l2top_port_instance_req *) { return 0; }
int bridge_set_instance_configtable(const uint16_t *) { return 0; }
int bridge_config_bri_protocol(uint32_t , uint32_t ) { return 0; }
int bridge_set_bri_proto_prejudge(uint32_t , uint32_t ) { return 0; }
int bridge_get_port_instance_status(uint32_t , uint16_t , uint32_t *) { return 0; }
int bridge_get_port_fwd_status(uint32_t , uint16_t , uint32_t *) { return 0; }
int bridge_get_vlan_from_instance(const uint32_t *, struct vlanset *) { return 0; }
int bridge_set_port_errdisable() { return 0; }
int bri_clnt_on_l2topo_msg(struct bri_msg_hdr *) { return 0; }
void l2top_clnt_notify_origin_data() {}
void bri_clnt_notify_proto_status() {}
void swport_clnt_judge_notify_port_status(const struct l2top_port_status *) {}
void swport_clnt_notify_port_status_flush() {}
