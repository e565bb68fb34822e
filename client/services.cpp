// Not built yet: every operation gives its failure value.
#include "client/state.h"
#include <bridge/bridge.h>

namespace bri::client { void run_requested_oridata() {} }
void bridge_client_request_oridata() {}
void bridge_client_request_submod_oridata(uint32_t ) {}
void bridge_client_notify_all_oridata() {}
void bridge_client_notify_submod_oridata(uint32_t ) {}
void bridge_submod_set_data_state(uint32_t , uint32_t ) {}
void bridge_dspch_client_init(const char *) {}
int bridge_client_get_local_mac(uint8_t *) { return -1; }
int bridge_client_get_svi_mac(uint8_t *) { return -1; }
int bridge_maddr_get_local(uint8_t *) { return -1; }
