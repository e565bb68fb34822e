#include <gtest/gtest.h>
#include <qv_thread.h>

#include <chrono>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

using Clock = std::chrono::steady_clock;

// What the jobs of a test do: note their names, and what a test adds.
struct Note {
    std::string *order;
    const char *text;
};

struct LoopTest : testing::Test {
    LoopTest() { current = this; }
    ~LoopTest() override { qv_thread_master_destroy(loop); }
    LoopTest(const LoopTest &) = delete;
    LoopTest &operator=(const LoopTest &) = delete;

    static int note(void *arg) {
        const Note &job = *static_cast<Note *>(arg);
        *job.order += job.text;
        return -1; // the loop does not look at it
    }
    static int stop(void *) {
        qv_thread_master_stop(current->loop);
        return 0;
    }
    // Runs the loop until all event jobs added so far have run.
    void run_events() {
        ASSERT_NE(qv_thread_add_event_withname(loop, stop, nullptr, "stop"), nullptr);
        ASSERT_EQ(qv_thread_master_run(loop), 0);
    }
    void run_for_ms(long milliseconds) {
        const timeval after{0, milliseconds * 1000};
        ASSERT_NE(qv_thread_add_timer_timeval_withname(loop, stop, nullptr, &after, "stop"), nullptr);
        ASSERT_EQ(qv_thread_master_run(loop), 0);
    }

    static inline LoopTest *current;
    qv_thread_func again = nullptr; // a job that adds itself
    qv_thread_master *loop = qv_thread_master_create();
    std::string order;
    Note a{&order, "a"}, b{&order, "b"}, c{&order, "c"};
};

struct Pipe {
    Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0); }
    ~Pipe() {
        close(ends[0]);
        close(ends[1]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    void put() const { EXPECT_EQ(write(ends[1], "x", 1), 1); }
    int ends[2];
};

TEST_F(LoopTest, event_jobs_run_once_in_the_order_of_adding) {
    for (Note *job : {&a, &b, &c, &a})
        ASSERT_NE(qv_thread_add_event_withname(loop, note, job, "note"), nullptr);
    run_events();
    EXPECT_EQ(order, "abca");
    run_events();
    EXPECT_EQ(order, "abca");
}

TEST_F(LoopTest, nothing_runs_before_the_loop_does) {
    qv_thread_add_event_withname(loop, note, &a, "note");
    EXPECT_EQ(order, "");
}

TEST_F(LoopTest, job_is_gone_before_its_function_runs) {
    // Cancels its own function and argument, which must not find the job that runs, and adds itself again, which must
    // not be mistaken for it.
    static int runs;
    static qv_thread_func self;
    runs = 0;
    self = [](void *arg) {
        qv_thread_cancel_by_arg_func(current->loop, arg, self);
        if (++runs < 3)
            qv_thread_add_event_withname(current->loop, self, arg, "again");
        return 0;
    };
    qv_thread_add_event_withname(loop, self, &a, "again");
    for (int round = 0; round < 4; ++round)
        run_events();
    EXPECT_EQ(runs, 3);
}

TEST_F(LoopTest, event_job_that_adds_itself_does_not_starve_the_others) {
    static qv_thread_func forever;
    forever = [](void *arg) {
        qv_thread_add_event_withname(current->loop, forever, arg, "forever");
        return 0;
    };
    const Pipe pipe;
    pipe.put();
    qv_thread_add_event_withname(loop, forever, nullptr, "forever");
    qv_thread_add_read_withname(loop, note, &a, pipe.ends[0], "read");
    run_for_ms(20);
    EXPECT_EQ(order, "a");
}

TEST_F(LoopTest, event_job_runs_before_a_timer_that_comes_due_behind_it) {
    for (int i = 0; i < 100; ++i)
        ASSERT_NE(qv_thread_add_event_withname(loop, note, &a, "event"), nullptr);
    const timeval soon{0, 1};
    ASSERT_NE(qv_thread_add_timer_timeval_withname(loop, note, &b, &soon, "timer"), nullptr);
    for (int i = 0; i < 100; ++i)
        ASSERT_NE(qv_thread_add_event_withname(loop, note, &c, "event"), nullptr);
    usleep(2000); // all are due now
    run_for_ms(20);
    EXPECT_EQ(order, std::string(100, 'a') + std::string(100, 'c') + "b");
}

TEST_F(LoopTest, read_job_waits_for_the_descriptor_and_runs_once) {
    const Pipe pipe;
    ASSERT_NE(qv_thread_add_read_withname(loop, note, &a, pipe.ends[0], "read"), nullptr);
    run_for_ms(10);
    EXPECT_EQ(order, "");
    pipe.put();
    run_for_ms(10);
    EXPECT_EQ(order, "a");
    run_for_ms(10); // still readable, but the job is gone
    EXPECT_EQ(order, "a");
}

TEST_F(LoopTest, read_job_runs_when_the_peer_has_closed) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    ASSERT_NE(qv_thread_add_read_withname(loop, note, &a, ends[0], "read"), nullptr);
    close(ends[1]);
    run_for_ms(10);
    EXPECT_EQ(order, "a");
    close(ends[0]);
}

