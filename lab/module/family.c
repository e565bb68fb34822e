// SPDX-License-Identifier: GPL-2.0
/* The generic netlink family of the switch's bridge module, as host daemons know it. */
#include "ef_bridge.h"

#include <bridge/events.h>

#include <linux/module.h>
#include <net/genetlink.h>

#undef current /* the kernel's process; here the name of a field */

enum { COMMAND_DATA = 3, VERSION_DATA = 1 };
enum { TOO_LONG = 10248 }; /* bytes of payload: with its headers more than a host takes */

struct ef_module ef_module = {.lock = __MUTEX_INITIALIZER(ef_module.lock)};

/* Behind the one attribute's header: the host's message type, the length of its data, the data. The attribute's own
 * length is one more than that and is not looked at. */
struct data_header {
    s32 type;
    u32 size;
};

/* An answer has the layout of its question and is made in place of it. */
struct answer {
    u32 size; /* 0: none */
    union {
        struct bri_mac_find_first first;
        struct bri_mac_find_next next;
        struct mvlan_msg host;
    };
};

static void found(struct bri_mac_entry *result, u32 *flag, const struct bri_mac_entry *entry) {
    *flag = entry != NULL;
    memset(result, 0, sizeof *result);
    if (entry)
        *result = *entry;
}

static int find_first(const void *data, u32 size, struct answer *answer) {
    memcpy(&answer->first, data, sizeof answer->first);
    found(&answer->first.result, &answer->first.found, ef_mac_first(&answer->first.key));
    answer->size = sizeof answer->first;
    return 0;
}

static int find_next(const void *data, u32 size, struct answer *answer) {
    memcpy(&answer->next, data, sizeof answer->next);
    found(&answer->next.result, &answer->next.found, ef_mac_next(&answer->next.key, &answer->next.current));
    answer->size = sizeof answer->next;
    return 0;
}

/* The host's own words back, VLAN 0, when no entry covers it. */
static int find_vlan(const void *data, u32 size, struct answer *answer) {
    const struct mvlan_msg *known;

    memcpy(&answer->host, data, sizeof answer->host);
    answer->host.entry.vlan = 0;
    known = ef_hosts_find(answer->host.entry.mac);
    if (known) {
        answer->host.ifx = known->ifx;
        answer->host.entry.vlan = known->entry.vlan;
        answer->host.entry.priority = known->entry.priority;
        answer->host.entry.flag = known->entry.flag;
    }
    answer->size = sizeof answer->host;
    return 0;
}

static int take_addresses(const void *data, u32 size, struct answer *answer) {
    const struct bri_mac_msg *record = data;

    for (; size >= sizeof *record; size -= sizeof *record)
        ef_mac_apply(record++);
    return 0;
}

static int begin_check(const void *data, u32 size, struct answer *answer) {
    ef_mac_begin_check();
    return 0;
}

static int end_check(const void *data, u32 size, struct answer *answer) {
    ef_mac_end_check();
    return 0;
}

static const struct row {
    s32 type;
    u32 least;    /* bytes of data */
    bool one_way; /* sent on the host's persistent socket, to which notices go */
    int (*take)(const void *data, u32 size, struct answer *answer);
} rows[] = {
    {MAC_EVENT_CLIENT_FIND_FIRST, sizeof(struct bri_mac_find_first), false, find_first},
    {MAC_EVENT_CLIENT_FIND_NEXT, sizeof(struct bri_mac_find_next), false, find_next},
    {MVLAN_EVENT_NOTIFY_ENTRY, sizeof(struct mvlan_msg), false, find_vlan},
    {MAC_EVENT_SS_NOTIFY_ADDR, 0, true, take_addresses},
    {MAC_EVENT_DYN_CHECK_BEGIN, 0, true, begin_check},
    {MAC_EVENT_DYN_CHECK_END, 0, true, end_check},
};

