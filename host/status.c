/* What can be seen of the server: the connection, the role, and the figures. */
#include "layer.h"

/* Figures --------------------------------------------------------------------------------------------------------- */

static bool arrived;  /* the event by which the role is tried */
static uint64_t lost; /* of these events: the library counts them with the others that a slave does not get */

struct bri_counters bri_host_counters(void) {
    struct bri_counters counters = {0};
    bridge_client_get_counters(&counters, sizeof counters);
    counters.dropped_slave -= lost;
    return counters;
}

uint64_t bri_host_missed(void) {
    const struct bri_counters counters = bri_host_counters();
    return counters.dropped_slave + counters.dropped_before_data;
}

/* Adds the outage that lasts. */
static void add_outage(struct bridge_host_statistics *figures) {
    if (bri_host.lost_at == 0)
        return;
    const int64_t length = (bri_host_now_us() - bri_host.lost_at) / 1000;
    figures->outage_total_ms += (uint64_t)length;
    if (length > figures->outage_longest_ms)
        figures->outage_longest_ms = length < UINT32_MAX ? (uint32_t)length : UINT32_MAX;
}

/* The library's counters stay when the layer has ended, which cannot add to them any more. */
static void add_library(struct bridge_host_statistics *figures) {
    const struct bri_counters now = bri_host_counters();
    const struct bri_counters *before = &bri_host.before;
    figures->dropped_stale = (uint32_t)(now.dropped_stale - before->dropped_stale);
    figures->dropped_missed =
        (uint32_t)(now.dropped_slave + now.dropped_before_data - before->dropped_slave - before->dropped_before_data);
    figures->runs_dropped = (uint32_t)(now.runs_dropped - before->runs_dropped);
}

int bridge_host_get_statistics(struct bridge_host_statistics *out) {
    if (out == NULL)
        return BRI_ERR_NULL;
    const uint32_t size = out->size;
    if (size < sizeof size)
        return BRI_ERR_INVALID;
    struct bridge_host_statistics figures = bri_host.statistics;
    add_library(&figures);
    add_outage(&figures);
    figures.size = size;
    memset(out, 0, size);
    memcpy(out, &figures, size < sizeof figures ? size : sizeof figures);
    return 0;
}

/* Connection ------------------------------------------------------------------------------------------------------ */

/* The library calls back when one stands and says nothing when it is lost. */

static void tell(bool up) {
    bri_host.connected = up;
    if (bri_host_runs() && bri_host.config.on_connection != NULL)
        bri_host.config.on_connection(up, bri_host.config.context);
}

/* What was under way has gone with the connection. */
static void lose(void) {
    ++bri_host.statistics.outages;
    bri_host.lost_at = bri_host_now_us();
    bri_host.connected = false;
    bri_host_resync_cut();
    bri_host_requests_end(BRIDGE_HOST_LOST);
    tell(false);
}

static void gain(bool introduced) {
    ++bri_host.statistics.connections;
    add_outage(&bri_host.statistics);
    bri_host.lost_at = 0;
    bri_host_resync_connected(introduced);
    tell(true);
}

void bri_host_on_connect(void) {
    if (!bri_host_runs())
        return;
    bri_host_keep_tick();
    if (bri_host.connected) /* it went and came between two ticks */
        lose();
    if (bri_host_runs())
        gain(true);
}

void bri_host_watch_connection(void) {
    const bool up = g_bridge_client->connected != 0;
    if (!up && bri_host.connected)
        lose();
    else if (up && !bri_host.connected) /* the library was started, and connected, before the layer */
        gain(false);
}

/* Role ------------------------------------------------------------------------------------------------------------ */

/* The library keeps it to itself, but a slave's handlers are not called: so an event that nobody sends is raised for
 * the layer's own handler, and whether it arrives is the answer. */
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
