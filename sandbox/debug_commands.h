// The messages that switch a client's debugging and make it print itself, written as the words of a command.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace sandbox {

struct DebugMessage {
    uint32_t type;
    std::vector<uint8_t> payload;
};

// "vlan on", "mac filter vid 5", "delay 2", "show cache", ... as a message. Throws std::invalid_argument with the
// reason for anything else.
DebugMessage debug_message(const std::vector<std::string> &words);

// The lines of the help that tell these words.
std::vector<std::string> debug_help();

} // namespace sandbox