TEST_F(LoopTest, two_read_jobs_on_one_descriptor_both_run) {
    const Pipe pipe;
    pipe.put();
    qv_thread_add_read_withname(loop, note, &a, pipe.ends[0], "first");
    qv_thread_add_read_withname(loop, note, &b, pipe.ends[0], "second");
    run_for_ms(10);
    EXPECT_EQ(order.size(), 2U);
}

TEST_F(LoopTest, read_job_that_closes_its_descriptor_waits_for_the_next_one_of_that_number) {
    static Pipe first;
    static Pipe second;
    static int runs;
    first.put();
    const auto replace = [](void *) {
        if (++runs == 2)
            return stop(nullptr);
        close(first.ends[0]);
        EXPECT_EQ(fcntl(second.ends[0], F_DUPFD_CLOEXEC, first.ends[0]), first.ends[0]);
        EXPECT_NE(qv_thread_add_read_withname(current->loop, current->again, nullptr, first.ends[0], "again"), nullptr);
        second.put();
        return 0;
    };
    again = replace;
    ASSERT_NE(qv_thread_add_read_withname(loop, replace, nullptr, first.ends[0], "first"), nullptr);
    ASSERT_EQ(qv_thread_master_run(loop), 0);
    EXPECT_EQ(runs, 2);
}

TEST_F(LoopTest, read_job_that_waits_again_is_cancelled_and_waits_anew_before_it_ends) {
    static Pipe *readable;
    Pipe bytes;
    readable = &bytes;
    static qv_thread_func self;
    self = [](void *arg) {
        note(arg);
        const auto wait = [](qv_thread_func func, Note *job) {
            return qv_thread_add_read_withname(current->loop, func, job, readable->ends[0], "wait");
        };
        EXPECT_NE(wait(self, &current->a), nullptr);
        qv_thread_cancel_by_arg_func(current->loop, arg, self);
        EXPECT_NE(wait(note, &current->b), nullptr);
        EXPECT_NE(wait(note, &current->c), nullptr);
        return 0;
    };
    ASSERT_NE(qv_thread_add_read_withname(loop, self, &a, bytes.ends[0], "wait"), nullptr);
    bytes.put();
    run_for_ms(20);
    EXPECT_EQ(order.size(), 3U); // the byte stays: those who wait run once each, in either order
    EXPECT_TRUE(order == "abc" || order == "acb") << order;
}

TEST_F(LoopTest, read_job_that_does_not_wait_again_is_not_run_again) {
    Pipe bytes;
    ASSERT_NE(qv_thread_add_read_withname(loop, note, &a, bytes.ends[0], "wait"), nullptr);
    bytes.put();
    run_for_ms(20);
    EXPECT_EQ(order, "a");
}

