#include "vlan/membership.h"

#include "base/bits.h"
#include "base/log.h"
#include "base/shared_word.h"
#include "shared/ports.h"
#include "shared/vlan_table.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <algorithm>

namespace bri::vlan {

namespace {

// Bit n: whether the n-th of `count` entries, at most 32, is in use and lists the port. Arithmetic only, since every
// entry is read for every port: a 16-bit id that is not 0 carries into bit 16.
uint32_t listing_word(const vle *entries, unsigned count, unsigned ifx) {
    const unsigned index = bits::word_of(ifx);
    const unsigned shift = ifx & 31U;
    uint32_t word = 0;
#pragma GCC unroll 8
    for (const vle *entry = entries + count; entry != entries;) {
        --entry;
        const uint32_t listed = word::load(entry->members[index]) >> shift & 1U;
        const uint32_t in_use = (uint32_t{word::load(entry->vid)} + UINT16_MAX) >> 16;
        word = word * 2 + (listed & in_use);
    }
    return word;
}

// No VLAN lists an index that no port can have. The question says so VLAN by VLAN.
void log_invalid(int32_t ifx) {
    if (log::kVlanDb.on())
        for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid)
            static_cast<void>(vl_is_vlan_static_member(static_cast<uint16_t>(vid), ifx));
}

} // namespace

Membership membership_of(uint32_t ifx) {
    Membership result{};
    if (!ports::valid(static_cast<int32_t>(ifx))) {
        log_invalid(static_cast<int32_t>(ifx));
        return result;
    }
    const auto [first, last] = vlan_db::usable_vids();
    const spcb *port = ports::Table::live(static_cast<int32_t>(ifx));
    for (unsigned index = bits::word_of(first); first <= last && index <= bits::word_of(last); ++index) {
        const unsigned base = index * 32;
        const unsigned count = std::min(32U, BRI_VLAN_ENTRIES - base);
        const uint32_t fixed = listing_word(g_vl_mng.entries + base, count, ifx) & bits::range_mask(index, first, last);
        result.fixed.words[index] = fixed;
        result.tagged.words[index] = port != nullptr ? fixed & ports::tagged_word(*port, index) : 0;
    }
    return result;
}

} // namespace bri::vlan
