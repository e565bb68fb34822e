// Switch-port database: set-up, look-ups, status.
#include "base/bits.h"
#include "base/log.h"
#include "shared/ports.h"
#include "shared/table.h"

#include <bridge/port_db.h>

#include <cstring>
#include <iterator>

namespace bri::ports {

Manager g_manager;

namespace {

constexpr table::Spec kTable{0x22220001, "SWPORT-SHM", sizeof(bri_portdb)};

constexpr const char *kModeNames[] = {"ROUTE", "ACCESS", "TRUNK", "HOST", "PROMIS", "TUNNEL", "UPLINK", "HYBRID"};
static_assert(std::size(kModeNames) == BRI_PORT_HYBRID + 1, "one name a mode");

// The count of the old mapping goes with it.
bool map() {
    if (!table::mapped(table::map(kTable, g_manager), log::kPortDb))
        return false;
    auto *data = static_cast<bri_portdb *>(g_manager.shm->data);
    g_manager.entries = data->ports;
    g_manager.stp_table = data->stp_instance;
    return true;
}

} // namespace

} // namespace bri::ports

using namespace bri;
using namespace bri::ports;

int bridge_portdb_init() {
    if (!ports::map())
        return 0;
    BRI_LOG(log::kPortDb, "PORTDB initial SUCC: SHM head %p.\n", static_cast<void *>(g_manager.entries));
    return 1;
}

void bridge_portdb_deinit() {}

// The markers around accesses to the database take no lock: readers see the server's writes as they happen.
void swport_rdown() {}
void swport_wdown() {}
void swport_up() {}

int swport_check_ifindex_valid(int32_t ifx) {
    return ports::valid(ifx) ? 1 : 0;
}

spcb *swport_get_raw_spcb(int32_t ifx) {
    return Table::slot(ifx);
}
spcb *swport_get_spcb(int32_t ifx) {
    return Table::writable(ifx);
}
spcb *vl_ifindex_to_swport(int32_t ifx) {
    return Table::writable(ifx);
}

int swport_check_exist(int32_t ifx) {
    return Table::live(ifx) != nullptr ? 1 : 0;
}

int swport_get_spcb_copy(int32_t ifx, spcb *dst) {
    const spcb *port = Table::live(ifx);
    if (port == nullptr || dst == nullptr)
        return 0;
    std::memcpy(dst, port, sizeof *dst);
    return 1;
}

uint32_t swport_get_version(int32_t ifx) {
    return Table::field(ifx, &spcb::version);
}

int swport_get_port_mode(int32_t ifx, uint32_t *mode) {
    return Table::read(ifx, &spcb::mode, mode) ? 1 : 0;
}

int swport_get_port_default_mode(int32_t ifx, uint32_t *mode) {
    return Table::read(ifx, &spcb::default_mode, mode) ? 1 : 0;
}

uint16_t swport_get_port_default_vid(int32_t ifx) {
    return Table::field(ifx, &spcb::default_vid);
}

int swport_is_allow_vlan(int32_t ifx, uint16_t vid) {
    const spcb *port = Table::live(ifx);
    return port != nullptr && vid < bits::kSetBits && bits::test(port->allow_vlan.words, vid) ? 1 : 0;
}

int swport_get_total_port_num() {
    int count = 0;
    for (int32_t ifx = 1; ports::valid(ifx); ++ifx)
        count += swport_check_exist(ifx);
    return count;
}

const char *swport_vlan_mode_name(uint32_t mode) {
    return mode < std::size(ports::kModeNames) ? ports::kModeNames[mode] : "Unkonw-swport- mode";
}

void swport_inc_total_num() {
    if (g_manager.total_num < static_cast<int32_t>(BRI_PORT_SLOTS) + 1)
        ++g_manager.total_num;
}

void swport_dec_total_num() {
    if (g_manager.total_num >= 1)
        --g_manager.total_num;
}

int swport_get_shm_head(uint32_t *key, uint32_t *shmid, uint32_t *size, char *name) {
    if (key == nullptr || shmid == nullptr || size == nullptr || name == nullptr)
        return 0;
    if (g_manager.shm == nullptr) {
        BRI_LOG(log::kPortDb, "SWPORT-SHM is not ready.\n");
        return 0;
    }
    table::read_head(*g_manager.shm->hdr, *key, *shmid, *size, name);
    return 1;
}

void swport_show_status() {
    BRI_LOG(log::kPrint, "--------------------SWPORT-DB---------------------\n");
    bridge_shm_show(g_manager.shm);
    BRI_LOG(log::kPrint, "SWPORT-ENTRY head %p\n", static_cast<void *>(g_manager.entries));
    BRI_LOG(log::kPrint, "STP-VLAN-INST head %p\n", static_cast<void *>(g_manager.stp_table));
    BRI_LOG(log::kPrint, "total-swport-num:\t%d\n", g_manager.total_num);
    BRI_LOG(log::kPrint, "--------------------END---------------------\n");
}
