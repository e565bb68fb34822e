// System V semaphore locks.
#include "base/vsd.h"
#include "tests/support/children.h"
#include "tests/support/test.h"

#include <bridge/ipc.h>

#include <poll.h>
#include <sys/sem.h>

namespace {

using test::faults::calls;
using test::faults::fail;

std::string with_errno_text(const std::string &text, int error) {
    return text + "[" + std::to_string(error) + "] " + std::strerror(error) + ".\n";
}

std::string hex(int32_t key) {
    char text[16];
    std::snprintf(text, sizeof text, "%x", static_cast<unsigned>(key));
    return text;
}

void expect_sem_line(const std::string &text) {
    const test::LogLine line = test::log_line(text);
    EXPECT_EQ(line.category(), test::kSemLine) << text;
}

class IpcSem : public test::Env {
  protected:
    IpcSem() { test::debug_on({BRI_DBG_VLAN}); }
    ~IpcSem() override {
        for (bri_sem_lock *lock : locks_)
            std::free(lock);
    }

    // The handle is the caller's; the fixture frees it.
    bri_sem_lock *create() { return keep(bridge_lock_create(key_)); }
    bri_sem_lock *get() { return keep(bridge_lock_get(key_)); }
    bri_sem_lock *keep(bri_sem_lock *lock) {
        locks_.push_back(lock);
        return lock;
    }

    [[nodiscard]] int set_id() const { return semget(key_, 0, 0); }
    [[nodiscard]] int value() const { return semctl(set_id(), 0, GETVAL); }
    void make_set_with_value(int value) {
        union {
            int number;
            semid_ds *status;
        } argument{value};
        ASSERT_EQ(semctl(semget(key_, 1, IPC_CREAT | 0777), 0, SETVAL, argument), 0);
    }

    const int32_t key_ = bri::ipc_key(0x33330001);

