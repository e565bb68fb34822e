// One look at each table. Each look copies the segments it needs first, so that everything in a report is of one
// moment; it throws Unreadable when one of them cannot be read.
#pragma once

#include "tools/inspect/report.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <set>

namespace inspect {

constexpr unsigned kLastPort = BRI_PORT_SLOTS - 1;

// Which rows to show; nothing chosen shows all.
struct Selection {
    std::optional<std::set<unsigned>> vlans;
    std::optional<std::set<unsigned>> ports;
};

[[nodiscard]] inline bool chosen(const std::optional<std::set<unsigned>> &choice, unsigned id) {
    return !choice || choice->contains(id);
}
template <class Ids> [[nodiscard]] bool any_chosen(const std::optional<std::set<unsigned>> &choice, const Ids &ids) {
    return !choice || std::any_of(ids.begin(), ids.end(), [&](unsigned id) { return choice->contains(id); });
}

[[nodiscard]] Report look_at_ports(int32_t vsd, const Selection &selection);
[[nodiscard]] Report look_at_vlans(int32_t vsd, const Selection &selection);
[[nodiscard]] Report look_at_groups(int32_t vsd, const Selection &selection);
[[nodiscard]] Report look_at_protocols(int32_t vsd, const Selection &selection);
[[nodiscard]] Report look_at_exclusions(int32_t vsd, const Selection &selection);

// Rows of the segments that are there; each of the others that should be adds a line to `missing`.
[[nodiscard]] Report look_at_segments(int32_t vsd, std::vector<std::string> &missing);

// Removes every System V object of the device, or only lists them; a line for each that could not be removed.
[[nodiscard]] Report remove_segments(int32_t vsd, bool really, std::vector<std::string> &failures);

} // namespace inspect