TEST_F(LoopTest, second_timer_fires_after_its_seconds_and_not_before) {
    const auto start = Clock::now();
    qv_thread_add_timer_withname(loop, stop, nullptr, 1, "stop");
    ASSERT_EQ(qv_thread_master_run(loop), 0);
    const auto took = Clock::now() - start;
    EXPECT_GE(took, std::chrono::seconds(1));
    EXPECT_LT(took, std::chrono::seconds(5));
}

TEST_F(LoopTest, timeval_timers_fire_in_the_order_of_their_times) {
    const timeval later{0, 30000};
    const timeval sooner{0, 5000};
    const auto start = Clock::now();
    qv_thread_add_timer_timeval_withname(loop, note, &a, &later, "later");
    qv_thread_add_timer_timeval_withname(loop, note, &b, &sooner, "sooner");
    qv_thread_add_timer_withname(loop, note, &c, 0, "now");
    run_for_ms(60);
    EXPECT_EQ(order, "cba");
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(60));
}

TEST_F(LoopTest, timer_is_measured_from_its_adding_even_behind_a_slow_job) {
    static Clock::time_point added;
    qv_thread_add_event_withname(
        loop,
        [](void *) {
            usleep(30000);
            added = Clock::now();
            const timeval after{0, 20000};
            qv_thread_add_timer_timeval_withname(current->loop, stop, nullptr, &after, "stop");
            return 0;
        },
        nullptr, "slow");
    ASSERT_EQ(qv_thread_master_run(loop), 0);
    EXPECT_GE(Clock::now() - added, std::chrono::milliseconds(20));
}

TEST_F(LoopTest, cancel_takes_every_job_of_the_function_and_argument_and_no_other) {
    const Pipe pipe;
    pipe.put();
    const timeval soon{0, 1000};
    qv_thread_add_event_withname(loop, note, &a, "event");
    qv_thread_add_event_withname(loop, note, &a, "event");
    qv_thread_add_timer_withname(loop, note, &a, 0, "timer");
    qv_thread_add_timer_timeval_withname(loop, note, &a, &soon, "timeval");
    qv_thread_add_read_withname(loop, note, &a, pipe.ends[0], "read");
    qv_thread_add_event_withname(loop, note, &b, "other argument");
    static bool other_function;
    other_function = false;
    qv_thread_add_event_withname(
        loop, [](void *) { return other_function = true, 0; }, &a, "other function");
    qv_thread_cancel_by_arg_func(loop, &a, note);
    run_for_ms(20);
    EXPECT_EQ(order, "b");
    EXPECT_TRUE(other_function);
}

TEST_F(LoopTest, job_cancelled_after_it_was_activated_never_runs) {
    // Both pipes are readable in the same round: whichever runs first cancels the other, already activated one.
    static int runs;
    static Note *jobs[2];
    runs = 0;
    jobs[0] = &a;
    jobs[1] = &b;
    static qv_thread_func cancel_other;
    cancel_other = [](void *arg) {
        ++runs;
        qv_thread_cancel_by_arg_func(current->loop, arg == jobs[0] ? jobs[1] : jobs[0], cancel_other);
        return 0;
    };
    const Pipe first;
    const Pipe second;
    first.put();
    second.put();
    qv_thread_add_read_withname(loop, cancel_other, &a, first.ends[0], "first");
    qv_thread_add_read_withname(loop, cancel_other, &b, second.ends[0], "second");
    run_for_ms(20);
    EXPECT_EQ(runs, 1);
}

TEST_F(LoopTest, due_event_cancelled_by_an_earlier_one_never_runs) {
    qv_thread_add_event_withname(
        loop,
        [](void *arg) {
            qv_thread_cancel_by_arg_func(current->loop, arg, note);
            return 0;
        },
        &a, "cancel");
    qv_thread_add_event_withname(loop, note, &a, "cancelled");
    qv_thread_add_event_withname(loop, note, &b, "kept");
    run_events();
    EXPECT_EQ(order, "b");
}

