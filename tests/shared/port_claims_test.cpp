// Port functions that exclude each other, claimed by several processes.
#include "tests/shared/port_fixture.h"
#include "tests/support/children.h"
#include "tests/support/effects.h"

#include <bridge/ipc.h>
#include <bridge/port_db.h>

#include <sys/sem.h>

namespace {

using test::faults::calls;
using test::faults::fail;

constexpr uint32_t kGroup = 0x1fc0;

class PortClaims : public test::PortDb {
  protected:
    PortClaims() {
        plug(5);
        test::faults::clear();
    }

    uint32_t flags(int32_t ifx) { return test::value_at<uint32_t>(block(ifx), 8); }
    void put_flags(int32_t ifx, uint32_t value) { test::put_at<uint32_t>(block(ifx), 8, value); }
    [[nodiscard]] int lock_value() const { return semctl(semget(key(), 0, 0), 0, GETVAL); }
};

TEST_F(PortClaims, a_claim_sets_the_bits_and_reports_no_conflict) {
    put_flags(5, 0x80000001);
    uint32_t conflicts = 77;
    EXPECT_EQ(swport_set_attr_exclude(5, 0x40, 1, kGroup, &conflicts), 1);
    EXPECT_EQ(conflicts, 0U);
    EXPECT_EQ(flags(5), 0x80000041U);
}

TEST_F(PortClaims, every_conflicting_bit_of_the_group_refuses_and_is_reported) {
    for (unsigned held = 0; held < 32; ++held)
        for (const uint32_t mask : {0U, 1U << held, ~(1U << held), kGroup, UINT32_MAX}) {
            put_flags(5, 1U << held);
            uint32_t conflicts = 77;
            const uint32_t expected = (1U << held) & kGroup & mask;
            ASSERT_EQ(swport_set_attr_exclude(5, 0x3, 1, mask, &conflicts), 1);
            ASSERT_EQ(conflicts, expected) << "held bit " << held;
            ASSERT_EQ(flags(5), (1U << held) | (expected != 0 ? 0U : 3U)) << "held bit " << held;
        }
}

TEST_F(PortClaims, a_refusal_reports_all_conflicting_bits) {
    put_flags(5, 0xFFFFFFFF);
    uint32_t conflicts = 0;
    EXPECT_EQ(swport_set_attr_exclude(5, 1, 1, 0x00F1, &conflicts), 1);
    EXPECT_EQ(conflicts, 0x00C0U);
}

TEST_F(PortClaims, a_refusal_without_a_place_for_conflicts_still_refuses) {
    put_flags(5, 0x40);
    EXPECT_EQ(swport_set_attr_exclude(5, 0x80, 1, 0x40, nullptr), 1);
    EXPECT_EQ(flags(5), 0x40U);
}

TEST_F(PortClaims, clearing_takes_the_bits_away_whatever_conflicts) {
    put_flags(5, 0xC3);
    uint32_t conflicts = 77;
    EXPECT_EQ(swport_set_attr_exclude(5, 0x82, 0, kGroup, &conflicts), 1);
    EXPECT_EQ(conflicts, 0U);
    EXPECT_EQ(flags(5), 0x41U);
    EXPECT_EQ(swport_set_attr_exclude(5, 0x01, 0, kGroup, nullptr), 1);
    EXPECT_EQ(flags(5), 0x40U);
}

TEST_F(PortClaims, only_the_low_8_bits_tell_setting_from_clearing) {
    put_flags(5, 1);
    EXPECT_EQ(swport_set_attr_exclude(5, 1, 0x100, 0, nullptr), 1);
    EXPECT_EQ(flags(5), 0U);
    EXPECT_EQ(swport_set_attr_exclude(5, 1, 0xFFFFFF80, 0, nullptr), 1);
    EXPECT_EQ(flags(5), 1U);
}

TEST_F(PortClaims, an_absent_port_gives_0_and_leaves_the_conflicts_alone) {
    uint32_t conflicts = 77;
    for (const int32_t ifx : {-1, 0, 6, 64})
        EXPECT_EQ(swport_set_attr_exclude(ifx, 1, 1, 0, &conflicts), 0);
    EXPECT_EQ(conflicts, 77U);
    EXPECT_EQ(calls("semop"), 0);
}

TEST_F(PortClaims, the_lock_is_taken_and_given_back_also_by_a_refusal) {
    put_flags(5, 0x40);
    uint32_t conflicts = 0;
    swport_set_attr_exclude(5, 0x80, 1, kGroup, &conflicts);
    EXPECT_EQ(calls("semop"), 2);
    EXPECT_EQ(lock_value(), 1);
    swport_set_attr_exclude(5, 0x80, 0, kGroup, &conflicts);
    EXPECT_EQ(calls("semop"), 4);
    EXPECT_EQ(lock_value(), 1);
}

TEST_F(PortClaims, a_claim_waits_for_the_lock) {
    bri_sem_lock *lock = bridge_lock_get(key());
    bridge_wr_lock(lock);
    test::SharedBlock<uint32_t> conflicts;
    *conflicts = 77;
    const pid_t child =
        test::start_child([&] { return swport_set_attr_exclude(5, 1, 1, 0, &*conflicts) == 1 ? 0 : 1; });
    while (semctl(lock->semid, 0, GETNCNT) != 1)
        usleep(100);
    EXPECT_EQ(flags(5), 0U);
    EXPECT_EQ(__atomic_load_n(&*conflicts, __ATOMIC_SEQ_CST), 0U); // none until one is found under the lock
    bridge_unlock(lock);
    EXPECT_EQ(test::wait_for(child), 0);
    EXPECT_EQ(flags(5), 1U);
    std::free(lock);
}

// Whoever gets the lock next may rely on it.
TEST_F(PortClaims, the_conflicts_are_told_before_the_lock_is_given_back) {
    put_flags(5, 0x40);
    test::debug_on({BRI_DBG_VLAN});
    fail("semop", 2, EIDRM); // giving back fails, which a line tells at that moment
    uint32_t conflicts = 0;
    uint32_t told = 0;
    test::on_effect = [&](const std::string &) { told = conflicts; };
    EXPECT_EQ(swport_set_attr_exclude(5, 0x80, 1, kGroup, &conflicts), 1);
    test::on_effect = nullptr;
    EXPECT_EQ(test::log_lines().size(), 1U);
    EXPECT_EQ(told, 0x40U);
}

TEST_F(PortClaims, without_the_lock_a_claim_goes_on) {
    fail("semop", 1, EINTR);
    EXPECT_EQ(swport_set_attr_exclude(5, 1, 1, 0, nullptr), 1);
    EXPECT_EQ(flags(5), 1U);
}

TEST_F(PortClaims, a_holder_that_is_killed_does_not_block_the_next_claim) {
    const pid_t child = test::start_child([&] {
        bridge_wr_lock(bridge_lock_get(key()));
        pause();
        return 0;
    });
    while (lock_value() != 0)
        usleep(100);
    kill(child, SIGKILL);
    test::wait_for(child);
    alarm(10); // ends the test by a signal where the claim blocks
    EXPECT_EQ(swport_set_attr_exclude(5, 1, 1, 0, nullptr), 1);
    EXPECT_EQ(flags(5), 1U);
}

// Eight processes claim every port with a bit of their own or a shared one, each barring the whole group. Each process
// maps the database itself, which sets the lock free under the others' hands.
TEST_F(PortClaims, of_processes_that_claim_a_port_at_once_one_wins) {
    struct Wins {
        uint8_t of[8][64];
    };
    test::SharedBlock<Wins> wins;
    for (int32_t ifx = 1; ifx < 64; ++ifx)
        plug(ifx);
    for (int round = 0; round < test::scaled(60) + 1; ++round) {
        for (int32_t ifx = 1; ifx < 64; ++ifx)
            put_flags(ifx, 0);
        ASSERT_TRUE(test::all_children(8, [&](int process) {
            if (bridge_portdb_init() != 1)
                return 1;
            for (int32_t ifx = 1; ifx < 64; ++ifx) {
                uint32_t conflicts = 0;
                swport_set_attr_exclude(ifx, 0x40U << process % 7, 1, kGroup, &conflicts);
                wins->of[process][ifx] = conflicts == 0 ? 1 : 0;
            }
            return 0;
        }));
        for (int32_t ifx = 1; ifx < 64; ++ifx) {
            uint32_t expected = 0;
            int winners = 0;
            for (int process = 0; process < 8; ++process)
                if (wins->of[process][ifx] != 0) {
                    ++winners;
                    expected = 0x40U << process % 7;
                }
            ASSERT_EQ(winners, 1) << "port " << ifx;
            ASSERT_EQ(flags(ifx), expected) << "port " << ifx;
        }
    }
}

// A won function is held by one process until that process gives it back.
class PortClaimsHeld : public PortClaims {
  protected:
    struct Contest {
        uint32_t arrived;
        uint32_t holders;
    };

