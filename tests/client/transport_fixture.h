// A client that went through the library's own start-up, and what tests of its connection share.
#pragma once

#include "client/transport.h"
#include "tests/support/started_host.h"

#include <algorithm>
#include <sys/socket.h>

namespace test {

// The whole registration message of this context, byte by byte.
inline ByteVec registration_of(const bri_clnt_ctx &ctx, uint8_t fresh) {
    ByteVec bytes(544);
    std::memcpy(bytes.data(), ctx.event_set.words, 512);
    bytes[512] = 1;
    put_at(bytes.data(), 516, ctx.pid);
    std::memcpy(bytes.data() + 520, ctx.name, 20);
    bytes[540] = fresh;
    return bytes;
}

class Transport : public StartedHost {
  protected:
    static constexpr uint32_t kPlain = VLAN_EVENT_CREATE_INDEX; // waits for the timer
    static constexpr uint32_t kUrgent = MAC_EVENT_DYN_FLUSH;    // does not

    // Started under this name; the kernel channel counts as set up.
    static bri_clnt_ctx &start(const char *name = "unit") {
        StartedHost::start(name);
        ctx().nl_ready = 1;
        return ctx();
    }
    // The same with a socket pair in the server connection's place.
    static Peer start_paired(const char *name = "unit") {
        start(name);
        return attach_pair();
    }
    // The same with a server, connected and registered; the registration is read.
    static Peer start_connected(const Server &server, const char *name = "unit") {
        start(name);
        EXPECT_EQ(loop().run("bri-conn"), 0);
        Peer peer = server.accept();
        EXPECT_TRUE(peer.read_batch().has_value());
        return peer;
    }

    static int send(uint32_t type, const ByteVec &payload) {
        return bridge_client_send_message(payload.data(), static_cast<uint32_t>(payload.size()), type);
    }
    static int send_ontime(uint32_t type, const ByteVec &payload) {
        return bridge_client_send_message_ontime(payload.data(), static_cast<uint32_t>(payload.size()), type);
    }
    static int tick() { return loop().run("bri-msg-timer"); }

    // The whole send batch buffer as it is now.
    static ByteVec send_buffer() {
        return {bri::client::g_bglib_sendbuf, bri::client::g_bglib_sendbuf + BRI_BATCH_BUFFER_SIZE};
    }
    static bool batch_is_empty() {
        return value_at<uint32_t>(bri::client::g_bglib_sendbuf, 0) == 0 &&
               value_at<uint32_t>(bri::client::g_bglib_sendbuf, 4) == 0;
    }
    static ByteVec receive_buffer() { return {g_bglib_recvbuf, g_bglib_recvbuf + BRI_BATCH_BUFFER_SIZE}; }
    static bool all_zero(const ByteVec &bytes) {
        return std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; });
    }

    // The sizes and written counts of the cached runs, oldest first.
    struct Cached {
        uint32_t size;
        uint32_t written;
        bool operator==(const Cached &) const = default;
    };
    static std::vector<Cached> cached() {
        std::vector<Cached> all;
        for (bri_list *link = ctx().cache.next; link != &ctx().cache; link = link->next) {
            const auto &run = *reinterpret_cast<bri::client::Run *>(link);
            all.push_back({run.size, run.written});
        }
        EXPECT_EQ(all.size(), ctx().cache_cnt);
        return all;
    }
};

// What the sockets of the library do next: each entry is the number of bytes that one attempt moves, or a failure as a
// negative errno. When the script is used up every attempt moves everything.
class Script {
  public:
    Script &operator=(const std::vector<int> &steps) {
        const faults::Pause pause;
        steps_ = steps;
        next_ = 0;
        return *this;
    }
    void clear() { *this = std::vector<int>(); }
    // One attempt to move `size` bytes; entries of 0 and failures do not reach the socket.
    template <class Move> ssize_t step(size_t size, Move &&move) {
        if (next_ == steps_.size())
            return move(size);
        const int step = steps_[next_++];
        if (step > 0)
            return move(std::min(size, static_cast<size_t>(step)));
        if (step < 0)
            errno = -step;
        return step < 0 ? -1 : 0;
    }
    [[nodiscard]] bool used_up() const { return next_ == steps_.size(); }

  private:
    std::vector<int> steps_;
    size_t next_ = 0;
};

inline ByteVec bytes_of(const msghdr &message) {
    ByteVec bytes;
    for (const iovec *part = message.msg_iov; part != message.msg_iov + message.msg_iovlen; ++part) {
        const auto *first = static_cast<const uint8_t *>(part->iov_base);
        bytes.insert(bytes.end(), first, first + part->iov_len);
    }
    return bytes;
}

// Puts `script` in the place of send() and of sendmsg().
inline void script_sends(Script &script) {
    faults::hooks.send = [&script](int fd, const void *data, size_t size, int flags) {
        return script.step(size, [&](size_t part) { return faults::real_send(fd, data, part, flags); });
    };
    faults::hooks.sendmsg = [&script](int fd, const msghdr *message, int flags) {
        const faults::Pause pause;
        const ByteVec bytes = bytes_of(*message);
        return script.step(bytes.size(), [&](size_t part) { return faults::real_send(fd, bytes.data(), part, flags); });
    };
}
inline void script_reads(Script &script) {
    faults::hooks.read = [&script](int fd, void *data, size_t size) {
        return script.step(size, [&](size_t part) { return faults::real_read(fd, data, part); });
    };
}

} // namespace test
