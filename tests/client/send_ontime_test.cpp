// The message that does not wait, and the promise that the server always sees whole batches: what overtakes, what a
// lost connection cut, and what a failed write left half done.
#include "tests/client/transport_fixture.h"

namespace {

using namespace test;

ByteVec single(uint32_t type, const ByteVec &payload) {
    return batch_of({{type, payload}});
}

class SendOntime : public Transport {
  protected:
    // The next write fails for good after `part` bytes.
    void cut_after(int part) {
        if (part == 0)
            script = {-EPIPE};
        else
            script = {part, -EPIPE};
    }
    void start_scripted() {
        peer = start_paired();
        script_sends(script);
    }
    ~SendOntime() override { faults::clear(); }

    Peer peer;
    Script script;
};

TEST_F(SendOntime, writes_a_batch_of_one_message) {
    start_scripted();
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_SS_ORIGIN_MAC, {0xAA, 0xBB, 0xCC}), 0);
    const ByteVec bytes = peer.read_now();
    ASSERT_EQ(bytes.size(), 19U);
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 0), 11U); // msg_len
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 4), 1U);  // msg_cnt
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 8), 2311U);
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 12), 3U);
    EXPECT_EQ(part_of(bytes, 16), (ByteVec{0xAA, 0xBB, 0xCC}));
    EXPECT_EQ(ctx().cache_cnt, 0U);
}

TEST_F(SendOntime, takes_no_payload_the_longest_and_zeros_for_null) {
    start_scripted();
    EXPECT_EQ(bridge_client_send_message_ontime(nullptr, 0, RESEARCH_EVENT_FAILED), 0);
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, {}));
    EXPECT_EQ(bridge_client_send_message_ontime("abc", 0, RESEARCH_EVENT_FAILED), 0);
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, {}));
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10240)), 0);
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, pattern(10240)));
    EXPECT_EQ(bridge_client_send_message_ontime(nullptr, 10240, RESEARCH_EVENT_FAILED), 0);
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, ByteVec(10240)));
}

TEST_F(SendOntime, fails_before_start_up) {
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {1}), -1);
    EXPECT_EQ(bridge_client_send_message_ontime(nullptr, 0, RESEARCH_EVENT_FAILED), -1);
}

TEST_F(SendOntime, fails_with_a_payload_that_no_batch_takes) {
    start_scripted();
    const ByteVec bytes = pattern(16);
    for (const uint32_t len : {10241U, 0x7FFFFFFFU, 0xFFFFFFE8U, 0xFFFFFFF0U, 0xFFFFFFF8U, 0xFFFFFFFFU})
        EXPECT_EQ(bridge_client_send_message_ontime(bytes.data(), len, RESEARCH_EVENT_FAILED), -1) << len;
    EXPECT_FALSE(peer.readable());
}

TEST_F(SendOntime, fails_without_a_socket) {
    start_scripted();
    const int sock = ctx().sock;
    for (const int none : {0, -1}) {
        ctx().sock = none;
        EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {1}), -1);
    }
    ctx().sock = sock;
    EXPECT_EQ(faults::calls("send"), 0);
}

TEST_F(SendOntime, fails_on_a_socket_that_is_not_connected) {
    start();
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {1}), -1);
    EXPECT_EQ(ctx().cache_cnt, 0U);
}

TEST_F(SendOntime, fails_without_memory) {
    start_scripted();
    faults::fail("malloc", 1, ENOMEM);
    EXPECT_EQ(bridge_client_send_message_ontime(nullptr, 4, RESEARCH_EVENT_FAILED), -1);
    EXPECT_EQ(faults::injected(), 1);
    EXPECT_FALSE(peer.readable());
}

TEST_F(SendOntime, does_not_ask_whether_the_client_is_connected) {
    start_scripted();
    ctx().connected = 0;
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {1}), 0);
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, {1}));
}

TEST_F(SendOntime, blocks) {
    start_scripted();
    int seen = -1;
    faults::hooks.send = [&](int to, const void *data, size_t size, int flags) {
        seen = flags;
        return faults::real_send(to, data, size, flags);
    };
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {1}), 0);
    EXPECT_EQ(seen, MSG_NOSIGNAL);
}

TEST_F(SendOntime, goes_on_behind_short_writes_and_passing_failures) {
    start_scripted();
    script = {1, -EAGAIN, 2, -EINTR, 3, 0, 4};
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(30)), 0);
    EXPECT_TRUE(script.used_up());
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, pattern(30)));
}

TEST_F(SendOntime, overtakes_the_batch_and_the_cache) {
    start_scripted();
    send(kPlain, {1});
    script = {-EAGAIN};
    tick();
    send(kPlain, {2});
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {3}), 0);
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, {3}));
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
    tick();
    EXPECT_EQ(peer.read_now(), single(kPlain, {1}) + single(kPlain, {2}));
}

// --- a run that is half out when the message comes

