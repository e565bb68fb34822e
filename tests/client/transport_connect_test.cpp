// The socket to the server, the connect job's steps, the registration on the wire, and the way back after a loss.
#include "base/list.h"
#include "tests/client/transport_fixture.h"
#include "tests/support/effects.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

using namespace test;

// --- create

class SocketCreate : public Transport {};

TEST_F(SocketCreate, makes_a_local_stream_socket_that_a_child_program_does_not_inherit) {
    start();
    const int fd = ctx().sock;
    int type = 0;
    socklen_t length = sizeof type;
    ASSERT_EQ(getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length), 0);
    EXPECT_EQ(type, SOCK_STREAM);
    sockaddr_un address{};
    length = sizeof address;
    ASSERT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length), 0);
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
}

TEST_F(SocketCreate, sets_10_seconds_to_send_and_2_to_receive) {
    start();
    std::vector<std::pair<int, timeval>> set;
    faults::hooks.setsockopt = [&](int fd, int level, int name, const void *value, socklen_t length) {
        EXPECT_EQ(level, SOL_SOCKET);
        EXPECT_EQ(length, sizeof(timeval));
        set.emplace_back(name, value_at<timeval>(value, 0));
        return faults::real_setsockopt(fd, level, name, value, length);
    };
    EXPECT_GT(bridge_client_socket_create(&ctx()), 0);
    ASSERT_EQ(set.size(), 2U);
    EXPECT_EQ(set[0].first, SO_SNDTIMEO);
    EXPECT_EQ(set[0].second.tv_sec, 10);
    EXPECT_EQ(set[0].second.tv_usec, 0);
    EXPECT_EQ(set[1].first, SO_RCVTIMEO);
    EXPECT_EQ(set[1].second.tv_sec, 2);
    EXPECT_EQ(set[1].second.tv_usec, 0);
}

TEST_F(SocketCreate, gives_the_descriptor_and_keeps_it_in_the_context) {
    start();
    bridge_client_connect_reset();
    const int fd = bridge_client_socket_create(&ctx());
    EXPECT_GT(fd, 0);
    EXPECT_EQ(ctx().sock, fd);
}

