// VLAN groups: the shared table and the server's group events.
#include "base/bits.h"
#include "base/log.h"
#include "base/runtime.h"
#include "client/event_names.h"
#include "shared/records.h"
#include "shared/table.h"
#include "vlan/messages.h"

#include <bridge/client.h>
#include <bridge/vlan_db.h>
#include <bridge/vlan_group.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

vlan_group_manager vlan_group_mng;

namespace bri::groups {

namespace {

constexpr table::Spec kTable{0x5A5B7C3D, "VLAN-GROUP-SHM", sizeof(bri_vlan_groups)};
constexpr unsigned kFirstGroup = 1;
constexpr unsigned kLastGroup = BRI_VLAN_GROUP_ENTRIES - 1;

bool map() {
    switch (table::map(kTable, vlan_group_mng)) {
    case table::Result::kOk:
        vlan_group_mng.entries = static_cast<bri_vlan_groups *>(vlan_group_mng.shm->data)->groups;
        return true;
    case table::Result::kNoKey:
        BRI_LOG(log::kClient, "vlan-group Get ipc-key failed.\n");
        break;
    case table::Result::kNoLock:
        BRI_LOG(log::kClient, "vlan-group create sysv sem failed.\n");
        break;
    case table::Result::kNoSegment:
        BRI_LOG(log::kClient, "vlan-group create sysv shm failed.\n");
        std::free(std::exchange(vlan_group_mng.lock, nullptr)); // nothing is kept
        break;
    }
    return false;
}

// Ids above the last have no entry.
struct Places {
    using Record = vlan_group_entry;
    using Id = unsigned;
    static constexpr uint8_t vlan_group_entry::*kInUse = &vlan_group_entry::id;

    [[nodiscard]] static vlan_group_entry *slot(unsigned id) {
        return id <= kLastGroup && vlan_group_mng.entries != nullptr ? &vlan_group_mng.entries[id] : nullptr;
    }
};
using Table = table::Records<Places>;

bool holds(const vlan_group_entry &entry, unsigned vid) {
    return vid < bits::kSetBits && bits::test(entry.members.words, vid);
}

uint8_t count_of(uint32_t word) {
    return static_cast<uint8_t>(__builtin_popcount(word));
}

// Notes the bits of one word that changed: in the caller's set and in the caller's count, which wraps.
void note(uint32_t changed, uint32_t &word, uint8_t &count) {
    word |= changed;
    count = static_cast<uint8_t>(count + count_of(changed));
}

// Makes one word of the members equal to `wanted` within `mask`. What another process changed in between is neither
// lost nor counted twice.
void update_word(vlan_group_entry &entry, unsigned index, uint32_t wanted, uint32_t mask, uint32_t &added,
                 uint32_t &removed) {
    const bits::SharedSet members(entry.members.words);
    const uint32_t present = word::load(entry.members.words[index]);
    added = wanted & ~present & mask;
    removed = present & ~wanted & mask;
    if (added != 0)
        added = members.add(index, added);
    if (removed != 0)
        removed = members.take(index, removed);
    if (added != 0 || removed != 0)
        word::add(entry.member_count, static_cast<uint8_t>(count_of(added) - count_of(removed)));
}

} // namespace

} // namespace bri::groups

using namespace bri;
using namespace bri::groups;

int vlan_group_shm_init() {
    return map() ? 1 : 0;
}

void groups::on_message(const Message &message) {
    BRI_LOG(log::kClient, "vg lib recv msg: event %s, msg len %d.\n",
            client::find_name(client::kVlanGroupEventNames, message.type(), "unknow type"),
            log::number(message.header.len));
    runtime::hand_on(message);
}

void bridge_vlan_group_lib_dispose_msg(struct bri_msg_hdr *msg) {
    if (msg != nullptr)
        groups::on_message(message_at(msg));
}

// By design none of them takes the table's lock.
void vlan_group_wr_lock() {}
void vlan_group_read_lock() {}
void vlan_group_unlock() {}

struct vlan_group_entry *vlan_group_base_entry() {
    return vlan_group_mng.entries;
}
struct vlan_group_entry *vlan_group_get_entry(uint8_t id) {
    return Table::writable(id);
}
int vlan_group_check_exist(uint8_t id) {
    return Table::live(id) != nullptr ? 1 : 0;
}
int vg_clnt_check_exist(uint8_t id) {
    return vlan_group_check_exist(id);
}

