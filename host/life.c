/* Start of the layer, its tick, and its end: nothing that the library has accepted is left behind without being said.
 */
#include "layer.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <time.h>

struct layer bri_host;

enum { TICK_MS = 200, TICK_LEAST = 10, TICK_MOST = 1000, ANSWER_MS = 5000, STOP_MS = 2000, MS_MOST = 3600000 };
enum { FLAGS = BRIDGE_HOST_REFUSE_AS_SLAVE | BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS };
enum { LOOK_MS = 10 };

static bool tick_runs;
static void (*stopped)(const struct bridge_host_left *left, void *context);
static uint32_t looks_left;

int64_t bri_host_now_us(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (int64_t)now.tv_sec * 1000000 + now.tv_nsec / 1000;
}

bool bri_host_after(qv_thread_func job, void *arg, uint64_t usec, const char *name) {
    const struct timeval after = {.tv_sec = (time_t)(usec / 1000000), .tv_usec = (suseconds_t)(usec % 1000000)};
    return qv_thread_add_timer_timeval_withname(bri_host.config.master, job, arg, &after, name) != NULL;
}

void bri_host_cancel_job(qv_thread_func job, void *arg) {
    qv_thread_cancel_by_arg_func(bri_host.config.master, arg, job);
}

/* The tick -------------------------------------------------------------------------------------------------------- */

/* Each of these may end the layer. */
static int tick(void *arg) {
    static void (*const steps[])(void) = {bri_host_watch_connection, bri_host_watch_role, bri_host_requests_tick,
                                          bri_host_resync_tick};
    (void)arg;
    tick_runs = false;
    for (size_t i = 0; i < sizeof steps / sizeof *steps && bri_host_runs(); ++i)
        steps[i]();
    bri_host_keep_tick();
    return 0;
}

void bri_host_keep_tick(void) {
    if (!tick_runs && bri_host_runs())
        tick_runs = bri_host_after(tick, &bri_host, (uint64_t)bri_host.config.tick_ms * 1000, "host-tick");
}

/* Start ----------------------------------------------------------------------------------------------------------- */

/* What the caller's structure has beyond ours must be zero: it would mean what we do not know. */
static bool copy_config(const struct bridge_host_config *from, struct bridge_host_config *to) {
    const size_t known = from->size < sizeof *to ? from->size : sizeof *to;
    if (from->size < offsetof(struct bridge_host_config, context))
        return false;
    for (size_t i = known; i < from->size; ++i)
        if (((const uint8_t *)from)[i] != 0)
            return false;
    memset(to, 0, sizeof *to);
    memcpy(to, from, known);
    return true;
}

static bool take_ms(uint32_t *ms, uint32_t usual, uint32_t least, uint32_t most) {
    if (*ms == 0)
        *ms = usual;
    return *ms >= least && *ms <= most;
}

static bool complete_config(struct bridge_host_config *config) {
    return (config->flags & ~(uint32_t)FLAGS) == 0 && take_ms(&config->tick_ms, TICK_MS, TICK_LEAST, TICK_MOST) &&
           take_ms(&config->answer_ms, ANSWER_MS, 1, MS_MOST) && take_ms(&config->stop_ms, STOP_MS, 1, MS_MOST);
}

static int start_library(struct bridge_host_config *config) {
    if (g_bridge_client == NULL) {
        if (config->master == NULL)
            return BRI_ERR_NULL;
        return bridge_agent_init(config->name, config->master) == 0 ? 0 : BRI_ERR_UNKNOWN;
    }
    if (config->master != NULL && config->master != g_bridge_client->master)
        return BRI_ERR_INVALID;
    config->master = g_bridge_client->master;
    return 0;
}

static int register_all(const struct bridge_host_config *config) {
    struct event_set events = {{0}};
    for (uint32_t i = 0; i < config->handler_count; ++i)
        bri_event_set_add(&events, config->handlers[i].event);
    bri_event_set_add(&events, BRI_HOST_PROBE);
    bri_host_resync_start(&events);
    const int result = bri_host_sweep_start(&events);
    return result == 0 ? bri_host_register(&events) : result;
}

/* A withdrawal goes out at once, and before it everything that waits. */
static void withdraw(void) {
    struct event_set events = bri_host.registered;
    bri_event_set_clear(&bri_host.registered);
    bridge_client_unreg_event(&events, bri_host_on_event);
}

static void release(void) {
    bri_host_sweep_end();
    bri_host_drop_rows();
    bri_host.started = false;
    bri_host.stopping = false;
}

/* The tick comes last: all else is undone without the loop. */
static int begin(void) {
    int result = bri_host_take_rows(&bri_host.config);
    if (result == 0)
        result = register_all(&bri_host.config);
    bri_host.started = result == 0;
    bri_host_keep_tick();
    if (result == 0 && !tick_runs)
        result = BRI_ERR_NO_MEMORY;
    if (result == 0)
        return 0;
    withdraw();
    release();
    return result;
}

int bridge_host_start(const struct bridge_host_config *config) {
    static bool called_back; /* a connect callback stays for the life of the process */
    if (config == NULL)
        return BRI_ERR_NULL;
    if (bri_host.started)
        return BRI_ERR_NOT_PERMITTED;
    struct bridge_host_config copy;
    if (!copy_config(config, &copy) || !complete_config(&copy))
        return BRI_ERR_INVALID;
    int result = start_library(&copy);
    if (result != 0)
        return result;
    bri_host = (struct layer){.config = copy, .before = bri_host_counters()};
    result = begin();
    if (result != 0)
        return result;
    if (!called_back)
        bridge_agent_set_connect_callback(bri_host_on_connect);
    called_back = true;
    bri_host.config.handlers = NULL;
    return 0;
}

/* Stop ------------------------------------------------------------------------------------------------------------ */

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

static struct bridge_host_left what_is_left(bool out) {
    struct bridge_host_left left = {.runs = g_bridge_client->cache_cnt};
    struct bridge_host_statistics figures = {.size = sizeof figures};
    int unread = 0;
    if (g_bridge_client->connected != 0 && ioctl(g_bridge_client->sock, SIOCOUTQ, &unread) == 0)
        left.unread = (uint32_t)unread;
    if (!out)
        left.result = g_bridge_client->connected != 0 ? BRI_ERR_WOULD_BLOCK : BRI_ERR_SOCKET;
    bridge_host_get_statistics(&figures);
    left.dropped = figures.runs_dropped;
    return left;
}

/* Ends everything; how many requests were outstanding. */
static uint32_t end_all(void) {
    bri_host_walks_end(BRI_ERR_NOT_PERMITTED);
    const uint32_t requests = bri_host_requests_end(BRIDGE_HOST_STOPPED);
    release();
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
    bri_host_cancel_job(tick, &bri_host);
    tick_runs = false;
    bri_host_resync_cut();
    withdraw();
    if (qv_thread_add_event_withname(bri_host.config.master, look, &bri_host, "host-stop") != NULL)
        return 0;
    end_all();
    return BRI_ERR_NO_MEMORY;
}
