// Port exclusion flags.
#include "base/vsd.h"
#include "tests/support/children.h"
#include "tests/support/effects.h"
#include "tests/support/test.h"

#include <bridge/ipc.h>
#include <bridge/port_exclusion.h>

#include <cstdarg>
#include <sys/sem.h>
#include <sys/shm.h>

namespace {

using test::faults::calls;
using test::faults::fail;

constexpr uint32_t kWords = 8193;

[[gnu::format(printf, 1, 2)]] std::string text_of(const char *format, ...) {
    char text[512];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    return text;
}

class PortExclusion : public test::Env {
  protected:
    ~PortExclusion() override {
        test::faults::clear();
        if (segment_ != nullptr)
            shmdt(segment_);
    }

    [[nodiscard]] int32_t key() const { return bri::ipc_key(0x33330001); }
    // The segment as another process sees it.
    uint8_t *segment(size_t size = 76 + 4 * kWords) {
        if (segment_ == nullptr)
            segment_ = static_cast<uint8_t *>(shmat(shmget(key(), size, IPC_CREAT | 0777), nullptr, 0));
        return segment_;
    }
    uint32_t word(uint32_t ifx) { return test::value_at<uint32_t>(segment(), 76 + 4 * size_t{ifx}); }
    void put_word(uint32_t ifx, uint32_t flags) { test::put_at<uint32_t>(segment(), 76 + 4 * size_t{ifx}, flags); }
    [[nodiscard]] int lock_value() const { return semctl(semget(key(), 0, 0), 0, GETVAL); }

    static void listen() {
        test::debug_on({BRI_DBG_VLAN});
        test::clear_log();
    }
    // The last line, which each call writes about itself.
    static void expect_last_line(const std::string &text) {
        ASSERT_FALSE(test::log_lines().empty());
        const test::LogLine &line = test::log_lines().back();
        EXPECT_EQ(line.text, text);
        EXPECT_EQ(line.category(), test::kShmLine);
    }
    static std::string status(uint32_t ifx) {
        char text[200] = "";
        return bridge_coxmng_get_status(ifx, text, sizeof text) == 1 ? text : "none";
    }

    uint32_t conflict_ = 77;

