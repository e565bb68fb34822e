// Double of the kernel's generic netlink side. While it lives, AF_NETLINK sockets are SEQPACKET socket pairs, which
// keep message boundaries, peeks, short reads and receive time-outs as netlink does. The test scripts the other end;
// answers are queued before the call that sent the request returns.
#pragma once

#include "tests/support/bytes.h"
#include "tests/support/faults.h"

#include <cstdint>
#include <cstring>
#include <functional>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <string>
#include <vector>

namespace test {

using Packet = ByteVec;

// A request as it left the library.
struct KernelRequest {
    int fd = -1;
    Packet bytes;
    sockaddr_nl to{};

    [[nodiscard]] uint16_t message_type() const { return at<uint16_t>(4); }
    // Of a data request: the caller's type, its length word and the data behind it.
    [[nodiscard]] int32_t type() const { return at<int32_t>(24); }
    [[nodiscard]] uint32_t data_length() const { return at<uint32_t>(28); }
    [[nodiscard]] Packet data() const;

    template <class T> [[nodiscard]] T at(size_t offset) const {
        T value{};
        if (offset + sizeof value <= bytes.size())
            std::memcpy(&value, bytes.data() + offset, sizeof value);
        return value;
    }
};

struct KernelSocket {
    int fd = -1; // the last number that the library used for it
    ino_t inode = 0;
    int peer = -1; // the kernel's end; -1 once the library has closed its own
    int type = 0;
    int protocol = 0;
    sockaddr_nl address{};
    bool bound = false;
    timeval receive_timeout{};          // as the library set it
    bool timeout_at_resolution = false; // it was set when the first request was sent
};

class Kernel {
  public:
    Kernel();
    ~Kernel();
    Kernel(const Kernel &) = delete;
    Kernel &operator=(const Kernel &) = delete;

    uint16_t family = 27; // id of "EF_BRIDGE"; 0: there is no such family
    bool silent = false;  // answers nothing at all
    long timeout_ms = 20; // what a receive time-out really takes; 0: as the library set it
    std::function<void(const KernelRequest &)> on_resolve; // in place of the usual answer
    std::function<void(const KernelRequest &)> on_data;    // unset: data requests get no answer

    std::vector<KernelRequest> requests; // everything that was sent
    std::vector<KernelSocket> sockets;   // every socket that was opened, in order

    [[nodiscard]] std::vector<KernelRequest> data_requests() const;
    // Sockets the library has open now, and one of them by its groups (null when there is none).
    [[nodiscard]] int open_sockets() const;
    [[nodiscard]] KernelSocket *persistent();

    // Queues a datagram on a socket of the library.
    void deliver(int fd, const Packet &packet) const;
    // Answers of the usual kinds to a request.
    void answer(const KernelRequest &request, const Packet &payload) const;
    void answer_error(const KernelRequest &request, int error) const;

  private:
    void install();
    ssize_t take_request(int fd, const void *data, size_t size, const sockaddr *to, socklen_t length);
    void respond(const KernelRequest &request);
    KernelSocket *find(int fd);
};

// Messages as the kernel builds them.
Packet netlink_message(uint16_t type, uint8_t command, const Packet &attributes, uint32_t claimed_length = 0);
Packet netlink_error(int error);
Packet netlink_attr(uint16_t type, const Packet &payload);
// The controller's answer for a family.
Packet family_answer(const std::string &name, uint16_t id);

template <class T> Packet packet_of(const T &value) {
    Packet packet(sizeof value);
    std::memcpy(packet.data(), &value, sizeof value);
    return packet;
}
inline Packet operator+(Packet left, const Packet &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace test