TEST_F(SocketCreate, never_gives_0) {
    start();
    bridge_client_connect_reset();
    close(0);
    const int descriptors = open_descriptors();
    EXPECT_GT(bridge_client_socket_create(&ctx()), 0);
    EXPECT_EQ(fcntl(0, F_GETFD), -1);
    EXPECT_EQ(fcntl(ctx().sock, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(open_descriptors(), descriptors + 1);
}

TEST_F(SocketCreate, fails_without_a_context) {
    EXPECT_EQ(bridge_client_socket_create(nullptr), -1);
}

TEST_F(SocketCreate, fails_when_the_system_has_none) {
    start();
    bridge_client_connect_reset();
    faults::fail("socket", 1, ENFILE);
    EXPECT_EQ(bridge_client_socket_create(&ctx()), -1);
    EXPECT_LE(ctx().sock, 0);
}

TEST_F(SocketCreate, closes_the_socket_that_it_replaces_and_forgets_its_connection) {
    Server server;
    Peer peer = start_connected(server);
    const int descriptors = open_descriptors();
    EXPECT_GT(bridge_client_socket_create(&ctx()), 0);
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(ctx().connected, 0);
    EXPECT_EQ(ctx().conn_done, 0);
    EXPECT_EQ(ctx().fresh, 1);
    EXPECT_EQ(loop().count("bri-read"), 0);
}

TEST_F(SocketCreate, without_a_socket_to_replace_leaves_the_connection_state_alone) {
    start();
    close(ctx().sock);
    for (const int none : {0, -1}) {
        ctx().sock = none;
        ctx().fresh = 0;
        ctx().conn_done = 1;
        const int fd = bridge_client_socket_create(&ctx());
        EXPECT_GT(fd, 0);
        EXPECT_EQ(ctx().fresh, 0);
        EXPECT_EQ(ctx().conn_done, 1);
        close(fd);
    }
    ctx().sock = 0;
}

// --- connect

class SocketConnect : public Transport {
  protected:
    // What the library hands to connect() with this TMPDIR.
    struct Address {
        sockaddr_un value;
        socklen_t length;
    };
    static Address address_with(const std::string &tmpdir) {
        setenv("TMPDIR", tmpdir.c_str(), 1);
        Address seen{};
        faults::hooks.connect = [&](int, const sockaddr *address, socklen_t length) {
            std::memcpy(&seen.value, address, length);
            seen.length = length;
            return 0;
        };
        EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
        faults::hooks.connect = nullptr;
        return seen;
    }
    void expect_path(const std::string &tmpdir, const std::string &path) {
        const Address address = address_with(tmpdir);
        EXPECT_EQ(address.value.sun_family, 1);
        EXPECT_EQ(address.length, path.size() + 2);
        EXPECT_EQ(std::string(address.value.sun_path), path);
    }
    static mode_t mode_of(const std::string &path) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_mode & 0777;
    }
};

TEST_F(SocketConnect, connects_to_the_server_below_tmpdir) {
    const Server server;
    start();
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
    EXPECT_EQ(ctx().connected, 1);
    EXPECT_EQ(ctx().conn_done, 0);
    EXPECT_TRUE(server.accept().open());
}

TEST_F(SocketConnect, fails_without_a_context_or_a_socket) {
    const Server server;
    EXPECT_EQ(bridge_client_socket_connect(nullptr), -1);
    start();
    const int sock = ctx().sock;
    for (const int none : {0, -1}) {
        ctx().sock = none;
        EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    }
    ctx().sock = sock;
    EXPECT_EQ(faults::calls("connect"), 0);
}

TEST_F(SocketConnect, does_nothing_when_connected) {
    Peer peer = start_paired();
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
    EXPECT_EQ(faults::calls("connect") + faults::calls("mkdir") + faults::calls("chmod"), 0);
}

TEST_F(SocketConnect, fails_without_tmpdir_and_touches_no_file) {
    start();
    unsetenv("TMPDIR");
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    EXPECT_EQ(ctx().connected, 0);
    EXPECT_EQ(faults::calls("connect") + faults::calls("mkdir") + faults::calls("chmod"), 0);
}

TEST_F(SocketConnect, makes_the_directory_for_all_and_fails_while_there_is_no_server) {
    start();
    const mode_t mask = umask(0);
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    umask(mask);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(mode_of(Server::directory()), 0777U);
    EXPECT_EQ(ctx().connected, 0);
    EXPECT_GT(ctx().sock, 0);
}

TEST_F(SocketConnect, succeeds_on_the_same_socket_once_the_server_is_there) {
    start();
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    {
        Server gone;
        close(gone.fd()); // the path stays, nobody listens
        EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
    }
    const int sock = ctx().sock;
    const Server server;
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
    EXPECT_EQ(ctx().sock, sock);
}

TEST_F(SocketConnect, opens_the_socket_path_to_all_before_it_connects) {
    const Server server;
    ASSERT_EQ(chmod(Server::path().c_str(), 0700), 0);
    start();
    mode_t when_connecting = 0;
    faults::hooks.connect = [&](int fd, const sockaddr *address, socklen_t length) {
        when_connecting = mode_of(Server::path());
        return faults::real_connect(fd, address, length);
    };
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
    EXPECT_EQ(when_connecting, 0777U);
}

TEST_F(SocketConnect, fails_when_connecting_fails_for_whatever_reason) {
    const Server server;
    start();
    for (const int error : {ECONNREFUSED, EAGAIN, EINTR, EACCES}) {
        faults::fail("connect", 1, error);
        EXPECT_EQ(bridge_client_socket_connect(&ctx()), -1);
        EXPECT_EQ(ctx().connected, 0);
    }
}

TEST_F(SocketConnect, passes_the_family_the_path_and_its_length_plus_2) {
    start();
    expect_path(tmpdir(), tmpdir() + "/bridge/.server_socket");
}

TEST_F(SocketConnect, takes_a_path_of_63_characters_whole) {
    start();
    const std::string deep = "/tmp/" + std::string(63 - 5 - 22, 'd');
    expect_path(deep, deep + "/bridge/.server_socket");
}

TEST_F(SocketConnect, cuts_a_longer_path_to_63_characters) {
    start();
    const std::string deep = "/tmp/" + std::string(64 - 5 - 22, 'd');
    expect_path(deep, deep + "/bridge/.server_socke");
}

TEST_F(SocketConnect, cuts_a_path_that_is_longer_than_any_buffer) {
    start();
    const std::string deep = "/tmp/" + std::string(6000, 'd');
    expect_path(deep, deep.substr(0, 63));
}

TEST_F(SocketConnect, takes_an_empty_tmpdir_as_it_is) {
    start();
    faults::redirect("/bridge/", tmpdir() + "/elsewhere");
    expect_path("", "/bridge/.server_socket");
}

// --- reset

class ConnectReset : public Transport {};

TEST_F(ConnectReset, before_start_up_does_nothing) {
    bridge_client_connect_reset();
    EXPECT_EQ(g_bridge_client, nullptr);
}

TEST_F(ConnectReset, closes_the_socket_cancels_the_read_job_and_clears_the_state) {
    Server server;
    Peer peer = start_connected(server);
    ctx().data_synced = 1;
    EXPECT_EQ(ctx().fresh, 0);
    const int descriptors = open_descriptors();
    bridge_client_connect_reset();
    EXPECT_EQ(open_descriptors(), descriptors - 1);
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(ctx().sock, 0);
    EXPECT_EQ(ctx().connected, 0);
    EXPECT_EQ(ctx().conn_done, 0);
    EXPECT_EQ(ctx().fresh, 1);
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(ctx().data_synced, 1);
    EXPECT_EQ(loop().count("bri-read"), 0);
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
    EXPECT_EQ(loop().count("bri-reconn"), 0); // who resets also asks for the reconnect
}

// On the loop that has the job: the double looks at the handle.
TEST_F(ConnectReset, cancels_the_read_job_before_it_closes_the_socket) {
    Server server;
    Peer peer = start_connected(server);
    std::vector<std::string> order;
    on_effect = [&](const std::string &effect) { order.push_back(effect); };
    faults::hooks.close = [&](int fd) {
        order.emplace_back("close");
        return faults::real_close(fd);
    };
    bridge_client_connect_reset();
    on_effect = nullptr;
    EXPECT_EQ(order, (std::vector<std::string>{"cancel bri-read", "close"}));
    faults::clear();
}

TEST_F(ConnectReset, cancels_the_job_of_a_context_on_its_own_loop) {
    start();
    bri_clnt_ctx other{};
    bri::list::init(other.cache);
    other.master = loop().other_master();
    ASSERT_GT(bridge_client_socket_create(&other), 0);
    qv_thread_add_read_withname(other.master, bri::client::read_job, &other, other.sock, "bri-read");
    EXPECT_GT(bridge_client_socket_create(&other), 0); // the earlier socket goes first
    EXPECT_EQ(loop().count("bri-read"), 0);
    faults::real_close(other.sock);
}

TEST_F(ConnectReset, cancels_no_job_without_a_loop) {
    Server server;
    Peer peer = start_connected(server);
    ctx().master = nullptr;
    bridge_client_connect_reset();
    EXPECT_EQ(loop().count("bri-read"), 1);
    EXPECT_EQ(ctx().sock, 0);
}

TEST_F(ConnectReset, without_a_socket_clears_the_state_and_closes_nothing) {
    start();
    close(ctx().sock);
    faults::clear();
    for (const int none : {0, -1}) {
        ctx().sock = none;
        ctx().connected = ctx().conn_done = 1;
        ctx().fresh = 0;
        bridge_client_connect_reset();
        EXPECT_EQ(ctx().sock, none);
        EXPECT_EQ(ctx().connected, 0);
        EXPECT_EQ(ctx().conn_done, 0);
        EXPECT_EQ(ctx().fresh, 1);
    }
    EXPECT_EQ(faults::calls("close"), 0);
}

// Whoever sends holds the lock: none of them may see the descriptor of another file.
TEST_F(ConnectReset, closes_the_socket_under_the_send_lock) {
    Server server;
    Peer peer = start_connected(server);
    int locked = 0;
    faults::hooks.close = [&](int fd) {
        locked = pthread_mutex_trylock(&bri::client::g_bglib_send_lock);
        return faults::real_close(fd);
    };
    bridge_client_connect_reset();
    EXPECT_EQ(locked, EBUSY);
    EXPECT_EQ(pthread_mutex_trylock(&bri::client::g_bglib_send_lock), 0);
    faults::clear();
}

// --- the connect job

class ConnectJob : public Transport {
  protected:
    static int connect() { return loop().run("bri-conn"); }
    static int reconnect() { return loop().run("bri-reconn"); }

    static inline std::vector<int> called;
    template <int Number> static void callback() {
        called.push_back(Number);
        bridge_client_send_message(nullptr, Number, kUrgent);
    }
    static void resetting() {
        called.push_back(0);
        bridge_client_connect_reset();
    }
    static int ignore(uint32_t, void *, uint16_t) { return 0; }
};

TEST_F(ConnectJob, fails_before_start_up) {
    EXPECT_EQ(bri::client::connect_job(nullptr), -1);
}

TEST_F(ConnectJob, connects_registers_and_waits_for_the_server) {
    const Server server;
    start();
    EXPECT_EQ(connect(), 0);
    EXPECT_EQ(ctx().connected, 1);
    EXPECT_EQ(ctx().conn_done, 1);
    EXPECT_EQ(ctx().fresh, 0);
    EXPECT_EQ(loop().count("bri-read"), 1);
    EXPECT_EQ(loop().find("bri-read")->fd, ctx().sock);
    EXPECT_EQ(loop().count("bri-reconn"), 0);
}

TEST_F(ConnectJob, sends_the_registration_byte_by_byte) {
    const Server server;
    start("VLAND-0123456789AB");
    event_set set{};
    set.words[0] = 1;
    set.words[12] = 0x80000008;
    set.words[127] = 0x80000001;
    bridge_client_reg_event(&set, ignore);
    EXPECT_EQ(connect(), 0);
    Peer peer = server.accept();
    const ByteVec bytes = peer.read_now();
    ASSERT_EQ(bytes.size(), 560U);
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 0), 552U);  // msg_len
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 4), 1U);    // msg_cnt
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 8), 129U);  // type
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 12), 544U); // len
    const uint8_t *payload = bytes.data() + 16;
    for (size_t word = 0; word < 128; ++word) {
        const uint32_t expected = word == 0 ? 1 : word == 12 ? 0x80000008 : word == 127 ? 0x80000001 : 0;
        EXPECT_EQ(value_at<uint32_t>(payload, word * 4), expected) << word;
    }
    EXPECT_EQ(payload[512], 1); // op
    EXPECT_TRUE(all_zero(part_of(bytes, 16 + 513, 16 + 516)));
    EXPECT_EQ(value_at<uint32_t>(payload, 516), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(std::memcmp(payload + 520, "VLAND-0123456789AB\0\0", 20), 0);
    EXPECT_EQ(payload[540], 1); // fresh
    EXPECT_TRUE(all_zero(part_of(bytes, 16 + 541)));
}

