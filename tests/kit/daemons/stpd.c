/* stpd: a host daemon that gives ports their spanning-tree states as a protocol without neighbours would: discarding
 * when the link comes up, forwarding after a while, discarding at once when it fails. VLANs 10 to 19 are instance 1.
 * What the tables hold when it starts, or when the server has come back, is kept: a port that forwards goes on. */
#include "examples/host.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

enum { PORT_MAX = 63, VLAN_IDS = 4096, FIRST_VLAN = 10, LAST_VLAN = 19, INSTANCES = 2 };
enum state { UNKNOWN, DISCARDING, FORWARDING };

static long delay_ms = 2000;
static bool running;
static uint32_t ports[PORT_MAX + 1]; /* each holds its own number: what a timer gets */

/* One state in both instances. */
static void tell(uint32_t ifx, enum state state) {
    const struct l2top_port_instance_req request = {
        .ifx = ifx, .state = (uint32_t)state, .instances = {(1U << INSTANCES) - 1}};
    bridge_set_port_instance_status(&request);
    printf("port %u: %s\n", ifx, state == FORWARDING ? "forwarding" : "discarding");
}

/* Job: the port may forward now. */
static int forward(void *arg) {
    tell(*(const uint32_t *)arg, FORWARDING);
    return 0;
}

static void link_down(uint32_t ifx) {
    qv_thread_cancel_by_arg_func(host_loop, &ports[ifx], forward);
    tell(ifx, DISCARDING);
}

static void link_up(uint32_t ifx) {
    const struct timeval delay = {.tv_sec = delay_ms / 1000, .tv_usec = delay_ms % 1000 * 1000};
    link_down(ifx);
    if (qv_thread_add_timer_timeval_withname(host_loop, forward, &ports[ifx], &delay, "stp-forward") == NULL)
        fprintf(stderr, "port %u: no timer\n", ifx);
}

static void set_instances(void) {
    static uint16_t table[VLAN_IDS];
    for (unsigned vid = FIRST_VLAN; vid <= LAST_VLAN; ++vid)
        table[vid] = INSTANCES - 1;
    bridge_set_instance_configtable(table);
}

/* What the tables hold stays. */
static void begin_port(uint32_t ifx) {
    uint32_t state = UNKNOWN;
    if (swport_check_exist((int32_t)ifx) == 0 || bridge_get_port_instance_status(ifx, 0, &state) != 0)
        return;
    if (state == FORWARDING)
        printf("port %u: still forwarding\n", ifx);
    else
        link_up(ifx);
}

/* After the synchronisation. */
static void begin(void) {
    const int result = bridge_config_bri_protocol(BRI_PROT_MSTP, 1);
    running = result == 0;
    if (!running) {
        printf("protocol %d is in the way\n", result);
        return;
    }
    set_instances();
    for (uint32_t ifx = 1; ifx <= PORT_MAX; ++ifx)
        begin_port(ifx);
}

/* The words of a record that may lie at any address. */
static uint32_t word_at(const void *data, size_t number) {
    uint32_t word;
    memcpy(&word, (const uint8_t *)data + number * sizeof word, sizeof word);
    return word;
}

static int on_event(uint32_t type, void *data, uint16_t len) {
    const uint32_t ifx = len >= sizeof(uint32_t) ? word_at(data, 0) : 0;
    if (type == BRIDGE_EVENT_SYNC_DATA_END)
        begin();
    if (!running || ifx == 0 || ifx > PORT_MAX)
        return 0;
    if (type == VLAN_EVENT_CREATE_INTF)
        begin_port(ifx);
    else if (type == VLAN_EVENT_INTF_STATE && len >= 2 * sizeof(uint32_t))
        (word_at(data, 1) != 0 ? link_up : link_down)(ifx);
    return 0;
}

int main(int argc, char **argv) {
    static const uint32_t types[] = {BRIDGE_EVENT_SYNC_DATA_END, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_INTF_STATE};
    struct event_set events = {{0}};
    for (int option; (option = getopt(argc, argv, "d:")) != -1;)
        if (option != 'd' || (delay_ms = host_number(optarg, 1, 3600000)) < 0)
            return 2;
    for (uint32_t ifx = 0; ifx <= PORT_MAX; ++ifx)
        ports[ifx] = ifx;
    for (size_t i = 0; i < sizeof types / sizeof *types; ++i)
        bri_event_set_add(&events, types[i]);
    return host_start("stpd") && bridge_client_reg_event(&events, on_event) == 0 ? host_run() : 1;
}
