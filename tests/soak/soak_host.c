/* soak_host INDEX [layer]: a host daemon named "h" and its index, on the bare library or with the host layer, which
 * must make no difference to what reaches it. It obeys the lines on its standard input,
 *
 *   send N     sends N requests that come back as events
 *   flood N    sends N requests that each leave at once
 *   report     prints its figures
 *
 * and prints a line for each event that reached its handler, in order, those with consecutive numbers as one line:
 *
 *   e FIRST LAST           events of the server
 *   q HOST FIRST LAST      requests that came back
 *   b                      a switch-over began
 *   u                      the server's backup data has ended
 *
 * It ends when its standard input does.
 */
#include "tests/soak/records.h"

#include <bridge/bridge.h>
#include <bridge/host.h>
#include <bridge/sets.h>

#include <qv_thread.h>

#include <malloc.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

/* The library's own limit follows the machine's memory; this one, the least that it would take, is soon full. */
enum { CACHE_LIMIT = 10240 };

enum { SHOW_PERIOD_US = 100000 };

static struct qv_thread_master *loop;

static struct {
    uint32_t host;
    uint32_t requests; /* accepted */
    uint32_t flood;    /* accepted */
    uint32_t refused;  /* of both kinds: there was no connection */
    uint32_t connects;
    uint32_t bad;  /* events that are not what the driver had sent */
    uint32_t late; /* events that a delay had held back */
    bool layer;
    uint32_t broken; /* ends of a resynchronisation without a begin, begins within one */
    uint64_t handled;
} self;

/* Events whose numbers follow each other and that have not been printed yet. */
static struct {
    char kind; /* 0: none */
    uint32_t host;
    uint32_t first;
    uint32_t last;
} run;

static void show_run(void) {
    if (run.kind == 'e')
        printf("e %u %u\n", run.first, run.last);
    else if (run.kind == 'q')
        printf("q %u %u %u\n", run.host, run.first, run.last);
    run.kind = 0;
    fflush(stdout);
}

static void add_to_run(char kind, uint32_t host, uint32_t number) {
    if (run.kind == kind && run.host == host && run.last + 1 == number) {
        run.last = number;
        return;
    }
    show_run();
    run.kind = kind;
    run.host = host;
    run.first = run.last = number;
}

static void add_single(char kind) {
    show_run();
    printf("%c\n", kind);
}

static bool take_event(uint32_t type, const uint8_t *bytes, uint16_t len) {
    struct soak_event event;
    if (len < sizeof event)
        return false;
    memcpy(&event, bytes, sizeof event);
    for (uint32_t i = sizeof event; i < len; ++i)
        if (bytes[i] != (uint8_t)(event.number + i))
            return false;
    add_to_run('e', 0, event.number);
    return event.type == type;
}

static bool take_request(const uint8_t *bytes, uint16_t len) {
    struct soak_request request;
    if (len != sizeof request)
        return false;
    memcpy(&request, bytes, sizeof request);
    add_to_run('q', request.host, request.number);
    return true;
}

static int on_event(uint32_t type, void *data, uint16_t len) {
    bool good = true;
    if (type == BRIDGE_EVENT_BKUP_DATA_END)
        add_single('u');
    else if (type == BRIDGE_EVENT_SWITCHOVER_BEGIN)
        add_single('b');
    else if (type == SOAK_REQUEST)
        good = take_request(data, len);
    else
        good = take_event(type, data, len);
    ++self.handled;
    self.bad += good ? 0 : 1;
    self.late += g_bri_msg_delay_num != 0 ? 1 : 0; /* itself is counted while it is handled */
    return 0;
}

static void on_connect(void) {
    ++self.connects;
}

static void send_requests(uint32_t type, uint32_t *accepted, unsigned long count) {
    for (unsigned long i = 0; i < count; ++i) {
        const struct soak_request request = {.host = self.host, .number = *accepted + 1};
        if (bridge_client_send_message(&request, sizeof request, type) == 0)
            ++*accepted;
        else
            ++self.refused;
    }
}

/* What the layer says that cannot be: on top of the events that are wrong. */
static uint32_t layer_faults(void) {
    struct bridge_host_statistics figures = {.size = sizeof figures};
    if (!self.layer)
        return 0;
    if (bridge_host_get_statistics(&figures) != 0)
        return 1;
    return self.broken + (figures.events != self.handled) + figures.dropped_short + figures.dropped_long +
           (figures.runs_dropped != g_bridge_client->cache_drop) + (figures.resyncs_complete == 0);
}

static void report(void) {
    show_run();
    printf(
        "report requests %u flood %u refused %u dropped %u cached %u delayed %u connects %u bad %u late %u heap %zu\n",
        self.requests, self.flood, self.refused, g_bridge_client->cache_drop, g_bridge_client->cache_cnt,
        g_bri_msg_delay_num, self.connects, self.bad + layer_faults(), self.late,
        mallinfo2().uordblks + mallinfo2().hblkhd);
    fflush(stdout);
}

