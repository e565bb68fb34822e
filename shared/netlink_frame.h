// Netlink framing, built and parsed here only.
//
//     0         16        20          24
//     +---------+---------+-----------+----------------+-----+
//     | nlmsghdr| genlmsg | nlattr    | payload        | pad |
//     |         | hdr     | len, type |                |     |
//     +---------+---------+-----------+----------------+-----+
//
// A request carries exactly one attribute. A data payload is the caller's message type, the length of its data and the
// data. All integers are in host byte order.
#pragma once

#include "base/bytes.h"

#include <cstddef>
#include <cstdint>
#include <linux/genetlink.h>
#include <linux/netlink.h>

namespace bri::netlink {

inline constexpr size_t kAttrOffset = sizeof(nlmsghdr) + sizeof(genlmsghdr);
inline constexpr size_t kPayloadOffset = kAttrOffset + sizeof(nlattr);
static_assert(kAttrOffset == 20 && kPayloadOffset == 24);

inline constexpr size_t kPayloadArea = 19996; // a request's payload with its padding
inline constexpr size_t kFrameMax = kPayloadOffset + kPayloadArea;
static_assert(kFrameMax == 20020);

// Data payload: header and the most data that still fits with its padding. One byte less than the area suggests, since
// nla_len is one more than header and payload.
struct DataHeader {
    int32_t type; // the caller's message type
    uint32_t len; // bytes of data behind this header
};
inline constexpr uint32_t kDataMax = 19987;

[[nodiscard]] constexpr size_t padded(size_t length) {
    return (length + NLA_ALIGNTO - 1) / NLA_ALIGNTO * NLA_ALIGNTO;
}

// One request in a fixed buffer of its own; only the bytes that are sent are ever written.
class Request {
  public:
    // False, and nothing to send, when the payload does not fit.
    [[nodiscard]] bool build(uint16_t message_type, uint16_t attr_type, Bytes payload);
    [[nodiscard]] Bytes bytes() const { return {bytes_, size_}; }

  private:
    uint8_t bytes_[kFrameMax];
    size_t size_ = 0;
};

// Attributes that lie back to back: ok() while one lies whole in the remaining bytes, next() steps behind it.
class AttrIterator {
  public:
    explicit AttrIterator(Bytes attributes) : left_(attributes) {}

    [[nodiscard]] bool ok() const { return length() >= sizeof(nlattr) && left_.holds(0, length()); }
    [[nodiscard]] uint16_t type() const { return load_at<nlattr>(left_, 0).nla_type; }
    [[nodiscard]] Bytes payload() const { return {left_.data + sizeof(nlattr), length() - sizeof(nlattr)}; }
    void next() { left_ = left_.from(padded(length())); }

  private:
    [[nodiscard]] size_t length() const { return load_at<nlattr>(left_, 0).nla_len; }

    Bytes left_;
};

// A received message. Fields that did not arrive read as zero.
class Message {
  public:
    explicit Message(Bytes received) : bytes_(received) {}

    [[nodiscard]] uint32_t length() const { return header().nlmsg_len; }
    [[nodiscard]] uint16_t type() const { return header().nlmsg_type; }
    [[nodiscard]] uint8_t command() const { return load_at<genlmsghdr>(bytes_, sizeof(nlmsghdr)).cmd; }
    // The word behind the netlink header: the negative error number of an error message.
    [[nodiscard]] int32_t error() const { return load_at<int32_t>(bytes_, sizeof(nlmsghdr)); }
    // All that the message announces has arrived, and it holds at least an attribute header.
    [[nodiscard]] bool whole() const { return length() >= kPayloadOffset && length() <= bytes_.size; }
    // Attributes of a whole message.
    [[nodiscard]] AttrIterator attributes() const {
        return AttrIterator({bytes_.data + kAttrOffset, length() - kAttrOffset});
    }

  private:
    [[nodiscard]] nlmsghdr header() const { return load_at<nlmsghdr>(bytes_, 0); }

    Bytes bytes_;
};

// The id that the controller's answer gives for the named family: the first attribute must be the name, the second the
// id. 0 for any other message.
[[nodiscard]] uint16_t family_id_in(Bytes answer, const char *name);

// The request that asks the controller for a family. The name's terminating NUL is part of the payload.
[[nodiscard]] bool build_resolution(Request &request, const char *name);

} // namespace bri::netlink
