// Changes of VLAN entries.
#include "shared/vlan_table.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <sys/sysinfo.h>

namespace bri::vlan_db {

namespace {

constexpr const char *kStaticName = "VLAN";
constexpr const char *kDynamicName = "DVLAN";
constexpr uint32_t kNoCount = 0xFFFFFFFF;
constexpr int kOtherSvi = -1;
constexpr int kNoEntry = -2;

void set_name(vle &entry, const char *kind, uint16_t vid) {
    char name[33] = {};
    std::snprintf(name, sizeof name, "%s%04u", kind, static_cast<unsigned>(vid));
    std::memcpy(entry.name, name, sizeof name);
}

// Hundredths of a second since the machine started, to whole seconds; wraps.
uint32_t uptime_ticks() {
    struct sysinfo info {};
    return sysinfo(&info) == 0 ? static_cast<uint32_t>(info.uptime) * 100U : 0;
}

// Everything but the version, which other processes never see step back.
void clear_all_but_version(vle &entry) {
    constexpr size_t kBehind = offsetof(vle, version) + sizeof entry.version;
    auto *bytes = reinterpret_cast<uint8_t *>(&entry);
    std::memset(bytes, 0, offsetof(vle, version));
    std::memset(bytes + kBehind, 0, sizeof entry - kBehind);
}

void change_mode(uint16_t vid, uint32_t mode) {
    vle *entry = Table::writable(vid);
    if (entry == nullptr)
        return;
    const uint32_t old = word::load(entry->mode);
    if (old == mode)
        return;
    if (old == BRI_VLAN_DYNAMIC && mode == BRI_VLAN_STATIC)
        set_name(*entry, kStaticName, vid);
    word::store(entry->mode, mode);
}

} // namespace

} // namespace bri::vlan_db

using namespace bri;
using namespace bri::vlan_db;

void vl_initial_vlan_entry(uint16_t vid, uint32_t mode) {
    vle *entry = Table::slot(vid);
    if (entry == nullptr)
        return;
    vle fresh{};
    set_name(fresh, mode == BRI_VLAN_DYNAMIC ? kDynamicName : kStaticName, vid);
    fresh.vid = vid;
    fresh.manage_vid = vid;
    fresh.version = static_cast<uint16_t>(word::load(entry->version) + 1);
    fresh.proxy = 1;
    fresh.mode = mode;
    fresh.create_time = uptime_ticks();
    std::memcpy(entry, &fresh, sizeof fresh);
    vl_increase_vlan_number(); // an entry that was live is counted again, on purpose
}

void vl_clear_vlan_entry(uint16_t vid) {
    vle *entry = Table::writable(vid);
    if (entry == nullptr)
        return;
    clear_all_but_version(*entry);
    vl_decrease_vlan_number();
}

void vl_set_vlan_mode(uint16_t vid, uint32_t mode) {
    change_mode(vid, mode);
}

void vl_set_vlan_mode_batch(const struct vlanset *set, uint32_t mode) {
    vlan_db::for_each_vid(set, [&](uint16_t vid) { change_mode(vid, mode); });
}

int vl_set_svi(uint16_t vid, uint32_t ifx) {
    vle *entry = Table::writable(vid);
    if (entry == nullptr)
        return kNoEntry;
    const uint32_t old = word::load(entry->svi_ifx);
    if (ifx == old)
        return 0;
    if (old != 0 && ifx != 0)
        return kOtherSvi;
    word::store(entry->svi_ifx, ifx);
    if (old == 0) {
        vl_increase_svi_number();
        return 0;
    }
    vl_decrease_svi_number();
    word::store(entry->up_mem, uint32_t{0});
    word::store(entry->svi_state_a, uint32_t{0});
    word::store(entry->svi_state_b, uint32_t{0});
    return 0;
}

uint32_t vl_increase_vlan_ref(uint16_t vid) {
    vle *entry = Table::writable(vid);
    if (entry == nullptr)
        return kNoCount;
    return static_cast<uint16_t>(word::add(entry->ref, uint16_t{1}) + 1);
}

uint32_t vl_decrease_vlan_ref(uint16_t vid) {
    vle *entry = Table::writable(vid);
    if (entry == nullptr)
        return kNoCount;
    uint16_t met = 0;
    const bool stepped = word::change_if(
        entry->ref, met, [](uint16_t count) { return count != 0; }, [](uint16_t count) { return count - 1; });
    return stepped ? met - 1U : 0;
}

int vl_set_created_by_cli(uint16_t vid) {
    return Table::store(vid, &vle::created_by_cli, uint8_t{1}) ? 1 : 0;
}
int vl_clear_created_by_cli(uint16_t vid) {
    return Table::store(vid, &vle::created_by_cli, uint8_t{0}) ? 1 : 0;
}

void vl_range_set_created_by_cli(const struct vlanset *set) {
    vlan_db::for_each_vid(set, [](uint16_t vid) { vl_set_created_by_cli(vid); });
}

int vl_set_vswpt_num(uint16_t vid, uint8_t n) {
    return Table::store(vid, &vle::vswpt_num, n) ? 0 : kNoEntry;
}
