// VLAN list text: the checker and the parser against the grammar in its plainest form, then the way back. What an
// accepted text sets is written by both formatters and read again; it must be the same set.
//
// An input is one character that chooses the database's limits, one that chooses a line's width, and the text.
#include "base/bits.h"
#include "fuzz/fuzz.h"
#include "tests/vlan/list_reference.h"

#include <bridge/bridge.h>

#include <qv_syslog.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

namespace {

using namespace bri;

struct Limits {
    uint16_t min, max;
};
constexpr Limits kLimits[] = {{1, 4094}, {0, 4095}, {0, 65535}, {100, 200}, {4094, 1}, {1, 1}, {65535, 65535}};
constexpr uint32_t kErrorRoom = 128;

vl_stat g_stat; // the limits are all that the list functions ask of the database
std::string g_shown;
size_t g_longest_line;

std::unique_ptr<char[]> exactly(const std::string &text) {
    auto copy = std::make_unique<char[]>(text.size() + 1);
    std::memcpy(copy.get(), text.c_str(), text.size() + 1);
    return copy;
}

vlanset set_of(const std::set<int> &vids) {
    vlanset set{};
    for (const int vid : vids)
        bits::set(set.words, static_cast<unsigned>(vid));
    return set;
}

bool same(const vlanset &a, const vlanset &b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// What a text sets; the text has to be accepted.
vlanset read_back(const std::string &text) {
    vlanset set;
    char error[kErrorRoom];
    fuzz::require(vl_clnt_vlist_str_to_map(text.c_str(), &set, error, sizeof error) == 0);
    return set;
}

void check_reading(const std::string &text, Limits limits, vlanset &set, bool &accepted) {
    const reference::List plain = reference::read_list(text, limits.min, limits.max);
    const auto copy = exactly(text);
    const auto error = exactly(std::string(kErrorRoom - 1, '#'));
    accepted = vl_clnt_check_vlan_set(copy.get(), error.get(), kErrorRoom) != 0;
    const std::string expected = plain.error.empty() ? std::string(kErrorRoom - 1, '#') : plain.error;
    fuzz::require(accepted == plain.accepted);
    fuzz::require(expected == error.get());
    vlanset untouched;
    std::memset(&untouched, 0xA5, sizeof untouched);
    set = untouched;
    fuzz::require(vl_clnt_vlist_str_to_map(copy.get(), &set, error.get(), kErrorRoom) == (accepted ? 0 : -2));
    fuzz::require(same(set, accepted ? set_of(plain.vids) : untouched));
    fuzz::require(text == copy.get());
}

// Line after line until the set is told; each begins with the id that the line before ended with.
void check_lines(const vlanset &set, int most) {
    constexpr size_t kRoom = 134;
    vlanset told{};
    int start = 1;
    do {
        const auto line = exactly(std::string(kRoom - 1, '#'));
        const int next = vl_clnt_vlist_vlan_line_format(line.get(), &set, start, most);
        fuzz::require(next == 0 || next > start);
        if (*line.get() != '\0')
            bits::merge(told.words, read_back(line.get()).words, bits::kSetWords);
        start = next;
    } while (start != 0);
    fuzz::require(same(told, set));
}

void check_shown(const vlanset &set, uint32_t width) {
    constexpr size_t kWidestItem = 9;
    g_shown.clear();
    g_longest_line = 0;
    vl_clnt_show_vlanlist(&set, width);
    fuzz::require(g_longest_line <= (width > kWidestItem ? width : kWidestItem));
    vlanset told{};
    for (size_t at = 0; at < g_shown.size();) {
        const std::string item = reference::next_item(g_shown, at);
        if (!item.empty())
            bits::merge(told.words, read_back(item == "ALL" ? "1-4094" : item).words, bits::kSetWords);
    }
    fuzz::require(same(told, set));
}

void check_trimming(const std::string &text) {
    const auto copy = exactly(text);
    vl_clnt_trim_str(copy.get());
    std::string expected;
    for (const char character : text)
        if (character != ' ')
            expected += character;
    fuzz::require(expected == copy.get());
}

} // namespace

// Lines are formatted, so that their arguments are read; those that show a list are kept without their column.
void printk_syslog_ext(int, const char *, const char *, int output, const char *format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    constexpr size_t kColumn = 26;
    if (output != 2)
        return;
    const std::string list(text + kColumn, std::strlen(text) - kColumn - 1);
    g_longest_line = std::max(g_longest_line, list.size());
    g_shown += list + ",";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2)
        return 0;
    const Limits limits = kLimits[data[0] % std::size(kLimits)];
    const unsigned width = data[1];
    g_vl_mng.stat = &g_stat;
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 1;
    vl_set_vlan_range(limits.min, limits.max);
    const std::string text(reinterpret_cast<const char *>(data) + 2,
                           strnlen(reinterpret_cast<const char *>(data) + 2, size - 2));
    check_trimming(text);
    vlanset set;
    bool accepted = false;
    check_reading(text, limits, set, accepted);
    if (!accepted)
        return 0;
    vl_set_vlan_range(BRI_VID_MIN, BRI_VID_MAX);
    check_lines(set, static_cast<int>(width) - 4);
    check_shown(set, width);
    return 0;
}