static void obey(const char *line) {
    if (strncmp(line, "send ", 5) == 0)
        send_requests(SOAK_REQUEST, &self.requests, strtoul(line + 5, NULL, 10));
    else if (strncmp(line, "flood ", 6) == 0)
        send_requests(SOAK_FLOOD, &self.flood, strtoul(line + 6, NULL, 10));
    else if (strcmp(line, "report") == 0)
        report();
}

static void on_stopped(const struct bridge_host_left *left, void *context) {
    (void)left, (void)context;
    qv_thread_master_stop(loop);
}

static void end(void) {
    if (!self.layer)
        qv_thread_master_stop(loop);
    else if (bridge_host_stop(on_stopped) != 0)
        exit(EXIT_FAILURE);
}

/* Job: standard input has commands or has ended. */
static int on_input(void *arg) {
    static char text[4096];
    static size_t filled;
    (void)arg;
    const ssize_t length = read(STDIN_FILENO, text + filled, sizeof text - 1 - filled);
    if (length <= 0) {
        end();
        return 0;
    }
    filled += (size_t)length;
    text[filled] = '\0';
    char *line = text;
    for (char *end; (end = strchr(line, '\n')) != NULL; line = end + 1) {
        *end = '\0';
        obey(line);
    }
    filled = strlen(line);
    memmove(text, line, filled + 1);
    qv_thread_add_read_withname(loop, on_input, NULL, STDIN_FILENO, "soak-input");
    return 0;
}

/* Job: prints what has come since the last time. */
static int show(void *arg) {
    const struct timeval after = {.tv_sec = 0, .tv_usec = SHOW_PERIOD_US};
    (void)arg;
    show_run();
    qv_thread_add_timer_timeval_withname(loop, show, NULL, &after, "soak-show");
    return 0;
}

static const uint32_t other_events[] = {BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SWITCHOVER_BEGIN, SOAK_REQUEST};
enum {
    OTHER_EVENTS = sizeof other_events / sizeof *other_events,
    SOAK_EVENTS = sizeof soak_events / sizeof *soak_events
};

static uint32_t wanted(size_t at) {
    return at < OTHER_EVENTS ? other_events[at] : soak_events[at - OTHER_EVENTS];
}

static bool start_bare(const char *name) {
    struct event_set set = {{0}};
    for (size_t i = 0; i < OTHER_EVENTS + SOAK_EVENTS; ++i)
        bri_event_set_add(&set, wanted(i));
    if (bridge_agent_init(name, loop) != 0)
        return false;
    bridge_agent_set_connect_callback(on_connect);
    return bridge_client_reg_event(&set, on_event) == 0;
}

static void on_record(const void *record, uint16_t size, void *context) {
    on_event(*(const uint32_t *)context, (void *)(uintptr_t)record, size);
}

static void on_connection(int up, void *context) {
    (void)context;
    self.connects += up != 0 ? 1 : 0;
}

static bool resync_open[BRI_SUBMOD_BCFG + 1];

static void on_resync_begin(uint32_t submod, void *context) {
    (void)context;
    self.broken += resync_open[submod] ? 1 : 0;
    resync_open[submod] = true;
}
static void on_resync_end(uint32_t submod, int complete, void *context) {
    (void)complete, (void)context;
    self.broken += resync_open[submod] ? 0 : 1;
    resync_open[submod] = false;
}

static bool start_layer(const char *name) {
    static uint32_t types[OTHER_EVENTS + SOAK_EVENTS];
    struct bridge_host_handler handlers[OTHER_EVENTS + SOAK_EVENTS] = {{0}};
    for (size_t i = 0; i < OTHER_EVENTS + SOAK_EVENTS; ++i) {
        types[i] = wanted(i);
        handlers[i] = (struct bridge_host_handler){types[i], 0, on_record, &types[i]};
    }
    const struct bridge_host_config config = {.size = sizeof config,
                                              .flags = BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS,
                                              .name = name,
                                              .master = loop,
                                              .handlers = handlers,
                                              .handler_count = OTHER_EVENTS + SOAK_EVENTS,
                                              .on_connection = on_connection,
                                              .on_resync_begin = on_resync_begin,
                                              .on_resync_end = on_resync_end};
    return bridge_host_start(&config) == 0;
}

int main(int argc, char **argv) {
    static char buffer[1 << 16]; /* so that printing never allocates */
    char name[16];
    if (argc != 2 && (argc != 3 || strcmp(argv[2], "layer") != 0))
        return 2;
    setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    self.host = (uint32_t)strtoul(argv[1], NULL, 10);
    snprintf(name, sizeof name, "h%u", self.host);
    loop = qv_thread_master_create();
    self.layer = argc == 3;
    if (loop == NULL || !(self.layer ? start_layer : start_bare)(name))
        return 1;
    g_bridge_client->cache_max = CACHE_LIMIT;
    show(NULL);
    qv_thread_add_read_withname(loop, on_input, NULL, STDIN_FILENO, "soak-input");
    const int result = qv_thread_master_run(loop);
    qv_thread_master_destroy(loop);
    return result == 0 ? 0 : 1;
}
