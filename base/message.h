// A message of the server, from the receive buffer to the entry of the subsystem that owns it, and the iterator that
// finds the messages of a batch.
#pragma once

#include "base/bytes.h"

#include <bridge/events.h>

namespace bri {

[[nodiscard]] constexpr uint32_t submod_of(uint32_t type) {
    return type >> 7;
}

// Messages in a batch are not aligned: the header is a copy, the payload is bytes. Nobody reads behind them; handlers
// may write to them.
struct Message {
    bri_msg_hdr header{};
    MutableBytes payload; // header.len bytes

    [[nodiscard]] uint32_t type() const { return header.type; }
};

// The message that a caller of the interface points at; the length in its header is the caller's word. Who was given a
// const pointer does not write.
[[nodiscard]] inline Message message_at(const bri_msg_hdr *msg) {
    const auto header = load_as<bri_msg_hdr>(msg);
    auto *bytes = reinterpret_cast<uint8_t *>(const_cast<bri_msg_hdr *>(msg));
    return {header, {bytes + sizeof header, header.len}};
}

// Splits a batch: ok() while a whole message lies at the running offset, next() steps behind it. cut() tells that a
// message was announced that does not lie whole inside the batch.
class MessageIterator {
  public:
    MessageIterator(MutableBytes messages, uint32_t count) : rest_(messages), count_(count) {}

    [[nodiscard]] bool ok() const { return more() && whole_size() <= rest_.size; }
    [[nodiscard]] bool cut() const { return more() && whole_size() > rest_.size; }

    [[nodiscard]] Message message() const {
        const auto header = load_as<bri_msg_hdr>(rest_.data);
        return {header, {rest_.data + sizeof header, header.len}};
    }

    void next() {
        rest_ = rest_.from(whole_size());
        --count_;
    }

    [[nodiscard]] uint32_t left() const { return count_; } // messages that were announced and not taken

  private:
    [[nodiscard]] bool more() const { return count_ != 0 && rest_.size != 0; }
    // Header and payload, without wrapping on 32-bit machines; a header that is itself cut counts as too long.
    [[nodiscard]] size_t whole_size() const {
        if (rest_.size < sizeof(bri_msg_hdr))
            return SIZE_MAX;
        const uint32_t len = load_as<bri_msg_hdr>(rest_.data).len;
        return len > BRI_BATCH_MSG_MAX ? SIZE_MAX : sizeof(bri_msg_hdr) + len;
    }

    MutableBytes rest_;
    uint32_t count_;
};

} // namespace bri
