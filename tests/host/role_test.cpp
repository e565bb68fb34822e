// The role and the connection: what the library does not tell.
#include "tests/host/layer_fixture.h"

using namespace test;

namespace {

class HostRole : public Layer {};

TEST_F(HostRole, is_unknown_before_the_server_has_said_anything) {
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_UNKNOWN);
    ASSERT_EQ(start_layer(), 0);
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_UNKNOWN);
    connect();
    bridge_call_event_handlers(BRIDGE_EVENT_KERNEL_DATA_REQ, nullptr, 0); // the library's own
    tick();
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_UNKNOWN);
    EXPECT_EQ(told, Told{"up"});
}

TEST_F(HostRole, is_known_at_once) {
    start_synchronised();
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_MASTER);
    set_role(true);
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_SLAVE);
    set_role(false);
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_MASTER);
}

TEST_F(HostRole, is_told_by_the_next_tick) {
    start_synchronised();
    set_role(true);
    EXPECT_EQ(told, Told{});
    tick();
    EXPECT_EQ(told, Told{"slave"});
    set_role(false);
    tick();
    EXPECT_EQ(told, (Told{"slave", "master"}));
}

TEST_F(HostRole, is_told_once) {
    start_synchronised();
    set_role(true);
    tick(3);
    EXPECT_EQ(told, Told{"slave"});
}

TEST_F(HostRole, is_told_to_a_slave_from_the_start) {
    ASSERT_EQ(start_layer(), 0);
    connect();
    set_role(true);
    tick();
    EXPECT_EQ(told, (Told{"up", "slave"}));
}

TEST_F(HostRole, is_told_at_the_begin_of_a_switchover) {
    ASSERT_EQ(start_layer(), 0);
    connect();
    set_role(true);
    tick();
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    EXPECT_EQ(told, (Told{"up", "slave", "master"}));
}

TEST_F(HostRole, is_told_before_the_event_that_shows_it) {
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    set_role(true);
    tick();
    set_role(false);
    told.clear();
    deliver(VLAN_EVENT_RENAME);
    ASSERT_GE(told.size(), 2U);
    EXPECT_EQ(told[0], "master");
    EXPECT_EQ(told[1], "event 392");
}

TEST_F(HostRole, survives_a_lost_connection) {
    start_synchronised();
    set_role(true);
    lose_connection();
    tick();
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_SLAVE);
    EXPECT_EQ(told, (Told{"down", "slave"}));
}

TEST_F(HostRole, is_not_disturbed_by_a_stranger_with_the_same_event) {
    start_synchronised();
    uint32_t word = 0;
    bridge_call_event_handlers(255, &word, sizeof word);
    bridge_call_event_handlers(255, nullptr, 0);
    EXPECT_EQ(bridge_host_role(), BRIDGE_HOST_ROLE_MASTER);
    EXPECT_EQ(told, Told{});
}

class HostConnection : public Layer {
  protected:
    static bridge_host_statistics figures() {
        bridge_host_statistics figures{};
        figures.size = sizeof figures;
        EXPECT_EQ(bridge_host_get_statistics(&figures), 0);
        return figures;
    }
};

TEST_F(HostConnection, is_told_before_the_registration_goes_out) {
    ASSERT_EQ(start_layer(), 0);
    during = [](const std::string &line) {
        if (line == "up")
            bridge_client_send_message(nullptr, 0, MAC_EVENT_DYN_FLUSH);
    };
    Server server;
    ctx().nl_ready = 1;
    ASSERT_EQ(loop().run("bri-conn"), 0);
    const std::vector<Message> messages = server.accept().read_messages();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].type, uint32_t{MAC_EVENT_DYN_FLUSH});
    EXPECT_EQ(messages[1].type, uint32_t{BRIDGE_EVENT_REG_MSG});
}

TEST_F(HostConnection, is_told_once_when_it_is_lost) {
    start_synchronised();
    lose_connection();
    tick(3);
    EXPECT_EQ(told, Told{"down"});
}

TEST_F(HostConnection, that_stood_before_the_layer_is_told_by_the_tick) {
    StartedHost::start();
    const Peer peer = attach_pair();
    ASSERT_EQ(start_layer(), 0);
    EXPECT_EQ(told, Told{});
    bri::client::g_state.sync_state = bri::client::kSyncEnded;
    tick();
    EXPECT_EQ(told, (Told{"up", "master"})); // the replay has shown it
    EXPECT_EQ(figures().connections, 1U);
}

TEST_F(HostConnection, counts_outages_and_their_length) {
    start_synchronised();
    lose_connection();
    tick();
    usleep(20000);
    EXPECT_GE(figures().outage_total_ms, 20U); // it lasts
    connect();
    const bridge_host_statistics first = figures();
    EXPECT_EQ(first.connections, 2U);
    EXPECT_EQ(first.outages, 1U);
    EXPECT_GE(first.outage_longest_ms, 20U);
    usleep(20000);
    EXPECT_EQ(figures().outage_total_ms, first.outage_total_ms); // it is over
}

} // namespace
