// Hosts that send frames: their addresses are learned, stay while they send, and move with them.
#pragma once

#include "sandbox/addresses.h"
#include "sandbox/loop.h"

#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace sandbox {

class Traffic {
  public:
    struct Source {
        bri_mac_entry frame{}; // address, VLAN and port
        Microseconds period{};
        Microseconds due{};
    };

    Traffic(Loop &loop, Addresses &addresses);

    // One frame now. Throws std::invalid_argument, as Addresses does, when none can come in there.
    Seen send(const bri_mac_entry &frame);
    // And another one after each period, as long as a port lets it in. The same host elsewhere has gone there.
    Seen start(const bri_mac_entry &frame, Microseconds period);
    // Those with that address; how many there were.
    size_t stop(const uint8_t (&mac)[6]);
    size_t stop_all();

    template <class Fn> void for_each(Fn &&fn) const {
        for (const auto &[name, source] : sources_)
            fn(source);
    }

  private:
    using Name = std::pair<std::array<uint8_t, 6>, uint16_t>; // address and VLAN

    void send_due();
    void wait_for_next();

    Loop &loop_;
    Addresses &addresses_;
    std::map<Name, Source> sources_;
    std::set<std::pair<Microseconds, Name>> due_;
    Timer timer_;
};

} // namespace sandbox
