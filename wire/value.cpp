#include "wire/value.h"

#include "wire/event.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <map>
#include <stdexcept>

namespace wire {

namespace {

[[noreturn]] void refuse(std::string_view text, const std::string &why) {
    throw std::invalid_argument('"' + printable(text) + "\" " + why);
}

// Calls back for each piece between separators; an empty text is one empty piece.
template <class Fn> void for_each_piece(std::string_view text, char separator, Fn &&fn) {
    for (size_t end = text.find(separator); end != std::string_view::npos; end = text.find(separator)) {
        fn(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    fn(text);
}

struct Range {
    unsigned first;
    unsigned last;
};

Range parse_range(std::string_view text, unsigned min, unsigned max) {
    const size_t dash = text.find('-');
    const unsigned first = parse_number(text.substr(0, dash), max);
    const unsigned last = dash == std::string_view::npos ? first : parse_number(text.substr(dash + 1), max);
    if (first < min)
        refuse(text, "is below " + std::to_string(min));
    if (first > last)
        refuse(text, "runs backwards");
    return {first, last};
}

std::string range_text(const Range &range) {
    return range.first == range.last ? std::to_string(range.first)
                                     : std::to_string(range.first) + "-" + std::to_string(range.last);
}

void append(std::string &list, const std::string &item, char separator) {
    if (!list.empty())
        list += separator;
    list += item;
}

uint32_t most_of(size_t width) {
    return static_cast<uint32_t>((uint64_t{1} << 8 * width) - 1);
}

// ---- numbers

const Name *name_of(const Field &field, uint32_t value) {
    const auto found =
        std::find_if(field.names.begin(), field.names.end(), [&](const Name &name) { return name.value == value; });
    return found != field.names.end() ? &*found : nullptr;
}

std::string flags_text(const Field &field, uint32_t value) {
    std::string text;
    for (const Name &name : field.names)
        if ((value & name.value) != 0) {
            append(text, name.text, '|');
            value &= ~name.value;
        }
    char rest[16];
    std::snprintf(rest, sizeof rest, value != 0 ? "0x%x" : "0", value);
    if (value != 0 || text.empty())
        append(text, rest, '|');
    return text;
}

bool same_word(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y));
    });
}

uint32_t parse_named(const Field &field, std::string_view text) {
    for (const Name &name : field.names)
        if (same_word(name.text, text))
            return name.value;
    if (!text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) != 0)
        return parse_number(text, most_of(field.element));
    std::string names;
    for (const Name &name : field.names)
        append(names, name.text, ' ');
    refuse(text, names.empty() ? "is no number" : "is no number and none of " + names);
}

uint32_t number_at(const Field &field, Bytes bytes, size_t index, Order order) {
    return load(bytes, field.offset + index * field.element, field.element, order);
}

std::string array_text(const Field &field, Bytes bytes, Order order) {
    std::string text;
    for (unsigned first = 0; first < field.count();) {
        const uint32_t value = number_at(field, bytes, first, order);
        unsigned end = first + 1;
        while (end < field.count() && number_at(field, bytes, end, order) == value)
            ++end;
        if (value != 0)
            append(text, range_text({first, end - 1}) + ":" + number_text(field, value), ',');
        first = end;
    }
    return text.empty() ? "none" : text;
}

void parse_array(const Field &field, std::string_view text, std::span<uint8_t> bytes, Order order) {
    std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(field.offset), field.width, uint8_t{0});
    if (text == "none")
        return;
    for_each_piece(text, ',', [&](std::string_view item) {
        const size_t colon = item.find(':');
        if (colon == std::string_view::npos)
            refuse(item, "is not of the form index:number");
        const Range range = parse_range(item.substr(0, colon), 0, static_cast<unsigned>(field.count() - 1));
        const uint32_t value = parse_number(field, item.substr(colon + 1));
        for (unsigned index = range.first; index <= range.last; ++index)
            store(bytes, field.offset + index * field.element, field.element, order, value);
    });
}

// The two digits at `at`, which are there.
uint8_t hex_byte(std::string_view text, size_t at) {
    uint8_t byte = 0;
    const char *pair = text.data() + at;
    if (std::from_chars(pair, pair + 2, byte, 16).ptr != pair + 2)
        refuse(text, "is not hexadecimal");
    return byte;
}

// ---- addresses

std::string mac_text(Bytes mac) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return text;
}

