// The words of commands as values.
#pragma once

#include "sandbox/loop.h"

#include <cstdint>
#include <string>

namespace sandbox {

// "VLAN_EVENT_RENAME(392)"; the number alone for a type without a name.
std::string event_text(uint32_t type);

// A number, or a name as event_text shows it. Throws std::invalid_argument for anything else.
uint32_t parse_event(const std::string &text);

// A decimal or 0x number. Throws std::invalid_argument for anything else, and for one above `most`.
uint32_t parse_number(const std::string &text, uint32_t most = UINT32_MAX);
uint16_t parse_vid(const std::string &text);
uint32_t parse_ifx(const std::string &text);

// Six bytes as hexadecimal digits; dots, colons and hyphens between them do not matter.
void parse_mac(const std::string &text, uint8_t (&mac)[6]);

// "1.5" as that many seconds. Throws std::invalid_argument for anything else.
Microseconds parse_seconds(const std::string &text);

} // namespace sandbox
