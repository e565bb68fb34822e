#include "sandbox/groups.h"

#include "wire/own.h"

#include <bridge/vlan_group.h>

#include <stdexcept>
#include <string>

namespace sandbox {

namespace {

uint8_t valid_id(uint32_t id) {
    if (id == 0 || id >= BRI_VLAN_GROUP_ENTRIES)
        throw std::invalid_argument("no group number: " + std::to_string(id));
    return static_cast<uint8_t>(id);
}

uint8_t existing_id(uint32_t id) {
    if (vlan_group_check_exist(valid_id(id)) == 0)
        throw std::invalid_argument("no group " + std::to_string(id));
    return static_cast<uint8_t>(id);
}

vlan_group_entry entry_of(uint8_t id) {
    vlan_group_entry entry{};
    vlan_group_get_entry_copy(id, &entry);
    entry.id = id; // whatever another process has put there
    return entry;
}

void announce_entry(const Announce &announce, uint32_t type, uint8_t id) {
    announce(type, bytes_of(entry_of(id)));
}

void announce_policy(const Announce &announce, uint8_t id, bool exists) {
    announce(VG_EVENT_POLICY_ENTRY, bytes_of(wire::group_policy{id, exists ? uint8_t{1} : uint8_t{0}, {}}));
}

template <class Fn> void for_each_group(Fn &&fn) {
    for (uint8_t id = 1; id < BRI_VLAN_GROUP_ENTRIES; ++id)
        if (vlan_group_check_exist(id) != 0)
            fn(id);
}

} // namespace

void Groups::open() {
    if (vlan_group_shm_init() == 0)
        throw std::runtime_error("cannot map the table of VLAN groups");
}

void Groups::create(uint32_t id) {
    if (vlan_group_check_exist(valid_id(id)) != 0)
        throw std::invalid_argument("there is a group " + std::to_string(id) + " already");
    vlan_group_creat_entry(static_cast<uint8_t>(id));
    announce_policy(announce_, static_cast<uint8_t>(id), true);
}

void Groups::remove(uint32_t id) {
    vlan_group_free_entry(existing_id(id));
    announce_policy(announce_, static_cast<uint8_t>(id), false);
}

void Groups::set_vlans(uint32_t id, const vlanset &vlans) {
    const uint8_t existing = existing_id(id);
    vlanset added{};
    vlanset removed{};
    uint8_t added_count = 0;
    uint8_t removed_count = 0;
    vlan_group_set_member_vlan(existing, &vlans, &added, &removed, &added_count, &removed_count);
    announce_entry(announce_, VG_EVENT_MEM_VLAN, existing);
}

void Groups::set_default(uint32_t id, uint16_t vid) {
    const uint8_t existing = existing_id(id);
    vlan_group_set_default_vlan(existing, vid);
    announce_entry(announce_, VG_EVENT_DEFAULT_VLAN, existing);
}

void Groups::set_assign_mode(uint32_t id, uint8_t mode) {
    const uint8_t existing = existing_id(id);
    vlan_group_set_vlan_assign_mode(existing, mode);
    announce_entry(announce_, VG_EVENT_VLAN_MODE, existing);
}

void Groups::replay(uint32_t submodule, const Announce &send) {
    if (submodule != BRI_SUBMOD_VLAN_GROUP)
        return;
    for_each_group([&](uint8_t id) {
        announce_policy(send, id, true);
        for (const uint32_t type : {VG_EVENT_MEM_VLAN, VG_EVENT_DEFAULT_VLAN, VG_EVENT_VLAN_MODE})
            announce_entry(send, type, id);
    });
}

Answer Groups::show() {
    Answer answer;
    answer.begin("groups");
    for_each_group([&](uint8_t id) {
        const vlan_group_entry entry = entry_of(id);
        answer.row("groups", "  group {id} vlans {members} default {default_vid} mode {assign_mode}",
                   {{"id", id},
                    {"members", vlans_text(entry.members)},
                    {"default_vid", entry.default_vid},
                    {"assign_mode", entry.assign_mode}});
    });
    return answer.total("groups");
}

} // namespace sandbox
