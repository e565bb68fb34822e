// What leaves, waits, is written to the log and counted is the same as with the literal form of sending, whatever the
// socket takes, and whatever handlers do in the middle.
#include "tests/client/literal_sender.h"

#include <bridge/counters.h>
#include <bridge/vlan_db.h>

#include <atomic>
#include <optional>
#include <random>
#include <thread>

namespace {

using namespace test;

constexpr uint32_t kEvent = BRIDGE_EVENT_SWITCHOVER_BEGIN; // handed on at any time

class SendAsLiteral : public Transport {
  protected:
    ~SendAsLiteral() override {
        during_event = nullptr;
        faults::clear();
    }

    // One history of `steps` operations, drawn from `seed`, on a cache of this many runs.
    void live(unsigned seed, uint32_t cache_max, int steps) {
        random_.seed(seed);
        if (g_bridge_client == nullptr)
            begin();
        before_ = figures();
        ctx().cache_max = cache_max;
        literal_.emplace("unit", cache_max);
        wire_ = Wire();
        for (int step = 0; step < steps && !HasFailure(); ++step) {
            change_room();
            operate();
            compare(seed, step);
        }
        settle();
        compare(seed, steps);
    }

  private:
    void begin() {
        peer_ = start_paired();
        debug_on({BRI_DBG_MSG});
        const event_set set = set_of_types({kEvent});
        EXPECT_EQ(bridge_client_reg_event(&set, on_event), 0);
        bridge_client_thread_event(BRI_CLNT_EVT_READ);
        clear_log();
        take_writes();
    }
    void take_writes() {
        faults::hooks.send = [this](int, const void *data, size_t size, int) {
            const faults::Pause pause;
            return wire_.take(static_cast<const uint8_t *>(data), size);
        };
        faults::hooks.sendmsg = [this](int, const msghdr *message, int) {
            const faults::Pause pause;
            const ByteVec bytes = bytes_of(*message);
            return wire_.take(bytes.data(), bytes.size());
        };
    }

    uint32_t roll(uint32_t sides) { return static_cast<uint32_t>(random_()) % sides; }

    void change_room() {
        static constexpr int kErrors[] = {EAGAIN, EAGAIN, EAGAIN, EINTR, EPIPE};
        const size_t rooms[] = {0, 0, 0, roll(60), roll(3000), roll(60000), SIZE_MAX};
        const size_t room = rooms[roll(std::size(rooms))];
        const int error = kErrors[roll(std::size(kErrors))];
        wire_.set(room, error);
        literal_->wire.set(room, error);
    }
    void close_both_wires() {
        wire_.set(0, EAGAIN);
        literal_->wire.set(0, EAGAIN);
    }

    void operate() {
        switch (roll(12)) {
        case 0:
            return hear_event();
        case 1:
            return lose_connection();
        case 2:
            return without_memory();
        case 3:
        case 4:
        case 5:
            tick();
            return literal_->flush();
        default:
            send_any();
        }
    }

    // A message of any kind; ones without data now and then lie where others did.
    void send_any() {
        const uint32_t lengths[] = {0, roll(40), 24, 24, roll(300), roll(5000), 10240, 10241};
        const uint32_t len = lengths[roll(std::size(lengths))];
        const ByteVec payload = pattern(len, roll(200));
        const void *data = roll(4) == 0 ? nullptr : payload.data();
        const uint32_t types[] = {kPlain, kPlain, kUrgent, L2TOP_EVENT_SYNC_DATA_BEGIN, 0xFFFFFFFF};
        const uint32_t type = types[roll(std::size(types))];
        if (roll(6) == 0)
            EXPECT_EQ(bridge_client_send_message_ontime(data, len, type), literal_->send_ontime(data, len, type));
        else
            EXPECT_EQ(bridge_client_send_message(data, len, type), literal_->send(data, len, type));
    }
    void without_memory() {
        close_both_wires(); // a run that was cut would end the stream
        literal_->memory_short = true;
        faults::fail("malloc", 1, ENOMEM);
        tick();
        literal_->flush();
        faults::fail("malloc", 1, 0, 0);
        literal_->memory_short = false;
    }
    void lose_connection() {
        bridge_client_connect_reset();
        literal_->reset();
        const faults::Pause pause;
        peer_ = attach_pair();
        bridge_client_thread_event(BRI_CLNT_EVT_READ);
    }

