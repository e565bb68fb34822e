// Not built yet: every operation gives its failure value.
#include "client/state.h"
#include <bridge/bridge.h>

const char *bri_msg_type_name(uint32_t ) { return ""; }
const char *bri_submod_name(uint32_t ) { return ""; }
