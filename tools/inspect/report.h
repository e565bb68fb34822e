// What a look at one table gives: rows of named values, shown as a table for people or as JSON for scripts.
#pragma once

#include "wire/json.h"

#include <ostream>
#include <string>
#include <vector>

namespace inspect {

using wire::Json;

struct Column {
    const char *title;
    const char *field; // of the row
    bool hex = false;
};

struct Report {
    std::string table;
    Json summary = Json::object(); // what holds for the table as a whole
    std::vector<Column> columns;   // the fields that people see, the first names the row
    std::vector<Json> rows;
    std::string nothing = "no " + table; // what people see instead of a table without rows

    [[nodiscard]] const char *key() const { return columns.front().field; }
};

// One value for people: lists of ids as ranges, other lists joined, "-" for nothing.
[[nodiscard]] std::string text_of(const Json &value, bool hex = false);

// A row of a table: its index there under `key`, then the fields of the record.
template <class Record> [[nodiscard]] Json indexed(const char *key, unsigned index, const Record &record) {
    Json row{{key, index}};
    row.update(wire::json_of(record));
    return row;
}

void print_table(const Report &report, std::ostream &out);
[[nodiscard]] Json to_json(const Report &report, int32_t vsd);
void print_json(const Report &report, int32_t vsd, std::ostream &out); // a line each row

} // namespace inspect
