// What stands in the server's place, or behaves as no server should: nothing of it changes foreign files or holds the
// loop.
#include "tests/client/transport_fixture.h"

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>

namespace {

using namespace test;

namespace fs = std::filesystem;

class HostilePath : public Transport {
  protected:
    HostilePath() { fs::create_directories(Server::directory()); }

    static mode_t mode_of(const fs::path &path) {
        struct stat status {};
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status.st_mode & 07777;
    }
    // Connecting fails and says first what stands at the path.
    static void expect_left_alone(const std::string &what) {
        debug_on({BRI_DBG_MSG});
        clear_log();
        EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
        ASSERT_EQ(log_lines().size(), 2U);
        EXPECT_EQ(log_lines()[0].text, "[unit] server path is a " + what + ", no socket, left alone.\n");
        EXPECT_EQ(log_lines()[1].text.find("[unit] connect failed: "), 0U);
    }
    // A local socket that listens at `path`, which only its owner may use.
    static int listen_at(const fs::path &path) {
        const faults::Pause pause;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(listen(fd, 8), 0);
        EXPECT_EQ(chmod(path.c_str(), 0700), 0);
        return fd;
    }
};

TEST_F(HostilePath, a_file_keeps_its_mode) {
    start();
    std::ofstream(Server::path()) << "precious";
    ASSERT_EQ(chmod(Server::path().c_str(), 0600), 0);
    expect_left_alone("regular file");
    EXPECT_EQ(mode_of(Server::path()), 0600U);
}

TEST_F(HostilePath, a_directory_keeps_its_mode) {
    start();
    fs::create_directory(Server::path());
    ASSERT_EQ(chmod(Server::path().c_str(), 0700), 0);
    expect_left_alone("directory");
    EXPECT_EQ(mode_of(Server::path()), 0700U);
}

TEST_F(HostilePath, a_fifo_keeps_its_mode_and_holds_up_nobody) {
    start();
    ASSERT_EQ(mkfifo(Server::path().c_str(), 0600), 0);
    expect_left_alone("fifo");
    EXPECT_EQ(mode_of(Server::path()), 0600U);
}

TEST_F(HostilePath, a_link_to_a_file_is_not_followed) {
    start();
    const fs::path precious = write_file("precious", "x");
    ASSERT_EQ(chmod(precious.c_str(), 0600), 0);
    fs::create_symlink(precious, Server::path());
    expect_left_alone("symbolic link");
    EXPECT_EQ(mode_of(precious), 0600U);
}

TEST_F(HostilePath, a_link_to_a_socket_is_not_followed_when_the_mode_is_set) {
    start();
    const fs::path real = fs::path(tmpdir()) / "private";
    const int fd = listen_at(real);
    fs::create_symlink(real, Server::path());
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0); // root may connect to any; the mode is the other's matter
    EXPECT_EQ(mode_of(real), 0700U);
    faults::real_close(fd);
}

TEST_F(HostilePath, a_directory_that_a_cut_path_hits_keeps_its_mode) {
    start();
    // TMPDIR is cut in the middle of "/bridge/.server_socket": what is left names a directory of somebody else.
    const std::string parent = tmpdir() + "/" + std::string(63 - tmpdir().size() - 1 - 7, 'd');
    ASSERT_EQ((parent + "/bridge").size(), 63U);
    fs::create_directories(parent + "/bridge");
    ASSERT_EQ(chmod((parent + "/bridge").c_str(), 0700), 0);
    setenv("TMPDIR", parent.c_str(), 1);
    expect_left_alone("directory");
    EXPECT_EQ(mode_of(parent + "/bridge"), 0700U);
    setenv("TMPDIR", tmpdir().c_str(), 1);
}

TEST_F(HostilePath, nothing_there_is_only_a_failed_connect) {
    start();
    debug_on({BRI_DBG_MSG});
    clear_log();
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    ASSERT_EQ(log_lines().size(), 1U);
    EXPECT_EQ(log_lines()[0].text, "[unit] connect failed: No such file or directory\n");
}

TEST_F(HostilePath, a_look_leaves_no_descriptor_behind) {
    start();
    const int descriptors = open_descriptors();
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    fs::create_directory(Server::path());
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    fs::remove(Server::path());
    const Server server;
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
    EXPECT_EQ(open_descriptors(), descriptors + 1); // the server's own
}

// --- a server that accepts nobody

