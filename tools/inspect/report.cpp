#include "tools/inspect/report.h"

#include "wire/value.h"

#include <algorithm>

namespace inspect {

namespace {

std::string hex_text(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", value);
    return text;
}

bool holds_ids(const Json &list) {
    return std::all_of(list.begin(), list.end(), [](const Json &item) { return item.is_number_unsigned(); });
}

std::string joined(const Json &values, const char *separator) {
    std::string text;
    for (const Json &value : values) {
        if (!text.empty())
            text += separator;
        text += text_of(value);
    }
    return text;
}

std::vector<std::string> cells_of(const Json &row, const std::vector<Column> &columns) {
    std::vector<std::string> cells;
    cells.reserve(columns.size());
    for (const Column &column : columns)
        cells.push_back(text_of(row.at(column.field), column.hex));
    return cells;
}

void print_line(const std::vector<std::string> &cells, const std::vector<size_t> &widths, std::ostream &out) {
    std::string line;
    for (size_t index = 0; index < cells.size(); ++index) {
        line += cells[index];
        if (index + 1 < cells.size())
            line.append(widths[index] + 2 - cells[index].size(), ' ');
    }
    out << line << '\n';
}

} // namespace

std::string text_of(const Json &value, bool hex) {
    if (value.is_null())
        return "-";
    if (value.is_string())
        return value.get_ref<const std::string &>().empty() || value == "none" ? "-" : value.get<std::string>();
    if (value.is_boolean())
        return value.get<bool>() ? "yes" : "no";
    if (value.is_object())
        return joined(value, ":");
    if (!value.is_array())
        return hex ? hex_text(value.get<uint32_t>()) : value.dump();
    if (value.empty())
        return "-";
    return holds_ids(value) ? wire::ids_text(value.get<wire::Ids>()) : joined(value, ",");
}

void print_table(const Report &report, std::ostream &out) {
    for (const auto &[name, value] : report.summary.items())
        out << name << ": " << text_of(value) << '\n';
    if (report.rows.empty()) {
        out << report.nothing << '\n';
        return;
    }
    std::vector<std::vector<std::string>> lines(1);
    for (const Column &column : report.columns)
        lines.front().emplace_back(column.title);
    for (const Json &row : report.rows)
        lines.push_back(cells_of(row, report.columns));
    std::vector<size_t> widths(report.columns.size());
    for (const auto &line : lines)
        for (size_t index = 0; index < line.size(); ++index)
            widths[index] = std::max(widths[index], line[index].size());
    for (const auto &line : lines)
        print_line(line, widths, out);
}

Json to_json(const Report &report, int32_t vsd) {
    Json json{{"table", report.table}, {"vsd", vsd}};
    json["summary"] = report.summary;
    json["rows"] = report.rows;
    return json;
}

void print_json(const Report &report, int32_t vsd, std::ostream &out) {
    Json head = to_json(report, vsd);
    head.erase("rows");
    std::string text = head.dump();
    text.pop_back(); // the closing brace
    out << text << ",\"rows\":[";
    const char *separator = "\n";
    for (const Json &row : report.rows) {
        out << separator << row.dump();
        separator = ",\n";
    }
    out << (report.rows.empty() ? "]}\n" : "\n]}\n");
}

} // namespace inspect
