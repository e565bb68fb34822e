// Bytes as tests hold, build and read them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

namespace test {

using ByteVec = std::vector<uint8_t>;

// A value in host byte order at an offset of some bytes.
template <class T> T value_at(const void *bytes, size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const uint8_t *>(bytes) + offset, sizeof value);
    return value;
}
template <class T> void put_at(void *bytes, size_t offset, T value) {
    std::memcpy(static_cast<uint8_t *>(bytes) + offset, &value, sizeof value);
}

// The bytes of a record, for comparing whole payloads.
template <class T> ByteVec bytes_of(const T &record) {
    ByteVec bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

// A record put together by offset; what is not put is zero.
struct Bytes : ByteVec {
    explicit Bytes(size_t size) : ByteVec(size) {}
    template <class T> Bytes &put(size_t offset, T value) {
        put_at(data(), offset, value);
        return *this;
    }
    Bytes &put(size_t offset, const ByteVec &value) {
        std::copy(value.begin(), value.end(), begin() + static_cast<std::ptrdiff_t>(offset));
        return *this;
    }
    Bytes &text(size_t offset, const char *value) {
        std::memcpy(data() + offset, value, std::strlen(value));
        return *this;
    }
};

} // namespace test
