/* The sweep: which VLANs, ports and addresses were told, and which of them a resynchronisation did not tell again. */
#include "layer.h"

#include <bridge/events.h>
#include <bridge/vlan_client.h>

#include <stdlib.h>

/* What is swept by number, VLANs and ports alike. */
struct swept {
    uint32_t flag;        /* of the configuration */
    uint32_t last;        /* greatest number */
    struct vlanset known; /* told and not taken back */
    struct vlanset told;  /* since the resynchronisation began */
};
static struct swept vlans = {.flag = BRIDGE_HOST_SWEEP_VLANS, .last = BRI_VID_MAX};
static struct swept ports = {.flag = BRIDGE_HOST_SWEEP_PORTS, .last = BRI_IFX_MAX};

/* The addresses, by address and broadcast domain, in a table of fixed size. */
struct node {
    uint8_t mac[6];
    uint16_t bcast_id;
    uint32_t ifx;
    uint8_t type;
    uint8_t used;
    uint8_t told;  /* since the resynchronisation began */
    uint32_t next; /* in the bucket, or of the unused ones; counted from 1 */
};
static struct node *nodes;
static uint32_t *buckets; /* first node of each, counted from 1; as many as nodes */
static uint32_t capacity;
static uint32_t unused;
static bool left_out; /* an address had no room: that it vanishes would not be seen */

static bool is_swept(const struct swept *swept) {
    return (bri_host.config.flags & swept->flag) != 0;
}

bool bri_host_sweeps(uint32_t submod) {
    return submod == BRI_SUBMOD_VLAN ? is_swept(&vlans) || is_swept(&ports)
                                     : submod == BRI_SUBMOD_MAC && bri_host.config.mac_capacity != 0;
}

bool bri_host_sweep_whole(uint32_t submod) {
    return submod != BRI_SUBMOD_MAC || !left_out;
}

/* Addresses ------------------------------------------------------------------------------------------------------- */

/* The place that leads to the node of the key, or to the end of its bucket. */
static uint32_t *place_of(const uint8_t *mac, uint16_t bcast_id) {
    uint32_t hash = bcast_id;
    for (size_t i = 0; i < 6; ++i)
        hash = (hash ^ mac[i]) * UINT32_C(16777619);
    uint32_t *place = &buckets[(hash ^ hash >> 15) % capacity];
    while (*place != 0 && (nodes[*place - 1].bcast_id != bcast_id || memcmp(nodes[*place - 1].mac, mac, 6) != 0))
        place = &nodes[*place - 1].next;
    return place;
}

static void drop(struct node *node) {
    uint32_t *place = place_of(node->mac, node->bcast_id);
    const uint32_t number = *place;
    *place = node->next;
    node->used = 0;
    node->next = unused;
    unused = number;
}

/* The node of the key, made when there is none; null without room. */
static struct node *obtain(const uint8_t *mac, uint16_t bcast_id) {
    uint32_t *place = place_of(mac, bcast_id);
    if (*place == 0 && unused == 0)
        return NULL;
    if (*place != 0)
        return &nodes[*place - 1];
    struct node *node = &nodes[unused - 1];
    *place = unused;
    unused = node->next;
    node->next = 0;
    return node;
}

static void add(const struct bri_mac_entry *entry) {
    struct node *node = obtain(entry->mac, entry->bcast_id);
    if (node == NULL) {
        left_out = true;
        ++bri_host.statistics.addresses_left_out;
        return;
    }
    memcpy(node->mac, entry->mac, sizeof node->mac);
    node->bcast_id = entry->bcast_id;
    node->ifx = entry->ifx;
    node->type = (uint8_t)entry->type;
    node->used = node->told = 1;
}

static bool matches(const struct node *node, const struct bri_mac_entry *key) {
    return node->used != 0 &&
           ((key->field & BRI_MAC_FIELD_MAC) == 0 || memcmp(node->mac, key->mac, sizeof node->mac) == 0) &&
           ((key->field & BRI_MAC_FIELD_IFX) == 0 || node->ifx == key->ifx) &&
           ((key->field & BRI_MAC_FIELD_TYPE) == 0 || node->type == key->type) &&
           ((key->field & BRI_MAC_FIELD_BCAST_ID) == 0 || node->bcast_id == key->bcast_id);
}

/* With address and domain there is one node at most. */
static void drop_matching(const struct bri_mac_entry *key) {
    const uint8_t exact = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID;
    const bool one = (key->field & exact) == exact;
    const uint32_t end = one ? *place_of(key->mac, key->bcast_id) : capacity;
    for (uint32_t i = one && end != 0 ? end - 1 : 0; i < end; ++i)
        if (matches(&nodes[i], key))
            drop(&nodes[i]);
}

/* What is told ----------------------------------------------------------------------------------------------------- */

static void note_number(struct swept *swept, uint32_t number, bool there) {
    if (number > swept->last)
        return;
    (there ? bri_vlanset_add : bri_vlanset_remove)(&swept->known, number);
    (there ? bri_vlanset_add : bri_vlanset_remove)(&swept->told, number);
}

static void note_vlan(const void *record, bool there) {
    note_number(&vlans, ((const struct vl_evt_vlan_rec *)record)->vid, there);
}

/* The first record of a replay has all VLANs that there are. */
static void note_vlans(const void *record, bool there) {
    const struct vl_evt_vlanset_rec *rec = record;
    if (there && rec->origin_data != 0)
        bri_vlanset_clear(&vlans.told);
    for (uint32_t vid = bri_vlanset_next(&rec->vlans, 0); vid != 0; vid = bri_vlanset_next(&rec->vlans, vid))
        note_number(&vlans, vid, there);
}

