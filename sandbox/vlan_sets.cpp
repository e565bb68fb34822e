#include "sandbox/vlan_sets.h"

#include <bridge/vlan_list.h>

#include <stdexcept>

namespace sandbox {

vlanset only(uint16_t vid) {
    vlanset set{};
    put(set, vid);
    return set;
}

vlanset all_vlans() {
    vlanset set{};
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid)
        put(set, vid);
    return set;
}

unsigned count(const vlanset &set) {
    unsigned number = 0;
    for_each_vlan(set, [&](uint16_t) { ++number; });
    return number;
}

uint16_t lowest(const vlanset &set) {
    uint16_t found = 0;
    for_each_vlan(set, [&](uint16_t vid) { found = found == 0 ? vid : found; });
    return found;
}

vlanset parse_vlans(const std::string &text) {
    constexpr size_t longest = 255; // the library reads no further
    vlanset set{};
    if (text == "none")
        return set;
    if (text == "all")
        return all_vlans();
    char error[128];
    if (text.size() > longest)
        throw std::invalid_argument("a VLAN list of more than 255 characters");
    if (vl_clnt_vlist_str_to_map(text.c_str(), &set, error, sizeof error) != 0)
        throw std::invalid_argument("not a VLAN list: " + text);
    return set;
}

std::string vlans_text(const vlanset &set) {
    constexpr int items_per_line = 20;
    std::string text;
    char line[256];
    int start = 1;
    do {
        start = vl_clnt_vlist_vlan_line_format(line, &set, start, items_per_line);
        text += line;
    } while (start != 0);
    return text.empty() ? "none" : text;
}

} // namespace sandbox