  private:
    uint8_t *segment_ = nullptr;
};

TEST_F(PortExclusion, the_first_call_makes_the_table_and_its_lock) {
    EXPECT_EQ(bridge_set_excflag(1, BRI_SECURE, 0, &conflict_), 0);
    shmid_ds status{};
    ASSERT_EQ(shmctl(shmget(key(), 0, 0), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 76U + 32772U);
    EXPECT_STREQ(reinterpret_cast<char *>(segment()) + 8, "Port-Function-Mutex");
    EXPECT_EQ(test::value_at<int32_t>(segment(), 0), key());
    EXPECT_EQ(test::value_at<uint32_t>(segment(), 72), 32772U);
    EXPECT_EQ(lock_value(), 1);
}

TEST_F(PortExclusion, the_table_is_set_up_once) {
    bridge_unset_excflag(1, 1);
    test::faults::clear();
    bridge_set_excflag(1, 1, 0, &conflict_);
    bridge_unset_excflag(1, 1);
    status(1);
    EXPECT_EQ(calls("semget") + calls("shmget"), 0);
}

TEST_F(PortExclusion, an_id_is_set_and_cleared_in_the_word_of_its_interface) {
    for (const uint32_t ifx : {0U, 1U, 63U, 64U, 4096U, 8192U}) {
        EXPECT_EQ(bridge_set_excflag(ifx, 0x80000002, 0, &conflict_), 0);
        EXPECT_EQ(conflict_, 0U);
        EXPECT_EQ(word(ifx), 0x80000002U);
        EXPECT_EQ(bridge_unset_excflag(ifx, 2), 0);
        EXPECT_EQ(word(ifx), 0x80000000U);
        put_word(ifx, 0);
    }
    for (uint32_t ifx = 0; ifx < kWords; ++ifx)
        ASSERT_EQ(word(ifx), 0U);
}

TEST_F(PortExclusion, setting_and_clearing_say_so) {
    listen();
    bridge_set_excflag(7, BRI_MAC_COPY | BRI_DOT1X, 0, &conflict_);
    expect_last_line(
        text_of("[pid %d] bridge_set_excflag: ifx 7, id 10(BRI_MAC_COPY BRI_DOT1X ) success.\n", getpid()));
    bridge_unset_excflag(7, BRI_MAC_COPY);
    expect_last_line(text_of("[pid %d] bridge_unset_excflag: ifx 7, id 2(BRI_MAC_COPY ) success.\n", getpid()));
}

TEST_F(PortExclusion, numbers_are_printed_signed) {
    listen();
    bridge_set_excflag(8192, 0x80000000, 0, &conflict_);
    expect_last_line(text_of("[pid %d] bridge_set_excflag: ifx 8192, id -2147483648() success.\n", getpid()));
}

TEST_F(PortExclusion, a_barred_flag_refuses_and_leaves_the_word) {
    bridge_set_excflag(5, 1, 0, &conflict_);
    EXPECT_EQ(bridge_set_excflag(5, 2, 1, &conflict_), -1);
    EXPECT_EQ(conflict_, 1U);
    EXPECT_EQ(word(5), 1U);
    EXPECT_EQ(bridge_set_excflag(5, 2, 0, &conflict_), 0);
    EXPECT_EQ(conflict_, 0U);
    EXPECT_EQ(word(5), 3U);
}

// Whoever gets the lock next may rely on it.
TEST_F(PortExclusion, the_conflict_is_told_before_the_lock_is_given_back) {
    bridge_set_excflag(5, 1, 0, &conflict_);
    listen();
    fail("semop", 2, EIDRM); // giving back fails, which a line tells at that moment
    uint32_t told = 0;
    std::string first_line;
    test::on_effect = [&](const std::string &effect) {
        if (first_line.empty()) {
            first_line = effect;
            told = conflict_;
        }
    };
    EXPECT_EQ(bridge_set_excflag(5, 2, 1, &conflict_), -1);
    test::on_effect = nullptr;
    EXPECT_EQ(test::log_lines().size(), 2U);
    EXPECT_EQ(told, 1U) << first_line;
}

TEST_F(PortExclusion, only_the_barred_bits_that_are_set_conflict) {
    put_word(5, 0xF0000071);
    EXPECT_EQ(bridge_set_excflag(5, 2, 0x80000066, &conflict_), -1);
    EXPECT_EQ(conflict_, 0x80000060U);
    EXPECT_EQ(word(5), 0xF0000071U);
}

TEST_F(PortExclusion, a_refusal_shows_the_texts_of_both_sides) {
    put_word(5, BRI_SECURE | BRI_PROMISCUOUS | BRI_HOST);
    listen();
    bridge_set_excflag(5, BRI_DOT1Q_TUNNEL | BRI_MIR_DEST, BRI_SECURE | BRI_PROMISCUOUS, &conflict_);
    expect_last_line(text_of("[pid %d] bridge_set_excflag:ifx 5, id 17(BRI_DOT1Q_TUNNEL BRI_MIR_DEST ), "
                             "get exclu id [BRI_SECURE BRI_PROMISCUOUS ].\n",
                             getpid()));
}

TEST_F(PortExclusion, index_8193_and_above_is_refused) {
    listen();
    for (const uint32_t ifx : {8193U, 8194U, 0x80000000U, UINT32_MAX}) {
        EXPECT_EQ(bridge_set_excflag(ifx, 1, 0, &conflict_), -1);
        expect_last_line("bridge_set_excflag parameters error.\n");
        EXPECT_EQ(bridge_unset_excflag(ifx, 1), -1);
        expect_last_line("Incorrect interface index!\n");
    }
    EXPECT_EQ(test::log_lines().size(), 8U);
    EXPECT_EQ(conflict_, 77U);
    EXPECT_EQ(calls("semget") + calls("shmget"), 0); // refused before any set-up
}

TEST_F(PortExclusion, a_null_place_for_conflicts_is_refused) {
    listen();
    EXPECT_EQ(bridge_set_excflag(1, 1, 0, nullptr), -1);
    expect_last_line("bridge_set_excflag parameters error.\n");
    EXPECT_EQ(calls("semget"), 0);
}

TEST_F(PortExclusion, clearing_what_is_not_set_succeeds) {
    put_word(5, 4);
    EXPECT_EQ(bridge_unset_excflag(5, 3), 0);
    EXPECT_EQ(word(5), 4U);
}

TEST_F(PortExclusion, the_status_lists_the_texts_in_columns) {
    put_word(5, 5);
    EXPECT_EQ(status(5), "5    BRI_DOT1Q_TUNNEL BRI_SECURE         ");
    put_word(8192, 0x7F);
    EXPECT_EQ(status(8192), "8192 BRI_DOT1Q_TUNNEL BRI_MAC_COPY BRI_SECURE BRI_DOT1X BRI_MIR_DEST BRI_HOST "
                            "BRI_PROMISCUOUS ");
    put_word(6, 0x80);
    EXPECT_EQ(status(6), "6    " + std::string(36, ' ')); // flagged, though without a text
}

TEST_F(PortExclusion, every_combination_of_ids_has_its_texts) {
    const char *names[] = {"BRI_DOT1Q_TUNNEL", "BRI_MAC_COPY", "BRI_SECURE",     "BRI_DOT1X",
                           "BRI_MIR_DEST",     "BRI_HOST",     "BRI_PROMISCUOUS"};
    for (uint32_t flags = 1; flags < 128; ++flags) {
        std::string texts;
        for (unsigned id = 0; id < 7; ++id)
            texts += (flags >> id & 1) != 0 ? names[id] + std::string(" ") : "";
        put_word(9, flags | 0xFFFFFF80U);
        ASSERT_EQ(status(9), text_of("9    %-36s", texts.c_str()));
    }
}

TEST_F(PortExclusion, the_status_of_an_unflagged_interface_is_0) {
    char text[8] = "before";
    EXPECT_EQ(bridge_coxmng_get_status(5, text, sizeof text), 0);
    EXPECT_STREQ(text, "before");
}

TEST_F(PortExclusion, the_status_beyond_the_table_is_0) {
    segment(76 + 4 * kWords + 4096); // a larger segment with set bits behind the table
    std::memset(segment() + 76, 0xFF, 4 * kWords + 4096);
    char text[8] = "before";
    for (const uint32_t ifx : {8193U, 9000U, 0x3FFFFFFFU, 0x40000000U, UINT32_MAX})
        EXPECT_EQ(bridge_coxmng_get_status(ifx, text, sizeof text), 0) << ifx;
    EXPECT_STREQ(text, "before");
    EXPECT_EQ(bridge_coxmng_get_status(8192, text, sizeof text), 1);
}

TEST_F(PortExclusion, the_status_text_stays_within_its_buffer) {
    put_word(5, 1);
    for (uint32_t size = 0; size < 50; ++size) {
        char text[60];
        std::memset(text, 'z', sizeof text);
        ASSERT_EQ(bridge_coxmng_get_status(5, text, size), 1);
        const std::string whole = text_of("%-4d %-36s", 5, "BRI_DOT1Q_TUNNEL ");
        if (size != 0) {
            ASSERT_EQ(std::string(text), whole.substr(0, size - 1));
        }
        for (size_t at = size; at < sizeof text; ++at)
            ASSERT_EQ(text[at], 'z');
    }
}

TEST_F(PortExclusion, a_status_without_a_buffer_writes_nothing) {
    put_word(5, 1);
    EXPECT_EQ(bridge_coxmng_get_status(5, nullptr, 100), 1);
    EXPECT_EQ(bridge_coxmng_get_status(5, nullptr, 0), 1);
    EXPECT_EQ(bridge_coxmng_get_status(6, nullptr, 0), 0);
}

TEST_F(PortExclusion, a_failed_set_up_fails_each_call_and_is_tried_again) {
    listen();
    const std::string no_lock = "bridge_init_funcmem fail to create lock for function mutex.\n";
    const std::string no_segment = "bridge_init_funcmem fail to create shared memory.";
    struct Row {
        const char *call;
        const std::string &line;
    };
    for (const Row &row : {Row{"calloc", no_lock}, Row{"semget", no_lock}, Row{"shmget", no_segment},
                           Row{"shmat", no_segment}, Row{"malloc", no_segment}}) {
        test::clear_log();
        fail(row.call, 1, ENOMEM);
        EXPECT_EQ(bridge_set_excflag(5, 1, 0, &conflict_), -1);
        expect_last_line("bridge_set_excflag init share memory fail.\n");
        fail(row.call, 1, ENOMEM);
        EXPECT_EQ(bridge_unset_excflag(5, 1), -1);
        expect_last_line("bridge_unset_excflag share memory not init.\n");
        fail(row.call, 1, ENOMEM);
        EXPECT_EQ(bridge_coxmng_get_status(5, nullptr, 0), 0);
        expect_last_line("bridge_coxmng_get_status share memory init failed.\n");
        EXPECT_EQ(test::times_logged(row.line), 3) << row.call;
        EXPECT_EQ(test::times_logged(no_lock) + test::times_logged(no_segment), 3) << row.call;
        const test::LogLine line = test::log_line(row.line);
        EXPECT_EQ(line.category(), test::kShmLine);
        EXPECT_EQ(conflict_, 77U);
    }
    EXPECT_EQ(bridge_set_excflag(5, 1, 0, &conflict_), 0);
}

TEST_F(PortExclusion, a_failed_set_up_keeps_no_memory) {
    fail("shmget", 1, ENOMEM, 3);
    const int before = test::faults::live_blocks();
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(bridge_unset_excflag(5, 1), -1);
        EXPECT_EQ(test::faults::live_blocks(), before);
    }
    EXPECT_EQ(test::faults::injected(), 3);
}

TEST_F(PortExclusion, a_key_of_zero_is_refused) {
    listen();
    setenv("VSDID", std::to_string(-0x33330001).c_str(), 1);
    EXPECT_EQ(bridge_set_excflag(5, 1, 0, &conflict_), -1);
    EXPECT_EQ(test::log_text(), "Get ipc-key failed.\nbridge_set_excflag init share memory fail.\n");
    EXPECT_EQ(calls("semget") + calls("shmget"), 0);
}

TEST_F(PortExclusion, a_segment_that_is_too_small_is_refused) {
    segment(1000);
    EXPECT_EQ(bridge_set_excflag(5, 1, 0, &conflict_), -1);
}

TEST_F(PortExclusion, setting_and_clearing_take_the_lock_and_the_status_does_not) {
    status(5);
    test::faults::clear();
    bridge_set_excflag(5, 1, 0, &conflict_);
    EXPECT_EQ(calls("semop"), 2);
    bridge_set_excflag(5, 2, 1, &conflict_); // refused
    EXPECT_EQ(calls("semop"), 4);
    bridge_unset_excflag(5, 1);
    EXPECT_EQ(calls("semop"), 6);
    status(5);
    EXPECT_EQ(calls("semop"), 6);
    EXPECT_EQ(lock_value(), 1);
}

TEST_F(PortExclusion, nothing_is_logged_while_the_flag_is_off) {
    fail("semget", 1, ENOSPC, 3);
    bridge_set_excflag(5, 1, 0, &conflict_);
    bridge_unset_excflag(5, 1);
    status(5);
    bridge_set_excflag(5, 1, 0, &conflict_);
    bridge_set_excflag(5, 1, 1, &conflict_);
    bridge_set_excflag(9000, 1, 1, &conflict_);
    bridge_unset_excflag(9000, 1);
    bridge_unset_excflag(5, 1);
    EXPECT_EQ(test::faults::injected(), 3);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(PortExclusion, setting_waits_for_the_lock) {
    status(5);
    bri_sem_lock *lock = bridge_lock_get(key());
    bridge_rd_lock(lock);
    const pid_t child = test::start_child([&] { return bridge_set_excflag(5, 1, 0, &conflict_) == 0 ? 0 : 1; });
    while (semctl(lock->semid, 0, GETNCNT) != 1)
        usleep(100);
    EXPECT_EQ(word(5), 0U);
    bridge_unlock(lock);
    EXPECT_EQ(test::wait_for(child), 0);
    EXPECT_EQ(word(5), 1U);
    std::free(lock);
}

TEST_F(PortExclusion, a_holder_that_is_killed_blocks_neither_setting_nor_clearing) {
    for (int (*call)() : {+[] {
                              uint32_t conflict = 0;
                              return bridge_set_excflag(5, 1, 0, &conflict);
                          },
                          +[] { return bridge_unset_excflag(5, 1); }}) {
        status(5);
        const pid_t child = test::start_child([&] {
            bridge_wr_lock(bridge_lock_get(key()));
            pause();
            return 0;
        });
        while (lock_value() != 0)
            usleep(100);
        kill(child, SIGKILL);
        test::wait_for(child);
        alarm(10); // ends the test by a signal where the call blocks
        EXPECT_EQ(call(), 0);
    }
}

// Eight processes race for every interface, each with an id that bars the seven others. Each sets the table up by
// itself, which sets the lock free under the others' hands.
class PortExclusionRace : public PortExclusion {
  protected:
    static constexpr int kProcesses = 8;
    struct Wins {
        uint8_t of[kProcesses][kWords];
    };

    // Gives 0 when each call had one of its two results.
    static int race(uint32_t process, uint32_t interfaces, Wins &wins) {
        const uint32_t own = 1U << process;
        for (uint32_t ifx = 0; ifx < interfaces; ++ifx) {
            uint32_t conflict = 0;
            const int result = bridge_set_excflag(ifx, own, 0xFFU & ~own, &conflict);
            if (result != (conflict == 0 ? 0 : -1))
                return 1;
            wins.of[process][ifx] = result == 0 ? 1 : 0;
        }
        return 0;
    }
};

TEST_F(PortExclusionRace, on_every_interface_exactly_one_of_the_processes_wins) {
    test::SharedBlock<Wins> wins;
    const auto interfaces = static_cast<uint32_t>(test::scaled(kWords));
    ASSERT_TRUE(test::all_children(
        kProcesses, [&](int process) { return race(static_cast<uint32_t>(process), interfaces, *wins); }));
    for (uint32_t ifx = 0; ifx < interfaces; ++ifx) {
        uint32_t expected = 0;
        for (uint32_t process = 0; process < kProcesses; ++process)
            expected |= wins->of[process][ifx] != 0 ? 1U << process : 0U;
        ASSERT_EQ(__builtin_popcount(expected), 1) << ifx;
        ASSERT_EQ(word(ifx), expected) << ifx;
    }
}

// The lock can fail its taker, who then goes on: also without it the test and the setting are one step.
TEST_F(PortExclusionRace, without_the_lock_ids_that_bar_each_other_are_never_set_together) {
    struct Contest {
        uint32_t arrived;
        uint32_t holders;
    };
    test::SharedBlock<Contest> contest;
    EXPECT_TRUE(test::all_children(2, [&](int process) {
        const uint32_t own = 1U << process;
        status(5);
        fail("semop", 1, EINTR, 1 << 30);
        test::meet(contest->arrived, 2);
        for (int round = 0; round < test::scaled(300000); ++round) {
            uint32_t conflict = 0;
            if (bridge_set_excflag(5, own, 3, &conflict) != 0)
                continue;
            if (__atomic_fetch_add(&contest->holders, 1U, __ATOMIC_SEQ_CST) != 0)
                return 1;
            __atomic_fetch_sub(&contest->holders, 1U, __ATOMIC_SEQ_CST);
            bridge_unset_excflag(5, own);
        }
        return 0;
    }));
    EXPECT_EQ(word(5), 0U);
}

TEST_F(PortExclusion, ids_that_do_not_bar_each_other_are_never_lost) {
    EXPECT_TRUE(test::all_children(4, [&](int process) {
        const uint32_t own = 0x11U << process;
        uint32_t conflict = 0;
        for (int round = 0; round < test::scaled(500); ++round)
            if (bridge_set_excflag(5, own, own, &conflict) != 0 || bridge_unset_excflag(5, own) != 0)
                return 1;
        return bridge_set_excflag(5, own, own, &conflict) == 0 ? 0 : 1;
    }));
    EXPECT_EQ(word(5), 0xFFU);
}

TEST_F(PortExclusion, arbitrary_flags_are_read_within_bounds) {
    uint32_t state = 12345;
    for (uint32_t ifx = 0; ifx < kWords; ++ifx) {
        state = state * 1664525 + 1013904223;
        put_word(ifx, state);
    }
    for (uint32_t ifx = 0; ifx < kWords + 10; ++ifx) {
        char text[64];
        const uint32_t flags = ifx < kWords ? word(ifx) : 0;
        ASSERT_EQ(bridge_coxmng_get_status(ifx, text, sizeof text), flags != 0 ? 1 : 0) << ifx;
        if (flags != 0) {
            ASSERT_EQ(std::stoul(text), ifx);
        }
    }
}

} // namespace
