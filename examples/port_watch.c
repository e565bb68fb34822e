/* port_watch: a small host daemon. It registers for some events, prints each with its name, sends a request on a timer
 * and tells when its connection or its role changes.
 *
 * The steps of every host daemon, in main(): make the event loop, initialise the library with it, register handlers
 * and callbacks, run the loop. All that follows happens in jobs of the loop.
 */
#include <bridge/bridge.h>
#include <qv_thread.h>

#include <errno.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/signalfd.h>
#include <sys/time.h>
#include <unistd.h>

enum { STATE_PERIOD_MS = 100, SHOWN_BYTES = 16 };

/* What this daemon follows unless -e says otherwise. */
static const uint32_t default_events[] = {
    BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SYNC_DATA_END, BRIDGE_EVENT_SWITCHOVER_BEGIN, BRIDGE_EVENT_SWITCHOVER_END,
    VLAN_EVENT_CREATE_INTF,     VLAN_EVENT_DESTROY_INTF,    VLAN_EVENT_MODIFY_INTF_MODE,   VLAN_EVENT_MODIFY_INTF_PVID};

static struct {
    const char *name;
    struct event_set events;
    bool events_given;
    long request_ms; /* 0: no requests */
    uint32_t request_type;
} options = {.name = "port_watch", .request_ms = 1000, .request_type = VLAN_EVENT_MODIFY_INTF_PVID};

static struct qv_thread_master *loop;
static bool acting; /* set by on_event when an event reached us */
static char shown_state[64];

static void want(uint32_t type) {
    options.events.words[type >> 5] |= UINT32_C(1) << (type & 31);
}

static void after_ms(long milliseconds, qv_thread_func job, const char *name) {
    const struct timeval after = {.tv_sec = milliseconds / 1000, .tv_usec = milliseconds % 1000 * 1000};
    if (qv_thread_add_timer_timeval_withname(loop, job, NULL, &after, name) == NULL)
        fprintf(stderr, "%s: no timer %s\n", options.name, name);
}

/* Gets every event that was registered; the payload ends with this call. */
static int on_event(uint32_t type, void *data, uint16_t len) {
    const uint8_t *bytes = data;
    printf("%s: event %s(%u), %u bytes", options.name, bri_msg_type_name(type), type, len);
    for (unsigned i = 0; i < len && i < SHOWN_BYTES; ++i)
        printf("%s%02x", i == 0 ? ": " : " ", bytes[i]);
    printf("%s\n", len > SHOWN_BYTES ? " ..." : "");
    return 0;
}

/* Gets the one event that this daemon raises to itself, see is_slave(). */
static int on_own_event(uint32_t type, void *data, uint16_t len) {
    (void)type;
    (void)data;
    (void)len;
    acting = true;
    return 0;
}

/* The library does not tell its host whether the server made it slave. But a slave's handlers are not called, so an
 * event that comes back when raised to ourselves shows that we are not. */
static bool is_slave(void) {
    acting = false;
    bridge_call_event_handlers(BRIDGE_EVEVT_MS_ROLE_STAT, NULL, 0);
    return !acting;
}

static const char *connection_text(void) {
    if (!g_bridge_client->connected)
        return "not connected";
    return g_bridge_client->conn_done ? "registered" : "connected";
}

/* Job: tells the state when it has changed. */
static int show_state(void *arg) {
    char state[sizeof shown_state];
    (void)arg;
    snprintf(state, sizeof state, "%s, %s%s", connection_text(), is_slave() ? "slave" : "master",
             g_bridge_client->data_synced ? ", data synchronised" : "");
    if (strcmp(state, shown_state) != 0) {
        memcpy(shown_state, state, sizeof state);
        printf("%s: state: %s\n", options.name, state);
    }
    after_ms(STATE_PERIOD_MS, show_state, "watch-state");
    return 0;
}

