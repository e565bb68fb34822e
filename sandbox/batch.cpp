#include "sandbox/batch.h"

#include <event2/buffer.h>

#include <cctype>
#include <stdexcept>

namespace sandbox {

namespace {

void append(std::vector<uint8_t> &bytes, const void *data, size_t size) {
    const auto *begin = static_cast<const uint8_t *>(data);
    bytes.insert(bytes.end(), begin, begin + size);
}

int digit_value(char digit) {
    if (std::isdigit(static_cast<unsigned char>(digit)) != 0)
        return digit - '0';
    return std::tolower(digit) - 'a' + 10;
}

} // namespace

Batch::Batch() : bytes_(sizeof(bri_batch_hdr)) {}

bool Batch::add(uint32_t type, Bytes payload) {
    auto header = bri::load_as<bri_batch_hdr>(bytes_.data());
    const size_t size = sizeof(bri_msg_hdr) + payload.size;
    if (payload.size > BRI_PAYLOAD_MAX || size > BRI_BATCH_MSG_MAX - header.msg_len)
        return false;
    const bri_msg_hdr message{type, static_cast<uint32_t>(payload.size)};
    append(bytes_, &message, sizeof message);
    if (payload.size != 0)
        append(bytes_, payload.data, payload.size);
    header.msg_len += static_cast<uint32_t>(size);
    header.msg_cnt += 1;
    std::memcpy(bytes_.data(), &header, sizeof header);
    return true;
}

bool Batch::empty() const {
    return bytes_.size() == sizeof(bri_batch_hdr);
}

uint32_t Batch::messages() const {
    return bri::load_as<bri_batch_hdr>(bytes_.data()).msg_cnt;
}

Incoming peek_batch(evbuffer *input) {
    bri_batch_hdr header;
    if (evbuffer_copyout(input, &header, sizeof header) < static_cast<ssize_t>(sizeof header))
        return {Incoming::State::kIncomplete, 0};
    if (header.msg_len > BRI_BATCH_MSG_MAX)
        return {Incoming::State::kOversized, header.msg_len};
    const size_t size = sizeof header + header.msg_len;
    const bool complete = evbuffer_get_length(input) >= size;
    return {complete ? Incoming::State::kComplete : Incoming::State::kIncomplete, size};
}

bri::MessageIterator messages_of(bri::MutableBytes batch) {
    const auto header = bri::load_at<bri_batch_hdr>(batch, 0);
    return {batch.from(sizeof header), header.msg_cnt};
}

std::vector<uint8_t> parse_hex(const std::string &text) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < text.size();) {
        if (std::isspace(static_cast<unsigned char>(text[i])) != 0) {
            ++i;
            continue;
        }
        if (i + 1 >= text.size() || std::isxdigit(static_cast<unsigned char>(text[i])) == 0 ||
            std::isxdigit(static_cast<unsigned char>(text[i + 1])) == 0)
            throw std::invalid_argument("not hexadecimal bytes: " + text);
        bytes.push_back(static_cast<uint8_t>(digit_value(text[i]) << 4 | digit_value(text[i + 1])));
        i += 2;
    }
    return bytes;
}

std::string to_hex(Bytes bytes) {
    constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < bytes.size; ++i) {
        text += digits[bytes.data[i] >> 4];
        text += digits[bytes.data[i] & 15];
    }
    return text;
}

} // namespace sandbox
