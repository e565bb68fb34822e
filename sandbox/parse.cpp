#include "sandbox/parse.h"

#include "wire/text.h"
#include "wire/value.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <strings.h>

namespace sandbox {

uint32_t parse_number(const std::string &text, uint32_t most) {
    char *end = nullptr;
    errno = 0;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    refuse_if(text.empty() || std::isdigit(static_cast<unsigned char>(text[0])) == 0 || *end != '\0' || errno != 0 ||
                  value > most,
              "not a number up to " + std::to_string(most) + ": " + text);
    return static_cast<uint32_t>(value);
}

void parse_mac(const std::string &text, uint8_t (&mac)[6]) {
    std::string digits = text;
    std::erase_if(digits, [](char c) { return c == '.' || c == ':' || c == '-'; });
    const auto is_digit = [](unsigned char c) { return std::isxdigit(c) != 0; };
    refuse_if(digits.size() != 2 * sizeof mac || !std::all_of(digits.begin(), digits.end(), is_digit),
              "not a MAC address: " + text);
    for (size_t i = 0; i < sizeof mac; ++i)
        mac[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
}

double parse_real(const std::string &text, double most, const char *what) {
    char *end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    refuse_if(text.empty() || *end != '\0' || !(value >= 0 && value <= most), what + text);
    return value;
}

Microseconds parse_seconds(const std::string &text) {
    return Microseconds(std::llround(parse_real(text, 1e6, "not a number of seconds: ") * 1e6));
}

vlanset parse_vlans(const std::string &text) {
    vlanset set{};
    if (text == "all")
        return all_vlans();
    refuse_if(text.empty() || (text != "none" && bri_vlanset_from_text(&set, text.c_str()) != 0),
              "not a VLAN list: " + text);
    return set;
}

std::string vlans_text(const vlanset &set) {
    char text[BRI_SET_TEXT_SIZE];
    return bri_vlanset_to_text(&set, text, sizeof text) != 0 ? text : "none";
}

bool lists(const std::string &list, const std::string &number) {
    try {
        const wire::Ids ids = wire::parse_ids(list, 0, UINT16_MAX);
        return std::ranges::find(ids, wire::parse_number(number)) != ids.end();
    } catch (const std::invalid_argument &) {
        return false; // a text of another kind
    }
}

bool parse_switch(const std::string &word) {
    refuse_if(word != "on" && word != "off", "on or off, not " + word);
    return word == "on";
}

bri_port_mode parse_port_mode(const std::string &word) {
    for (uint32_t mode = BRI_PORT_ROUTE; mode <= BRI_PORT_HYBRID; ++mode)
        if (strcasecmp(word.c_str(), swport_vlan_mode_name(mode)) == 0)
            return static_cast<bri_port_mode>(mode);
    throw std::invalid_argument("no such port mode: " + word);
}

bri_vlan_mode parse_vlan_mode(const std::string &word) {
    refuse_if(word != "static" && word != "dynamic" && word != "super", "no such VLAN mode: " + word);
    return static_cast<bri_vlan_mode>(wire::parse_text_as<vl_evt_vlan_rec>("mode=" + word).mode);
}

} // namespace sandbox
