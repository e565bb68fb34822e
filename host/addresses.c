/* The addresses that were told, by address and broadcast domain, in a table of fixed size. */
#include "layer.h"

#include <stdlib.h>

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

int bri_host_addresses_start(uint32_t count) {
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

void bri_host_addresses_end(void) {
    free(nodes);
    free(buckets);
    nodes = NULL;
    buckets = NULL;
    capacity = 0;
    unused = 0;
}

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

static struct node *make(uint32_t *place) {
    if (unused == 0)
        return NULL;
    *place = unused;
    struct node *node = &nodes[unused - 1];
    unused = node->next;
    node->next = 0;
    node->used = 1;
    return node;
}

static void drop(uint32_t *place) {
    struct node *node = &nodes[*place - 1];
    const uint32_t number = *place;
    *place = node->next;
    node->used = 0;
    node->next = unused;
    unused = number;
}

static void add(const struct bri_mac_entry *entry) {
    uint32_t *place = place_of(entry->mac, entry->bcast_id);
    struct node *node = *place != 0 ? &nodes[*place - 1] : make(place);
    if (node == NULL) {
        left_out = true;
        ++bri_host.statistics.addresses_left_out;
        return;
    }
    memcpy(node->mac, entry->mac, sizeof node->mac);
    node->bcast_id = entry->bcast_id;
    node->ifx = entry->ifx;
    node->type = (uint8_t)entry->type;
    node->told = 1;
}

static bool matches(const struct node *node, const struct bri_mac_entry *key) {
    return ((key->field & BRI_MAC_FIELD_MAC) == 0 || memcmp(node->mac, key->mac, sizeof node->mac) == 0) &&
           ((key->field & BRI_MAC_FIELD_IFX) == 0 || node->ifx == key->ifx) &&
           ((key->field & BRI_MAC_FIELD_TYPE) == 0 || node->type == key->type) &&
           ((key->field & BRI_MAC_FIELD_BCAST_ID) == 0 || node->bcast_id == key->bcast_id);
}

static void drop_node(const struct node *node) {
    drop(place_of(node->mac, node->bcast_id));
}

static void drop_matching(const struct node *node, const struct bri_mac_entry *key) {
    if (node->used != 0 && matches(node, key))
        drop_node(node);
}

static void remove_matching(const struct bri_mac_entry *key) {
    const uint8_t exact = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID;
    if ((key->field & exact) == exact) {
        const uint32_t *place = place_of(key->mac, key->bcast_id);
        if (*place != 0)
            drop_matching(&nodes[*place - 1], key);
        return;
    }
    for (uint32_t i = 0; i < capacity; ++i)
        drop_matching(&nodes[i], key);
}

void bri_host_addresses_note(const struct bri_mac_msg *record) {
    if (capacity == 0)
        return;
    if (record->oper == BRI_MAC_ADD)
        add(&record->entry);
    else
        remove_matching(&record->entry);
}

void bri_host_addresses_begin(void) {
    for (uint32_t i = 0; i < capacity; ++i)
        nodes[i].told = 0;
}

bool bri_host_addresses_whole(void) {
    return !left_out;
}

static struct bridge_host_vanished vanished_of(const struct node *node) {
    struct bridge_host_vanished what = {.kind = BRIDGE_HOST_ADDRESS, .vid = node->bcast_id, .ifx = node->ifx};
    what.address.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
    memcpy(what.address.mac, node->mac, sizeof node->mac);
    what.address.bcast_id = node->bcast_id;
    what.address.ifx = node->ifx;
    what.address.type = node->type;
    return what;
}

void bri_host_addresses_finish(const bool *open) {
    for (uint32_t i = 0; i < capacity && *open; ++i) {
        if (nodes[i].used == 0 || nodes[i].told != 0)
            continue;
        const struct bridge_host_vanished what = vanished_of(&nodes[i]);
        drop_node(&nodes[i]);
        bri_host_report(&what);
    }
}
