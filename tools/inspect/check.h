// Broken invariants of the tables.
#pragma once

#include "tools/inspect/report.h"
#include "tools/inspect/segment.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>
#include <bridge/vlan_group.h>

#include <cstdint>

namespace inspect {

inline constexpr const char *kFindings = "findings"; // the report's name

// Copies of the tables that have invariants, as they stood at one look; null for one that cannot be read.
struct Tables {
    std::unique_ptr<const Snapshot<bri_portdb>> ports;
    std::unique_ptr<const Snapshot<bri_vlandb>> vlans;
    std::unique_ptr<const Snapshot<bri_vlan_groups>> groups;
    std::vector<std::string> missing; // one line for each segment that cannot be read
};
[[nodiscard]] Tables look_at_all(int32_t vsd);

// What is wrong within one look, one row a finding.
[[nodiscard]] std::vector<Json> faults_in(const Tables &tables);
// Versions that stepped back between two looks.
[[nodiscard]] std::vector<Json> steps_back(const Tables &before, const Tables &now);

// The tables change while they are copied, and a writer changes an entry and its counter one after the other. So a
// fault counts only when it still stands at a second look.
class Checker {
  public:
    explicit Checker(int32_t vsd) : vsd_(vsd) {}
    [[nodiscard]] Report look(std::vector<std::string> &missing);

  private:
    int32_t vsd_;
    Tables last_;
};

} // namespace inspect
