// The tests against the kernel of the machine that runs them, without the bridge module: no double, real generic
// netlink sockets. With the module: tests/lab.
#include "shared/netlink_frame.h"
#include "tests/support/host.h"
#include "tests/support/kernel.h"
#include "tests/support/kernel_module.h"

namespace {

using namespace test;
namespace netlink = bri::netlink;

class RealKernel : public Host {
  protected:
    void SetUp() override {
        debug_on({BRI_DBG_MSG});
        before_ = open_descriptors();
        fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
        if (fd_ < 0 && (errno == EPROTONOSUPPORT || errno == EAFNOSUPPORT))
            GTEST_SKIP() << "no generic netlink here: " << strerror(errno);
        ASSERT_GT(fd_, 0);
        const timeval limit{5, 0};
        ASSERT_EQ(setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit), 0);
        if (!without_module_.away() || id_of("EF_BRIDGE") != 0)
            GTEST_SKIP() << "this kernel has the bridge module";
    }
    void TearDown() override {
        bridge_lib_nlclient_deinit(&ctx());
        if (fd_ >= 0)
            close(fd_);
        EXPECT_EQ(open_descriptors(), before_);
    }

    // Asks the controller in the library's framing; its whole answer.
    Packet ask(const char *name) {
        auto request = std::make_unique<netlink::Request>();
        EXPECT_TRUE(netlink::build_resolution(*request, name));
        sockaddr_nl kernel{};
        kernel.nl_family = AF_NETLINK;
        EXPECT_EQ(sendto(fd_, request->bytes().data, request->bytes().size, 0,
                         reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel),
                  static_cast<ssize_t>(request->bytes().size));
        Packet answer(20020);
        const ssize_t received = recv(fd_, answer.data(), answer.size(), 0);
        answer.resize(received > 0 ? static_cast<size_t>(received) : 0);
        return answer;
    }
    uint16_t id_of(const char *name) {
        const Packet answer = ask(name);
        return netlink::family_id_in({answer.data(), answer.size()}, name);
    }

    WithoutModule without_module_;
    int fd_ = -1;
    int before_ = 0;
};

TEST_F(RealKernel, answers_no_such_family) {
    const Packet answer = ask("EF_BRIDGE");
    ASSERT_GE(answer.size(), 20U);
    EXPECT_EQ(value_at<uint16_t>(answer.data(), 4), NLMSG_ERROR);
    EXPECT_EQ(value_at<int32_t>(answer.data(), 16), -ENOENT);
}

TEST_F(RealKernel, accepts_the_framing_for_a_family_that_it_has) {
    const Packet answer = ask("nlctrl");
    ASSERT_GE(answer.size(), 24U);
    EXPECT_EQ(value_at<uint16_t>(answer.data(), 4), GENL_ID_CTRL);
    EXPECT_EQ(answer[16], CTRL_CMD_NEWFAMILY);
    EXPECT_EQ(netlink::family_id_in({answer.data(), answer.size()}, "nlctrl"), GENL_ID_CTRL);
}

TEST_F(RealKernel, initialisation_fails_at_the_family_step) {
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 0);
    EXPECT_EQ(log_text(), "[unit] netlink msg type error.\n[unit] get socket[AF_NETLINK] family failed.\n");
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(Loop::get().count("bri-ef-read"), 0);
}

TEST_F(RealKernel, a_query_gives_nothing) {
    const uint8_t data[68] = {};
    EXPECT_EQ(bridge_lib_query_netlink(data, sizeof data, MAC_EVENT_CLIENT_FIND_FIRST), nullptr);
    EXPECT_EQ(log_text(), "[] netlink msg type error.\n");
}

// The kernel's own error message closes the channel; from then on the timer keeps trying.
TEST_F(RealKernel, the_reconnect_timer_keeps_trying) {
    auto request = std::make_unique<netlink::Request>();
    ASSERT_TRUE(netlink::build_resolution(*request, "EF_BRIDGE"));
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    ASSERT_GT(sendto(fd_, request->bytes().data, request->bytes().size, 0, reinterpret_cast<const sockaddr *>(&kernel),
                     sizeof kernel),
              0);
    EXPECT_EQ(bridge_lib_feedback_netlink(fd_, 27), nullptr);
    EXPECT_TRUE(logged("[] EF-bridge disconn msg received.\n"));
    EXPECT_TRUE(logged(std::string("[] Get msg head failed. error -2, ") + strerror(-2) + ".\n"));
    for (int tries = 1; tries <= 3; ++tries) {
        ASSERT_EQ(Loop::get().count("bri-ef-reconn"), 1);
        Loop::get().run("bri-ef-reconn");
        EXPECT_EQ(times_logged("[unit] get socket[AF_NETLINK] family failed.\n"), tries);
    }
    EXPECT_EQ(ctx().nl_ready, 0);
}

} // namespace
