/* mac_table: a small host daemon. It prints the kernel's table of MAC addresses, the whole by address and one port's
 * share by port, asks the server to add a static address, and prints every address that the server announces, that one
 * among them.
 *
 * The table is read when the kernel channel has come up; the request waits until the server's data is complete, since
 * announcements do not reach a host before. A channel that comes up later leads to a kernel whose table may be empty:
 * the address is asked for again.
 */
#include "host.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

static struct {
    const char *name;
    uint8_t mac[6];
    uint16_t vid;
    uint32_t ifx;
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

/* Prints from the first entry that the key selects to the last. Every step waits for the kernel's answer. */
static void print_walk(struct bri_mac_entry key, int (*first)(struct bri_mac_entry *),
                       int (*next)(const struct bri_mac_entry *, struct bri_mac_entry *)) {
    unsigned count = 0;
    for (int result = first(&key); result == 0; result = next(&key, &key), ++count)
        print_entry("  entry", &key);
    printf("%s:   %u entries\n", options.name, count);
}

/* Job: prints the table. An entry's field tells by what a walk goes; the address 0 is the lowest. */
static int print_table(void *arg) {
    (void)arg;
    printf("%s: all addresses\n", options.name);
    print_walk((struct bri_mac_entry){.field = BRI_MAC_FIELD_MAC}, bridge_maddr_find_first_on_mac,
               bridge_maddr_find_next_on_mac);
    printf("%s: addresses of port %u\n", options.name, options.ifx);
    print_walk((struct bri_mac_entry){.field = BRI_MAC_FIELD_IFX, .ifx = options.ifx}, bridge_maddr_find_first_on_ifx,
               bridge_maddr_find_next_on_ifx);
    return 0;
}

/* Job: asks the server for the static address. The answer is its announcement. */
static int add_address(void *arg) {
    (void)arg;
    if (bridge_maddr_add_static(options.mac, options.vid, options.ifx) == 0)
        printf("%s: asked for the address\n", options.name);
    else
        printf("%s: could not ask for the address: no port %u, or no server\n", options.name, options.ifx);
    return 0;
}

/* Job: whether the address has reached the kernel. */
static int look_up_address(void *arg) {
    struct bri_mac_entry entry;
    (void)arg;
    if (bridge_maddr_find_single(options.mac, options.vid, &entry) == 0)
        print_entry("in the kernel's table:", &entry);
    else
        printf("%s: not in the kernel's table\n", options.name);
    return 0;
}

/* Runs a job once behind what runs now: a handler returns soon, and look-ups wait for the kernel. */
static void soon(qv_thread_func job, const char *name) {
    qv_thread_cancel_by_arg_func(host_loop, NULL, job);
    if (qv_thread_add_event_withname(host_loop, job, NULL, name) == NULL)
        fprintf(stderr, "%s: no job %s\n", options.name, name);
}

static void on_announcement(const struct bri_mac_msg *record) {
    const struct bri_mac_entry *entry = &record->entry;
    print_entry(record->oper == BRI_MAC_ADD ? "added" : "deleted", entry);
    if (record->oper != BRI_MAC_ADD || entry->type != BRI_MAC_TYPE_STATIC || entry->bcast_id != options.vid ||
        bri_mac_compare(entry->mac, options.mac) != 0)
        return;
    printf("%s: that is the address we asked for\n", options.name);
    soon(look_up_address, "table-look-up");
}

/* Gets the registered events. Announcements come one record at a time. */
static int on_event(uint32_t type, void *data, uint16_t len) {
    switch (type) {
    case BRIDGE_EVENT_KERNEL_DATA_REQ: /* twice after a lost channel */
        soon(print_table, "table-print");
        if (g_bridge_client->data_synced)
            soon(add_address, "table-add");
        break;
    case BRIDGE_EVENT_BKUP_DATA_END:
        soon(add_address, "table-add");
        break;
    case MAC_EVENT_NOTIFY_ADDR:
    case MAC_EVENT_NOTIFY_NONDYN:
        if (len == sizeof(struct bri_mac_msg))
            on_announcement(data);
        break;
    default:
        break;
    }
    return 0;
}

static int register_events(void) {
    static const uint32_t types[] = {BRIDGE_EVENT_KERNEL_DATA_REQ, BRIDGE_EVENT_BKUP_DATA_END, MAC_EVENT_NOTIFY_ADDR,
                                     MAC_EVENT_NOTIFY_NONDYN};
    struct event_set events = {{0}};
    for (size_t i = 0; i < sizeof types / sizeof *types; ++i)
        bri_event_set_add(&events, types[i]);
    return bridge_client_reg_event(&events, on_event);
}

static bool parse_option(int option) {
    long number;
    switch (option) {
    case 'n':
        options.name = optarg;
        return true;
    case 'm':
        return bri_mac_from_text(options.mac, optarg) == 0;
    case 'v':
        number = host_number(optarg, 1, BRI_VID_MAX);
        options.vid = (uint16_t)number;
        return number > 0;
    case 'i':
        number = host_number(optarg, 1, BRI_IFX_MAX);
        options.ifx = (uint32_t)number;
        return number > 0;
    default:
        return false;
    }
}

static int usage(void) {
    fprintf(stderr, "usage: mac_table [-n NAME] [-m MAC] [-v VLAN] [-i PORT]\n"
                    "  -n NAME  name told to the server (mac_table)\n"
                    "  -m MAC   address to add (02:00:00:00:00:01)\n"
                    "  -v VLAN  its VLAN (1)\n"
                    "  -i PORT  its port, and the port whose addresses are printed (1)\n"
                    "TMPDIR names the directory of the server, VSDID the switch device.\n");
    return 2;
}

int main(int argc, char **argv) {
    for (int option; (option = getopt(argc, argv, "n:m:v:i:")) != -1;)
        if (!parse_option(option))
            return usage();
    if (optind != argc)
        return usage();
    return host_start(options.name) && register_events() == 0 ? host_run() : 1;
}
