// What text and JSON have in common: a payload taken apart as far as its record goes, and put together again.
#pragma once

#include "wire/bytes.h"
#include "wire/event.h"

#include <map>
#include <string_view>

namespace wire {

// The words that texts and JSON have beside a record's fields: the length of a payload that ends early, and the bytes
// behind the last field that is there whole.
inline constexpr std::string_view kLength = "length";
inline constexpr std::string_view kRest = "rest";

// The most bytes that a text may ask for: no word in it shall cost more.
inline constexpr uint32_t kMostBytes = 16 << 20;

// The record of a payload; one without fields for a payload without any.
[[nodiscard]] const Record &record_in(const Payload &payload);

// A payload seen through its record.
class View {
  public:
    View(const Record &record, Bytes bytes);

    [[nodiscard]] Bytes bytes() const { return bytes_; }
    // Whole in the payload; the records of a field are there as far as the payload goes.
    [[nodiscard]] bool has(const Field &field) const;
    // The records of such a field, the last one cut where the payload is.
    [[nodiscard]] std::vector<Bytes> records(const Field &field) const;
    // Ends where no payload of the record may end.
    [[nodiscard]] bool is_cut() const { return bytes_.size() < record_.least(); }
    [[nodiscard]] Bytes rest() const { return rest_; }

  private:
    const Record &record_;
    Bytes bytes_;
    Bytes rest_;
};

// The bytes in pieces of one record each, the last one cut where the bytes are.
[[nodiscard]] std::vector<Bytes> pieces_of(Bytes bytes, size_t size);

// A payload under construction. What is not set is 0.
class Draft {
  public:
    Draft(const Record &record, Order order);

    // Throws std::invalid_argument, also for a field that is set twice, that the record does not have, or that takes
    // the other kind of value.
    void set(std::string_view name, std::string_view value); // also "length" and "rest"
    void set_records(std::string_view name, const Buffer &records);
    // The record whose values a field takes; null when it takes a word.
    [[nodiscard]] const Record *records_of(std::string_view name) const;

    [[nodiscard]] Buffer bytes() const;
    [[nodiscard]] const std::vector<const Field *> &fields() const { return given_; } // those that were set

  private:
    const Field &take(std::string_view name);
    [[nodiscard]] const Field &field(std::string_view name) const;

    const Record &record_;
    Order order_;
    Buffer bytes_;
    std::vector<const Field *> given_;
    std::map<std::string, std::string, std::less<>> tail_; // length and rest
};

} // namespace wire
