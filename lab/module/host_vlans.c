// SPDX-License-Identifier: GPL-2.0
#include "ef_bridge.h"

#include <linux/errno.h>
#include <linux/list.h>
#include <linux/slab.h>
#include <linux/string.h>

struct host {
    struct list_head link;
    struct mvlan_msg message;
};

enum { HOSTS_MAX = 1024 };
static LIST_HEAD(hosts);
static u32 count;

static struct host *find(const struct mvlan_entry *entry) {
    struct host *host;

    list_for_each_entry(host, &hosts,
                        link) if (memcmp(host->message.entry.mac, entry->mac, sizeof entry->mac) == 0 &&
                                  memcmp(host->message.entry.mask, entry->mask, sizeof entry->mask) == 0) return host;
    return NULL;
}

static void forget(struct host *host) {
    list_del(&host->link);
    kfree(host);
    count--;
}

static int add(const struct mvlan_msg *request) {
    struct host *host = find(&request->entry);

    if (!host) {
        if (count >= HOSTS_MAX)
            return -ENOSPC;
        host = kzalloc(sizeof *host, GFP_KERNEL);
        if (!host)
            return -ENOMEM;
        list_add_tail(&host->link, &hosts);
        count++;
    }
    host->message = *request;
    return 0;
}

static bool covers(const struct mvlan_entry *entry, const u8 *mac) {
    size_t i;

    for (i = 0; i < sizeof entry->mac; i++)
        if ((entry->mac[i] ^ mac[i]) & entry->mask[i])
            return false;
    return true;
}

u32 ef_hosts_count(void) {
    return count;
}

int ef_hosts_apply(const struct mvlan_msg *request) {
    struct host *host;

    if (request->entry.type == EF_HOST_ADD)
        return add(request);
    if (request->entry.type != EF_HOST_DEL)
        return -EINVAL;
    host = find(&request->entry);
    if (!host)
        return -ENOENT;
    forget(host);
    return 0;
}

const struct mvlan_msg *ef_hosts_find(const u8 *mac) {
    const struct mvlan_msg *best = NULL;
    struct host *host;

    list_for_each_entry(host, &hosts, link) if (covers(&host->message.entry, mac) &&
                                                (!best || memcmp(host->message.entry.mask, best->entry.mask,
                                                                 sizeof best->entry.mask) > 0)) best = &host->message;
    return best;
}

void ef_hosts_clear(void) {
    struct host *host, *next;

    list_for_each_entry_safe(host, next, &hosts, link) forget(host);
}

void ef_hosts_show(struct seq_file *file) {
    struct host *host;

    list_for_each_entry(host, &hosts, link)
        seq_printf(file, "host %pM mask %pM vlan %u port %u\n", host->message.entry.mac, host->message.entry.mask,
                   host->message.entry.vlan, host->message.ifx);
}
