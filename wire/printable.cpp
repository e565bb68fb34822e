// Texts and bytes as people can read them.
#include "wire/value.h"

#include <cstdio>
#include <cstring>

namespace wire {

std::string printable(std::string_view text) {
    std::string out;
    for (const char next : text) {
        const auto byte = static_cast<unsigned char>(next);
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\x%02x", byte);
        if (byte >= 0x20 && byte < 0x7F && byte != '\\' && byte != '"')
            out += next;
        else
            out += escape;
    }
    return out;
}

std::string printable(const char *field, size_t bound) {
    return printable({field, strnlen(field, bound)});
}

std::string hex_text(Bytes bytes) {
    std::string text = "0x";
    for (const uint8_t byte : bytes) {
        char pair[4];
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

} // namespace wire