class SendOntimeBehindHalf : public SendOntime {
  protected:
    // A run of 30 bytes of which this many are out and read, a whole one behind it, and one message in the batch.
    void half_out(int part) {
        send(kPlain, pattern(14));
        script = {part};
        tick();
        send(kPlain, {2});
        script = {-EAGAIN};
        tick();
        send(kPlain, {3});
        EXPECT_EQ(cached(), (std::vector<Cached>{{30, static_cast<uint32_t>(part)}, {17, 0}}));
        EXPECT_EQ(peer.read_now(), part_of(single(kPlain, pattern(14)), 0, static_cast<size_t>(part)));
    }
    static ByteVec rest(int part) { return part_of(single(kPlain, pattern(14)), static_cast<size_t>(part)); }
};

TEST_F(SendOntimeBehindHalf, completes_it_first_wherever_it_was_cut) {
    start_scripted();
    for (int part = 1; part < 30; ++part) {
        half_out(part);
        ASSERT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {9}), 0);
        ASSERT_EQ(peer.read_now(), rest(part) + single(RESEARCH_EVENT_FAILED, {9})) << part;
        ASSERT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
        tick();
        ASSERT_EQ(peer.read_now(), single(kPlain, {2}) + single(kPlain, {3}));
    }
}

TEST_F(SendOntimeBehindHalf, fails_when_it_cannot_be_completed_and_puts_nothing_between) {
    start_scripted();
    for (int part = 1; part < 30; ++part) {
        half_out(part);
        const int more = 30 - part > 2 ? 2 : 0;
        cut_after(more);
        ASSERT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {9}), -1);
        ASSERT_TRUE(script.used_up());
        ASSERT_EQ(cached(), (std::vector<Cached>{{30, static_cast<uint32_t>(part + more)}, {17, 0}}));
        tick();
        ASSERT_EQ(peer.read_now(), rest(part) + single(kPlain, {2}) + single(kPlain, {3})) << part;
    }
}

// --- a message that fails half-way

TEST_F(SendOntime, that_fails_before_its_first_byte_leaves_nothing) {
    start_scripted();
    cut_after(0);
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10)), -1);
    script = {-EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN};
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10)), -1);
    EXPECT_EQ(ctx().cache_cnt, 0U);
    send(kUrgent, {1});
    EXPECT_EQ(peer.read_now(), single(kUrgent, {1}));
}

TEST_F(SendOntime, that_fails_half_way_completes_what_the_server_has_begun_to_read) {
    start_scripted();
    for (int part = 1; part < 26; ++part) {
        script = {part, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN};
        ASSERT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10)), -1);
        ASSERT_EQ(cached(), (std::vector<Cached>{{26, static_cast<uint32_t>(part)}}));
        send(kPlain, {1});
        tick();
        ASSERT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, pattern(10)) + single(kPlain, {1})) << part;
        ASSERT_EQ(ctx().cache_cnt, 0U);
    }
}

TEST_F(SendOntime, that_failed_half_way_goes_before_the_runs_that_it_overtook) {
    start_scripted();
    send(kPlain, {1});
    script = {-EAGAIN};
    tick();
    cut_after(4);
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10)), -1);
    EXPECT_EQ(cached(), (std::vector<Cached>{{26, 4}, {17, 0}}));
    EXPECT_EQ(send_ontime(2306, {2}), 0);
    tick();
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, pattern(10)) + single(2306, {2}) + single(kPlain, {1}));
}

TEST_F(SendOntime, that_failed_half_way_is_kept_though_the_cache_is_full) {
    start_scripted();
    ctx().cache_max = 0;
    cut_after(4);
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10)), -1);
    EXPECT_EQ(ctx().cache_cnt, 1U);
    EXPECT_EQ(ctx().cache_drop, 0U);
    tick();
    EXPECT_EQ(peer.read_now(), single(RESEARCH_EVENT_FAILED, pattern(10)));
}

TEST_F(SendOntime, that_failed_half_way_is_not_sent_on_the_next_connection) {
    start_scripted();
    send(kPlain, {1});
    script = {-EAGAIN};
    tick();
    cut_after(4);
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10)), -1);
    bridge_client_connect_reset();
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
    peer = attach_pair();
    tick();
    EXPECT_EQ(peer.read_now(), single(kPlain, {1}));
}

TEST_F(SendOntime, does_not_wait_longer_than_five_send_timeouts) {
    peer = start_paired();
    const timeval soon{0, 2000};
    ASSERT_EQ(setsockopt(ctx().sock, SOL_SOCKET, SO_SNDTIMEO, &soon, sizeof soon), 0);
    uint32_t written = 0;
    while (bridge_writen_dontwait(ctx().sock, pattern(4096).data(), 4096, &written) == 0) {
    }
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, pattern(10240)), -1);
}

// --- what a lost connection cut

class Resend : public SendOntime {
  protected:
    void lose_and_connect_again() {
        bridge_client_connect_reset();
        peer = attach_pair();
    }
};

