// What a bridge was before the server came, and which device is which port: kept in a file, so that a server that is
// started after a crash finds its ports, and restores what the first one found.
#pragma once

#include "frames/fdb.h"

#include <set>

namespace frames {

// Of a bridge and of each of its ports, by name.
struct Before {
    uint32_t link = 0;   // its number now
    bool bridged = true; // a port of it
    bool enabled = true;
    uint8_t learning = 1;
    uint8_t state = 0;
    PortVlans vlans;
};

struct Memory {
    uint32_t bridge = 0; // its number: another bridge of that name has another one
    BridgeSettings settings;
    std::map<std::string, Before> links;
    std::map<std::string, Fdb> entries;    // configured ones, by the name of their link
    std::map<uint32_t, std::string> ports; // devices by the ports' numbers
    std::set<std::string> devices;         // VLAN devices that the server has made
};

Before before_of(uint32_t index, const Link &link, bool bridged);
// A device that has another name by now is known by its number, one that comes back with another number by its name.
// Whether there were such names.
bool follow_names(Memory &memory, const Links &links);

// Nothing when there is no such file, or none that can be read. Written whole or not at all; throws
// std::runtime_error.
std::optional<Memory> read_memory(const std::string &path);
void write_memory(const Memory &memory, const std::string &path);

} // namespace frames
