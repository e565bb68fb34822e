// Records by their fields: every payload, table entry and kernel message that crosses an interface.
#pragma once

#include "wire/own.h"

#include <bridge/bridge.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wire {

// How the bytes of a field are read.
enum class Kind : uint8_t {
    kUnsigned,    // of 1, 2 or 4 bytes; an array of them when width is a multiple of element
    kSigned,      // the same, two's complement
    kEnumeration, // the same, one of `names` or any other number
    kFlags,       // the same, bits of which some have `names`
    kMac,         // 6 bytes in transmission order
    kVlanSet,     // sets: number n is bit n & 31 of 32-bit word n >> 5
    kPortSet,
    kInstanceSet,
    kEventSet,
    kText,     // characters, filled up with NUL
    kBytes,    // bytes whose meaning belongs to others
    kReserved, // zero where everybody keeps to the rules
    kRecords   // one or more records back to back
};

// One value of an enumeration, or one bit of a set of flags.
struct Name {
    uint32_t value;
    const char *text;
};

struct Record;

struct Field {
    std::string name; // of the public header; a record inside a record puts its name and a dot in front
    size_t offset;
    size_t width;   // bytes in all
    size_t element; // bytes of each number in it: what changes with the byte order; 1 when nothing does
    Kind kind;
    std::span<const Name> names;
    const Record *record; // of kRecords, else null
    bool open;            // of kRecords, the last field: a payload may end behind any of them

    [[nodiscard]] size_t count() const { return width / element; }
    [[nodiscard]] bool is_number() const { return kind <= Kind::kFlags; }
    [[nodiscard]] bool is_set() const { return kind >= Kind::kVlanSet && kind <= Kind::kEventSet; }
};

struct Record {
    std::string name; // of the struct
    size_t size;
    std::vector<Field> fields; // rising by offset, without gaps

    [[nodiscard]] bool open() const { return !fields.empty() && fields.back().open; }
    // The least bytes of a payload: `size`, or the bytes in front of records of which there may be none.
    [[nodiscard]] size_t least() const { return open() ? fields.back().offset : size; }
    [[nodiscard]] const Field *find(std::string_view field) const; // null when there is none of that name
};

// The description of a struct: of a public header or of own.h.
template <class T> [[nodiscard]] const Record &record_of();
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): the table of records.def
#define RECORD(type, ...) template <> const Record &record_of<type>();
#include "wire/records.def"
#undef RECORD

[[nodiscard]] const std::vector<const Record *> &all_records();
// By the struct's name; null when there is none.
[[nodiscard]] const Record *find_record(std::string_view name);

} // namespace wire
