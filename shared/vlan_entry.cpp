// Look-ups of VLAN entries and of their fields.
#include "base/text.h"
#include "shared/vlan_table.h"

#include <cstring>

namespace bri::vlan_db {

namespace {

// Mode 0 is any mode.
bool exists(uint16_t vid, uint32_t mode) {
    const vle *found = Table::live(vid);
    return found != nullptr && (mode == 0 || mode == word::load(found->mode));
}

} // namespace

} // namespace bri::vlan_db

using namespace bri;
using namespace bri::vlan_db;

struct vle *vl_get_raw_vlan_entry(uint16_t vid) {
    return Table::slot(vid);
}
struct vle *vl_get_vlan_entry(uint16_t vid) {
    return Table::writable(vid);
}

void vl_get_vle_from_vid(uint16_t vid, struct vle **out) {
    if (out != nullptr)
        *out = Table::writable(vid);
}

int vl_get_vlan_copy(uint16_t vid, struct vle *dst) {
    const vle *found = Table::live(vid);
    if (found == nullptr || dst == nullptr)
        return 0;
    std::memcpy(dst, found, sizeof *dst);
    return 1;
}

int vl_exist_imp(uint16_t vid, uint32_t mode) {
    return exists(vid, mode) ? 1 : 0;
}

int vl_exist(uint16_t vid, uint32_t mode) {
    return exists(vid, mode) ? 1 : 0;
}

int vl_vlanset_exist(uint32_t mode, const struct vlanset *set, struct vlanset *missing) {
    if (set == nullptr || missing == nullptr || g_vl_mng.stat == nullptr)
        return 0;
    int all = 1;
    vlan_db::for_each_vid(set, [&](uint16_t vid) {
        if (exists(vid, mode))
            return;
        bits::set(missing->words, vid);
        all = 0;
    });
    return all;
}

uint16_t vl_get_vlan_latest_version(uint16_t vid) {
    const vle *found = Table::slot(vid);
    return found != nullptr ? word::load(found->version) : uint16_t{0};
}

int vl_get_vlan_mode(uint16_t vid, uint32_t *mode) {
    return Table::read(vid, &vle::mode, mode) ? 1 : 0;
}

int vl_get_vlan_name(uint16_t vid, char *dst) {
    const vle *found = Table::live(vid);
    if (found == nullptr || dst == nullptr)
        return 0;
    bri::copy_text(dst, sizeof found->name, found->name);
    return 1;
}

uint32_t vl_get_svi_ifx(uint16_t vid) {
    return Table::field(vid, &vle::svi_ifx);
}
uint16_t vl_get_manage_vid(uint16_t vid) {
    return Table::field(vid, &vle::manage_vid, vid);
}
uint32_t vl_get_vlan_up_mem(uint16_t vid) {
    return Table::field(vid, &vle::up_mem);
}
uint16_t vl_get_vlan_ref(uint16_t vid) {
    return Table::field(vid, &vle::ref);
}
int vl_is_created_by_cli(uint16_t vid) {
    return Table::field(vid, &vle::created_by_cli) != 0 ? 1 : 0;
}
uint8_t vl_get_vswpt_num(uint16_t vid) {
    return Table::field(vid, &vle::vswpt_num);
}

uint16_t vl_get_vid_from_svifx(uint32_t ifx) {
    if (ifx == 0)
        return 0;
    const auto [first, last] = vlan_db::usable_vids();
    const vle *entries = g_vl_mng.entries;
    for (unsigned vid = first; vid <= last; ++vid) {
        const vle &candidate = entries[vid];
        if (word::load(candidate.svi_ifx) == ifx && word::load(candidate.vid) != 0)
            return static_cast<uint16_t>(vid);
    }
    return 0;
}

int vl_is_subvlan(uint16_t vid) {
    const vle *found = Table::live(vid);
    return found != nullptr && word::load(found->mode) == BRI_VLAN_SUPER && word::load(found->manage_vid) != vid ? 1
                                                                                                                 : 0;
}

int vl_is_supervlan(uint16_t vid) {
    const vle *found = Table::live(vid);
    return found != nullptr && word::load(found->mode) == BRI_VLAN_SUPER &&
                   word::load(found->manage_vid) == word::load(found->vid)
               ? 1
               : 0;
}
