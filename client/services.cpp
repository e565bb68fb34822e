// Not built yet: every operation gives its failure value.
#include "client/state.h"
#include <bridge/bridge.h>

int bridge_client_get_local_mac(uint8_t *) { return -1; }
int bridge_client_get_svi_mac(uint8_t *) { return -1; }
int bridge_maddr_get_local(uint8_t *) { return -1; }
