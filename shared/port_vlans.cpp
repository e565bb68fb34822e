// Switch-port database: how ports carry VLANs, and the spanning-tree instance of each VLAN.
#include "base/bits.h"
#include "shared/ports.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <cerrno>

namespace bri::ports {

namespace {

constexpr unsigned kInstanceVlans = sizeof bri_portdb::stp_instance / sizeof *bri_portdb::stp_instance;

// The port's tag-VLAN words when the port is there and has a bit for the VLAN, else null.
uint32_t *tag_words(int32_t ifx, uint16_t vid) {
    spcb *port = ports::present(ifx);
    return port != nullptr && vid < bits::kSetBits ? port->tag_vlan.words : nullptr;
}

// How a member port carries the VLAN; reads only the fields that the port's mode needs.
bri_tag_rule member_rule(const spcb &port, uint16_t vid) {
    const bool tagged =
        vid < bits::kSetBits && (ports::tagged_word(port, bits::word_of(vid)) & bits::mask_of(vid)) != 0;
    return tagged ? BRI_TAG_TAGGED : BRI_TAG_UNTAGGED;
}

void clear_set(vlanset &set) {
    for (uint32_t &word : set.words)
        word::store(word, uint32_t{0});
}

} // namespace

} // namespace bri::ports

using namespace bri;
using namespace bri::ports;

int swport_get_vlan_tag_rule(int32_t ifx, uint16_t vid) {
    const spcb *port = ports::present(ifx);
    return port != nullptr && vl_is_vlan_member(vid, ifx) != 0 ? member_rule(*port, vid) : BRI_TAG_NOT_MEMBER;
}

vlanset *swport_get_tag_vlan(int32_t ifx) {
    spcb *port = ports::present(ifx);
    return port != nullptr ? &port->tag_vlan : nullptr;
}

int swport_tag_vlan_add(int32_t ifx, uint16_t vid) {
    uint32_t *words = tag_words(ifx, vid);
    if (words == nullptr)
        return -EINVAL;
    return bits::set_shared(words, vid) ? 0 : -EEXIST;
}

int swport_tag_vlan_del(int32_t ifx, uint16_t vid) {
    uint32_t *words = tag_words(ifx, vid);
    return words != nullptr && bits::clear_shared(words, vid) ? 0 : -EINVAL;
}

void swport_tag_vlan_merge_map(int32_t ifx, const vlanset *map) {
    spcb *port = ports::present(ifx);
    if (port == nullptr || map == nullptr)
        return;
    for (unsigned index = 0; index < bits::kSetWords; ++index)
        if (const uint32_t added = word::load(map->words[index]); added != 0)
            word::set_bits(port->tag_vlan.words[index], added);
}

void swport_tag_vlan_rmv_map(int32_t ifx, vlanset *map) {
    spcb *port = ports::present(ifx);
    if (port == nullptr || map == nullptr)
        return;
    if (map == &port->tag_vlan) { // a set without itself; what was removed has no place of its own to be told
        clear_set(port->tag_vlan);
        return;
    }
    // The caller learns what this call took away, also while another process changes the same word.
    for (unsigned index = 0; index < bits::kSetWords; ++index)
        if (const uint32_t unwanted = word::load(map->words[index]); unwanted != 0)
            word::store(map->words[index], word::clear_bits(port->tag_vlan.words[index], unwanted) & unwanted);
}

void swport_reset_tag_vlan(int32_t ifx) {
    if (spcb *port = ports::present(ifx); port != nullptr)
        clear_set(port->tag_vlan);
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
