// What the library counts, each figure by the one thing that makes it grow.
#include "base/counters.h"
#include "tests/client/client_fixture.h"
#include "tests/client/transport_fixture.h"
#include "tests/support/kernel.h"

#include <bridge/counters.h>
#include <bridge/debug.h>
#include <bridge/mac_client.h>

#include <poll.h>

namespace {

using namespace test;

constexpr uint32_t kAnyTime = BRIDGE_EVENT_BKUP_DATA_BEGIN; // reaches handlers at any time
constexpr uint32_t kGroup = VG_EVENT_MEM_VLAN;              // passed on as it is

bri_counters counters() {
    bri_counters now{};
    EXPECT_EQ(bridge_client_get_counters(&now, sizeof now), sizeof now);
    return now;
}

using Figure = uint64_t bri_counters::*;
struct Grown {
    Figure figure;
    uint64_t by;
};

// Exactly these figures have grown since the start of the test or the last call; all others are as they were.
class Growth {
  public:
    void expect(const std::vector<Grown> &grown) {
        bri_counters wanted = before_;
        for (const Grown &row : grown)
            wanted.*row.figure += row.by;
        const bri_counters now = counters();
        for (size_t at = 0; at < sizeof now; at += sizeof(uint64_t))
            EXPECT_EQ(value_at<uint64_t>(&now, at), value_at<uint64_t>(&wanted, at)) << "figure at byte " << at;
        before_ = now;
    }
    void restart() { before_ = counters(); }

  private:
    bri_counters before_ = counters();
};

// --- the call

TEST(Counters, of_another_size_give_what_both_know) {
    bri_counters small;
    std::memset(&small, 0xEE, sizeof small);
    EXPECT_EQ(bridge_client_get_counters(&small, 12), 12U);
    EXPECT_EQ(value_at<uint8_t>(&small, 11), 0);
    EXPECT_EQ(value_at<uint8_t>(&small, 12), 0xEE);
    struct {
        bri_counters known;
        uint8_t newer[16];
    } large;
    std::memset(&large, 0xEE, sizeof large);
    EXPECT_EQ(bridge_client_get_counters(&large.known, sizeof large), sizeof(bri_counters));
    for (const uint8_t byte : large.newer)
        EXPECT_EQ(byte, 0);
}

TEST(Counters, need_a_place) {
    EXPECT_EQ(bridge_client_get_counters(nullptr, sizeof(bri_counters)), 0U);
    bri_counters untouched{};
    EXPECT_EQ(bridge_client_get_counters(&untouched, 0), 0U);
}

TEST(Counters, count_beyond_32_bits) {
    bri::counters::Count count;
    count.add(0xFFFFFFFF);
    EXPECT_EQ(count.value(), 0xFFFFFFFFU);
    count.add(3);
    EXPECT_EQ(count.value(), 0x100000002U);
    count.add(0xFFFFFFFD);
    EXPECT_EQ(count.value(), 0x1FFFFFFFFU);
}

// --- events

class CountedEvents : public Client {
  protected:
    Growth growth;
};

TEST_F(CountedEvents, handed_on_once_however_many_want_them) {
    listen({kAnyTime});
    listen({kAnyTime}, handler<2>);
    growth.restart();
    deliver(kAnyTime);
    EXPECT_EQ(events().size(), 2U);
    growth.expect({{&bri_counters::events_handed_on, 1}});
}

TEST_F(CountedEvents, dropped_as_slave) {
    listen({kAnyTime});
    state().slave = 1;
    growth.restart();
    deliver(kAnyTime);
    growth.expect({{&bri_counters::dropped_slave, 1}});
}

TEST_F(CountedEvents, dropped_that_nobody_registered) {
    deliver(kAnyTime);
    growth.expect({{&bri_counters::dropped_not_registered, 1}});
}

TEST_F(CountedEvents, dropped_before_the_backup_data_is_there) {
    listen({kGroup});
    growth.restart();
    deliver(kGroup);
    growth.expect({{&bri_counters::dropped_before_data, 1}});
}

TEST_F(CountedEvents, dropped_as_stale) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    growth.restart();
    vl_evt_vlan_rec record{}; // no version is newer than none
    record.vid = 10;
    deliver(VLAN_EVENT_CREATE_INDEX, bytes_of(record));
    growth.expect({{&bri_counters::dropped_stale, 1}});
}

TEST_F(CountedEvents, dropped_that_are_shorter_than_their_record) {
    for (const uint32_t type :
         {static_cast<uint32_t>(BRIDGE_EVEVT_SERVER_STAT), uint32_t{VLAN_EVENT_CREATE_INDEX},
          uint32_t{VLAN_EVENT_CREATE_RANGE}, uint32_t{MAC_EVENT_SET_AVAILABLE_MAC}, uint32_t{DEBUG_EVENT_MSG_DELAY}}) {
        growth.restart();
        deliver(type);
        growth.expect({{&bri_counters::dropped_short, 1}});
    }
}

