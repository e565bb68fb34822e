#include "vlan/membership.h"

#include "base/bits.h"
#include "base/shared_word.h"
#include "shared/ports.h"
#include "shared/vlan_table.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

namespace bri::vlan {

namespace {

// Whether the entry is in use and lists the port, as the lowest bit.
uint32_t lists(const vle &entry, unsigned ifx) {
    const uint32_t members = shared::load(entry.members[bits::word_of(ifx)]);
    const uint32_t present = shared::load(entry.vid) != 0 ? 1 : 0;
    return (members >> (ifx & 31U)) & present;
}

// Which VLANs of word `index` the port would carry tagged if it were a member.
uint32_t tagged_word(const spcb &port, unsigned index) {
    const unsigned native = shared::load(port.default_vid);
    const uint32_t others = bits::word_of(native) == index ? ~bits::mask_of(native) : ~uint32_t{0};
    switch (shared::load(port.mode)) {
    case BRI_PORT_TRUNK:
        return others;
    case BRI_PORT_UPLINK:
        return ~uint32_t{0};
    case BRI_PORT_HYBRID:
        return others & shared::load(port.tag_vlan.words[index]);
    default:
        return 0;
    }
}

} // namespace

Membership membership_of(uint32_t ifx) {
    Membership result{};
    if (!ports::valid(static_cast<int32_t>(ifx)))
        return result;
    const auto [first, last] = vlan_db::usable_vids();
    for (unsigned vid = first; vid <= last; ++vid)
        result.fixed.words[bits::word_of(vid)] |= lists(g_vl_mng.entries[vid], ifx) << (vid & 31U);
    if (const spcb *port = ports::present(static_cast<int32_t>(ifx)); port != nullptr)
        for (unsigned index = 0; index < bits::kSetWords; ++index)
            result.tagged.words[index] = result.fixed.words[index] & tagged_word(*port, index);
    return result;
}

} // namespace bri::vlan
