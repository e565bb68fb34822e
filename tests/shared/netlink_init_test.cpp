#include "tests/shared/netlink_fixture.h"
#include "tests/support/effects.h"

#include <fcntl.h>

namespace {

using namespace test;

using NetlinkInit = KernelHost;

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
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    ASSERT_EQ(read_jobs(), 1);
    const Job &job = *loop().find("bri-ef-read");
    EXPECT_EQ(job.kind, Job::Kind::kRead);
    EXPECT_EQ(job.arg, &ctx());
    EXPECT_EQ(job.fd, fd());
    EXPECT_EQ(job.master, loop().master());
    EXPECT_EQ(ctx().nl_ready, 1);
    ASSERT_EQ(event_types(), std::vector<uint32_t>{BRIDGE_EVENT_KERNEL_DATA_REQ});
    EXPECT_EQ(events()[0].len, 0);
    EXPECT_EQ(timers(), 0);
}

TEST_F(NetlinkInit, adds_the_read_job_before_the_client_counts_as_ready) {
    int ready = -1;
    on_effect = [&](const std::string &effect) {
        if (effect == "add bri-ef-read")
            ready = ctx().nl_ready;
    };
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    on_effect = nullptr;
    EXPECT_EQ(ready, 0);
    EXPECT_EQ(ctx().nl_ready, 1);
}

TEST_F(NetlinkInit, a_handler_finds_the_channel_up) {
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
    int ready = 0;
    int result = -2;
    during = [&](uint32_t) {
        ready = ctx().nl_ready;
        result = bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN);
    };
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(ready, 1);
    EXPECT_EQ(result, 0);
    during = nullptr;
}

TEST_F(NetlinkInit, twice_keeps_the_socket_and_one_read_job) {
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
    up();
    const int first = fd();
    ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(fd(), first);
    EXPECT_EQ(kernel.requests.size(), 1U);
    EXPECT_EQ(read_jobs(), 1);
    EXPECT_EQ(event_types(), std::vector<uint32_t>{BRIDGE_EVENT_KERNEL_DATA_REQ});
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

TEST_F(NetlinkInit, for_another_client_takes_the_read_job_over) {
    up();
    bri_clnt_ctx other{};
    other.master = loop().master();
    ASSERT_EQ(bridge_lib_nlclient_init(&other), 1);
    ASSERT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->arg, &other);
    EXPECT_EQ(kernel.sockets.size(), 1U);
}

// Its job moves to its loop, and stays there.
TEST_F(NetlinkInit, for_a_client_of_another_loop_moves_the_read_job_there) {
    up();
    bri_clnt_ctx other{};
    other.master = loop().other_master();
    ASSERT_EQ(bridge_lib_nlclient_init(&other), 1);
    ASSERT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->master, loop().other_master());
    kernel.deliver(fd(), netlink_message(kernel.family, 3, netlink_attr(0, {1})));
    EXPECT_EQ(loop().run("bri-ef-read"), 0);
    ASSERT_EQ(read_jobs(), 1);
    EXPECT_EQ(loop().find("bri-ef-read")->master, loop().other_master());
    bridge_lib_nlclient_deinit(&other);
    EXPECT_EQ(read_jobs(), 0);
}

TEST_F(NetlinkInit, every_refused_step_of_the_socket_fails_without_losing_a_descriptor) {
    for (const char *call : {"socket", "bind"}) {
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

TEST_F(NetlinkInit, without_a_receive_time_out_succeeds) {
    faults::fail("setsockopt", 1, EDOM);
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(faults::injected(), 1);
    EXPECT_EQ(kernel.sockets[0].receive_timeout.tv_sec, 0);
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
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
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

} // namespace
