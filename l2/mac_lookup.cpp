// Look-ups in the kernel's address table.
#include "base/keyed_table.h"
#include "l2/mac_log.h"

#include <bridge/events.h>
#include <bridge/netlink.h>

#include <cstring>
#include <iterator>

namespace bri::mac {

namespace {

enum Call { kFirstOnMac, kFirstOnIfx, kNextOnMac, kNextOnIfx, kCalls };

// The walks: by which field of the caller's entry they go, and their name for the refusal line.
struct Row {
    Call call;
    bri_mac_field field;
    const char *name;
};
constexpr Row kRows[] = {
    {kFirstOnMac, BRI_MAC_FIELD_MAC, "bridge_maddr_find_first_on_mac"},
    {kFirstOnIfx, BRI_MAC_FIELD_IFX, "bridge_maddr_find_first_on_ifx"},
    {kNextOnMac, BRI_MAC_FIELD_MAC, "bridge_maddr_find_next_on_mac"},
    {kNextOnIfx, BRI_MAC_FIELD_IFX, "bridge_maddr_find_next_on_ifx"},
};
static_assert(std::size(kRows) == kCalls && each_at_its_key(kRows, &Row::call));

// The kernel answers with the request's layout. An answer that is too short reads as zeros, so it found nothing. `out`
// may be null and is written on success only.
template <class Query> [[nodiscard]] int ask(const Query &query, bri_event event, bri_mac_entry *out) {
    const void *answer = bridge_lib_query_netlink(&query, sizeof query, event);
    if (answer == nullptr)
        return -1;
    Query result;
    std::memcpy(&result, answer, sizeof result);
    if (result.found == 0)
        return -1;
    if (out != nullptr)
        *out = result.result;
    return 0;
}

[[nodiscard]] int ask_first(const bri_mac_entry &key, bri_mac_entry *out) {
    bri_mac_find_first query{};
    query.key = key;
    return ask(query, MAC_EVENT_CLIENT_FIND_FIRST, out);
}

[[nodiscard]] int refuse(Call call) {
    BRI_MAC_LOG(nullptr, "(%s), invalid param in %s.\n", g_bglib_client_name_mac, kRows[call].name);
    return -1;
}

[[nodiscard]] int find_first(Call call, bri_mac_entry *entry) {
    if (entry == nullptr || entry->field != kRows[call].field)
        return refuse(call);
    return ask_first(*entry, entry);
}

[[nodiscard]] int find_next(Call call, const bri_mac_entry *current, bri_mac_entry *out) {
    if (current == nullptr || out == nullptr)
        return refuse(call);
    bri_mac_find_next query{};
    query.key.field = static_cast<uint8_t>(kRows[call].field);
    if (kRows[call].field == BRI_MAC_FIELD_MAC)
        std::memcpy(query.key.mac, current->mac, sizeof query.key.mac);
    else
        query.key.ifx = current->ifx;
    query.current = *current;
    return ask(query, MAC_EVENT_CLIENT_FIND_NEXT, out);
}

} // namespace

} // namespace bri::mac

using namespace bri;
using namespace bri::mac;

int bridge_maddr_find_first_on_mac(bri_mac_entry *entry) {
    return find_first(kFirstOnMac, entry);
}

int bridge_maddr_find_first_on_ifx(bri_mac_entry *entry) {
    return find_first(kFirstOnIfx, entry);
}

int bridge_maddr_find_next_on_mac(const bri_mac_entry *cur, bri_mac_entry *out) {
    return find_next(kNextOnMac, cur, out);
}

int bridge_maddr_find_next_on_ifx(const bri_mac_entry *cur, bri_mac_entry *out) {
    return find_next(kNextOnIfx, cur, out);
}

int bridge_maddr_find_static_on_ifx(uint32_t ifx) {
    if (ifx == 0) {
        BRI_MAC_LOG(nullptr, "(%s), invalid ifx.\n", g_bglib_client_name_mac);
        return -1;
    }
    bri_mac_entry key{};
    key.field = BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE;
    key.ifx = ifx;
    key.type = BRI_MAC_TYPE_STATIC;
    return ask_first(key, nullptr);
}

int bridge_maddr_find_single(const uint8_t *mac, uint32_t bcast_id, bri_mac_entry *out) {
    const auto domain = static_cast<uint16_t>(bcast_id);
    if (mac == nullptr || domain == 0) {
        BRI_MAC_LOG(nullptr, "(%s), invalid mac addr, bcast_id.\n", g_bglib_client_name_mac);
        return -1;
    }
    bri_mac_entry key{};
    key.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID;
    std::memcpy(key.mac, mac, sizeof key.mac);
    key.bcast_id = domain;
    return ask_first(key, out);
}
