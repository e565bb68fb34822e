// The MAC addresses that the kernel's bridge module knows: learned from frames, configured, aged out. A table of
// values: it knows neither sockets nor a clock, whoever calls says what time it is.
#pragma once

#include "sandbox/message.h"

#include <bridge/mac_client.h>
#include <bridge/sets.h>

#include <array>
#include <chrono>
#include <list>
#include <map>
#include <optional>

namespace sandbox {

using Microseconds = std::chrono::microseconds; // as a time: since the program's start

using MacChanges = std::vector<bri_mac_msg>;

// What became of the table, each record whole whatever asked for it.
struct MacNews {
    MacChanges changes;  // one for each address that is new, changed or gone
    MacChanges moved;    // those among them that have been learned on another port
    MacChanges exceeded; // the first one that found no room, again only when there was room in between
};

// What a frame's source address did.
enum class Seen { kLearned, kRefreshed, kMoved, kConfigured, kLearningOff, kPortLearningOff, kFull };

enum class Limit : uint32_t { kNone = UINT32_MAX };

struct MacSettings {
    static constexpr auto kNoLimit = static_cast<uint32_t>(Limit::kNone);

    std::chrono::seconds age{300}; // of a learned address that no frame comes from; 0: it never goes
    bri_mac_age_range range{0, 0, 0};
    bri_mac_available room{kNoLimit, kNoLimit, kNoLimit};
    uint32_t learn_disable = 0;
    bri_port_set quiet_ports{};  // on which nothing is learned
    bool ages_elsewhere = false; // nothing goes by its age, whoever learns tells

    // The age that the range allows: within its bounds, and on one of its steps from the lowest. A range of zeros
    // allows all.
    [[nodiscard]] std::chrono::seconds allowed_age() const;
};

class MacTable {
  public:
    using Wanted = std::function<bool(const bri_mac_entry &)>;

    MacSettings settings;

    // Takes one record: an add names one address whole, a delete all that its fields select. A learned address does not
    // take the place of a configured one, and what says nothing new changes nothing.
    void apply(const bri_mac_msg &record, Microseconds now, MacNews &news);
    // A frame with this source address came in.
    Seen see(const bri_mac_entry &frame, Microseconds now, MacNews &news);
    void remove_if(const Wanted &wanted, MacNews &news) {
        remove_known(
            entries_.begin(), entries_.end(), [&](const Known &known) { return wanted(known.entry); }, news);
    }
    void clear();

    // Learned addresses that nobody has seen for the allowed age go; when the next one will, unless none will.
    void expire(Microseconds now, MacNews &news);
    [[nodiscard]] std::optional<Microseconds> next_expiry() const;

    // A check: the addresses of a kind that nobody adds again until its end are gone then.
    void begin_check(const Wanted &of_kind) {
        for (auto &[name, known] : entries_)
            known.unconfirmed = known.unconfirmed || of_kind(known.entry);
    }
    void end_check(const Wanted &of_kind, MacNews &news);

    // The first address that the key selects, by address and domain; and the first one behind `current`. A key's
    // address alone is where to start, with a domain it is the one to find; port and type must match where given.
    [[nodiscard]] std::optional<bri_mac_entry> first(const bri_mac_entry &key) const;
    [[nodiscard]] std::optional<bri_mac_entry> next(const bri_mac_entry &key, const bri_mac_entry &current) const;

    [[nodiscard]] size_t size() const { return entries_.size(); }
    // Of one type; a type that does not exist has none.
    [[nodiscard]] uint32_t count(uint32_t type) const { return type < counts_.size() ? counts_[type] : 0; }
    template <class Fn> void for_each(Fn &&fn) const {
        for (const auto &[name, known] : entries_)
            fn(known.entry);
    }

  private:
    using Name = std::pair<std::array<uint8_t, 6>, uint16_t>; // address and domain
    using Ageing = std::list<Name>;                           // the one seen longest ago first
    struct Known {
        bri_mac_entry entry;
        bool unconfirmed = false; // since the begin of a check
        Microseconds seen{};      // these two of a learned address only
        Ageing::iterator place{};
    };
    using Entries = std::map<Name, Known>;

    static Name name_of(const bri_mac_entry &entry) { return {std::to_array(entry.mac), entry.bcast_id}; }
    bool add(const bri_mac_entry &given, Microseconds now, MacNews &news);
    [[nodiscard]] bool has_room(uint32_t type, bool new_address) const;
    void keep(Known &known, const bri_mac_entry &entry, Microseconds now);
    void forget(Known &known);
    void refresh(Known &known, Microseconds now);
    void remove_known(Entries::iterator from, Entries::iterator end, const std::function<bool(const Known &)> &wanted,
                      MacNews &news);
    [[nodiscard]] static std::optional<bri_mac_entry> search(Entries::const_iterator from, Entries::const_iterator end,
                                                             const bri_mac_entry &key);

    Entries entries_;
    Ageing ageing_;
    std::array<uint32_t, BRI_MAC_TYPE_TRUST + 1> counts_{};
    bool told_full_ = false;
};

[[nodiscard]] inline bool is_dynamic(const bri_mac_entry &entry) {
    return entry.type == BRI_MAC_TYPE_DYNAMIC;
}

} // namespace sandbox
