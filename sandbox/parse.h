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
// One from 0 to `most`; `what` is it when the text is none, which follows.
double parse_real(const std::string &text, double most, const char *what);
// "1.5" as that many seconds.
Microseconds parse_seconds(const std::string &text);

// Whether a number is in a list such as "10-20,30".
bool lists(const std::string &list, const std::string &number);

bool parse_switch(const std::string &word); // on or off
bri_port_mode parse_port_mode(const std::string &word);
bri_vlan_mode parse_vlan_mode(const std::string &word);

// A word as what an operation takes; a number of 16 bits is a VLAN id.
template <class Value> Value word_as(const std::string &word) {
    if constexpr (std::is_constructible_v<Value, std::string>) // a name, or whom a command is for
        return Value(word);
    else if constexpr (std::is_same_v<Value, vlanset>)
        return parse_vlans(word);
    else if constexpr (std::is_same_v<Value, bool>)
        return parse_switch(word);
    else if constexpr (std::is_same_v<Value, Microseconds>)
        return parse_seconds(word);
    else if constexpr (std::is_same_v<Value, bri_port_mode>)
        return parse_port_mode(word);
    else if constexpr (std::is_same_v<Value, bri_vlan_mode>)
        return parse_vlan_mode(word);
    else if constexpr (std::is_enum_v<Value>) // a limit
        return word == "any" ? Value::kNone : Value{parse_number(word)};
    else
        return static_cast<Value>(parse_number(word, sizeof(Value) == 2 ? BRI_VID_MAX : static_cast<Value>(-1)));
}

} // namespace sandbox
