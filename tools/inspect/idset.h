// Sets of VLAN or interface ids as people write and read them: "1,5-10".
#pragma once

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace inspect {

using Ids = std::vector<unsigned>; // rising

// Ids min..max; throws std::invalid_argument with a line for people.
[[nodiscard]] std::set<unsigned> parse_ids(const std::string &text, unsigned min, unsigned max);

// Runs of three and more as first-last; "-" for none.
[[nodiscard]] std::string ranges(const Ids &ids);

// The set bits of `words` in first..last.
[[nodiscard]] Ids ids_of(const uint32_t *words, unsigned first, unsigned last);

} // namespace inspect
