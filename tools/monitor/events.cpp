#include "tools/monitor/events.h"

#include "wire/event.h"

#include <bridge/sets.h>

#include <algorithm>
#include <stdexcept>

namespace monitor {

namespace {

constexpr uint32_t kQuestions[] = {VLAN_EVENT_CREATE_PREJ, VLAN_EVENT_CREATE_RANGE_PREJ, RESEARCH_EVENT_SWPORT_PREJUDGE,
                                   RESEARCH_EVENT_SS_ORIGIN_MAC};
constexpr uint32_t kTypesOfSubmodule = 128;
constexpr uint32_t kMostType = 4095;

uint32_t parse_type(std::string_view word) {
    const uint32_t type = wire::parse_event(word);
    if (type == 0 || type > kMostType)
        throw std::invalid_argument("no client can register for event " + std::string(word));
    return type;
}

void add_range(event_set &events, uint32_t first, uint32_t last) {
    for (uint32_t type = first; type <= last; ++type)
        if (!is_question(type))
            bri_event_set_add(&events, type);
}

void add_group(event_set &events, const Group &group) {
    const uint32_t base = group.submodule * kTypesOfSubmodule;
    add_range(events, base + 1, base + kTypesOfSubmodule - 1);
}

// Whether the word is a group's.
bool add_groups(event_set &events, std::string_view word) {
    bool found = false;
    for (const Group &group : kGroups)
        if (word == kAll || word == group.name) {
            add_group(events, group);
            found = true;
        }
    return found;
}

// No identifier has a hyphen.
void add_types(Selection &selection, std::string_view word) {
    const size_t hyphen = word.find('-');
    const uint32_t first = parse_type(word.substr(0, hyphen));
    if (hyphen != std::string_view::npos) {
        const uint32_t last = parse_type(word.substr(hyphen + 1));
        if (last < first)
            throw std::invalid_argument("the range " + std::string(word) + " ends before it begins");
        return add_range(selection.events, first, last);
    }
    bri_event_set_add(&selection.events, first);
    if (is_question(first))
        selection.questions.push_back(first);
}

} // namespace

bool is_question(uint32_t type) {
    return std::ranges::find(kQuestions, type) != std::end(kQuestions);
}

Selection select_events(const std::vector<std::string> &words) {
    Selection selection;
    for (const std::string &word : words)
        if (!add_groups(selection.events, word))
            add_types(selection, word);
    if (words.empty())
        add_groups(selection.events, kAll);
    return selection;
}

std::string known_words() {
    std::string text = std::string(kAll) + "  the events of all groups\n";
    for (const Group &group : kGroups) {
        text += std::string(group.name) + "  " + group.help + '\n';
        for (const wire::Event &event : wire::all_events())
            if (event.type / kTypesOfSubmodule == group.submodule &&
                (event.to_client.shape != wire::Shape::kNever || event.local))
                text += "  " + std::string(event.name) + "  " + std::to_string(event.type) + '\n';
    }
    return text;
}

} // namespace monitor
