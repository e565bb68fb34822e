// VLAN lists from an operator's text: a strict checker, and the parser behind it.
#include "base/bits.h"
#include "base/log.h"
#include "base/raii.h"
#include "base/text.h"

#include <bridge/vlan_db.h>
#include <bridge/vlan_list.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace bri::vlan {

namespace {

constexpr uint32_t kLeastErrorRoom = 128; // more than any message needs
constexpr size_t kListRoom = 256;         // the parser reads this much of a text, its end included

// Where the checker says what is wrong.
struct ErrorText {
    char *text; // kLeastErrorRoom bytes, whatever the caller says that there are

    bool illegal(char found) const { return refuse("illegal input character '%c' found!\n", found); }
    bool out_of_range() const { return refuse("vlanset input range error!\n"); }

  private:
    // What lies behind the message stays the caller's.
    [[gnu::format(printf, 2, 3)]] bool refuse(const char *format, ...) const {
        va_list values;
        va_start(values, format);
        std::vsnprintf(text, kLeastErrorRoom, format, values);
        va_end(values);
        return false;
    }
};

struct Range {
    int32_t first;
    int32_t last;
};

// What "%d-%d" reads, saturated; how many of the two numbers were there. A missing one is 0.
int read_range(const char *item, Range &range) {
    range = {};
    char *end = nullptr;
    range.first = parse_int(item, &end);
    if (end == item)
        return 0;
    const char *second = end + 1;
    if (*end != '-')
        return 1;
    range.last = parse_int(second, &end);
    return end == second ? 1 : 2;
}

// Calls fn(item) for what lies between commas, but not for nothing, while it gives true; what the last call gave. The
// text is cut up.
template <class Fn> bool for_each_item(char *text, Fn &&fn) {
    char *rest = nullptr;
    for (char *item = strtok_r(text, ",", &rest); item != nullptr; item = strtok_r(nullptr, ",", &rest))
        if (!fn(item))
            return false;
    return true;
}

bool is_range(const char *item) {
    return std::strchr(item, '-') != nullptr;
}

void cut_trailing_spaces(char *text) {
    for (size_t length = std::strlen(text); length > 0 && text[length - 1] == ' '; --length)
        text[length - 1] = '\0';
}

bool check_characters(const char *text, const ErrorText &error) {
    for (; *text != '\0'; ++text) {
        const bool digit = *text >= '0' && *text <= '9';
        const bool comma = *text == ',' && text[1] != ',';
        if (!digit && !comma && *text != '-')
            return error.illegal(*text);
    }
    return true;
}

bool check_range(const char *item, const ErrorText &error) {
    Range range;
    const int read = read_range(item, range);
    if (read != 2 || vl_check_vlanid_valid(range.first) == 0 || vl_check_vlanid_valid(range.last) == 0)
        return error.out_of_range();
    if (is_range(std::strchr(item, '-') + 1))
        return error.illegal('-');
    BRI_LOG(log::kVlan, "valid vid range %d-%d read with ret %d\n", range.first, range.last, read);
    return true;
}

bool check_single(const char *item, const ErrorText &error) {
    const int32_t vid = parse_int(item);
    if (vl_check_vlanid_valid(vid) == 0)
        return error.out_of_range();
    BRI_LOG(log::kVlan, "valid vid %d read\n", vid);
    return true;
}

bool check(const char *text, const ErrorText &error) {
    const size_t size = std::strlen(text) + 1;
    const HeapPtr<char> copy(static_cast<char *>(std::malloc(size)));
    if (!copy.ok()) {
        BRI_LOG(log::kVlan, "memory not enough!\n");
        return false;
    }
    std::memcpy(copy.get(), text, size);
    cut_trailing_spaces(copy.get());
    return check_characters(copy.get(), error) && for_each_item(copy.get(), [&](const char *item) {
               return is_range(item) ? check_range(item, error) : check_single(item, error);
           });
}

// Clipped to the ids that exist at all; the database's own limits were the checker's business.
bool usable(int32_t vid) {
    return vid >= static_cast<int32_t>(BRI_VID_MIN) && vid <= static_cast<int32_t>(BRI_VID_MAX);
}

void add_range(const char *item, vlanset &set) {
    Range range;
    read_range(item, range);
    if (!usable(range.first) || !usable(range.last)) {
        BRI_LOG(log::kVlan, "vlanset input range error %d-%d!\n", range.first, range.last);
        return;
    }
    if (range.last < range.first)
        vl_clnt_exchange_int(&range.first, &range.last);
    for (int32_t vid = range.first; vid <= range.last; ++vid)
        bits::set(set.words, static_cast<unsigned>(vid));
}

void add_single(const char *item, vlanset &set) {
    const int32_t vid = parse_int(item);
    if (usable(static_cast<uint16_t>(vid)))
        bits::set(set.words, static_cast<uint16_t>(vid));
    else
        BRI_LOG(log::kVlan, "vlanset input range error %d!\n", vid);
}

void parse(const char *text, vlanset &set) {
    std::memset(&set, 0, sizeof set);
    char copy[kListRoom];
    copy_text(copy, text);
    vl_clnt_trim_str(copy);
    for_each_item(copy, [&](const char *item) {
        if (is_range(item))
            add_range(item, set);
        else
            add_single(item, set);
        return true;
    });
}

} // namespace

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

int vl_clnt_check_vlan_set(const char *text, char *errbuf, uint32_t errlen) {
    if (errbuf == nullptr || errlen < vlan::kLeastErrorRoom || text == nullptr || *text == '\0')
        return 0;
    return vlan::check(text, {errbuf}) ? 1 : 0;
}

int vl_clnt_vlist_str_to_map(const char *text, struct vlanset *set, char *errbuf, uint32_t errlen) {
    if (text == nullptr || set == nullptr || errbuf == nullptr)
        return -1;
    if (vl_clnt_check_vlan_set(text, errbuf, errlen) == 0)
        return -2;
    vlan::parse(text, *set);
    return 0;
}

void vl_clnt_trim_str(char *text) {
    if (text == nullptr)
        return;
    char *to = text;
    for (const char *from = text; *from != '\0'; ++from)
        if (*from != ' ')
            *to++ = *from;
    *to = '\0';
}

void vl_clnt_exchange_int(int32_t *a, int32_t *b) {
    if (a != nullptr && b != nullptr)
        std::swap(*a, *b);
}
