#include "shared/netlink_channel.h"
#include "tests/shared/netlink_fixture.h"
#include "tests/support/effects.h"

namespace {

using namespace test;

using NetlinkReconnect = KernelHost;
using NetlinkDeinit = KernelHost;

struct Sign {
    const char *what;
    Packet packet;
    int32_t word; // behind the netlink header
};
std::vector<Sign> signs() {
    const Packet deleted = netlink_message(16, 2, netlink_attr(2, {'E', 'F', 0}));
    const Packet other = netlink_message(16, 2, netlink_attr(2, {'x', 0}));
    return {{"family deleted", deleted, value_at<int32_t>(deleted.data(), 16)},
            {"any family deleted", other, value_at<int32_t>(other.data(), 16)},
            {"notice without attributes", netlink_message(16, 2, {}), value_at<int32_t>(other.data(), 16)},
            {"error", netlink_error(-ENOENT), -ENOENT},
            {"acknowledgement", netlink_error(0), 0},
            {"positive error", netlink_error(5), 5},
            {"over-long", netlink_message(27, 3, Packet(10229, 0)),
             value_at<int32_t>(netlink_message(27, 3, {}).data(), 16)},
            {"over-long by its word", netlink_message(27, 3, {}, 0xFFFFFFFF),
             value_at<int32_t>(netlink_message(27, 3, {}).data(), 16)}};
}

TEST_F(NetlinkReconnect, every_sign_closes_the_channel_and_starts_one_timer) {
    for (const Sign &sign : signs()) {
        up();
        loop().pending.erase(std::remove_if(loop().pending.begin(), loop().pending.end(),
                                            [](const Job &job) { return job.name == "bri-ef-reconn"; }),
                             loop().pending.end());
        kernel.deliver(fd(), sign.packet);
        ASSERT_EQ(loop().run_readable(), 1) << sign.what;
        EXPECT_EQ(log_text(), "[unit] EF-bridge disconn msg received.\n[unit] Get msg head failed. error " +
                                  std::to_string(sign.word) + ", " + strerror(sign.word) + ".\n")
            << sign.what;
        expect_msg_line("[unit] EF-bridge disconn msg received.\n");
        EXPECT_EQ(ctx().nl_ready, 0) << sign.what;
        EXPECT_EQ(read_jobs(), 0) << sign.what;
        EXPECT_EQ(kernel.open_sockets(), 0) << sign.what;
        EXPECT_EQ(extra_descriptors(), 0) << sign.what;
        ASSERT_EQ(timers(), 1) << sign.what;
        EXPECT_EQ(loop().find("bri-ef-reconn")->kind, Job::Kind::kTimer);
        EXPECT_EQ(loop().find("bri-ef-reconn")->usec, 1000000);
        EXPECT_EQ(loop().find("bri-ef-reconn")->master, loop().master());
        loop().run("bri-ef-reconn");
    }
}

TEST_F(NetlinkReconnect, says_so_closes_asks_for_the_timer_and_raises_the_flag_before_it_names_the_error) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    bool gone = false;
    std::vector<std::string> order;
    on_effect = [&](const std::string &effect) { order.push_back((gone ? "gone: " : "") + effect); };
    const auto close = faults::hooks.close; // the kernel's
    faults::hooks.close = [&](int closed) {
        order.emplace_back("close");
        return close(closed);
    };
    static bri::netlink::ReplyBuffer buffer;
    EXPECT_EQ(bri::netlink::receive_payload(fd(), kernel.family, buffer, &gone), nullptr);
    on_effect = nullptr;
    faults::hooks.close = close;
    EXPECT_EQ(order, (std::vector<std::string>{
                         "[unit] EF-bridge disconn msg received.\n", "cancel bri-ef-read", "close", "add bri-ef-reconn",
                         "gone: [unit] Get msg head failed. error -1, " + std::string(strerror(-1)) + ".\n"}));
}

TEST_F(NetlinkReconnect, the_read_job_fails_only_when_it_cannot_be_added_again) {
    up();
    const Packet message = netlink_message(kernel.family, 3, netlink_attr(0, {1}));
    kernel.deliver(fd(), message);
    EXPECT_EQ(loop().run("bri-ef-read"), 0);
    kernel.deliver(fd(), netlink_error(-1));
    EXPECT_EQ(loop().run("bri-ef-read"), 0); // the timer takes over
    loop().run("bri-ef-reconn");
    kernel.deliver(fd(), message);
    loop().refuse = 1;
    EXPECT_EQ(loop().run("bri-ef-read"), -1);
}

TEST_F(NetlinkReconnect, raises_the_event_twice_when_it_succeeds) {
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    EXPECT_TRUE(events().empty());
    loop().run("bri-ef-reconn");
    EXPECT_EQ(event_types(), (std::vector<uint32_t>{BRIDGE_EVENT_KERNEL_DATA_REQ, BRIDGE_EVENT_KERNEL_DATA_REQ}));
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->arg, &ctx());
    EXPECT_EQ(timers(), 0);
    EXPECT_EQ(extra_descriptors(), 1);
}