    // `claims` attempts of one process; gives 1 when another one held the port at the same time.
    static int contend(int process, int claims, Contest &contest) {
        const uint32_t own = 0x40U << process;
        for (int attempt = 0; attempt < claims; ++attempt) {
            uint32_t conflicts = 0;
            swport_set_attr_exclude(5, own, 1, kGroup, &conflicts);
            if (conflicts != 0)
                continue;
            if (__atomic_fetch_add(&contest.holders, 1U, __ATOMIC_SEQ_CST) != 0)
                return 1;
            __atomic_fetch_sub(&contest.holders, 1U, __ATOMIC_SEQ_CST);
            swport_set_attr_exclude(5, own, 0, 0, nullptr);
        }
        return 0;
    }

    test::SharedBlock<Contest> contest_;
};

TEST_F(PortClaimsHeld, by_one_process_at_a_time) {
    EXPECT_TRUE(test::all_children(4, [&](int process) {
        test::meet(contest_->arrived, 4);
        return contend(process, test::scaled(1000), *contest_);
    }));
    EXPECT_EQ(flags(5), 0U);
}

// The lock can fail its taker, who then goes on: also without it the test and the setting are one step.
TEST_F(PortClaimsHeld, by_one_process_at_a_time_also_without_the_lock) {
    EXPECT_TRUE(test::all_children(2, [&](int process) {
        fail("semop", 1, EINTR, 1 << 30);
        test::meet(contest_->arrived, 2);
        return contend(process, test::scaled(300000), *contest_);
    }));
    EXPECT_EQ(flags(5), 0U);
}

} // namespace
