// What a look at one table gives: rows of named values, shown as a table for people or as JSON for scripts.
#pragma once

#include <nlohmann/json.hpp>

#include <ostream>
#include <string>
#include <vector>

namespace inspect {

using Json = nlohmann::ordered_json; // members keep the order in which they were put in

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

    [[nodiscard]] const char *key() const { return columns.front().field; }
};

// One value for people: lists of ids as ranges, other lists joined, "-" for nothing.
[[nodiscard]] std::string text_of(const Json &value, bool hex = false);

void print_table(const Report &report, std::ostream &out);
[[nodiscard]] Json to_json(const Report &report, int32_t vsd);
void print_json(const Report &report, int32_t vsd, std::ostream &out); // a line each row

} // namespace inspect