TEST_F(NetlinkReconnect, tries_every_second_until_the_family_is_back_under_another_id) {
    up();
    kernel.family = 0;
    kernel.deliver(fd(), netlink_message(16, 2, {}));
    loop().run_readable();
    for (int tries = 0; tries < 5; ++tries) {
        ASSERT_EQ(timers(), 1);
        loop().run("bri-ef-reconn");
        EXPECT_EQ(ctx().nl_ready, 0);
        EXPECT_LE(kernel.open_sockets(), 1);
    }
    kernel.family = 77;
    loop().run("bri-ef-reconn");
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(timers(), 0);
    ASSERT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), 0);
    EXPECT_EQ(kernel.data_requests().back().message_type(), 77);
    EXPECT_EQ(extra_descriptors(), 1);
}

TEST_F(NetlinkReconnect, keeps_trying_while_sockets_are_refused) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    faults::fail("socket", 1, EMFILE, 3);
    for (int tries = 0; tries < 3; ++tries) {
        loop().run("bri-ef-reconn");
        EXPECT_EQ(timers(), 1);
        EXPECT_EQ(extra_descriptors(), 0);
    }
    loop().run("bri-ef-reconn");
    EXPECT_EQ(ctx().nl_ready, 1);
}

// The connect job may have brought the channel up before the timer runs.
TEST_F(NetlinkReconnect, a_timer_that_finds_the_channel_up_keeps_one_read_job) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    loop().run("bri-ef-reconn");
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(timers(), 0);
    EXPECT_EQ(extra_descriptors(), 1);
}

TEST_F(NetlinkReconnect, a_refused_timer_is_not_taken_for_a_pending_one) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().refuse = 1;
    loop().run_readable();
    EXPECT_EQ(timers(), 0);
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    EXPECT_EQ(timers(), 1);
}

TEST_F(NetlinkReconnect, a_refused_timer_is_asked_for_again_by_the_flush_timer) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().refused = "bri-ef-reconn";
    loop().run_readable();
    bri::client::flush_job(nullptr);
    EXPECT_EQ(timers(), 0);
    loop().refused.clear();
    bri::client::flush_job(nullptr);
    bri::client::flush_job(nullptr);
    ASSERT_EQ(timers(), 1);
    loop().run("bri-ef-reconn");
    EXPECT_EQ(ctx().nl_ready, 1);
}

TEST_F(NetlinkReconnect, a_refused_timer_is_not_asked_for_again_once_the_channel_is_up) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().refused = "bri-ef-reconn";
    loop().run_readable();
    loop().refused.clear();
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    bri::client::flush_job(nullptr);
    EXPECT_EQ(timers(), 0);
}

TEST_F(NetlinkReconnect, adds_the_flush_timer_when_that_was_refused) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    loop().refused = "bri-msg-timer";
    bri::client::flush_job(nullptr);
    loop().refused.clear();
    loop().run("bri-ef-reconn");
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
}

TEST_F(NetlinkReconnect, without_a_context_closes_and_starts_nothing) {
    up();
    g_bridge_client = nullptr;
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    EXPECT_EQ(kernel.open_sockets(), 0);
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(NetlinkReconnect, a_timer_without_a_context_ends) {
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    g_bridge_client = nullptr;
    loop().run("bri-ef-reconn");
    EXPECT_TRUE(loop().pending.empty());
}

// --- de-initialisation

TEST_F(NetlinkDeinit, closes_the_channel_and_cancels_the_first_job) {
    up();
    bridge_lib_nlclient_deinit(&ctx());
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(kernel.open_sockets(), 0);
    EXPECT_EQ(extra_descriptors(), 0);
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(NetlinkDeinit, cancels_the_re_added_job_too) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().run_readable();
    ASSERT_EQ(loop().find("bri-ef-read")->arg, nullptr);
    bridge_lib_nlclient_deinit(&ctx());
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(NetlinkDeinit, without_a_client_closes_but_leaves_its_record) {
    up();
    bridge_lib_nlclient_deinit(nullptr);
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(kernel.open_sockets(), 0);
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(NetlinkDeinit, leaves_other_jobs) {
    up();
    const qv_thread_func other = [](void *) { return 0; };
    qv_thread_add_event_withname(loop().master(), other, &ctx(), "other");
    bridge_lib_nlclient_deinit(&ctx());
    EXPECT_EQ(loop().count("other"), 1);
}

TEST_F(NetlinkDeinit, of_a_closed_channel_clears_the_flag_and_the_family) {
    ctx().nl_ready = 1;
    bridge_lib_nlclient_deinit(&ctx());
    bridge_lib_nlclient_deinit(nullptr);
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(faults::calls("close"), 0);
}

TEST_F(NetlinkDeinit, forgets_the_family) {
    up();
    bridge_lib_nlclient_deinit(&ctx());
    kernel.family = 99;
    up();
    ASSERT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), 0);
    EXPECT_EQ(kernel.data_requests().back().message_type(), 99);
}

} // namespace
