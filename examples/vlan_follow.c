/* vlan_follow: a small host daemon that makes a port a dynamic member of every VLAN there is. It learns of VLANs in
 * three ways, as every host does that keeps up with them: the server's announcements, the replay of what the tables
 * hold (asked for on every connection and when a slave has taken over, since what changed meanwhile is not told), and a
 * look-up now and then, by which the library notices an announcement that never came.
 */
#include "host.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { PERIOD_MAX_MS = 3600000, SLOW_MAX_MS = 10000 };

static struct {
    const char *name;
    int32_t ifx;
    long look_ms; /* 0: no look-ups */
    long slow_ms; /* at each event, as a host that has much to do */
} options = {.name = "vlan_follow", .ifx = 1, .look_ms = 1000};

static struct vlanset asked; /* for, on this connection */

static void for_each(const struct vlanset *set, void (*action)(uint16_t vid)) {
    for (uint32_t vid = bri_vlanset_next(set, 0); vid != 0; vid = bri_vlanset_next(set, vid))
        action((uint16_t)vid);
}

/* Asks for the membership unless it has, or the port is a member: a replay tells of those VLANs, too. */
static void join(uint16_t vid) {
    if (vid > BRI_VID_MAX || bri_vlanset_has(&asked, vid) != 0 || vl_is_vlan_member(vid, options.ifx) != 0)
        return;
    bri_vlanset_add(&asked, vid);
    if (vl_clnt_add_dyn_member(options.ifx, vid) == 0)
        printf("%s: asked for port %d in VLAN %u\n", options.name, (int)options.ifx, vid);
    else
        printf("%s: could not ask: port %d is no trunk, or no server\n", options.name, (int)options.ifx);
}

/* It is no member of a VLAN that is made anew. */
static void forget(uint16_t vid) {
    bri_vlanset_remove(&asked, vid);
}

/* Callback of the library, on every new connection: what was asked for may have been lost with the old one. */
static void on_connect(void) {
    bri_vlanset_clear(&asked);
}

/* Job: a look-up of each VLAN; what was missed comes as an event while it runs. */
static int look_around(void *arg) {
    (void)arg;
    for (uint16_t vid = 1; vid <= BRI_VID_MAX; ++vid)
        vl_clnt_exist(vid, 0);
    host_after_ms(options.look_ms, look_around, "follow-look");
    return 0;
}

/* Gets the registered events. The payload may lie at any address: it is copied before its fields are read. */
static int on_event(uint32_t type, void *data, uint16_t len) {
    struct vl_evt_vlan_rec vlan;
    struct vlanset set;
    usleep((useconds_t)(options.slow_ms * 1000));
    switch (type) {
    case BRIDGE_EVENT_BKUP_DATA_END:
    case BRIDGE_EVENT_SWITCHOVER_END:
        bridge_client_request_submod_oridata(BRI_SUBMOD_VLAN);
        break;
    case VLAN_EVENT_CREATE_INDEX:
    case VLAN_EVENT_DESTROY_INDEX:
        if (len < sizeof vlan)
            break;
        memcpy(&vlan, data, sizeof vlan);
        (type == VLAN_EVENT_CREATE_INDEX ? join : forget)(vlan.vid);
        break;
    case VLAN_EVENT_CREATE_RANGE: /* the set comes first in its record */
    case VLAN_EVENT_DESTROY_RANGE:
        if (len < sizeof set)
            break;
        memcpy(&set, data, sizeof set);
        for_each(&set, type == VLAN_EVENT_CREATE_RANGE ? join : forget);
        break;
    default:
        break;
    }
    return 0;
}

static int register_events(void) {
    static const uint32_t types[] = {BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SWITCHOVER_END, VLAN_EVENT_CREATE_INDEX,
                                     VLAN_EVENT_CREATE_RANGE,    VLAN_EVENT_DESTROY_INDEX,    VLAN_EVENT_DESTROY_RANGE};
    struct event_set events = {{0}};
    for (size_t i = 0; i < sizeof types / sizeof *types; ++i)
        bri_event_set_add(&events, types[i]);
    bridge_agent_set_connect_callback(on_connect);
    return bridge_client_reg_event(&events, on_event);
}

static bool parse_option(int option) {
    switch (option) {
    case 'n':
        options.name = optarg;
        return true;
    case 'i':
        options.ifx = (int32_t)host_number(optarg, 1, BRI_IFX_MAX);
        return options.ifx > 0;
    case 'l':
        options.look_ms = host_number(optarg, 0, PERIOD_MAX_MS);
        return options.look_ms >= 0;
    case 's':
        options.slow_ms = host_number(optarg, 0, SLOW_MAX_MS);
        return options.slow_ms >= 0;
    default:
        return false;
    }
}

static int usage(void) {
    fprintf(stderr, "usage: vlan_follow [-n NAME] [-i PORT] [-l MS] [-s MS]\n"
                    "  -n NAME  name told to the server (vlan_follow)\n"
                    "  -i PORT  the port that is to be in every VLAN (1)\n"
                    "  -l MS    milliseconds between two look-ups of all VLANs, 0 for none (1000)\n"
                    "  -s MS    milliseconds that it spends on each event (0)\n"
                    "TMPDIR names the directory of the server, VSDID the switch device.\n");
    return 2;
}

int main(int argc, char **argv) {
    for (int option; (option = getopt(argc, argv, "n:i:l:s:")) != -1;)
        if (!parse_option(option))
            return usage();
    if (optind != argc)
        return usage();
    if (!host_start(options.name) || register_events() != 0)
        return 1;
    if (options.look_ms > 0)
        host_after_ms(options.look_ms, look_around, "follow-look");
    return host_run();
}
