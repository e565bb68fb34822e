/* The sweep: which VLANs and ports were told, and which of them a resynchronisation did not tell again. */
#include "layer.h"

#include <bridge/events.h>
#include <bridge/vlan_client.h>

static struct vlanset vlans_known, vlans_told; /* told: since the resynchronisation began */
static struct bri_port_set ports_known, ports_told;

static bool sweeps_vlans(void) {
    return (bri_host.config.flags & BRIDGE_HOST_SWEEP_VLANS) != 0;
}

static bool sweeps_ports(void) {
    return (bri_host.config.flags & BRIDGE_HOST_SWEEP_PORTS) != 0;
}

bool bri_host_sweeps(uint32_t submod) {
    return submod == BRI_SUBMOD_VLAN ? sweeps_vlans() || sweeps_ports()
                                     : submod == BRI_SUBMOD_MAC && bri_host.config.mac_capacity != 0;
}

int bri_host_sweep_start(struct event_set *events) {
    if (sweeps_vlans())
        bri_event_set_add_range(events, VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_RANGE);
    if (sweeps_ports()) {
        bri_event_set_add_range(events, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_DESTROY_INTF);
        bri_event_set_add(events, VLAN_EVENT_MODIFY_INTF_MODE);
    }
    bri_vlanset_clear(&vlans_known);
    bri_port_set_clear(&ports_known);
    if (bri_host.config.mac_capacity == 0)
        return 0;
    bri_event_set_add_range(events, MAC_EVENT_NOTIFY_ADDR, MAC_EVENT_NOTIFY_NONDYN);
    return bri_host_addresses_start(bri_host.config.mac_capacity);
}

void bri_host_sweep_end(void) {
    bri_host_addresses_end();
}

/* What is told ------------------------------------------------------------------------------------------------------
 */

static void add_vlan(uint32_t vid) {
    bri_vlanset_add(&vlans_known, vid);
    bri_vlanset_add(&vlans_told, vid);
}

static void remove_vlan(uint32_t vid) {
    bri_vlanset_remove(&vlans_known, vid);
    bri_vlanset_remove(&vlans_told, vid);
}

static void for_each_vlan(const struct vlanset *vlans, void (*action)(uint32_t vid)) {
    for (uint32_t vid = bri_vlanset_next(vlans, 0); vid != 0; vid = bri_vlanset_next(vlans, vid))
        action(vid);
}

static void note_vlan(uint32_t type, const struct vl_evt_vlan_rec *vlan) {
    (type == VLAN_EVENT_CREATE_INDEX ? add_vlan : remove_vlan)(vlan->vid);
}

/* The first record of a replay has all VLANs that there are. */
static void note_vlans(uint32_t type, const struct vl_evt_vlanset_rec *rec) {
    if (type == VLAN_EVENT_CREATE_RANGE && rec->origin_data != 0)
        bri_vlanset_clear(&vlans_told);
    for_each_vlan(&rec->vlans, type == VLAN_EVENT_CREATE_RANGE ? add_vlan : remove_vlan);
}

static void note_port(uint32_t ifx, bool there) {
    (there ? bri_port_set_add : bri_port_set_remove)(&ports_known, ifx);
    (there ? bri_port_set_add : bri_port_set_remove)(&ports_told, ifx);
}

static void note_vlan_event(uint32_t type, const void *record, uint16_t size) {
    switch (type) {
    case VLAN_EVENT_CREATE_INDEX:
    case VLAN_EVENT_DESTROY_INDEX:
        if (size >= sizeof(struct vl_evt_vlan_rec))
            note_vlan(type, record);
        break;
    case VLAN_EVENT_CREATE_RANGE:
    case VLAN_EVENT_DESTROY_RANGE:
        if (size >= sizeof(struct vl_evt_vlanset_rec))
            note_vlans(type, record);
        break;
    case VLAN_EVENT_CREATE_INTF:
    case VLAN_EVENT_DESTROY_INTF: /* the port comes first in every record of one */
        if (size >= sizeof(uint32_t))
            note_port(*(const uint32_t *)record, type == VLAN_EVENT_CREATE_INTF);
        break;
    case VLAN_EVENT_MODIFY_INTF_MODE:
        if (size >= sizeof(struct vl_evt_intf_mode_rec))
            note_port(*(const uint32_t *)record, ((const struct vl_evt_intf_mode_rec *)record)->mode != BRI_PORT_ROUTE);
        break;
    default:
        break;
    }
}

void bri_host_sweep_note(uint32_t type, const void *record, uint16_t size) {
    if (type >> 7 == BRI_SUBMOD_VLAN)
        note_vlan_event(type, record, size);
    else if ((type == MAC_EVENT_NOTIFY_ADDR || type == MAC_EVENT_NOTIFY_NONDYN) && size >= sizeof(struct bri_mac_msg))
        bri_host_addresses_note(record);
}

/* A resynchronisation -----------------------------------------------------------------------------------------------
 */

void bri_host_sweep_begin(uint32_t submod) {
    if (submod == BRI_SUBMOD_MAC)
        bri_host_addresses_begin();
    if (submod != BRI_SUBMOD_VLAN)
        return;
    bri_vlanset_clear(&vlans_told);
    bri_port_set_clear(&ports_told);
}

bool bri_host_sweep_whole(uint32_t submod) {
    return submod != BRI_SUBMOD_MAC || bri_host_addresses_whole();
}

void bri_host_report(const struct bridge_host_vanished *what) {
    ++bri_host.statistics.vanished;
    if (bri_host.config.on_vanished != NULL)
        bri_host.config.on_vanished(what, bri_host.config.context);
}

/* Callbacks may change what is known. */
static void finish_vlans(void) {
    for (uint32_t vid = bri_vlanset_next(&vlans_known, 0); vid != 0; vid = bri_vlanset_next(&vlans_known, vid)) {
        if (bri_vlanset_has(&vlans_told, vid))
            continue;
        remove_vlan(vid);
        bri_host_report(&(struct bridge_host_vanished){.kind = BRIDGE_HOST_VLAN, .vid = (uint16_t)vid});
    }
}

static void finish_ports(void) {
    for (uint32_t ifx = bri_port_set_next(&ports_known, 0); ifx != 0; ifx = bri_port_set_next(&ports_known, ifx)) {
        if (bri_port_set_has(&ports_told, ifx))
            continue;
        note_port(ifx, false);
        bri_host_report(&(struct bridge_host_vanished){.kind = BRIDGE_HOST_PORT, .ifx = ifx});
    }
}

void bri_host_sweep_finish(uint32_t submod) {
    if (submod == BRI_SUBMOD_MAC)
        bri_host_addresses_finish();
    if (submod == BRI_SUBMOD_VLAN && sweeps_ports())
        finish_ports();
    if (submod == BRI_SUBMOD_VLAN && sweeps_vlans())
        finish_vlans();
}
