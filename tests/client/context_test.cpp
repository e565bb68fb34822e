// Start-up: the context, its buffers and limits, every way to fail, and the first jobs.
#include "tests/client/transport_fixture.h"

#include <fcntl.h>

namespace {

using namespace test;
using bri::client::g_bglib_sendbuf;
using bri::client::g_state;

class Init : public Transport {
  protected:
    struct Outcome {
        int result;
        std::string printed;
    };
    static Outcome init(const char *name, qv_thread_master *master = loop().master()) {
        testing::internal::CaptureStdout();
        const int result = bridge_agent_init(name, master);
        return {result, testing::internal::GetCapturedStdout()};
    }
    static void soil_state() {
        g_state = {1, 2, 3, 1, 2, {}};
        for (auto &slot : g_state.business)
            slot = [](void *, void *) { return 0; };
    }
    static void expect_state_words_zero() {
        EXPECT_EQ(g_state.slave, 0);
        EXPECT_EQ(g_state.sync_state, 0U);
        EXPECT_EQ(g_state.oridata_req_set, 0U);
        EXPECT_EQ(g_state.oridata_state, 0U);
        EXPECT_EQ(g_state.switchover_state, 0U);
    }
    static void expect_nothing_left() {
        EXPECT_EQ(g_bridge_client, nullptr);
        EXPECT_EQ(g_bglib_recvbuf, nullptr);
        EXPECT_EQ(g_bglib_sendbuf, nullptr);
        EXPECT_TRUE(loop().pending.empty());
    }
    static bool contains(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos;
    }
};

TEST_F(Init, refuses_a_null_loop_and_has_zeroed_the_state_words) {
    soil_state();
    const Outcome outcome = init("A", nullptr);
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.printed, "Bridge lib init failed: master is null\n");
    expect_state_words_zero();
    EXPECT_NE(g_state.business[0], nullptr); // these wait for a start that goes on
    expect_nothing_left();
}

TEST_F(Init, refuses_a_second_start_names_the_first_client_and_has_zeroed_the_state_words) {
    ASSERT_EQ(init("FIRST").result, 0);
    const bri_clnt_ctx *first = g_bridge_client;
    const size_t jobs = loop().pending.size();
    soil_state();
    const Outcome outcome = init("SECOND");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.printed, "Bridge lib is already init by [FIRST]; \n");
    expect_state_words_zero();
    EXPECT_EQ(g_bridge_client, first);
    EXPECT_STREQ(first->name, "FIRST");
    EXPECT_EQ(loop().pending.size(), jobs);
}

TEST_F(Init, fails_silently_without_memory_for_a_buffer_and_can_be_repeated) {
    for (const int nth : {1, 2}) {
        faults::fail("calloc", nth, ENOMEM);
        const Outcome outcome = init("A");
        EXPECT_EQ(outcome.result, -1) << nth;
        EXPECT_EQ(outcome.printed, "") << nth;
        expect_nothing_left();
    }
    EXPECT_EQ(faults::injected(), 2);
    EXPECT_EQ(init("A").result, 0);
}

TEST_F(Init, says_so_when_there_is_no_memory_for_the_context) {
    faults::fail("calloc", 3, ENOMEM);
    const Outcome outcome = init("A");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.printed, "Bridge lib init failed: no memory.\n");
    EXPECT_EQ(faults::injected(), 1);
    expect_nothing_left();
    EXPECT_EQ(init("A").result, 0);
}

TEST_F(Init, says_so_when_the_socket_fails_and_leaves_nothing_behind) {
    soil_state();
    const int descriptors = open_descriptors();
    faults::fail("socket", 1, EMFILE);
    const Outcome outcome = init("A");
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.printed, "Bridge lib init failed: sock create failed.\n");
    EXPECT_EQ(open_descriptors(), descriptors);
    EXPECT_EQ(faults::calls("semget") + faults::calls("shmget"), 0); // no subsystem was started
    EXPECT_EQ(g_state.business[0], nullptr);
    expect_nothing_left();
    EXPECT_EQ(init("A").result, 0);
}

