// The value of one field as a word for people, and back. JSON has the same words.
#pragma once

#include "wire/bytes.h"
#include "wire/record.h"

#include <string>
#include <string_view>

namespace wire {

using Ids = std::vector<unsigned>; // rising

// "1,2,5-10"; "none" for none. Three and more in a row are a range.
[[nodiscard]] std::string ids_text(const Ids &ids);
// The same back, ids min..max, in any order; also "none" and "all". Throws std::invalid_argument with a line for
// people.
[[nodiscard]] Ids parse_ids(std::string_view text, unsigned min, unsigned max);

// The numbers of the bits that are set, of first..last: the set of a record that is a struct of this machine.
[[nodiscard]] Ids ids_in(std::span<const uint32_t> words, unsigned first = 0, unsigned last = UINT32_MAX);

// Decimal or 0x. Throws std::invalid_argument with a line for people, also for a number above `most`.
[[nodiscard]] uint32_t parse_number(std::string_view text, uint32_t most = UINT32_MAX);

// Whatever a terminal would obey, backslashes, quotation marks and bytes above 0x7E as \xHH; the rest as it is.
[[nodiscard]] std::string printable(std::string_view text);
// A text field of a table: what stands in front of the first NUL, printable.
[[nodiscard]] std::string printable(const char *field, size_t bound);

// "0x" and two digits a byte.
[[nodiscard]] std::string hex_text(Bytes bytes);
// The same back; without "0x" too, and with blanks where one likes.
[[nodiscard]] Buffer parse_hex(std::string_view text);

// `bytes` is the record from its start and holds the field whole. Not for kRecords.
//
// numbers: 10, -3, trunk, mac|ifx|0x40      arrays: index:number, "0-9:3,20:1", none
// kMac: 02:00:00:00:00:01                   sets: 1-10,20; of events: VLAN_EVENT_RENAME,400-402
// kText: printable, without the NULs at its end
// kBytes: 0x0102, without the zeros at its end
[[nodiscard]] std::string value_text(const Field &field, Bytes bytes, Order order);

// Writes the value; numbers may always stand for names. Throws std::invalid_argument with a line for people.
void parse_value(const Field &field, std::string_view text, std::span<uint8_t> bytes, Order order);

// The numbers in a set.
[[nodiscard]] Ids ids_of(const Field &set, Bytes bytes, Order order);

// One number as the word that a field of that kind has for it, wherever the number stands; of flags, none is 0, too.
[[nodiscard]] std::string number_text(const Field &field, uint32_t value);
// The same back. Throws std::invalid_argument with a line for people.
[[nodiscard]] uint32_t parse_number(const Field &field, std::string_view text);

// One number of an array as a field of its own.
[[nodiscard]] Field element_of(const Field &field, size_t index);

// Not shown to people: zero, and a value that most have as zero.
[[nodiscard]] bool is_quiet(const Field &field, Bytes bytes);

} // namespace wire
