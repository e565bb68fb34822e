#include "client/state.h"
#include "tests/support/test.h"

#include <algorithm>

namespace {

using namespace test;

constexpr uint32_t kType = VG_EVENT_MEM_VLAN; // passed on to handlers as it is

std::vector<uint32_t> g_seen;     // first payload word of each delivered message
std::vector<uint32_t> g_seen_num; // g_bri_msg_delay_num at that moment
int (*g_inside)(uint32_t number); // what the handler does

int on_event(uint32_t, void *data, uint16_t len) {
    if (data == nullptr || len < 4)
        return 0;
    const auto number = value_at<uint32_t>(data, 0);
    g_seen.push_back(number);
    g_seen_num.push_back(g_bri_msg_delay_num);
    return g_inside != nullptr ? g_inside(number) : 0;
}

int delay(uint32_t number, uint32_t type = kType, uint32_t len = 4) {
    alignas(4) uint8_t bytes[13] = {};
    uint8_t *message = bytes + 1; // batches are not aligned
    put_at(message, 0, type);
    put_at(message, 4, len);
    put_at(message, 8, number);
    return bri_clnt_msg_delay_process(reinterpret_cast<bri_msg_hdr *>(message));
}

void set_interval(int32_t seconds) {
    const int32_t message[4] = {DEBUG_EVENT_MSG_DELAY, 8, 0, seconds};
    bri_clnt_on_debug_msg(reinterpret_cast<const bri_msg_hdr *>(message));
}

std::vector<uint32_t> numbers(uint32_t first, uint32_t last) {
    std::vector<uint32_t> all;
    for (uint32_t number = first; number <= last; ++number)
        all.push_back(number);
    return all;
}

class delay_list : public Env {
  protected:
    delay_list() {
        std::strcpy(client.name, "stp");
        client.pid = 1;
        client.master = Loop::get().master();
        for (bri_list *head : {&client.handlers, &client.conn_cbs, &client.oridata_cbs, &client.cache})
            head->next = head->prev = head;
        g_bridge_client = &client;
        bri::client::g_state.sync_state = 2;
        bri_clnt_debug_init(&client);
        event_set set{};
        set.words[kType >> 5] |= 1U << (kType & 31);
        EXPECT_EQ(bridge_client_reg_event(&set, on_event), 0);
    }
    ~delay_list() override { bri_clnt_debug_init(&client); }

    static inline bri_clnt_ctx client{}; // outlives the test, as what hangs on it does
};

TEST_F(delay_list, nothing_is_held_back_while_the_interval_is_zero) {
    EXPECT_EQ(delay(1), 0);
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
    EXPECT_EQ(g_bri_msg_delay_list.next, &g_bri_msg_delay_list);
}

TEST_F(delay_list, a_message_waits_for_the_timer) {
    set_interval(3);
    const Job *job = Loop::get().find("msg-delay-timer");
    ASSERT_NE(job, nullptr);
    EXPECT_EQ(job->kind, Job::Kind::kTimer);
    EXPECT_EQ(job->usec, 3000000);
    EXPECT_EQ(job->master, client.master);
    EXPECT_EQ(delay(1), 1);
    EXPECT_EQ(delay(2), 1);
    EXPECT_EQ(g_bri_msg_delay_num, 2U);
    EXPECT_TRUE(g_seen.empty());
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, numbers(1, 2));
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
    EXPECT_EQ(g_bri_msg_delay_list.next, &g_bri_msg_delay_list);
    EXPECT_EQ(g_bri_msg_delay_list.prev, &g_bri_msg_delay_list);
}

