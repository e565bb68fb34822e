// The flush against a socket that takes nothing, a part or no more at all, and the cache of what waits.
#include "tests/client/transport_fixture.h"

namespace {

using namespace test;

class Flush : public Transport {
  protected:
    Flush() : peer(start_paired()) { script_sends(script); }
    ~Flush() override { faults::clear(); }

    static ByteVec single(uint8_t byte) { return batch_of({{kPlain, {byte}}}); } // 17 bytes
    // One batch of one message, flushed against this step.
    void flush_single(uint8_t byte, int step) {
        ASSERT_EQ(send(kPlain, {byte}), 0);
        script = {step};
        tick();
        EXPECT_TRUE(script.used_up());
    }

    Peer peer;
    Script script;
};

TEST_F(Flush, keeps_the_whole_batch_when_the_socket_would_block) {
    for (const int error : {EAGAIN, EINTR}) {
        flush_single(1, -error);
        EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
        EXPECT_TRUE(batch_is_empty());
        tick();
        EXPECT_EQ(peer.read_now(), single(1));
        EXPECT_EQ(cached(), (std::vector<Cached>{}));
    }
    EXPECT_EQ(ctx().cache_drop, 0U);
}

TEST_F(Flush, sends_the_rest_of_a_batch_cut_at_every_byte_before_any_later_one) {
    const ByteVec batch =
        batch_of({{kPlain, {1, 2, 3}}, {VLAN_EVENT_DESTROY_INDEX, {}}, {VLAN_EVENT_CREATE_RANGE, pattern(20)}});
    const int size = static_cast<int>(batch.size());
    for (int part = 1; part < size; ++part) {
        send(kPlain, {1, 2, 3});
        send(VLAN_EVENT_DESTROY_INDEX, {});
        send(VLAN_EVENT_CREATE_RANGE, pattern(20));
        script = {part};
        tick();
        ASSERT_EQ(cached(), (std::vector<Cached>{{static_cast<uint32_t>(size), static_cast<uint32_t>(part)}}));
        ASSERT_TRUE(batch_is_empty());
        ASSERT_EQ(peer.read_now().size(), static_cast<size_t>(part));
        send(kPlain, {9});
        tick();
        ASSERT_EQ(peer.read_now(), part_of(batch, static_cast<size_t>(part)) + single(9)) << part;
        ASSERT_EQ(cached(), (std::vector<Cached>{}));
    }
}

TEST_F(Flush, goes_on_byte_by_byte) {
    flush_single(7, 1);
    for (uint32_t written = 2; written < 17; ++written) {
        script = {1};
        tick();
        ASSERT_EQ(cached(), (std::vector<Cached>{{17, written}}));
    }
    tick();
    EXPECT_EQ(peer.read_now(), single(7));
    EXPECT_EQ(ctx().cache_cnt, 0U);
}

TEST_F(Flush, loses_the_batch_on_a_socket_error) {
    for (const int error : {EPIPE, ECONNRESET, ENOTCONN, EBADF}) {
        flush_single(1, -error);
        EXPECT_EQ(cached(), (std::vector<Cached>{}));
        EXPECT_TRUE(batch_is_empty());
    }
    EXPECT_EQ(ctx().cache_drop, 0U);
    EXPECT_EQ(ctx().connected, 1); // no failed write resets the connection
    EXPECT_FALSE(peer.readable());
}

TEST_F(Flush, queues_the_batch_behind_a_run_that_still_waits) {
    flush_single(1, -EAGAIN);
    flush_single(2, -EAGAIN);
    flush_single(3, -EINTR);
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}, {17, 0}, {17, 0}}));
    EXPECT_TRUE(batch_is_empty());
    send(kPlain, {4});
    tick();
    EXPECT_EQ(peer.read_now(), single(1) + single(2) + single(3) + single(4));
    EXPECT_EQ(ctx().cache_cnt, 0U);
}