static int handle(const struct data_header *head, const void *data, u32 portid, struct answer *answer) {
    const struct row *row;

    for (row = rows; row < rows + ARRAY_SIZE(rows); row++) {
        if (row->type != head->type)
            continue;
        if (head->size < row->least)
            return -EINVAL;
        if (row->one_way)
            ef_module.portid = portid;
        return row->take(data, head->size, answer);
    }
    return -EOPNOTSUPP;
}

static struct genl_family family;

static int send(u32 portid, u32 sequence, const void *payload, u32 size, u32 padded_to) {
    struct sk_buff *message = genlmsg_new(nla_total_size(max(size, padded_to)), GFP_KERNEL);
    struct nlattr *attribute;
    void *head;

    if (!message)
        return -ENOMEM;
    head = genlmsg_put(message, portid, sequence, &family, 0, COMMAND_DATA);
    attribute = nla_reserve(message, 0, max(size, padded_to));
    memset(nla_data(attribute), 0, max(size, padded_to));
    memcpy(nla_data(attribute), payload, size);
    genlmsg_end(message, head);
    return genlmsg_unicast(&init_net, message, portid);
}

static int answer_to(const struct data_header *head, const void *data, const struct genl_info *info) {
    struct answer answer = {};
    int error;

    if (ef_module.state == EF_SILENT)
        return 0;
    if (ef_module.state == EF_ERROR)
        return -(int)ef_module.error;
    error = handle(head, data, info->snd_portid, &answer);
    if (error || !answer.size)
        return error;
    return send(info->snd_portid, info->snd_seq, &answer.first, answer.size, ef_module.state == EF_LONG ? TOO_LONG : 0);
}

static int take_message(struct sk_buff *skb, struct genl_info *info) {
    const u8 *attribute = genlmsg_data(info->genlhdr);
    int left = genlmsg_len(info->genlhdr) - (int)(NLA_HDRLEN + sizeof(struct data_header));
    const struct data_header *head = (const void *)(attribute + NLA_HDRLEN);
    int error;

    if (left < 0 || head->size > (u32)left)
        return -EINVAL;
    mutex_lock(&ef_module.lock);
    ef_module.messages++;
    ef_module.last_type = (u32)head->type;
    ef_module.last_size = head->size;
    error = answer_to(head, head + 1, info);
    mutex_unlock(&ef_module.lock);
    return error;
}

/* Hosts number their attribute 0, which strict validation would refuse. */
static const struct genl_ops operations[] = {{
    .cmd = COMMAND_DATA,
    .validate = GENL_DONT_VALIDATE_STRICT | GENL_DONT_VALIDATE_DUMP,
    .doit = take_message,
}};

static struct genl_family family = {
    .name = "EF_BRIDGE",
    .version = VERSION_DATA,
    .maxattr = 0,
    .module = THIS_MODULE,
    .ops = operations,
    .n_ops = ARRAY_SIZE(operations),
    .resv_start_op = COMMAND_DATA + 1,
};

int ef_family_notify(const struct bri_mac_msg *notice) {
    return ef_module.portid ? send(ef_module.portid, 0, notice, sizeof *notice, 0) : -ENOTCONN;
}

int ef_family_register(void) {
    return genl_register_family(&family);
}

void ef_family_unregister(void) {
    genl_unregister_family(&family);
}

/* The control file goes last; once both ways in are shut nobody uses the tables. */
static void shut(void) {
    ef_control_unregister();
    ef_mac_clear();
    ef_hosts_clear();
}

static int __init start(void) {
    int error = ef_control_register();

    if (error)
        return error;
    error = ef_family_register();
    if (error)
        shut();
    return error;
}

static void __exit stop(void) {
    ef_family_unregister();
    shut();
}

module_init(start);
module_exit(stop);
MODULE_DESCRIPTION("EF_BRIDGE with tables of its own and without a bridge, for tests");
MODULE_LICENSE("GPL");