int vlan_group_creat_entry(uint8_t id) {
    vlan_group_entry *entry = Table::slot(id);
    if (entry == nullptr)
        return 0;
    if (word::load(entry->id) == id)
        return 1;
    std::memset(entry, 0, sizeof *entry);
    word::store(entry->id, id);
    return 1;
}

void vlan_group_free_entry(uint8_t id) {
    if (vlan_group_entry *entry = Table::slot(id))
        std::memset(entry, 0, sizeof *entry);
}

int vlan_group_set_default_vlan(uint8_t id, uint16_t vid) {
    return Table::store(id, &vlan_group_entry::default_vid, vid) ? 1 : 0;
}
int vlan_group_get_default_vlan(uint8_t id, uint16_t *vid) {
    return Table::read(id, &vlan_group_entry::default_vid, vid) ? 1 : 0;
}
int vlan_group_set_vlan_assign_mode(uint8_t id, uint8_t mode) {
    return Table::store(id, &vlan_group_entry::assign_mode, mode) ? 1 : 0;
}
int vlan_group_get_vlan_assign_mode(uint8_t id, uint8_t *mode) {
    return Table::read(id, &vlan_group_entry::assign_mode, mode) ? 1 : 0;
}
int vlan_group_get_member_vlan_cnt(uint8_t id, uint8_t *count) {
    return Table::read(id, &vlan_group_entry::member_count, count) ? 1 : 0;
}

int vlan_group_set_member_vlan(uint8_t id, const struct vlanset *new_set, struct vlanset *added,
                               struct vlanset *removed, uint8_t *added_count, uint8_t *removed_count) {
    vlan_group_entry *entry = Table::writable(id);
    if (entry == nullptr || new_set == nullptr || added == nullptr || removed == nullptr || added_count == nullptr ||
        removed_count == nullptr)
        return 0;
    for (unsigned index = 0; index < bits::kSetWords; ++index) {
        uint32_t new_bits = 0;
        uint32_t old_bits = 0;
        update_word(*entry, index, word::load(new_set->words[index]), bits::range_mask(index, BRI_VID_MIN, BRI_VID_MAX),
                    new_bits, old_bits);
        note(new_bits, added->words[index], *added_count);
        note(old_bits, removed->words[index], *removed_count);
    }
    return 1;
}

int vlan_group_get_entry_copy(uint8_t id, struct vlan_group_entry *dst) {
    const vlan_group_entry *entry = Table::live(id);
    if (entry == nullptr || dst == nullptr)
        return 0;
    std::memcpy(dst, entry, sizeof *dst);
    return 1;
}

int vlan_group_check_vlan_is_member_vlan(uint8_t id, uint16_t vid) {
    const vlan_group_entry *entry = Table::live(id);
    return entry != nullptr && holds(*entry, vid) ? 1 : 0;
}

int vlan_group_get_member_vlan_bitmap(uint8_t id, struct vlanset *out) {
    if (out == nullptr)
        return -EINVAL;
    const vlan_group_entry *entry = Table::live(id);
    if (entry == nullptr)
        return -1;
    std::memcpy(out, &entry->members, sizeof *out);
    return 0;
}

int vg_clnt_get_vlan_list(uint8_t id, struct vlanset *out) {
    return vlan_group_get_member_vlan_bitmap(id, out) == 0 ? 1 : 0;
}
uint16_t vg_clnt_get_default_vid(uint8_t id) {
    return Table::field(id, &vlan_group_entry::default_vid);
}
uint8_t vg_clnt_get_assign_mode(uint8_t id) {
    return Table::field(id, &vlan_group_entry::assign_mode);
}

int vg_clnt_is_member_of_any_group(uint16_t vid, uint8_t *id) {
    for (unsigned number = kFirstGroup; number <= kLastGroup; ++number) {
        const vlan_group_entry *entry = Table::slot(number);
        if (entry == nullptr)
            return 0;
        const uint8_t holder = word::load(entry->id);
        if (holder == 0 || !holds(*entry, vid))
            continue;
        if (id != nullptr)
            *id = holder;
        return 1;
    }
    return 0;
}

int vg_clnt_change_array_to_bitmap(const uint16_t *vids, uint8_t count, struct vlanset *set) {
    if (count != 0 && (vids == nullptr || set == nullptr))
        return 0;
    for (unsigned index = 0; index < count; ++index)
        if (vids[index] < bits::kSetBits)
            bits::set(set->words, vids[index]);
    return count + 1;
}
