// VLAN database: set-up, limits, counters, status.
#include "base/log.h"
#include "shared/table.h"
#include "shared/vlan_table.h"

#include <bridge/ipc.h>

vl_mng g_vl_mng;

namespace bri::vlan_db {

namespace {

constexpr table::Spec kTable{0x11110001, "VLAN-SHM", sizeof(bri_vlandb)};
constexpr int32_t kMaxVlans = BRI_VLAN_ENTRIES;

bool map() {
    if (!table::mapped(table::map(kTable, g_vl_mng), log::kVlanDb))
        return false;
    auto *data = static_cast<bri_vlandb *>(g_vl_mng.shm->data);
    g_vl_mng.entries = data->vlans;
    g_vl_mng.stat = &data->stat;
    g_vl_mng.proto_state = &data->proto;
    return true;
}

// One word of the statistics; 0 before the database is mapped.
template <class T> T statistic(T vl_stat::*member) {
    return g_vl_mng.stat != nullptr ? word::load(g_vl_mng.stat->*member) : T{0};
}

} // namespace

} // namespace bri::vlan_db

using namespace bri;
using namespace bri::vlan_db;

int vl_vlandb_init() {
    if (!map())
        return 0;
    BRI_LOG(log::kVlanDb, "VLANDB initial SUCC: SHM head %p.\n", static_cast<void *>(g_vl_mng.entries));
    return 1;
}

void vl_vlandb_deinit() {}

// Markers around each access; by design they take no lock.
void vl_rdown() {}
void vl_wdown() {}
void vl_up() {}

int vl_check_vlanid_valid(int32_t vid) {
    return vlan_db::in_limits(vid) ? 1 : 0;
}

void vl_get_vlan_range(uint32_t *min, uint32_t *max) {
    if (min != nullptr)
        *min = statistic(&vl_stat::min_vid);
    if (max != nullptr)
        *max = statistic(&vl_stat::max_vid);
}

void vl_set_vlan_range(uint32_t min, uint32_t max) {
    if (g_vl_mng.stat == nullptr)
        return;
    word::store(g_vl_mng.stat->min_vid, static_cast<uint16_t>(min));
    word::store(g_vl_mng.stat->max_vid, static_cast<uint16_t>(max));
}

int vl_check_vlan_capacity() {
    return g_vl_mng.stat != nullptr && statistic(&vl_stat::cur_vlan_num) < kMaxVlans ? 1 : 0;
}

void vl_increase_vlan_number() {
    if (g_vl_mng.stat != nullptr)
        vlan_db::step_if(g_vl_mng.stat->cur_vlan_num, 1, [](int32_t count) { return count < kMaxVlans; });
}

void vl_decrease_vlan_number() {
    if (g_vl_mng.stat == nullptr)
        return;
    if (vlan_db::step_if(g_vl_mng.stat->cur_vlan_num, -1, [](int32_t count) { return count >= 1; }))
        word::add(g_vl_mng.stat->total_del_times, 1);
}

int32_t vl_get_vlan_number() {
    return statistic(&vl_stat::cur_vlan_num);
}
int32_t vl_get_total_del_times() {
    return statistic(&vl_stat::total_del_times);
}

// Without bounds: only the entries' own changes keep this count right.
void vl_increase_svi_number() {
    if (g_vl_mng.stat != nullptr)
        word::add(g_vl_mng.stat->cur_svi_num, 1);
}

void vl_decrease_svi_number() {
    if (g_vl_mng.stat != nullptr)
        word::add(g_vl_mng.stat->cur_svi_num, -1);
}

int vldb_get_shm_head(uint32_t *key, uint32_t *shmid, uint32_t *size, char *name) {
    if (key == nullptr || shmid == nullptr || size == nullptr || name == nullptr)
        return 0;
    if (g_vl_mng.shm == nullptr || g_vl_mng.shm->hdr == nullptr) {
        BRI_LOG(log::kVlanDb, "VLANDB-SHM is not ready.\n");
        return 0;
    }
    table::read_head(*g_vl_mng.shm->hdr, *key, *shmid, *size, name);
    return 1;
}

void vl_vlandb_show_status() {
    BRI_LOG(log::kPrint, "--------------------VLAN-DB---------------------\n");
    bridge_shm_show(g_vl_mng.shm);
    BRI_LOG(log::kPrint, "VLAN-ENTRY head %p\n", static_cast<void *>(g_vl_mng.entries));
    BRI_LOG(log::kPrint, "VLAN-STAT head %p\n", static_cast<void *>(g_vl_mng.stat));
    if (g_vl_mng.stat != nullptr) {
        BRI_LOG(log::kPrint, "min-vlan-id:\t%d\n", statistic(&vl_stat::min_vid));
        BRI_LOG(log::kPrint, "max-vlan-id:\t%d\n", statistic(&vl_stat::max_vid));
        BRI_LOG(log::kPrint, "max-vlan-num:\t%d\n", statistic(&vl_stat::max_vlan_num));
        BRI_LOG(log::kPrint, "cur-vlan-num:\t%d\n", statistic(&vl_stat::cur_vlan_num));
        BRI_LOG(log::kPrint, "max-svi-num:\t%d\n", statistic(&vl_stat::max_svi_num));
        BRI_LOG(log::kPrint, "cur-svi-num:\t%d\n", statistic(&vl_stat::cur_svi_num));
        BRI_LOG(log::kPrint, "total-del-times:\t%d\n", statistic(&vl_stat::total_del_times));
    }
    BRI_LOG(log::kPrint, "--------------------END---------------------\n");
}
