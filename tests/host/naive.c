/* naive NAME: a host daemon as one writes it at first, on the bare library. It follows VLANs and ports, keeps a VLAN in
 * existence, and counts the addresses of the kernel's table. It works as long as nothing happens; what goes wrong with
 * it when something does is what pains.c shows. It is kept as it is. */
#include "tests/host/picture.h"

#include <string.h>

/* "Everything is told as it happens." Not while there is no connection. */
static void add_vlan(const struct vl_evt_vlan_rec *record) {
    picture.vlans[record->vid] = true;
}

static void remove_vlan(const struct vl_evt_vlan_rec *record) {
    picture.vlans[record->vid] = false;
}

/* "The last VLAN is 4094." It is left out. */
static void set_vlans(const struct vl_evt_vlanset_rec *record, bool exist) {
    for (unsigned vid = 1; vid < 4094; ++vid)
        if ((record->vlans.words[vid / 32] >> vid % 32 & 1) != 0)
            picture.vlans[vid] = exist;
}

/* "A record lies where its type may lie, and is whole." Neither is so. */
static void set_pvid(const struct vl_evt_intf_pvid_rec *record) {
    if ((uintptr_t)record % _Alignof(struct vl_evt_intf_pvid_rec) != 0)
        picture.misplaced = true;
    if (record->ifx < PICTURE_PORTS)
        picture.pvids[record->ifx] = record->pvid;
}

/* "Once is enough: the server does what it is asked." It may refuse, or never get it. */
static void keep_vlan(void) {
    static bool asked;
    if (asked)
        return;
    asked = true;
    vl_clnt_create_vlan_entry(KEPT_VLAN);
}

static int on_event(uint32_t type, void *data, uint16_t length) {
    (void)length;
    switch (type) {
    case BRIDGE_EVENT_SYNC_DATA_END:
        keep_vlan();
        break;
    case BRIDGE_EVENT_SWITCHOVER_BEGIN: /* "This tells the role." Only that it became master, and not always. */
        picture.role = "master";
        break;
    case VLAN_EVENT_SYNC_DATA_BEGIN: /* "All ports follow." Not when the server ends its synchronisation. */
        memset(picture.pvids, 0, sizeof picture.pvids);
        break;
    case VLAN_EVENT_CREATE_INDEX:
        add_vlan(data);
        break;
    case VLAN_EVENT_DESTROY_INDEX:
        remove_vlan(data);
        break;
    case VLAN_EVENT_CREATE_RANGE:
        set_vlans(data, true);
        break;
    case VLAN_EVENT_DESTROY_RANGE:
        set_vlans(data, false);
        break;
    case VLAN_EVENT_MODIFY_INTF_PVID:
        set_pvid(data);
        break;
    default:
        break;
    }
    return 0;
}

/* "The kernel answers at once." It may take 10 seconds for each address. */
static void count_addresses(void) {
    struct bri_mac_entry entry = {.field = BRI_MAC_FIELD_MAC};
    int count = 0;
    for (int found = bridge_maddr_find_first_on_mac(&entry); found == 0; ++count)
        found = bridge_maddr_find_next_on_mac(&entry, &entry);
    picture.addresses = count;
}

/* "What was sent is gone." It waits for up to 50 ms, for a timer of the loop. */
static void end(void) {
    vl_clnt_delete_vlan_entry(KEPT_VLAN);
    qv_thread_master_stop(picture_loop);
}

static void want(struct event_set *events, uint32_t type) {
    events->words[type / 32] |= UINT32_C(1) << type % 32;
}

int main(int argc, char **argv) {
    static const uint32_t types[] = {BRIDGE_EVENT_SYNC_DATA_END, BRIDGE_EVENT_SWITCHOVER_BEGIN,
                                     VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_CREATE_INDEX,
                                     VLAN_EVENT_DESTROY_INDEX,   VLAN_EVENT_CREATE_RANGE,
                                     VLAN_EVENT_DESTROY_RANGE,   VLAN_EVENT_MODIFY_INTF_PVID};
    struct event_set events = {{0}};
    for (size_t i = 0; i < sizeof types / sizeof *types; ++i)
        want(&events, types[i]);
    if (argc != 2 || !picture_start(count_addresses, end) || bridge_agent_init(argv[1], picture_loop) != 0 ||
        bridge_client_reg_event(&events, on_event) != 0)
        return 1;
    return picture_run();
}