TEST_F(delay_list, a_message_is_held_back_from_one_second_on_and_whatever_its_length) {
    static uint8_t longest[8 + BRI_BATCH_MSG_MAX];
    put_at(longest, 0, kType);
    put_at(longest, 4, uint32_t{BRI_BATCH_MSG_MAX});
    put_at(longest, 8, uint32_t{2});
    set_interval(1);
    ASSERT_NE(Loop::get().find("msg-delay-timer"), nullptr);
    EXPECT_EQ(Loop::get().find("msg-delay-timer")->usec, 1000000);
    EXPECT_EQ(delay(1), 1);
    EXPECT_EQ(bri_clnt_msg_delay_process(reinterpret_cast<bri_msg_hdr *>(longest)), 1);
    set_interval(0);
    EXPECT_EQ(g_seen, numbers(1, 2));
}

TEST_F(delay_list, what_was_held_back_is_given_back_to_the_heap) {
    const int before = faults::live_blocks();
    set_interval(3);
    Loop::get().pending.clear();
    delay(1);
    delay(2);
    EXPECT_EQ(faults::live_blocks(), before + 2);
    set_interval(0);
    EXPECT_EQ(g_seen, numbers(1, 2));
    EXPECT_EQ(faults::live_blocks(), before);
    set_interval(3);
    delay(3);
    bri_clnt_debug_init(&client);
    EXPECT_EQ(faults::live_blocks(), before);
}

TEST_F(delay_list, the_copy_is_the_callers_no_more) {
    alignas(4) uint8_t message[12] = {};
    put_at(message, 0, kType);
    put_at(message, 4, uint32_t{4});
    put_at(message, 8, uint32_t{7});
    set_interval(3);
    EXPECT_EQ(bri_clnt_msg_delay_process(reinterpret_cast<bri_msg_hdr *>(message)), 1);
    std::memset(message, 0xEE, sizeof message);
    set_interval(0);
    EXPECT_EQ(g_seen, numbers(7, 7));
}

TEST_F(delay_list, a_message_is_still_counted_while_it_is_delivered) {
    set_interval(3);
    delay(1);
    delay(2);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen_num, (std::vector<uint32_t>{2, 1}));
}

TEST_F(delay_list, debug_messages_are_never_held_back) {
    set_interval(3);
    for (const uint32_t type : {0x880U, 0x881U, 0x8FFU})
        EXPECT_EQ(delay(1, type), 0);
    EXPECT_EQ(delay(1, 0x87F), 1);
    EXPECT_EQ(delay(1, 0x900), 1);
}

TEST_F(delay_list, the_256th_message_releases_all_of_them_in_arrival_order) {
    set_interval(60);
    for (uint32_t number = 1; number <= 255; ++number)
        EXPECT_EQ(delay(number), 1);
    EXPECT_TRUE(g_seen.empty());
    EXPECT_EQ(delay(256), 1);
    EXPECT_EQ(g_seen, numbers(1, 256));
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
}

TEST_F(delay_list, without_memory_the_caller_dispatches) {
    set_interval(3);
    faults::fail("malloc", 1, ENOMEM);
    EXPECT_EQ(delay(1), 0);
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
    EXPECT_EQ(delay(2), 1);
}

TEST_F(delay_list, switching_off_releases_at_once) {
    set_interval(3);
    delay(1);
    set_interval(0);
    EXPECT_EQ(g_seen, numbers(1, 1));
    EXPECT_EQ(delay(2), 0);
}

TEST_F(delay_list, a_second_interval_runs_a_second_timer) {
    set_interval(3);
    set_interval(5);
    EXPECT_EQ(Loop::get().count("msg-delay-timer"), 2);
}

TEST_F(delay_list, the_timer_runs_on_with_the_interval_of_that_moment) {
    set_interval(3);
    set_interval(0);
    EXPECT_EQ(Loop::get().count("msg-delay-timer"), 1);
    Loop::get().run("msg-delay-timer");
    const Job *job = Loop::get().find("msg-delay-timer");
    ASSERT_NE(job, nullptr);
    EXPECT_EQ(job->usec, 0);
}

