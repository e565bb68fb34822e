// Following a table: what changed from one look to the next.
#pragma once

#include "tools/inspect/report.h"

#include <cstdint>

namespace inspect {

// Changes from one report to the next, oldest row first. Each is {"change": "added" | "removed" | "changed" |
// "summary", "row": the row as it is now, or was when removed, "was": the old values of the fields that changed}.
[[nodiscard]] std::vector<Json> changes(const Report &before, const Report &now);

// One change as a line for people: "+ key ...", "- key", "~ key: field old -> new, ...".
[[nodiscard]] std::string line_of(const Json &change, const Report &report);

} // namespace inspect
