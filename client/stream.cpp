// Whole byte runs on a descriptor.
#include "client/transport.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace bri::client {

namespace {

constexpr uint32_t kBatchMilliseconds = 10000;
constexpr int kMaxFailures = 5; // failed attempts of one call, whatever progress lies between them

bool passing(int error) {
    return error == EAGAIN || error == EINPROGRESS || error == EINTR;
}

// What an attempt that moves no byte means: the end of the stream for a reader, a failed attempt for a writer.
enum class Nothing { kEnds, kFails };

// Attempts until n bytes are moved; attempt(offset, left) gives what read and write give. `done` counts the bytes also
// when the result is that of the failing attempt.
template <class Attempt> int move_bytes(uint32_t n, uint32_t &done, Nothing nothing, Attempt &&attempt) {
    done = 0;
    if (n > INT_MAX) {
        errno = EINVAL;
        return -1;
    }
    for (int failures = 0; done < n;) {
        const ssize_t moved = attempt(done, n - done);
        if (moved > 0) {
            done += static_cast<uint32_t>(moved);
            continue;
        }
        if (moved == 0 && nothing == Nothing::kEnds)
            break;
        if ((moved < 0 && !passing(errno)) || ++failures == kMaxFailures)
            return static_cast<int>(moved);
    }
    return static_cast<int>(done);
}

// Wraps; only differences mean something.
uint32_t milliseconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<uint32_t>(now.tv_sec) * 1000 + static_cast<uint32_t>(now.tv_nsec / 1000000);
}

// A closed peer must not kill the host, and any descriptor will do.
ssize_t write_quietly(int fd, const void *bytes, size_t n) {
    const ssize_t sent = send(fd, bytes, n, MSG_NOSIGNAL);
    return sent < 0 && errno == ENOTSOCK ? write(fd, bytes, n) : sent;
}

// What a first read of n bytes gave that did not bring all of them. errno is that read's.
struct Beginning {
    int fd;
    void *buf;
    uint32_t n;
    ssize_t first;
};

[[gnu::noinline]] int read_rest(const Beginning &begun, uint32_t &done, BatchClock &clock) {
    bool again = false;
    return move_bytes(begun.n, done, Nothing::kEnds, [&](uint32_t offset, uint32_t left) -> ssize_t {
        if (!std::exchange(again, true))
            return begun.first;
        if (!clock.wait(begun.fd)) {
            errno = ETIMEDOUT;
            return -1;
        }
        const ssize_t got = read(begun.fd, static_cast<uint8_t *>(begun.buf) + offset, left);
        if (got > 0)
            clock.byte_came();
        return got;
    });
}

} // namespace

void BatchClock::byte_came() {
    if (running_)
        return;
    running_ = true;
    begun_ = milliseconds(CLOCK_MONOTONIC_COARSE); // late by a tick at most, that is: early to end
}

// As long as a read may wait by itself, it does.
bool BatchClock::wait(int fd) const {
    while (running_) {
        const uint32_t passed = milliseconds(CLOCK_MONOTONIC) - begun_;
        if (passed >= kBatchMilliseconds)
            return false;
        const uint32_t left = kBatchMilliseconds - passed;
        if (left > kReceiveSeconds * 1000)
            break;
        pollfd readable{fd, POLLIN, 0};
        const int ready = poll(&readable, 1, static_cast<int>(left));
        if (ready > 0 || (ready < 0 && errno != EINTR))
            break;
    }
    return true;
}

int read_part(int fd, void *buf, uint32_t n, uint32_t &done, BatchClock &clock) {
    const ssize_t first = read(fd, buf, n);
    if (first > 0)
        clock.byte_came();
    if (first != static_cast<ssize_t>(n)) [[unlikely]]
        return read_rest({fd, buf, n, first}, done, clock);
    done = n;
    return static_cast<int>(n);
}

WriteResult failed_write() {
    return errno == EAGAIN || errno == EINTR ? kWouldBlock : kSocketError;
}

int write_all(int fd, const void *bytes, uint32_t n, uint32_t &done) {
    return move_bytes(n, done, Nothing::kFails, [&](uint32_t offset, uint32_t left) {
        return write_quietly(fd, static_cast<const uint8_t *>(bytes) + offset, left);
    });
}

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_readn(int fd, void *buf, uint32_t n) {
    if (buf == nullptr && n != 0)
        return -1;
    uint32_t done = 0;
    return move_bytes(n, done, Nothing::kEnds, [&](uint32_t offset, uint32_t left) {
        return read(fd, static_cast<uint8_t *>(buf) + offset, left);
    });
}

int bridge_writen(int fd, const void *buf, uint32_t n) {
    if (buf == nullptr && n != 0)
        return -1;
    uint32_t done = 0;
    return write_all(fd, buf, n, done);
}

// NOLINTNEXTLINE(readability-non-const-parameter): written to through a reference
int bridge_writen_dontwait(int fd, const void *buf, uint32_t n, uint32_t *written) {
    uint32_t unwanted = 0;
    if (written == nullptr)
        written = &unwanted;
    *written = 0;
    if (n == 0)
        return kWritten;
    if (buf == nullptr)
        return kSocketError;
    errno = 0; // a result of 0 says nothing of its own
    const ssize_t sent = send(fd, buf, n, MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent <= 0)
        return failed_write();
    *written = static_cast<uint32_t>(sent);
    return *written == n ? kWritten : kWouldBlock;
}
