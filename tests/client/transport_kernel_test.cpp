// The connect job and the kernel channel: reading begins only when both are up.
#include "tests/client/transport_fixture.h"
#include "tests/support/kernel.h"
#include "tests/support/kernel_module.h"

namespace {

using namespace test;

class ConnectJobKernel : public Transport {
  protected:
    // Started, and with the kernel channel still to be set up.
    static void begin() {
        start();
        ctx().nl_ready = 0;
    }
    static int connect() { return loop().run("bri-conn"); }
    static int reconnect() { return loop().run("bri-reconn"); }

    static int resetting(uint32_t, void *, uint16_t) {
        ++events;
        bridge_client_connect_reset();
        return 0;
    }
    static inline int events;
};

TEST_F(ConnectJobKernel, sets_the_channel_up_and_waits_for_the_server) {
    const Server server;
    begin();
    const Kernel kernel;
    EXPECT_EQ(connect(), 0);
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(kernel.open_sockets(), 1);
    EXPECT_EQ(loop().count("bri-read"), 1);
    EXPECT_EQ(loop().count("bri-ef-read"), 1);
}

TEST_F(ConnectJobKernel, tries_again_every_second_without_registering_again) {
    const Server server;
    begin();
    Kernel kernel;
    kernel.family = 0;
    EXPECT_EQ(connect(), -1);
    for (int second = 0; second < 3; ++second) {
        EXPECT_EQ(ctx().connected, 1);
        EXPECT_EQ(ctx().conn_done, 1);
        EXPECT_EQ(ctx().nl_ready, 0);
        EXPECT_EQ(kernel.open_sockets(), 0);
        EXPECT_EQ(loop().count("bri-read"), 0);
        ASSERT_EQ(loop().count("bri-reconn"), 1);
        EXPECT_EQ(reconnect(), -1);
    }
    kernel.family = 27;
    EXPECT_EQ(reconnect(), 0);
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(loop().count("bri-read"), 1);
    EXPECT_EQ(loop().count("bri-reconn"), 0);
    Peer peer = server.accept();
    EXPECT_EQ(peer.read_batches().size(), 1U);
}

TEST_F(ConnectJobKernel, says_that_the_channel_failed) {
    const WithoutModule without_module;
    ASSERT_TRUE(without_module.away());
    const Server server;
    begin();
    const std::string line = "[unit] reg event failed: netlink init error.\n";
    EXPECT_EQ(connect(), -1);
    EXPECT_FALSE(logged(line));
    debug_on({BRI_DBG_MSG});
    EXPECT_EQ(reconnect(), -1);
    EXPECT_EQ(times_logged(line), 1);
    const LogLine found = log_line(line);
    EXPECT_EQ(found.category(), kClientLine);
    EXPECT_EQ(log_lines().back().text, "[unit] ready to add qv-thread for RECONNECT.\n");
}

TEST_F(ConnectJobKernel, leaves_a_channel_that_is_up_alone_on_the_next_connection) {
    const Server server;
    begin();
    const Kernel kernel;
    EXPECT_EQ(connect(), 0);
    const size_t requests = kernel.requests.size();
    bridge_client_connect_reset();
    EXPECT_EQ(ctx().nl_ready, 1);
    bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
    EXPECT_EQ(reconnect(), 0);
    EXPECT_EQ(kernel.requests.size(), requests);
    EXPECT_EQ(loop().count("bri-read"), 1);
}

TEST_F(ConnectJobKernel, starts_over_when_a_handler_of_its_event_resets_the_connection) {
    const Server server;
    begin();
    event_set set{};
    set.words[BRIDGE_EVENT_KERNEL_DATA_REQ / 32] = 1U << BRIDGE_EVENT_KERNEL_DATA_REQ % 32;
    bridge_client_reg_event(&set, resetting);
    const Kernel kernel;
    EXPECT_EQ(connect(), -1);
    EXPECT_EQ(events, 1);
    EXPECT_EQ(ctx().sock, 0);
    EXPECT_EQ(loop().count("bri-read"), 0);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(reconnect(), 0); // the channel is up, so its event does not come again
    EXPECT_EQ(events, 1);
    EXPECT_EQ(loop().count("bri-read"), 1);
}

} // namespace