class HostileQueue : public Transport {
  protected:
    // Connects without being accepted until the queue is full.
    static void fill(const std::string &path, std::vector<int> &fds) {
        const faults::Pause pause;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
        for (int result = 0; result == 0;) {
            fds.push_back(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
            result = ::connect(fds.back(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
        }
    }
    static long long milliseconds_of(const std::function<void()> &act) {
        const auto begin = std::chrono::steady_clock::now();
        act();
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin).count();
    }
};

TEST_F(HostileQueue, that_is_full_is_a_failed_attempt_and_tried_again_a_second_later) {
    const Server server(1);
    std::vector<int> waiting;
    fill(Server::path(), waiting);
    start();
    int result = 0;
    EXPECT_LT(milliseconds_of([&] { result = loop().run("bri-conn"); }), 1000);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(ctx().connected, 0);
    ASSERT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(loop().find("bri-reconn")->usec, 1000000);
    for (const int fd : waiting)
        faults::real_close(fd);
    for (Peer gone = server.accept(0); gone.open(); gone = server.accept(0)) {
    }
    EXPECT_EQ(loop().run("bri-reconn"), 0);
    EXPECT_EQ(ctx().conn_done, 1);
}

TEST_F(HostileQueue, leaves_the_socket_one_that_blocks) {
    const Server server;
    start();
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
    EXPECT_EQ(fcntl(ctx().sock, F_GETFL) & O_NONBLOCK, 0);
    bridge_client_connect_reset();
    EXPECT_GT(bridge_client_socket_create(&ctx()), 0);
    faults::fail("connect", 1, EAGAIN);
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(fcntl(ctx().sock, F_GETFL) & O_NONBLOCK, 0);
}

// --- a server that takes its time inside a batch

class HostileBatch : public Transport {
  protected:
    // A batch byte by byte, with a pause before each but the first.
    void drip(const ByteVec &bytes, std::chrono::milliseconds pause) {
        peer_ = start_paired();
        const timeval limit{2, 0}; // as on a socket of the library's own
        ASSERT_EQ(setsockopt(ctx().sock, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
        bridge_client_thread_event(BRI_CLNT_EVT_READ);
        peer_.write(part_of(bytes, 0, 1));
        dripper_ = std::thread([this, bytes, pause] {
            for (size_t byte = 1; byte < bytes.size() && !over_; ++byte) {
                std::this_thread::sleep_for(pause);
                const faults::Pause unseen;
                (void)!faults::real_send(peer_.fd(), &bytes[byte], 1, MSG_NOSIGNAL);
            }
        });
    }
    int read() {
        const int result = loop().run("bri-read");
        over_ = true;
        dripper_.join();
        return result;
    }
    static double seconds_since(std::chrono::steady_clock::time_point begin) {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    }

  private:
    Peer peer_;
    std::thread dripper_;
    std::atomic<bool> over_{false};
};

// The 2 seconds of one read begin anew with every byte: the batch has an end of its own.
TEST_F(HostileBatch, that_drips_is_a_failed_read_after_10_seconds) {
    const auto begin = std::chrono::steady_clock::now();
    drip(batch_of({{BRIDGE_EVEVT_SERVER_STAT, pattern(50)}}), std::chrono::milliseconds(1500));
    debug_on({BRI_DBG_MSG});
    EXPECT_EQ(read(), -1);
    EXPECT_GE(seconds_since(begin), 9.9);
    EXPECT_LT(seconds_since(begin), 13.5); // the last pause of the dripper included
    EXPECT_EQ(ctx().sock, 0);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(
        times_logged("[unit] failed to receive batch-msg header, received -1, errno = 110, Connection timed out\n"), 1);
}

TEST_F(HostileBatch, that_is_slow_but_whole_in_time_is_taken) {
    drip(batch_of({{BRIDGE_EVEVT_SERVER_STAT, {1}}}), std::chrono::milliseconds(150));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(bri::client::g_state.slave, 1);
    EXPECT_EQ(loop().count("bri-read"), 1);
}

TEST_F(HostileBatch, that_comes_whole_is_read_twice_and_never_waited_for) {
    Peer peer = start_paired();
    bridge_client_thread_event(BRI_CLNT_EVT_READ);
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}});
    faults::clear();
    EXPECT_EQ(loop().run("bri-read"), 0);
    EXPECT_EQ(faults::calls("read"), 2);
}

} // namespace
