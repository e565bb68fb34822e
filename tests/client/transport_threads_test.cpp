// Host threads that send while the loop's thread flushes, receives and loses its connection.
#include "tests/client/transport_fixture.h"

#include <atomic>
#include <thread>

namespace {

using namespace test;

constexpr uint32_t kThreads = 4;
constexpr uint32_t kMessages = 250; // of each thread

class transport_threads : public Transport {
  protected:
    // Every thread sends its messages, numbered, of both kinds, and now and then one that does not wait.
    void send_from_all(bool ontime) {
        for (uint32_t thread = 0; thread < kThreads; ++thread)
            senders_.emplace_back([this, thread, ontime] {
                for (uint32_t number = 0; number < kMessages; ++number) {
                    uint32_t payload[20] = {thread, number};
                    const uint32_t type = number % 3 == 0 ? kUrgent : kPlain;
                    const bool alone = ontime && number % 16 == 7;
                    const int result = alone ? bridge_client_send_message_ontime(payload, sizeof payload, kAlone)
                                             : bridge_client_send_message(payload, 8 + number % 72, type);
                    if (result == 0)
                        ++accepted;
                }
                ++done_;
            });
    }
    [[nodiscard]] bool all_done() const { return done_ == kThreads; }
    void join() {
        for (std::thread &sender : senders_)
            sender.join();
    }
    // Notes the messages of a batch, which must be whole ones.
    void note(const Batch &batch) {
        const std::vector<Message> messages = batch.messages();
        ASSERT_EQ(messages.size(), batch.msg_cnt());
        for (const Message &message : messages) {
            if (message.type == BRIDGE_EVENT_REG_MSG)
                continue;
            ASSERT_GE(message.payload.size(), 8U);
            const auto thread = value_at<uint32_t>(message.payload.data(), 0);
            ASSERT_LT(thread, kThreads);
            auto &numbers = message.type == kAlone ? alone_ : seen_[thread];
            numbers.push_back(value_at<uint32_t>(message.payload.data(), 4));
            ++received;
        }
    }
    // What a person may ask for at any time.
    static void show_cache() {
        bri_msg_hdr message{DEBUG_EVENT_SHOW_CACHE, 0};
        clear_log();
        bridge_client_msg_dspch(&message);
        EXPECT_EQ(log_lines().size(), 5U);
    }
    void expect_each_thread_in_order() const {
        for (const std::vector<uint32_t> &numbers : seen_)
            EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
    }

    static constexpr uint32_t kAlone = RESEARCH_EVENT_FAILED;
    std::atomic<uint32_t> accepted{0};
    uint32_t received = 0;