TEST_F(ConnectJob, registers_once_on_a_connection_and_keeps_one_read_job) {
    const Server server;
    start();
    EXPECT_EQ(connect(), 0);
    for (int again = 0; again < 2; ++again) {
        bridge_client_thread_event(BRI_CLNT_EVT_CONNECT);
        EXPECT_EQ(connect(), 0);
    }
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_batches().size(), 1U);
    EXPECT_EQ(loop().count("bri-read"), 1);
}

TEST_F(ConnectJob, tells_that_a_registration_is_not_the_first_of_its_connection) {
    Server server;
    Peer peer = start_connected(server);
    ctx().conn_done = 0;
    bridge_client_thread_event(BRI_CLNT_EVT_CONNECT);
    EXPECT_EQ(connect(), 0);
    EXPECT_EQ(peer.read_now(), batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 0)}}));
}

TEST_F(ConnectJob, runs_the_callbacks_in_order_before_it_registers) {
    const Server server;
    start();
    bridge_agent_set_connect_callback(callback<1>);
    bridge_agent_set_connect_callback(callback<2>);
    bridge_agent_set_connect_callback(callback<3>);
    reinterpret_cast<bri_clnt_cb_node *>(ctx().conn_cbs.next->next)->fn = nullptr;
    EXPECT_EQ(connect(), 0);
    EXPECT_EQ(called, (std::vector<int>{1, 3}));
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, ByteVec(1)}}) + batch_of({{kUrgent, ByteVec(3)}}) +
                                   batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
}

