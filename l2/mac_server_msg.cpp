// Messages of the MAC submodule from the server, the available-address total and the statistics.
#include "base/bytes.h"
#include "base/counters.h"
#include "base/runtime.h"
#include "base/shared_word.h"
#include "l2/mac_log.h"
#include "l2/messages.h"

#include <bridge/client.h>
#include <bridge/events.h>

#include <algorithm>
#include <cstring>
#include <iterator>

namespace bri::mac {

namespace {

// Addresses that may still be configured; the server announces changes. Read by any thread.
uint32_t g_available_total = 1024;

// All addresses, then those of each type. Shown as they are: a hook of the display, deliberately not fed.
int32_t g_counters[1 + BRI_MAC_TYPE_TRUST];

struct TypeName {
    bri_mac_type type;
    const char *text;
};
constexpr TypeName kTypeNames[] = {
    {BRI_MAC_TYPE_DYNAMIC, "DYNAMIC"}, {BRI_MAC_TYPE_STATIC, "STATIC"}, {BRI_MAC_TYPE_FILTER, "FILTER"},
    {BRI_MAC_TYPE_LOCAL, "LOCAL"},     {BRI_MAC_TYPE_COPY, "COPY"},     {BRI_MAC_TYPE_SECU, "SECU"},
    {BRI_MAC_TYPE_OTHER, "OTHER"},     {BRI_MAC_TYPE_TRUST, "TRUST"},
};
static_assert(std::size(kTypeNames) == BRI_MAC_TYPE_TRUST);

[[nodiscard]] const char *type_name(uint32_t type) {
    for (const TypeName &row : kTypeNames)
        if (row.type == type)
            return row.text;
    return "UNKOWEN";
}

[[nodiscard]] const char *oper_name(uint32_t oper) {
    return oper == BRI_MAC_ADD ? "ADD" : oper == BRI_MAC_DEL ? "DEL" : "ERR";
}

// This client keeps no other types; every one that it does not know is static for it.
[[nodiscard]] bool is_ss() {
    return std::strcmp(g_bglib_client_name_mac, "SS") == 0;
}

[[nodiscard]] uint32_t type_for_ss(uint32_t type) {
    return type == BRI_MAC_TYPE_DYNAMIC || type == BRI_MAC_TYPE_FILTER ? type : uint32_t{BRI_MAC_TYPE_STATIC};
}

void hand_on(uint32_t event, bri_mac_msg &record) {
    const bri_mac_entry &entry = record.entry;
    BRI_MAC_LOG(&entry,
                "(%s), notify addr : oper(%s), field(%d), type(%s), mac(" BRI_MAC_FMT "), bcast_id(%d), ifx(%d)\n",
                g_bglib_client_name_mac, oper_name(record.oper), entry.field, type_name(entry.type),
                BRI_MAC_ARGS(entry.mac), entry.bcast_id, static_cast<int>(entry.ifx));
    bridge_call_event_handlers(event, &record, sizeof record);
}

// An aligned copy of the first record; one that is cut counts as completed with zeros.
bri_mac_msg first_of(Bytes records) {
    if (records.size >= sizeof(bri_mac_msg))
        return load_as<bri_mac_msg>(records.data);
    bri_mac_msg cut{};
    std::memcpy(&cut, records.data, records.size);
    return cut;
}

// What is handed on and what lies in the message stay the same record.
void reduce_type(bri_mac_msg &record, MutableBytes in_message) {
    record.entry.type = type_for_ss(record.entry.type);
    std::memcpy(in_message.data, &record, std::min(in_message.size, sizeof record));
}

// Each record is handed on as a copy of its own.
void unpack(const Message &message) {
    for (MutableBytes payload = message.payload; payload.size != 0;
         payload = payload.from(std::min(payload.size, sizeof(bri_mac_msg)))) {
        bri_mac_msg record = first_of(payload);
        if (record.oper != BRI_MAC_ADD && record.oper != BRI_MAC_DEL) {
            counters::drop<counters::Drop::kUnknown>(message.type());
            BRI_MAC_LOG(&record.entry, "(%s), notify addr : drop null msg\n", g_bglib_client_name_mac);
            return;
        }
        if (is_ss()) {
            if (record.entry.type == BRI_MAC_TYPE_LOCAL)
                continue;
            reduce_type(record, payload);
        }
        hand_on(message.type(), record);
    }
}

void drop_short(const Message &message) {
    counters::drop<counters::Drop::kShort>(message.type());
    BRI_MAC_LOG(nullptr, "(%s), msg type(%s) is too short, len(%u), Drop.\n", g_bglib_client_name_mac,
                bri_msg_type_name(message.type()), message.header.len);
}

void take_total(const Message &message) {
    if (message.payload.size >= sizeof(bri_mac_available))
        mac_client_set_available_total(load_at<bri_mac_available>(message.payload, 0).total_num);
    else
        drop_short(message);
}

} // namespace

} // namespace bri::mac

