/* layered NAME: the daemon of naive.c with the host layer. It does the same, and goes on doing it whatever happens. */
#include "tests/host/picture.h"

#include <bridge/host.h>
#include <bridge/sets.h>

#include <string.h>

enum { ANSWER_MS = 1000 };

/* VLANs and ports: what is told, and what has vanished while nobody told. */

static void on_vlan(const void *record, bool exists) {
    const struct vl_evt_vlan_rec *vlan = record;
    if (vlan->vid < PICTURE_VLANS)
        picture.vlans[vlan->vid] = exists;
}
static void on_created(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    on_vlan(record, true);
}
static void on_destroyed(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    on_vlan(record, false);
}

static void on_vlans(const void *record, bool exist) {
    const struct vlanset *vlans = record; /* comes first in it */
    for (uint32_t vid = bri_vlanset_next(vlans, 0); vid != 0; vid = bri_vlanset_next(vlans, vid))
        picture.vlans[vid] = exist;
}
static void on_range_created(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    on_vlans(record, true);
}
static void on_range_destroyed(const void *record, uint16_t size, void *context) {
    (void)size, (void)context;
    on_vlans(record, false);
}

static void on_pvid(const void *record, uint16_t size, void *context) {
    const struct vl_evt_intf_pvid_rec *port = record;
    (void)size, (void)context;
    if ((uintptr_t)record % _Alignof(struct vl_evt_intf_pvid_rec) != 0)
        picture.misplaced = true;
    if (port->ifx < PICTURE_PORTS)
        picture.pvids[port->ifx] = port->pvid;
}

static void on_vanished(const struct bridge_host_vanished *what, void *context) {
    (void)context;
    if (what->kind == BRIDGE_HOST_VLAN)
        picture.vlans[what->vid] = false;
    else if (what->kind == BRIDGE_HOST_PORT)
        picture.pvids[what->ifx] = 0;
}

static void on_role(enum bridge_host_role role, void *context) {
    (void)context;
    picture.role = role == BRIDGE_HOST_ROLE_SLAVE ? "slave" : "master";
}

/* The VLAN that is kept: asked for until it is there. */

static int create_kept(void *context) {
    (void)context;
    return vl_clnt_create_vlan_entry(KEPT_VLAN);
}
static int kept_exists(uint32_t event, const void *record, uint16_t size, void *context) {
    (void)event, (void)record, (void)size, (void)context;
    return vl_exist(KEPT_VLAN, 0);
}

static void keep_vlan(void);
static void on_kept(struct bridge_host_pending *request, enum bridge_host_result result, void *context) {
    (void)request, (void)context;
    if (result == BRIDGE_HOST_TIMED_OUT)
        keep_vlan();
}

/* What is lost with the connection is asked for on the next one. */
static void keep_vlan(void) {
    static struct bridge_host_pending request = {
        .send = create_kept, .done_when = kept_exists, .timeout_ms = ANSWER_MS, .on_done = on_kept};
    if (!vl_exist(KEPT_VLAN, 0))
        bridge_host_request(&request);
}

static void on_resync_end(uint32_t submod, int complete, void *context) {
    (void)complete, (void)context;
    if (submod == BRI_SUBMOD_VLAN)
        keep_vlan();
}

/* The count of addresses, one after the other. */

static int on_entry(const struct bri_mac_entry *entry, void *context) {
    (void)entry;
    ++*(int *)context;
    return 0;
}
static void on_counted(struct bridge_host_walk *walk, int result, void *context) {
    (void)walk;
    picture.addresses = result == 0 ? *(int *)context : -1;
}
static void count_addresses(void) {
    static int count;
    static struct bridge_host_walk walk = {.on_entry = on_entry, .on_end = on_counted, .context = &count};
    bridge_host_walk_cancel(&walk);
    count = 0;
    bridge_host_walk_start(&walk);
}

/* The end: when the last request is out. */

static void on_stopped(const struct bridge_host_left *left, void *context) {
    (void)left, (void)context;
    qv_thread_master_stop(picture_loop);
}
static void end(void) {
    vl_clnt_delete_vlan_entry(KEPT_VLAN);
    bridge_host_stop(on_stopped);
}

int main(int argc, char **argv) {
    static const struct bridge_host_handler handlers[] = {
        {VLAN_EVENT_CREATE_INDEX, sizeof(struct vl_evt_vlan_rec), on_created, NULL},
        {VLAN_EVENT_DESTROY_INDEX, sizeof(struct vl_evt_vlan_rec), on_destroyed, NULL},
        {VLAN_EVENT_CREATE_RANGE, sizeof(struct vlanset), on_range_created, NULL},
        {VLAN_EVENT_DESTROY_RANGE, sizeof(struct vlanset), on_range_destroyed, NULL},
        {VLAN_EVENT_MODIFY_INTF_PVID, sizeof(struct vl_evt_intf_pvid_rec), on_pvid, NULL},
    };
    if (argc != 2 || !picture_start(count_addresses, end))
        return 1;
    const struct bridge_host_config config = {.size = sizeof config,
                                              .flags = BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS,
                                              .name = argv[1],
                                              .master = picture_loop,
                                              .handlers = handlers,
                                              .handler_count = sizeof handlers / sizeof *handlers,
                                              .on_role = on_role,
                                              .on_resync_end = on_resync_end,
                                              .on_vanished = on_vanished};
    return bridge_host_start(&config) == 0 ? picture_run() : 1;
}
