#include "wire/text.h"

#include "wire/draft.h"
#include "wire/value.h"

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace wire {

namespace {

// ---- out

bool is_plain(const std::string &text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char byte) {
        return std::isgraph(byte) != 0 && std::string_view("{},=").find(static_cast<char>(byte)) == std::string::npos;
    });
}

std::string word_of(const Field &field, Bytes bytes, Order order) {
    const std::string value = value_text(field, bytes, order);
    return field.kind != Kind::kText || is_plain(value) ? value : '"' + value + '"';
}

std::string record_text(const Record &record, Bytes bytes, Order order);

bool is_zero(const Record &record, Bytes bytes) {
    return bytes.size() == record.size && std::ranges::all_of(bytes, [](uint8_t byte) { return byte == 0; });
}

std::string records_text(const Record &record, const std::vector<Bytes> &records, Order order) {
    std::string text;
    for (size_t at = 0; at < records.size();) {
        size_t end = at;
        while (end < records.size() && is_zero(record, records[end]))
            ++end;
        text += text.empty() ? "" : ",";
        if (end > at + 1)
            text += "{}*" + std::to_string(end - at);
        else
            text += "{" + (end > at ? "" : record_text(record, records[at], order)) + "}";
        at = std::max(end, at + 1);
    }
    return text;
}

std::string record_text(const Record &record, Bytes bytes, Order order) {
    const View view(record, bytes);
    std::string text;
    const auto add = [&](std::string_view name, const std::string &value) {
        (text += text.empty() ? "" : " ").append(name) += "=" + value;
    };
    for (const Field &field : record.fields) {
        if (!view.has(field))
            continue;
        if (field.record != nullptr)
            add(field.name, records_text(*field.record, view.records(field), order));
        else if (!is_quiet(field, bytes))
            add(field.name, word_of(field, bytes, order));
    }
    if (view.is_cut())
        add(kLength, std::to_string(bytes.size()));
    if (!view.rest().empty())
        add(kRest, hex_text(view.rest()));
    return text;
}

// ---- in

class Parser {
  public:
    Parser(std::string_view text, Order order) : text_(text), order_(order) {}

    Draft draft(const Record &record) {
        Draft draft(record, order_);
        for (skip_blanks(); !at_end() && !sees('}'); skip_blanks()) {
            const std::string_view name = word("=");
            expect('=');
            if (const Record *inner = draft.records_of(name))
                draft.set_records(name, records(*inner));
            else
                draft.set(name, value());
        }
        return draft;
    }

    Buffer records(const Record &record) {
        Buffer all;
        do {
            expect('{');
            const Buffer one = draft(record).bytes();
            expect('}');
            const uint32_t count = repetitions();
            if (all.size() + uint64_t{count} * one.size() > kMostBytes)
                complain("no more than " + std::to_string(kMostBytes) + " bytes");
            for (uint32_t done = 0; done < count; ++done)
                all.insert(all.end(), one.begin(), one.end());
        } while (take(','));
        return all;
    }

    void end() {
        skip_blanks();
        if (!at_end())
            complain("nothing more");
    }
    bool sees(char next) const { return !at_end() && text_.front() == next; }
    void skip_blanks() {
        while (!at_end() && std::isspace(static_cast<unsigned char>(text_.front())) != 0)
            text_.remove_prefix(1);
    }
    [[nodiscard]] bool at_end() const { return text_.empty(); }

  private:
    [[noreturn]] void complain(const std::string &expected) const {
        throw std::invalid_argument(expected + " expected at \"" + printable(text_.substr(0, 20)) + "\"");
    }
    void expect(char next) {
        if (!take(next))
            complain(std::string("\"") + next + "\"");
    }
    bool take(char next) {
        const bool taken = sees(next);
        text_.remove_prefix(taken ? 1 : 0);
        return taken;
    }
    // Up to a blank, a brace or one of `ends`.
    std::string_view word(const std::string &ends) {
        const std::string_view found = text_.substr(0, text_.find_first_of(ends + "{} \t\r\n"));
        text_.remove_prefix(found.size());
        return found;
    }
    std::string_view value() {
        if (!take('"'))
            return word("");
        const size_t end = text_.find('"');
        if (end == std::string_view::npos)
            complain("a closing quotation mark");
        const std::string_view found = text_.substr(0, end);
        text_.remove_prefix(end + 1);
        return found;
    }
    uint32_t repetitions() { return take('*') ? parse_number(word(",")) : 1; }

    std::string_view text_;
    Order order_;
};

} // namespace

std::string text_of(const Payload &payload, Bytes bytes, Order order) {
    const Record &record = record_in(payload);
    if (payload.shape != Shape::kRun || (!bytes.empty() && bytes.size() <= record.size))
        return record_text(record, bytes, order);
    return records_text(record, pieces_of(bytes, record.size), order);
}

Buffer parse_text(const Payload &payload, std::string_view text, Order order) {
    Parser parser(text, order);
    parser.skip_blanks();
    const bool run = payload.shape == Shape::kRun;
    if (run && parser.at_end())
        return {};
    Buffer bytes =
        run && parser.sees('{') ? parser.records(record_in(payload)) : parser.draft(record_in(payload)).bytes();
    parser.end();
    return bytes;
}

std::string message_text(uint32_t type, Direction direction, Bytes payload, Order order) {
    const std::string fields = text_of(payload_of(type, direction), payload, order);
    return event_name(type) + (fields.empty() ? "" : " " + fields);
}

ParsedMessage parse_message(std::string_view text, Direction direction, Order order) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    const size_t end = std::min(text.find_first_of(" \t"), text.size());
    const uint32_t type = parse_event(text.substr(0, end));
    return {type, parse_text(payload_of(type, direction), text.substr(end), order)};
}

Filter::Filter(const Payload &payload, std::string_view conditions) : payload_(payload) {
    const Record *record = &record_in(payload);
    conditions.remove_prefix(std::min(conditions.find_first_not_of(' '), conditions.size()));
    if (record->open() && record->find(conditions.substr(0, conditions.find('='))) == nullptr) {
        inside_ = &record->fields.back();
        record = inside_->record;
    }
    Parser parser(conditions, Order::kNative);
    const Draft draft = parser.draft(*record);
    parser.end();
    wanted_ = draft.bytes();
    fields_ = draft.fields();
}

bool Filter::matches(Bytes payload, Order order) const {
    if (fields_.empty())
        return true;
    if (inside_ == nullptr && payload_.shape != Shape::kRun)
        return holds_in(payload, order);
    const Record &record = inside_ != nullptr ? *inside_->record : *payload_.record;
    const Bytes records = inside_ != nullptr ? payload.subspan(std::min(inside_->offset, payload.size())) : payload;
    return std::ranges::any_of(pieces_of(records, record.size), [&](Bytes piece) { return holds_in(piece, order); });
}

bool Filter::holds_in(Bytes record, Order order) const {
    const auto number = [](const Field &field, Bytes bytes, size_t at, Order in) {
        return load(bytes, field.offset + at * field.element, field.element, in);
    };
    return std::ranges::all_of(fields_, [&](const Field *field) {
        if (field->offset + field->width > record.size() || field->record != nullptr)
            return false;
        for (size_t at = 0; at < field->count(); ++at) {
            const uint32_t wanted = number(*field, wanted_, at, Order::kNative);
            const uint32_t there = number(*field, record, at, order);
            if (field->is_set() ? (wanted & ~there) != 0 : wanted != there)
                return false;
        }
        return true;
    });
}

} // namespace wire
