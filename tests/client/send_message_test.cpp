// The send batch: what is refused, how messages lie in it, when it leaves, and what happens when it cannot.
#include "tests/client/transport_fixture.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace {

using namespace test;

uint32_t in_batch() {
    return value_at<uint32_t>(bri::client::g_bglib_sendbuf, 0);
}
uint32_t messages_in_batch() {
    return value_at<uint32_t>(bri::client::g_bglib_sendbuf, 4);
}

class SendMessage : public Transport {
  protected:
    // Messages that fill the batch to this many bytes.
    static void fill_to(uint32_t msg_len) {
        while (msg_len - in_batch() > 8 + 4000)
            EXPECT_EQ(send(kPlain, pattern(3000)), 0);
        EXPECT_EQ(send(kPlain, pattern(msg_len - in_batch() - 8)), 0);
        EXPECT_EQ(in_batch(), msg_len);
    }
};

TEST_F(SendMessage, is_refused_before_start_up) {
    EXPECT_EQ(send(kUrgent, {1}), -1);
    EXPECT_EQ(bridge_client_send_message(nullptr, 0, kUrgent), -1);
}

TEST_F(SendMessage, is_refused_and_not_queued_while_unconnected) {
    start();
    EXPECT_EQ(send(kPlain, {1}), -1);
    EXPECT_EQ(send(BRIDGE_EVENT_REG_MSG, {1}), -1);
    EXPECT_TRUE(batch_is_empty());
    EXPECT_EQ(ctx().cache_cnt, 0U);
    EXPECT_EQ(faults::calls("send"), 0);
}

TEST_F(SendMessage, takes_a_payload_of_10240_bytes_as_one_batch) {
    Peer peer = start_paired();
    EXPECT_EQ(send(kUrgent, pattern(10240)), 0);
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, pattern(10240)}}));
}

TEST_F(SendMessage, refuses_longer_payloads_however_long) {
    Peer peer = start_paired();
    const ByteVec bytes = pattern(16);
    for (const uint32_t len : {10241U, 10248U, 10249U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF0U, 0xFFFFFFF7U, 0xFFFFFFF8U,
                               0xFFFFFFF9U, 0xFFFFFFFFU}) {
        EXPECT_EQ(bridge_client_send_message(bytes.data(), len, kUrgent), -1) << len;
        EXPECT_EQ(bridge_client_send_message(nullptr, len, kUrgent), -1) << len;
    }
    EXPECT_TRUE(batch_is_empty());
    EXPECT_FALSE(peer.readable());
}

TEST_F(SendMessage, is_refused_without_a_buffer) {
    Peer peer = start_paired();
    uint8_t *buffer = std::exchange(bri::client::g_bglib_sendbuf, nullptr);
    EXPECT_EQ(send(kUrgent, {1}), -1);
    EXPECT_EQ(tick(), 0);
    EXPECT_FALSE(peer.readable());
    bri::client::g_bglib_sendbuf = buffer;
}

TEST_F(SendMessage, lies_in_the_batch_behind_the_earlier_ones) {
    Peer peer = start_paired();
    EXPECT_EQ(send(kPlain, {0xA1, 0xA2, 0xA3}), 0);
    EXPECT_EQ(bridge_client_send_message(nullptr, 0, VLAN_EVENT_DESTROY_INDEX), 0);
    EXPECT_EQ(send(0xFFFFFFFF, {0xB1}), 0);
    const ByteVec buffer = send_buffer();
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 0), 28U); // msg_len
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 4), 3U);  // msg_cnt
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 8), 387U);
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 12), 3U);
    EXPECT_EQ(buffer[16], 0xA1);
    EXPECT_EQ(buffer[17], 0xA2);
    EXPECT_EQ(buffer[18], 0xA3);
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 19), 388U);
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 23), 0U);
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 27), 0xFFFFFFFFU);
    EXPECT_EQ(value_at<uint32_t>(buffer.data(), 31), 1U);
    EXPECT_EQ(buffer[35], 0xB1);
    EXPECT_TRUE(all_zero(ByteVec(buffer.begin() + 36, buffer.end())));
    EXPECT_FALSE(peer.readable());
    EXPECT_EQ(tick(), 0);
    EXPECT_EQ(peer.read_now(), ByteVec(buffer.begin(), buffer.begin() + 36));
}