// The debug part was given the context that a failed start frees.
TEST_F(Init, leaves_a_debug_message_without_effect_when_it_failed) {
    faults::fail("socket", 1, EMFILE);
    ASSERT_EQ(init("A").result, -1);
    uint8_t message[16] = {};
    put_at(message, 0, uint32_t{DEBUG_EVENT_MSG});
    put_at(message, 4, uint32_t{8});
    put_at(message, 12, uint32_t{1});
    bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(message));
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_MSG], 0);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Init, logs_from_its_first_socket_on_when_a_marker_file_asks_for_it) {
    faults::redirect("/data/bridge_client_VLAND", write_file("marker", ""));
    ASSERT_EQ(init("VLAND").result, 0);
    EXPECT_TRUE(logged("[VLAND] sock[" + std::to_string(ctx().sock) + "] create SUCC.\n"));
    EXPECT_TRUE(logged("[VLAND] ready to add qv-thread for CONNECT.\n"));
}

TEST_F(Init, prints_nothing_when_it_succeeds) {
    faults::redirect("/proc/meminfo", write_file("meminfo", "MemTotal: 9 kB\nMemFree: 1 kB\nActive: 1 kB\n"
                                                            "Inactive: 1 kB\nMapped: 1 kB\nSlab: 1 kB\n"));
    const Outcome outcome = init("A");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.printed, "");
}

TEST_F(Init, starts_the_subsystems_in_their_order_behind_the_socket) {
    faults::redirect("/data/bridge_client_VLAND", write_file("marker", ""));
    ByteVec mac_name; // when the first segment is made
    faults::hooks.malloc = [&](size_t size) {
        if (faults::calls("shmget") == 1 && mac_name.empty()) {
            const faults::Pause pause;
            mac_name.assign(g_bglib_client_name_mac, g_bglib_client_name_mac + 20);
        }
        return std::calloc(1, size);
    };
    ASSERT_EQ(init("VLAND").result, 0);
    faults::hooks.malloc = nullptr;
    EXPECT_EQ(mac_name, bytes_of("VLAND\0\0\0\0\0\0\0\0\0\0\0\0\0\0"));
    const std::string log = log_text();
    size_t at = 0;
    for (const char *part : {"create SUCC", "name:SWPORT-SHM", "name:VLAN-SHM", "name:VLAN-GROUP-SHM",
                             "[VLAND] ready to add qv-thread for CONNECT.\n"}) {
        at = log.find(part, at);
        ASSERT_NE(at, std::string::npos) << part;
    }
}

TEST_F(Init, tells_the_subsystems_the_name) {
    ASSERT_EQ(init("VLAND").result, 0);
    debug_on({BRI_DBG_MSG, BRI_DBG_VLAN});
    clear_log();
    bridge_client_request_oridata();
    EXPECT_TRUE(logged("[VLAND] request oridata ...\n"));
    bridge_set_port_fwd_status(nullptr);
    EXPECT_TRUE(logged("Client[VLAND] set port status failed: invalid arg.\n"));
    EXPECT_STREQ(g_bglib_client_name_mac, "VLAND");
}

TEST_F(Init, says_so_when_the_vlan_groups_fail_and_goes_on) {
    faults::fail("shmget", 1, ENOMEM, 1000);
    const Outcome outcome = init("A");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(contains(outcome.printed, "bri clnt vlan group shm init failed.\n")) << outcome.printed;
    EXPECT_EQ(loop().count("bri-conn"), 1);
}

TEST_F(Init, fills_the_context) {
    ASSERT_EQ(init("VLAND").result, 0);
    const bri_clnt_ctx &ctx = *g_bridge_client;
    EXPECT_EQ(ctx.pid, static_cast<uint32_t>(getpid()));
    EXPECT_GT(ctx.sock, 0);
    EXPECT_EQ(ctx.cache_cnt, 0U);
    EXPECT_EQ(ctx.cache_drop, 0U);
    EXPECT_EQ(ctx.connected, 0);
    EXPECT_EQ(ctx.nl_ready, 0);
    EXPECT_EQ(ctx.fresh, 1);
    EXPECT_EQ(ctx.conn_done, 0);
    EXPECT_EQ(ctx.data_synced, 0);
    EXPECT_STREQ(ctx.name, "VLAND");
    EXPECT_EQ(ctx.master, loop().master());
    for (const uint32_t word : ctx.event_set.words)
        EXPECT_EQ(word, 0U);
    for (const bri_list *head : {&ctx.handlers, &ctx.conn_cbs, &ctx.oridata_cbs, &ctx.cache}) {
        EXPECT_EQ(head->next, head);
        EXPECT_EQ(head->prev, head);
    }
}

