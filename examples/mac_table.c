/* mac_table: a small host daemon. It prints the kernel's table of MAC addresses, the whole by address and one port's
 * share by port, asks the server to add a static address, and prints every address that the server announces, that one
 * among them.
 *
 * The table is read when the kernel channel has come up, in slices that do not hold the loop; when the kernel does not
 * answer, again every second until it does. The request waits until the server has told the addresses that there are. A
 * channel that comes up later leads to a kernel whose table may be empty: the address is asked for again.
 */
#include "layer.h"

#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

static struct {
    const char *name;
    uint8_t mac[6];
    long vid;
    long ifx;
} options = {.name = "mac_table", .mac = {0x02, 0, 0, 0, 0, 1}, .vid = 1, .ifx = 1};

static const char *type_text(uint32_t type) {
    static const char *const texts[] = {"?",    "dynamic",  "static", "filter", "local",
                                        "copy", "security", "other",  "trusted"};
    return texts[type < sizeof texts / sizeof *texts ? type : 0];
}

static void print_entry(const char *what, const struct bri_mac_entry *entry) {
    char mac[BRI_MAC_TEXT_SIZE];
    printf("%s: %s %s, VLAN %u, port %u, %s\n", options.name, what, bri_mac_to_text(entry->mac, mac, sizeof mac),
           entry->bcast_id, entry->ifx, type_text(entry->type));
}

/* The kernel's table: first all of it, then one port's. */

enum { WALK_AGAIN_MS = 1000 };

static unsigned entries;

static int print_next(const struct bri_mac_entry *entry, void *context) {
    (void)context;
    ++entries;
    print_entry("  entry", entry);
    return 0;
}

static void on_walked(struct bridge_host_walk *walk, int result, void *context);
static struct bridge_host_walk walk = {.on_entry = print_next, .on_end = on_walked};

static void print_addresses_of(uint32_t ifx) {
    if (ifx == 0)
        printf("%s: all addresses\n", options.name);
    else
        printf("%s: addresses of port %u\n", options.name, ifx);
    entries = 0;
    walk.ifx = ifx;
    const int result = bridge_host_walk_start(&walk);
    if (result != 0)
        on_walked(&walk, result, NULL);
}

/* Job: the kernel did not answer a while ago. */
static int walk_again(void *arg) {
    (void)arg;
    print_addresses_of(0);
    return 0;
}

/* From the beginning, whatever was under way. */
static void begin_walks(void) {
    bridge_host_walk_cancel(&walk);
    qv_thread_cancel_by_arg_func(host_loop, NULL, walk_again);
    print_addresses_of(0);
}

static void on_walked(struct bridge_host_walk *ended, int result, void *context) {
    (void)context;
    if (result == 0)
        printf("%s:   %u entries\n", options.name, entries);
    else
        printf("%s:   the kernel does not tell: %s\n", options.name, bri_strerror(result));
    if (result == BRI_ERR_NOT_PERMITTED) /* this daemon is about to end */
        return;
    if (result != 0)
        host_after_ms(WALK_AGAIN_MS, walk_again, "table-walk");
    else if (ended->ifx == 0)
        print_addresses_of((uint32_t)options.ifx);
}

/* Asks the server for the static address. The answer is its announcement. */
static void add_address(void) {
    if (bridge_maddr_add_static(options.mac, (uint32_t)options.vid, (uint32_t)options.ifx) == 0)
        printf("%s: asked for the address\n", options.name);
    else
        printf("%s: could not ask for the address: no port %ld, or no server\n", options.name, options.ifx);
}

/* Whether the address has reached the kernel. One look-up waits for its answer. */
static void look_up_address(void) {
    struct bri_mac_entry entry;
    if (bridge_maddr_find_single(options.mac, (uint32_t)options.vid, &entry) == 0)
        print_entry("in the kernel's table:", &entry);
    else
        printf("%s: not in the kernel's table\n", options.name);
}

static void on_announcement(const void *payload, uint16_t size, void *context) {
    const struct bri_mac_msg *record = payload;
    const struct bri_mac_entry *entry = &record->entry;
    (void)size, (void)context;
    print_entry(record->oper == BRI_MAC_ADD ? "added" : "deleted", entry);
    if (record->oper != BRI_MAC_ADD || entry->type != BRI_MAC_TYPE_STATIC || entry->bcast_id != options.vid ||
        bri_mac_compare(entry->mac, options.mac) != 0)
        return;
    printf("%s: that is the address we asked for\n", options.name);
    look_up_address();
}

/* The kernel has come up: twice after a lost channel. */
static void on_kernel(const void *record, uint16_t size, void *context) {
    (void)record, (void)size, (void)context;
    begin_walks();
    if (bridge_host_in_step(BRI_SUBMOD_MAC))
        add_address();
}

/* The server has told the addresses that there are. */
static void on_resync_end(uint32_t submod, int complete, void *context) {
    (void)complete, (void)context;
    if (submod == BRI_SUBMOD_MAC)
        add_address();
}

static const struct bridge_host_handler handlers[] = {
    {BRIDGE_EVENT_KERNEL_DATA_REQ, 0, on_kernel, NULL},
    {MAC_EVENT_NOTIFY_ADDR, sizeof(struct bri_mac_msg), on_announcement, NULL},
    {MAC_EVENT_NOTIFY_NONDYN, sizeof(struct bri_mac_msg), on_announcement, NULL},
};

static bool take_mac(const char *word) {
    return bri_mac_from_text(options.mac, word) == 0;
}

static const struct host_option command_line[] = {
    {.letter = 'n', .text = &options.name},
    {.letter = 'm', .take = take_mac},
    {.letter = 'v', .number = &options.vid, .least = 1, .most = BRI_VID_MAX},
    {.letter = 'i', .number = &options.ifx, .least = 1, .most = BRI_IFX_MAX},
    {0},
};
static const char usage[] = "usage: mac_table [-n NAME] [-m MAC] [-v VLAN] [-i PORT]\n"
                            "  -n NAME  name told to the server (mac_table)\n"
                            "  -m MAC   address to add (02:00:00:00:00:01)\n"
                            "  -v VLAN  its VLAN (1)\n"
                            "  -i PORT  its port, and the port whose addresses are printed (1)\n"
                            "TMPDIR names the directory of the server, VSDID the switch device.\n";

int main(int argc, char **argv) {
    if (!host_options(argc, argv, command_line, usage))
        return 2;
    struct bridge_host_config config = {.name = options.name,
                                        .handlers = handlers,
                                        .handler_count = sizeof handlers / sizeof *handlers,
                                        .on_resync_end = on_resync_end};
    return layer_start(&config) ? host_run() : 1;
}
