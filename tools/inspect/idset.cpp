#include "tools/inspect/idset.h"

#include "base/bits.h"

#include <charconv>
#include <sstream>

namespace inspect {

namespace {

unsigned parse_id(const std::string &text, unsigned min, unsigned max) {
    unsigned id = 0;
    const char *end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, id);
    if (error != std::errc{} || stopped != end || id < min || id > max)
        throw std::invalid_argument("\"" + text + "\" is no id of " + std::to_string(min) + ".." + std::to_string(max));
    return id;
}

} // namespace

std::set<unsigned> parse_ids(const std::string &text, unsigned min, unsigned max) {
    std::set<unsigned> ids;
    std::istringstream items(text);
    for (std::string item; std::getline(items, item, ',');) {
        const size_t dash = item.find('-');
        const unsigned first = parse_id(item.substr(0, dash), min, max);
        const unsigned last = dash == std::string::npos ? first : parse_id(item.substr(dash + 1), min, max);
        if (first > last)
            throw std::invalid_argument("\"" + item + "\" runs backwards");
        for (unsigned id = first; id <= last; ++id)
            ids.insert(id);
    }
    if (ids.empty())
        throw std::invalid_argument("no id given");
    return ids;
}

std::string ranges(const Ids &ids) {
    std::string text;
    for (size_t index = 0; index < ids.size();) {
        size_t end = index + 1;
        while (end < ids.size() && ids[end] == ids[end - 1] + 1)
            ++end;
        const size_t run = end - index;
        text += (text.empty() ? "" : ",") + std::to_string(ids[index]);
        if (run >= 3)
            text += "-" + std::to_string(ids[end - 1]);
        index = run >= 3 ? end : index + 1;
    }
    return text.empty() ? "-" : text;
}

Ids ids_of(const uint32_t *words, unsigned first, unsigned last) {
    Ids ids;
    bri::bits::for_each(words, first, last, [&](unsigned id) { ids.push_back(id); });
    return ids;
}

} // namespace inspect
