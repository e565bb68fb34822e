// Not built yet: every operation gives its failure value.
#include "client/state.h"
#include <bridge/bridge.h>

namespace bri::client { void send_full_registration() {} int send_registration_change(const event_set &, uint8_t) { return -1; } }
int bridge_client_reg_event(const struct event_set *, bri_event_handler ) { return -1; }
int bridge_client_unreg_event(struct event_set *, bri_event_handler ) { return -1; }
void bridge_call_event_handlers(uint32_t , void *, uint32_t ) {}
