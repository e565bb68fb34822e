// Switch-port database: port functions that exclude each other.
#include "shared/ports.h"

#include <bridge/ipc.h>
#include <bridge/port_db.h>

namespace bri::ports {

namespace {

constexpr uint32_t kExclusiveFunctions = 0x1fc0; // the functions among which conflicts are looked for

} // namespace

} // namespace bri::ports

using namespace bri;
using namespace bri::ports;

int swport_set_attr_exclude(int32_t ifx, uint32_t bits, uint32_t set, uint32_t conflict_mask, uint32_t *conflicts) {
    spcb *port = Table::writable(ifx); // before the lock is taken
    if (port == nullptr)
        return 0;
    if (conflicts != nullptr)
        *conflicts = 0;
    // Tested and set in one step under the lock, which a process that joins the table may set free at any time.
    uint32_t found = 0;
    bridge_wr_lock(ports::g_manager.lock);
    if (static_cast<uint8_t>(set) != 0)
        found = word::set_bits_unless(port->attr_exclude, bits, conflict_mask & kExclusiveFunctions);
    else
        word::clear_bits(port->attr_exclude, bits);
    if (conflicts != nullptr)
        *conflicts |= found;
    bridge_unlock(ports::g_manager.lock);
    return 1;
}
