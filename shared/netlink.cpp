// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

int bridge_lib_nlclient_init(struct bri_clnt_ctx *) { return 1; }
void bridge_lib_nlclient_deinit(struct bri_clnt_ctx *) {}
int bridge_lib_send_netlink(const uint8_t *, uint32_t , int32_t ) { return 0; }
void *bridge_lib_query_netlink(const void *, uint32_t , int32_t ) { return nullptr; }
void *bridge_lib_feedback_netlink(int , int32_t ) { return nullptr; }
void bridge_lib_nlmsg_dispch(void *) {}
