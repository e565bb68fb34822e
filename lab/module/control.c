// SPDX-License-Identifier: GPL-2.0
/* /proc/ef_bridge: written, one command a write; read, the state and the tables.
 *
 *     state up | error NUMBER | long | silent
 *     mac add|del ADDRESS VLAN PORT TYPE      an address by hand; 0 leaves a field open in a deletion
 *     mac fill COUNT VLAN PORT                learned addresses 06:00:00:00:00:00 and on
 *     host add|del ADDRESS VLAN PORT          a host's VLAN
 *     notify COUNT                            messages that nobody has asked for, to the last host that sent one
 *     clear                                   empties the tables
 */
#include "ef_bridge.h"

#include <linux/ctype.h>
#include <linux/errno.h>
#include <linux/etherdevice.h>
#include <linux/proc_fs.h>
#include <linux/slab.h>
#include <linux/string.h>
#include <linux/uaccess.h>

enum { LINE_MAX = 128 };

static const char *const state_names[] = {
    [EF_UP] = "up", [EF_ERROR] = "error", [EF_LONG] = "long", [EF_SILENT] = "silent"};
static_assert(ARRAY_SIZE(state_names) == EF_STATES);

static int set_state(const char *words) {
    char name[8];
    u32 error = 0;
    int state;

    if (sscanf(words, "%7s %u", name, &error) < 1)
        return -EINVAL;
    state = match_string(state_names, EF_STATES, name);
    if (state < 0 || (state == EF_ERROR && (error == 0 || error > MAX_ERRNO)))
        return -EINVAL;
    ef_module.state = state;
    ef_module.error = error;
    return 0;
}

static int change_address(const char *words, enum bri_mac_oper oper) {
    struct bri_mac_msg record = {.oper = oper};
    struct bri_mac_entry *entry = &record.entry;
    u8 *mac = entry->mac;
    u32 domain = 0;

    if (sscanf(words, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx %u %u %u", mac, mac + 1, mac + 2, mac + 3, mac + 4, mac + 5,
               &domain, &entry->ifx, &entry->type) != 9 ||
        domain > U16_MAX)
        return -EINVAL;
    entry->bcast_id = (u16)domain;
    entry->field = (is_zero_ether_addr(mac) ? 0 : BRI_MAC_FIELD_MAC) | (domain ? BRI_MAC_FIELD_BCAST_ID : 0) |
                   (entry->ifx ? BRI_MAC_FIELD_IFX : 0) | (entry->type ? BRI_MAC_FIELD_TYPE : 0);
    return ef_mac_apply(&record);
}

static int add_address(const char *words) {
    return change_address(words, BRI_MAC_ADD);
}

static int delete_address(const char *words) {
    return change_address(words, BRI_MAC_DEL);
}

static int fill(const char *words) {
    struct bri_mac_msg record = {.oper = BRI_MAC_ADD};
    u32 number, domain, port, i;
    int error = 0;

    if (sscanf(words, "%u %u %u", &number, &domain, &port) != 3 || number > EF_ADDRESSES_MAX || domain > U16_MAX)
        return -EINVAL;
    record.entry.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
    record.entry.bcast_id = (u16)domain;
    record.entry.ifx = port;
    record.entry.type = BRI_MAC_TYPE_DYNAMIC;
    for (i = 0; i < number && !error; i++) {
        u64_to_ether_addr(0x060000000000ULL + i, record.entry.mac);
        error = ef_mac_apply(&record);
    }
    return error;
}

static int change_host(const char *words, u32 type) {
    struct mvlan_msg request = {};
    u8 *mac = request.entry.mac;
    u32 domain = 0;

    if (sscanf(words, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx %u %u", mac, mac + 1, mac + 2, mac + 3, mac + 4, mac + 5, &domain,
               &request.ifx) != 8 ||
        domain > U16_MAX)
        return -EINVAL;
    request.entry.type = type;
    request.entry.vlan = (u16)domain;
    eth_broadcast_addr(request.entry.mask);
    return ef_hosts_apply(&request);
}

static int add_host(const char *words) {
    return change_host(words, EF_HOST_ADD);
}

static int delete_host(const char *words) {
    return change_host(words, EF_HOST_DEL);
}

static int notify(const char *words) {
    const struct bri_mac_msg notice = {.oper = BRI_MAC_ADD};
    u32 number;
    int error = kstrtouint(words, 10, &number);

    while (!error && number-- > 0)
        error = ef_family_notify(&notice);
    return error;
}

static int clear(const char *words) {
    ef_mac_clear();
    ef_hosts_clear();
    return 0;
}

static const struct command {
    const char *name;
    int (*run)(const char *words); /* those behind the name; 0 or a negative error */
} commands[] = {{"state", set_state},   {"mac add", add_address},  {"mac del", delete_address}, {"mac fill", fill},
                {"host add", add_host}, {"host del", delete_host}, {"notify", notify},          {"clear", clear}};

static int run(char *line) {
    const struct command *command;
    char *words = strim(line);

    for (command = commands; command < commands + ARRAY_SIZE(commands); command++) {
        size_t length = str_has_prefix(words, command->name);

        if (length != 0 && (words[length] == 0 || isspace(words[length])))
            return command->run(skip_spaces(words + length));
    }
    return -EINVAL;
}

static ssize_t write(struct file *file, const char __user *text, size_t size, loff_t *offset) {
    char line[LINE_MAX] = {};
    int error;

    if (size >= sizeof line)
        return -EINVAL;
    if (copy_from_user(line, text, size))
        return -EFAULT;
    mutex_lock(&ef_module.lock);
    error = run(line);
    mutex_unlock(&ef_module.lock);
    return error ? error : (ssize_t)size;
}

static int show(struct seq_file *file, void *unused) {
    mutex_lock(&ef_module.lock);
    seq_printf(file, "state %s\nmessages %u\nlast %u size %u\naddresses %u\nhosts %u\n", state_names[ef_module.state],
               ef_module.messages, ef_module.last_type, ef_module.last_size, ef_mac_count(), ef_hosts_count());
    ef_mac_show(file);
    ef_hosts_show(file);
    mutex_unlock(&ef_module.lock);
    return 0;
}

static int open(struct inode *inode, struct file *file) {
    return single_open(file, show, NULL);
}

static const struct proc_ops operations = {.proc_open = open,
                                           .proc_read = seq_read,
                                           .proc_lseek = seq_lseek,
                                           .proc_write = write,
                                           .proc_release = single_release};

int ef_control_register(void) {
    return proc_create("ef_bridge", 0600, NULL, &operations) ? 0 : -ENOMEM;
}

void ef_control_unregister(void) {
    remove_proc_entry("ef_bridge", NULL);
}
