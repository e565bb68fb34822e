// Batches from the server: read whole or not at all, split, handed on in order; and the connection that ends or is
// reset on the way.
#include "tests/client/transport_fixture.h"

namespace {

using namespace test;
using bri::client::g_state;

constexpr uint32_t kStat = BRIDGE_EVEVT_SERVER_STAT;       // its byte shows in g_state.slave
constexpr uint32_t kBegin = BRIDGE_EVENT_SWITCHOVER_BEGIN; // reaches handlers, sets slave to 0
constexpr uint32_t kBackup = BRIDGE_EVENT_BKUP_DATA_BEGIN; // reaches handlers
constexpr uint32_t kNobodys = BRI_SUBMOD_QINQ << 7 | 1;    // dropped by the dispatcher

class Receive : public Transport {
  protected:
    ~Receive() override { faults::clear(); }

    void begin() {
        peer = start_paired();
        event_set set{};
        for (const uint32_t type : {kBegin, kBackup})
            add_to(set, type);
        bridge_client_reg_event(&set, handler);
        (void)peer.read_now(); // the added registration
        EXPECT_EQ(bridge_client_thread_event(BRI_CLNT_EVT_READ), 0);
        debug_on({BRI_DBG_MSG});
        clear_log();
    }
    static int read_job() { return loop().run("bri-read"); }

    // The messages that the read job took out, in order.
    static std::vector<std::string> taken() {
        std::vector<std::string> lines;
        for (const LogLine &line : log_lines())
            if (line.text.find("recv msg: ") != std::string::npos)
                lines.push_back(line.text.substr(line.text.find("type")));
        return lines;
    }
    static int handler(uint32_t type, void *, uint16_t) {
        events.push_back(type);
        if (during != nullptr)
            during();
        return 0;
    }
    static void expect_lost() {
        EXPECT_EQ(ctx().sock, 0);
        EXPECT_EQ(ctx().connected, 0);
        EXPECT_EQ(ctx().conn_done, 0);
        EXPECT_EQ(ctx().fresh, 1);
        EXPECT_EQ(loop().count("bri-read"), 0);
        EXPECT_EQ(loop().count("bri-reconn"), 1);
    }
    static void expect_waiting() {
        EXPECT_EQ(loop().count("bri-read"), 1);
        EXPECT_EQ(loop().count("bri-reconn"), 0);
    }

