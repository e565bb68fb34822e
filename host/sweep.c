/* The sweep: which VLANs and ports were told, and which of them a resynchronisation did not tell again. */
#include "layer.h"

#include <bridge/events.h>
#include <bridge/vlan_client.h>

/* What is swept by number, VLANs and ports alike. */
static struct swept {
    enum bridge_host_kind kind;
    uint32_t flag;        /* of the configuration */
    uint32_t last;        /* greatest number */
    struct vlanset known; /* told and not taken back */
    struct vlanset told;  /* since the resynchronisation began */
} vlans = {.kind = BRIDGE_HOST_VLAN, .flag = BRIDGE_HOST_SWEEP_VLANS, .last = BRI_VID_MAX},
  ports = {.kind = BRIDGE_HOST_PORT, .flag = BRIDGE_HOST_SWEEP_PORTS, .last = BRI_IFX_MAX};

static bool is_swept(const struct swept *swept) {
    return (bri_host.config.flags & swept->flag) != 0;
}

bool bri_host_sweeps(uint32_t submod) {
    return submod == BRI_SUBMOD_VLAN ? is_swept(&vlans) || is_swept(&ports)
                                     : submod == BRI_SUBMOD_MAC && bri_host.config.mac_capacity != 0;
}

/* What is told ------------------------------------------------------------------------------------------------------
 */

static void note(struct swept *swept, uint32_t number, bool there) {
    if (number > swept->last)
        return;
    (there ? bri_vlanset_add : bri_vlanset_remove)(&swept->known, number);
    (there ? bri_vlanset_add : bri_vlanset_remove)(&swept->told, number);
}

static void note_vlan(uint32_t type, const void *record) {
    note(&vlans, ((const struct vl_evt_vlan_rec *)record)->vid, type == VLAN_EVENT_CREATE_INDEX);
}

/* The first record of a replay has all VLANs that there are. */
static void note_vlans(uint32_t type, const void *record) {
    const struct vl_evt_vlanset_rec *rec = record;
    if (type == VLAN_EVENT_CREATE_RANGE && rec->origin_data != 0)
        bri_vlanset_clear(&vlans.told);
    for (uint32_t vid = bri_vlanset_next(&rec->vlans, 0); vid != 0; vid = bri_vlanset_next(&rec->vlans, vid))
        note(&vlans, vid, type == VLAN_EVENT_CREATE_RANGE);
}

/* The port comes first in every record of one. */
static void note_port(uint32_t type, const void *record) {
    note(&ports, *(const uint32_t *)record, type == VLAN_EVENT_CREATE_INTF);
}

static void note_mode(uint32_t type, const void *record) {
    const struct vl_evt_intf_mode_rec *port = record;
    (void)type;
    note(&ports, port->ifx, port->mode != BRI_PORT_ROUTE);
}

static void note_address(uint32_t type, const void *record) {
    (void)type;
    bri_host_addresses_note(record);
}

static const struct {
    uint32_t event;
    uint16_t least;
    uint16_t kind; /* enum bridge_host_kind */
    void (*note)(uint32_t type, const void *record);
} notes[] = {
    {VLAN_EVENT_CREATE_INDEX, sizeof(struct vl_evt_vlan_rec), BRIDGE_HOST_VLAN, note_vlan},
    {VLAN_EVENT_DESTROY_INDEX, sizeof(struct vl_evt_vlan_rec), BRIDGE_HOST_VLAN, note_vlan},
    {VLAN_EVENT_CREATE_RANGE, sizeof(struct vl_evt_vlanset_rec), BRIDGE_HOST_VLAN, note_vlans},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(struct vl_evt_vlanset_rec), BRIDGE_HOST_VLAN, note_vlans},
    {VLAN_EVENT_CREATE_INTF, sizeof(uint32_t), BRIDGE_HOST_PORT, note_port},
    {VLAN_EVENT_DESTROY_INTF, sizeof(uint32_t), BRIDGE_HOST_PORT, note_port},
    {VLAN_EVENT_MODIFY_INTF_MODE, sizeof(struct vl_evt_intf_mode_rec), BRIDGE_HOST_PORT, note_mode},
    {MAC_EVENT_NOTIFY_ADDR, sizeof(struct bri_mac_msg), BRIDGE_HOST_ADDRESS, note_address},
    {MAC_EVENT_NOTIFY_NONDYN, sizeof(struct bri_mac_msg), BRIDGE_HOST_ADDRESS, note_address},
};
enum { NOTES = sizeof notes / sizeof *notes };

void bri_host_sweep_note(uint32_t type, const void *record, uint16_t size) {
    if (!bri_host_sweeps(type >> 7))
        return;
    for (size_t i = 0; i < NOTES; ++i)
        if (notes[i].event == type && size >= notes[i].least)
            notes[i].note(type, record);
}

int bri_host_sweep_start(struct event_set *events) {
    const bool wanted[] = {[BRIDGE_HOST_VLAN] = is_swept(&vlans),
                           [BRIDGE_HOST_PORT] = is_swept(&ports),
                           [BRIDGE_HOST_ADDRESS] = bri_host.config.mac_capacity != 0};
    for (size_t i = 0; i < NOTES; ++i)
        if (wanted[notes[i].kind])
            bri_event_set_add(events, notes[i].event);
    bri_vlanset_clear(&vlans.known);
    bri_vlanset_clear(&ports.known);
    return bri_host_addresses_start(bri_host.config.mac_capacity);
}

/* A resynchronisation -----------------------------------------------------------------------------------------------
 */

void bri_host_sweep_begin(uint32_t submod) {
    if (submod == BRI_SUBMOD_MAC)
        bri_host_addresses_begin();
    if (submod != BRI_SUBMOD_VLAN)
        return;
    bri_vlanset_clear(&vlans.told);
    bri_vlanset_clear(&ports.told);
}

void bri_host_report(const struct bridge_host_vanished *what) {
    ++bri_host.statistics.vanished;
    if (bri_host.config.on_vanished != NULL)
        bri_host.config.on_vanished(what, bri_host.config.context);
}

/* Callbacks may change what is known, and cut it. */
static void finish(struct swept *swept, const bool *open) {
    const struct vlanset *known = &swept->known;
    for (uint32_t number = 0; *open && (number = bri_vlanset_next(known, number)) != 0;) {
        if (!is_swept(swept) || bri_vlanset_has(&swept->told, number))
            continue;
        note(swept, number, false);
        struct bridge_host_vanished what = {.kind = swept->kind};
        if (swept == &vlans)
            what.vid = (uint16_t)number;
        else
            what.ifx = number;
        bri_host_report(&what);
    }
}

void bri_host_sweep_finish(uint32_t submod, const bool *open) {
    if (submod == BRI_SUBMOD_MAC)
        bri_host_addresses_finish(open);
    if (submod != BRI_SUBMOD_VLAN)
        return;
    finish(&ports, open);
    finish(&vlans, open);
}