TEST_F(LoopTest, adds_with_bad_input_are_refused) {
    const timeval good{0, 1};
    const timeval negative{-1, 0};
    const timeval negative_part{0, -1};
    const timeval too_many{0, 1000000};
    EXPECT_EQ(qv_thread_add_event_withname(nullptr, note, &a, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_event_withname(loop, nullptr, &a, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_read_withname(nullptr, note, &a, 0, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_read_withname(loop, nullptr, &a, 0, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_read_withname(loop, note, &a, -1, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_timer_withname(nullptr, note, &a, 0, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_timer_withname(loop, nullptr, &a, 0, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_timer_withname(loop, note, &a, -1, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_timer_timeval_withname(nullptr, note, &a, &good, "x"), nullptr);
    EXPECT_EQ(qv_thread_add_timer_timeval_withname(loop, nullptr, &a, &good, "x"), nullptr);
    for (const timeval *after : {static_cast<const timeval *>(nullptr), &negative, &negative_part, &too_many})
        EXPECT_EQ(qv_thread_add_timer_timeval_withname(loop, note, &a, after, "x"), nullptr);
    run_for_ms(5);
    EXPECT_EQ(order, "");
}

TEST_F(LoopTest, descriptor_that_is_not_open_or_cannot_be_waited_for_is_refused) {
    const int file = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(file, 0);
    EXPECT_EQ(qv_thread_add_read_withname(loop, note, &a, file, "file"), nullptr);
    close(file);
    EXPECT_EQ(qv_thread_add_read_withname(loop, note, &a, file, "closed"), nullptr);
    run_for_ms(5);
    EXPECT_EQ(order, "");
}

TEST_F(LoopTest, longest_timer_and_missing_name_are_accepted) {
    EXPECT_NE(qv_thread_add_timer_withname(loop, note, &a, __LONG_MAX__, "long"), nullptr);
    EXPECT_NE(qv_thread_add_event_withname(loop, note, &b, nullptr), nullptr);
    run_for_ms(5);
    EXPECT_EQ(order, "b");
}

TEST_F(LoopTest, calls_without_a_loop_do_nothing) {
    qv_thread_cancel_by_arg_func(nullptr, nullptr, note);
    qv_thread_master_stop(nullptr);
    qv_thread_master_destroy(nullptr);
    EXPECT_EQ(qv_thread_master_run(nullptr), -1);
}

TEST_F(LoopTest, stop_leaves_later_jobs_for_the_next_run) {
    qv_thread_add_event_withname(loop, stop, nullptr, "stop");
    qv_thread_add_event_withname(loop, note, &a, "later");
    ASSERT_EQ(qv_thread_master_run(loop), 0);
    EXPECT_EQ(order, "");
    run_events();
    EXPECT_EQ(order, "a");
}

TEST_F(LoopTest, stop_before_a_run_ends_that_run_at_once_and_only_that) {
    qv_thread_add_event_withname(loop, note, &a, "note");
    qv_thread_master_stop(loop);
    ASSERT_EQ(qv_thread_master_run(loop), 0);
    EXPECT_EQ(order, "");
    run_events();
    EXPECT_EQ(order, "a");
}

TEST_F(LoopTest, run_and_destroy_from_a_job_are_refused) {
    static int inner;
    inner = 0;
    qv_thread_add_event_withname(
        loop,
        [](void *) {
            inner = qv_thread_master_run(current->loop);
            qv_thread_master_destroy(current->loop);
            return 0;
        },
        nullptr, "inner");
    qv_thread_add_event_withname(loop, note, &a, "note");
    run_events();
    EXPECT_EQ(inner, -1);
    EXPECT_EQ(order, "a");
}

TEST_F(LoopTest, destroy_releases_pending_jobs_without_running_them) {
    qv_thread_master *other = qv_thread_master_create();
    const Pipe pipe;
    qv_thread_add_event_withname(other, note, &a, "event");
    qv_thread_add_read_withname(other, note, &a, pipe.ends[0], "read");
    qv_thread_add_timer_withname(other, note, &a, 100, "timer");
    qv_thread_master_destroy(other); // the leak check of the sanitizer build sees what is left
    run_for_ms(5);
    EXPECT_EQ(order, "");
}

TEST_F(LoopTest, many_jobs_are_added_cancelled_and_run) {
    static int runs;
    runs = 0;
    static const qv_thread_func count = [](void *) { return ++runs; };
    for (int round = 0; round < 1000; ++round) {
        qv_thread_add_event_withname(loop, count, round % 2 == 0 ? &a : &b, "count");
        qv_thread_add_timer_withname(loop, count, round % 2 == 0 ? &a : &b, 60, "count");
    }
    qv_thread_cancel_by_arg_func(loop, &a, count);
    run_events();
    EXPECT_EQ(runs, 500);
    qv_thread_cancel_by_arg_func(loop, &b, count);
}

// The trace is read from a copy of standard error.
struct TraceTest : testing::Test {
    // What `body` writes to standard error.
    template <class Body> static std::string stderr_of(Body &&body) {
        const Pipe pipe;
        const int kept = dup(2);
        dup2(pipe.ends[1], 2);
        body();
        dup2(kept, 2);
        close(kept);
        char text[4096];
        const ssize_t length = read(pipe.ends[0], text, sizeof text);
        return length > 0 ? std::string(text, static_cast<size_t>(length)) : std::string();
    }
    static void story() {
        static qv_thread_master *loop;
        loop = qv_thread_master_create();
        const qv_thread_func stop = [](void *) { return qv_thread_master_stop(loop), 0; };
        qv_thread_add_read_withname(loop, stop, nullptr, 0x7fff, "bri-bad");
        qv_thread_add_timer_withname(loop, stop, loop, 9, "a-name-that-is-longer-than-31-characters");
        qv_thread_cancel_by_arg_func(loop, loop, stop);
        qv_thread_add_event_withname(loop, stop, nullptr, "bri-stop");
        qv_thread_master_run(loop);
        qv_thread_master_destroy(loop);
    }
};

TEST_F(TraceTest, environment_switches_the_trace_on) {
    setenv("QV_THREAD_TRACE", "1", 1);
    const std::string text = stderr_of(story);
    EXPECT_NE(text.find("qv-thread: refused read bri-bad\n"), std::string::npos) << text;
    EXPECT_NE(text.find("qv-thread: add timer a-name-that-is-longer-than-31-c\n"
                        "qv-thread: cancel a-name-that-is-longer-than-31-c\n"
                        "qv-thread: add event bri-stop\n"
                        "qv-thread: run bri-stop\n"),
              std::string::npos)
        << text;
}

TEST_F(TraceTest, trace_is_off_without_it) {
    unsetenv("QV_THREAD_TRACE");
    EXPECT_EQ(stderr_of(story).find("qv-thread:"), std::string::npos);
    setenv("QV_THREAD_TRACE", "0", 1);
    EXPECT_EQ(stderr_of(story).find("qv-thread:"), std::string::npos);
}

// Milliseconds until a timer of 2 seconds has run.
long two_seconds(const char *scale) {
    setenv("QV_THREAD_TIME_SCALE", scale, 1);
    qv_thread_master *loop = qv_thread_master_create();
    unsetenv("QV_THREAD_TIME_SCALE");
    const auto stop = [](void *master) {
        qv_thread_master_stop(static_cast<qv_thread_master *>(master));
        return 0;
    };
    const auto begin = Clock::now();
    qv_thread_add_timer_withname(loop, stop, loop, 2, "two-seconds");
    qv_thread_master_run(loop);
    qv_thread_master_destroy(loop);
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
}

TEST(TimeScale, makes_timers_that_many_times_as_fast) {
    const long fast = two_seconds("40");
    EXPECT_GE(fast, 50);
    EXPECT_LT(fast, 1900); // on a machine with other things to do
}

TEST(TimeScale, that_is_no_number_from_1_to_1000_is_not_obeyed) {
    EXPECT_GE(two_seconds("0.5"), 2000);
    EXPECT_LT(two_seconds("-1"), 3900);
    EXPECT_GE(two_seconds("fast"), 2000);
}

} // namespace
