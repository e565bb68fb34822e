#include "wire/draft.h"

#include "wire/value.h"

#include <algorithm>
#include <stdexcept>

namespace wire {

const Record &record_in(const Payload &payload) {
    static const Record nothing{"nothing", 0, {}};
    return payload.record != nullptr ? *payload.record : nothing;
}

View::View(const Record &record, Bytes bytes) : record_(record), bytes_(bytes) {
    size_t end = 0;
    for (const Field &field : record.fields)
        if (field.record != nullptr ? field.offset <= bytes.size() : field.offset + field.width <= bytes.size())
            end = std::min(field.offset + field.width, bytes.size());
    rest_ = bytes.subspan(end);
}

bool View::has(const Field &field) const {
    return field.record != nullptr ? field.offset < bytes_.size() : field.offset + field.width <= bytes_.size();
}

std::vector<Bytes> View::records(const Field &field) const {
    const size_t end = std::min(field.offset + field.width, bytes_.size());
    return pieces_of(bytes_.subspan(field.offset, end - field.offset), field.record->size);
}

std::vector<Bytes> pieces_of(Bytes bytes, size_t size) {
    std::vector<Bytes> pieces;
    for (; !bytes.empty(); bytes = bytes.subspan(pieces.back().size()))
        pieces.push_back(bytes.first(std::min(size, bytes.size())));
    return pieces;
}

Draft::Draft(const Record &record, Order order) : record_(record), order_(order), bytes_(record.least()) {}

const Field &Draft::field(std::string_view name) const {
    if (const Field *field = record_.find(name))
        return *field;
    std::string names;
    for (const Field &field : record_.fields)
        names += " " + field.name;
    throw std::invalid_argument(names.empty()
                                    ? "no field \"" + printable(name) + "\": nothing is known of this payload"
                                    : "no field \"" + printable(name) + "\" in " + record_.name + "; it has" + names);
}

const Field &Draft::take(std::string_view name) {
    const Field &found = field(name);
    if (std::ranges::find(given_, &found) != given_.end())
        throw std::invalid_argument("the field \"" + found.name + "\" stands twice");
    given_.push_back(&found);
    return found;
}

void Draft::set(std::string_view name, std::string_view value) {
    if (name == kLength || name == kRest) {
        if (!tail_.emplace(name, value).second)
            throw std::invalid_argument("\"" + std::string(name) + "\" stands twice");
        return;
    }
    const Field &field = take(name);
    if (field.record != nullptr)
        throw std::invalid_argument("the field \"" + field.name + "\" takes records, {...},{...}");
    try {
        parse_value(field, value, bytes_, order_);
    } catch (const std::invalid_argument &error) {
        throw std::invalid_argument(field.name + ": " + error.what());
    }
}

void Draft::set_records(std::string_view name, const Buffer &records) {
    const Field &field = take(name);
    if (field.record == nullptr)
        throw std::invalid_argument("the field \"" + field.name + "\" takes no records");
    if (records.size() > field.width)
        throw std::invalid_argument("the field \"" + field.name + "\" takes " + std::to_string(field.count()) +
                                    " records at most");
    if (field.open)
        bytes_.resize(field.offset + records.size());
    std::ranges::copy(records, bytes_.begin() + static_cast<ptrdiff_t>(field.offset));
}

const Record *Draft::records_of(std::string_view name) const {
    return name == kLength || name == kRest ? nullptr : field(name).record;
}

Buffer Draft::bytes() const {
    Buffer bytes = bytes_;
    const auto length = tail_.find(kLength);
    const auto rest = tail_.find(kRest);
    const Buffer behind = rest != tail_.end() ? parse_hex(rest->second) : Buffer{};
    if (length == tail_.end()) {
        bytes.insert(bytes.end(), behind.begin(), behind.end());
        return bytes;
    }
    bytes.resize(parse_number(length->second, kMostBytes));
    if (behind.size() > bytes.size())
        throw std::invalid_argument("\"rest\" is longer than \"length\"");
    std::ranges::copy(behind, bytes.end() - static_cast<ptrdiff_t>(behind.size()));
    return bytes;
}

} // namespace wire
