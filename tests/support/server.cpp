#include "tests/support/server.h"

#include "tests/support/faults.h"
#include "tests/support/test.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace test {

namespace {

constexpr size_t kHeader = 8;

void append_word(ByteVec &bytes, uint32_t word) {
    const size_t at = bytes.size();
    bytes.resize(at + sizeof word);
    std::memcpy(bytes.data() + at, &word, sizeof word);
}

[[noreturn]] void fail_hard(const char *what) {
    std::perror(what);
    std::abort();
}

bool wait_readable(int fd, int timeout_ms) {
    pollfd descriptor{fd, POLLIN, 0};
    return poll(&descriptor, 1, timeout_ms) > 0;
}

} // namespace

uint32_t Batch::msg_len() const {
    return value_at<uint32_t>(bytes.data(), 0);
}
uint32_t Batch::msg_cnt() const {
    return value_at<uint32_t>(bytes.data(), 4);
}

std::vector<Message> Batch::messages() const {
    std::vector<Message> found;
    size_t at = kHeader;
    while (bytes.size() - at >= kHeader) {
        const auto type = value_at<uint32_t>(bytes.data(), at);
        const auto len = value_at<uint32_t>(bytes.data(), at + 4);
        at += kHeader;
        if (len > bytes.size() - at)
            return {};
        found.push_back({type, part_of(bytes, at, at + len)});
        at += len;
    }
    return at == bytes.size() && found.size() == msg_cnt() ? found : std::vector<Message>{};
}

std::vector<uint32_t> Batch::types() const {
    std::vector<uint32_t> all;
    for (const Message &message : messages())
        all.push_back(message.type);
    return all;
}

ByteVec batch_of(const std::vector<Message> &messages, std::optional<uint32_t> len, std::optional<uint32_t> cnt) {
    const faults::Pause pause;
    ByteVec body;
    for (const Message &message : messages) {
        append_word(body, message.type);
        append_word(body, static_cast<uint32_t>(message.payload.size()));
        body.insert(body.end(), message.payload.begin(), message.payload.end());
    }
    ByteVec bytes;
    append_word(bytes, len.value_or(static_cast<uint32_t>(body.size())));
    append_word(bytes, cnt.value_or(static_cast<uint32_t>(messages.size())));
    return bytes + body;
}

ByteVec pattern(size_t size, unsigned seed) {
    const faults::Pause pause;
    ByteVec bytes(size);
    for (size_t index = 0; index < size; ++index)
        bytes[index] = static_cast<uint8_t>((index * 7 + seed * 31) % 255 + 1);
    return bytes;
}

ByteVec operator+(ByteVec left, const ByteVec &right) {
    const faults::Pause pause;
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

ByteVec part_of(const ByteVec &bytes, size_t first, size_t last) {
    const faults::Pause pause;
    last = std::min(last, bytes.size());
    return first < last ? ByteVec(bytes.begin() + static_cast<long>(first), bytes.begin() + static_cast<long>(last))
                        : ByteVec();
}

Peer::~Peer() {
    close();
}
Peer::Peer(Peer &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
Peer &Peer::operator=(Peer &&other) noexcept {
    if (this != &other) {
        close();
        fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
}

void Peer::close() {
    const faults::Pause pause;
    if (fd_ >= 0)
        ::close(std::exchange(fd_, -1));
}

bool Peer::readable(int timeout_ms) const {
    return wait_readable(fd_, timeout_ms);
}

bool Peer::read_whole(ByteVec &into, size_t size, int timeout_ms) const {
    while (size != 0) {
        if (!wait_readable(fd_, timeout_ms))
            return false;
        ByteVec chunk(size);
        const ssize_t got = ::read(fd_, chunk.data(), size);
        if (got <= 0)
            return false;
        into.insert(into.end(), chunk.begin(), chunk.begin() + got);
        size -= static_cast<size_t>(got);
    }
    return true;
}

std::optional<Batch> Peer::read_batch(int timeout_ms) {
    const faults::Pause pause;
    Batch batch;
    if (!read_whole(batch.bytes, kHeader, timeout_ms) || !read_whole(batch.bytes, batch.msg_len(), timeout_ms))
        return {};
    return batch;
}

std::vector<Batch> Peer::read_batches() {
    const faults::Pause pause;
    std::vector<Batch> batches;
    while (readable()) {
        std::optional<Batch> batch = read_batch(100);
        if (!batch)
            break;
        batches.push_back(*batch);
    }
    return batches;
}

std::vector<Message> Peer::read_messages() {
    std::vector<Message> all;
    for (const Batch &batch : read_batches())
        for (Message &message : batch.messages())
            all.push_back(std::move(message));
    return all;
}

ByteVec Peer::read_now() {
    const faults::Pause pause;
    ByteVec all;
    ByteVec chunk(65536);
    while (readable()) {
        const ssize_t got = ::read(fd_, chunk.data(), chunk.size());
        if (got <= 0)
            break;
        all.insert(all.end(), chunk.begin(), chunk.begin() + got);
    }
    return all;
}

bool Peer::ended(int timeout_ms) {
    const faults::Pause pause;
    uint8_t byte = 0;
    return wait_readable(fd_, timeout_ms) && ::recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) <= 0 && errno != EAGAIN;
}

void Peer::write(const ByteVec &bytes) const {
    const faults::Pause pause;
    for (size_t done = 0; done < bytes.size();) {
        const ssize_t sent = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0)
            fail_hard("server double: write");
        done += static_cast<size_t>(sent);
    }
}

Server::Server(int backlog) {
    const faults::Pause pause;
    mkdir(directory().c_str(), 0777);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path().c_str(), sizeof address.sun_path - 1);
    fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0 || ::bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd_, backlog) != 0)
        fail_hard("server double: listen");
}

Server::~Server() {
    stop();
}

std::string Server::directory() {
    return std::string(std::getenv("TMPDIR")) + "/bridge/";
}
std::string Server::path() {
    return directory() + ".server_socket";
}

Peer Server::accept(int timeout_ms) const {
    const faults::Pause pause;
    return wait_readable(fd_, timeout_ms) ? Peer(::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)) : Peer();
}

void Server::stop() {
    const faults::Pause pause;
    if (fd_ < 0)
        return;
    ::close(std::exchange(fd_, -1));
    unlink(path().c_str());
}

Peer attach_pair() {
    const faults::Pause pause;
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        fail_hard("server double: socketpair");
    const timeval limit{0, 100000}; // the real socket has one too: a read that should not happen fails its test
    ::setsockopt(ends[0], SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    if (g_bridge_client->sock > 0)
        ::close(g_bridge_client->sock);
    g_bridge_client->sock = ends[0];
    g_bridge_client->connected = 1;
    return Peer(ends[1]);
}

} // namespace test
