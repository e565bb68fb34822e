// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

uint8_t g_bri_clnt_dbg[28];
bri_mac_filter g_bglib_mac_filter;
bri_list g_bri_msg_delay_list = {&g_bri_msg_delay_list, &g_bri_msg_delay_list};
uint32_t g_bri_msg_delay_num;
void bri_clnt_debug_init(struct bri_clnt_ctx *) {}
void bri_clnt_debug_name_parse(const char *) {}
void bri_clnt_debug_all() {}
void bri_clnt_on_debug_msg(const struct bri_msg_hdr *) {}
int bri_clnt_match_mac_dbg_filter(const struct bri_mac_entry *) { return 0; }
int bri_clnt_msg_delay_process(const struct bri_msg_hdr *) { return 0; }
