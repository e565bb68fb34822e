// One connection as the server sees it, and what a handler sees of it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace soak {

// Something that a handler must see.
struct Item {
    char kind;       // as the hosts print it
    uint32_t number; // of an event; for a request that comes back, its place in the books
    uint64_t end;    // bytes of the connection up to the end of this
};

struct Link {
    unsigned id = 0;
    int host = -1; // unknown before its registration
    bool registered = false;
    bool slave = false;
    bool over = false; // nothing more is sent on it; the last items may be lost
    uint64_t bytes = 0;
    uint64_t written = 0;  // of these have certainly left the server
    uint64_t messages = 0; // sent
    uint64_t received = 0;
    uint64_t flood = 0;         // received before its registration
    uint32_t requests = 0;      // received and verified
    uint32_t first_request = 0; // number of the first of them; 0: unknown
    std::vector<Item> items;    // since the last verification
};
using Links = std::vector<std::shared_ptr<Link>>;

// What has reached a handler.
struct Seen {
    char kind;
    uint32_t host; // whose request it was
    uint32_t number;
};

} // namespace soak
