#include "tools/inspect/watch.h"

#include <algorithm>
#include <unordered_map>

namespace inspect {

namespace {

using RowsByKey = std::unordered_map<std::string, const Json *>;

RowsByKey by_key(const Report &report) {
    RowsByKey rows;
    for (const Json &row : report.rows)
        rows.emplace(row.at(report.key()).dump(), &row);
    return rows;
}

const Json *row_like(const RowsByKey &rows, const Json &row, const char *key) {
    const auto found = rows.find(row.at(key).dump());
    return found != rows.end() ? found->second : nullptr;
}

// The old values of what differs.
Json differences(const Json &before, const Json &now) {
    Json was = Json::object();
    for (const auto &[field, value] : now.items())
        if (before.at(field) != value)
            was[field] = before.at(field);
    return was;
}

Json change(const char *kind, const Json &row) {
    return {{"change", kind}, {"row", row}};
}

bool shown_in_hex(const Report &report, const std::string &field) {
    return std::any_of(report.columns.begin(), report.columns.end(),
                       [&](const Column &column) { return field == column.field && column.hex; });
}

std::string value_text(const Report &report, const std::string &field, const Json &value) {
    return text_of(value, shown_in_hex(report, field));
}

// The key, then each further column by name.
std::string row_text(const Json &row, const Report &report) {
    std::string text = text_of(row.at(report.key()));
    for (size_t index = 1; index < report.columns.size(); ++index) {
        const char *field = report.columns[index].field;
        text += std::string(" ") + field + "=" + value_text(report, field, row.at(field));
    }
    return text;
}

std::string steps_text(const Json &row, const Json &was, const Report &report) {
    std::string text;
    for (const auto &[field, old] : was.items())
        text += (text.empty() ? "" : ", ") + field + " " + value_text(report, field, old) + " -> " +
                value_text(report, field, row.at(field));
    return text;
}

} // namespace

std::vector<Json> changes(const Report &before, const Report &now) {
    std::vector<Json> list;
    if (before.summary != now.summary) {
        list.push_back(change("summary", now.summary));
        list.back()["was"] = differences(before.summary, now.summary);
    }
    const RowsByKey old_rows = by_key(before);
    const RowsByKey new_rows = by_key(now);
    for (const Json &row : before.rows)
        if (row_like(new_rows, row, now.key()) == nullptr)
            list.push_back(change("removed", row));
    for (const Json &row : now.rows) {
        const Json *old = row_like(old_rows, row, now.key());
        if (old == nullptr) {
            list.push_back(change("added", row));
        } else if (*old != row) {
            list.push_back(change("changed", row));
            list.back()["was"] = differences(*old, row);
        }
    }
    return list;
}

std::string line_of(const Json &change, const Report &report) {
    const std::string kind = change.at("change");
    const Json &row = change.at("row");
    if (kind == "added")
        return "+ " + row_text(row, report);
    if (kind == "removed")
        return "- " + text_of(row.at(report.key()));
    const std::string what = kind == "summary" ? report.table : text_of(row.at(report.key()));
    return "~ " + what + ": " + steps_text(row, change.at("was"), report);
}

} // namespace inspect
