// The VLAN list grammar in its plainest form, character by character; the library's checker and parser are held against
// it. Numbers are read digit by digit and stay at a limit that no id reaches.
#pragma once

#include <cstdint>
#include <set>
#include <string>

namespace reference {

struct List {
    bool accepted = false;
    std::string error;
    std::set<int> vids; // what the parser makes of an accepted list
};

inline int number(const std::string &text) {
    int value = 0;
    for (const char digit : text)
        value = value > 100000 ? value : value * 10 + (digit - '0');
    return value;
}

// One item; min and max are the database's limits.
inline std::string item_error(const std::string &item, int min, int max) {
    const std::string range_error = "vlanset input range error!\n";
    const auto valid = [&](const std::string &digits) {
        return !digits.empty() && number(digits) >= min && number(digits) <= max;
    };
    const size_t dash = item.find('-');
    if (dash == std::string::npos)
        return valid(item) ? "" : range_error;
    // A number may carry a sign, and 0 is the one signed number that a range starting at 0 lets pass.
    const size_t first = item[0] == '-' ? 1 : 0;
    const size_t middle = item.find('-', first);
    if (middle == std::string::npos)
        return range_error;
    const std::string low = item.substr(first, middle - first);
    const size_t second = item[middle + 1] == '-' ? middle + 2 : middle + 1;
    const std::string high = item.substr(second, item.find('-', second) - second);
    if (!valid(low) || !valid(high) || (first == 1 && number(low) != 0) || (second == middle + 2 && number(high) != 0))
        return range_error;
    return item.find('-', dash + 1) == std::string::npos ? "" : "illegal input character '-' found!\n";
}

inline void add_item(std::set<int> &vids, const std::string &item) {
    const size_t dash = item.find('-');
    int first = number(item.substr(0, dash));
    int last = dash == std::string::npos ? first : number(item.substr(dash + 1));
    if (first < 1 || first > 4094 || last < 1 || last > 4094)
        return;
    if (last < first)
        std::swap(first, last);
    for (int vid = first; vid <= last; ++vid)
        vids.insert(vid);
}

inline std::string next_item(const std::string &text, size_t &at) {
    const size_t comma = text.find(',', at);
    const std::string item = text.substr(at, comma - at);
    at = comma == std::string::npos ? text.size() : comma + 1;
    return item;
}

inline List read_list(std::string text, int min, int max) {
    List list;
    if (text.empty())
        return list;
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    for (size_t i = 0; i < text.size(); ++i) {
        const bool doubled = text[i] == ',' && i + 1 < text.size() && text[i + 1] == ',';
        if (doubled || std::string("0123456789-,").find(text[i]) == std::string::npos) {
            list.error = std::string("illegal input character '") + text[i] + "' found!\n";
            return list;
        }
    }
    for (size_t at = 0; at < text.size();) {
        const std::string item = next_item(text, at);
        list.error = item.empty() ? "" : item_error(item, min, max);
        if (!list.error.empty())
            return list;
    }
    list.accepted = true;
    const std::string head = text.substr(0, 255);
    for (size_t at = 0; at < head.size();) {
        const std::string item = next_item(head, at);
        if (!item.empty())
            add_item(list.vids, item);
    }
    return list;
}

} // namespace reference