TEST_F(ConnectJob, runs_the_callbacks_again_on_every_new_connection) {
    const Server server;
    start();
    bridge_agent_set_connect_callback(callback<1>);
    EXPECT_EQ(connect(), 0);
    bridge_client_connect_reset();
    bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
    EXPECT_EQ(reconnect(), 0);
    EXPECT_EQ(called, (std::vector<int>{1, 1}));
}

TEST_F(ConnectJob, starts_over_when_a_callback_resets_the_connection) {
    const Server server;
    start();
    bridge_agent_set_connect_callback(resetting);
    bridge_agent_set_connect_callback(callback<1>);
    EXPECT_EQ(connect(), -1);
    EXPECT_EQ(called, (std::vector<int>{0, 1}));
    EXPECT_EQ(ctx().conn_done, 0);
    EXPECT_EQ(ctx().fresh, 1);
    EXPECT_EQ(loop().count("bri-read"), 0);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    reinterpret_cast<bri_clnt_cb_node *>(ctx().conn_cbs.next)->fn = nullptr;
    EXPECT_EQ(reconnect(), 0);
    Peer first = server.accept();
    Peer second = server.accept();
    EXPECT_TRUE(first.ended());
    EXPECT_EQ(second.read_now(),
              batch_of({{kUrgent, ByteVec(1)}}) + batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
}

TEST_F(ConnectJob, tries_again_in_a_second_when_it_gets_no_socket) {
    const Server server;
    start();
    bridge_client_connect_reset();
    faults::fail("socket", 1, EMFILE);
    EXPECT_EQ(connect(), 0);
    EXPECT_EQ(ctx().connected, 0);
    ASSERT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(loop().find("bri-reconn")->usec, 1000000);
    EXPECT_EQ(reconnect(), 0);
    EXPECT_EQ(ctx().conn_done, 1);
}

TEST_F(ConnectJob, tries_again_every_second_until_the_server_accepts) {
    start();
    EXPECT_EQ(connect(), -1);
    for (int second = 0; second < 3; ++second) {
        ASSERT_EQ(loop().count("bri-reconn"), 1);
        EXPECT_EQ(loop().count("bri-read"), 0);
        EXPECT_EQ(reconnect(), -1);
    }
    const Server server;
    EXPECT_EQ(reconnect(), 0);
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_now(), batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
    EXPECT_EQ(loop().count("bri-reconn"), 0);
}

TEST_F(ConnectJob, tries_again_when_the_loop_refuses_the_read_job) {
    const Server server;
    start();
    loop().refuse = 1;
    EXPECT_EQ(connect(), -1);
    EXPECT_EQ(loop().count("bri-read"), 0);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(ctx().conn_done, 1);
    EXPECT_EQ(reconnect(), 0);
    EXPECT_EQ(loop().count("bri-read"), 1);
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_batches().size(), 1U);
}

