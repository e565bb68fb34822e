/* vlan_follow: a small host daemon that makes a port a dynamic member of every VLAN there is. It learns of VLANs by the
 * server's announcements; of those that came or went while nobody told, the host layer tells it, on every connection
 * and when a slave has taken over. An announcement that never came is noticed by a look-up now and then.
 */
#include "layer.h"

#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

enum { PERIOD_MAX_MS = 3600000, SLOW_MAX_MS = 10000 };

static struct {
    const char *name;
    long ifx;
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
    if (vid > BRI_VID_MAX || bri_vlanset_has(&asked, vid) != 0 || vl_is_vlan_member(vid, (int32_t)options.ifx) != 0)
        return;
    bri_vlanset_add(&asked, vid);
    if (vl_clnt_add_dyn_member((int32_t)options.ifx, vid) == 0)
        printf("%s: asked for port %ld in VLAN %u\n", options.name, options.ifx, vid);
    else
        printf("%s: could not ask: port %ld is no trunk, or no server\n", options.name, options.ifx);
}

/* It is no member of a VLAN that is made anew. */
static void forget(uint16_t vid) {
    bri_vlanset_remove(&asked, vid);
}

/* What was asked for may have been lost with the old connection. */
static void on_connection(int up, void *context) {
    (void)context;
    if (up != 0)
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

/* As a host that has much to do. */
static void take_time(void) {
    usleep((useconds_t)(options.slow_ms * 1000));
}

static void vlan_created(const void *record, uint16_t size, void *context) {
    const struct vl_evt_vlan_rec *vlan = record;
    (void)size, (void)context;
    take_time();
    join(vlan->vid);
}
static void vlan_deleted(const void *record, uint16_t size, void *context) {
    const struct vl_evt_vlan_rec *vlan = record;
    (void)size, (void)context;
    take_time();
    forget(vlan->vid);
}
/* The set comes first in its record. */
static void set_created(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    take_time();
    for_each(record, join);
}
static void set_deleted(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    take_time();
    for_each(record, forget);
}

static const struct bridge_host_handler handlers[] = {
    {VLAN_EVENT_CREATE_INDEX, sizeof(struct vl_evt_vlan_rec), vlan_created, NULL},
    {VLAN_EVENT_DESTROY_INDEX, sizeof(struct vl_evt_vlan_rec), vlan_deleted, NULL},
    {VLAN_EVENT_CREATE_RANGE, sizeof(struct vlanset), set_created, NULL},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(struct vlanset), set_deleted, NULL},
};

static const struct host_option command_line[] = {
    {.letter = 'n', .text = &options.name},
    {.letter = 'i', .number = &options.ifx, .least = 1, .most = BRI_IFX_MAX},
    {.letter = 'l', .number = &options.look_ms, .most = PERIOD_MAX_MS},
    {.letter = 's', .number = &options.slow_ms, .most = SLOW_MAX_MS},
    {0},
};
static const char usage[] = "usage: vlan_follow [-n NAME] [-i PORT] [-l MS] [-s MS]\n"
                            "  -n NAME  name told to the server (vlan_follow)\n"
                            "  -i PORT  the port that is to be in every VLAN (1)\n"
                            "  -l MS    milliseconds between two look-ups of all VLANs, 0 for none (1000)\n"
                            "  -s MS    milliseconds that it spends on each event (0)\n"
                            "TMPDIR names the directory of the server, VSDID the switch device.\n";

int main(int argc, char **argv) {
    if (!host_options(argc, argv, command_line, usage))
        return 2;
    struct bridge_host_config config = {.name = options.name,
                                        .handlers = handlers,
                                        .handler_count = sizeof handlers / sizeof *handlers,
                                        .on_connection = on_connection};
    if (!layer_start(&config))
        return 1;
    if (options.look_ms > 0)
        host_after_ms(options.look_ms, look_around, "follow-look");
    return host_run();
}