TEST_F(CountedEvents, dropped_that_nobody_acts_on) {
    constexpr uint32_t kDebug = BRI_SUBMOD_DEBUG << 7 | 127;
    for (const uint32_t type :
         {uint32_t{BRI_SUBMOD_QINQ << 7 | 1}, 0xFFFFFFFFU, uint32_t{BRIDGE_EVENT_REG_MSG},
          uint32_t{BRI_SUBMOD_RESEARCH << 7 | 127}, uint32_t{BRI_SUBMOD_MAC << 7 | 127}, kDebug}) {
        growth.restart();
        deliver(type);
        growth.expect({{&bri_counters::dropped_unknown, 1}});
    }
}

TEST_F(CountedEvents, of_one_notification_count_one_by_one) {
    backup_ended();
    listen({MAC_EVENT_NOTIFY_ADDR});
    growth.restart();
    bri_mac_msg record{};
    record.oper = BRI_MAC_ADD;
    const ByteVec one = bytes_of(record);
    record.oper = 77;
    deliver(MAC_EVENT_NOTIFY_ADDR, one + one + bytes_of(record));
    growth.expect({{&bri_counters::events_handed_on, 2}, {&bri_counters::dropped_unknown, 1}});
}

TEST_F(CountedEvents, held_back_and_released) {
    backup_ended();
    listen({kGroup});
    deliver(DEBUG_EVENT_MSG_DELAY, word(0) + word(60));
    const auto hold_back = [](bri_msg_hdr *message) { EXPECT_EQ(bri_clnt_msg_delay_process(message), 1); };
    growth.restart();
    test::deliver(hold_back, kGroup, {1, 2, 3, 4});
    growth.expect({{&bri_counters::messages_delayed, 1}});
    loop().run("msg-delay-timer");
    growth.expect({{&bri_counters::messages_released, 1}, {&bri_counters::events_handed_on, 1}});
}

// --- the connection and what comes in

class CountedConnection : public Transport {
  protected:
    ~CountedConnection() override { faults::clear(); }

    void begin() {
        peer = start_connected(server);
        growth.restart();
    }
    static void read() { loop().run("bri-read"); }

    const Server server;
    Peer peer;
    Script script;
    Growth growth;
};

TEST_F(CountedConnection, made_and_introduced) {
    start();
    growth.restart();
    EXPECT_EQ(loop().run("bri-conn"), 0);
    growth.expect({{&bri_counters::connections, 1},
                   {&bri_counters::batches_out, 1},
                   {&bri_counters::messages_out, 1},
                   {&bri_counters::bytes_out, 8 + 8 + 544}});
}

TEST_F(CountedConnection, refused) {
    start();
    growth.restart();
    faults::fail("connect", 1, ECONNREFUSED);
    EXPECT_EQ(loop().run("bri-conn"), -1);
    growth.expect({{&bri_counters::connect_failed, 1}});
}

TEST_F(CountedConnection, batches_in) {
    begin();
    peer.send({{BRIDGE_EVEVT_SERVER_STAT, {1}}, {BRIDGE_EVEVT_SERVER_STAT, {0}}});
    read();
    growth.expect({{&bri_counters::batches_in, 1}, {&bri_counters::messages_in, 2}, {&bri_counters::bytes_in, 26}});
}

TEST_F(CountedConnection, a_message_that_its_batch_cuts) {
    begin();
    peer.write(batch_of({{BRIDGE_EVEVT_SERVER_STAT, {1}}}, {}, 2) + ByteVec{});
    read();
    growth.expect({{&bri_counters::batches_in, 1}, {&bri_counters::messages_in, 1}, {&bri_counters::bytes_in, 17}});
    peer.write(batch_of({{BRIDGE_EVEVT_SERVER_STAT, {1}}, {BRIDGE_EVEVT_SERVER_STAT, {0, 0, 0}}}, 18, 2));
    read();
    growth.expect({{&bri_counters::batches_in, 1},
                   {&bri_counters::messages_in, 1},
                   {&bri_counters::bytes_in, 26},
                   {&bri_counters::dropped_short, 1}});
}

TEST_F(CountedConnection, lost_because_the_server_closed_it) {
    begin();
    peer.close();
    read();
    growth.expect({{&bri_counters::reset_by_peer, 1}});
}

TEST_F(CountedConnection, lost_because_the_server_died_in_a_batch) {
    begin();
    peer.write(part_of(batch_of({{BRIDGE_EVEVT_SERVER_STAT, {1}}}), 0, 10));
    peer.close();
    read();
    growth.expect({{&bri_counters::reset_by_peer, 1}});
}

TEST_F(CountedConnection, lost_for_a_bad_frame) {
    begin();
    peer.write(batch_of({}, 10249, 1));
    read();
    growth.expect({{&bri_counters::reset_bad_frame, 1}});
}

