#include "sandbox/mac_table.h"

#include <algorithm>
#include <cstring>

namespace sandbox {

namespace {

constexpr uint8_t kWhole = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
constexpr uint8_t kNamed = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID;

bool same_mac(const bri_mac_entry &left, const bri_mac_entry &right) {
    return std::memcmp(left.mac, right.mac, sizeof left.mac) == 0;
}

bool matches(const bri_mac_entry &entry, const bri_mac_entry &key, unsigned fields) {
    return ((fields & BRI_MAC_FIELD_MAC) == 0 || same_mac(entry, key)) &&
           ((fields & BRI_MAC_FIELD_IFX) == 0 || entry.ifx == key.ifx) &&
           ((fields & BRI_MAC_FIELD_TYPE) == 0 || entry.type == key.type) &&
           ((fields & BRI_MAC_FIELD_BCAST_ID) == 0 || entry.bcast_id == key.bcast_id);
}

// What a key asks for beside the place where to start.
unsigned filter_of(const bri_mac_entry &key) {
    const bool one = (key.field & kNamed) == kNamed;
    return one ? key.field : key.field & ~static_cast<unsigned>(BRI_MAC_FIELD_MAC);
}

// As the table keeps it: no flags, and every field valid.
bri_mac_entry kept(const bri_mac_entry &given) {
    bri_mac_entry entry{};
    entry.field = kWhole;
    std::memcpy(entry.mac, given.mac, sizeof entry.mac);
    entry.bcast_id = given.bcast_id;
    entry.ifx = (given.field & BRI_MAC_FIELD_IFX) != 0 ? given.ifx : 0;
    entry.type = given.type;
    return entry;
}

bri_mac_msg change(bri_mac_oper oper, const bri_mac_entry &entry) {
    return {0, oper, entry};
}

} // namespace

MacTable::Name MacTable::name_of(const bri_mac_entry &entry) {
    return {std::to_array(entry.mac), entry.bcast_id};
}

MacChanges MacTable::apply(const bri_mac_msg &record) {
    if (record.oper == BRI_MAC_ADD)
        return add(record.entry);
    if (record.oper != BRI_MAC_DEL)
        return {};
    return remove_if([&](const bri_mac_entry &entry) { return matches(entry, record.entry, record.entry.field); });
}

MacChanges MacTable::add(const bri_mac_entry &given) {
    constexpr uint8_t needed = kNamed | BRI_MAC_FIELD_TYPE;
    if ((given.field & needed) != needed)
        return {};
    const bri_mac_entry entry = kept(given);
    const auto [at, is_new] = entries_.try_emplace(name_of(entry), Known{entry});
    bri_mac_entry &old = at->second.entry;
    if (!is_new && is_dynamic(entry) && !is_dynamic(old))
        return {};
    at->second.unconfirmed = false;
    if (!is_new && old.ifx == entry.ifx && old.type == entry.type)
        return {};
    old = entry;
    return {change(BRI_MAC_ADD, entry)};
}

MacChanges MacTable::remove_known(const std::function<bool(const Known &)> &wanted) {
    MacChanges changes;
    std::erase_if(entries_, [&](const auto &item) {
        if (!wanted(item.second))
            return false;
        changes.push_back(change(BRI_MAC_DEL, item.second.entry));
        return true;
    });
    return changes;
}

MacChanges MacTable::remove_if(const std::function<bool(const bri_mac_entry &)> &wanted) {
    return remove_known([&](const Known &known) { return wanted(known.entry); });
}

void MacTable::begin_check(const std::function<bool(const bri_mac_entry &)> &of_kind) {
    for (auto &[name, known] : entries_)
        known.unconfirmed = known.unconfirmed || of_kind(known.entry);
}

MacChanges MacTable::end_check(const std::function<bool(const bri_mac_entry &)> &of_kind) {
    return remove_known([&](const Known &known) { return known.unconfirmed && of_kind(known.entry); });
}

std::optional<bri_mac_entry> MacTable::search(std::map<Name, Known>::const_iterator from,
                                              std::map<Name, Known>::const_iterator end, const bri_mac_entry &key) {
    const unsigned filter = filter_of(key);
    const auto found =
        std::find_if(from, end, [&](const auto &item) { return matches(item.second.entry, key, filter); });
    return found == end ? std::nullopt : std::optional(found->second.entry);
}

std::optional<bri_mac_entry> MacTable::first(const bri_mac_entry &key) const {
    const bool starts = (key.field & BRI_MAC_FIELD_MAC) != 0;
    const auto from = starts ? entries_.lower_bound({std::to_array(key.mac), 0}) : entries_.begin();
    return search(from, entries_.end(), key);
}

std::optional<bri_mac_entry> MacTable::next(const bri_mac_entry &key, const bri_mac_entry &current) const {
    return search(entries_.upper_bound(name_of(current)), entries_.end(), key);
}

} // namespace sandbox
