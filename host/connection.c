/* The connection, as far as it can be seen: the library calls back when one stands and says nothing when it is lost. */
#include "layer.h"

/* Adds the outage that lasts. */
void bri_host_running_outage(struct bridge_host_statistics *figures) {
    if (bri_host.lost_at == 0)
        return;
    const int64_t length = (bri_host_now_us() - bri_host.lost_at) / 1000;
    figures->outage_total_ms += (uint64_t)length;
    if (length > figures->outage_longest_ms)
        figures->outage_longest_ms = length < UINT32_MAX ? (uint32_t)length : UINT32_MAX;
}

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
    bri_host_running_outage(&bri_host.statistics);
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
