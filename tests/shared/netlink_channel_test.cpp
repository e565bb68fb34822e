#include "tests/shared/netlink_fixture.h"

#include <fcntl.h>

namespace {

using namespace test;

using NetlinkInit = KernelHost;
using NetlinkRead = KernelHost;
using NetlinkReconnect = KernelHost;
using NetlinkDeinit = KernelHost;
using NetlinkSend = KernelHost;

const std::vector<uint32_t> kOne137{137};
std::vector<uint32_t> types(const std::vector<HostEvent> &events) {
    std::vector<uint32_t> all;
    for (const HostEvent &event : events)
        all.push_back(event.type);
    return all;
}

// --- initialisation

TEST_F(NetlinkInit, without_a_client_fails) {
    EXPECT_EQ(bridge_lib_nlclient_init(nullptr), 0);
    expect_msg_line("Bridge lib nlclient init failed: client is not ready.\n");
    EXPECT_TRUE(kernel.sockets.empty());
}

TEST_F(NetlinkInit, opens_a_bound_socket_with_a_receive_time_out) {
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    ASSERT_EQ(kernel.sockets.size(), 1U);
    const KernelSocket &socket = kernel.sockets[0];
    EXPECT_EQ(socket.type & ~SOCK_CLOEXEC, SOCK_RAW);
    EXPECT_NE(socket.type & SOCK_CLOEXEC, 0);
    EXPECT_EQ(socket.protocol, NETLINK_GENERIC);
    EXPECT_TRUE(socket.bound);
    EXPECT_EQ(socket.address.nl_family, AF_NETLINK);
    EXPECT_EQ(socket.address.nl_pid, 0U);
    EXPECT_EQ(socket.address.nl_groups, 0x8000U);
    EXPECT_EQ(socket.receive_timeout.tv_sec, 10);
    EXPECT_EQ(socket.receive_timeout.tv_usec, 0);
    EXPECT_TRUE(socket.timeout_at_resolution);
    EXPECT_EQ(extra_descriptors(), 1);
}

TEST_F(NetlinkInit, resolves_the_family_at_the_kernel) {
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    ASSERT_EQ(kernel.requests.size(), 1U);
    const KernelRequest &request = kernel.requests[0];
    EXPECT_EQ(request.to.nl_family, AF_NETLINK);
    EXPECT_EQ(request.to.nl_pid, 0U);
    EXPECT_EQ(request.to.nl_groups, 0U);
    ASSERT_EQ(request.bytes.size(), 36U);
    EXPECT_EQ(request.at<uint16_t>(4), 16);
    EXPECT_EQ(request.at<uint16_t>(22), 2);
    EXPECT_STREQ(reinterpret_cast<const char *>(request.bytes.data() + 24), "EF_BRIDGE");
}

TEST_F(NetlinkInit, adds_the_read_job_with_the_client_and_asks_for_kernel_data_once) {
    watch({137});
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    ASSERT_EQ(read_jobs(), 1);
    const Job &job = *loop().find("bri-ef-read");
    EXPECT_EQ(job.kind, Job::Kind::kRead);
    EXPECT_EQ(job.arg, &ctx());
    EXPECT_EQ(job.fd, fd());
    EXPECT_EQ(job.master, loop().master());
    EXPECT_EQ(ctx().nl_ready, 1);
    ASSERT_EQ(types(events()), kOne137);
    EXPECT_EQ(events()[0].len, 0);
    EXPECT_EQ(timers(), 0);
}

TEST_F(NetlinkInit, a_handler_finds_the_channel_up) {
    watch({137});
    int ready = 0;
    int result = -2;
    during = [&](uint32_t) {
        ready = ctx().nl_ready;
        result = bridge_lib_send_netlink(nullptr, 0, 275);
    };
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(result, 0);
    during = nullptr;
}

TEST_F(NetlinkInit, twice_keeps_the_socket_and_one_read_job) {
    watch({137});
    up();
    const int first = fd();
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(fd(), first);
    EXPECT_EQ(kernel.requests.size(), 1U);
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(types(events()), kOne137);
}

TEST_F(NetlinkInit, after_a_read_keeps_one_read_job) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().run("bri-ef-read");
    EXPECT_EQ(loop().find("bri-ef-read")->arg, nullptr);
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->arg, &ctx());
}

TEST_F(NetlinkInit, every_refused_step_of_the_socket_fails_without_losing_a_descriptor) {
    for (const char *call : {"socket", "bind", "setsockopt"}) {
        clear_log();
        faults::fail(call, 1, EMFILE);
        EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 0) << call;
        expect_msg_line("[unit] create socket[AF_NETLINK] failed.\n");
        EXPECT_EQ(extra_descriptors(), 0) << call;
        EXPECT_EQ(kernel.open_sockets(), 0) << call;
    }
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(read_jobs(), 0);
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
}

