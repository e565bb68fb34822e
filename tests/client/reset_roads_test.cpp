// A handler that resets the connection, on every road by which an event reaches it: one reconnect follows, and the
// connection after it is read.
#include "tests/client/transport_fixture.h"
#include "tests/support/kernel.h"

namespace {

using namespace test;

// Before the kernel's double is there: starting takes the doubles away.
class StartedFirst : public Transport {
  protected:
    StartedFirst() { start().nl_ready = 0; }
};

class ResetRoads : public StartedFirst {
  protected:
    ResetRoads() {
        for (const uint32_t type : {kDelayed, uint32_t{BRIDGE_EVENT_KERNEL_DATA_REQ}})
            add_to(wanted, type);
        EXPECT_EQ(loop().run("bri-conn"), 0);
        peer = server.accept();
        bri::client::g_state.sync_state = bri::client::kSyncEnded;
        EXPECT_EQ(bridge_client_reg_event(&wanted, resetting), 0);
        EXPECT_EQ(peer.read_batches().size(), 2U);
    }

    static constexpr uint32_t kDelayed = VG_EVENT_MEM_VLAN;

    static int resetting(uint32_t, void *, uint16_t) {
        ++events;
        for (int i = 0; i < resets; ++i)
            bridge_client_connect_reset();
        return 0;
    }
    static inline int events;
    static inline int resets = 1;

    static Message delay(int32_t seconds) { return {DEBUG_EVENT_MSG_DELAY, bytes_of(0) + bytes_of(seconds)}; }
    void receive(const std::vector<Message> &messages) const {
        peer.send(messages);
        EXPECT_EQ(loop().run("bri-read"), 0);
    }
    void expect_next_connection() {
        EXPECT_EQ(loop().count("bri-read"), 0);
        ASSERT_EQ(loop().count("bri-reconn"), 1);
        EXPECT_EQ(loop().run("bri-reconn"), 0);
        EXPECT_EQ(loop().count("bri-reconn"), 0);
        EXPECT_EQ(loop().count("bri-read"), 1);
        const auto batch = server.accept().read_batch();
        ASSERT_TRUE(batch.has_value());
        EXPECT_EQ(batch->messages(), (std::vector<Message>{{BRIDGE_EVENT_REG_MSG, registration_of(ctx(), 1)}}));
    }

    Server server;
    Kernel kernel;
    event_set wanted{};
    Peer peer;
};

TEST_F(ResetRoads, release_of_delayed_messages) {
    receive({delay(1), {kDelayed, {}}, {kDelayed, {}}});
    EXPECT_EQ(events, 0);
    loop().run("msg-delay-timer");
    EXPECT_EQ(events, 2);
    EXPECT_EQ(loop().count("msg-delay-timer"), 1);
    expect_next_connection();
}

TEST_F(ResetRoads, several_resets_in_one_job) {
    resets = 3;
    receive({delay(1), {kDelayed, {}}});
    loop().run("msg-delay-timer");
    expect_next_connection();
}

TEST_F(ResetRoads, release_by_the_message_that_makes_too_many) {
    std::vector<Message> batch(256, Message{kDelayed, {}});
    batch.insert(batch.begin(), delay(1));
    receive(batch);
    EXPECT_EQ(events, 256);
    expect_next_connection();
}

TEST_F(ResetRoads, release_by_the_end_of_the_delay) {
    receive({delay(1), {kDelayed, {}}, delay(0)});
    EXPECT_EQ(events, 1);
    expect_next_connection();
}

TEST_F(ResetRoads, kernel_channel_that_comes_back) {
    kernel.deliver(kernel.persistent()->fd, netlink_error(-ENOENT));
    loop().run("bri-ef-read");
    EXPECT_EQ(events, 0);
    loop().run("bri-ef-reconn");
    EXPECT_EQ(events, 2);
    expect_next_connection();
}

TEST_F(ResetRoads, without_a_reset_nothing_is_added) {
    resets = 0;
    receive({delay(1), {kDelayed, {}}});
    loop().run("msg-delay-timer");
    kernel.deliver(kernel.persistent()->fd, netlink_error(-ENOENT));
    loop().run("bri-ef-read");
    loop().run("bri-ef-reconn");
    EXPECT_EQ(events, 3);
    EXPECT_EQ(loop().count("bri-reconn"), 0);
    EXPECT_EQ(loop().count("bri-read"), 1);
}

// The reconnect that is due anyway is the one.
TEST_F(ResetRoads, while_no_connection_stands) {
    receive({delay(1), {kDelayed, {}}});
    peer.close();
    EXPECT_EQ(loop().run("bri-read"), -1);
    ASSERT_EQ(loop().count("bri-reconn"), 1);
    loop().run("msg-delay-timer");
    EXPECT_EQ(events, 1);
    expect_next_connection();
}

// A connection whose first read job was refused: the connect job is to come again, though all but that job is there.
class ResetWithoutReadJob : public ResetRoads {
  protected:
    ResetWithoutReadJob() {
        receive({delay(1), {kDelayed, {}}});
        bridge_client_connect_reset();
        bridge_client_thread_event(BRI_CLNT_EVT_CONNECT);
        loop().refused = "bri-read";
        EXPECT_EQ(loop().run("bri-conn"), -1);
        loop().refused.clear();
        EXPECT_EQ(loop().count("bri-reconn"), 1);
        peer = server.accept();
    }
    // The read job comes before the second is over.
    void tick_and_switch_the_delay_off() {
        resets = 0;
        tick();
        receive({delay(0)});
        resets = 1;
    }
};

TEST_F(ResetWithoutReadJob, by_a_handler_outside_a_batch) {
    loop().run("msg-delay-timer");
    EXPECT_EQ(events, 1);
    expect_next_connection();
}

TEST_F(ResetWithoutReadJob, by_a_handler_outside_a_batch_once_it_is_read) {
    tick();
    EXPECT_EQ(loop().count("bri-read"), 1);
    loop().run("msg-delay-timer");
    EXPECT_EQ(events, 1);
    expect_next_connection();
}

TEST_F(ResetWithoutReadJob, by_a_handler_in_a_batch) {
    tick_and_switch_the_delay_off();
    peer.send({{kDelayed, {}}});
    EXPECT_EQ(loop().run("bri-read"), 0);
    expect_next_connection();
}

TEST_F(ResetWithoutReadJob, by_the_end_of_the_stream) {
    tick_and_switch_the_delay_off();
    peer.close();
    EXPECT_EQ(loop().run("bri-read"), -1);
    expect_next_connection();
}

TEST_F(ResetWithoutReadJob, after_the_host_has_connected) {
    tick_and_switch_the_delay_off();
    bridge_client_thread_event(BRI_CLNT_EVT_CONNECT);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    EXPECT_EQ(loop().count("bri-reconn"), 0);
    peer.close();
    EXPECT_EQ(loop().run("bri-read"), -1);
    expect_next_connection();
}

TEST_F(ResetRoads, before_the_connection_is_read) {
    receive({delay(1), {kDelayed, {}}});
    bridge_client_connect_reset();
    kernel.family = 0;
    bridge_lib_nlclient_deinit(&ctx());
    bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
    EXPECT_EQ(loop().run("bri-reconn"), -1); // registered, but without the kernel's channel
    EXPECT_TRUE(server.accept().open());
    kernel.family = 27;
    loop().run("msg-delay-timer");
    EXPECT_EQ(events, 1);
    resets = 0; // the channel's own event comes next
    expect_next_connection();
}

} // namespace
