/* port_watch: a small host daemon on the bare library, without the host layer that the others stand on. It registers
 * for some events, prints each with its name, sends a request on a timer and tells when its connection or its role
 * changes.
 *
 * The steps of every host daemon, in main() and host.c: make the event loop, initialise the library with it, register
 * handlers and callbacks, run the loop. All that follows happens in jobs of the loop.
 */
#include "host.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
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

static bool acting; /* set by on_event when an event reached us */
static char shown_state[64];

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
    host_after_ms(STATE_PERIOD_MS, show_state, "watch-state");
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
    host_after_ms(options.request_ms, send_request, "watch-request");
    return 0;
}

/* Callback of the library, on every new connection, before the registration goes out. */
static void on_connect(void) {
    printf("%s: connected\n", options.name);
}

static int register_events(void) {
    struct event_set own = {{0}};
    bri_event_set_add(&own, BRIDGE_EVEVT_MS_ROLE_STAT);
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

static int parse_options(int argc, char **argv) {
    for (int option; (option = getopt(argc, argv, "n:e:p:t:")) != -1;) {
        const long value = option == 'n' || optarg == NULL ? 0 : host_number(optarg, 0, option == 'p' ? 3600000 : 4095);
        if (value < 0)
            return usage();
        switch (option) {
        case 'n':
            options.name = optarg;
            break;
        case 'e':
            bri_event_set_add(&options.events, (uint32_t)value);
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
        bri_event_set_add(&options.events, default_events[i]);
    return optind == argc ? 0 : usage();
}

int main(int argc, char **argv) {
    if (parse_options(argc, argv) != 0)
        return 2;
    if (!host_start(options.name) || register_events() != 0)
        return 1;
    show_state(NULL);
    if (options.request_ms > 0)
        host_after_ms(options.request_ms, send_request, "watch-request");
    const int status = host_run();
    printf("%s: ended\n", options.name);
    return status;
}