TEST_F(Flush, queues_the_batch_behind_a_run_that_went_out_in_part) {
    flush_single(1, 5);
    flush_single(2, 6);
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 11}, {17, 0}}));
    tick();
    EXPECT_EQ(peer.read_now(), single(1) + single(2));
}

TEST_F(Flush, keeps_a_waiting_run_whatever_the_failure) {
    flush_single(1, -EAGAIN);
    flush_single(2, -EPIPE);
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}, {17, 0}}));
}

TEST_F(Flush, stops_at_the_first_run_that_does_not_go_out_whole) {
    flush_single(1, -EAGAIN);
    flush_single(2, -EAGAIN);
    flush_single(3, -EAGAIN);
    script = {17, 4};
    tick();
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 4}, {17, 0}}));
    EXPECT_EQ(peer.read_now(), single(1) + part_of(single(2), 0, 4));
}

TEST_F(Flush, queues_nothing_when_the_batch_is_empty) {
    flush_single(1, -EAGAIN);
    script = {-EAGAIN};
    tick();
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
}

TEST_F(Flush, gives_the_memory_of_a_run_back_when_it_is_out) {
    int before = 0;
    for (int round = 0; round < 10; ++round) {
        flush_single(1, -EAGAIN);
        tick();
        if (round == 0) // the doubles have what they need
            before = faults::live_blocks();
    }
    EXPECT_EQ(faults::live_blocks(), before);
}

TEST_F(Flush, writes_nothing_when_there_is_nothing) {
    tick();
    EXPECT_EQ(faults::calls("send"), 0);
}

// --- many runs

class FlushOfMany : public Flush {
  protected:
    // Runs of one message each, numbered from 0; of all kinds of sizes when asked for.
    void wait_for_room(unsigned runs, bool large = false) {
        for (unsigned number = 0; number < runs; ++number) {
            const ByteVec payload = pattern(large && number % 3 == 0 ? 300 + number * 7 : 24, number);
            ASSERT_EQ(send(kPlain, payload), 0);
            script = {-EAGAIN};
            tick();
            batches_.push_back(batch_of({{kPlain, payload}}));
        }
        faults::clear();
        script_sends(script);
    }
    [[nodiscard]] ByteVec waiting() const {
        ByteVec all;
        for (const ByteVec &batch : batches_)
            all = all + batch;
        return all;
    }

  private:
    std::vector<ByteVec> batches_;
};

TEST_F(FlushOfMany, takes_up_to_64_runs_in_one_write) {
    wait_for_room(200);
    tick();
    EXPECT_EQ(faults::calls("sendmsg"), 4); // 64, 64, 64 and the rest
    EXPECT_EQ(faults::calls("send"), 0);
    EXPECT_EQ(peer.read_now(), waiting());
    EXPECT_EQ(ctx().cache_cnt, 0U);
}

// A full socket is tried by every sender, so the first write of one is a small one.
TEST_F(FlushOfMany, takes_16_runs_at_first_when_a_sender_flushes) {
    wait_for_room(200);
    const ByteVec waited = waiting();
    ASSERT_EQ(send(kUrgent, {1}), 0);
    EXPECT_EQ(faults::calls("sendmsg"), 4); // 16, 64, 64 and the rest
    EXPECT_EQ(faults::calls("send"), 1);
    EXPECT_EQ(peer.read_now(), waited + batch_of({{kUrgent, {1}}}));
}
TEST_F(FlushOfMany, offers_a_full_socket_16_runs_of_a_sender_and_64_of_the_timer) {
    wait_for_room(200);
    std::vector<size_t> offered;
    faults::hooks.sendmsg = [&](int, const msghdr *message, int) -> ssize_t {
        EXPECT_EQ(message->msg_iovlen, 1U);
        offered.push_back(message->msg_iov[0].iov_len / 40);
        errno = EAGAIN;
        return -1;
    };
    ASSERT_EQ(send(kUrgent, {1}), 0);
    tick();
    faults::hooks.sendmsg = nullptr;
    EXPECT_EQ(offered, (std::vector<size_t>{16, 64}));
}

