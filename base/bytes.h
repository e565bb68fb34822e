// Bytes that came from a peer: a view that carries its length, unaligned loads, and the one iterator over messages that
// lie back to back.
#pragma once

#include <bridge/events.h>

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

// Splits a batch: ok() while a whole message lies at the running offset, next() steps behind it. cut() tells that a
// message was announced that does not lie whole inside the batch.
class MessageIterator {
  public:
    MessageIterator(Bytes messages, uint32_t count) : left_(messages), count_(count) {}

    [[nodiscard]] bool ok() const { return more() && left_.holds(0, whole_size()); }
    [[nodiscard]] bool cut() const { return more() && !left_.holds(0, whole_size()); }

    [[nodiscard]] bri_msg_hdr header() const { return load_as<bri_msg_hdr>(left_.data); }
    [[nodiscard]] const uint8_t *message() const { return left_.data; }
    [[nodiscard]] Bytes payload() const { return {left_.data + sizeof(bri_msg_hdr), header().len}; }

    void next() {
        left_ = left_.from(whole_size());
        --count_;
    }

  private:
    [[nodiscard]] bool more() const { return count_ != 0 && left_.size != 0; }
    // Header and payload, without wrapping on 32-bit machines; a header that is itself cut counts as too long.
    [[nodiscard]] size_t whole_size() const {
        if (left_.size < sizeof(bri_msg_hdr))
            return SIZE_MAX;
        const uint32_t len = header().len;
        return len > BRI_BATCH_MSG_MAX ? SIZE_MAX : sizeof(bri_msg_hdr) + len;
    }

    Bytes left_;
    uint32_t count_;
};

} // namespace bri
