#include "wire/batch.h"

#include "wire/text.h"
#include "wire/value.h"

#include <algorithm>

namespace wire {

namespace {

void swap_record(const Record &record, std::span<uint8_t> bytes) {
    for (const Field &field : record.fields) {
        const size_t end = std::min(field.offset + field.width, bytes.size());
        for (size_t at = field.offset; at < end; at += field.element) {
            const auto own = bytes.subspan(at, std::min(field.element, end - at));
            if (field.record != nullptr)
                swap_record(*field.record, own);
            else if (own.size() == field.element)
                std::ranges::reverse(own);
        }
    }
}

void add_places(const Record &record, size_t base, std::vector<uint32_t> &places) {
    for (const Field &field : record.fields)
        for (size_t at = base + field.offset; at < base + field.offset + field.width; at += field.element) {
            if (field.record != nullptr) {
                add_places(*field.record, at, places);
                continue;
            }
            for (size_t i = 0; i < field.element; ++i)
                places[at + i] = static_cast<uint32_t>(at + field.element - 1 - i);
        }
}

void swap_header(std::span<uint8_t> bytes) {
    swap_record(record_of<bri_msg_hdr>(), bytes.first(std::min(bytes.size(), sizeof(bri_msg_hdr))));
}

void append(Buffer &bytes, uint32_t first, uint32_t second, Order order) {
    const size_t at = bytes.size();
    bytes.resize(at + 2 * sizeof(uint32_t));
    store(bytes, at, sizeof first, order, first);
    store(bytes, at + sizeof first, sizeof second, order, second);
}

} // namespace

bool Batch::sound() const {
    return size == sizeof(bri_batch_hdr) + msg_len && messages.size() == msg_cnt && rest.empty() &&
           (messages.empty() || messages.back().whole());
}

Batch split(Bytes bytes, Order order) {
    constexpr size_t kWord = sizeof(uint32_t);
    Batch batch;
    batch.rest = bytes;
    batch.size = bytes.size();
    if (bytes.size() < sizeof(bri_batch_hdr))
        return batch;
    batch.msg_len = load(bytes, 0, kWord, order);
    batch.msg_cnt = load(bytes, kWord, kWord, order);
    Bytes left = bytes.subspan(sizeof(bri_batch_hdr));
    const size_t behind = left.size() - std::min<size_t>(left.size(), batch.msg_len);
    left = left.first(left.size() - behind);
    while (batch.messages.size() < batch.msg_cnt && left.size() >= sizeof(bri_msg_hdr)) {
        const uint32_t announced = load(left, kWord, kWord, order);
        const Bytes payload = left.subspan(sizeof(bri_msg_hdr));
        batch.messages.push_back(
            {load(left, 0, kWord, order), payload.first(std::min<size_t>(payload.size(), announced)), announced});
        left = payload.subspan(batch.messages.back().payload.size());
    }
    batch.rest = {left.data(), left.size() + behind};
    return batch;
}

Buffer join(const std::vector<Message> &messages, Order order) {
    size_t length = 0;
    for (const Message &message : messages)
        length += sizeof(bri_msg_hdr) + message.payload.size();
    Buffer bytes;
    bytes.reserve(sizeof(bri_batch_hdr) + length);
    append(bytes, static_cast<uint32_t>(length), static_cast<uint32_t>(messages.size()), order);
    for (const Message &message : messages) {
        append(bytes, message.type, static_cast<uint32_t>(message.payload.size()), order);
        bytes.insert(bytes.end(), message.payload.begin(), message.payload.end());
    }
    return bytes;
}

std::vector<std::string> batch_text(Bytes bytes, Direction direction, Order order) {
    const Batch batch = split(bytes, order);
    std::vector<std::string> lines;
    for (const Message &message : batch.messages)
        lines.push_back(message_text(message.type, direction, message.payload, order));
    if (bytes.size() != sizeof(bri_batch_hdr) + batch.msg_len)
        lines.push_back("! msg_len=" + std::to_string(batch.msg_len) + " in a batch of " +
                        std::to_string(bytes.size()) + " bytes");
    if (batch.msg_cnt != batch.messages.size())
        lines.push_back("! msg_cnt=" + std::to_string(batch.msg_cnt) + " in front of " +
                        std::to_string(batch.messages.size()) + " messages");
    if (!batch.messages.empty() && !batch.messages.back().whole())
        lines.push_back("! len=" + std::to_string(batch.messages.back().announced) + " in front of " +
                        std::to_string(batch.messages.back().payload.size()) + " bytes");
    if (!batch.rest.empty())
        lines.push_back("! rest=" + hex_text(batch.rest));
    return lines;
}

void swap(const Payload &payload, std::span<uint8_t> bytes) {
    if (payload.record == nullptr)
        return;
    const size_t size = payload.shape == Shape::kRun ? payload.record->size : bytes.size();
    for (; !bytes.empty(); bytes = bytes.subspan(std::min(size, bytes.size())))
        swap_record(*payload.record, bytes.first(std::min(size, bytes.size())));
}

void swap_batch(std::span<uint8_t> bytes, Direction direction, Order order) {
    const Batch batch = split(bytes, order);
    swap_header(bytes);
    for (const Message &message : batch.messages) {
        const auto at = static_cast<size_t>(message.payload.data() - bytes.data());
        swap_header(bytes.subspan(at - sizeof(bri_msg_hdr)));
        swap(payload_of(message.type, direction), bytes.subspan(at, message.payload.size()));
    }
}

std::vector<uint32_t> swapped_places(const Record &record) {
    std::vector<uint32_t> places(record.size);
    add_places(record, 0, places);
    return places;
}

} // namespace wire
