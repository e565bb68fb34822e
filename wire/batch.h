// Batches of messages: taken apart, put together, and turned from one byte order into the other.
#pragma once

#include "wire/bytes.h"
#include "wire/event.h"

namespace wire {

struct Message {
    uint32_t type = 0;
    Bytes payload;          // what is there of it
    uint32_t announced = 0; // its length by its header

    [[nodiscard]] bool whole() const { return payload.size() == announced; }
};

// The messages of a batch as a receiver takes them: while fewer than msg_cnt are taken and fewer than msg_len bytes
// behind the header. Only the last one can be cut. Points into the bytes that it was made of.
struct Batch {
    uint32_t msg_len = 0;
    uint32_t msg_cnt = 0;
    std::vector<Message> messages;
    Bytes rest;      // what no message takes, cut headers included
    size_t size = 0; // bytes that there were

    // As its sender meant it.
    [[nodiscard]] bool sound() const;
};
[[nodiscard]] Batch split(Bytes bytes, Order order = Order::kNative);

// A header and the messages behind it; `announced` is not looked at.
[[nodiscard]] Buffer join(const std::vector<Message> &messages, Order order = Order::kNative);

// One line a message, and one for each thing that is wrong with the batch.
[[nodiscard]] std::vector<std::string> batch_text(Bytes bytes, Direction direction, Order order = Order::kNative);

// Turns every number that is there whole; bytes that no field names stay.
void swap(const Payload &payload, std::span<uint8_t> bytes);
// The same for a batch, its headers included. `order` is the order it has before.
void swap_batch(std::span<uint8_t> bytes, Direction direction, Order order);

// The place of each byte of a record in the record of the other byte order.
[[nodiscard]] std::vector<uint32_t> swapped_places(const Record &record);

} // namespace wire
