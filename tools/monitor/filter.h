// Which messages are shown: conditions on what their records hold.
#pragma once

#include "wire/bytes.h"
#include "wire/event.h"

#include <string>
#include <string_view>
#include <vector>

namespace monitor {

// "port=3", "vlan=10-20,30", "mac=02:00:00:00:00:01". A record matches when all conditions hold in it or in one of the
// records inside it; of a set one member is enough. What has no field of the kind does not match.
class Filter {
  public:
    // Throws std::invalid_argument with a line for people.
    void add(std::string_view condition);

    [[nodiscard]] bool matches(const wire::Payload &payload, wire::Bytes bytes) const;

  private:
    enum class Kind { kPort, kVlan, kMac };
    struct Condition {
        Kind kind;
        std::vector<unsigned> ids; // kPort, kVlan: rising
        wire::Buffer mac;          // kMac
    };

    [[nodiscard]] static bool is_about(Kind kind, const wire::Field &field);
    [[nodiscard]] static bool holds(const Condition &condition, const wire::Field &field, wire::Bytes record);
    [[nodiscard]] static bool holds_in(const Condition &condition, const wire::Record &record, wire::Bytes bytes);
    [[nodiscard]] bool all_hold(const wire::Record &record, wire::Bytes bytes) const;

    std::vector<Condition> conditions_;
};

} // namespace monitor