using namespace bri;
using namespace bri::mac;

void mac::on_message(const Message &message) {
    switch (message.type()) {
    case MAC_EVENT_SYNC_DATA_BEGIN:
    case MAC_EVENT_SYNC_DATA_END:
    case MAC_EVENT_SET_AGETIME:
    case MAC_EVENT_DYN_FLUSH:
    case MAC_EVENT_DYN_MOVE:
    case MAC_EVENT_DEL_DYN_ON_VLANMAP:
    case MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP:
    case MAC_EVENT_INTF_LEARN:
    case MAC_EVENT_GLOBAL_LEARN:
    case MAC_EVENT_ROLLBACK_ADDR:
    case MAC_EVENT_BYPASS_ADDR:
        runtime::hand_on(message);
        break;
    case MAC_EVENT_SET_AVAILABLE_MAC:
        take_total(message);
        break;
    case MAC_EVENT_NOTIFY_ADDR:
    case MAC_EVENT_NOTIFY_NONDYN:
        unpack(message);
        break;
    default: // the server's own business
        counters::drop<counters::Drop::kUnknown>(message.type());
        break;
    }
}

void mac_client_on_server_msg(bri_msg_hdr *msg) {
    if (msg != nullptr)
        mac::on_message(message_at(msg));
}

uint32_t mac_client_get_available_total() {
    return bri::word::load(g_available_total);
}

void mac_client_set_available_total(uint32_t total) {
    BRI_MAC_LOG(nullptr, "(%s), set_available_total(%d).\n", g_bglib_client_name_mac, static_cast<int>(total));
    bri::word::store(g_available_total, total);
}

void mac_client_show_statistic() {
    using bri::log::kPrint;
    BRI_LOG(kPrint, "------------- MAC CLIENT ADDR COUNT -------------\n");
    BRI_LOG(kPrint, "CLIENT NAME: %s\n", g_bglib_client_name_mac);
    BRI_LOG(kPrint, "DYNAMIC:     %d\n", g_counters[BRI_MAC_TYPE_DYNAMIC]);
    BRI_LOG(kPrint, "STATIC :     %d\n", g_counters[BRI_MAC_TYPE_STATIC]);
    BRI_LOG(kPrint, "FILTER :     %d\n", g_counters[BRI_MAC_TYPE_FILTER]);
    BRI_LOG(kPrint, "LOCAL  :     %d\n", g_counters[BRI_MAC_TYPE_LOCAL]);
    BRI_LOG(kPrint, "SECU   :     %d\n", g_counters[BRI_MAC_TYPE_SECU]);
    BRI_LOG(kPrint, "OTHER  :     %d\n", g_counters[BRI_MAC_TYPE_OTHER]);
    BRI_LOG(kPrint, "TRUST  :     %d\n", g_counters[BRI_MAC_TYPE_TRUST]);
    BRI_LOG(kPrint, "COPY   :     %d\n", g_counters[BRI_MAC_TYPE_COPY]);
    BRI_LOG(kPrint, "TOTAL  :     %d\n", g_counters[0]);
}
