#include "sandbox/debug_commands.h"

#include "sandbox/batch.h"
#include "sandbox/parse.h"

#include <bridge/debug.h>
#include <bridge/events.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace sandbox {

namespace {

using Words = std::vector<std::string>;

struct Named {
    const char *name;
    uint32_t type;
};

constexpr Named kSwitches[] = {
    {"vlan", DEBUG_EVENT_VLAN}, {"mac", DEBUG_EVENT_MAC}, {"qinq", DEBUG_EVENT_QINQ},
    {"vmap", DEBUG_EVENT_VMAP}, {"msg", DEBUG_EVENT_MSG}, {"pvlan", DEBUG_EVENT_PVLAN},
};

constexpr Named kShows[] = {
    {"flags", DEBUG_EVENT_SHOW_FLAGS}, {"vlan", DEBUG_EVENT_SHOW_VLAN},     {"mac", DEBUG_EVENT_SHOW_MAC_STATISTIC},
    {"cache", DEBUG_EVENT_SHOW_CACHE}, {"swport", DEBUG_EVENT_SHOW_SWPORT}, {"delay", DEBUG_EVENT_SHOW_DELAY},
};

template <size_t count> std::string alternatives(const Named (&rows)[count]) {
    std::string text;
    for (const Named &row : rows)
        text += (text.empty() ? "" : "|") + std::string(row.name);
    return text;
}

template <size_t count> uint32_t find(const Named (&rows)[count], const std::string &name) {
    for (const Named &row : rows)
        if (name == row.name)
            return row.type;
    throw std::invalid_argument(alternatives(rows) + ", not " + name);
}

template <class T> DebugMessage message(uint32_t type, const T &record) {
    std::vector<uint8_t> payload(sizeof record);
    std::memcpy(payload.data(), &record, sizeof record);
    return {type, std::move(payload)};
}

// What most of the messages carry: a word that nobody reads, and the value.
DebugMessage value_message(uint32_t type, uint32_t value) {
    const uint32_t words[2] = {0, value};
    return message(type, words);
}

// Also a negative number, which ends the delay and with it the client's timer; 0 keeps the timer going, without a
// pause.
uint32_t delay_of(const std::string &text) {
    if (text[0] == '-')
        return 0 - parse_number(text.substr(1), INT32_MAX);
    return parse_number(text, INT32_MAX);
}

bool is_on(const std::string &word) {
    if (word != "on" && word != "off")
        throw std::invalid_argument("on or off, not " + word);
    return word == "on";
}

DebugMessage switch_message(uint32_t type, bool on) {
    if (type != DEBUG_EVENT_MAC)
        return value_message(type, on ? 1 : 0);
    bri_mac_filter any{};
    any.enable = on ? 1 : 0;
    return message(type, any);
}

// Pairs of a field's name and its value, behind "mac filter".
DebugMessage mac_filter(const Words &words) {
    bri_mac_filter filter{};
    filter.enable = 1;
    if (words.size() % 2 != 0)
        throw std::invalid_argument("mac filter without the value of " + words.back());
    for (size_t i = 2; i < words.size(); i += 2) {
        const std::string &field = words[i];
        const std::string &value = words[i + 1];
        if (field == "vid")
            filter.vid = static_cast<uint16_t>(parse_number(value, UINT16_MAX));
        else if (field == "mac")
            parse_mac(value, filter.mac);
        else if (field == "ifx")
            filter.ifx = parse_number(value);
        else
            throw std::invalid_argument("vid, mac or ifx, not " + field);
    }
    return message(DEBUG_EVENT_MAC, filter);
}

} // namespace

DebugMessage debug_message(const std::vector<std::string> &words) {
    if (words.size() >= 2 && words[0] == "mac" && words[1] == "filter")
        return mac_filter(words);
    if (words.size() != 2)
        throw std::invalid_argument("debug what? (try help)");
    if (words[0] == "delay")
        return value_message(DEBUG_EVENT_MSG_DELAY, delay_of(words[1]));
    if (words[0] == "show")
        return {find(kShows, words[1]), {}};
    return switch_message(find(kSwitches, words[0]), is_on(words[1]));
}

std::vector<std::string> debug_help() {
    return {
        "  WHAT of debug: " + alternatives(kSwitches) + " on|off; mac filter [vid N] [mac ADDRESS] [ifx N];",
        "  delay SECONDS, -1 for none; show " + alternatives(kShows) + ".",
    };
}

} // namespace sandbox
