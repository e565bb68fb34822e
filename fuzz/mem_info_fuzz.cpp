// The memory figures' text against a plain reader, whose sums cannot wrap.
#include "client/mem_info.h"
#include "fuzz/fuzz.h"

#include <qv_syslog.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

struct Figure {
    const char *label;
    size_t offset; // in the record
    bool required;
    bool subtracted;
};
constexpr Figure kFigures[] = {
    {"MemTotal:", 24, true, false}, {"MemFree:", 32, true, true}, {"Buffers:", 40, false, false},
    {"Cached:", 48, false, false},  {"Active:", 56, true, true},  {"Inactive:", 64, true, true},
    {"Mapped:", 88, true, true},    {"Slab:", 96, true, true},
};
constexpr size_t kRest = 128;

// The number at the start of a text, at most 2^64 - 1; 0 when there is none, or a negative one.
uint64_t number(const std::string &text) {
    size_t at = text.find_first_not_of(" \t\n\v\f\r");
    if (at != std::string::npos && text[at] == '+')
        ++at;
    __uint128_t value = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at)
        value = value > UINT64_MAX ? value : value * 10 + static_cast<unsigned>(text[at] - '0');
    return value > UINT64_MAX ? UINT64_MAX : static_cast<uint64_t>(value);
}

// The first line with a figure's label, in pieces of 254 characters, says what it is; a NUL ends a piece.
uint64_t plain_figure(const std::string &text, const Figure &figure) {
    constexpr size_t kMost = 254;
    for (size_t at = 0, length = 0; at < text.size(); at += length) {
        const size_t end = text.find('\n', at);
        length = std::min(kMost, (end == std::string::npos ? text.size() : end + 1) - at);
        const std::string line = text.substr(at, length).c_str();
        const size_t label = line.find(figure.label);
        if (label == std::string::npos || (figure.label == std::string("Cached:") && line[0] != 'C'))
            continue;
        return number(line.substr(label + std::strlen(figure.label)));
    }
    return 0;
}

void put(bri_sys_mem_info &info, size_t offset, uint64_t value) {
    std::memcpy(reinterpret_cast<uint8_t *>(&info) + offset, &value, sizeof value);
}

int plain_mem_info(const std::string &text, bri_sys_mem_info &info) {
    bool complete = true;
    __int128_t rest = 0;
    for (const Figure &figure : kFigures) {
        const uint64_t value = plain_figure(text, figure);
        put(info, figure.offset, value);
        complete = complete && !(figure.required && value == 0);
        if (figure.subtracted)
            rest -= value;
        else if (figure.label == std::string("MemTotal:"))
            rest += value;
    }
    put(info, kRest, rest < 0 ? 0 : static_cast<uint64_t>(rest));
    return complete ? 0 : -1;
}

} // namespace

void printk_syslog_ext(int, const char *, const char *, int, const char *, ...) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    FILE *file = fmemopen(text.data(), text.size(), "r");
    fuzz::require(file != nullptr);
    bri_sys_mem_info info{};
    const int result = bri::client::read_mem_info(file, info);
    std::fclose(file);
    bri_sys_mem_info expected{};
    fuzz::require(plain_mem_info(text, expected) == result);
    fuzz::require(std::memcmp(&info, &expected, sizeof info) == 0);
    return 0;
}
