#include "sandbox/parse.h"

#include "wire/event.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <iterator>
#include <stdexcept>

namespace sandbox {

uint32_t parse_number(const std::string &text, uint32_t most) {
    char *end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (text.empty() || std::isdigit(static_cast<unsigned char>(text[0])) == 0 || *end != '\0' || errno != 0 ||
        value > most)
        throw std::invalid_argument("not a number up to " + std::to_string(most) + ": " + text);
    return static_cast<uint32_t>(value);
}

uint16_t parse_vid(const std::string &text) {
    return static_cast<uint16_t>(parse_number(text, BRI_VID_MAX));
}

uint32_t parse_ifx(const std::string &text) {
    return parse_number(text, BRI_PORT_SLOTS - 1);
}

void parse_mac(const std::string &text, uint8_t (&mac)[6]) {
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits),
                 [](char c) { return c != '.' && c != ':' && c != '-'; });
    const auto is_digit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    if (digits.size() != 2 * sizeof mac || !std::all_of(digits.begin(), digits.end(), is_digit))
        throw std::invalid_argument("not a MAC address: " + text);
    for (size_t i = 0; i < sizeof mac; ++i)
        mac[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
}

Microseconds parse_seconds(const std::string &text) {
    char *end = nullptr;
    const double seconds = std::strtod(text.c_str(), &end);
    if (text.empty() || *end != '\0' || !(seconds >= 0 && seconds <= 1e6))
        throw std::invalid_argument("not a number of seconds: " + text);
    return Microseconds(std::llround(seconds * 1e6));
}

std::string event_text(uint32_t type) {
    const std::string number = std::to_string(type);
    return wire::find_event(type) != nullptr ? wire::event_name(type) + "(" + number + ")" : number;
}

uint32_t parse_event(const std::string &text) {
    return wire::parse_event(text);
}

} // namespace sandbox