TEST_F(ConnectJob, works_on_descriptor_1_as_on_any_other) {
    const Server server;
    start();
    bridge_client_connect_reset();
    const int output = dup(1);
    close(1);
    const int connected = connect();
    const int sock = ctx().sock;
    Peer peer = server.accept();
    const ByteVec registered = peer.read_now();
    const int queued = send(kPlain, {1});
    tick();
    const ByteVec sent = peer.read_now();
    const int alone = send_ontime(kPlain, {2});
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}});
    const int read = loop().run("bri-read");
    const int created = bridge_client_socket_create(&ctx()); // in the place of the old one
    bridge_client_connect_reset();
    const int left = fcntl(1, F_GETFD);
    dup2(output, 1);
    close(output);
    EXPECT_EQ(sock, 1);
    EXPECT_EQ(connected, 0);
    EXPECT_EQ(registered, batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
    EXPECT_EQ(queued, 0);
    EXPECT_EQ(sent, batch_of({{kPlain, {1}}}));
    EXPECT_EQ(alone, 0);
    EXPECT_EQ(peer.read_now(), batch_of({{kPlain, {2}}}));
    EXPECT_EQ(read, 0);
    EXPECT_EQ(bri::client::g_state.slave, 1);
    EXPECT_EQ(created, 1);
    EXPECT_EQ(left, -1);
    EXPECT_TRUE(peer.ended());
}

