// Payloads as lines for people and scripts: "ifx=3 mode=trunk pvid=10 allow=1-100".
//
// One word a field, in any order when read; what is missing is 0. Values are those of value.h, texts in quotation marks
// where they hold more than plain characters. Fields that are 0 nearly always (reserved bytes, empty texts and arrays)
// are left out. Records inside a record, and the records of a run of several, stand in braces between commas; {}*3 are
// three that are 0.
//
// A payload that ends early is shown as far as its fields go, then length=, its length, and rest=, the bytes behind the
// last whole field; one that is too long, and one of unknown layout, has its surplus bytes in rest=. So every payload,
// whatever is in it, comes back from its text byte for byte.
//
// What reads throws std::invalid_argument with one line for people.
#pragma once

#include "wire/bytes.h"
#include "wire/event.h"

namespace wire {

[[nodiscard]] std::string text_of(const Payload &payload, Bytes bytes, Order order = Order::kNative);
[[nodiscard]] Buffer parse_text(const Payload &payload, std::string_view text, Order order = Order::kNative);

// One object of a described struct.
template <class T> [[nodiscard]] std::string text_of(const T &object) {
    return text_of(one(record_of<T>()), bytes_of(object));
}
template <class T> [[nodiscard]] T parse_text_as(std::string_view text) {
    return object_of<T>(parse_text(one(record_of<T>()), text));
}

// A message: its event's name (or number) and its payload.
[[nodiscard]] std::string message_text(uint32_t type, Direction direction, Bytes payload, Order order = Order::kNative);
struct ParsedMessage {
    uint32_t type;
    Buffer payload;
};
[[nodiscard]] ParsedMessage parse_message(std::string_view text, Direction direction, Order order = Order::kNative);

// Conditions on fields, as in "vid=10 mode=trunk": all must hold, in one record of a run, or in one of the records at a
// message's end when they name fields of those. A number, text or address must be equal; of a set, those that are named
// must be in it.
class Filter {
  public:
    Filter() = default; // holds for everything
    Filter(const Payload &payload, std::string_view conditions);

    [[nodiscard]] bool matches(Bytes payload, Order order = Order::kNative) const;

  private:
    [[nodiscard]] bool holds_in(Bytes record, Order order) const;

    Payload payload_;
    const Field *inside_ = nullptr; // of the records at a message's end, when the conditions are about those
    Buffer wanted_;                 // native
    std::vector<const Field *> fields_;
};

} // namespace wire
