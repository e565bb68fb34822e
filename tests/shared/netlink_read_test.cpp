#include "tests/shared/netlink_fixture.h"

namespace {

// What the hook gets: the whole rest of the read buffer from the payload on.
std::vector<test::Packet> &dispatched() {
    static std::vector<test::Packet> all;
    return all;
}
std::function<void(uint8_t *payload)> in_dispatch;

} // namespace

// In place of the library's own, which drops everything.
void bridge_lib_nlmsg_dispch(void *payload) {
    auto *bytes = static_cast<uint8_t *>(payload);
    dispatched().emplace_back(bytes, bytes + 10248 - 24);
    if (in_dispatch)
        in_dispatch(bytes);
}

namespace {

using namespace test;

using NetlinkRead = KernelHost;

TEST_F(NetlinkRead, hands_the_payload_of_each_message_to_the_hook) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, Packet(100, 7))));
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1, 2})));
    kernel.deliver(fd(), netlink_message(99, 3, netlink_attr(0, {3})));
    while (loop().run_readable() != 0) {
    }
    ASSERT_EQ(dispatched().size(), 2U); // the foreign one is dropped before
    EXPECT_EQ(dispatched()[0], Packet(100, 7) + Packet(10124, 0));
    EXPECT_EQ(dispatched()[1], (Packet{1, 2}) + Packet(10222, 0)); // nothing is left of the one before
}

TEST_F(NetlinkRead, what_the_hook_wrote_behind_a_payload_is_gone_with_the_next) {
    up();
    in_dispatch = [](uint8_t *payload) { std::memset(payload, 0xEE, 10248 - 24); };
    for (int n = 0; n < 2; ++n) {
        kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
        ASSERT_EQ(loop().run_readable(), 1);
    }
    EXPECT_EQ(dispatched()[1], Packet({1}) + Packet(10223, 0));
}

TEST_F(NetlinkRead, the_hook_runs_before_the_job_is_added_again) {
    up();
    int jobs = -1;
    in_dispatch = [&](uint8_t *) { jobs = read_jobs(); };
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().run_readable();
    EXPECT_EQ(jobs, 0);
    EXPECT_EQ(read_jobs(), 1);
}

// The hook may close the channel, or bring it up anew.
TEST_F(NetlinkRead, the_hook_may_change_the_channel) {
    up();
    in_dispatch = [](uint8_t *) { bridge_lib_nlclient_deinit(&ctx()); };
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().run_readable();
    EXPECT_EQ(read_jobs(), 0);
    up();
    in_dispatch = [](uint8_t *) { ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1); };
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().run_readable();
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().run_readable(), 0);
}

// The hook is host code as a handler is.
TEST_F(NetlinkRead, a_hook_that_resets_the_connection_is_followed_by_one_reconnect) {
    up();
    ASSERT_EQ(bridge_client_thread_event(BRI_CLNT_EVT_READ), 0);
    in_dispatch = [](uint8_t *) {
        bridge_client_connect_reset();
        bridge_client_connect_reset();
        EXPECT_EQ(loop().count("bri-reconn"), 0);
    };
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    EXPECT_EQ(loop().run("bri-ef-read"), 0);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(read_jobs(), 1);
}

TEST_F(NetlinkRead, drops_a_message_and_waits_for_the_next) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, Packet(100, 7))));
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_TRUE(log_lines().empty());
    ASSERT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->arg, nullptr);
    EXPECT_EQ(loop().run_readable(), 0); // it was taken off the socket
}

TEST_F(NetlinkRead, takes_one_message_at_a_time) {
    up();
    for (int n = 0; n < 3; ++n)
        kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_EQ(loop().run_readable(), 0);
    EXPECT_EQ(read_jobs(), 1);
}

TEST_F(NetlinkRead, a_foreign_type_is_reported_and_dropped) {
    up();
    kernel.deliver(fd(), netlink_message(99, 3, netlink_attr(0, Packet(8, 7))));
    loop().run_readable();
    expect_msg_line("[unit] Get whole msg failed. rep_len 32 nlmsg_len 32 nlmsg_type 99 family_id 27.\n");
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().run_readable(), 0);
}

TEST_F(NetlinkRead, a_controller_notice_other_than_deleted_is_dropped) {
    up();
    for (const uint8_t command : {uint8_t{1}, uint8_t{7}, uint8_t{8}}) {
        clear_log();
        kernel.deliver(fd(), netlink_message(16, command, netlink_attr(2, {'x', 0})));
        EXPECT_EQ(loop().run_readable(), 1);
        expect_msg_line("[unit] Get whole msg failed. rep_len 28 nlmsg_len 28 nlmsg_type 16 family_id 27.\n");
        EXPECT_EQ(read_jobs(), 1);
    }
    EXPECT_EQ(ctx().nl_ready, 1);
}

