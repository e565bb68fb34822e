/* The role. The library keeps it to itself, but a slave's handlers are not called: so an event that nobody sends is
 * raised for the layer's own handler, and whether it arrives is the answer. */
#include "layer.h"

static bool arrived;
static uint64_t lost; /* of these events: the library counts them with the others that a slave does not get */

bool bri_host_is_probe(uint32_t type, const void *data) {
    if (type != BRI_HOST_PROBE || data != &arrived)
        return false;
    arrived = true;
    return true;
}

static bool is_slave(void) {
    arrived = false;
    bridge_call_event_handlers(BRI_HOST_PROBE, &arrived, 0);
    lost += !arrived;
    return !arrived;
}

uint64_t bri_host_missed(void) {
    const struct bri_counters counters = bri_host_counters();
    return counters.dropped_slave - lost + counters.dropped_before_data;
}

enum bridge_host_role bridge_host_role(void) {
    if (!bri_host.started)
        return BRIDGE_HOST_ROLE_UNKNOWN;
    if (bri_host.stopping) /* its events are withdrawn */
        return bri_host.role;
    if (is_slave())
        return BRIDGE_HOST_ROLE_SLAVE;
    return bri_host.heard || bri_host.role != BRIDGE_HOST_ROLE_UNKNOWN ? BRIDGE_HOST_ROLE_MASTER
                                                                       : BRIDGE_HOST_ROLE_UNKNOWN;
}

static void become(enum bridge_host_role role) {
    const enum bridge_host_role before = bri_host.role;
    bri_host.role = role;
    ++bri_host.statistics.role_changes;
    if (role == BRIDGE_HOST_ROLE_SLAVE)
        bri_host_resync_cut();
    else if (before == BRIDGE_HOST_ROLE_SLAVE)
        bri_host_resync_master();
    if (bri_host_runs() && bri_host.config.on_role != NULL)
        bri_host.config.on_role(role, bri_host.config.context);
}

void bri_host_watch_role(void) {
    const enum bridge_host_role now = bridge_host_role();
    if (now != bri_host.role)
        become(now);
}

/* Whoever gets an event is no slave. That of the kernel channel is raised by the library itself. */
void bri_host_note_master(uint32_t type) {
    bri_host.heard = bri_host.heard || type != BRIDGE_EVENT_KERNEL_DATA_REQ;
    if (bri_host.heard && bri_host.role != BRIDGE_HOST_ROLE_MASTER)
        become(BRIDGE_HOST_ROLE_MASTER);
}
