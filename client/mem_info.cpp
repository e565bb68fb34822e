// The system's memory figures.
#include "client/mem_info.h"

#include <bridge/bridge.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace bri::client {

namespace {

constexpr const char *kMemInfoFile = "/proc/meminfo";
constexpr size_t kLineRoom = 255; // a longer line is read in pieces

struct Figure {
    const char *label;
    char first_char; // a line counts only if it begins with it; 0: any line
    uint64_t bri_sys_mem_info::*value;
    bool required;
};

constexpr Figure kFigures[] = {
    {"MemTotal:", 0, &bri_sys_mem_info::mem_total, true},
    {"MemFree:", 0, &bri_sys_mem_info::mem_free, true},
    {"Buffers:", 0, &bri_sys_mem_info::buffers, false},
    {"Cached:", 'C', &bri_sys_mem_info::cached, false}, // not SwapCached
    {"Active:", 0, &bri_sys_mem_info::active, true},
    {"Inactive:", 0, &bri_sys_mem_info::inactive, true},
    {"Mapped:", 0, &bri_sys_mem_info::mapped, true},
    {"Slab:", 0, &bri_sys_mem_info::slab, true},
};

// The text behind a figure's label, or null when the line is not about it.
const char *value_text(const Figure &figure, const char *line) {
    if (figure.first_char != 0 && line[0] != figure.first_char)
        return nullptr;
    const char *label = std::strstr(line, figure.label);
    return label != nullptr ? label + std::strlen(figure.label) : nullptr;
}

// Saturates; text that is no number, or a negative one, counts as 0.
uint64_t parse_count(const char *text) {
    text += std::strspn(text, " \t\n\v\f\r"); // what strtoull passes over by itself
    return *text == '-' ? 0 : std::strtoull(text, nullptr, 10);
}

// What the other figures leave of the total, not below 0.
uint64_t unaccounted(const bri_sys_mem_info &info) {
    uint64_t rest = info.mem_total;
    for (const uint64_t part : {info.mem_free, info.active, info.inactive, info.mapped, info.slab})
        rest -= part < rest ? part : rest;
    return rest;
}

bool complete(const bri_sys_mem_info &info) {
    for (const Figure &figure : kFigures)
        if (figure.required && info.*figure.value == 0)
            return false;
    return true;
}

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

// The first line that matches a label counts: newer kernels have later lines whose names end in one, like
// "ShmemPmdMapped:".
int bri::client::read_mem_info(FILE *file, bri_sys_mem_info &info) {
    char line[kLineRoom];
    bool seen[std::size(kFigures)] = {};
    while (std::fgets(line, sizeof line, file) != nullptr)
        for (size_t index = 0; index < std::size(kFigures); ++index) {
            const char *text = seen[index] ? nullptr : value_text(kFigures[index], line);
            if (text == nullptr)
                continue;
            seen[index] = true;
            info.*kFigures[index].value = parse_count(text);
        }
    info.unaccounted = unaccounted(info);
    return complete(info) ? 0 : -1;
}

int bridge_get_sys_mem_info(bri_sys_mem_info *info) {
    if (info == nullptr)
        return -EINVAL;
    *info = bri_sys_mem_info{};
    FILE *file = std::fopen(kMemInfoFile, "re");
    if (file == nullptr)
        return -ENOENT;
    const int result = bri::client::read_mem_info(file, *info);
    std::fclose(file);
    return result;
}