    // The server speaks: handlers act, and what waits may go while the batch stays.
    void hear_event() {
        lost_ = false;
        during_event = [this] { act_in_handler(); };
        peer_.send({{kEvent, {}}});
        loop().run("bri-read");
        if (!lost_ && !literal_->waiting().empty())
            literal_->drain();
        loop().pending.clear();
        if (lost_)
            lose_connection();
        bridge_client_thread_event(BRI_CLNT_EVT_READ);
        bridge_client_thread_event(BRI_CLNT_EVT_MSG_TIMER);
    }
    void act_in_handler() {
        vl_increase_vlan_number();
        switch (roll(5)) {
        case 0:
            return change_registration();
        case 1:
            bridge_client_connect_reset();
            lost_ = true;
            return literal_->reset();
        default:
            send_any();
            send_any();
        }
    }
    void change_registration() {
        event_set set = set_of_types({400 + roll(10)});
        ByteVec registration(544);
        std::memcpy(registration.data(), set.words, sizeof set.words);
        registration[512] = 1;
        EXPECT_EQ(bridge_client_reg_event(&set, other), 0);
        literal_->send(registration.data(), 544, BRIDGE_EVENT_REG_MSG);
        registration[512] = 0;
        EXPECT_EQ(bridge_client_unreg_event(&set, other), 0);
        literal_->send(registration.data(), 544, BRIDGE_EVENT_REG_MSG);
    }

    // Until everything is out.
    void settle() {
        wire_.set(SIZE_MAX, EAGAIN);
        literal_->wire.set(SIZE_MAX, EAGAIN);
        tick();
        literal_->flush();
        EXPECT_EQ(ctx().cache_cnt, 0U);
    }

    void compare(unsigned seed, int step) {
        SCOPED_TRACE("seed " + std::to_string(seed) + ", step " + std::to_string(step));
        std::vector<std::pair<uint32_t, uint32_t>> waiting;
        for (const Cached &run : cached())
            waiting.emplace_back(run.size, run.written);
        EXPECT_EQ(waiting, literal_->waiting());
        EXPECT_TRUE(wire_.seen() == literal_->wire.seen());
        EXPECT_EQ(lines_of_sending(), literal_->lines);
        literal_->lines.clear();
        const bri_counters now = figures();
        EXPECT_EQ(now.batches_out - before_.batches_out, literal_->batches);
        EXPECT_EQ(now.messages_out - before_.messages_out, literal_->messages);
        EXPECT_EQ(now.bytes_out - before_.bytes_out, literal_->bytes);
        EXPECT_EQ(now.runs_cached - before_.runs_cached, literal_->cached);
        EXPECT_EQ(now.runs_dropped - before_.runs_dropped, literal_->dropped);
        EXPECT_EQ(now.messages_refused - before_.messages_refused, literal_->refused);
    }
    static bri_counters figures() {
        bri_counters now{};
        bridge_client_get_counters(&now, sizeof now);
        return now;
    }
    static std::vector<std::string> lines_of_sending() {
        std::vector<std::string> lines;
        for (const LogLine &line : log_lines())
            for (const char *part : {"Socket send FAIL", "Failed to send cached msg", "] Msg send ",
                                     "Failed to create msg node", "Client send msg failed"})
                if (line.text.find(part) != std::string::npos)
                    lines.push_back(line.text);
        clear_log();
        return lines;
    }

    static int on_event(uint32_t, void *, uint16_t) {
        if (during_event)
            during_event();
        return 0;
    }
    static int other(uint32_t, void *, uint16_t) { return 0; }
    static inline std::function<void()> during_event;

    std::mt19937 random_;
    Peer peer_;
    Wire wire_;
    std::optional<LiteralSender> literal_;
    bri_counters before_{};
    bool lost_ = false;
};

// Lives as long as the object.
class IdleThread {
  public:
    ~IdleThread() {
        over_ = true;
        over_.notify_one();
        thread_.join();
    }

  private:
    std::atomic<bool> over_{false};
    std::thread thread_{[this] { over_.wait(false); }};
};

TEST_F(SendAsLiteral, with_one_thread) {
    for (unsigned seed = 1; seed <= 8; ++seed)
        live(seed, 1000, 250);
}

TEST_F(SendAsLiteral, beside_another_thread) {
    const IdleThread idle;
    for (unsigned seed = 1; seed <= 8; ++seed)
        live(seed, 1000, 250);
}

TEST_F(SendAsLiteral, with_little_room_in_the_cache) {
    for (unsigned seed = 11; seed <= 18; ++seed)
        live(seed, seed % 4 * 3, 250);
}

TEST_F(SendAsLiteral, before_and_after_a_thread_starts_and_ends) {
    live(21, 1000, 250);
    {
        const IdleThread idle;
        live(22, 1000, 250);
    }
    live(23, 1000, 250);
}

} // namespace
