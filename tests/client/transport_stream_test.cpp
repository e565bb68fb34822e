// Whole byte runs on a descriptor: short reads and writes, passing and lasting failures at every attempt.
#include "tests/client/transport_fixture.h"

#include <csignal>
#include <fcntl.h>

namespace {

using namespace test;

constexpr int kPassing[] = {EAGAIN, EINPROGRESS, EINTR};
constexpr int kLasting[] = {EPIPE, ECONNRESET, EBADF, EIO, ENOTCONN};

class Stream : public Env {
  protected:
    Stream() {
        const faults::Pause pause;
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_), 0);
        far_ = Peer(ends_[1]);
    }
    ~Stream() override {
        faults::clear();
        close(ends_[0]);
    }
    [[nodiscard]] int fd() const { return ends_[0]; }
    Peer &far() { return far_; }

    // One call with a buffer of n bytes; what it gave, and the buffer.
    int read_n(uint32_t n) {
        buffer.assign(n, 0);
        return bridge_readn(fd(), buffer.data(), n);
    }
    int write_n(const ByteVec &bytes) { return bridge_writen(fd(), bytes.data(), static_cast<uint32_t>(bytes.size())); }

    Script script;
    ByteVec buffer;

  private:
    int ends_[2] = {-1, -1};
    Peer far_;
};

// --- bridge_readn

class Readn : public Stream {};

TEST_F(Readn, gives_all_bytes_that_are_there_at_once) {
    far().write(pattern(300));
    EXPECT_EQ(read_n(300), 300);
    EXPECT_EQ(buffer, pattern(300));
    EXPECT_EQ(faults::calls("read"), 1);
}

TEST_F(Readn, leaves_what_was_not_asked_for) {
    far().write(pattern(100) + pattern(200, 2));
    EXPECT_EQ(read_n(100), 100);
    EXPECT_EQ(buffer, pattern(100));
    EXPECT_EQ(read_n(200), 200);
    EXPECT_EQ(buffer, pattern(200, 2));
}

TEST_F(Readn, joins_reads_cut_at_every_byte) {
    script_reads(script);
    const ByteVec bytes = pattern(40);
    for (int first = 1; first < 40; ++first) {
        far().write(bytes);
        script = {first};
        ASSERT_EQ(read_n(40), 40) << first;
        ASSERT_EQ(buffer, bytes) << first;
    }
    far().write(bytes);
    script = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(read_n(40), 40);
    EXPECT_EQ(buffer, bytes);
    EXPECT_TRUE(script.used_up());
}

TEST_F(Readn, of_0_bytes_reads_nothing) {
    EXPECT_EQ(bridge_readn(fd(), buffer.data(), 0), 0);
    EXPECT_EQ(bridge_readn(fd(), nullptr, 0), 0);
    EXPECT_EQ(faults::calls("read"), 0);
}

TEST_F(Readn, gives_the_bytes_before_the_end_of_the_stream) {
    for (const uint32_t sent : {0U, 1U, 7U}) {
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        Peer far(ends[1]);
        far.write(pattern(sent));
        far.close();
        buffer.assign(8, 0);
        EXPECT_EQ(bridge_readn(ends[0], buffer.data(), 8), static_cast<int>(sent));
        EXPECT_EQ(ByteVec(buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(sent)), pattern(sent));
        close(ends[0]);
    }
}

TEST_F(Readn, tries_again_after_a_passing_failure_at_every_read) {
    script_reads(script);
    for (const int error : kPassing)
        for (int nth = 0; nth < 4; ++nth) {
            far().write(pattern(4));
            const int before = faults::calls("read");
            switch (nth) {
            case 0:
                script = {-error, 1, 1, 1, 1};
                break;
            case 1:
                script = {1, -error, 1, 1, 1};
                break;
            case 2:
                script = {1, 1, -error, 1, 1};
                break;
            default:
                script = {1, 1, 1, -error, 1};
            }
            ASSERT_EQ(read_n(4), 4) << error << " at " << nth;
            ASSERT_EQ(buffer, pattern(4));
            ASSERT_EQ(faults::calls("read") - before, 5);
        }
}

