// Bytes of a peer and numbers in them, in either byte order.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <vector>

namespace wire {

using Bytes = std::span<const uint8_t>;
using Buffer = std::vector<uint8_t>;

enum class Order : uint8_t { kNative, kBig, kLittle };

[[nodiscard]] inline bool is_big(Order order) {
    return order == Order::kNative ? std::endian::native == std::endian::big : order == Order::kBig;
}

// A number of 1, 2 or 4 bytes; the caller has seen to it that they are there.
[[nodiscard]] inline uint32_t load(Bytes bytes, size_t at, size_t width, Order order) {
    uint32_t value = 0;
    for (size_t i = 0; i < width; ++i)
        value = value << 8 | bytes[at + (is_big(order) ? i : width - 1 - i)];
    return value;
}
inline void store(std::span<uint8_t> bytes, size_t at, size_t width, Order order, uint32_t value) {
    for (size_t i = 0; i < width; ++i)
        bytes[at + (is_big(order) ? width - 1 - i : i)] = static_cast<uint8_t>(value >> 8 * i);
}

// The bytes of an object. Objects are in the machine's own order.
template <class T> [[nodiscard]] Bytes bytes_of(const T &object) {
    return {reinterpret_cast<const uint8_t *>(&object), sizeof object};
}
// Not as an insertion, in whose growing an optimising compiler sees what is not there.
inline void append(Buffer &to, Bytes bytes) {
    const size_t at = to.size();
    to.resize(at + bytes.size());
    if (!bytes.empty())
        std::memcpy(to.data() + at, bytes.data(), bytes.size());
}
// An object from the front of bytes that may be unaligned, short or long; what is missing is 0.
template <class T> [[nodiscard]] T object_of(Bytes bytes) {
    T object{};
    if (!bytes.empty()) // without bytes there may be no address either
        std::memcpy(&object, bytes.data(), bytes.size() < sizeof object ? bytes.size() : sizeof object);
    return object;
}

} // namespace wire