TEST_F(SendMessage, without_data_carries_zeros_not_what_lay_there_before) {
    Peer peer = start_paired();
    ASSERT_EQ(send(kUrgent, pattern(500)), 0);
    (void)peer.read_now();
    EXPECT_EQ(bridge_client_send_message(nullptr, 300, kUrgent), 0);
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, ByteVec(300)}}));
}

TEST_F(SendMessage, with_data_but_no_length_carries_no_payload) {
    Peer peer = start_paired();
    const uint8_t data[] = {1, 2, 3};
    EXPECT_EQ(bridge_client_send_message(data, 0, kUrgent), 0);
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, {}}}));
}

TEST_F(SendMessage, leaves_at_once_for_exactly_the_urgent_types) {
    Peer peer = start_paired();
    for (uint32_t type = 0; type < 4096; ++type) {
        const bool urgent =
            type >> 7 == 1 || type >> 7 == 5 || type == MAC_EVENT_DYN_FLUSH || type == MVLAN_EVENT_NOTIFY_ENTRY;
        const int before = faults::calls("send");
        ASSERT_EQ(bridge_client_send_message(nullptr, 0, type), 0);
        ASSERT_EQ(faults::calls("send") - before, urgent ? 1 : 0) << type;
        if (!urgent)
            tick();
        const ByteVec bytes = peer.read_now();
        ASSERT_EQ(bytes.size(), 16U) << type;
        ASSERT_EQ(value_at<uint32_t>(bytes.data(), 8), type);
    }
}

TEST_F(SendMessage, judges_urgency_by_all_bits_of_the_type) {
    Peer peer = start_paired();
    for (const uint32_t type :
         {0x10081U, 0x10000U + MAC_EVENT_DYN_FLUSH, 0x80000000U + L2TOP_EVENT_SYNC_DATA_BEGIN, 0xFFFFFFFFU})
        ASSERT_EQ(bridge_client_send_message(nullptr, 0, type), 0);
    EXPECT_EQ(faults::calls("send"), 0);
    EXPECT_EQ(messages_in_batch(), 4U);
}

TEST_F(SendMessage, that_is_urgent_takes_the_waiting_ones_along) {
    Peer peer = start_paired();
    ASSERT_EQ(send(kPlain, {1}), 0);
    ASSERT_EQ(send(L2TOP_EVENT_SYNC_DATA_BEGIN, {2}), 0);
    EXPECT_EQ(peer.read_now(), batch_of({{kPlain, {1}}, {L2TOP_EVENT_SYNC_DATA_BEGIN, {2}}}));
    EXPECT_TRUE(batch_is_empty());
}

TEST_F(SendMessage, that_just_fits_fills_the_batch) {
    Peer peer = start_paired();
    fill_to(10248 - 100);
    ASSERT_EQ(send(kPlain, pattern(92)), 0);
    EXPECT_EQ(in_batch(), 10248U);
    EXPECT_FALSE(peer.readable());
    tick();
    EXPECT_EQ(peer.read_now().size(), 10256U);
}

TEST_F(SendMessage, that_does_not_fit_first_sends_the_batch) {
    Peer peer = start_paired();
    fill_to(10248 - 100);
    const uint32_t messages = messages_in_batch();
    ASSERT_EQ(send(kPlain, pattern(93)), 0);
    const auto batch = peer.read_batch(0);
    ASSERT_TRUE(batch.has_value());
    EXPECT_EQ(batch->msg_len(), 10148U);
    EXPECT_EQ(batch->msg_cnt(), messages);
    EXPECT_FALSE(peer.readable());
    EXPECT_EQ(in_batch(), 101U);
    EXPECT_EQ(messages_in_batch(), 1U);
    tick();
    EXPECT_EQ(peer.read_now(), batch_of({{kPlain, pattern(93)}}));
}

TEST_F(SendMessage, that_does_not_fit_and_is_urgent_makes_two_batches) {
    Peer peer = start_paired();
    fill_to(10248);
    ASSERT_EQ(send(kUrgent, {5}), 0);
    EXPECT_EQ(peer.read_batch(0)->msg_len(), 10248U);
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, {5}}}));
}