TEST_F(NetlinkInit, moves_a_socket_off_descriptor_0) {
    const int standard_input = dup(0);
    faults::real_close(0);
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_GT(fd(), 0);
    EXPECT_EQ(loop().find("bri-ef-read")->fd, fd());
    EXPECT_EQ(fcntl(loop().find("bri-ef-read")->fd, F_GETFD), FD_CLOEXEC);
    bridge_lib_nlclient_deinit(&ctx());
    dup2(standard_input, 0);
    faults::real_close(standard_input);
    EXPECT_EQ(extra_descriptors(), 0);
}

TEST_F(NetlinkInit, without_the_family_fails_and_tries_again_on_the_same_socket) {
    kernel.family = 0;
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    expect_msg_line("[unit] netlink msg type error.\n");
    expect_msg_line("[unit] get socket[AF_NETLINK] family failed.\n");
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(read_jobs(), 0);
    EXPECT_EQ(timers(), 0); // no message on the channel told so: the caller decides what follows
    kernel.family = 31;
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(kernel.sockets.size(), 1U);
}

TEST_F(NetlinkInit, a_silent_kernel_fails_after_the_time_out) {
    kernel.silent = true;
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    expect_msg_line("[unit] netlink msg type error.\n");
    expect_msg_line("[unit] get socket[AF_NETLINK] family failed.\n");
}

// The answer that came too late is met by the next resolution, whose own answer is then dropped by the read job.
TEST_F(NetlinkInit, a_late_answer_to_the_resolution_serves_the_next_one) {
    kernel.silent = true;
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    kernel.deliver(fd(), family_answer("EF_BRIDGE", 27));
    kernel.silent = false;
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    clear_log();
    EXPECT_EQ(loop().run_readable(), 1);
    expect_msg_line("[unit] Get whole msg failed. rep_len 52 nlmsg_len 52 nlmsg_type 16 family_id 27.\n");
    EXPECT_EQ(read_jobs(), 1);
}

TEST_F(NetlinkInit, a_refused_resolution_request_fails_without_a_word_about_the_answer) {
    faults::fail("sendto", 1, ECONNREFUSED);
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    EXPECT_EQ(log_text(), "[unit] get socket[AF_NETLINK] family failed.\n");
}

TEST_F(NetlinkInit, a_refused_read_job_fails_and_keeps_the_socket) {
    watch({137});
    loop().refuse = 1;
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(extra_descriptors(), 1);
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(kernel.sockets.size(), 1U);
}

TEST_F(NetlinkInit, without_an_event_loop_fails) {
    ctx().master = nullptr;
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(NetlinkInit, names_the_client_of_the_last_call) {
    bri_clnt_ctx other{};
    std::memset(other.name, 'x', sizeof other.name); // not terminated
    faults::fail("socket", 1, EMFILE);
    EXPECT_EQ(bridge_lib_nlclient_init(&other), 0);
    EXPECT_TRUE(logged("[xxxxxxxxxxxxxxxxxxx] create socket[AF_NETLINK] failed.\n"));
}

TEST_F(NetlinkInit, writes_nothing_while_the_flag_is_off) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    bridge_lib_nlclient_init(nullptr);
    faults::fail("socket", 1, EMFILE);
    bridge_lib_nlclient_init(&ctx());
    kernel.family = 0;
    bridge_lib_nlclient_init(&ctx());
    EXPECT_TRUE(log_lines().empty());
}

// --- the read job

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
    for (size_t size = 1; size < 20; ++size) {
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
    for (const uint32_t length : {0U, 1U, 15U, 16U, 19U, 20U, 23U, 101U, 10248U}) {
        clear_log();
        put_at(message.data(), 0, length);
        kernel.deliver(fd(), message);
        EXPECT_EQ(loop().run_readable(), 1) << length;
        ASSERT_EQ(log_lines().size(), 1U) << length;
        EXPECT_EQ(log_lines()[0].format,
                  "[%s] Get whole msg failed. rep_len %d nlmsg_len %d nlmsg_type %d family_id %d.\n");
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

TEST_F(NetlinkRead, a_refused_re_add_leaves_the_channel_as_it_is) {
    up();
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    loop().refuse = 1;
    loop().run("bri-ef-read");
    EXPECT_EQ(read_jobs(), 0);
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(read_jobs(), 1);
}

// --- the kernel side goes

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

TEST_F(NetlinkReconnect, raises_the_event_twice_when_it_succeeds) {
    watch({137});
    up();
    kernel.deliver(fd(), netlink_error(-1));
    loop().run_readable();
    EXPECT_TRUE(events().empty());
    loop().run("bri-ef-reconn");
    EXPECT_EQ(types(events()), (std::vector<uint32_t>{137, 137}));
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
    ASSERT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), 0);
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
    ASSERT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), 0);
    EXPECT_EQ(kernel.data_requests().back().message_type(), 99);
}

