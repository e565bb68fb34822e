// Private versions: the newest create or delete of each VLAN that this process has accepted.
#pragma once

#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>

#include <cstdint>

namespace bri::vlan {

// Brings the private version of a VLAN up to its entry, and gives the handlers the events that were missed. One
// compare when nothing was. A handler may change or remove the entry.
void catch_up(uint16_t vid, const vle &entry);

} // namespace bri::vlan
