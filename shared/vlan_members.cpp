// Ports of a VLAN.
#include "base/log.h"
#include "shared/vlan_table.h"

#include <bridge/port_db.h>

namespace bri::vlan_db {

namespace {

constexpr unsigned kMemberBits = 32 * sizeof(vle::members) / sizeof(uint32_t);
static_assert(kMemberBits == BRI_PORT_SLOTS);
constexpr unsigned kMemberWords = kMemberBits / 32;

// Whether an index has a bit in the member words; bit 0 is one, though no port has it.
bool has_bit(int32_t ifx) {
    return ifx >= 0 && static_cast<uint32_t>(ifx) < kMemberBits;
}

} // namespace

} // namespace bri::vlan_db

using namespace bri;
using namespace bri::vlan_db;

int vl_is_vlan_member(uint16_t vid, int32_t ifx) {
    const vle *found = Table::live(vid);
    return found != nullptr && swport_check_ifindex_valid(ifx) != 0 &&
                   bits::test(found->members, static_cast<unsigned>(ifx))
               ? 1
               : 0;
}

int vl_is_vlan_static_member(uint16_t vid, int32_t ifx) {
    const vle *found = Table::live(vid);
    if (found == nullptr)
        return 0;
    if (swport_check_ifindex_valid(ifx) == 0) {
        BRI_LOG(log::kVlanDb, "Get member tag info, get spcb[%d] failed.\n", ifx);
        return 0;
    }
    return bits::test(found->members, static_cast<unsigned>(ifx)) ? 1 : 0;
}

int vl_is_vlan_have_port(uint16_t vid) {
    const vle *found = Table::live(vid);
    return found != nullptr && bits::any(found->members, kMemberWords) ? 1 : 0;
}

int vl_get_vlan_port_count(uint16_t vid) {
    const vle *found = Table::live(vid);
    if (found == nullptr) {
        BRI_LOG(log::kVlanDb, "Get vlan member number, VLAN[%d] not exist.\n", vid);
        return 0;
    }
    int count = 0;
    bits::for_each(found->members, 1, kMemberBits - 1,
                   [&](unsigned ifx) { count += swport_check_exist(static_cast<int32_t>(ifx)); });
    return count;
}

int vl_get_vlan_port_bmap(uint16_t vid, uint32_t out[2]) {
    const vle *found = Table::live(vid);
    if (found == nullptr || out == nullptr)
        return 0;
    for (unsigned index = 0; index < kMemberWords; ++index)
        out[index] = word::load(found->members[index]);
    return 1;
}

int vl_is_vlanset_not_empty(const struct vlanset *set) {
    return set != nullptr && bits::any(set->words, bits::kSetWords) ? 1 : 0;
}

void vl_add_static_member(int32_t ifx, uint16_t vid) {
    const bits::SharedSet members = Table::set(vid, &vle::members);
    if (!members) {
        BRI_LOG(log::kVlanDb, "Add static member-port failed, VLAN[%d] not exist.\n", vid);
        return;
    }
    if (has_bit(ifx))
        members.set(static_cast<unsigned>(ifx));
    BRI_LOG(log::kVlanDb, "Add static member[%d] to VLAN[%d].\n", ifx, vid);
}

void vl_del_static_member(int32_t ifx, uint16_t vid) {
    const bits::SharedSet members = Table::set(vid, &vle::members);
    if (!members) {
        BRI_LOG(log::kVlanDb, "Del static member-port failed, VLAN[%d] not exist.\n", vid);
        return;
    }
    if (has_bit(ifx))
        members.clear(static_cast<unsigned>(ifx));
    BRI_LOG(log::kVlanDb, "Del static member[%d] from VLAN[%d].\n", ifx, vid);
}

// Dynamic members and sub-VLAN address ranges are not kept in this table; the operations stay for their callers.
int vl_is_vlan_dynamic_member(uint16_t /*vid*/, int32_t /*ifx*/) {
    return 0;
}
void vl_add_dynamic_member(int32_t /*ifx*/, uint16_t /*vid*/) {}
void vl_del_dynamic_member(int32_t /*ifx*/, uint16_t /*vid*/) {}
int vl_set_iprange(uint16_t /*vid*/, uint32_t /*low*/, uint32_t /*high*/) {
    return 0;
}
int vl_get_subvlan_iprange(uint16_t /*vid*/, uint32_t * /*low*/, uint32_t * /*high*/) {
    return 0;
}
int vl_svlan_is_subvid_ip(uint16_t /*vid*/, uint32_t /*ip*/) {
    return 0;
}
int vl_svlan_search_ip(uint16_t /*vid*/, uint32_t /*ip*/) {
    return 0;
}
