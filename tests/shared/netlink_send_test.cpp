#include "tests/shared/netlink_fixture.h"

#include <chrono>

namespace {

using namespace test;

using NetlinkSend = KernelHost;

TEST_F(NetlinkSend, sends_type_length_and_data_in_one_attribute) {
    up();
    const Packet data{1, 2, 3, 4, 5, 6, 7};
    ASSERT_EQ(bridge_lib_send_netlink(data.data(), 7, MAC_EVENT_SS_NOTIFY_ADDR), 0);
    ASSERT_EQ(kernel.requests.size(), 2U);
    const KernelRequest &request = kernel.requests[1];
    EXPECT_EQ(request.fd, fd());
    ASSERT_EQ(request.bytes.size(), 40U);
    EXPECT_EQ(request.at<uint32_t>(0), 40U);
    EXPECT_EQ(request.at<uint16_t>(4), 27);
    EXPECT_EQ(request.at<uint16_t>(6), 1);
    EXPECT_EQ(request.at<uint32_t>(8), 0U);
    EXPECT_EQ(request.at<uint32_t>(12), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(request.at<uint8_t>(16), 3);
    EXPECT_EQ(request.at<uint8_t>(17), 1);
    EXPECT_EQ(request.at<uint16_t>(20), 20);
    EXPECT_EQ(request.at<uint16_t>(22), 0);
    EXPECT_EQ(request.at<int32_t>(24), 274);
    EXPECT_EQ(request.at<uint32_t>(28), 7U);
    EXPECT_EQ(request.data(), data);
    EXPECT_EQ(request.at<uint8_t>(39), 0);
    expect_msg_line("[unit] send to netlink, type(274), len(7).\n");
    EXPECT_EQ(log_lines().size(), 1U);
}

TEST_F(NetlinkSend, tells_what_it_sends_before_it_is_sent) {
    up();
    std::string told;
    kernel.on_data = [&](const KernelRequest &) { told = log_text(); };
    ASSERT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), 0);
    EXPECT_EQ(told, "[unit] send to netlink, type(275), len(0).\n");
}

TEST_F(NetlinkSend, sends_no_data_at_all) {
    up();
    ASSERT_EQ(bridge_lib_send_netlink(nullptr, 0, -5), 0);
    EXPECT_EQ(kernel.requests[1].bytes.size(), 36U);
    EXPECT_EQ(kernel.requests[1].type(), -5);
    EXPECT_EQ(kernel.requests[1].data_length(), 0U);
}

TEST_F(NetlinkSend, sends_every_length_of_data_whole) {
    up();
    for (uint32_t len = 1; len < 40; ++len) {
        const Packet data(len, static_cast<uint8_t>(0x80 + len));
        ASSERT_EQ(bridge_lib_send_netlink(data.data(), len, MAC_EVENT_SS_NOTIFY_ADDR), 0);
        EXPECT_EQ(kernel.requests.back().data_length(), len);
        EXPECT_EQ(kernel.requests.back().data(), data);
    }
}

TEST_F(NetlinkSend, takes_up_to_19987_bytes) {
    up();
    const Packet data(19988, 0xEE);
    ASSERT_EQ(bridge_lib_send_netlink(data.data(), 19987, MAC_EVENT_SS_NOTIFY_ADDR), 0);
    EXPECT_EQ(kernel.requests[1].bytes.size(), 20020U);
    EXPECT_EQ(kernel.requests[1].data(), Packet(19987, 0xEE));
    EXPECT_EQ(kernel.requests[1].at<uint8_t>(20019), 0);
    EXPECT_EQ(bridge_lib_send_netlink(data.data(), 19988, MAC_EVENT_SS_NOTIFY_ADDR), -1);
    expect_msg_line("[unit] send to netlink error.\n");
}

TEST_F(NetlinkSend, refuses_lengths_that_would_wrap_and_missing_data) {
    up();
    const Packet data(4, 0);
    for (const uint32_t len : {20000U, 0x7FFFFFFFU, 0xFFFFFFF0U, 0xFFFFFFF8U, 0xFFFFFFFFU})
        EXPECT_EQ(bridge_lib_send_netlink(data.data(), len, MAC_EVENT_SS_NOTIFY_ADDR), -1) << len;
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 1, MAC_EVENT_SS_NOTIFY_ADDR), -1);
    EXPECT_EQ(kernel.requests.size(), 1U);
}

TEST_F(NetlinkSend, on_a_closed_channel_fails) {
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), -1);
    EXPECT_EQ(log_text(), "[] send to netlink, type(275), len(0).\n[] send to netlink error.\n");
    EXPECT_TRUE(kernel.requests.empty());
}