TEST_F(delay_list, of_two_timers_each_runs_on_with_the_interval_that_was_set_last) {
    set_interval(3);
    set_interval(5);
    for (const long usec : {3000000L, 5000000L, 5000000L}) {
        ASSERT_EQ(Loop::get().find("msg-delay-timer")->usec, usec);
        Loop::get().run("msg-delay-timer");
        EXPECT_EQ(Loop::get().count("msg-delay-timer"), 2);
    }
}

// What a handler had held back before it switched the delay off waits for the timer, which runs on.
TEST_F(delay_list, switching_off_what_is_off_releases_nothing) {
    set_interval(3);
    g_inside = [](uint32_t number) {
        if (number == 1) {
            delay(2);
            set_interval(0);
        }
        return 0;
    };
    delay(1);
    Loop::get().run("msg-delay-timer");
    ASSERT_EQ(g_bri_msg_delay_num, 1U);
    set_interval(0);
    EXPECT_EQ(g_seen, numbers(1, 1));
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, numbers(1, 2));
}

TEST_F(delay_list, a_negative_interval_is_stored_logged_and_means_off) {
    set_interval(3);
    delay(1);
    g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
    clear_log();
    set_interval(-2);
    EXPECT_TRUE(logged("Client(stp) msg-delay -2 second.\n"));
    EXPECT_EQ(value_at<int32_t>(g_bri_clnt_dbg, BRI_DBG_DELAY), -2);
    EXPECT_EQ(g_seen, numbers(1, 1));
    EXPECT_EQ(delay(2), 0);
    EXPECT_EQ(Loop::get().count("msg-delay-timer"), 1); // the first one; none for the negative interval
}

TEST_F(delay_list, the_change_is_logged_under_its_flag) {
    set_interval(3);
    EXPECT_TRUE(log_lines().empty());
    g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
    set_interval(4);
    const LogLine line = log_line("Client(stp) msg-delay 4 second.\n");
    EXPECT_EQ(line.category(), kClientLine);
}

TEST_F(delay_list, a_handler_that_delays_another_message_leaves_it_for_the_next_release) {
    set_interval(3);
    g_inside = [](uint32_t number) { return number < 100 ? delay(number + 100) : 0; };
    for (uint32_t number = 1; number <= 3; ++number)
        delay(number);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, numbers(1, 3));
    EXPECT_EQ(g_bri_msg_delay_num, 3U);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, (std::vector<uint32_t>{1, 2, 3, 101, 102, 103}));
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
}

TEST_F(delay_list, a_handler_that_switches_the_delay_neither_loses_nor_repeats_a_message) {
    set_interval(3);
    g_inside = [](uint32_t number) {
        set_interval(number % 2 == 0 ? 0 : 4);
        return 0;
    };
    for (uint32_t number = 1; number <= 6; ++number)
        delay(number);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, numbers(1, 6));
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
}

TEST_F(delay_list, overflow_inside_a_release_does_not_enter_it_again) {
    set_interval(3);
    g_inside = [](uint32_t number) {
        if (number == 1)
            for (uint32_t more = 1000; more < 1300; ++more)
                delay(more);
        return 0;
    };
    delay(1);
    delay(2);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, numbers(1, 2));
    EXPECT_EQ(g_bri_msg_delay_num, 300U);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen.size(), 302U);
    EXPECT_EQ(g_seen.back(), 1299U);
}

TEST_F(delay_list, the_message_behind_such_an_overflow_releases_all_of_them) {
    set_interval(3);
    g_inside = [](uint32_t number) {
        if (number == 1)
            for (uint32_t more = 1000; more < 1300; ++more)
                delay(more);
        return 0;
    };
    delay(1);
    Loop::get().run("msg-delay-timer");
    ASSERT_EQ(g_bri_msg_delay_num, 300U);
    EXPECT_EQ(delay(2), 1);
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
    EXPECT_EQ(g_seen.size(), 302U);
    EXPECT_EQ(g_seen.back(), 2U);
}

