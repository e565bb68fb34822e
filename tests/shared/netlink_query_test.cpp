#include "tests/shared/netlink_fixture.h"

namespace {

using namespace test;

class NetlinkQuery : public KernelHost {
  protected:
    // The kernel answers every data request with this attribute payload.
    void answers(const Packet &payload) {
        kernel.on_data = [this, payload](const KernelRequest &request) { kernel.answer(request, payload); };
    }
    void replies(const Packet &message) {
        kernel.on_data = [this, message](const KernelRequest &request) { kernel.deliver(request.fd, message); };
    }
    static void *query(const Packet &data = Packet(68, 1), int32_t type = MAC_EVENT_CLIENT_FIND_FIRST) {
        return bridge_lib_query_netlink(data.data(), static_cast<uint32_t>(data.size()), type);
    }
    static Packet bytes(const void *at, size_t size) {
        const auto *first = static_cast<const uint8_t *>(at);
        return {first, first + size};
    }
};

TEST_F(NetlinkQuery, gives_the_attribute_payload_of_the_answer) {
    answers({1, 2, 3, 4, 5});
    const void *answer = query();
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(bytes(answer, 8), (Packet{1, 2, 3, 4, 5, 0, 0, 0}));
    EXPECT_EQ(reinterpret_cast<uintptr_t>(answer) % 8, 0U);
}

TEST_F(NetlinkQuery, uses_a_socket_of_its_own_without_groups) {
    answers({1});
    ASSERT_NE(query(), nullptr);
    ASSERT_EQ(kernel.sockets.size(), 1U);
    const KernelSocket &socket = kernel.sockets[0];
    EXPECT_EQ(socket.type, SOCK_RAW | SOCK_CLOEXEC);
    EXPECT_EQ(socket.protocol, NETLINK_GENERIC);
    EXPECT_EQ(socket.address.nl_family, AF_NETLINK);
    EXPECT_EQ(socket.address.nl_pid, 0U);
    EXPECT_EQ(socket.address.nl_groups, 0U);
    EXPECT_EQ(socket.receive_timeout.tv_sec, 10);
    EXPECT_EQ(socket.receive_timeout.tv_usec, 0);
    EXPECT_TRUE(socket.timeout_at_resolution);
    EXPECT_EQ(kernel.open_sockets(), 0);
    EXPECT_EQ(extra_descriptors(), 0);
}

TEST_F(NetlinkQuery, resolves_and_then_sends_the_data_in_the_common_framing) {
    answers({1});
    const Packet data{9, 8, 7};
    ASSERT_NE(query(data, MVLAN_EVENT_NOTIFY_ENTRY), nullptr);
    ASSERT_EQ(kernel.requests.size(), 2U);
    EXPECT_EQ(kernel.requests[0].message_type(), 16);
    const KernelRequest &request = kernel.requests[1];
    ASSERT_EQ(request.bytes.size(), 36U);
    EXPECT_EQ(request.at<uint32_t>(0), 36U);
    EXPECT_EQ(request.message_type(), 27);
    EXPECT_EQ(request.at<uint16_t>(6), 1);
    EXPECT_EQ(request.at<uint32_t>(8), 0U);
    EXPECT_EQ(request.at<uint32_t>(12), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(request.at<uint8_t>(16), 3);
    EXPECT_EQ(request.at<uint8_t>(17), 1);
    EXPECT_EQ(request.at<uint16_t>(20), 16);
    EXPECT_EQ(request.at<uint16_t>(22), 0);
    EXPECT_EQ(request.type(), MVLAN_EVENT_NOTIFY_ENTRY);
    EXPECT_EQ(request.data_length(), 3U);
    EXPECT_EQ(request.data(), data);
    EXPECT_EQ(request.at<uint8_t>(35), 0);
    EXPECT_EQ(log_lines().size(), 1U);
    expect_msg_line("[] Query netlink, sock_fd(" + std::to_string(request.fd) +
                    "), family_id(27), type(515), len(3).\n");
}

TEST_F(NetlinkQuery, tells_what_it_asks_before_it_is_sent) {
    std::string told;
    kernel.on_data = [&](const KernelRequest &) { told = log_text(); };
    query();
    EXPECT_EQ(told.rfind("[] Query netlink, sock_fd(", 0), 0U) << told;
}

TEST_F(NetlinkQuery, leaves_the_persistent_channel_alone) {
    up();
    answers({1});
    ASSERT_NE(query(), nullptr);
    EXPECT_EQ(kernel.open_sockets(), 1);
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(read_jobs(), 1);
}

// Whatever an earlier answer left is gone, up to the end of the buffer.
TEST_F(NetlinkQuery, everything_behind_a_short_answer_is_zero) {
    answers(Packet(10248 - 24, 0xEE));
    const void *longest = query();
    ASSERT_NE(longest, nullptr);
    EXPECT_EQ(bytes(longest, 10224), Packet(10224, 0xEE));
    answers({0xAA});
    const void *answer = query();
    ASSERT_EQ(answer, longest); // valid until the next query
    Packet expected(10224, 0);
    expected[0] = 0xAA;
    EXPECT_EQ(bytes(answer, 10224), expected);
}

TEST_F(NetlinkQuery, what_the_caller_wrote_behind_an_answer_is_gone_with_the_next) {
    answers({0xAA});
    void *answer = query();
    ASSERT_NE(answer, nullptr);
    std::memset(answer, 0xEE, 10224);
    ASSERT_EQ(query(), answer);
    EXPECT_EQ(bytes(answer, 10224), Packet({0xAA}) + Packet(10223, 0));
}

TEST_F(NetlinkQuery, an_answer_without_payload_reads_as_zeros) {
    answers(Packet(100, 0xEE));
    ASSERT_NE(query(), nullptr);
    answers({});
    const void *answer = query();
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(bytes(answer, 100), Packet(100, 0));
}

// What an answer that was refused left behind is cleared as well.
TEST_F(NetlinkQuery, a_refused_answer_leaves_nothing_behind) {
    replies(netlink_message(99, 3, netlink_attr(0, Packet(100, 0xEE))));
    ASSERT_EQ(query(), nullptr);
    answers({1});
    const void *answer = query();
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(bytes(answer, 100), Packet({1}) + Packet(99, 0));
}

TEST_F(NetlinkQuery, an_error_answer_restarts_the_persistent_channel) {
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
    up();
    kernel.on_data = [this](const KernelRequest &request) { kernel.answer_error(request, -EINVAL); };
    EXPECT_EQ(query(), nullptr);
    EXPECT_TRUE(logged("[unit] EF-bridge disconn msg received.\n"));
    EXPECT_TRUE(logged(std::string("[unit] Get msg head failed. error -22, ") + strerror(-22) + ".\n"));
    EXPECT_EQ(kernel.open_sockets(), 0);
    EXPECT_EQ(extra_descriptors(), 0);
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(read_jobs(), 0);
    ASSERT_EQ(timers(), 1);
    loop().run("bri-ef-reconn");
    EXPECT_EQ(ctx().nl_ready, 1);
}

TEST_F(NetlinkQuery, errors_one_after_the_other_keep_one_timer) {
    up();
    kernel.on_data = [this](const KernelRequest &request) { kernel.answer_error(request, -EINVAL); };
    ASSERT_EQ(query(), nullptr);
    const int first = loop().find("bri-ef-reconn")->id;
    for (int n = 0; n < 5; ++n)
        EXPECT_EQ(query(), nullptr);
    EXPECT_EQ(timers(), 1);
    EXPECT_EQ(loop().find("bri-ef-reconn")->id, first); // it is not put off either
}

TEST_F(NetlinkQuery, a_family_that_goes_meanwhile_restarts_the_channel) {
    up();
    replies(netlink_message(16, 2, {}));
    EXPECT_EQ(query(), nullptr);
    EXPECT_EQ(timers(), 1);
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(kernel.open_sockets(), 0);
    EXPECT_EQ(extra_descriptors(), 0);
}

TEST_F(NetlinkQuery, an_over_long_answer_is_a_disconnection_and_not_data) {
    up();
    replies(netlink_message(27, 3, netlink_attr(0, Packet(10248 - 24 + 1, 1))));
    EXPECT_EQ(query(), nullptr);
    EXPECT_EQ(timers(), 1);
    EXPECT_EQ(extra_descriptors(), 0);
}

TEST_F(NetlinkQuery, answers_that_are_not_the_familys_give_nothing) {
    up();
    const struct {
        Packet message;
        const char *line;
    } rows[] = {
        {netlink_message(28, 3, netlink_attr(0, Packet(8, 1))),
         "[unit] Get whole msg failed. rep_len 32 nlmsg_len 32 nlmsg_type 28 family_id 27.\n"},
        {family_answer("EF_BRIDGE", 27),
         "[unit] Get whole msg failed. rep_len 52 nlmsg_len 52 nlmsg_type 16 family_id 27.\n"},
        {netlink_message(27, 3, {}),
         "[unit] Get whole msg failed. rep_len 20 nlmsg_len 20 nlmsg_type 27 family_id 27.\n"},
        {netlink_message(27, 3, {1, 2, 3}),
         "[unit] Get whole msg failed. rep_len 23 nlmsg_len 23 nlmsg_type 27 family_id 27.\n"},
        {netlink_message(27, 3, netlink_attr(0, Packet(8, 1)), 33),
         "[unit] Get whole msg failed. rep_len 32 nlmsg_len 33 nlmsg_type 27 family_id 27.\n"},
        {Packet(19, 0), "[unit] Get msg head failed. rep_len 19.\n"},
    };
    for (const auto &row : rows) {
        clear_log();
        replies(row.message);
        EXPECT_EQ(query(), nullptr) << row.line;
        EXPECT_TRUE(logged(row.line)) << row.line << log_text();
        EXPECT_EQ(extra_descriptors(), 1) << row.line; // the channel's
    }
    EXPECT_EQ(timers(), 0);
    EXPECT_EQ(ctx().nl_ready, 1);
}

TEST_F(NetlinkQuery, a_silent_kernel_gives_nothing_after_the_time_out) {
    up();
    EXPECT_EQ(query(), nullptr);
    EXPECT_TRUE(logged("[unit] Get msg head failed. rep_len -1.\n"));
    EXPECT_EQ(extra_descriptors(), 1);
    EXPECT_EQ(timers(), 0);
}

TEST_F(NetlinkQuery, a_kernel_silent_at_the_resolution_gives_nothing_after_the_time_out) {
    kernel.silent = true;
    EXPECT_EQ(query(), nullptr);
    EXPECT_EQ(log_text(), "[] netlink msg type error.\n");
    EXPECT_EQ(kernel.requests.size(), 1U);
    EXPECT_EQ(extra_descriptors(), 0);
}

// The socket of a query goes with it, and a late answer with the socket: the next query gets its own answer.
TEST_F(NetlinkQuery, a_late_answer_is_not_taken_for_the_next_one) {
    int late = -1;
    kernel.on_data = [&](const KernelRequest &request) { late = request.fd; };
    EXPECT_EQ(query(), nullptr);
    kernel.deliver(late, netlink_message(27, 3, netlink_attr(0, {1})));
    answers({2});
    const void *answer = query();
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(bytes(answer, 1), Packet{2});
    EXPECT_EQ(kernel.open_sockets(), 0);
    EXPECT_EQ(extra_descriptors(), 0);
}

// The same for the answer to the resolution.
TEST_F(NetlinkQuery, a_late_family_is_not_taken_for_the_next_one) {
    int late = -1;
    kernel.on_resolve = [&](const KernelRequest &request) { late = request.fd; };
    EXPECT_EQ(query(), nullptr);
    EXPECT_TRUE(kernel.data_requests().empty());
    kernel.on_resolve = nullptr;
    kernel.deliver(late, family_answer("EF_BRIDGE", 99));
    answers({2});
    EXPECT_NE(query(), nullptr);
    EXPECT_EQ(kernel.data_requests().back().message_type(), 27);
    EXPECT_EQ(extra_descriptors(), 0);
}

TEST_F(NetlinkQuery, without_the_family_gives_nothing) {
    kernel.family = 0;
    EXPECT_EQ(query(), nullptr);
    EXPECT_EQ(log_text(), "[] netlink msg type error.\n");
    EXPECT_EQ(kernel.requests.size(), 1U);
    EXPECT_EQ(extra_descriptors(), 0);
    EXPECT_EQ(timers(), 0);
}

TEST_F(NetlinkQuery, finds_a_family_that_was_created_anew_under_another_id) {
    up();
    kernel.family = 41;
    answers({3});
    EXPECT_NE(query(), nullptr);
    EXPECT_EQ(kernel.data_requests().back().message_type(), 41);
    EXPECT_EQ(kernel.open_sockets(), 1); // the channel's
    EXPECT_EQ(extra_descriptors(), 1);
}

// The answer to the resolution is read in one piece of at most 20020 bytes.
TEST_F(NetlinkQuery, a_resolution_of_up_to_20020_bytes_is_taken) {
    size_t filling = 0;
    kernel.on_resolve = [&](const KernelRequest &request) {
        Packet answer = family_answer("EF_BRIDGE", 27) + netlink_attr(9, Packet(filling, 1));
        put_at(answer.data(), 0, static_cast<uint32_t>(answer.size()));
        kernel.deliver(request.fd, answer);
    };
    answers({1});
    const size_t others = family_answer("EF_BRIDGE", 27).size() + 4;
    filling = 20020 - others;
    EXPECT_NE(query(), nullptr);
    filling += 4;
    EXPECT_EQ(query(), nullptr);
    EXPECT_TRUE(logged("[] netlink msg type error.\n"));
}

// The read job has a buffer of its own.
TEST_F(NetlinkQuery, an_answer_stays_while_the_channel_is_read) {
    up();
    answers(Packet(50, 0xEE));
    const void *answer = query();
    ASSERT_NE(answer, nullptr);
    kernel.deliver(fd(), netlink_message(27, 3, netlink_attr(0, Packet(100, 7))));
    EXPECT_EQ(loop().run_readable(), 1);
    EXPECT_EQ(bytes(answer, 100), Packet(50, 0xEE) + Packet(50, 0));
}

TEST_F(NetlinkQuery, every_refused_step_gives_nothing_without_losing_a_descriptor) {
    const struct {
        const char *call;
        int nth;
        const char *log;
    } rows[] = {
        {"socket", 1, ""}, {"bind", 1, ""},          {"sendto", 1, ""},    {"recv", 1, "[] netlink msg type error.\n"},
        {"malloc", 1, ""}, {"recvfrom", 1, nullptr}, {"recv", 2, nullptr}, {"sendto", 2, nullptr}};
    answers({1});
    const uint8_t data[68] = {};
    for (const auto &row : rows) {
        clear_log();
        faults::fail(row.call, row.nth, EIO);
        EXPECT_EQ(bridge_lib_query_netlink(data, sizeof data, MAC_EVENT_CLIENT_FIND_FIRST), nullptr)
            << row.call << row.nth;
        EXPECT_EQ(faults::injected(), 1 + static_cast<int>(&row - rows)) << row.call << row.nth;
        EXPECT_EQ(extra_descriptors(), 0) << row.call << row.nth;
        EXPECT_EQ(kernel.open_sockets(), 0) << row.call << row.nth;
        if (row.log != nullptr) {
            EXPECT_EQ(log_text(), row.log) << row.call << row.nth;
        }
    }
    expect_msg_line("[] Query netlink error.\n"); // the last row's request was not sent
    EXPECT_NE(query(), nullptr);
}

TEST_F(NetlinkQuery, without_a_receive_time_out_gives_the_answer) {
    answers({1});
    faults::fail("setsockopt", 1, EDOM);
    EXPECT_NE(query(), nullptr);
    EXPECT_EQ(faults::injected(), 1);
}

TEST_F(NetlinkQuery, takes_up_to_19987_bytes) {
    answers({1});
    EXPECT_NE(query(Packet(19987, 0xEE)), nullptr);
    EXPECT_EQ(kernel.requests[1].bytes.size(), 20020U);
    EXPECT_EQ(kernel.requests[1].data(), Packet(19987, 0xEE));
    clear_log();
    EXPECT_EQ(query(Packet(19988, 0xEE)), nullptr);
    expect_msg_line("[] Query netlink error.\n");
    const Packet data(4, 0);
    for (const uint32_t len : {0x7FFFFFFFU, 0xFFFFFFF8U, 0xFFFFFFFFU})
        EXPECT_EQ(bridge_lib_query_netlink(data.data(), len, MAC_EVENT_CLIENT_FIND_FIRST), nullptr) << len;
    EXPECT_EQ(bridge_lib_query_netlink(nullptr, 1, MAC_EVENT_CLIENT_FIND_FIRST), nullptr);
    EXPECT_EQ(kernel.sockets.size(), 1U);
}

TEST_F(NetlinkQuery, may_carry_no_data) {
    answers({1});
    EXPECT_NE(bridge_lib_query_netlink(nullptr, 0, MAC_EVENT_CLIENT_FIND_FIRST), nullptr);
    EXPECT_EQ(kernel.requests[1].data_length(), 0U);
}

TEST_F(NetlinkQuery, feedback_reads_the_next_message_of_any_socket) {
    up();
    kernel.deliver(fd(), netlink_message(55, 3, netlink_attr(0, {4, 5, 6})));
    const void *payload = bridge_lib_feedback_netlink(fd(), 55);
    ASSERT_NE(payload, nullptr);
    EXPECT_EQ(bytes(payload, 4), (Packet{4, 5, 6, 0}));
    EXPECT_EQ(bridge_lib_feedback_netlink(-1, 55), nullptr);
    EXPECT_EQ(bridge_lib_feedback_netlink(fd(), -1), nullptr);
}

TEST_F(NetlinkQuery, writes_nothing_while_the_flag_is_off) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    answers({1});
    EXPECT_NE(query(), nullptr);
    kernel.on_data = [this](const KernelRequest &request) { kernel.answer_error(request, -EINVAL); };
    EXPECT_EQ(query(), nullptr);
    EXPECT_EQ(bridge_lib_query_netlink(nullptr, 1, MAC_EVENT_CLIENT_FIND_FIRST), nullptr);
    EXPECT_TRUE(log_lines().empty());
}

} // namespace
