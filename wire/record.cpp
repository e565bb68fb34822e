#include "wire/record.h"

#include "wire/names.h"

#include <algorithm>
#include <iterator>
#include <type_traits>

namespace wire {

namespace {

// One line of the table. Numbers, also those of a set, are of the type that the struct's field has at bottom.
struct Row {
    const char *name;
    size_t offset;
    size_t width;
    size_t element;
    Kind kind;
    std::span<const Name> names = {};
    const Record &(*record)() = nullptr;
    const char *prefix = nullptr; // of the fields of a record inside this one, which become fields of it
    bool open = false;
};

template <class T> constexpr size_t number_width() {
    using Bottom = std::remove_all_extents_t<T>;
    return std::is_class_v<Bottom> ? sizeof(uint32_t) : sizeof(Bottom);
}

constexpr bool covers(std::span<const Row> rows, size_t size) {
    size_t at = 0;
    for (const Row &row : rows) {
        if (row.offset != at || row.width % row.element != 0)
            return false;
        at += row.width;
    }
    return at == size;
}

void append(std::vector<Field> &fields, const Row &row) {
    if (row.prefix == nullptr) {
        fields.push_back({row.name, row.offset, row.width, row.element, row.kind, row.names,
                          row.record != nullptr ? &row.record() : nullptr, row.open});
        return;
    }
    for (Field field : row.record().fields) {
        field.name.insert(0, row.prefix);
        field.offset += row.offset;
        fields.push_back(std::move(field));
    }
}

Record record_from(const char *name, size_t size, std::span<const Row> rows) {
    Record record{name, size, {}};
    for (const Row &row : rows)
        append(record.fields, row);
    return record;
}

// NOLINTBEGIN(cppcoreguidelines-macro-usage): a struct and its member are named once, so that nothing can drift
#define FIELD(member, kind, ...)                                                                                       \
    Row {                                                                                                              \
#member, offsetof(R, member), sizeof(R::member), number_width < decltype(R::member)>(),                        \
            Kind::kind __VA_OPT__(, ) __VA_ARGS__                                                                      \
    }
#define INNER(member, type, prefix)                                                                                    \
    Row {                                                                                                              \
#member, offsetof(R, member), sizeof(R::member), 1, Kind::kRecords, {}, record_of < type>, prefix              \
    }
#define MANY(member, type)                                                                                             \
    Row {                                                                                                              \
#member, offsetof(R, member), sizeof(R::member), sizeof(type), Kind::kRecords, {}, record_of < type>           \
    }
#define OPEN(member, type)                                                                                             \
    Row {                                                                                                              \
#member, offsetof(R, member), sizeof(R::member), sizeof(type), Kind::kRecords,                                 \
            {}, record_of < type>, nullptr, true                                                                       \
    }

#define RECORD(type, ...)                                                                                              \
    struct RowsOf_##type {                                                                                             \
        using R = type;                                                                                                \
        static constexpr Row kRows[] = {__VA_ARGS__};                                                                  \
    };                                                                                                                 \
    static_assert(covers(RowsOf_##type::kRows, sizeof(type)), #type " is not covered by its fields");
#include "wire/records.def"
#undef RECORD

} // namespace

#define RECORD(type, ...)                                                                                              \
    template <> const Record &record_of<type>() {                                                                      \
        static const Record record = record_from(#type, sizeof(type), RowsOf_##type::kRows);                           \
        return record;                                                                                                 \
    }
#include "wire/records.def"
#undef RECORD

const std::vector<const Record *> &all_records() {
#define RECORD(type, ...) &record_of<type>(),
    static const std::vector<const Record *> all{
#include "wire/records.def"
    };
#undef RECORD
    // NOLINTEND(cppcoreguidelines-macro-usage)
    return all;
}

const Record *find_record(std::string_view name) {
    for (const Record *record : all_records())
        if (record->name == name)
            return record;
    return nullptr;
}

const Field *Record::find(std::string_view field) const {
    const auto found =
        std::find_if(fields.begin(), fields.end(), [&](const Field &each) { return each.name == field; });
    return found != fields.end() ? &*found : nullptr;
}

} // namespace wire