TEST_F(FlushOfMany, keeps_small_and_large_ones_in_order) {
    wait_for_room(130, true);
    tick();
    EXPECT_EQ(peer.read_now(), waiting());
}

TEST_F(FlushOfMany, goes_on_where_the_socket_cut_them_wherever_that_was) {
    wait_for_room(7);
    const ByteVec all = waiting(); // 40 bytes each
    for (int cut = 1; cut < static_cast<int>(all.size()); ++cut) {
        script = {cut, -EAGAIN};
        clear_log();
        debug_on({BRI_DBG_MSG});
        tick();
        const auto part = static_cast<uint32_t>(cut % 40);
        EXPECT_EQ(ctx().cache_cnt, 7U - static_cast<uint32_t>(cut) / 40);
        EXPECT_EQ(cached().front(), (Cached{40, part}));
        EXPECT_EQ(times_logged("[unit] Socket send FAIL, ret Socket would block, written_len " + std::to_string(part) +
                               ", left_len.\n"),
                  1);
        script.clear();
        tick();
        ASSERT_EQ(peer.read_now(), all) << cut;
        g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
        for (int run = 0; run < 7; ++run)
            ASSERT_TRUE(bri::client::cache_msg(ctx(), all.data() + run * 40, 40, 0));
    }
}

// --- a cache without room

TEST_F(Flush, drops_and_counts_what_the_full_cache_does_not_take) {
    ctx().cache_max = 2;
    flush_single(1, -EAGAIN);
    flush_single(2, -EAGAIN);
    flush_single(3, -EAGAIN);
    EXPECT_EQ(ctx().cache_drop, 1U);
    flush_single(4, -EAGAIN);
    EXPECT_EQ(ctx().cache_drop, 2U);
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}, {17, 0}}));
    EXPECT_TRUE(batch_is_empty());
    tick();
    flush_single(5, 17);
    EXPECT_EQ(peer.read_now(), single(1) + single(2) + single(5));
    EXPECT_EQ(ctx().cache_drop, 2U);
}

TEST_F(Flush, drops_a_batch_that_would_block_when_the_cache_takes_nothing) {
    ctx().cache_max = 0;
    flush_single(1, -EAGAIN);
    EXPECT_EQ(ctx().cache_drop, 1U);
    flush_single(2, 17);
    EXPECT_EQ(peer.read_now(), single(2)); // the connection stands: the server has seen none of the dropped one
    EXPECT_FALSE(peer.ended(0));
}

TEST_F(Flush, drops_a_batch_that_would_block_when_memory_is_short_and_does_not_count_it) {
    ASSERT_EQ(send(kPlain, {1}), 0);
    script = {-EAGAIN};
    faults::fail("malloc", 1, ENOMEM);
    tick();
    EXPECT_EQ(faults::injected(), 1);
    EXPECT_EQ(cached(), (std::vector<Cached>{}));
    EXPECT_EQ(ctx().cache_drop, 0U);
    flush_single(2, 17);
    EXPECT_EQ(peer.read_now(), single(2));
}

TEST_F(Flush, drops_a_batch_behind_a_waiting_run_when_memory_is_short) {
    flush_single(1, -EAGAIN);
    ASSERT_EQ(send(kPlain, {2}), 0);
    script = {-EAGAIN};
    faults::fail("malloc", 1, ENOMEM);
    tick();
    EXPECT_EQ(faults::injected(), 1);
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
    EXPECT_TRUE(batch_is_empty());
    tick();
    EXPECT_EQ(peer.read_now(), single(1));
}

// What the server has seen the beginning of is kept whatever the limit: what followed would be read as its rest.
TEST_F(Flush, keeps_the_rest_of_a_cut_batch_beyond_the_limit) {
    ctx().cache_max = 0;
    flush_single(1, 9);
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 9}}));
    EXPECT_EQ(ctx().cache_drop, 0U);
    flush_single(2, -EAGAIN); // behind it nothing is
    EXPECT_EQ(ctx().cache_drop, 1U);
    tick();
    flush_single(3, 17);
    EXPECT_EQ(peer.read_now(), single(1) + single(3));
    EXPECT_FALSE(peer.ended(0));
}

