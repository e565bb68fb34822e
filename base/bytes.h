// Bytes that came from a peer: a view that carries its length, and unaligned loads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace bri {

struct Bytes {
    const uint8_t *data = nullptr;
    size_t size = 0;

    [[nodiscard]] Bytes from(size_t offset) const {
        return offset <= size ? Bytes{data + offset, size - offset} : Bytes{};
    }
    [[nodiscard]] bool holds(size_t offset, size_t length) const { return offset <= size && length <= size - offset; }
};

// The same where who is handed them may write to them.
struct MutableBytes {
    uint8_t *data = nullptr;
    size_t size = 0;

    operator Bytes() const {
        return {data, size};
    } // NOLINT(google-explicit-constructor): what may be written may be read
    [[nodiscard]] MutableBytes from(size_t offset) const {
        return offset <= size ? MutableBytes{data + offset, size - offset} : MutableBytes{};
    }
};

// A value at an address that may be unaligned.
template <class T> [[nodiscard]] inline T load_as(const void *address) {
    T value;
    std::memcpy(&value, address, sizeof value);
    return value;
}

// A value at an offset of a view; zero where the view is too short, also partly.
template <class T> [[nodiscard]] inline T load_at(Bytes bytes, size_t offset) {
    T value{};
    if (bytes.holds(offset, sizeof value))
        std::memcpy(&value, bytes.data + offset, sizeof value);
    return value;
}

} // namespace bri