// --- the whole way

class Reconnect : public ConnectJob {};

TEST_F(Reconnect, registers_afresh_with_the_server_that_comes_back) {
    auto server = std::make_unique<Server>();
    Peer peer = start_connected(*server);
    for (int round = 0; round < 3; ++round) {
        event_set set{};
        set.words[12 + round] = 1;
        bridge_client_reg_event(&set, ignore);
        peer.close();
        server->stop();
        EXPECT_EQ(loop().run_readable(), 1);
        EXPECT_EQ(ctx().sock, 0);
        EXPECT_EQ(send(kUrgent, {1}), -1);
        EXPECT_EQ(reconnect(), -1); // nobody there yet
        server = std::make_unique<Server>();
        EXPECT_EQ(reconnect(), 0);
        peer = server->accept();
        EXPECT_EQ(peer.read_now(), batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
        EXPECT_EQ(ctx().event_set.words[12 + round], 1U);
        EXPECT_EQ(loop().count("bri-read"), 1);
        EXPECT_EQ(loop().count("bri-reconn"), 0);
        EXPECT_EQ(loop().count("bri-msg-timer"), 1);
    }
}

TEST_F(Reconnect, sends_what_waited_before_the_new_registration) {
    Server server;
    Peer peer = start_connected(server);
    Script script;
    script_sends(script);
    ASSERT_EQ(send(kPlain, {1}), 0);
    script = {9};
    tick();
    ASSERT_EQ(send(kPlain, {2}), 0);
    peer.close();
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_EQ(reconnect(), 0);
    peer = server.accept();
    EXPECT_EQ(peer.read_now(),
              batch_of({{kPlain, {1}}}) + batch_of({{kPlain, {2}}, {BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
    faults::clear();
}

TEST_F(Reconnect, leaks_no_descriptor) {
    Server server;
    Peer peer = start_connected(server);
    const int descriptors = open_descriptors();
    for (int round = 0; round < 20; ++round) {
        peer.close();
        EXPECT_EQ(loop().run_readable(), 1);
        EXPECT_EQ(reconnect(), 0);
        peer = server.accept();
    }
    EXPECT_EQ(open_descriptors(), descriptors);
}

} // namespace
