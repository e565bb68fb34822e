// Not built yet: every operation gives its failure value.
#include "client/state.h"
#include <bridge/bridge.h>

bri_clnt_ctx *g_bridge_client;
uint8_t *g_bglib_recvbuf;
namespace bri::client { State g_state; void run_callbacks(bri_list &) {} }
int bridge_agent_init(const char *, struct qv_thread_master *) { return -1; }
int bridge_client_thread_event(int ) { return -1; }
void bridge_agent_set_connect_callback(bri_clnt_cb ) {}
void bridge_agent_set_oridata_callback(bri_clnt_cb ) {}