void parse_mac(std::string_view text, std::span<uint8_t> mac) {
    std::string digits(text);
    for (size_t colon = 2; colon < digits.size(); colon += 2) {
        if (digits[colon] != ':')
            refuse(text, "is no address such as 02:00:00:00:00:01");
        digits.erase(colon, 1);
    }
    const bool good = text.size() == 17 && std::all_of(digits.begin(), digits.end(),
                                                       [](unsigned char digit) { return std::isxdigit(digit) != 0; });
    if (!good)
        refuse(text, "is no address such as 02:00:00:00:00:01");
    std::ranges::copy(parse_hex(digits), mac.begin());
}

// ---- sets

// The named ones by name, the others as ranges between them.
std::string events_text(const Ids &ids, size_t all) {
    if (ids.size() == all)
        return "all";
    std::string text;
    Ids nameless;
    const auto flush = [&] {
        if (!nameless.empty())
            append(text, ids_text(nameless), ',');
        nameless.clear();
    };
    for (const unsigned id : ids) {
        const Event *event = find_event(id);
        if (event == nullptr) {
            nameless.push_back(id);
            continue;
        }
        flush();
        append(text, event->name, ',');
    }
    flush();
    return text.empty() ? "none" : text;
}

Ids parse_events(std::string_view text, unsigned max) {
    if (text == "none" || text == "all")
        return parse_ids(text, 0, max);
    Ids ids;
    for_each_piece(text, ',', [&](std::string_view item) {
        const Event *event = find_event(item);
        const Ids more = event != nullptr ? Ids{event->type} : parse_ids(item, 0, max);
        ids.insert(ids.end(), more.begin(), more.end());
    });
    return ids;
}

Ids parse_set(const Field &field, std::string_view text) {
    const auto max = static_cast<unsigned>(field.width * 8 - 1);
    if (field.kind == Kind::kEventSet)
        return parse_events(text, max);
    if (field.kind == Kind::kVlanSet && text == "all")
        return parse_ids(text, BRI_VID_MIN, BRI_VID_MAX);
    return parse_ids(text, 0, max);
}

void store_set(const Field &field, const Ids &ids, std::span<uint8_t> bytes, Order order) {
    std::vector<uint32_t> words(field.count());
    for (const unsigned id : ids)
        words[id / 32] |= uint32_t{1} << id % 32;
    for (size_t word = 0; word < words.size(); ++word)
        store(bytes, field.offset + word * field.element, field.element, order, words[word]);
}

// ---- texts and bytes

Bytes without_zeros_behind(Bytes bytes) {
    while (!bytes.empty() && bytes.back() == 0)
        bytes = bytes.first(bytes.size() - 1);
    return bytes;
}

// \xHH as that byte.
Buffer unescaped(std::string_view text) {
    Buffer bytes;
    for (size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '\\') {
            bytes.push_back(static_cast<uint8_t>(text[at]));
            continue;
        }
        if (text.substr(at, 2) != "\\x" || text.size() < at + 4)
            refuse(text, "has a backslash that does not begin \\xHH");
        bytes.push_back(hex_byte(text, at + 2));
        at += 3;
    }
    return bytes;
}

void store_bytes(const Field &field, std::string_view text, Bytes value, std::span<uint8_t> bytes) {
    if (value.size() > field.width)
        refuse(text, "is longer than " + std::to_string(field.width) + " bytes");
    const auto place = bytes.begin() + static_cast<ptrdiff_t>(field.offset);
    std::fill(std::ranges::copy(value, place).out, place + static_cast<ptrdiff_t>(field.width), uint8_t{0});
}

bool is_bytes(const Field &field) {
    return field.kind == Kind::kBytes || (field.kind == Kind::kReserved && field.element == 1);
}

} // namespace

std::string ids_text(const Ids &ids) {
    std::string text;
    for (size_t at = 0; at < ids.size();) {
        size_t end = at + 1;
        while (end < ids.size() && ids[end] == ids[end - 1] + 1)
            ++end;
        const bool range = end - at >= 3;
        append(text, range_text({ids[at], range ? ids[end - 1] : ids[at]}), ',');
        at = range ? end : at + 1;
    }
    return text.empty() ? "none" : text;
}

Ids parse_ids(std::string_view text, unsigned min, unsigned max) {
    std::vector<bool> chosen(max + 1U);
    const auto choose = [&](const Range &range) {
        for (unsigned id = range.first; id <= range.last; ++id)
            chosen[id] = true;
    };
    if (text == "all")
        choose({min, max});
    else if (text != "none")
        for_each_piece(text, ',', [&](std::string_view item) { choose(parse_range(item, min, max)); });
    Ids ids;
    for (unsigned id = min; id <= max; ++id)
        if (chosen[id])
            ids.push_back(id);
    return ids;
}