TEST_F(Resend, sends_a_cut_run_again_from_its_first_byte_wherever_it_was_cut) {
    start_scripted();
    const ByteVec batch = batch_of({{kPlain, {1, 2, 3}}, {VLAN_EVENT_DESTROY_INDEX, pattern(8)}});
    for (int part = 1; part < static_cast<int>(batch.size()); ++part) {
        send(kPlain, {1, 2, 3});
        send(VLAN_EVENT_DESTROY_INDEX, pattern(8));
        script = {part};
        tick();
        ASSERT_EQ(peer.read_now(), part_of(batch, 0, static_cast<size_t>(part)));
        lose_and_connect_again();
        ASSERT_EQ(cached(), (std::vector<Cached>{{static_cast<uint32_t>(batch.size()), 0}}));
        tick();
        ASSERT_EQ(peer.read_now(), batch) << part;
        ASSERT_EQ(ctx().cache_cnt, 0U);
    }
}

TEST_F(Resend, sends_again_what_several_steps_had_written) {
    start_scripted();
    send(kPlain, pattern(14));
    script = {7};
    tick();
    script = {7};
    tick();
    EXPECT_EQ(cached(), (std::vector<Cached>{{30, 14}}));
    lose_and_connect_again();
    script = {9};
    tick();
    EXPECT_EQ(cached(), (std::vector<Cached>{{30, 9}}));
    tick();
    EXPECT_EQ(peer.read_now(), single(kPlain, pattern(14)));
}

TEST_F(Resend, does_not_repeat_a_run_that_was_written_whole) {
    start_scripted();
    send(kPlain, {1});
    tick();
    send(kPlain, {2});
    script = {3};
    tick();
    tick();
    EXPECT_EQ(ctx().cache_cnt, 0U);
    lose_and_connect_again();
    tick();
    EXPECT_FALSE(peer.readable());
}

TEST_F(Resend, keeps_the_order_of_cache_batch_and_what_follows) {
    start_scripted();
    for (const uint8_t number : ByteVec{1, 2, 3}) {
        send(kPlain, {number});
        script = {-EAGAIN};
        tick();
    }
    send(kPlain, {4}); // batched when the connection is lost
    lose_and_connect_again();
    EXPECT_EQ(ctx().cache_cnt, 3U);
    send(kUrgent, {5});
    EXPECT_EQ(peer.read_now(), single(kPlain, {1}) + single(kPlain, {2}) + single(kPlain, {3}) +
                                   batch_of({{kPlain, {4}}, {kUrgent, {5}}}));
}

TEST_F(Resend, waits_without_loss_while_there_is_no_connection) {
    start_scripted();
    send(kPlain, {1});
    script = {5};
    tick();
    send(kPlain, {2});
    bridge_client_connect_reset();
    for (int period = 0; period < 3; ++period)
        tick();
    EXPECT_EQ(bridge_client_socket_create(&ctx()), ctx().sock); // a socket alone is no connection
    tick();
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
    EXPECT_EQ(value_at<uint32_t>(bri::client::g_bglib_sendbuf, 4), 1U);
    peer = attach_pair();
    tick();
    EXPECT_EQ(peer.read_now(), single(kPlain, {1}) + single(kPlain, {2}));
}

// Every message is in exactly one batch that the server read whole, in the order of sending, whatever the socket took
// and whenever the connection was lost.
TEST_F(Resend, delivers_every_message_once_in_whole_batches_under_random_cuts_and_resets) {
    start_scripted();
    uint32_t random = 12345;
    const auto roll = [&random](uint32_t sides) {
        random = random * 1664525 + 1013904223;
        return (random >> 8) % sides;
    };
    std::vector<Message> sent;
    std::vector<Message> seen;
    ByteVec stream;
    const auto split = [&] { // whole batches off the front of the stream
        stream = stream + peer.read_now();
        while (stream.size() >= 8 && stream.size() - 8 >= value_at<uint32_t>(stream.data(), 0)) {
            const size_t size = 8 + value_at<uint32_t>(stream.data(), 0);
            const std::vector<Message> messages = Batch{part_of(stream, 0, size)}.messages();
            ASSERT_FALSE(messages.empty());
            seen.insert(seen.end(), messages.begin(), messages.end());
            stream = part_of(stream, size);
        }
    };
    for (uint32_t number = 0; number < 600; ++number) {
        switch (roll(4)) {
        case 0:
            script = {-EAGAIN};
            break;
        case 1:
            script = {static_cast<int>(1 + roll(60))};
            break;
        case 2:
            script = {static_cast<int>(1 + roll(40)), -EAGAIN};
            break;
        default:
            script.clear();
        }
        Message message{roll(3) == 0 ? kUrgent : kPlain, ByteVec(4 + roll(30))};
        put_at(message.payload.data(), 0, number);
        ASSERT_EQ(send(message.type, message.payload), 0);
        sent.push_back(message);
        if (roll(3) == 0)
            tick();
        if (roll(20) == 0) {
            split();
            stream.clear(); // the last batch of a lost connection may be cut
            lose_and_connect_again();
        }
    }
    script.clear();
    tick();
    split();
    EXPECT_TRUE(stream.empty());
    EXPECT_EQ(seen, sent);
}

} // namespace