TEST_F(Init, zeroes_the_business_callbacks) {
    soil_state();
    ASSERT_EQ(init("A").result, 0);
    for (const auto slot : g_state.business)
        EXPECT_EQ(slot, nullptr);
}

TEST_F(Init, gives_both_buffers_all_zero) {
    ASSERT_EQ(init("A").result, 0);
    EXPECT_TRUE(all_zero(send_buffer()));
    EXPECT_TRUE(all_zero(receive_buffer()));
}

TEST_F(Init, adds_the_connect_job_and_the_flush_timer) {
    ASSERT_EQ(init("A").result, 0);
    const Job *connect = loop().find("bri-conn");
    const Job *timer = loop().find("bri-msg-timer");
    ASSERT_NE(connect, nullptr);
    ASSERT_NE(timer, nullptr);
    EXPECT_EQ(timer->id, connect->id + 1);
    EXPECT_EQ(loop().count("bri-read") + loop().count("bri-reconn"), 0);
}

TEST_F(Init, succeeds_when_the_loop_refuses_both_jobs) {
    loop().refuse = 1000;
    EXPECT_EQ(init("A").result, 0);
    EXPECT_NE(g_bridge_client, nullptr);
    EXPECT_TRUE(loop().pending.empty());
}

// --- name

class InitName : public Init {
  protected:
    // The context's 20 bytes hold this text and zeros.
    static void expect_kept(const char *given, const char *kept) {
        ASSERT_EQ(init(given).result, 0);
        char expected[20] = {};
        std::strcpy(expected, kept);
        EXPECT_EQ(std::memcmp(g_bridge_client->name, expected, sizeof expected), 0) << g_bridge_client->name;
    }
};

TEST_F(InitName, may_be_empty) {
    expect_kept("", "");
}
TEST_F(InitName, of_19_characters_is_kept_whole) {
    expect_kept("1234567890123456789", "1234567890123456789");
}
TEST_F(InitName, of_20_characters_is_cut_to_19) {
    expect_kept("12345678901234567890", "1234567890123456789");
}
TEST_F(InitName, of_any_length_is_cut_to_19) {
    expect_kept(std::string(5000, 'x').c_str(), "xxxxxxxxxxxxxxxxxxx");
}
TEST_F(InitName, is_no_format) {
    expect_kept("100%s%n", "100%s%n");
}

TEST_F(Init, makes_a_name_of_the_process_id_when_none_is_given) {
    faults::hooks.getpid = [] { return 321; };
    ASSERT_EQ(init(nullptr).result, 0);
    EXPECT_STREQ(g_bridge_client->name, "Bridge-client-321");
    EXPECT_EQ(g_bridge_client->pid, 321U);
}

TEST_F(Init, cuts_a_made_name_too) {
    faults::hooks.getpid = [] { return 1234567; };
    ASSERT_EQ(init(nullptr).result, 0);
    EXPECT_STREQ(g_bridge_client->name, "Bridge-client-12345");
}

// --- cache limit

class InitCacheLimit : public Init {
  protected:
    uint32_t limit_with(uint64_t mem_total) {
        const std::string rest = "MemFree: 9 kB\nActive: 1 kB\nInactive: 1 kB\nMapped: 1 kB\nSlab: 1 kB\n";
        faults::redirect("/proc/meminfo",
                         write_file("meminfo", "MemTotal: " + std::to_string(mem_total) + " kB\n" + rest));
        const Outcome outcome = init("A");
        EXPECT_EQ(outcome.result, 0);
        EXPECT_FALSE(contains(outcome.printed, "mem info")) << outcome.printed;
        return g_bridge_client->cache_max;
    }
};

