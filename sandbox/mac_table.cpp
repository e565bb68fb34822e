#include "sandbox/mac_table.h"

#include <algorithm>
#include <utility>

namespace sandbox {

namespace {

constexpr uint8_t kWhole = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
constexpr uint8_t kNamed = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_BCAST_ID;

bool matches(const bri_mac_entry &entry, const bri_mac_entry &key, unsigned fields) {
    return ((fields & BRI_MAC_FIELD_MAC) == 0 || std::ranges::equal(entry.mac, key.mac)) &&
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

} // namespace

std::chrono::seconds MacSettings::allowed_age() const {
    if (age.count() == 0 || (range.min == 0 && range.max == 0))
        return age;
    const auto wanted = static_cast<uint64_t>(age.count());
    const uint64_t inside = std::clamp<uint64_t>(wanted, range.min, std::max(range.min, range.max));
    const uint64_t over = range.step == 0 ? 0 : (inside - range.min) % range.step;
    return std::chrono::seconds(inside - over);
}

void MacTable::apply(const bri_mac_msg &record, Microseconds now, MacNews &news) {
    const bri_mac_entry &entry = record.entry;
    if (record.oper == BRI_MAC_ADD)
        add(entry, now, news);
    if (record.oper != BRI_MAC_DEL)
        return;
    const bool starts = (entry.field & BRI_MAC_FIELD_MAC) != 0;
    const auto mac = std::to_array(entry.mac);
    remove_known(
        starts ? entries_.lower_bound({mac, 0}) : entries_.begin(),
        starts ? entries_.upper_bound({mac, UINT16_MAX}) : entries_.end(),
        [&](const Known &known) { return matches(known.entry, entry, entry.field); }, news);
}

// False when the table is full.
bool MacTable::add(const bri_mac_entry &given, Microseconds now, MacNews &news) {
    constexpr uint8_t needed = kNamed | BRI_MAC_FIELD_TYPE;
    if ((given.field & needed) != needed)
        return true;
    const bri_mac_entry entry = kept(given);
    const auto found = entries_.find(name_of(entry));
    const bool is_new = found == entries_.end();
    if (!is_new && is_dynamic(entry) && !is_dynamic(found->second.entry))
        return true;
    if (!is_new && found->second.entry.ifx == entry.ifx && found->second.entry.type == entry.type) {
        refresh(found->second, now);
        return true;
    }
    if ((is_new || found->second.entry.type != entry.type) && !has_room(entry.type, is_new)) {
        if (!std::exchange(told_full_, true))
            news.exceeded.push_back({0, BRI_MAC_ADD, entry});
        return false;
    }
    Known &known = is_new ? entries_.try_emplace(name_of(entry)).first->second : found->second;
    const bool moves = !is_new && is_dynamic(entry); // a configured one stays
    if (!is_new)
        forget(known);
    keep(known, entry, now);
    news.changes.push_back({0, BRI_MAC_ADD, entry});
    if (moves)
        news.moved.push_back(news.changes.back());
    return true;
}

Seen MacTable::see(const bri_mac_entry &frame, Microseconds now, MacNews &news) {
    const auto known = entries_.find(name_of(frame));
    if (known != entries_.end() && !is_dynamic(known->second.entry))
        return Seen::kConfigured;
    if (settings.learn_disable != 0)
        return Seen::kLearningOff;
    if (bri_port_set_has(&settings.quiet_ports, frame.ifx) != 0)
        return Seen::kPortLearningOff;
    if (known != entries_.end() && known->second.entry.ifx == frame.ifx) {
        refresh(known->second, now);
        return Seen::kRefreshed;
    }
    bri_mac_entry entry = frame;
    entry.field = kWhole;
    entry.type = BRI_MAC_TYPE_DYNAMIC;
    if (!add(entry, now, news))
        return Seen::kFull;
    return known == entries_.end() ? Seen::kLearned : Seen::kMoved;
}

// What is configured has its own share of the whole.
bool MacTable::has_room(uint32_t type, bool new_address) const {
    const bri_mac_available &room = settings.room;
    const uint32_t share = type == BRI_MAC_TYPE_STATIC   ? room.static_num
                           : type == BRI_MAC_TYPE_FILTER ? room.filter_num
                                                         : MacSettings::kNoLimit;
    return count(type) < share && (!new_address || entries_.size() < room.total_num);
}

void MacTable::keep(Known &known, const bri_mac_entry &entry, Microseconds now) {
    known.entry = entry;
    known.unconfirmed = false;
    if (entry.type < counts_.size())
        ++counts_[entry.type];
    if (!is_dynamic(entry))
        return;
    known.seen = now;
    known.place = ageing_.insert(ageing_.end(), name_of(entry));
}

void MacTable::forget(Known &known) {
    if (known.entry.type < counts_.size())
        --counts_[known.entry.type];
    if (is_dynamic(known.entry))
        ageing_.erase(known.place);
    told_full_ = false;
}

void MacTable::refresh(Known &known, Microseconds now) {
    known.unconfirmed = false;
    if (!is_dynamic(known.entry))
        return;
    known.seen = now;
    ageing_.splice(ageing_.end(), ageing_, known.place);
}

void MacTable::clear() {
    entries_.clear();
    ageing_.clear();
    counts_ = {};
    told_full_ = false;
}

void MacTable::remove_known(Entries::iterator from, Entries::iterator end,
                            const std::function<bool(const Known &)> &wanted, MacNews &news) {
    while (from != end) {
        const auto here = from++;
        if (!wanted(here->second))
            continue;
        news.changes.push_back({0, BRI_MAC_DEL, here->second.entry});
        forget(here->second);
        entries_.erase(here);
    }
}

void MacTable::expire(Microseconds now, MacNews &news) {
    for (auto due = next_expiry(); due && *due <= now; due = next_expiry()) {
        const auto known = entries_.find(ageing_.front());
        remove_known(
            known, std::next(known), [](const Known &) { return true; }, news);
    }
}

std::optional<Microseconds> MacTable::next_expiry() const {
    const std::chrono::seconds age = settings.allowed_age();
    if (ageing_.empty() || age.count() == 0 || settings.ages_elsewhere)
        return std::nullopt;
    return entries_.find(ageing_.front())->second.seen + age;
}

void MacTable::end_check(const Wanted &of_kind, MacNews &news) {
    remove_known(
        entries_.begin(), entries_.end(), [&](const Known &known) { return known.unconfirmed && of_kind(known.entry); },
        news);
}

std::optional<bri_mac_entry> MacTable::search(Entries::const_iterator from, Entries::const_iterator end,
                                              const bri_mac_entry &key) {
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