  private:
    std::vector<std::thread> senders_;
    std::atomic<uint32_t> done_{0};
    std::vector<uint32_t> seen_[kThreads];
    std::vector<uint32_t> alone_;
};

TEST_F(transport_threads, send_from_4_threads_and_lose_nothing) {
    Server server;
    Peer peer = start_connected(server);
    send_from_all(true);
    // A process of its own otherwise: it reads on while a blocked sender keeps the flush timer waiting.
    std::thread reader([&] {
        while (received < kThreads * kMessages) {
            const auto batch = peer.read_batch(10000);
            ASSERT_TRUE(batch.has_value());
            note(*batch);
        }
    });
    while (!all_done())
        tick();
    join();
    do
        tick();
    while (ctx().cache_cnt != 0);
    reader.join();
    EXPECT_EQ(accepted, kThreads * kMessages);
    EXPECT_EQ(received, kThreads * kMessages);
    expect_each_thread_in_order();
}

// The socket takes little, so that the cache is at work, and nobody reads while the threads send.
TEST_F(transport_threads, send_into_the_cache_from_4_threads_and_lose_nothing) {
    Server server;
    Peer peer = start_connected(server);
    const int small = 4096;
    ASSERT_EQ(setsockopt(ctx().sock, SOL_SOCKET, SO_SNDBUF, &small, sizeof small), 0);
    send_from_all(false);
    while (!all_done()) {
        tick();
        show_cache();
    }
    join();
    EXPECT_GT(ctx().cache_cnt, 0U);
    for (int round = 0; round < 10000 && received < kThreads * kMessages; ++round) {
        tick();
        if (const auto batch = peer.readable() ? peer.read_batch(0) : std::nullopt)
            note(*batch);
        // A batch that is not whole yet waits for the next flush.
        ASSERT_FALSE(testing::Test::HasFatalFailure());
    }
    EXPECT_EQ(received, kThreads * kMessages);
    EXPECT_EQ(ctx().cache_drop, 0U);
    expect_each_thread_in_order();
}

// The server hangs up again and again. What it read whole came in order, and it never saw a batch inside another. A
// send time-out of 2 ms instead of 10 s also cuts messages that do not wait.
TEST_F(transport_threads, send_from_4_threads_while_the_loop_reconnects) {
    Server server;
    Peer peer = start_connected(server);
    faults::hooks.setsockopt = [](int fd, int level, int name, const void *, socklen_t) {
        const timeval soon{0, 2000};
        return faults::real_setsockopt(fd, level, name, &soon, sizeof soon);
    };
    setsockopt(ctx().sock, SOL_SOCKET, SO_SNDTIMEO, nullptr, 0);
    send_from_all(true);
    int lost = 0;
    while (!all_done() || lost < 5) {
        // A connection that hangs up before the threads get a processor would see nothing of theirs.
        const uint32_t before = accepted;
        do
            tick();
        while (accepted == before && !all_done());
        for (const Batch &batch : peer.read_batches())
            note(batch);
        peer.close();
        while (ctx().connected != 0)
            loop().run_readable(100);
        ASSERT_EQ(loop().run("bri-reconn"), 0);
        peer = server.accept();
        ++lost;
    }
    join();
    EXPECT_GT(accepted, 0U);
    EXPECT_LE(received, kThreads * kMessages);
    expect_each_thread_in_order();
}

// A thread that blocks in a message that does not wait, and so holds the lock.
class transport_blocked_sender : public Transport {
  protected:
    void block() {
        peer_ = start_paired();
        const timeval limit{2, 0}; // five of them are what the message waits for
        ASSERT_EQ(setsockopt(ctx().sock, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit), 0);
        const ByteVec bytes = pattern(4096);
        uint32_t written = 0;
        while (bridge_writen_dontwait(ctx().sock, bytes.data(), 4096, &written) == 0) {
        }
        sender_ = std::thread([this] { result = send_ontime(kPlain, pattern(10000)); });
        while (pthread_mutex_trylock(&bri::client::g_bglib_send_lock) == 0) {
            pthread_mutex_unlock(&bri::client::g_bglib_send_lock);
            std::this_thread::yield();
        }
        since_ = time(nullptr);
    }
    void reset_and_join() {
        bridge_client_connect_reset();
        sender_.join();
    }
    [[nodiscard]] time_t seconds() const { return time(nullptr) - since_; }

    static constexpr int kBlocked = 1;
    std::atomic<int> result{kBlocked};

  private:
    Peer peer_;
    std::thread sender_;
    time_t since_ = 0;
};

TEST_F(transport_blocked_sender, is_sent_home_by_a_reset) {
    block();
    reset_and_join();
    EXPECT_EQ(result, -1);
    EXPECT_LT(seconds(), 8);
    EXPECT_EQ(ctx().sock, 0);
    EXPECT_EQ(ctx().cache_cnt, 0U);
}

TEST_F(transport_blocked_sender, does_not_hold_up_the_loop) {
    block();
    for (int period = 0; period < 3; ++period)
        EXPECT_EQ(tick(), 0);
    EXPECT_EQ(result, kBlocked);
    reset_and_join();
    EXPECT_EQ(loop().count("bri-msg-timer"), 1);
}

} // namespace