TEST_F(delay_list, initialising_debugging_frees_what_waits) {
    set_interval(3);
    delay(1);
    bri_clnt_debug_init(&client);
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
    EXPECT_EQ(g_bri_msg_delay_list.next, &g_bri_msg_delay_list);
    Loop::get().run("msg-delay-timer");
    EXPECT_TRUE(g_seen.empty());
}

TEST_F(delay_list, a_handler_may_initialise_debugging_in_the_middle_of_a_release) {
    set_interval(3);
    g_inside = [](uint32_t) {
        bri_clnt_debug_init(g_bridge_client);
        return 0;
    };
    delay(1);
    delay(2);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, numbers(1, 1));
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
}

// The message that the new debugging holds back is not one of those that waited when the release began.
TEST_F(delay_list, a_message_held_back_after_such_an_initialisation_waits_for_the_next_release) {
    set_interval(3);
    g_inside = [](uint32_t number) {
        if (number == 1) {
            bri_clnt_debug_init(g_bridge_client);
            set_interval(3);
            delay(5);
        }
        return 0;
    };
    for (uint32_t number = 1; number <= 3; ++number)
        delay(number);
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_seen, numbers(1, 1));
    EXPECT_EQ(g_bri_msg_delay_num, 1U);
    set_interval(0);
    EXPECT_EQ(g_seen, (std::vector<uint32_t>{1, 5}));
}

TEST_F(delay_list, the_timer_ends_when_a_start_that_failed_has_taken_its_record_away) {
    set_interval(3);
    g_bridge_client = nullptr;
    faults::fail("socket", 1, EMFILE);
    ASSERT_EQ(bridge_agent_init("stp", Loop::get().master()), -1);
    EXPECT_EQ(Loop::get().run("msg-delay-timer"), 0);
    EXPECT_EQ(Loop::get().count("msg-delay-timer"), 0);
    g_bridge_client = &client;
}

TEST_F(delay_list, a_released_message_passes_the_checks_of_an_arriving_one) {
    set_interval(3);
    EXPECT_EQ(delay(1, BRIDGE_EVEVT_SERVER_STAT, 0), 1); // without the role byte
    bri::client::g_state.slave = 7;
    set_interval(0);
    EXPECT_EQ(bri::client::g_state.slave, 7);
}

TEST_F(delay_list, null_and_impossible_lengths_are_left_to_the_caller) {
    set_interval(3);
    EXPECT_EQ(bri_clnt_msg_delay_process(nullptr), 0);
    EXPECT_EQ(delay(1, kType, 0xFFFFFFFC), 0);
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
}

int g_taken;

int delay_one_more(uint32_t) {
    g_taken = delay(99);
    return 0;
}

// What the release causes is not held back any more: nothing would deliver it.
TEST_F(delay_list, is_off_before_switching_it_off_releases) {
    set_interval(5);
    ASSERT_EQ(delay(1), 1);
    g_inside = delay_one_more;
    set_interval(0);
    EXPECT_EQ(g_seen, numbers(1, 1));
    EXPECT_EQ(g_taken, 0);
    EXPECT_EQ(g_bri_msg_delay_num, 0U);
}

int g_timers_inside;

int change_the_interval(uint32_t) {
    g_timers_inside = Loop::get().count("msg-delay-timer");
    const int32_t seconds = 9; // the word alone: the message would add a timer of its own
    std::memcpy(&g_bri_clnt_dbg[BRI_DBG_DELAY], &seconds, sizeof seconds);
    return 0;
}

TEST_F(delay_list, adds_its_timer_behind_the_release_with_the_interval_of_that_moment) {
    set_interval(5);
    ASSERT_EQ(delay(1), 1);
    g_inside = change_the_interval;
    g_timers_inside = -1;
    Loop::get().run("msg-delay-timer");
    EXPECT_EQ(g_timers_inside, 0);
    ASSERT_EQ(Loop::get().count("msg-delay-timer"), 1);
    EXPECT_EQ(Loop::get().find("msg-delay-timer")->usec, 9000000);
}

} // namespace
