/* The end of the layer: nothing that the library has accepted is left behind without being said. */
#include "layer.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

enum { LOOK_MS = 10 };

static void (*stopped)(const struct bridge_host_left *left, void *context);
static uint32_t looks_left;

/* A withdrawal goes out at once, and before it everything that waits. */
void bri_host_withdraw(void) {
    struct event_set events = bri_host.registered;
    bri_event_set_clear(&bri_host.registered);
    bridge_client_unreg_event(&events, bri_host_on_event);
}

void bri_host_release(void) {
    bri_host_addresses_end();
    bri_host_drop_rows();
}

static bool is_out(void) {
    return g_bridge_client->connected != 0 && g_bridge_client->cache_cnt == 0;
}

/* What has been accepted since the withdrawal, from other threads or by a reconnect's callbacks, may still lie in the
 * batch. */
static bool flush_rest(void) {
    const struct event_set none = {{0}};
    bridge_client_reg_event(&none, bri_host_on_event);
    return is_out();
}

static uint32_t unread(void) {
    int bytes = 0;
    if (g_bridge_client->connected == 0 || ioctl(g_bridge_client->sock, SIOCOUTQ, &bytes) != 0)
        return 0;
    return (uint32_t)bytes;
}

static struct bridge_host_left what_is_left(bool out) {
    struct bridge_host_left left = {.runs = g_bridge_client->cache_cnt, .unread = unread()};
    if (!out)
        left.result = g_bridge_client->connected != 0 ? BRI_ERR_WOULD_BLOCK : BRI_ERR_SOCKET;
    left.dropped = (uint32_t)(bri_host_counters().runs_dropped - bri_host.before.runs_dropped);
    return left;
}

/* Ends everything; how many requests were outstanding. */
static uint32_t end_all(void) {
    bri_host_walks_end(BRI_ERR_NOT_PERMITTED);
    const uint32_t requests = bri_host_requests_end(BRIDGE_HOST_STOPPED);
    bri_host_release();
    bri_host.started = false;
    bri_host.stopping = false;
    return requests;
}

/* Without its timer it cannot wait: it tells what is left now. */
static int look(void *arg) {
    (void)arg;
    const bool out = is_out() && flush_rest();
    if (!out && looks_left != 0 && bri_host_after(look, &bri_host, (uint64_t)LOOK_MS * 1000, "host-stop")) {
        --looks_left;
        return 0;
    }
    struct bridge_host_left left = what_is_left(out);
    left.requests = end_all();
    stopped(&left, bri_host.config.context);
    return 0;
}

int bridge_host_stop(void (*on_stopped)(const struct bridge_host_left *left, void *context)) {
    if (on_stopped == NULL)
        return BRI_ERR_NULL;
    if (!bri_host_runs())
        return BRI_ERR_NOT_PERMITTED;
    stopped = on_stopped;
    looks_left = bri_host.config.stop_ms / LOOK_MS;
    bri_host.stopping = true;
    bri_host_stop_tick();
    bri_host_resync_cut();
    bri_host_withdraw();
    if (qv_thread_add_event_withname(bri_host.config.master, look, &bri_host, "host-stop") != NULL)
        return 0;
    end_all();
    return BRI_ERR_NO_MEMORY;
}
