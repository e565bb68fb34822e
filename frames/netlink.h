// Messages to and from the kernel's routing netlink. What is built never runs past its message, what is read never past
// the bytes that came: the checks are libmnl's.
#pragma once

#include "sandbox/message.h"

#include <libmnl/libmnl.h>
#include <memory>
#include <optional>
#include <span>

namespace frames {

using sandbox::Buffer;
using sandbox::Bytes;
using sandbox::bytes_of;
using sandbox::object_of;

// Everything begins on such a place.
constexpr size_t aligned(size_t size) {
    return (size + 3) / 4 * 4;
}
constexpr size_t kAttributeHead = aligned(sizeof(nlattr));

// One message to the kernel, which it answers with an error number or nothing. What does not fit any more throws
// std::length_error.
class Request {
  public:
    // `head` is what stands behind the netlink header.
    template <class Head> Request(uint16_t type, uint16_t flags, const Head &head) : Request(type, flags) {
        static_assert(sizeof head <= 64);
        std::memcpy(mnl_nlmsg_put_extra_header(header(), sizeof head), &head, sizeof head);
    }

    Request &put(uint16_t type, Bytes data);
    Request &put(uint16_t type, const std::string &text); // with its NUL
    template <class Number>
    requires std::is_integral_v<Number> Request &put(uint16_t type, Number number) {
        return put(type, bytes_of(number));
    }
    // The attributes that `fill` puts are in it.
    template <class Fill> Request &nest(uint16_t type, Fill &&fill) {
        const size_t start = begin_nest(type);
        fill(*this);
        mnl_attr_nest_end(header(), reinterpret_cast<nlattr *>(data_.data() + start));
        return *this;
    }
    // Whether that many more attributes with so much data have room.
    [[nodiscard]] bool has_room(size_t attributes, size_t data) const;

    [[nodiscard]] Bytes bytes() const { return {data_.data(), header()->nlmsg_len}; }

  private:
    static constexpr size_t kMost = 8192;

    Request(uint16_t type, uint16_t flags);
    size_t begin_nest(uint16_t type);
    [[nodiscard]] nlmsghdr *header() { return reinterpret_cast<nlmsghdr *>(data_.data()); }
    [[nodiscard]] const nlmsghdr *header() const { return reinterpret_cast<const nlmsghdr *>(data_.data()); }

    Buffer data_;
};
using Requests = std::vector<Request>;

// Calls fn(type, data) for each attribute of a run that is whole.
template <class Fn> void for_each_attribute(Bytes run, Fn &&fn) {
    const auto *attribute = reinterpret_cast<const nlattr *>(run.data());
    for (auto left = static_cast<int>(run.size()); mnl_attr_ok(attribute, left);
         left -= static_cast<int>(aligned(attribute->nla_len)), attribute = mnl_attr_next(attribute))
        fn(mnl_attr_get_type(attribute),
           Bytes(static_cast<const uint8_t *>(mnl_attr_get_payload(attribute)), mnl_attr_get_payload_len(attribute)));
}
std::string text_of(Bytes attribute); // up to its NUL

// A message from the kernel: its type, the fixed part and the attributes behind it.
struct Notice {
    uint16_t type;
    Bytes body;
    bool interrupted = false; // what is being listed has changed meanwhile

    template <class Head> [[nodiscard]] Head head() const { return object_of<Head>(body); }
    template <class Head, class Fn> void for_each(Fn &&fn) const {
        if (body.size() > aligned(sizeof(Head)))
            for_each_attribute(body.subspan(aligned(sizeof(Head))), fn);
    }
};
using Take = std::function<void(const Notice &)>;

// Splits what one read gave; messages that answer another request than that one are passed over, with 0 none is.
// Nothing when more is to come, else what has ended it: 0 at the end of a list or when a request has been done, a
// system error number, EBADMSG where the run is broken.
std::optional<int> for_each_notice(Bytes run, uint32_t sequence, const Take &take);

// A socket of the routing netlink. All throw std::runtime_error when the socket itself fails.
class Channel {
  public:
    explicit Channel(std::span<const unsigned> groups = {});

    [[nodiscard]] int descriptor() const { return mnl_socket_get_fd(socket_.get()); }
    // What the kernel says of it: 0 or a system error number.
    int ask(const Request &request) {
        return answer(request, [](const Notice &) {});
    }
    // Everything that the kernel lists for it, or nothing of it and a system error number.
    int dump(const Request &request, const Take &take);
    // What has come, until nothing is left. False when some of it is lost.
    bool drain(const Take &take);

  private:
    struct Close {
        void operator()(mnl_socket *socket) const { mnl_socket_close(socket); }
    };
    void send(const Request &request);
    std::optional<Bytes> receive(int flags) const;
    int answer(const Request &request, const Take &take);

    uint32_t sequence_ = 0;
    std::unique_ptr<mnl_socket, Close> socket_;
};

} // namespace frames