Ids ids_in(std::span<const uint32_t> words, unsigned first, unsigned last) {
    Ids ids;
    for (unsigned word = 0; word < words.size(); ++word)
        for (uint32_t bits = words[word]; bits != 0; bits &= bits - 1) {
            const unsigned id = word * 32 + static_cast<unsigned>(std::countr_zero(bits));
            if (id >= first && id <= last)
                ids.push_back(id);
        }
    return ids;
}

uint32_t parse_number(std::string_view text, uint32_t most) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = text.substr(hex ? 2 : 0);
    uint32_t value = 0;
    const auto [stopped, error] = std::from_chars(digits.begin(), digits.end(), value, hex ? 16 : 10);
    if (error != std::errc{} || stopped != digits.end() || value > most)
        refuse(text, "is no number up to " + std::to_string(most));
    return value;
}

Buffer parse_hex(std::string_view text) {
    std::string digits(text.starts_with("0x") || text.starts_with("0X") ? text.substr(2) : text);
    std::erase(digits, ' ');
    Buffer bytes(digits.size() / 2);
    for (size_t at = 0; at < bytes.size(); ++at)
        bytes[at] = hex_byte(digits, 2 * at);
    if (digits.size() % 2 != 0)
        refuse(text, "has half a byte");
    return bytes;
}

Ids ids_of(const Field &set, Bytes bytes, Order order) {
    std::vector<uint32_t> words(set.count());
    for (size_t word = 0; word < words.size(); ++word)
        words[word] = number_at(set, bytes, word, order);
    return ids_in(words);
}

Field element_of(const Field &field, size_t index) {
    Field element = field;
    element.offset += index * field.element;
    element.width = field.element;
    return element;
}

std::string number_text(const Field &field, uint32_t value) {
    if (field.kind == Kind::kFlags)
        return flags_text(field, value);
    if (field.kind == Kind::kSigned && value > most_of(field.element) / 2)
        return "-" + std::to_string(most_of(field.element) - value + 1);
    const Name *name = field.kind == Kind::kEnumeration ? name_of(field, value) : nullptr;
    return name != nullptr ? name->text : std::to_string(value);
}

uint32_t parse_number(const Field &field, std::string_view text) {
    if (field.kind == Kind::kSigned && text.starts_with('-')) {
        const uint32_t most = most_of(field.element);
        return (most - parse_number(text.substr(1), most / 2 + 1) + 1) & most;
    }
    if (field.kind != Kind::kFlags)
        return parse_named(field, text);
    uint32_t value = 0;
    if (text == "none")
        return value;
    for_each_piece(text, '|', [&](std::string_view flag) { value |= parse_named(field, flag); });
    return value;
}

std::string value_text(const Field &field, Bytes bytes, Order order) {
    const Bytes own = bytes.subspan(field.offset, field.width);
    if (field.is_set()) {
        const Ids ids = ids_of(field, bytes, order);
        return field.kind == Kind::kEventSet ? events_text(ids, field.width * 8) : ids_text(ids);
    }
    if (field.kind == Kind::kMac)
        return mac_text(own);
    if (field.kind == Kind::kText) {
        const Bytes text = without_zeros_behind(own);
        return printable({reinterpret_cast<const char *>(text.data()), text.size()});
    }
    if (is_bytes(field))
        return hex_text(without_zeros_behind(own));
    return field.count() > 1 ? array_text(field, bytes, order) : number_text(field, number_at(field, bytes, 0, order));
}

void parse_value(const Field &field, std::string_view text, std::span<uint8_t> bytes, Order order) {
    if (field.is_set())
        store_set(field, parse_set(field, text), bytes, order);
    else if (field.kind == Kind::kMac)
        parse_mac(text, bytes.subspan(field.offset, field.width));
    else if (field.kind == Kind::kText)
        store_bytes(field, text, unescaped(text), bytes);
    else if (is_bytes(field))
        store_bytes(field, text, parse_hex(text), bytes);
    else if (field.count() > 1)
        parse_array(field, text, bytes, order);
    else
        store(bytes, field.offset, field.element, order, parse_number(field, text));
}

bool is_quiet(const Field &field, Bytes bytes) {
    const bool may_be = field.kind == Kind::kReserved || field.kind == Kind::kBytes || field.kind == Kind::kText ||
                        (field.is_number() && field.count() > 1);
    return may_be && without_zeros_behind(bytes.subspan(field.offset, field.width)).empty();
}

} // namespace wire
