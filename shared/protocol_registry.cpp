// Not built yet: every operation gives its failure value.
#include <bridge/bridge.h>

void bp_rdown() {}
void bp_wdown() {}
void bp_up() {}
const char *bridge_proto_get_name(uint32_t ) { return ""; }
int bridge_proto_state_set(uint32_t , uint32_t *) { return 0; }
void bridge_proto_state_unset(uint32_t ) {}
int bridge_proto_state_get(uint32_t ) { return 0; }
uint32_t bridge_proto_get_state_all() { return 0; }
int bridge_proto_set_prejudge(uint32_t , uint32_t ) { return 0; }
void bridge_proto_state_show() {}