// Every datagram shorter than netlink and generic header is a failed head; it must not be met again.
TEST_F(NetlinkRead, a_headless_datagram_is_reported_and_consumed) {
    up();
    for (size_t size = 0; size < 20; ++size) {
        clear_log();
        kernel.deliver(fd(), Packet(size, 2)); // its type would say error
        EXPECT_EQ(loop().run_readable(), 1) << size;
        EXPECT_EQ(log_text(), "[unit] Get msg head failed. rep_len " + std::to_string(size) + ".\n");
        EXPECT_EQ(loop().run_readable(), 0) << size;
    }
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(ctx().nl_ready, 1);
}

TEST_F(NetlinkRead, a_failing_peek_is_reported_and_the_job_added_again) {
    up();
    faults::fail("recvfrom", 1, ENOBUFS);
    loop().run("bri-ef-read");
    EXPECT_EQ(log_text(), "[unit] Get msg head failed. rep_len -1.\n");
    EXPECT_EQ(read_jobs(), 1);
}

TEST_F(NetlinkRead, a_failing_read_is_reported_and_the_job_added_again) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, Packet(8, 7))));
    faults::fail("recv", 1, EIO);
    loop().run("bri-ef-read");
    EXPECT_EQ(log_text(), "[unit] Get whole msg failed. rep_len -1 nlmsg_len 0 nlmsg_type 0 family_id 27.\n");
    EXPECT_EQ(read_jobs(), 1);
}

// A length word that does not fit the datagram: one receive call takes it off the socket all the same.
TEST_F(NetlinkRead, a_wrong_length_neither_spins_nor_blocks) {
    up();
    Packet message = netlink_message(kernel.family, 3, netlink_attr(0, Packet(76, 7)));
    ASSERT_EQ(message.size(), 100U);
    for (const uint32_t length : {0U, 1U, 5U, 6U, 15U, 16U, 19U, 20U, 23U, 101U, 10248U}) {
        clear_log();
        put_at(message.data(), 0, length);
        kernel.deliver(fd(), message);
        EXPECT_EQ(loop().run_readable(), 1) << length;
        Packet read(24); // the read buffer: as much as the length said, zero behind it
        std::copy_n(message.begin(), std::min<size_t>(length, read.size()), read.begin());
        EXPECT_EQ(log_text(), "[unit] Get whole msg failed. rep_len " + std::to_string(std::min(length, 100U)) +
                                  " nlmsg_len " + std::to_string(value_at<int32_t>(read.data(), 0)) + " nlmsg_type " +
                                  std::to_string(value_at<uint16_t>(read.data(), 4)) + " family_id 27.\n");
        EXPECT_EQ(loop().run_readable(), 0) << length;
        EXPECT_EQ(read_jobs(), 1) << length;
    }
}

TEST_F(NetlinkRead, a_shorter_length_than_the_datagram_reads_that_much) {
    up();
    Packet message = netlink_message(kernel.family, 3, netlink_attr(0, Packet(76, 7)));
    for (const uint32_t length : {24U, 50U, 99U}) {
        put_at(message.data(), 0, length);
        kernel.deliver(fd(), message);
        EXPECT_EQ(loop().run_readable(), 1) << length;
        EXPECT_TRUE(log_lines().empty()) << length;
        EXPECT_EQ(loop().run_readable(), 0) << length;
    }
}

TEST_F(NetlinkRead, the_longest_message_is_taken) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, Packet(10248 - 20, 7)));
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_TRUE(log_lines().empty());
    EXPECT_EQ(ctx().nl_ready, 1);
}

// One refusal does not leave the channel deaf.
TEST_F(NetlinkRead, a_refused_re_add_is_asked_for_again_by_the_flush_timer) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().refused = "bri-ef-read";
    EXPECT_EQ(loop().run("bri-ef-read"), -1);
    bri::client::flush_job(nullptr);
    EXPECT_EQ(read_jobs(), 0);
    loop().refused.clear();
    bri::client::flush_job(nullptr);
    ASSERT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->arg, nullptr);
    bri::client::flush_job(nullptr);
    EXPECT_EQ(read_jobs(), 1);
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {2})));
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_EQ(dispatched().size(), 2U);
}

TEST_F(NetlinkRead, a_refused_re_add_of_a_channel_closed_meanwhile_is_forgotten) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().refused = "bri-ef-read";
    loop().run("bri-ef-read");
    loop().refused.clear();
    bridge_lib_nlclient_deinit(&ctx());
    up();
    bri::client::flush_job(nullptr);
    ASSERT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->arg, &ctx()); // that of the new channel, untouched
}

TEST_F(NetlinkRead, adds_the_flush_timer_when_that_was_refused) {
    up();
    loop().refused = "bri-msg-timer";
    bri::client::flush_job(nullptr);
    loop().refused.clear();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().run("bri-ef-read");
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
}

TEST_F(NetlinkRead, a_refused_re_add_leaves_the_channel_as_it_is) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().refuse = 1;
    loop().run("bri-ef-read");
    EXPECT_EQ(read_jobs(), 0);
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(read_jobs(), 1);
}

} // namespace
