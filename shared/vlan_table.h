// The mapped VLAN database as the files of this subsystem reach it.
#pragma once

#include "shared/records.h"

#include <bridge/vlan_db.h>

#include <algorithm>

namespace bri::vlan_db {

// The limits stand in shared memory and any process may write them, so they never bound the table: that is kTableLast.
inline constexpr unsigned kTableLast = BRI_VLAN_ENTRIES - 1;
static_assert(kTableLast == BRI_VID_MAX);

[[nodiscard]] inline bool in_limits(int32_t vid) {
    const vl_stat *stat = g_vl_mng.stat;
    if (stat == nullptr)
        return false;
    const bool enough = vid >= word::load(stat->min_vid);
    const bool not_too_much = vid <= word::load(stat->max_vid);
    return enough & not_too_much; // both are read first: the usual way has no jump
}

// Every id within the limits has an entry.
struct Places {
    using Record = vle;
    using Id = uint16_t;
    static constexpr uint16_t vle::*kInUse = &vle::vid;

    // The address is read once: what was looked at is what is used.
    [[nodiscard]] static vle *slot(uint16_t vid) {
        vle *const entries = g_vl_mng.entries;
        return vid <= kTableLast && entries != nullptr && in_limits(vid) ? entries + vid : nullptr;
    }
};
using Table = table::Records<Places>;

struct VidRange {
    unsigned first;
    unsigned last;
};

// The usable ids within the limits, for walks over the table; first > last when there are none.
[[nodiscard]] inline VidRange usable_vids() {
    if (g_vl_mng.entries == nullptr || g_vl_mng.stat == nullptr)
        return {1, 0};
    return {std::max<unsigned>(BRI_VID_MIN, word::load(g_vl_mng.stat->min_vid)),
            std::min<unsigned>(BRI_VID_MAX, word::load(g_vl_mng.stat->max_vid))};
}

// Calls fn(vid) for the usable ids of a set, rising; 0 and 4095 are never visited. No set is an empty one.
template <class Fn> inline void for_each_vid(const vlanset *set, Fn &&fn) {
    if (set != nullptr)
        bits::for_each(set->words, BRI_VID_MIN, BRI_VID_MAX,
                       [&](unsigned vid) { return fn(static_cast<uint16_t>(vid)); });
}

// Adds `step` to a counter while fits(value) holds for the value that stands there; true when it was added.
template <class T, class Fits> inline bool step_if(T &counter, int step, Fits &&fits) {
    T met;
    return word::change_if(counter, met, fits, [=](T value) { return value + step; });
}

} // namespace bri::vlan_db
