// Whose packets are played.
#pragma once

#include "tools/recording/reader.h"

#include <set>
#include <string>
#include <vector>

namespace replay {

struct Choice {
    std::set<uint32_t> clients; // the connections of one daemon, which come one behind the other
    std::string name;           // empty when none was told
};

// The client of that name or number; without either the only one there is. Throws std::runtime_error with a line for
// people when there is none, or several of them.
[[nodiscard]] Choice choose(const std::vector<recording::Packet> &packets, const std::string &wanted);

// What reaches such a client, directly or through the tables and the kernel.
[[nodiscard]] std::vector<recording::Packet> packets_of(const std::vector<recording::Packet> &packets,
                                                        const Choice &choice);

// The place in those of what comes behind all that it is told, when it closes its connection then; else their end.
[[nodiscard]] size_t farewell_of(const std::vector<recording::Packet> &packets);

} // namespace replay