// A channel that came no further than its socket: the family is sent as it stands.
TEST_F(NetlinkSend, with_the_family_unknown_sends_its_low_16_bits) {
    kernel.family = 0;
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), 0);
    EXPECT_EQ(kernel.data_requests().back().message_type(), 0xFFFF);
}

TEST_F(NetlinkSend, without_memory_fails_silently) {
    up();
    faults::fail("malloc", 1, ENOMEM);
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), -1);
    EXPECT_EQ(kernel.requests.size(), 1U);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(NetlinkSend, a_full_socket_is_tried_again) {
    up();
    faults::fail("sendto", 1, EAGAIN, 4);
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), 0);
    EXPECT_EQ(faults::calls("sendto"), 1 + 5); // the resolution's, four refused, one taken
    EXPECT_EQ(kernel.requests.size(), 2U);
}

TEST_F(NetlinkSend, a_socket_that_stays_full_holds_the_host_for_a_tenth_of_a_second) {
    up();
    faults::fail("sendto", 1, EAGAIN, 1 << 30);
    const int before = faults::calls("sendto");
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), -1);
    const auto taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken, std::chrono::milliseconds(99)); // the deadline is in whole milliseconds
    EXPECT_LT(taken, std::chrono::seconds(5));
    EXPECT_LE(faults::calls("sendto") - before, 101); // without using the processor up
    EXPECT_TRUE(logged("[unit] send to netlink error.\n"));
}

// Room that comes is used at once, however long the time that was left.
TEST_F(NetlinkSend, a_socket_that_gets_room_is_written_to) {
    up();
    const auto start = std::chrono::steady_clock::now();
    faults::hooks.sendto = [&, real = faults::hooks.sendto](int fd, const void *data, size_t size, int flags,
                                                            const sockaddr *to, socklen_t length) {
        if (std::chrono::steady_clock::now() - start > std::chrono::milliseconds(30))
            return real(fd, data, size, flags, to, length);
        errno = EAGAIN;
        return ssize_t{-1};
    };
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), 0);
    EXPECT_EQ(kernel.requests.size(), 2U);
}

TEST_F(NetlinkSend, any_other_error_fails_at_once) {
    up();
    for (const int error : {EINTR, ECONNREFUSED, ENOBUFS, EPERM}) {
        const int before = faults::calls("sendto");
        faults::fail("sendto", 1, error);
        EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), -1) << error;
        EXPECT_EQ(faults::calls("sendto"), before + 1) << error;
    }
    EXPECT_EQ(times_logged("[unit] send to netlink error.\n"), 4);
    EXPECT_EQ(ctx().nl_ready, 1); // a failed send does not close the channel
}

TEST_F(NetlinkSend, a_short_write_continues_with_the_rest) {
    up();
    Packet taken;
    std::vector<size_t> asked;
    faults::hooks.sendto = [&](int, const void *data, size_t size, int, const sockaddr *, socklen_t) {
        const faults::Pause pause;
        const size_t some = std::min<size_t>(size, asked.empty() ? 1 : 15);
        const auto *bytes = static_cast<const uint8_t *>(data);
        taken.insert(taken.end(), bytes, bytes + some);
        asked.push_back(size);
        return static_cast<ssize_t>(some);
    };
    const Packet data(7, 9);
    EXPECT_EQ(bridge_lib_send_netlink(data.data(), 7, MAC_EVENT_SS_NOTIFY_ADDR), 0);
    EXPECT_EQ(asked, (std::vector<size_t>{40, 39, 24, 9}));
    EXPECT_EQ(value_at<uint32_t>(taken.data(), 0), 40U);
    EXPECT_EQ(value_at<uint32_t>(taken.data(), 28), 7U);
}

TEST_F(NetlinkSend, a_write_of_nothing_fails_whatever_errno_said_before) {
    up();
    faults::hooks.sendto = [](int, const void *, size_t, int, const sockaddr *, socklen_t) { return ssize_t{0}; };
    const int before = faults::calls("sendto");
    errno = EAGAIN;
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN), -1);
    EXPECT_EQ(faults::calls("sendto"), before + 1);
}

TEST_F(NetlinkSend, writes_nothing_while_the_flag_is_off) {
    up();
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN);
    bridge_lib_send_netlink(nullptr, 1, MAC_EVENT_DYN_CHECK_BEGIN);
    kernel.deliver(fd(), {1});
    loop().run_readable();
    kernel.deliver(fd(), netlink_message(99, 3, {}));
    loop().run_readable();
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    EXPECT_EQ(timers(), 1);
    EXPECT_TRUE(log_lines().empty());
}

} // namespace
