// Who may write to a connection that the server does not know yet: the connect callbacks, and no other thread's message
// that does not wait.
#include "tests/client/transport_fixture.h"

#include <atomic>
#include <chrono>
#include <thread>

namespace {

using namespace test;

class Introduction : public Transport {
  protected:
    static constexpr uint32_t kForeign = RESEARCH_EVENT_FAILED;

    // The result of a message that does not wait, from another thread.
    static int from_another_thread() {
        int result = 1;
        std::thread([&] { result = send_ontime(kForeign, {1}); }).join();
        return result;
    }
    static void ask_another_thread() { foreign = from_another_thread(); }
    static void take_time() { std::this_thread::sleep_for(std::chrono::milliseconds(2)); }
    static void send_alone() { own = send_ontime(kPlain, {7}); }

    static inline int foreign = 1;
    static inline int own = 1;
};

TEST_F(Introduction, lets_another_thread_wait_until_the_registration_is_out) {
    const Server server;
    start();
    bridge_agent_set_connect_callback(ask_another_thread);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    EXPECT_EQ(foreign, -1);
    EXPECT_EQ(from_another_thread(), 0);
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_now(),
              batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}) + batch_of({{kForeign, {1}}}));
}

TEST_F(Introduction, lets_the_connect_callbacks_write_at_once) {
    const Server server;
    start();
    bridge_agent_set_connect_callback(send_alone);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    EXPECT_EQ(own, 0);
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_now(),
              batch_of({{kPlain, {7}}}) + batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
}

TEST_F(Introduction, begins_when_the_host_connects_by_itself) {
    const Server server;
    start();
    EXPECT_EQ(bridge_client_socket_connect(&ctx()), 0);
    EXPECT_EQ(from_another_thread(), -1);
    EXPECT_EQ(send_ontime(kPlain, {7}), 0);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    EXPECT_EQ(from_another_thread(), 0);
}

TEST_F(Introduction, begins_anew_on_the_next_connection) {
    Server server;
    Peer peer = start_connected(server);
    EXPECT_EQ(from_another_thread(), 0);
    bridge_agent_set_connect_callback(ask_another_thread);
    bridge_client_connect_reset();
    bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
    EXPECT_EQ(loop().run("bri-reconn"), 0);
    EXPECT_EQ(foreign, -1);
    EXPECT_EQ(from_another_thread(), 0);
}

TEST_F(Introduction, lasts_while_the_registration_waits_in_the_cache) {
    const Server server;
    start();
    Script script;
    script_sends(script);
    script = {-EAGAIN};
    EXPECT_EQ(loop().run("bri-conn"), 0);
    EXPECT_EQ(cached(), (std::vector<Cached>{{560, 0}}));
    EXPECT_EQ(from_another_thread(), -1);
    ASSERT_EQ(send(kPlain, {2}), 0);
    script = {560, -EAGAIN};
    tick();
    EXPECT_EQ(cached().size(), 1U); // what came behind it does not count
    EXPECT_EQ(from_another_thread(), 0);
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_now(),
              batch_of({{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}) + batch_of({{kForeign, {1}}}));
    faults::clear();
}

// Threads that send alone all the time, against connections that come and go: the registration is always first.
TEST_F(Introduction, is_the_first_that_the_server_sees_of_every_connection) {
    const Server server;
    start();
    bridge_agent_set_connect_callback(take_time); // for the others to come first, if they may
    std::atomic<bool> over{false};
    std::atomic<uint32_t> accepted{0};
    std::vector<std::thread> senders;
    for (int thread = 0; thread < 3; ++thread)
        senders.emplace_back([&] {
            for (; !over; std::this_thread::sleep_for(std::chrono::microseconds(50)))
                accepted += send_ontime(kForeign, {1}) == 0;
        });
    uint32_t seen = 0;
    for (int connection = 0; connection < 50 || accepted == 0; ++connection) {
        ASSERT_EQ(loop().run(connection == 0 ? "bri-conn" : "bri-reconn"), 0);
        Peer peer = server.accept();
        const auto first = peer.read_batch();
        ASSERT_TRUE(first.has_value());
        EXPECT_EQ(first->types(), (std::vector<uint32_t>{BRIDGE_EVENT_REG_MSG}));
        for (int more = 0; more < 20 && peer.readable(); ++more) // there is no end of them
            seen += peer.read_batch().has_value() ? 1U : 0U;
        bridge_client_connect_reset();
        bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
    }
    over = true;
    for (std::thread &sender : senders)
        sender.join();
    EXPECT_GT(accepted, 0U);
    EXPECT_LE(seen, accepted);
}

} // namespace
