// The bridge's forwarding database: where an address is, and how long.
#pragma once

#include "frames/links.h"

#include <bridge/mac_client.h>

namespace frames {

// An address in a VLAN.
struct Host {
    Mac mac{};
    uint16_t vid = 0;

    auto operator<=>(const Host &) const = default;
};

// Where it is: behind a port, or at the bridge itself, which is where what nobody is to get ends.
struct Place {
    uint32_t link = 0;
    uint16_t state = 0;  // NUD_...: learned, configured, or the bridge's own
    bool sticky = false; // a frame from it elsewhere does not move it

    bool operator==(const Place &other) const { return link == other.link && state == other.state; }
};
using Fdb = std::map<Host, Place>;

// What a message tells of a host: where it is now, or nothing when it has gone.
struct FdbChange {
    Host host;
    std::optional<Place> place;
    uint32_t link; // that the message is about
};
// Nothing when it is about another bridge, about no VLAN, or no change of such a table.
std::optional<FdbChange> fdb_change(const Notice &notice, uint32_t bridge);

// What the switch knows as a type of address, on a port or on all, as a place; and back. The kernel knows fewer types:
// a place of the same kind may stand for several.
Place place_of(uint32_t type, uint32_t port, uint32_t bridge);
uint32_t type_of(const Place &place, uint32_t bridge);

// An entry is put there whatever was known of the host, and taken away.
Request add_entry(const Host &host, const Place &place, uint32_t bridge);
Request remove_entry(const Host &host, const Place &place, uint32_t bridge);

// Lists all of them, for Channel::dump.
Request list_entries();

} // namespace frames
