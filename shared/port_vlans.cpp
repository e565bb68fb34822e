// Switch-port database: how ports carry VLANs, and the spanning-tree instance of each VLAN.
#include "base/bits.h"
#include "shared/ports.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <cerrno>

namespace bri::ports {

namespace {

constexpr unsigned kInstanceVlans = sizeof bri_portdb::stp_instance / sizeof *bri_portdb::stp_instance;

// The VLANs that the port carries tagged; none for an absent port.
bits::SharedSet tag_set(int32_t ifx) {
    return Table::set(ifx, &spcb::tag_vlan);
}
// The same, none also when it has no bit for the VLAN.
bits::SharedSet tag_set(int32_t ifx, uint16_t vid) {
    return vid < bits::kSetBits ? tag_set(ifx) : bits::SharedSet(nullptr);
}

// How a member port carries the VLAN; reads only the fields that the port's mode needs.
bri_tag_rule member_rule(const spcb &port, uint16_t vid) {
    const bool tagged =
        vid < bits::kSetBits && (ports::tagged_word(port, bits::word_of(vid)) & bits::mask_of(vid)) != 0;
    return tagged ? BRI_TAG_TAGGED : BRI_TAG_UNTAGGED;
}

} // namespace

} // namespace bri::ports

using namespace bri;
using namespace bri::ports;

// Flat, since the member test is most of it, and a call would be a fifth more.
[[gnu::flatten]] int swport_get_vlan_tag_rule(int32_t ifx, uint16_t vid) {
    const spcb *port = Table::live(ifx);
    return port != nullptr && vl_is_vlan_member(vid, ifx) != 0 ? member_rule(*port, vid) : BRI_TAG_NOT_MEMBER;
}

vlanset *swport_get_tag_vlan(int32_t ifx) {
    spcb *port = Table::writable(ifx);
    return port != nullptr ? &port->tag_vlan : nullptr;
}

int swport_tag_vlan_add(int32_t ifx, uint16_t vid) {
    const bits::SharedSet tags = tag_set(ifx, vid);
    if (!tags)
        return -EINVAL;
    return tags.set(vid) ? 0 : -EEXIST;
}

int swport_tag_vlan_del(int32_t ifx, uint16_t vid) {
    const bits::SharedSet tags = tag_set(ifx, vid);
    return tags && tags.clear(vid) ? 0 : -EINVAL;
}

void swport_tag_vlan_merge_map(int32_t ifx, const vlanset *map) {
    const bits::SharedSet tags = tag_set(ifx);
    if (!tags || map == nullptr)
        return;
    for (unsigned index = 0; index < bits::kSetWords; ++index)
        if (const uint32_t added = word::load(map->words[index]); added != 0)
            tags.add(index, added);
}

void swport_tag_vlan_rmv_map(int32_t ifx, vlanset *map) {
    const bits::SharedSet tags = tag_set(ifx);
    if (!tags || map == nullptr)
        return;
    if (tags.is(map->words)) { // a set without itself; what was removed has no place of its own to be told
        tags.reset(bits::kSetWords);
        return;
    }
    // The caller learns what this call took away, also while another process changes the same word.
    for (unsigned index = 0; index < bits::kSetWords; ++index)
        if (const uint32_t unwanted = word::load(map->words[index]); unwanted != 0)
            word::store(map->words[index], tags.take(index, unwanted));
}

void swport_reset_tag_vlan(int32_t ifx) {
    if (const bits::SharedSet tags = tag_set(ifx))
        tags.reset(bits::kSetWords);
}

uint16_t *swport_get_stp_instance_table() {
    return ports::g_manager.stp_table;
}

void swport_set_instance_table(const uint16_t *src) {
    uint16_t *table = ports::g_manager.stp_table;
    if (table == nullptr || src == nullptr)
        return;
    for (unsigned vid = 0; vid < kInstanceVlans; ++vid)
        word::store(table[vid], src[vid]);
}

uint16_t swport_get_stp_instance(uint16_t vid) {
    const uint16_t *table = ports::g_manager.stp_table;
    // The VLAN database's own limits stand in shared memory, so they do not bound the table.
    if (table == nullptr || vid >= kInstanceVlans || vl_check_vlanid_valid(vid) == 0)
        return BRI_STP_INSTANCE_NONE;
    return word::load(table[vid]);
}
