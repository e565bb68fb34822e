/* port_security: a host daemon that limits how many addresses a port may learn. It follows the learned addresses by
 * the server's announcements; a port that has as many as it may have learns no more until one goes, and what came too
 * much meanwhile is deleted. After each synchronisation it begins anew with the addresses that are there. */
#include "examples/host.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum { PORT_MAX = 63, ADDRESS_MAX = 1024 };

struct address {
    uint8_t mac[6];
    uint16_t vid;
    uint32_t ifx; /* 0: no address */
};

static struct address addresses[ADDRESS_MAX];
static unsigned counts[PORT_MAX + 1];
static bool closed[PORT_MAX + 1]; /* asked not to learn */
static long limit = 2;

static struct address *find(const struct bri_mac_entry *entry) {
    struct address *unused = NULL;
    for (size_t i = 0; i < ADDRESS_MAX; ++i) {
        struct address *known = &addresses[i];
        if (known->ifx == 0)
            unused = known;
        else if (known->vid == entry->bcast_id && memcmp(known->mac, entry->mac, sizeof known->mac) == 0)
            return known;
    }
    return unused;
}

/* Lets a port learn while it has room. */
static void open_or_close(uint32_t ifx) {
    const bool full = counts[ifx] >= (unsigned)limit;
    if (full == closed[ifx] || bridge_maddr_set_intf_learn(ifx, !full) != 0)
        return;
    closed[ifx] = full;
    printf("port %u: %u addresses, learning %s\n", ifx, counts[ifx], full ? "off" : "on");
}

static void forget(struct address *known) {
    const uint32_t ifx = known->ifx;
    known->ifx = 0;
    --counts[ifx];
    open_or_close(ifx);
}

static void learn(struct address *known, const struct bri_mac_entry *entry) {
    if (known->ifx == entry->ifx)
        return;
    if (known->ifx != 0) {
        printf("moved from port %u to port %u\n", known->ifx, entry->ifx);
        forget(known);
    }
    if (counts[entry->ifx] >= (unsigned)limit) {
        printf("port %u: one too many\n", entry->ifx);
        bridge_maddr_del_dyn(entry->mac, entry->bcast_id, entry->ifx);
        return;
    }
    memcpy(known->mac, entry->mac, sizeof known->mac);
    known->vid = entry->bcast_id;
    known->ifx = entry->ifx;
    ++counts[entry->ifx];
    open_or_close(entry->ifx);
}

static void on_address(const struct bri_mac_msg *record) {
    const struct bri_mac_entry *entry = &record->entry;
    struct address *known = find(entry);
    if (known == NULL || entry->type != BRI_MAC_TYPE_DYNAMIC || entry->ifx == 0 || entry->ifx > PORT_MAX)
        return;
    if (record->oper == BRI_MAC_ADD)
        learn(known, entry);
    else if (known->ifx == entry->ifx)
        forget(known);
}

static void begin_anew(void) {
    memset(addresses, 0, sizeof addresses);
    memset(counts, 0, sizeof counts);
    memset(closed, 0, sizeof closed);
    bridge_client_request_submod_oridata(BRI_SUBMOD_MAC);
}

static int on_event(uint32_t type, void *data, uint16_t len) {
    if (type == BRIDGE_EVENT_SYNC_DATA_END)
        begin_anew();
    else if (type == MAC_EVENT_NOTIFY_ADDR && len == sizeof(struct bri_mac_msg))
        on_address(data);
    return 0;
}

int main(int argc, char **argv) {
    for (int option; (option = getopt(argc, argv, "l:")) != -1;)
        if (option != 'l' || (limit = host_number(optarg, 1, ADDRESS_MAX)) < 0)
            return 2;
    struct event_set events = {{0}};
    bri_event_set_add(&events, BRIDGE_EVENT_SYNC_DATA_END);
    bri_event_set_add(&events, MAC_EVENT_NOTIFY_ADDR);
    return host_start("portsec") && bridge_client_reg_event(&events, on_event) == 0 ? host_run() : 1;
}
