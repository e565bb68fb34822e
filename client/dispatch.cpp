// Not built yet: every operation gives its failure value.
#include "client/state.h"
#include <bridge/bridge.h>

void bridge_client_msg_dspch(struct bri_msg_hdr *) {}
void bri_clnt_on_serv_stat_msg(const void *) {}
