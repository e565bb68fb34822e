// Double of the bridge server: listens where a client connects, reads whole batches, writes any bytes, closes at will.
// Everything here runs under faults::Pause, so that armed failures and hooks hit the library alone.
#pragma once

#include "tests/support/bytes.h"

#include <bridge/events.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace test {

struct Message {
    uint32_t type = 0;
    ByteVec payload;
    bool operator==(const Message &) const = default;
};

// One batch as it lies on the socket, header included.
struct Batch {
    ByteVec bytes;

    [[nodiscard]] uint32_t msg_len() const;
    [[nodiscard]] uint32_t msg_cnt() const;
    // The messages; empty when they do not fill msg_len and msg_cnt exactly.
    [[nodiscard]] std::vector<Message> messages() const;
    [[nodiscard]] std::vector<uint32_t> types() const;
};

// The bytes of a batch of these messages; `len` and `cnt` overrule the header's words.
ByteVec batch_of(const std::vector<Message> &messages, std::optional<uint32_t> len = {},
                 std::optional<uint32_t> cnt = {});
// Hands a message to one entry of the library from an exact copy on the heap, one byte off every alignment.
template <class Entry> void deliver(Entry &&entry, uint32_t type, const ByteVec &payload = {}) {
    ByteVec copy(1 + sizeof(bri_msg_hdr) + payload.size());
    put_at(copy.data(), 1, type);
    put_at(copy.data(), 5, static_cast<uint32_t>(payload.size()));
    std::copy(payload.begin(), payload.end(), copy.begin() + 1 + sizeof(bri_msg_hdr));
    entry(reinterpret_cast<bri_msg_hdr *>(copy.data() + 1));
}
// `size` bytes that differ from their neighbours and from zero.
ByteVec pattern(size_t size, unsigned seed = 1);
ByteVec operator+(ByteVec left, const ByteVec &right);
// The bytes from `first` on, before `last`.
ByteVec part_of(const ByteVec &bytes, size_t first, size_t last = SIZE_MAX);

// The far end of one connection.
class Peer {
  public:
    Peer() = default;
    explicit Peer(int fd) : fd_(fd) {}
    ~Peer();
    Peer(Peer &&other) noexcept;
    Peer &operator=(Peer &&other) noexcept;

    [[nodiscard]] bool open() const { return fd_ >= 0; }
    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] bool readable(int timeout_ms = 0) const;
    // The next batch, waiting for its bytes; nothing at the end of the stream or when it does not come.
    [[nodiscard]] std::optional<Batch> read_batch(int timeout_ms = 2000);
    // Batches until nothing more is there.
    [[nodiscard]] std::vector<Batch> read_batches();
    // The messages of all of them.
    [[nodiscard]] std::vector<Message> read_messages();
    // What is there now.
    [[nodiscard]] ByteVec read_now();
    // Whether the far side ended the stream and nothing is left to read.
    [[nodiscard]] bool ended(int timeout_ms = 2000);
    void write(const ByteVec &bytes) const;
    void send(const std::vector<Message> &messages) const { write(batch_of(messages)); }
    void close();

  private:
    bool read_whole(ByteVec &into, size_t size, int timeout_ms) const;
    int fd_ = -1;
};

class Server {
  public:
    // Listens below TMPDIR as it is now; `backlog` connections wait to be accepted.
    explicit Server(int backlog = 128);
    ~Server();
    Server(const Server &) = delete;
    Server &operator=(const Server &) = delete;

    [[nodiscard]] static std::string directory();
    [[nodiscard]] static std::string path();
    [[nodiscard]] int fd() const { return fd_; }
    // The next connection; a peer that is not open when none comes.
    [[nodiscard]] Peer accept(int timeout_ms = 2000) const;
    // Stops listening and removes the path, as a killed server that is cleaned up.
    void stop();

  private:
    int fd_ = -1;
};

// A socket pair whose near end stands for the server socket of the context, connected.
Peer attach_pair();

} // namespace test