TEST_F(InitCacheLimit, is_raised_to_10240_with_1_gigabyte) {
    EXPECT_EQ(limit_with(1048576), 10240U);
}
TEST_F(InitCacheLimit, is_20480_with_4_gigabytes) {
    EXPECT_EQ(limit_with(4194304), 20480U);
}
TEST_F(InitCacheLimit, counts_full_shares_only) {
    EXPECT_EQ(limit_with(11 * 204960 - 1), 10240U);
}
TEST_F(InitCacheLimit, grows_by_1024_with_the_eleventh_share) {
    EXPECT_EQ(limit_with(11 * 204960), 11264U);
}
TEST_F(InitCacheLimit, is_computed_in_64_bits) {
    EXPECT_EQ(limit_with(uint64_t{204960} * 100000), 102400000U); // 19 TB
}
TEST_F(InitCacheLimit, saturates) {
    EXPECT_EQ(limit_with(uint64_t{204960} << 23), UINT32_MAX);
}

TEST_F(InitCacheLimit, is_10240_and_said_so_when_the_figures_cannot_be_read) {
    faults::redirect("/proc/meminfo", tmpdir() + "/none");
    const Outcome outcome = init("A");
    EXPECT_EQ(outcome.result, 0);
    EXPECT_TRUE(contains(outcome.printed, "Failed to get sys mem info.\n")) << outcome.printed;
    EXPECT_EQ(g_bridge_client->cache_max, 10240U);
}

// --- thread events

class ThreadEvent : public Transport {
  protected:
    // The only pending job after adding this kind.
    const Job &added(int kind) {
        start();
        loop().pending.clear();
        EXPECT_EQ(bridge_client_thread_event(kind), 0);
        EXPECT_EQ(loop().pending.size(), 1U);
        return loop().pending.at(0);
    }
    static void expect(const Job &job, const char *name, Job::Kind kind, qv_thread_func func, long usec, int fd) {
        EXPECT_EQ(job.name, name);
        EXPECT_EQ(job.kind, kind);
        EXPECT_EQ(job.func, func);
        EXPECT_EQ(job.arg, g_bridge_client);
        EXPECT_EQ(job.master, loop().master());
        EXPECT_EQ(job.usec, usec);
        EXPECT_EQ(job.fd, fd);
    }
};

TEST_F(ThreadEvent, connect_runs_at_once) {
    expect(added(BRI_CLNT_EVT_CONNECT), "bri-conn", Job::Kind::kEvent, bri::client::connect_job, 0, -1);
}
TEST_F(ThreadEvent, read_waits_for_the_socket) {
    const Job &job = added(BRI_CLNT_EVT_READ);
    expect(job, "bri-read", Job::Kind::kRead, bri::client::read_job, 0, ctx().sock);
}
TEST_F(ThreadEvent, reconnect_waits_one_second) {
    expect(added(BRI_CLNT_EVT_RECONNECT), "bri-reconn", Job::Kind::kTimer, bri::client::connect_job, 1000000, -1);
}
TEST_F(ThreadEvent, the_flush_timer_waits_50_milliseconds) {
    expect(added(BRI_CLNT_EVT_MSG_TIMER), "bri-msg-timer", Job::Kind::kTimerTimeval, bri::client::flush_job, 50000, -1);
}