TEST_F(Readn, gives_up_at_once_on_any_other_failure_at_every_read) {
    script_reads(script);
    for (const int error : kLasting)
        for (int nth = 0; nth < 3; ++nth) {
            far().write(pattern(3));
            switch (nth) {
            case 0:
                script = {-error};
                break;
            case 1:
                script = {1, -error};
                break;
            default:
                script = {1, 1, -error};
            }
            EXPECT_EQ(read_n(3), -1) << error << " at " << nth;
            EXPECT_EQ(errno, error);
            EXPECT_TRUE(script.used_up());
            EXPECT_EQ(far().readable(), false);
            faults::hooks.read = nullptr;
            EXPECT_EQ(read_n(static_cast<uint32_t>(3 - nth)), 3 - nth); // the rest is still there
            script_reads(script);
        }
}

TEST_F(Readn, gives_up_on_the_fifth_passing_failure) {
    script_reads(script);
    far().write(pattern(10));
    script = {-EAGAIN, -EINTR, -EINPROGRESS, -EAGAIN, -EINTR, 10};
    EXPECT_EQ(read_n(10), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(faults::calls("read"), 5);
    script = {-EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, 10};
    EXPECT_EQ(read_n(10), 10);
}

TEST_F(Readn, does_not_count_failures_anew_after_progress) {
    script_reads(script);
    far().write(pattern(10));
    script = {-EAGAIN, 1, -EAGAIN, 1, -EAGAIN, 1, -EAGAIN, 1, -EAGAIN, 6};
    EXPECT_EQ(read_n(10), -1);
    EXPECT_EQ(faults::calls("read"), 9);
}

TEST_F(Readn, refuses_what_its_result_cannot_hold_and_null) {
    buffer.assign(1, 0);
    for (const uint32_t n : {uint32_t{1} << 31, UINT32_MAX}) {
        errno = 0;
        EXPECT_EQ(bridge_readn(fd(), buffer.data(), n), -1);
        EXPECT_EQ(errno, EINVAL);
    }
    EXPECT_EQ(bridge_readn(fd(), nullptr, 1), -1);
    EXPECT_EQ(faults::calls("read"), 0);
}

TEST_F(Readn, fails_on_a_bad_descriptor) {
    buffer.resize(1);
    EXPECT_EQ(bridge_readn(-1, buffer.data(), 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(Readn, reads_files_and_pipes) {
    const int file = open(write_file("data", "abcdef").c_str(), O_RDONLY);
    buffer.assign(8, 0);
    EXPECT_EQ(bridge_readn(file, buffer.data(), 8), 6);
    EXPECT_EQ(std::memcmp(buffer.data(), "abcdef", 6), 0);
    close(file);
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    ASSERT_EQ(write(pipe_ends[1], "xy", 2), 2);
    EXPECT_EQ(bridge_readn(pipe_ends[0], buffer.data(), 2), 2);
    EXPECT_EQ(std::memcmp(buffer.data(), "xy", 2), 0);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

// --- bridge_writen

class Writen : public Stream {};

TEST_F(Writen, writes_all_bytes_at_once) {
    EXPECT_EQ(write_n(pattern(300)), 300);
    EXPECT_EQ(far().read_now(), pattern(300));
    EXPECT_EQ(faults::calls("send"), 1);
}

TEST_F(Writen, blocks_and_raises_no_signal) {
    int seen = -1;
    faults::hooks.send = [&](int to, const void *data, size_t size, int flags) {
        seen = flags;
        return faults::real_send(to, data, size, flags);
    };
    EXPECT_EQ(write_n(pattern(3)), 3);
    EXPECT_EQ(seen, MSG_NOSIGNAL);
}

TEST_F(Writen, goes_on_behind_writes_cut_at_every_byte) {
    script_sends(script);
    const ByteVec bytes = pattern(40);
    for (int first = 1; first < 40; ++first) {
        script = {first};
        ASSERT_EQ(write_n(bytes), 40) << first;
        ASSERT_EQ(far().read_now(), bytes) << first;
    }
    script = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(write_n(bytes), 40);
    EXPECT_EQ(far().read_now(), bytes);
}

TEST_F(Writen, of_0_bytes_writes_nothing) {
    EXPECT_EQ(bridge_writen(fd(), nullptr, 0), 0);
    EXPECT_EQ(faults::calls("send"), 0);
}

TEST_F(Writen, tries_again_after_a_passing_failure_and_after_0_at_every_write) {
    script_sends(script);
    for (const int failure : {-EAGAIN, -EINPROGRESS, -EINTR, 0})
        for (int nth = 0; nth < 3; ++nth) {
            switch (nth) {
            case 0:
                script = {failure, 1, 1, 1};
                break;
            case 1:
                script = {1, failure, 1, 1};
                break;
            default:
                script = {1, 1, failure, 1};
            }
            ASSERT_EQ(write_n(pattern(3)), 3) << failure << " at " << nth;
            ASSERT_TRUE(script.used_up());
            ASSERT_EQ(far().read_now(), pattern(3));
        }
}

TEST_F(Writen, gives_up_at_once_on_any_other_failure_at_every_write) {
    script_sends(script);
    for (const int error : kLasting)
        for (int nth = 0; nth < 3; ++nth) {
            switch (nth) {
            case 0:
                script = {-error};
                break;
            case 1:
                script = {1, -error};
                break;
            default:
                script = {1, 1, -error};
            }
            EXPECT_EQ(write_n(pattern(3)), -1) << error << " at " << nth;
            EXPECT_EQ(errno, error);
            EXPECT_TRUE(script.used_up());
            EXPECT_EQ(far().read_now().size(), static_cast<size_t>(nth));
        }
}

TEST_F(Writen, gives_the_result_of_the_fifth_failure) {
    script_sends(script);
    script = {-EAGAIN, -EINTR, 1, -EINPROGRESS, -EAGAIN, -EAGAIN, 1};
    EXPECT_EQ(write_n(pattern(10)), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(faults::calls("send"), 6);
    script = {0, -EAGAIN, 0, -EAGAIN, 0, 1};
    EXPECT_EQ(write_n(pattern(10)), 0);
    EXPECT_EQ(faults::calls("send"), 11);
}

TEST_F(Writen, asks_no_old_errno_why_nothing_went_out) {
    script_sends(script);
    const ByteVec bytes = pattern(3);
    for (const int old : {EPIPE, EIO, ENOTSOCK}) {
        script = {0, 0, 0, 0, 3};
        errno = old;
        EXPECT_EQ(write_n(bytes), 3) << old;
        EXPECT_EQ(far().read_now(), bytes);
        const int before = faults::calls("send");
        script = {0, 0, 0, 0, 0, 3};
        errno = old;
        EXPECT_EQ(write_n(bytes), 0) << old;
        EXPECT_EQ(faults::calls("send") - before, 5);
    }
}

TEST_F(Writen, does_not_kill_the_host_when_the_peer_has_gone) {
    std::signal(SIGPIPE, SIG_DFL);
    far().close();
    EXPECT_EQ(write_n(pattern(3)), -1);
    EXPECT_EQ(errno, EPIPE);
}

TEST_F(Writen, ends_after_five_expired_send_timeouts) {
    const timeval soon{0, 2000};
    ASSERT_EQ(setsockopt(fd(), SOL_SOCKET, SO_SNDTIMEO, &soon, sizeof soon), 0);
    const ByteVec more_than_it_holds = pattern(4 << 20);
    EXPECT_EQ(write_n(more_than_it_holds), -1);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Writen, writes_files_and_pipes) {
    const std::string path = write_file("data", "");
    const int file = open(path.c_str(), O_RDWR);
    ASSERT_EQ(bridge_writen(file, "abcdef", 6), 6);
    EXPECT_EQ(faults::calls("write"), 1);
    char back[7] = {};
    EXPECT_EQ(pread(file, back, 6, 0), 6);
    EXPECT_STREQ(back, "abcdef");
    close(file);
    int pipe_ends[2];
    ASSERT_EQ(pipe(pipe_ends), 0);
    ASSERT_EQ(bridge_writen(pipe_ends[1], "xy", 2), 2);
    EXPECT_EQ(read(pipe_ends[0], back, 6), 2);
    close(pipe_ends[0]);
    close(pipe_ends[1]);
}

TEST_F(Writen, refuses_what_its_result_cannot_hold_and_null) {
    buffer.assign(1, 0);
    errno = 0;
    EXPECT_EQ(bridge_writen(fd(), buffer.data(), uint32_t{1} << 31), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(faults::calls("send"), 0);
    EXPECT_EQ(bridge_writen(fd(), nullptr, 1), -1);
    EXPECT_EQ(bridge_writen(-1, "x", 1), -1);
    EXPECT_EQ(far().readable(), false);
}

// --- bridge_writen_dontwait

class WritenDontwait : public Stream {
  protected:
    uint32_t written = 77;
    int write_some(uint32_t n) { return bridge_writen_dontwait(fd(), pattern(n).data(), n, &written); }
};

TEST_F(WritenDontwait, gives_0_when_all_went_out) {
    EXPECT_EQ(write_some(20), 0);
    EXPECT_EQ(written, 20U);
    EXPECT_EQ(far().read_now(), pattern(20));
}

TEST_F(WritenDontwait, makes_one_attempt_without_blocking_or_a_signal) {
    int seen = -1;
    faults::hooks.send = [&](int, const void *, size_t, int flags) {
        seen = flags;
        errno = EINTR;
        return ssize_t{-1};
    };
    EXPECT_EQ(write_some(20), 6);
    EXPECT_EQ(seen, MSG_DONTWAIT | MSG_NOSIGNAL);
    EXPECT_EQ(faults::calls("send"), 1);
}

TEST_F(WritenDontwait, gives_6_and_the_count_for_every_part) {
    script_sends(script);
    for (uint32_t part = 1; part < 20; ++part) {
        script = {static_cast<int>(part)};
        EXPECT_EQ(write_some(20), 6) << part;
        EXPECT_EQ(written, part);
        EXPECT_EQ(far().read_now().size(), part);
    }
}

TEST_F(WritenDontwait, gives_6_when_the_socket_would_block_and_5_for_every_other_failure) {
    script_sends(script);
    for (int error = 1; error <= 133; ++error) {
        script = {-error};
        written = 77;
        EXPECT_EQ(write_some(20), error == EAGAIN || error == EINTR ? 6 : 5) << error;
        EXPECT_EQ(written, 0U);
    }
}

TEST_F(WritenDontwait, gives_5_when_nothing_went_out_without_a_reason) {
    script_sends(script);
    for (const int old : {EAGAIN, EINTR}) {
        script = {0};
        errno = old;
        EXPECT_EQ(write_some(20), 5);
        EXPECT_EQ(written, 0U);
    }
}

TEST_F(WritenDontwait, gives_6_on_a_full_socket) {
    int result = 0;
    size_t total = 0;
    while ((result = write_some(10000)) == 0)
        total += written;
    EXPECT_EQ(result, 6);
    EXPECT_EQ(far().read_now().size(), total + written);
}

TEST_F(WritenDontwait, of_0_bytes_gives_0_and_touches_no_socket) {
    EXPECT_EQ(bridge_writen_dontwait(-1, nullptr, 0, &written), 0);
    EXPECT_EQ(written, 0U);
    EXPECT_EQ(faults::calls("send"), 0);
}

TEST_F(WritenDontwait, bears_null_arguments) {
    EXPECT_EQ(bridge_writen_dontwait(fd(), nullptr, 5, &written), 5);
    EXPECT_EQ(written, 0U);
    EXPECT_EQ(bridge_writen_dontwait(fd(), "abc", 3, nullptr), 0);
    EXPECT_EQ(far().read_now(), (ByteVec{'a', 'b', 'c'}));
}

TEST_F(WritenDontwait, does_not_kill_the_host_when_the_peer_has_gone) {
    std::signal(SIGPIPE, SIG_DFL);
    far().close();
    EXPECT_EQ(write_some(3), 5);
    EXPECT_EQ(written, 0U);
}

} // namespace
