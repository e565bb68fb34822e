// The plain forms that the library's paths are held against: nothing decided, nothing counted, nothing logged. They are
// in a shared library of their own, so that a call of them costs what a call of the library does.
#pragma once

#include <bridge/bridge.h>

#include <sys/types.h>

namespace bench {

inline bool has_bit(const uint32_t *words, unsigned bit) {
    return (words[bit >> 5] >> (bit & 31U) & 1U) != 0;
}

// How a port block carries a VLAN of which the port is a member.
inline uint32_t rule_of(const spcb &port, uint16_t vid) {
    const bool native = port.default_vid == vid;
    if (port.mode == BRI_PORT_UPLINK)
        return BRI_TAG_TAGGED;
    if (port.mode == BRI_PORT_TRUNK)
        return native ? BRI_TAG_UNTAGGED : BRI_TAG_TAGGED;
    if (port.mode == BRI_PORT_HYBRID && !native && has_bit(port.tag_vlan.words, vid))
        return BRI_TAG_TAGGED;
    return BRI_TAG_UNTAGGED;
}

} // namespace bench

#pragma GCC visibility push(default)
extern "C" {

// With the checks of the library's own: the table, the ids' ranges, the presence of the VLAN, of the port for its rule.
int bare_is_member(const struct vle *vlans, uint16_t vid, int32_t ifx);
int bare_tag_rule(const struct vle *vlans, const struct spcb *ports, int32_t ifx, uint16_t vid);

// Handlers in a list.
struct bare_handler {
    struct bare_handler *next;
    struct event_set set;
    bri_event_handler func;
};
void bare_dispatch(const struct bare_handler *first, const struct bri_msg_hdr *message);

// Appends a message to a batch, whose header is kept up.
void bare_append(uint8_t *batch, uint32_t type, const void *payload, uint32_t len);

// Reads one batch, header and body, splits it and calls for each message. Its messages; 0 when the stream has ended.
uint32_t bare_receive(int fd, uint8_t *buffer, bri_event_handler call);
}
#pragma GCC visibility pop