TEST_F(ThreadEvent, gives_0_and_adds_nothing_for_an_unknown_kind) {
    start();
    loop().pending.clear();
    debug_on({BRI_DBG_MSG});
    clear_log();
    for (const int kind : {-2147483647 - 1, -1, 4, 5, 2147483647})
        EXPECT_EQ(bridge_client_thread_event(kind), 0) << kind;
    EXPECT_TRUE(loop().pending.empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ThreadEvent, fails_when_the_loop_refuses_the_job) {
    start();
    loop().pending.clear();
    for (const int kind : {0, 1, 2, 3}) {
        loop().refuse = 1;
        EXPECT_EQ(bridge_client_thread_event(kind), -1) << kind;
    }
    EXPECT_TRUE(loop().pending.empty());
}

TEST_F(ThreadEvent, fails_for_every_kind_before_start_up) {
    for (const int kind : {-1, 0, 1, 2, 3, 4})
        EXPECT_EQ(bridge_client_thread_event(kind), -1) << kind;
    EXPECT_TRUE(loop().pending.empty());
}

// --- callbacks

class StartCallbacks : public Transport {
  protected:
    static inline std::vector<int> called;
    template <int Number> static void callback() { called.push_back(Number); }
    static void append_again() {
        called.push_back(9);
        bridge_agent_set_connect_callback(append_again);
    }
    static void append_first_of_two() {
        called.push_back(6);
        bridge_agent_set_connect_callback(append_second_of_two);
    }
    static void append_second_of_two() {
        called.push_back(7);
        bridge_agent_set_connect_callback(append_first_of_two);
    }
    static void append_other() {
        called.push_back(8);
        bridge_agent_set_connect_callback(callback<1>);
    }
    static int length(const bri_list &head) {
        int nodes = 0;
        for (const bri_list *link = head.next; link != &head; link = link->next)
            ++nodes;
        return nodes;
    }
};

TEST_F(StartCallbacks, are_appended_in_order_duplicates_included) {
    start();
    bridge_agent_set_connect_callback(callback<1>);
    bridge_agent_set_connect_callback(callback<2>);
    bridge_agent_set_connect_callback(callback<1>);
    bridge_agent_set_oridata_callback(callback<3>);
    bri::client::run_callbacks(ctx().conn_cbs);
    EXPECT_EQ(called, (std::vector<int>{1, 2, 1}));
    bri::client::run_callbacks(ctx().oridata_cbs);
    EXPECT_EQ(called, (std::vector<int>{1, 2, 1, 3}));
}

TEST_F(StartCallbacks, are_refused_before_start_up_when_null_and_without_memory) {
    bridge_agent_set_connect_callback(callback<1>);
    bridge_agent_set_oridata_callback(callback<1>);
    start();
    bridge_agent_set_connect_callback(nullptr);
    bridge_agent_set_oridata_callback(nullptr);
    faults::fail("malloc", 1, ENOMEM, 2);
    bridge_agent_set_connect_callback(callback<1>);
    bridge_agent_set_oridata_callback(callback<1>);
    EXPECT_EQ(faults::injected(), 2);
    EXPECT_EQ(length(ctx().conn_cbs), 0);
    EXPECT_EQ(length(ctx().oridata_cbs), 0);
}

TEST_F(StartCallbacks, that_are_null_are_skipped) {
    start();
    bridge_agent_set_connect_callback(callback<1>);
    bridge_agent_set_connect_callback(callback<2>);
    bridge_agent_set_connect_callback(callback<3>);
    reinterpret_cast<bri_clnt_cb_node *>(ctx().conn_cbs.next->next)->fn = nullptr;
    bri::client::run_callbacks(ctx().conn_cbs);
    EXPECT_EQ(called, (std::vector<int>{1, 3}));
}

TEST_F(StartCallbacks, that_one_appends_run_in_the_same_walk) {
    start();
    bridge_agent_set_connect_callback(append_other);
    bridge_agent_set_connect_callback(callback<2>);
    bri::client::run_callbacks(ctx().conn_cbs);
    EXPECT_EQ(called, (std::vector<int>{8, 2, 1}));
}

TEST_F(StartCallbacks, that_append_each_other_run_once_each) {
    start();
    bridge_agent_set_connect_callback(append_first_of_two);
    bri::client::run_callbacks(ctx().conn_cbs);
    EXPECT_EQ(called, (std::vector<int>{6, 7}));
    EXPECT_EQ(length(ctx().conn_cbs), 3);
}

TEST_F(StartCallbacks, that_append_themselves_do_not_run_for_ever) {
    start();
    bridge_agent_set_connect_callback(append_again);
    bri::client::run_callbacks(ctx().conn_cbs);
    EXPECT_EQ(called, (std::vector<int>{9}));
    EXPECT_EQ(length(ctx().conn_cbs), 2);
    bri::client::run_callbacks(ctx().conn_cbs);
    EXPECT_EQ(called, (std::vector<int>{9, 9, 9}));
}

} // namespace
