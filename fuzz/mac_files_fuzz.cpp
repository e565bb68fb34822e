// The files that hold a MAC address: both readers against plain ones.
#include "client/local_mac.h"
#include "fuzz/fuzz.h"

#include <qv_syslog.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>

namespace {

using bri::client::Mac;
using MaybeMac = std::optional<Mac>;

constexpr char kDigits[] = "0123456789abcdef0123456789ABCDEF"; // a digit's value is its place modulo 16

bool is_digit(char character) {
    return character != '\0' && std::strchr(kDigits, character) != nullptr;
}

uint8_t byte_of(char high, char low) {
    const auto value = [](char digit) { return (std::strchr(kDigits, digit) - kDigits) % 16; };
    return static_cast<uint8_t>(value(high) * 16 + value(low));
}

// The n-th piece of a text, counted from 1: a line, or 31 characters of one.
std::optional<std::string> piece(const std::string &text, int n) {
    constexpr size_t kMost = 31;
    size_t at = 0;
    size_t length = 0;
    for (int count = 0; count < n; ++count) {
        at += length;
        if (at == text.size())
            return {};
        for (length = 0; length < kMost && at + length < text.size();)
            if (text[at + length++] == '\n')
                break;
    }
    return text.substr(at, length);
}

MaybeMac plain_device_mac(const std::string &text) {
    const std::optional<std::string> line = piece(text, 5);
    if (!line)
        return {};
    Mac mac{};
    for (size_t group = 0; group < 6; ++group) {
        const std::string digits = group * 3 < line->size() ? line->substr(group * 3, 2) : "";
        if (digits.size() != 2 || !is_digit(digits[0]) || !is_digit(digits[1]))
            return {};
        // What separates the groups may be anything that does not end the text.
        if (group < 5 && (line->size() == group * 3 + 2 || (*line)[group * 3 + 2] == '\0'))
            return {};
        mac.bytes[group] = byte_of(digits[0], digits[1]);
    }
    return mac;
}

MaybeMac plain_mac_text(const std::string &text) {
    std::string digits;
    for (const char character : text.substr(0, 31))
        if (is_digit(character))
            digits += character;
    if (digits.size() < 12)
        return {};
    Mac mac{};
    for (size_t index = 0; index < 6; ++index)
        mac.bytes[index] = byte_of(digits[2 * index], digits[2 * index + 1]);
    return mac;
}

void check_device_file(std::string text) {
    FILE *file = fmemopen(text.data(), text.size(), "r");
    fuzz::require(file != nullptr);
    Mac mac{};
    const bool found = bri::client::read_device_mac(file, mac);
    std::fclose(file);
    fuzz::require((found ? MaybeMac(mac) : MaybeMac()) == plain_device_mac(text));
}

// The reader gets what one read gave: no terminator behind it.
void check_mac_text(const std::string &text) {
    const auto block = std::make_unique<char[]>(text.size());
    std::memcpy(block.get(), text.data(), text.size());
    Mac mac{};
    const bool found = bri::client::parse_mac_text(block.get(), text.size(), mac);
    fuzz::require((found ? MaybeMac(mac) : MaybeMac()) == plain_mac_text(text));
}

} // namespace

void printk_syslog_ext(int, const char *, const char *, int, const char *, ...) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    check_device_file(text);
    check_mac_text(text);
    return 0;
}
