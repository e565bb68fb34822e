// Batches of messages on the server socket: building the ones that go out, splitting the ones that come in.
#pragma once

#include "base/message.h"

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct evbuffer;

namespace sandbox {

using bri::Bytes;
// Sends an event to the clients that registered it.
using Announce = std::function<void(uint32_t type, Bytes payload)>;

template <class Record> Bytes bytes_of(const Record &record) {
    return {reinterpret_cast<const uint8_t *>(&record), sizeof record};
}

// One batch as it goes on the wire.
class Batch {
  public:
    Batch();

    // False when the message does not fit any more; the batch is then unchanged.
    bool add(uint32_t type, Bytes payload = {});

    [[nodiscard]] bool empty() const;
    [[nodiscard]] uint32_t messages() const;
    [[nodiscard]] Bytes bytes() const { return {bytes_.data(), bytes_.size()}; }

  private:
    std::vector<uint8_t> bytes_;
};

// What stands at the front of a client's input.
struct Incoming {
    enum class State {
        kIncomplete, // wait for more bytes
        kComplete,   // a batch of `size` bytes
        kOversized   // a header that announces more than a batch may hold
    };
    State state;
    size_t size;
};
Incoming peek_batch(evbuffer *input);

// Walks over a whole batch, header included.
bri::MessageIterator messages_of(bri::MutableBytes batch);

// "0a1b2c" as bytes; blanks between the digit pairs are skipped. Throws std::invalid_argument for anything else.
std::vector<uint8_t> parse_hex(const std::string &text);
std::string to_hex(Bytes bytes);

} // namespace sandbox
