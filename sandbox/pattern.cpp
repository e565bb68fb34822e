#include "sandbox/pattern.h"

#include "sandbox/parse.h"

#include <algorithm>
#include <stdexcept>

namespace sandbox {

namespace {

const std::string &word_at(const Words &words, size_t index, const char *what) {
    if (index >= words.size())
        throw std::invalid_argument(std::string(what) + " is missing");
    return words[index];
}

bool is_field(const std::string &word) {
    return word.find('=') != std::string::npos;
}

} // namespace

MessagePattern::MessagePattern(Kind kind, const Words &words, size_t &next)
    : kind_(kind), type_(parse_event(word_at(words, next, "the event"))) {
    std::string conditions;
    for (++next; next < words.size() && is_field(words[next]); ++next)
        conditions += " " + words[next];
    if (!conditions.empty())
        filter_ = wire::Filter(wire::payload_of(type_, direction_of(kind)), conditions);
    if (next < words.size() && words[next][0] == '@')
        client_ = words[next++];
    else if (next < words.size() && (words[next] == "from" || words[next] == "to")) {
        client_ = word_at(words, next + 1, "the client");
        next += 2;
    }
}

bool MessagePattern::matches(uint32_t type, Bytes payload) const {
    return type == type_ && filter_.matches(wire::Bytes(payload.data, payload.size));
}

bool MessagePattern::matches(const Record &record) const {
    if (record.kind != kind_ || record.type != type_ || (kind_ == Kind::kEvent && !record.result.empty()))
        return false;
    const Bytes payload = record.payload == nullptr ? Bytes{} : Bytes{record.payload->data(), record.payload->size()};
    return std::any_of(record.clients.begin(), record.clients.end(),
                       [&](const Client &client) { return concerns(*client); }) &&
           matches(record.type, payload);
}

} // namespace sandbox
