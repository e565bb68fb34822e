#include "bench/bare.h"

#include <cstring>
#include <unistd.h>

namespace {

using bench::has_bit;

template <class T> T load(const uint8_t *at) {
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

} // namespace

int bare_is_member(const vle *vlans, uint16_t vid, int32_t ifx) {
    return vlans != nullptr && vid >= BRI_VID_MIN && vid <= BRI_VID_MAX && vlans[vid].vid != 0 && ifx > 0 &&
                   ifx < static_cast<int32_t>(BRI_PORT_SLOTS) && has_bit(vlans[vid].members, static_cast<unsigned>(ifx))
               ? 1
               : 0;
}

int bare_tag_rule(const vle *vlans, const spcb *ports, int32_t ifx, uint16_t vid) {
    if (ports == nullptr || ifx <= 0 || ifx >= static_cast<int32_t>(BRI_PORT_SLOTS) || ports[ifx].ifx == 0 ||
        bare_is_member(vlans, vid, ifx) == 0)
        return BRI_TAG_NOT_MEMBER;
    return static_cast<int>(bench::rule_of(ports[ifx], vid));
}

void bare_dispatch(const bare_handler *first, const bri_msg_hdr *message) {
    auto *payload = const_cast<bri_msg_hdr *>(message) + 1;
    for (const bare_handler *handler = first; handler != nullptr; handler = handler->next)
        if (has_bit(handler->set.words, message->type))
            handler->func(message->type, payload, static_cast<uint16_t>(message->len));
}

void bare_append(uint8_t *batch, uint32_t type, const void *payload, uint32_t len) {
    auto header = load<bri_batch_hdr>(batch);
    uint8_t *at = batch + sizeof header + header.msg_len;
    const bri_msg_hdr message{type, len};
    std::memcpy(at, &message, sizeof message);
    std::memcpy(at + sizeof message, payload, len);
    header.msg_len += static_cast<uint32_t>(sizeof message) + len;
    header.msg_cnt += 1;
    std::memcpy(batch, &header, sizeof header);
}

uint32_t bare_receive(int fd, uint8_t *buffer, bri_event_handler call) {
    if (read(fd, buffer, sizeof(bri_batch_hdr)) != static_cast<ssize_t>(sizeof(bri_batch_hdr)))
        return 0;
    const auto batch = load<bri_batch_hdr>(buffer);
    for (uint32_t done = 0; done < batch.msg_len;) {
        const ssize_t got = read(fd, buffer + done, batch.msg_len - done);
        if (got <= 0)
            return 0;
        done += static_cast<uint32_t>(got);
    }
    for (uint32_t at = 0; at < batch.msg_len;) {
        const auto header = load<bri_msg_hdr>(buffer + at);
        at += sizeof header;
        call(header.type, buffer + at, static_cast<uint16_t>(header.len));
        at += header.len;
    }
    return batch.msg_cnt;
}