TEST_F(SendMessage, that_fills_a_whole_batch_leaves_no_room_for_an_empty_one) {
    Peer peer = start_paired();
    fill_to(10248);
    ASSERT_EQ(bridge_client_send_message(nullptr, 0, kPlain), 0);
    EXPECT_EQ(peer.read_batch(0)->msg_len(), 10248U);
    EXPECT_EQ(in_batch(), 8U);
}

TEST_F(SendMessage, leaves_in_one_write) {
    Peer peer = start_paired();
    for (int count = 0; count < 50; ++count)
        ASSERT_EQ(send(kPlain, pattern(100)), 0);
    EXPECT_EQ(faults::calls("send"), 0);
    tick();
    EXPECT_EQ(faults::calls("send"), 1);
    EXPECT_EQ(peer.read_batch(0)->msg_cnt(), 50U);
}

TEST_F(SendMessage, without_data_carries_zeros_wherever_in_a_batch_that_was_full) {
    Peer peer = start_paired();
    fill_to(10248);
    tick();
    (void)peer.read_now();
    EXPECT_TRUE(batch_is_empty());
    std::vector<Message> expected;
    for (const uint32_t len : {1U, 0U, 3U, 4U, 64U, 4000U, 6000U}) {
        ASSERT_EQ(bridge_client_send_message(nullptr, len, kPlain), 0);
        expected.push_back({kPlain, ByteVec(len)});
    }
    tick();
    EXPECT_EQ(peer.read_now(), batch_of(expected));
}

TEST_F(SendMessage, is_refused_when_it_does_not_fit_and_the_socket_has_gone) {
    Peer peer = start_paired();
    fill_to(10240);
    const ByteVec before = send_buffer();
    const int sock = std::exchange(ctx().sock, 0); // lost by another thread between the two looks
    EXPECT_EQ(send(kPlain, {1}), -1);
    EXPECT_EQ(send_buffer(), before);
    ctx().sock = sock;
    EXPECT_EQ(send(kPlain, {1}), 0);
}

TEST_F(SendMessage, reports_success_when_the_flush_fails) {
    Peer peer = start_paired();
    Script script;
    script_sends(script);
    script = {-EPIPE};
    EXPECT_EQ(send(kUrgent, {1}), 0);
    EXPECT_TRUE(batch_is_empty());
    EXPECT_EQ(ctx().cache_cnt, 0U);
}

TEST_F(SendMessage, does_not_kill_the_host_when_the_server_has_gone) {
    std::signal(SIGPIPE, SIG_DFL);
    Peer peer = start_paired();
    peer.close();
    EXPECT_EQ(send(kUrgent, {1}), 0);
    EXPECT_EQ(send_ontime(kPlain, {1}), -1);
}

TEST_F(SendMessage, allocates_nothing_while_the_socket_takes_it) {
    Peer peer = start_paired();
    const auto allocations = [] {
        return faults::calls("malloc") + faults::calls("calloc") + faults::calls("realloc");
    };
    for (int count = 0; count < 20; ++count) {
        const int before = allocations();
        bridge_client_send_message(nullptr, 100, kUrgent);
        bridge_client_send_message(nullptr, 10000, kPlain);
        tick();
        ASSERT_EQ(allocations(), before);
        ASSERT_EQ(peer.read_batches().size(), 2U);
    }
}

// --- the lock

class SendLock : public Transport {};

#if __has_include(<sys/single_threaded.h>)
TEST_F(SendLock, is_not_taken_to_collect_a_message_while_the_process_has_one_thread) {
    if (__libc_single_threaded == 0)
        GTEST_SKIP() << "a sanitizer has a thread of its own";
    Peer peer = start_paired();
    alarm(10); // ends the test by a signal where the sender waits
    ASSERT_EQ(pthread_mutex_lock(&bri::client::g_bglib_send_lock), 0);
    EXPECT_EQ(send(kPlain, {1}), 0);
    EXPECT_EQ(pthread_mutex_unlock(&bri::client::g_bglib_send_lock), 0);
    tick();
    EXPECT_EQ(peer.read_now(), batch_of({{kPlain, {1}}}));
}
#endif

