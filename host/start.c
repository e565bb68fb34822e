/* Start of the layer, and its tick. */
#include "layer.h"

#include <sys/time.h>
#include <time.h>

struct layer bri_host;

enum { TICK_MS = 200, TICK_LEAST = 10, TICK_MOST = 1000, ANSWER_MS = 5000, STOP_MS = 2000, MS_MOST = 3600000 };
enum { FLAGS = BRIDGE_HOST_REFUSE_AS_SLAVE | BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS };

static bool tick_runs;

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

static int tick(void *arg);

static void add_tick(void) {
    tick_runs = bri_host_after(tick, &bri_host, (uint64_t)bri_host.config.tick_ms * 1000, "host-tick");
}

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
        add_tick();
}

void bri_host_stop_tick(void) {
    bri_host_cancel_job(tick, &bri_host);
    tick_runs = false;
}

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

/* A connect callback stays for the life of the process. */
static void set_connect_callback(void) {
    static bool set;
    if (!set)
        bridge_agent_set_connect_callback(bri_host_on_connect);
    set = true;
}

static int begin(void) {
    int result = bri_host_take_rows(&bri_host.config);
    if (result == 0)
        result = register_all(&bri_host.config);
    if (result == 0) {
        add_tick();
        result = tick_runs ? 0 : BRI_ERR_NO_MEMORY;
    }
    return result;
}

int bridge_host_start(const struct bridge_host_config *config) {
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
    bri_host = (struct layer){.config = copy, .before = bri_host_counters(), .missed_before = bri_host_missed()};
    result = begin();
    if (result != 0) {
        bri_host_withdraw();
        bri_host_release();
        return result;
    }
    set_connect_callback();
    bri_host.started = true;
    bri_host.config.handlers = NULL;
    return 0;
}