TEST_F(CountedConnection, lost_because_a_batch_was_not_whole_in_time) {
    begin();
    script_reads(script);
    script = {-EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN, -EAGAIN};
    read();
    growth.expect({{&bri_counters::reset_timeout, 1}});
}

TEST_F(CountedConnection, lost_for_another_error) {
    begin();
    script_reads(script);
    script = {-EBADF};
    read();
    growth.expect({{&bri_counters::reset_error, 1}});
}

TEST_F(CountedConnection, reset_by_the_host_counts_once) {
    begin();
    bridge_client_connect_reset();
    bridge_client_connect_reset();
    growth.expect({{&bri_counters::reset_asked, 1}});
}

TEST_F(CountedConnection, jobs_that_the_loop_refused) {
    begin();
    loop().refuse = 2;
    EXPECT_EQ(bridge_client_thread_event(BRI_CLNT_EVT_READ), -1);
    EXPECT_EQ(bridge_client_thread_event(BRI_CLNT_EVT_MSG_TIMER), -1);
    growth.expect({{&bri_counters::jobs_refused, 2}});
}

// --- what goes out

class CountedSends : public Transport {
  protected:
    ~CountedSends() override { faults::clear(); }

    void begin() {
        peer = start_paired();
        growth.restart();
    }
    static void fill() {
        const ByteVec plenty = pattern(10240);
        while (ctx().cache_cnt == 0)
            send(kUrgent, plenty);
    }

    Peer peer;
    Growth growth;
};

TEST_F(CountedSends, a_batch_of_several) {
    begin();
    EXPECT_EQ(send(kPlain, {1, 2}), 0);
    growth.expect({});
    EXPECT_EQ(send(kUrgent, {3}), 0);
    growth.expect(
        {{&bri_counters::batches_out, 1}, {&bri_counters::messages_out, 2}, {&bri_counters::bytes_out, 8 + 10 + 9}});
}

TEST_F(CountedSends, one_that_does_not_wait) {
    begin();
    EXPECT_EQ(send_ontime(kPlain, {1, 2}), 0);
    growth.expect(
        {{&bri_counters::batches_out, 1}, {&bri_counters::messages_out, 1}, {&bri_counters::bytes_out, 8 + 10}});
}

TEST_F(CountedSends, refused_for_its_length_and_for_want_of_a_connection) {
    begin();
    EXPECT_EQ(bridge_client_send_message(nullptr, 10241, kPlain), -1);
    bridge_client_connect_reset();
    growth.restart();
    EXPECT_EQ(send(kPlain, {1}), -1);
    EXPECT_EQ(send_ontime(kPlain, {1}), -1);
    growth.expect({{&bri_counters::messages_refused, 2}});
}

TEST_F(CountedSends, what_waits_and_what_leaves_later) {
    begin();
    fill();
    const bri_counters full = counters();
    EXPECT_EQ(full.runs_cached - 1, 0U);
    EXPECT_GE(full.cache_most, 1U);
    (void)peer.read_now();
    growth.restart();
    while (ctx().cache_cnt != 0) {
        tick();
        (void)peer.read_now();
    }
    growth.expect(
        {{&bri_counters::batches_out, 1}, {&bri_counters::messages_out, 1}, {&bri_counters::bytes_out, 10256}});
}

TEST_F(CountedSends, what_finds_the_cache_full) {
    begin();
    fill();
    ctx().cache_max = ctx().cache_cnt;
    growth.restart();
    EXPECT_EQ(send(kUrgent, {1}), 0);
    growth.expect({{&bri_counters::runs_dropped, 1}});
}

// --- look-ups

class CountedLookups : public Client {
  protected:
    void ask() { bridge_lib_query_netlink(nullptr, 0, 1); }
    // All figures but the longest time, which depends on the machine.
    void expect(Figure figure) {
        const uint64_t longest = counters().lookup_longest;
        growth.expect({{figure, 1}, {&bri_counters::lookup_longest, longest - before_}});
        EXPECT_GE(longest, before_);
        before_ = longest;
    }
    Kernel kernel;
    Growth growth;
    uint64_t before_ = counters().lookup_longest;
};

TEST_F(CountedLookups, answered) {
    kernel.on_data = [this](const KernelRequest &request) { kernel.answer(request, {1}); };
    ask();
    expect(&bri_counters::lookups_done);
}

TEST_F(CountedLookups, failed) {
    kernel.family = 0;
    ask();
    expect(&bri_counters::lookups_failed);
    kernel.family = 27;
    kernel.on_data = [this](const KernelRequest &request) { kernel.answer_error(request, ENOENT); };
    ask();
    expect(&bri_counters::lookups_failed);
}

TEST_F(CountedLookups, timed_out_and_for_how_long) {
    ask();
    expect(&bri_counters::lookups_timed_out);
    EXPECT_GE(counters().lookup_longest, 20000U);
}

} // namespace
