// Requests that change address entries: adds, deletes, rollback and bypass, each one row of a table.
#include "base/keyed_table.h"
#include "l2/mac_log.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/port_db.h>

#include <cstring>
#include <iterator>

namespace bri::mac {

namespace {

// The arguments of one call.
struct Args {
    uint32_t type; // of rollback and bypass only
    const uint8_t *mac;
    uint16_t bcast_id;
    uint32_t ifx;

    [[nodiscard]] bool names_entry() const { return mac != nullptr && bcast_id != 0; }
    [[nodiscard]] bool port_exists() const { return swport_check_exist(static_cast<int32_t>(ifx)) != 0; }
};

// What they must hold for the call to be accepted.
using Accepts = bool (*)(const Args &);

// Absent arguments are wildcards.
bool anything(const Args &) {
    return true;
}
bool entry_on_port(const Args &args) {
    return args.names_entry() && args.port_exists();
}
// The port itself may be gone.
bool entry_with_ifx(const Args &args) {
    return args.names_entry() && args.ifx != 0;
}
bool rollback(const Args &args) {
    return (args.type == BRI_MAC_TYPE_STATIC || args.type == BRI_MAC_TYPE_FILTER) && args.names_entry();
}
bool bypass(const Args &args) {
    return args.type == BRI_MAC_TYPE_DYNAMIC && entry_on_port(args);
}

enum class Refusal { kNone, kArgs, kRollback, kBypass };

enum Call {
    kAddStatic,
    kAddSecu,
    kAddTrust,
    kAddOther,
    kDelStatic,
    kDelDyn,
    kForceDelDyn,
    kDelSecu,
    kDelTrust,
    kDelOther,
    kRollback,
    kBypass,
    kCalls
};

struct Row {
    Call call;
    const char *word; // of the log line
    Accepts accepts;
    Refusal refusal;
    bri_mac_oper oper;
    uint32_t type; // 0: the record names no type
    uint8_t flags;
    bri_event event;
};

constexpr uint8_t kForced = 1;
constexpr bri_event kNotify = MAC_EVENT_NOTIFY_ADDR;

// The rollback deliberately names no type: its argument only decides whether it is accepted.
constexpr Row kRows[] = {
    {kAddStatic, "add static addr", entry_on_port, Refusal::kArgs, BRI_MAC_ADD, BRI_MAC_TYPE_STATIC, 0, kNotify},
    {kAddSecu, "add secu addr", entry_on_port, Refusal::kArgs, BRI_MAC_ADD, BRI_MAC_TYPE_SECU, 0, kNotify},
    {kAddTrust, "add trust addr", entry_on_port, Refusal::kArgs, BRI_MAC_ADD, BRI_MAC_TYPE_TRUST, 0, kNotify},
    {kAddOther, "add other addr", entry_on_port, Refusal::kArgs, BRI_MAC_ADD, BRI_MAC_TYPE_OTHER, 0, kNotify},
    {kDelStatic, "del static addr", anything, Refusal::kNone, BRI_MAC_DEL, BRI_MAC_TYPE_STATIC, 0, kNotify},
    {kDelDyn, "del dyn addr", anything, Refusal::kNone, BRI_MAC_DEL, BRI_MAC_TYPE_DYNAMIC, 0, kNotify},
    {kForceDelDyn, "force del dyn addr", anything, Refusal::kNone, BRI_MAC_DEL, BRI_MAC_TYPE_DYNAMIC, kForced, kNotify},
    {kDelSecu, "del secu addr", entry_with_ifx, Refusal::kArgs, BRI_MAC_DEL, BRI_MAC_TYPE_SECU, 0, kNotify},
    {kDelTrust, "del trust addr", entry_with_ifx, Refusal::kArgs, BRI_MAC_DEL, BRI_MAC_TYPE_TRUST, 0, kNotify},
    {kDelOther, "del other addr", entry_with_ifx, Refusal::kArgs, BRI_MAC_DEL, BRI_MAC_TYPE_OTHER, 0, kNotify},
    {kRollback, "rollback static addr", rollback, Refusal::kRollback, BRI_MAC_DEL, 0, 0, MAC_EVENT_ROLLBACK_ADDR},
    {kBypass, "bypass dynamic addr", bypass, Refusal::kBypass, BRI_MAC_ADD, BRI_MAC_TYPE_DYNAMIC, 0,
     MAC_EVENT_BYPASS_ADDR},
};
static_assert(std::size(kRows) == kCalls && each_at_its_key(kRows, &Row::call));

// Bits of the arguments that are present.
[[nodiscard]] uint8_t field_mask(const Row &row, const Args &args) {
    return static_cast<uint8_t>((args.mac != nullptr ? BRI_MAC_FIELD_MAC : 0) |
                                (args.ifx != 0 ? BRI_MAC_FIELD_IFX : 0) | (row.type != 0 ? BRI_MAC_FIELD_TYPE : 0) |
                                (args.bcast_id != 0 ? BRI_MAC_FIELD_BCAST_ID : 0));
}

[[nodiscard]] bri_mac_msg record(const Row &row, const Args &args) {
    bri_mac_msg message{};
    message.oper = row.oper;
    message.entry.flags = row.flags;
    message.entry.field = field_mask(row, args);
    if (args.mac != nullptr)
        std::memcpy(message.entry.mac, args.mac, sizeof message.entry.mac);
    message.entry.bcast_id = args.bcast_id;
    message.entry.ifx = args.ifx;
    message.entry.type = row.type;
    return message;
}

void log_refusal(Refusal refusal) {
    switch (refusal) {
    case Refusal::kNone:
        break;
    case Refusal::kArgs:
        BRI_MAC_LOG(nullptr, "(%s), invalid mac addr, bcast_id or ifx.\n", g_bglib_client_name_mac);
        break;
    case Refusal::kRollback:
        BRI_MAC_LOG(nullptr, "Client[%s], invalid mac in bridge_maddr_rollback.\n", g_bglib_client_name_mac);
        break;
    case Refusal::kBypass:
        BRI_MAC_LOG(nullptr, "Client[%s], invalid param in bridge_maddr_bypass.\n", g_bglib_client_name_mac);
        break;
    }
}

[[nodiscard]] int change(Call call, uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    const Row &row = kRows[call];
    const Args args{type, mac, static_cast<uint16_t>(bcast_id), ifx};
    if (!row.accepts(args)) {
        log_refusal(row.refusal);
        return -1;
    }
    const bri_mac_msg message = record(row, args);
    const bri_mac_entry &entry = message.entry;
    BRI_MAC_LOG(&entry, "(%s), %s, field(%u), mac(" BRI_MAC_FMT "), bcast_id(%u), ifx(%u).\n", g_bglib_client_name_mac,
                row.word, entry.field, BRI_MAC_ARGS(entry.mac), entry.bcast_id, entry.ifx);
    return bridge_client_send_message(&message, sizeof message, static_cast<uint32_t>(row.event));
}

} // namespace

} // namespace bri::mac

using namespace bri;
using namespace bri::mac;

int bridge_maddr_add_static(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kAddStatic, 0, mac, bcast_id, ifx);
}

int bridge_maddr_add_secu(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kAddSecu, 0, mac, bcast_id, ifx);
}

int bridge_maddr_add_trust(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kAddTrust, 0, mac, bcast_id, ifx);
}

int bridge_maddr_add_other(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kAddOther, 0, mac, bcast_id, ifx);
}

int bridge_maddr_del_static(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kDelStatic, 0, mac, bcast_id, ifx);
}

int bridge_maddr_del_dyn(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kDelDyn, 0, mac, bcast_id, ifx);
}

int bridge_maddr_force_del_dyn(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kForceDelDyn, 0, mac, bcast_id, ifx);
}

int bridge_maddr_del_secu(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kDelSecu, 0, mac, bcast_id, ifx);
}

int bridge_maddr_del_trust(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kDelTrust, 0, mac, bcast_id, ifx);
}

int bridge_maddr_del_other(const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kDelOther, 0, mac, bcast_id, ifx);
}

int bridge_maddr_rollback(uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kRollback, type, mac, bcast_id, ifx);
}

int bridge_maddr_bypass(uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return change(kBypass, type, mac, bcast_id, ifx);
}