TEST_F(SendLock, is_taken_by_every_thread_once_there_are_two) {
    Peer peer = start_paired();
    ASSERT_EQ(send(kPlain, {1}), 0);
    ASSERT_EQ(pthread_mutex_lock(&bri::client::g_bglib_send_lock), 0);
    std::atomic<bool> sent{false};
    std::thread sender([&] {
        EXPECT_EQ(send(kPlain, {2}), 0);
        sent = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(sent);
    EXPECT_EQ(messages_in_batch(), 1U);
    EXPECT_EQ(pthread_mutex_unlock(&bri::client::g_bglib_send_lock), 0);
    sender.join();
    ASSERT_EQ(send(kPlain, {3}), 0);
    tick();
    EXPECT_EQ(peer.read_now(), batch_of({{kPlain, {1}}, {kPlain, {2}}, {kPlain, {3}}}));
}

// --- the flush timer

class FlushTimer : public Transport {};

TEST_F(FlushTimer, adds_itself_again_with_or_without_work) {
    Peer peer = start_paired();
    for (int run = 0; run < 3; ++run) {
        EXPECT_EQ(tick(), 0);
        EXPECT_EQ(loop().count("bri-msg-timer"), 1);
    }
    EXPECT_FALSE(peer.readable());
    EXPECT_EQ(faults::calls("send"), 0);
}

TEST_F(FlushTimer, gives_0_before_start_up) {
    EXPECT_EQ(bri::client::flush_job(nullptr), 0);
    EXPECT_TRUE(loop().pending.empty());
}

// What is due meanwhile leaves as soon as the sender is done.
TEST_F(FlushTimer, does_not_wait_for_a_sender_that_holds_the_lock) {
    Peer peer = start_paired();
    ASSERT_EQ(send(kPlain, {1}), 0);
    int writes = 0;
    faults::hooks.send = [&](int fd, const void *data, size_t size, int flags) {
        if (++writes == 1) {
            EXPECT_EQ(tick(), 0);
        }
        return faults::real_send(fd, data, size, flags);
    };
    alarm(10); // ends the test by a signal where the timer waits
    EXPECT_EQ(send_ontime(RESEARCH_EVENT_FAILED, {2}), 0);
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
    EXPECT_EQ(peer.read_now(), batch_of({{RESEARCH_EVENT_FAILED, {2}}}) + batch_of({{kPlain, {1}}}));
    EXPECT_EQ(send(kPlain, {3}), 0); // and is not due any more
    EXPECT_FALSE(peer.readable());
    faults::clear();
}

TEST_F(FlushTimer, is_done_by_a_sender_that_holds_the_lock) {
    Peer peer = start_paired();
    faults::hooks.send = [](int, const void *, size_t, int) {
        EXPECT_EQ(tick(), 0);
        errno = EAGAIN;
        return ssize_t{-1};
    };
    alarm(10);
    EXPECT_EQ(send(kUrgent, {1}), 0);
    EXPECT_EQ(faults::calls("send"), 1);
    EXPECT_EQ(faults::calls("sendmsg"), 1);
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, {1}}}));
    faults::clear();
}

TEST_F(FlushTimer, keeps_batch_and_cache_while_there_is_no_socket_or_no_connection) {
    Peer peer = start_paired();
    Script script;
    script_sends(script);
    script = {-EAGAIN};
    ASSERT_EQ(send(kUrgent, {1}), 0);
    ASSERT_EQ(send(kPlain, {2}), 0);
    const ByteVec buffer = send_buffer();
    const int calls = faults::calls("send");
    const int sock = ctx().sock;
    for (const int none : {0, -1, -7}) {
        ctx().sock = none;
        tick();
    }
    ctx().sock = sock;
    ctx().connected = 0;
    tick();
    EXPECT_EQ(faults::calls("send"), calls);
    EXPECT_EQ(send_buffer(), buffer);
    EXPECT_EQ(cached(), (std::vector<Cached>{{17, 0}}));
    ctx().connected = 1;
    tick();
    EXPECT_EQ(peer.read_now(), batch_of({{kUrgent, {1}}}) + batch_of({{kPlain, {2}}}));
}

} // namespace
