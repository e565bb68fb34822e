// Jobs that the loop would not take: each is asked for again, so that the client is neither deaf, unconnected nor
// unflushed for good.
#include "base/refused_jobs.h"
#include "tests/client/transport_fixture.h"

namespace {

using namespace test;

class RefusedJobs : public Transport {
  protected:
    // The next job that the library adds is refused.
    static void refuse(int times = 1) { loop().refuse = times; }
    static void add(bri_clnt_thread_evt kind, int result = 0) { EXPECT_EQ(bridge_client_thread_event(kind), result); }
};

TEST_F(RefusedJobs, read_is_asked_for_again_by_the_flush_timer) {
    Server server;
    Peer peer = start_connected(server);
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}});
    refuse();
    EXPECT_EQ(loop().run("bri-read"), -1);
    EXPECT_EQ(loop().count("bri-read"), 0);
    EXPECT_EQ(tick(), 0);
    ASSERT_EQ(loop().count("bri-read"), 1);
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {0}}});
    EXPECT_EQ(loop().run("bri-read"), 0);
    EXPECT_EQ(bri::client::g_state.slave, 0);
}

TEST_F(RefusedJobs, read_of_a_connection_that_is_lost_is_not) {
    Server server;
    Peer peer = start_connected(server);
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}});
    refuse();
    EXPECT_EQ(loop().run("bri-read"), -1);
    bridge_client_connect_reset();
    EXPECT_GT(bridge_client_socket_create(&ctx()), 0);
    tick();
    EXPECT_EQ(loop().count("bri-read"), 0);
}

TEST_F(RefusedJobs, read_that_the_connect_job_adds_meanwhile_is_not_added_twice) {
    Server server;
    Peer peer = start_connected(server);
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}});
    refuse();
    EXPECT_EQ(loop().run("bri-read"), -1);
    add(BRI_CLNT_EVT_CONNECT);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    tick();
    EXPECT_EQ(loop().count("bri-read"), 1);
}

TEST_F(RefusedJobs, read_after_connecting_is_asked_for_before_the_second_is_over) {
    Server server;
    start();
    refuse();
    EXPECT_EQ(loop().run("bri-conn"), -1);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    tick();
    EXPECT_EQ(loop().count("bri-read"), 1);
    EXPECT_EQ(loop().run("bri-reconn"), 0);
    EXPECT_EQ(loop().count("bri-read"), 1);
}

TEST_F(RefusedJobs, reconnect_is_asked_for_again_until_the_loop_takes_it) {
    Server server;
    Peer peer = start_connected(server);
    peer.close();
    loop().refused = "bri-reconn";
    EXPECT_EQ(loop().run("bri-read"), -1);
    for (int period = 0; period < 3; ++period)
        EXPECT_EQ(tick(), 0);
    EXPECT_EQ(loop().count("bri-reconn"), 0);
    loop().refused.clear();
    tick();
    ASSERT_EQ(loop().count("bri-reconn"), 1);
    tick();
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(loop().run("bri-reconn"), 0);
    EXPECT_EQ(ctx().conn_done, 1);
}

TEST_F(RefusedJobs, reconnect_is_not_once_the_host_has_connected) {
    Server server;
    Peer peer = start_connected(server);
    peer.close();
    refuse();
    EXPECT_EQ(loop().run("bri-read"), -1);
    add(BRI_CLNT_EVT_CONNECT);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    tick();
    EXPECT_EQ(loop().count("bri-reconn"), 0);
    EXPECT_EQ(loop().count("bri-read"), 1);
}

TEST_F(RefusedJobs, the_first_connect_is_asked_for_again) {
    Server server;
    testing::internal::CaptureStdout();
    refuse();
    EXPECT_EQ(bridge_agent_init("unit", loop().master()), 0);
    testing::internal::GetCapturedStdout();
    ctx().nl_ready = 1;
    EXPECT_EQ(loop().count("bri-conn"), 0);
    EXPECT_EQ(tick(), 0);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    EXPECT_EQ(ctx().conn_done, 1);
}

TEST_F(RefusedJobs, the_flush_timer_is_asked_for_by_the_read_job) {
    Server server;
    Peer peer = start_connected(server);
    refuse();
    EXPECT_EQ(tick(), 0);
    EXPECT_EQ(loop().count("bri-msg-timer"), 0);
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}});
    EXPECT_EQ(loop().run("bri-read"), 0);
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
}

TEST_F(RefusedJobs, the_flush_timer_is_asked_for_by_the_connect_job) {
    Server server;
    start();
    refuse();
    EXPECT_EQ(tick(), 0);
    EXPECT_EQ(loop().run("bri-conn"), 0);
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
}

TEST_F(RefusedJobs, the_flush_timer_that_was_taken_is_not_added_again) {
    Server server;
    Peer peer = start_connected(server);
    refuse();
    EXPECT_EQ(tick(), 0);
    add(BRI_CLNT_EVT_MSG_TIMER);
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}});
    EXPECT_EQ(loop().run("bri-read"), 0);
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
}

// Both gone at once: the read job brings the timer back, and that the reconnect.
TEST_F(RefusedJobs, the_flush_timer_comes_back_and_brings_the_rest) {
    Server server;
    Peer peer = start_connected(server);
    refuse();
    EXPECT_EQ(tick(), 0);
    peer.close();
    refuse(2);
    EXPECT_EQ(loop().run("bri-read"), -1);
    EXPECT_TRUE(loop().pending.empty());
    EXPECT_EQ(bri::client::read_job(&ctx()), -1); // any job of the library
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
    tick();
    EXPECT_EQ(loop().count("bri-reconn"), 1);
}

// --- noting, for the jobs of other rooms

class RefusedJobsNote : public Transport {
  protected:
    static inline int first, second;
    static void add_first() { ++first; }
    static void add_second() {
        ++second;
        bri::refused_jobs::note(add_second, false);
    }
};

TEST_F(RefusedJobsNote, gives_back_how_it_ended) {
    EXPECT_TRUE(bri::refused_jobs::note(add_first, true));
    EXPECT_FALSE(bri::refused_jobs::note(add_first, false));
}

TEST_F(RefusedJobsNote, asks_each_once_in_a_period_also_one_that_is_refused_again) {
    for (int time = 0; time < 20; ++time) {
        bri::refused_jobs::note(add_first, false);
        bri::refused_jobs::note(add_second, false);
    }
    bri::refused_jobs::add_all();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 1);
    bri::refused_jobs::add_all();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
}

TEST_F(RefusedJobsNote, forgets_one_that_was_taken) {
    bri::refused_jobs::note(add_first, false);
    bri::refused_jobs::note(add_second, false);
    bri::refused_jobs::note(add_first, true);
    bri::refused_jobs::add_all();
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
}

} // namespace