  private:
    std::vector<bri_sem_lock *> locks_;
};

TEST_F(IpcSem, create_makes_a_set_of_one_free_semaphore) {
    const bri_sem_lock *lock = create();
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(lock->semid, set_id());
    EXPECT_EQ(lock->reserved, 0);
    EXPECT_EQ(value(), 1);
    semid_ds status{};
    union {
        semid_ds *status;
        int number;
    } argument{&status};
    ASSERT_EQ(semctl(set_id(), 0, IPC_STAT, argument), 0);
    EXPECT_EQ(status.sem_nsems, 1U);
    EXPECT_EQ(status.sem_perm.mode & 0777, 0777);
}

TEST_F(IpcSem, create_logs_the_key_and_then_the_set) {
    const bri_sem_lock *lock = create();
    ASSERT_EQ(test::log_lines().size(), 2U);
    EXPECT_EQ(test::log_lines()[0].text, "Create SEM [key:" + hex(key_) + "]...\n");
    EXPECT_EQ(test::log_lines()[1].text,
              "Create SEM [key:" + hex(key_) + ", semid " + std::to_string(lock->semid) + "]...\n");
    expect_sem_line(test::log_lines()[0].text);
    expect_sem_line(test::log_lines()[1].text);
}

TEST_F(IpcSem, two_creates_give_two_handles_of_one_set) {
    const bri_sem_lock *first = create();
    const bri_sem_lock *second = create();
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_EQ(first->semid, second->semid);
}

// Ids count from 0, which is as good as any other.
TEST_F(IpcSem, the_first_set_of_a_machine_is_made_and_joined) {
    const int status = test::wait_for(test::start_child_alone([&] {
        bri_sem_lock *lock = create();
        if (lock == nullptr || lock->semid != 0 || value() != 1)
            return 1;
        bridge_wr_lock(lock);
        if (value() != 0 || get() == nullptr || get()->semid != 0)
            return 2;
        return create() != nullptr && value() == 1 ? 0 : 3;
    }));
    if (status == test::kNoNamespace << 8)
        GTEST_SKIP() << "needs a namespace of its own";
    EXPECT_EQ(status, 0);
}

TEST_F(IpcSem, create_sets_a_used_set_free) {
    bridge_wr_lock(create());
    ASSERT_EQ(value(), 0);
    create();
    EXPECT_EQ(value(), 1);
}

TEST_F(IpcSem, create_leaves_a_set_alone_that_was_never_used) {
    make_set_with_value(0);
    ASSERT_NE(create(), nullptr);
    EXPECT_EQ(value(), 0);
}

TEST_F(IpcSem, create_without_memory_fails_before_any_set_is_made) {
    fail("calloc", 1, ENOMEM);
    EXPECT_EQ(create(), nullptr);
    expect_sem_line(with_errno_text("Create sem , malloc failed:", ENOMEM));
    EXPECT_EQ(set_id(), -1);
}

TEST_F(IpcSem, create_fails_when_no_set_can_be_made) {
    fail("semget", 1, ENOSPC);
    EXPECT_EQ(create(), nullptr);
    expect_sem_line(with_errno_text("Create sem failed:", ENOSPC));
    EXPECT_EQ(calls("semget"), 1);
    EXPECT_EQ(calls("semctl"), 0);
}

TEST_F(IpcSem, create_fails_when_an_existing_set_cannot_be_joined) {
    create();
    test::faults::clear();
    fail("semget", 2, EACCES);
    EXPECT_EQ(create(), nullptr);
    expect_sem_line(with_errno_text("Create sem failed:", EACCES));
    EXPECT_EQ(calls("semctl"), 0); // nothing is asked of a set that is not there
}

TEST_F(IpcSem, create_does_not_mind_failing_semctl) {
    fail("semctl", 1, EPERM);
    EXPECT_NE(create(), nullptr);
    EXPECT_EQ(calls("semctl"), 1); // a new set is set free once,
    EXPECT_EQ(calls("semop"), 0);  // and in no other way
    EXPECT_EQ(value(), 0);
    fail("semctl", 1, EPERM);
    EXPECT_NE(create(), nullptr);
    EXPECT_EQ(value(), 0);
}

TEST_F(IpcSem, get_joins_a_set_and_leaves_its_value) {
    make_set_with_value(0);
    const bri_sem_lock *lock = get();
    ASSERT_NE(lock, nullptr);
    EXPECT_EQ(lock->semid, set_id());
    EXPECT_EQ(lock->reserved, 0);
    EXPECT_EQ(value(), 0);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcSem, get_of_a_missing_set_fails_and_makes_none) {
    EXPECT_EQ(get(), nullptr);
    expect_sem_line(with_errno_text("Get sem failed:", ENOENT));
    EXPECT_EQ(set_id(), -1);
}

TEST_F(IpcSem, get_of_the_private_key_makes_no_set) {
    EXPECT_EQ(keep(bridge_lock_get(0)), nullptr);
}

TEST_F(IpcSem, get_without_memory_fails) {
    make_set_with_value(1);
    fail("calloc", 1, ENOMEM);
    EXPECT_EQ(get(), nullptr);
    expect_sem_line(with_errno_text("Get sem , malloc failed:", ENOMEM));
}

TEST_F(IpcSem, both_forms_take_the_semaphore_and_unlock_gives_it_back) {
    bri_sem_lock *lock = create();
    for (void (*take)(bri_sem_lock *) : {bridge_rd_lock, bridge_wr_lock}) {
        test::clear_log();
        take(lock);
        EXPECT_EQ(value(), 0);
        bridge_unlock(lock);
        EXPECT_EQ(value(), 1);
        EXPECT_TRUE(test::log_lines().empty()); // only a failure is told
    }
}

TEST_F(IpcSem, a_null_lock_does_nothing) {
    bridge_rd_lock(nullptr);
    bridge_wr_lock(nullptr);
    bridge_unlock(nullptr);
    EXPECT_EQ(calls("semop"), 0);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcSem, a_failing_semop_is_logged_and_not_retried) {
    bri_sem_lock *lock = create();
    for (void (*operation)(bri_sem_lock *) : {bridge_rd_lock, bridge_wr_lock, bridge_unlock}) {
        test::clear_log();
        test::faults::clear();
        fail("semop", 1, EINTR);
        operation(lock);
        EXPECT_EQ(calls("semop"), 1);
        EXPECT_EQ(test::log_lines().size(), 1U);
        expect_sem_line(with_errno_text("lock sem failed:", EINTR));
    }
}

TEST_F(IpcSem, readers_and_writers_of_two_processes_exclude_each_other_alike) {
    bri_sem_lock *lock = create();
    for (void (*mine)(bri_sem_lock *) : {bridge_rd_lock, bridge_wr_lock})
        for (void (*theirs)(bri_sem_lock *) : {bridge_rd_lock, bridge_wr_lock}) {
            mine(lock);
            test::SharedBlock<int> entered;
            const pid_t child = test::start_child([&] {
                theirs(lock);
                __atomic_store_n(&*entered, 1, __ATOMIC_SEQ_CST);
                bridge_unlock(lock);
                return 0;
            });
            while (semctl(set_id(), 0, GETNCNT) != 1) // until the child waits
                usleep(100);
            EXPECT_EQ(__atomic_load_n(&*entered, __ATOMIC_SEQ_CST), 0);
            bridge_unlock(lock);
            EXPECT_EQ(test::wait_for(child), 0);
            EXPECT_EQ(*entered, 1);
        }
}

TEST_F(IpcSem, a_holder_that_is_killed_gives_the_lock_back) {
    bri_sem_lock *lock = create();
    const pid_t child = test::start_child([&] {
        bridge_wr_lock(lock);
        pause();
        return 0;
    });
    while (value() != 0)
        usleep(100);
    kill(child, SIGKILL);
    test::wait_for(child);
    EXPECT_EQ(value(), 1);
    alarm(10); // ends the test by a signal where the lock is not given back
    bridge_wr_lock(lock);
    EXPECT_EQ(value(), 0);
}

TEST_F(IpcSem, the_lock_keeps_processes_apart) {
    bri_sem_lock *lock = create();
    test::SharedBlock<int> count;
    const int rounds = test::scaled(1500);
    EXPECT_TRUE(test::all_children(4, [&](int) {
        volatile int *unguarded = &*count;
        for (int round = 0; round < rounds; ++round) {
            bridge_wr_lock(lock);
            *unguarded = *unguarded + 1;
            bridge_unlock(lock);
        }
        return 0;
    }));
    EXPECT_EQ(*count, 4 * rounds);
}

TEST_F(IpcSem, nothing_is_logged_while_the_flag_is_off) {
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    bri_sem_lock *lock = create();
    fail("semop", 1, EINTR);
    bridge_wr_lock(lock);
    fail("semget", 1, ENOSPC);
    create();
    fail("calloc", 1, ENOMEM, 2);
    create();
    get();
    EXPECT_EQ(test::faults::injected(), 4);
    EXPECT_TRUE(test::log_lines().empty());
}

} // namespace