/* The port comes first in every record of one. */
static void note_port(const void *record, bool there) {
    note_number(&ports, *(const uint32_t *)record, there);
}

static void note_mode(const void *record, bool there) {
    note_port(record, there && ((const struct vl_evt_intf_mode_rec *)record)->mode != BRI_PORT_ROUTE);
}

static void note_address(const void *record, bool there) {
    const struct bri_mac_msg *message = record;
    if (capacity != 0)
        (there && message->oper == BRI_MAC_ADD ? add : drop_matching)(&message->entry);
}

static const struct {
    uint32_t event;
    uint16_t least;
    bool there;   /* by this event it is, or may be */
    uint8_t kind; /* enum bridge_host_kind */
    void (*note)(const void *record, bool there);
} notes[] = {
    {VLAN_EVENT_CREATE_INDEX, sizeof(struct vl_evt_vlan_rec), true, BRIDGE_HOST_VLAN, note_vlan},
    {VLAN_EVENT_DESTROY_INDEX, sizeof(struct vl_evt_vlan_rec), false, BRIDGE_HOST_VLAN, note_vlan},
    {VLAN_EVENT_CREATE_RANGE, sizeof(struct vl_evt_vlanset_rec), true, BRIDGE_HOST_VLAN, note_vlans},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(struct vl_evt_vlanset_rec), false, BRIDGE_HOST_VLAN, note_vlans},
    {VLAN_EVENT_CREATE_INTF, sizeof(uint32_t), true, BRIDGE_HOST_PORT, note_port},
    {VLAN_EVENT_DESTROY_INTF, sizeof(uint32_t), false, BRIDGE_HOST_PORT, note_port},
    {VLAN_EVENT_MODIFY_INTF_MODE, sizeof(struct vl_evt_intf_mode_rec), true, BRIDGE_HOST_PORT, note_mode},
    {MAC_EVENT_NOTIFY_ADDR, sizeof(struct bri_mac_msg), true, BRIDGE_HOST_ADDRESS, note_address},
    {MAC_EVENT_NOTIFY_NONDYN, sizeof(struct bri_mac_msg), true, BRIDGE_HOST_ADDRESS, note_address},
};
enum { NOTES = sizeof notes / sizeof *notes };

void bri_host_sweep_note(uint32_t type, const void *record, uint16_t size) {
    if (!bri_host_sweeps(type >> 7))
        return;
    for (size_t i = 0; i < NOTES; ++i)
        if (notes[i].event == type && size >= notes[i].least)
            notes[i].note(record, notes[i].there);
}

/* Start and end --------------------------------------------------------------------------------------------------- */

static int make_nodes(uint32_t count) {
    left_out = false;
    if (count == 0)
        return 0;
    nodes = calloc(count, sizeof *nodes);
    buckets = calloc(count, sizeof *buckets);
    if (nodes == NULL || buckets == NULL)
        return BRI_ERR_NO_MEMORY;
    capacity = count;
    for (uint32_t i = 0; i < count; ++i)
        nodes[i].next = i + 1 < count ? i + 2 : 0;
    unused = 1;
    return 0;
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
    return make_nodes(bri_host.config.mac_capacity);
}

void bri_host_sweep_end(void) {
    free(nodes);
    free(buckets);
    nodes = NULL;
    buckets = NULL;
    capacity = unused = 0;
}

/* A resynchronisation --------------------------------------------------------------------------------------------- */

void bri_host_sweep_begin(uint32_t submod) {
    for (uint32_t i = 0; submod == BRI_SUBMOD_MAC && i < capacity; ++i)
        nodes[i].told = 0;
    if (submod != BRI_SUBMOD_VLAN)
        return;
    bri_vlanset_clear(&vlans.told);
    bri_vlanset_clear(&ports.told);
}

/* Callbacks may change what is known, and cut it. */
static void report(const struct bridge_host_vanished *what) {
    ++bri_host.statistics.vanished;
    if (bri_host.config.on_vanished != NULL)
        bri_host.config.on_vanished(what, bri_host.config.context);
}

static void finish_numbers(struct swept *swept, const bool *open) {
    for (uint32_t number = 0; *open && (number = bri_vlanset_next(&swept->known, number)) != 0;) {
        if (!is_swept(swept) || bri_vlanset_has(&swept->told, number))
            continue;
        note_number(swept, number, false);
        if (swept == &vlans)
            report(&(struct bridge_host_vanished){.kind = BRIDGE_HOST_VLAN, .vid = (uint16_t)number});
        else
            report(&(struct bridge_host_vanished){.kind = BRIDGE_HOST_PORT, .ifx = number});
    }
}

static void finish_addresses(const bool *open) {
    for (uint32_t i = 0; i < capacity && *open; ++i) {
        const struct node node = nodes[i];
        if (node.used == 0 || node.told != 0)
            continue;
        struct bridge_host_vanished what = {.kind = BRIDGE_HOST_ADDRESS, .vid = node.bcast_id, .ifx = node.ifx};
        what.address = (struct bri_mac_entry){.bcast_id = node.bcast_id, .ifx = node.ifx, .type = node.type};
        what.address.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
        memcpy(what.address.mac, node.mac, sizeof node.mac);
        drop(&nodes[i]);
        report(&what);
    }
}

void bri_host_sweep_finish(uint32_t submod, const bool *open) {
    if (submod == BRI_SUBMOD_MAC)
        finish_addresses(open);
    if (submod != BRI_SUBMOD_VLAN)
        return;
    finish_numbers(&ports, open);
    finish_numbers(&vlans, open);
}