TEST_F(Flush, ends_the_stream_when_memory_for_the_rest_is_short) {
    ASSERT_EQ(send(kPlain, {1}), 0);
    script = {3};
    faults::fail("malloc", 1, ENOMEM);
    tick();
    EXPECT_EQ(faults::injected(), 1);
    EXPECT_EQ(peer.read_now().size(), 3U);
    EXPECT_TRUE(peer.ended());
    ASSERT_EQ(bridge_client_thread_event(BRI_CLNT_EVT_READ), 0);
    EXPECT_EQ(loop().run_readable(), 1); // we see the end as well
    EXPECT_EQ(ctx().connected, 0);
    EXPECT_EQ(loop().count("bri-reconn"), 1);
}

// --- between two flushes: the server speaks

class DrainMeanwhile : public Flush {
  protected:
    void hear() {
        bridge_client_thread_event(BRI_CLNT_EVT_READ);
        peer.send({{BRIDGE_EVENT_BKUP_DATA_BEGIN, {}}});
        EXPECT_EQ(loop().run("bri-read"), 0);
    }
};

TEST_F(DrainMeanwhile, writes_what_waits_and_leaves_the_batch) {
    flush_single(1, 5);
    flush_single(2, -EAGAIN);
    ASSERT_EQ(send(kPlain, {3}), 0);
    hear();
    EXPECT_EQ(peer.read_now(), single(1) + single(2));
    EXPECT_EQ(cached(), (std::vector<Cached>{}));
    tick();
    EXPECT_EQ(peer.read_now(), single(3));
}

TEST_F(DrainMeanwhile, queues_nothing_when_the_socket_is_full) {
    flush_single(1, -EAGAIN);
    ASSERT_EQ(send(kPlain, {2}), 0);
    script = {-EAGAIN};
    hear();
    EXPECT_TRUE(script.used_up());
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
    EXPECT_EQ(value_at<uint32_t>(send_buffer().data(), 4), 1U);
    tick();
    EXPECT_EQ(peer.read_now(), single(1) + single(2));
}

TEST_F(DrainMeanwhile, writes_nothing_when_nothing_waits) {
    ASSERT_EQ(send(kPlain, {1}), 0);
    hear();
    EXPECT_EQ(faults::calls("send") + faults::calls("sendmsg"), 0);
}

TEST_F(DrainMeanwhile, does_not_wait_for_a_sender_that_holds_the_lock) {
    flush_single(1, -EAGAIN);
    alarm(10); // ends the test by a signal where the read job waits
    ASSERT_EQ(pthread_mutex_lock(&bri::client::g_bglib_send_lock), 0);
    hear();
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
    EXPECT_EQ(pthread_mutex_unlock(&bri::client::g_bglib_send_lock), 0);
    tick();
    EXPECT_EQ(peer.read_now(), single(1));
}

// --- a real socket that pushes back

class BackPressure : public Transport {};

TEST_F(BackPressure, fills_the_cache_and_loses_no_byte_and_no_order) {
    Peer peer = start_paired();
    const int small = 4096;
    ASSERT_EQ(setsockopt(ctx().sock, SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    ByteVec expected;
    for (unsigned number = 0; number < 40; ++number) {
        const ByteVec payload = pattern(5000 + number * 13, number);
        ASSERT_EQ(send(kUrgent, payload), 0);
        expected = expected + batch_of({{kUrgent, payload}});
    }
    EXPECT_GT(ctx().cache_cnt, 20U);
    ByteVec seen;
    for (int round = 0; round < 1000 && seen.size() < expected.size(); ++round) {
        seen = seen + peer.read_now();
        tick();
    }
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(ctx().cache_cnt, 0U);
    EXPECT_EQ(ctx().cache_drop, 0U);
}

} // namespace
