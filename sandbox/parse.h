// The words of commands as values. All throw std::invalid_argument for what is none.
#pragma once

#include "sandbox/loop.h"
#include "sandbox/vlan_sets.h"
#include "wire/event.h"

namespace sandbox {

// A number, or an event's name.
using wire::parse_event;

// A decimal or 0x number up to `most`.
uint32_t parse_number(const std::string &text, uint32_t most = UINT32_MAX);
// Six bytes as hexadecimal digits; dots, colons and hyphens between them do not matter.
void parse_mac(const std::string &text, uint8_t (&mac)[6]);
// "1.5" as that many seconds.
Microseconds parse_seconds(const std::string &text);

// A word as what an operation takes: a VLAN id, another number, VLANs, a port's mode, on or off, a text.
template <class Value> Value word_as(const std::string &word);
template <> uint8_t word_as(const std::string &word);
template <> uint16_t word_as(const std::string &word);
template <> uint32_t word_as(const std::string &word);
template <> vlanset word_as(const std::string &word);
template <> bri_vlan_mode word_as(const std::string &word);
template <> bri_port_mode word_as(const std::string &word);
template <> bool word_as(const std::string &word);
template <> std::string word_as(const std::string &word);

} // namespace sandbox
