// Small text helpers: bounded copies that always terminate, numbers that saturate.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace bri {

// Copies at most size - 1 characters and terminates; the rest of dst is zero.
inline void copy_text(char *dst, size_t size, const char *src) {
    const size_t length = strnlen(src, size - 1);
    std::memcpy(dst, src, length);
    std::memset(dst + length, 0, size - length);
}
template <size_t N> inline void copy_text(char (&dst)[N], const char *src) {
    copy_text(dst, N, src);
}

// What atoi gives, saturated to 32 bits. `end`, when given, becomes the first character that was not read: `text`
// itself when there is no number.
[[nodiscard]] inline int32_t parse_int(const char *text, char **end = nullptr) {
    const long long value = std::strtoll(text, end, 10);
    if (value > INT32_MAX)
        return INT32_MAX;
    if (value < INT32_MIN)
        return INT32_MIN;
    return static_cast<int32_t>(value);
}

} // namespace bri
