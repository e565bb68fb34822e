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

// Splits a batch: take() gives the message at the running offset and steps behind it, as long as a whole one lies
// there. cut() tells that a message was announced that does not lie whole inside the batch.
class MessageIterator {
  public:
    MessageIterator(MutableBytes messages, uint32_t count) : rest_(messages), count_(count) {}

    [[nodiscard]] bool take(Message &message) {
        if (!holds_header())
            return false;
        const auto header = load_as<bri_msg_hdr>(rest_.data);
        if (!holds_payload(header))
            return false;
        message = {header, {rest_.data + sizeof header, header.len}};
        rest_ = {message.payload.data + header.len, rest_.size - sizeof header - header.len};
        --count_;
        return true;
    }

    [[nodiscard]] bool cut() const {
        return count_ != 0 && rest_.size != 0 && !(holds_header() && holds_payload(load_as<bri_msg_hdr>(rest_.data)));
    }

    [[nodiscard]] uint32_t left() const { return count_; } // messages that were announced and not taken

  private:
    [[nodiscard]] bool holds_header() const { return count_ != 0 && rest_.size >= sizeof(bri_msg_hdr); }
    // Behind its header. Nothing is added, so that nothing wraps.
    [[nodiscard]] bool holds_payload(const bri_msg_hdr &header) const {
        return header.len <= rest_.size - sizeof header;
    }

    MutableBytes rest_;
    uint32_t count_;
};

} // namespace bri