// --- sending

TEST_F(NetlinkSend, sends_type_length_and_data_in_one_attribute) {
    up();
    const Packet data{1, 2, 3, 4, 5, 6, 7};
    ASSERT_EQ(bridge_lib_send_netlink(data.data(), 7, 274), 0);
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

TEST_F(NetlinkSend, sends_no_data_at_all) {
    up();
    ASSERT_EQ(bridge_lib_send_netlink(nullptr, 0, -5), 0);
    EXPECT_EQ(kernel.requests[1].bytes.size(), 36U);
    EXPECT_EQ(kernel.requests[1].type(), -5);
    EXPECT_EQ(kernel.requests[1].data_length(), 0U);
}

TEST_F(NetlinkSend, takes_up_to_19987_bytes) {
    up();
    const Packet data(19988, 0xEE);
    ASSERT_EQ(bridge_lib_send_netlink(data.data(), 19987, 274), 0);
    EXPECT_EQ(kernel.requests[1].bytes.size(), 20020U);
    EXPECT_EQ(kernel.requests[1].data(), Packet(19987, 0xEE));
    EXPECT_EQ(kernel.requests[1].at<uint8_t>(20019), 0);
    EXPECT_EQ(bridge_lib_send_netlink(data.data(), 19988, 274), -1);
    expect_msg_line("[unit] send to netlink error.\n");
}

TEST_F(NetlinkSend, refuses_lengths_that_would_wrap_and_missing_data) {
    up();
    const Packet data(4, 0);
    for (const uint32_t len : {20000U, 0x7FFFFFFFU, 0xFFFFFFF0U, 0xFFFFFFF8U, 0xFFFFFFFFU})
        EXPECT_EQ(bridge_lib_send_netlink(data.data(), len, 274), -1) << len;
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 1, 274), -1);
    EXPECT_EQ(kernel.requests.size(), 1U);
}

TEST_F(NetlinkSend, on_a_closed_channel_fails) {
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), -1);
    EXPECT_EQ(log_text(), "[] send to netlink, type(275), len(0).\n[] send to netlink error.\n");
    EXPECT_TRUE(kernel.requests.empty());
}

TEST_F(NetlinkSend, without_memory_fails_silently) {
    up();
    faults::fail("malloc", 1, ENOMEM);
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), -1);
    EXPECT_EQ(kernel.requests.size(), 1U);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(NetlinkSend, a_full_socket_is_tried_again) {
    up();
    faults::fail("sendto", 1, EAGAIN, 4);
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), 0);
    EXPECT_EQ(faults::calls("sendto"), 1 + 5); // the resolution's, four refused, one taken
    EXPECT_EQ(kernel.requests.size(), 2U);
}

TEST_F(NetlinkSend, a_socket_that_stays_full_does_not_hold_the_host) {
    up();
    faults::fail("sendto", 1, EAGAIN, 1 << 30);
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), -1);
    EXPECT_TRUE(logged("[unit] send to netlink error.\n"));
}

TEST_F(NetlinkSend, any_other_error_fails_at_once) {
    up();
    for (const int error : {EINTR, ECONNREFUSED, ENOBUFS, EPERM}) {
        const int before = faults::calls("sendto");
        faults::fail("sendto", 1, error);
        EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), -1) << error;
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
        const size_t some = std::min<size_t>(size, 15);
        const auto *bytes = static_cast<const uint8_t *>(data);
        taken.insert(taken.end(), bytes, bytes + some);
        asked.push_back(size);
        return static_cast<ssize_t>(some);
    };
    const Packet data(7, 9);
    EXPECT_EQ(bridge_lib_send_netlink(data.data(), 7, 274), 0);
    EXPECT_EQ(asked, (std::vector<size_t>{40, 25, 10}));
    EXPECT_EQ(value_at<uint32_t>(taken.data(), 0), 40U);
    EXPECT_EQ(value_at<uint32_t>(taken.data(), 28), 7U);
}

TEST_F(NetlinkSend, a_write_of_nothing_fails_whatever_errno_said_before) {
    up();
    faults::hooks.sendto = [](int, const void *, size_t, int, const sockaddr *, socklen_t) { return ssize_t{0}; };
    errno = EAGAIN;
    EXPECT_EQ(bridge_lib_send_netlink(nullptr, 0, 275), -1);
}

TEST_F(NetlinkSend, writes_nothing_while_the_flag_is_off) {
    up();
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    bridge_lib_send_netlink(nullptr, 0, 275);
    bridge_lib_send_netlink(nullptr, 1, 275);
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
