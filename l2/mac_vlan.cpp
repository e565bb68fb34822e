// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

void mvlan_clnt_add_dyn_entry(const uint8_t *, uint16_t ) {}
void mvlan_clnt_add_dyn_entry_dot1x(const uint8_t *, uint16_t , uint32_t ) {}
void mvlan_clnt_del_dyn_entry(const uint8_t *) {}
int mvlan_clnt_get_dyn_entry(const uint8_t *, uint16_t *) { return 0; }
void mvlan_clnt_send_error_result(const struct mvlan_entry *) {}
void bridge_mvlan_lib_dispose_msg(struct bri_msg_hdr *) {}