    static inline std::vector<uint32_t> events;
    static inline void (*during)() = nullptr;
    Peer peer;
    Script script;
};

// --- bridge_client_read_msg

class ReadMsg : public Receive {
  protected:
    // Reads what the peer wrote; the result.
    int read() { return bridge_client_read_msg(ctx().sock, &batch); }
    bri_batch_hdr *batch = nullptr;
};

TEST_F(ReadMsg, gives_the_batch_in_the_receive_buffer) {
    begin();
    const ByteVec bytes = batch_of({{kNobodys, pattern(5)}, {kStat, {1}}});
    peer.write(bytes + pattern(3));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(static_cast<void *>(batch), g_bglib_recvbuf);
    EXPECT_EQ(batch->msg_len, 22U);
    EXPECT_EQ(batch->msg_cnt, 2U);
    EXPECT_EQ(part_of(receive_buffer(), 0, bytes.size()), bytes);
    EXPECT_TRUE(all_zero(part_of(receive_buffer(), bytes.size())));
}

TEST_F(ReadMsg, leaves_nothing_of_an_earlier_batch) {
    begin();
    peer.write(batch_of({{kNobodys, pattern(10240)}}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(batch->msg_len, 10248U);
    EXPECT_EQ(part_of(receive_buffer(), 16), pattern(10240));
    const ByteVec small = batch_of({{kNobodys, {1}}});
    peer.write(small);
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(part_of(receive_buffer(), 0, small.size()), small);
    EXPECT_TRUE(all_zero(part_of(receive_buffer(), small.size())));
}

TEST_F(ReadMsg, leaves_nothing_of_a_batch_that_came_in_part) {
    begin();
    peer.write(part_of(batch_of({{kNobodys, pattern(600)}}), 0, 500));
    peer.close();
    EXPECT_EQ(read(), -1);
    EXPECT_EQ(batch, nullptr);
    bridge_client_connect_reset();
    peer = attach_pair();
    const ByteVec empty = batch_of({});
    peer.write(empty);
    EXPECT_EQ(read(), 0);
    EXPECT_TRUE(all_zero(receive_buffer()));
}

TEST_F(ReadMsg, takes_an_empty_batch_and_reads_no_body) {
    begin();
    peer.write(batch_of({}));
    EXPECT_EQ(read(), 0);
    EXPECT_EQ(batch->msg_len, 0U);
    EXPECT_EQ(faults::calls("read"), 1);
}

TEST_F(ReadMsg, refuses_a_body_that_the_buffer_cannot_hold_without_reading_it) {
    for (const uint32_t len : {10249U, 10256U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF8U, 0xFFFFFFFFU}) {
        if (g_bridge_client == nullptr)
            begin();
        peer.write(batch_of({}, len, 1) + pattern(16));
        EXPECT_EQ(read(), -1) << len;
        EXPECT_EQ(part_of(receive_buffer(), 8), ByteVec(10248));
        uint8_t rest[16];
        EXPECT_EQ(bridge_readn(ctx().sock, rest, 16), 16);
    }
}

TEST_F(ReadMsg, fails_on_a_short_header_and_a_short_body_of_every_length) {
    begin();
    const ByteVec bytes = batch_of({{kNobodys, pattern(9)}});
    for (size_t there = 0; there < bytes.size(); ++there) {
        peer.write(part_of(bytes, 0, there));
        peer.close();
        EXPECT_EQ(read(), -1) << there;
        EXPECT_EQ(batch, nullptr);
        bridge_client_connect_reset();
        peer = attach_pair();
    }
}

TEST_F(ReadMsg, fails_on_a_failing_read_of_the_header_and_of_the_body) {
    begin();
    script_reads(script);
    for (const std::vector<int> &steps : std::vector<std::vector<int>>{
             {-EIO}, {4, -EIO}, {8, -EIO}, {8, 3, -ECONNRESET}, {-EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN}}) {
        peer.write(batch_of({{kNobodys, pattern(9)}}));
        script = steps;
        EXPECT_EQ(read(), -1);
        EXPECT_TRUE(script.used_up());
        bridge_client_connect_reset();
        peer = attach_pair();
    }
}

TEST_F(ReadMsg, fails_without_a_buffer_or_a_place_for_the_result) {
    EXPECT_EQ(bridge_client_read_msg(0, &batch), -1);
    begin();
    peer.write(batch_of({}));
    EXPECT_EQ(bridge_client_read_msg(ctx().sock, nullptr), -1);
    EXPECT_EQ(faults::calls("read"), 0);
    EXPECT_EQ(bridge_client_read_msg(-1, &batch), -1);
}

// --- the read job: splitting

class ReadJob : public Receive {};

TEST_F(ReadJob, hands_every_message_on_in_order_and_waits_for_the_next_batch) {
    begin();
    peer.send({{kStat, {1}}, {kBegin, {}}, {kNobodys, pattern(3)}, {kBackup, {}}, {kStat, {7, 8, 9}}});
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(taken(), (std::vector<std::string>{
                           "type[BRIDGE_EVEVT_SERVER_STAT, 136], len[1].\n",
                           "type[BRIDGE_EVENT_SWITCHOVER_BEGIN, 138], len[0].\n",
                           "type[QINQ EVENT, 769], len[3].\n",
                           "type[BRIDGE_EVENT_BKUP_DATA_BEGIN, 131], len[0].\n",
                           "type[BRIDGE_EVEVT_SERVER_STAT, 136], len[3].\n",
                       }));
    EXPECT_EQ(events, (std::vector<uint32_t>{kBegin, kBackup}));
    EXPECT_EQ(g_state.slave, 7);
    expect_waiting();
}

TEST_F(ReadJob, takes_one_batch_at_a_time) {
    begin();
    peer.send({{kBegin, {}}});
    peer.send({{kBackup, {}}});
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(events, (std::vector<uint32_t>{kBegin}));
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(events, (std::vector<uint32_t>{kBegin, kBackup}));
}

TEST_F(ReadJob, finds_no_message_in_an_empty_batch) {
    begin();
    peer.write(batch_of({}));
    EXPECT_EQ(read_job(), 0);
    EXPECT_TRUE(taken().empty());
    expect_waiting();
}

TEST_F(ReadJob, ends_at_the_length_when_the_count_says_more) {
    begin();
    peer.write(batch_of({{kBegin, {}}, {kBackup, {}}}, {}, 0xFFFFFFFF));
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(taken().size(), 2U);
    EXPECT_FALSE(logged("[unit] batch-msg ends inside a msg, rest discarded.\n"));
    peer.write(batch_of({}, 0, 5));
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(taken().size(), 2U);
    expect_waiting();
}

TEST_F(ReadJob, ends_at_the_count_when_the_length_holds_more) {
    begin();
    peer.write(batch_of({{kBegin, {}}, {kBackup, {}}, {kStat, {1}}}, {}, 2));
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(taken().size(), 2U);
    peer.write(batch_of({{kBegin, {}}}, {}, 0));
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(taken().size(), 2U);
    EXPECT_FALSE(logged("[unit] batch-msg ends inside a msg, rest discarded.\n"));
    expect_waiting();
}

TEST_F(ReadJob, drops_a_message_that_does_not_lie_whole_in_its_batch_and_reads_on) {
    begin();
    ByteVec bytes = batch_of({{kBegin, {}}, {kStat, pattern(4)}});
    for (const uint32_t len :
         {5U, 10240U, 10248U, 10249U, 0x7FFFFFFFU, 0xFFFFFFF4U, 0xFFFFFFF8U, 0xFFFFFFFCU, 0xFFFFFFFFU}) {
        put_at(bytes.data(), 20, len); // of the second message
        clear_log();
        events.clear();
        peer.write(bytes);
        EXPECT_EQ(read_job(), 0);
        EXPECT_EQ(taken().size(), 1U) << len;
        EXPECT_EQ(events, (std::vector<uint32_t>{kBegin}));
        EXPECT_EQ(times_logged("[unit] batch-msg ends inside a msg, rest discarded.\n"), 1);
        EXPECT_EQ(g_state.slave, 0);
        expect_waiting();
    }
}

TEST_F(ReadJob, drops_a_cut_header_of_every_length) {
    begin();
    for (uint32_t more = 1; more < 8; ++more) {
        clear_log();
        const ByteVec whole = batch_of({{kBegin, {}}, {kBackup, {}}}, 8 + more, 2);
        peer.write(part_of(whole, 0, 16 + more));
        EXPECT_EQ(read_job(), 0);
        EXPECT_EQ(taken().size(), 1U) << more;
        EXPECT_EQ(times_logged("[unit] batch-msg ends inside a msg, rest discarded.\n"), 1);
        expect_waiting();
    }
}

TEST_F(ReadJob, reads_a_batch_that_is_no_more_than_a_cut_header_whole) {
    begin();
    for (uint32_t there = 1; there < 8; ++there) {
        events.clear();
        peer.write(batch_of({}, there, 1) + pattern(there));
        peer.send({{kBegin, {}}});
        EXPECT_EQ(read_job(), 0);
        EXPECT_TRUE(events.empty());
        EXPECT_EQ(read_job(), 0);
        EXPECT_EQ(events, (std::vector<uint32_t>{kBegin})) << there;
    }
}

TEST_F(ReadJob, takes_the_longest_batch_full_of_empty_messages) {
    begin();
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    peer.send(std::vector<Message>(1281, Message{kBackup, {}})); // 1281 * 8 = 10248
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(events.size(), 1281U);
}

TEST_F(ReadJob, reads_a_batch_that_comes_byte_by_byte_with_a_passing_failure_at_every_read) {
    begin();
    script_reads(script);
    const ByteVec bytes = batch_of({{kStat, {5}}, {kBackup, {}}});
    for (const int error : {EAGAIN, EINTR, EINPROGRESS})
        for (size_t nth = 0; nth < bytes.size(); ++nth) {
            std::vector<int> steps(bytes.size(), 1);
            steps.insert(steps.begin() + static_cast<long>(nth), -error);
            script = steps;
            events.clear();
            peer.write(bytes);
            ASSERT_EQ(read_job(), 0) << nth;
            ASSERT_TRUE(script.used_up());
            ASSERT_EQ(g_state.slave, 5);
            g_state.slave = 0;
            expect_waiting();
        }
}

TEST_F(ReadJob, offers_every_message_to_the_delay_first) {
    begin();
    put_at(g_bri_clnt_dbg, BRI_DBG_DELAY, uint32_t{3});
    peer.send({{kBegin, {}}, {kStat, pattern(30)}});
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(taken().size(), 2U);
    EXPECT_EQ(times_logged("Msg received is delayed to process.\n"), 2);
    EXPECT_EQ(g_bri_msg_delay_num, 2U);
    EXPECT_TRUE(events.empty());
    EXPECT_EQ(g_state.slave, 0);
    expect_waiting();
    peer.write(batch_of({})); // the held copies do not lie in the receive buffer
    EXPECT_EQ(read_job(), 0);
    EXPECT_TRUE(all_zero(receive_buffer()));
    EXPECT_EQ(g_bri_msg_delay_num, 2U);
}

TEST_F(ReadJob, gives_a_failure_when_the_loop_refuses_the_next_read) {
    begin();
    peer.send({{kBegin, {}}});
    loop().refuse = 1;
    EXPECT_EQ(read_job(), -1);
    EXPECT_EQ(events, (std::vector<uint32_t>{kBegin}));
    EXPECT_EQ(loop().count("bri-read") + loop().count("bri-reconn"), 0);
    EXPECT_EQ(ctx().connected, 1);
}

// --- the read job: the connection ends

TEST_F(ReadJob, resets_and_reconnects_when_the_server_ends_at_any_byte_of_a_batch) {
    begin();
    const ByteVec bytes = batch_of({{kBegin, {}}, {kStat, {1, 2}}, {kBackup, {}}});
    for (size_t there = 0; there <= bytes.size(); ++there) {
        events.clear();
        peer.write(part_of(bytes, 0, there));
        peer.close();
        if (there == bytes.size()) {
            ASSERT_EQ(read_job(), 0);
            ASSERT_EQ(events.size(), 1U); // the role came between the two
        }
        ASSERT_EQ(read_job(), -1) << there;
        expect_lost();
        ASSERT_EQ(events.empty(), there < bytes.size());
        loop().pending.clear();
        peer = attach_pair();
        bridge_client_thread_event(BRI_CLNT_EVT_READ);
    }
}

TEST_F(ReadJob, resets_and_reconnects_on_a_failing_read) {
    begin();
    faults::fail("read", 1, ECONNRESET);
    EXPECT_EQ(read_job(), -1);
    expect_lost();
    EXPECT_TRUE(peer.ended());
}

TEST_F(ReadJob, resets_and_reconnects_on_an_oversized_batch) {
    begin();
    peer.write(batch_of({}, 10249, 1));
    EXPECT_EQ(read_job(), -1);
    expect_lost();
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(loop().find("bri-reconn")->usec, 1000000);
}

TEST_F(ReadJob, does_not_wait_for_ever_for_a_server_that_stalls_inside_a_batch) {
    begin();
    const timeval soon{0, 2000}; // in the place of the 2 seconds
    ASSERT_EQ(setsockopt(ctx().sock, SOL_SOCKET, SO_RCVTIMEO, &soon, sizeof soon), 0);
    peer.write(part_of(batch_of({{kStat, pattern(50)}}), 0, 30));
    EXPECT_EQ(read_job(), -1);
    expect_lost();
    EXPECT_EQ(faults::calls("read"), 1 + 1 + 5);
}

TEST_F(ReadJob, without_a_socket_or_a_client_reads_nothing) {
    EXPECT_EQ(bri::client::read_job(nullptr), -1);
    begin();
    bridge_client_connect_reset();
    EXPECT_EQ(bri::client::read_job(g_bridge_client), -1);
    EXPECT_EQ(faults::calls("read"), 0);
    expect_lost();
}

// --- the read job: host code at work inside a batch

class ReadJobHost : public Receive {
  protected:
    static inline int runs;
};

TEST_F(ReadJobHost, resets_inside_a_batch_which_then_ends_and_reconnects) {
    begin();
    during = bridge_client_connect_reset;
    peer.send({{kBegin, {}}, {kBackup, {}}, {kStat, {1}}});
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(events, (std::vector<uint32_t>{kBegin}));
    EXPECT_EQ(g_state.slave, 0);
    expect_lost();
    EXPECT_FALSE(logged("[unit] batch-msg ends inside a msg, rest discarded.\n"));
}

TEST_F(ReadJobHost, resets_in_the_last_message_and_reconnects) {
    begin();
    during = bridge_client_connect_reset;
    peer.send({{kStat, {0}}, {kBegin, {}}});
    EXPECT_EQ(read_job(), 0);
    expect_lost();
}

TEST_F(ReadJobHost, gives_a_failure_when_the_loop_refuses_the_reconnect) {
    begin();
    during = [] {
        bridge_client_connect_reset();
        loop().refuse = 1;
    };
    peer.send({{kBegin, {}}});
    EXPECT_EQ(read_job(), -1);
}

TEST_F(ReadJobHost, may_reset_and_make_a_new_socket_at_once) {
    begin();
    during = [] {
        bridge_client_connect_reset();
        EXPECT_GT(bridge_client_socket_create(g_bridge_client), 0);
    };
    peer.send({{kBegin, {}}, {kBackup, {}}});
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(events, (std::vector<uint32_t>{kBegin}));
    EXPECT_GT(ctx().sock, 0);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
    EXPECT_EQ(loop().count("bri-read"), 0);
}

TEST_F(ReadJobHost, may_send_both_ways_from_a_handler) {
    begin();
    during = [] {
        EXPECT_EQ(send(kUrgent, {1}), 0);
        EXPECT_EQ(send(kPlain, {2}), 0);
        EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {3}), 0);
    };
    peer.send({{kBegin, {}}});
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, {1}}}) + batch_of({{RESEARCH_EVENT_FAILED, {3}}}));
    tick();
    EXPECT_EQ(peer.read_now(), batch_of({{kPlain, {2}}}));
    expect_waiting();
}

TEST_F(ReadJobHost, may_read_a_batch_from_a_handler_without_harm) {
    begin();
    during = [] {
        during = nullptr;
        bri_batch_hdr *batch = nullptr;
        EXPECT_EQ(bridge_client_read_msg(ctx().sock, &batch), 0);
    };
    peer.send({{kBegin, {}}, {kBackup, {}}});
    peer.write(batch_of({{kStat, pattern(600)}}));
    EXPECT_EQ(read_job(), 0);
    expect_waiting();
}

TEST_F(ReadJobHost, finds_the_send_lock_free) {
    begin();
    during = [] {
        ++runs;
        EXPECT_EQ(pthread_mutex_trylock(&bri::client::g_bglib_send_lock), 0);
        pthread_mutex_unlock(&bri::client::g_bglib_send_lock);
    };
    peer.send({{kBegin, {}}});
    EXPECT_EQ(read_job(), 0);
    EXPECT_EQ(runs, 1);
}

} // namespace