/* Job: asks the server to set a port's default VLAN; the answer is the event of the same number. */
static int send_request(void *arg) {
    static uint16_t vid = 1;
    const struct vl_evt_intf_pvid_rec request = {.ifx = 1, .pvid = vid};
    (void)arg;
    if (bridge_client_send_message(&request, sizeof request, options.request_type) == 0) {
        printf("%s: request %s(%u), port 1, VLAN %u\n", options.name, bri_msg_type_name(options.request_type),
               options.request_type, vid);
        vid = vid < 4094 ? (uint16_t)(vid + 1) : 1;
    }
    after_ms(options.request_ms, send_request, "watch-request");
    return 0;
}

/* Callback of the library, on every new connection, before the registration goes out. */
static void on_connect(void) {
    printf("%s: connected\n", options.name);
}

/* Job: a signal asks us to end. */
static int on_signal(void *arg) {
    (void)arg;
    qv_thread_master_stop(loop);
    return 0;
}

/* Signals become readable like everything else, so that none interrupts a job. */
static int watch_signals(void) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    sigprocmask(SIG_BLOCK, &signals, NULL);
    const int descriptor = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
    return qv_thread_add_read_withname(loop, on_signal, NULL, descriptor, "watch-signal") == NULL ? -1 : descriptor;
}

static int register_events(void) {
    struct event_set own = {{0}};
    own.words[BRIDGE_EVEVT_MS_ROLE_STAT >> 5] |= UINT32_C(1) << (BRIDGE_EVEVT_MS_ROLE_STAT & 31);
    bridge_agent_set_connect_callback(on_connect);
    return bridge_client_reg_event(&options.events, on_event) == 0 && bridge_client_reg_event(&own, on_own_event) == 0
               ? 0
               : -1;
}

static int usage(void) {
    fprintf(stderr, "usage: port_watch [-n NAME] [-e TYPE]... [-p MS] [-t TYPE]\n"
                    "  -n NAME  name told to the server (port_watch)\n"
                    "  -e TYPE  number of an event to register for, instead of a few about ports\n"
                    "  -p MS    milliseconds between two requests, 0 for none (1000)\n"
                    "  -t TYPE  number of the request (409)\n"
                    "TMPDIR names the directory of the server.\n");
    return -1;
}

/* A number from 0 to `most`, or -1. */
static long number(const char *text, long most) {
    char *end;
    errno = 0;
    const long value = strtol(text, &end, 10);
    return *text != '\0' && *end == '\0' && errno == 0 && value >= 0 && value <= most ? value : -1;
}

static int parse_options(int argc, char **argv) {
    for (int option; (option = getopt(argc, argv, "n:e:p:t:")) != -1;) {
        const long value = option == 'n' || optarg == NULL ? 0 : number(optarg, option == 'p' ? 3600000 : 4095);
        if (value < 0)
            return usage();
        switch (option) {
        case 'n':
            options.name = optarg;
            break;
        case 'e':
            want((uint32_t)value);
            options.events_given = true;
            break;
        case 'p':
            options.request_ms = value;
            break;
        case 't':
            options.request_type = (uint32_t)value;
            break;
        default:
            return usage();
        }
    }
    for (size_t i = 0; !options.events_given && i < sizeof default_events / sizeof *default_events; ++i)
        want(default_events[i]);
    return optind == argc ? 0 : usage();
}

int main(int argc, char **argv) {
    if (parse_options(argc, argv) != 0)
        return 2;
    setvbuf(stdout, NULL, _IOLBF, 0);
    loop = qv_thread_master_create();
    if (loop == NULL || bridge_agent_init(options.name, loop) != 0 || register_events() != 0)
        return 1;
    const int signals = watch_signals();
    if (signals < 0)
        return 1;
    show_state(NULL);
    if (options.request_ms > 0)
        after_ms(options.request_ms, send_request, "watch-request");
    const int result = qv_thread_master_run(loop);
    qv_thread_master_destroy(loop);
    close(signals);
    printf("%s: ended\n", options.name);
    return result == 0 ? 0 : 1;
}
