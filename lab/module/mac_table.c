// SPDX-License-Identifier: GPL-2.0
#include "ef_bridge.h"

#include <linux/errno.h>
#include <linux/rbtree.h>
#include <linux/slab.h>
#include <linux/string.h>

struct known {
    struct rb_node node;
    struct bri_mac_entry entry;
    bool unconfirmed; /* since the begin of a check */
};

enum {
    FIELDS_NAME = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID,
    FIELDS_ADD = FIELDS_NAME | BRI_MAC_FIELD_TYPE,
    FIELDS_ALL = FIELDS_ADD | BRI_MAC_FIELD_IFX
};

static struct rb_root entries = RB_ROOT;
static u32 count;

static struct known *known_of(struct rb_node *node) {
    return rb_entry_safe(node, struct known, node);
}

static struct known *first_known(void) {
    return known_of(rb_first(&entries));
}

static struct known *next_known(struct known *known) {
    return known_of(rb_next(&known->node));
}

static bool is_dynamic(const struct bri_mac_entry *entry) {
    return entry->type == BRI_MAC_TYPE_DYNAMIC;
}

static int order(const struct bri_mac_entry *left, const u8 *mac, u32 domain) {
    int result = memcmp(left->mac, mac, sizeof left->mac);

    return result != 0 ? result : (int)left->bcast_id - (int)domain;
}

static bool matches(const struct bri_mac_entry *entry, const struct bri_mac_entry *key, unsigned int fields) {
    return (!(fields & BRI_MAC_FIELD_MAC) || memcmp(entry->mac, key->mac, sizeof key->mac) == 0) &&
           (!(fields & BRI_MAC_FIELD_IFX) || entry->ifx == key->ifx) &&
           (!(fields & BRI_MAC_FIELD_TYPE) || entry->type == key->type) &&
           (!(fields & BRI_MAC_FIELD_BCAST_ID) || entry->bcast_id == key->bcast_id);
}

/* The first entry that is not before this address and domain. */
static struct known *lower_bound(const u8 *mac, u32 domain) {
    struct rb_node *node = entries.rb_node;
    struct known *found = NULL;

    while (node) {
        struct known *here = known_of(node);

        if (order(&here->entry, mac, domain) < 0) {
            node = node->rb_right;
        } else {
            found = here;
            node = node->rb_left;
        }
    }
    return found;
}

static struct known *find(const struct bri_mac_entry *entry) {
    struct known *found = lower_bound(entry->mac, entry->bcast_id);

    return found && order(&found->entry, entry->mac, entry->bcast_id) == 0 ? found : NULL;
}

static void insert(struct known *known) {
    struct rb_node **link = &entries.rb_node, *parent = NULL;

    while (*link) {
        parent = *link;
        if (order(&known_of(parent)->entry, known->entry.mac, known->entry.bcast_id) < 0)
            link = &parent->rb_right;
        else
            link = &parent->rb_left;
    }
    rb_link_node(&known->node, parent, link);
    rb_insert_color(&known->node, &entries);
    count++;
}

static void forget(struct known *known) {
    rb_erase(&known->node, &entries);
    kfree(known);
    count--;
}

/* As the table keeps it: no flags, and every field valid. */
static void keep(struct known *known, const struct bri_mac_entry *given) {
    memset(&known->entry, 0, sizeof known->entry);
    known->entry.field = FIELDS_ALL;
    memcpy(known->entry.mac, given->mac, sizeof known->entry.mac);
    known->entry.bcast_id = given->bcast_id;
    known->entry.ifx = given->field & BRI_MAC_FIELD_IFX ? given->ifx : 0;
    known->entry.type = given->type;
    known->unconfirmed = false;
}

static int add(const struct bri_mac_entry *given) {
    struct known *known;

    if ((given->field & FIELDS_ADD) != FIELDS_ADD)
        return -EINVAL;
    known = find(given);
    if (known) {
        if (!is_dynamic(given) || is_dynamic(&known->entry))
            keep(known, given);
        return 0;
    }
    if (count >= EF_ADDRESSES_MAX)
        return -ENOSPC;
    known = kzalloc(sizeof *known, GFP_KERNEL);
    if (!known)
        return -ENOMEM;
    keep(known, given);
    insert(known);
    return 0;
}

static void remove(const struct bri_mac_entry *key) {
    bool named = key->field & BRI_MAC_FIELD_MAC;
    struct known *here = named ? lower_bound(key->mac, 0) : first_known(), *next;

    for (; here; here = next) {
        next = next_known(here);
        if (matches(&here->entry, key, key->field))
            forget(here);
        else if (named && memcmp(here->entry.mac, key->mac, sizeof key->mac) != 0)
            break;
    }
}

u32 ef_mac_count(void) {
    return count;
}

int ef_mac_apply(const struct bri_mac_msg *record) {
    if (record->oper == BRI_MAC_ADD)
        return add(&record->entry);
    if (record->oper == BRI_MAC_DEL)
        remove(&record->entry);
    return 0;
}

static const struct bri_mac_entry *search(struct known *from, const struct bri_mac_entry *key) {
    bool one = (key->field & FIELDS_NAME) == FIELDS_NAME;
    unsigned int filter = one ? key->field : key->field & ~(unsigned int)BRI_MAC_FIELD_MAC;

    for (; from; from = next_known(from))
        if (matches(&from->entry, key, filter))
            return &from->entry;
    return NULL;
}

const struct bri_mac_entry *ef_mac_first(const struct bri_mac_entry *key) {
    return search(key->field & BRI_MAC_FIELD_MAC ? lower_bound(key->mac, 0) : first_known(), key);
}

const struct bri_mac_entry *ef_mac_next(const struct bri_mac_entry *key, const struct bri_mac_entry *last) {
    return search(lower_bound(last->mac, (u32)last->bcast_id + 1), key);
}

void ef_mac_begin_check(void) {
    struct known *here;

    for (here = first_known(); here; here = next_known(here))
        here->unconfirmed |= is_dynamic(&here->entry);
}

void ef_mac_end_check(void) {
    struct known *here, *next;

    for (here = first_known(); here; here = next) {
        next = next_known(here);
        if (here->unconfirmed && is_dynamic(&here->entry))
            forget(here);
    }
}

void ef_mac_clear(void) {
    struct known *here;

    while ((here = first_known()))
        forget(here);
}

void ef_mac_show(struct seq_file *file) {
    struct known *here;

    for (here = first_known(); here; here = next_known(here))
        seq_printf(file, "mac %pM vlan %u port %u type %u\n", here->entry.mac, here->entry.bcast_id, here->entry.ifx,
                   here->entry.type);
}
