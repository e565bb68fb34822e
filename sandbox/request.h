// What clients ask for: rows of type, size and what is done, one table a family.
#pragma once

#include "sandbox/batch.h"

#include <cstdint>
#include <span>

namespace sandbox {

class Bridge;
class Connection;

struct Request {
    uint32_t type;
    size_t least; // bytes of payload
    size_t most;
    // Does it. Throws std::invalid_argument with the reason when the switch refuses.
    void (*take)(Bridge &bridge, const Connection &client, Bytes payload);
    bool echoed = false; // also comes back, as it stands, as the event of its number
    // What the switch answers when it refuses, by itself or by a rule; null for silence.
    void (*refused)(Bridge &bridge, const Connection &client, Bytes payload) = nullptr;
};

using Requests = std::span<const Request>;

template <class Record> Record load(Bytes payload) {
    return bri::load_at<Record>(payload, 0);
}

// The families' tables.
Requests vlan_requests();
Requests mac_requests();
Requests topology_requests();

// Null for a request that no family knows.
const Request *find_request(uint32_t type);

} // namespace sandbox
