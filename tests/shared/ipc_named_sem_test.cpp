// POSIX named semaphores.
#include "tests/support/children.h"
#include "tests/support/test.h"

#include <bridge/ipc.h>

#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <semaphore.h>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

using test::faults::calls;
using test::faults::fail;

class IpcNamedSem : public test::Env {
  protected:
    IpcNamedSem() : name_("/bri-test-" + std::to_string(vsd())) {
        test::debug_on({BRI_DBG_VLAN});
        sem_unlink(name());
    }
    ~IpcNamedSem() override { sem_unlink(name()); }

    [[nodiscard]] const char *name() const { return name_.c_str(); }
    [[nodiscard]] std::string path() const { return "/dev/shm/sem." + name_.substr(1); }
    [[nodiscard]] int value() const {
        int value = -1;
        EXPECT_EQ(bridge_get_plock_value(name(), &value), 1);
        return value;
    }
    // Makes the semaphore, then forgets what was logged and counted.
    void make() {
        ASSERT_EQ(bridge_plock_creat(name()), 1);
        test::faults::clear();
    }
    // The one line that was logged.
    void expect_line(const std::string &call, int error) const {
        ASSERT_EQ(test::log_lines().size(), 1U);
        const test::LogLine &line = test::log_lines()[0];
        EXPECT_EQ(line.text,
                  call + " " + name_ + " error [" + std::to_string(error) + "] " + std::strerror(error) + "\n");
        EXPECT_EQ(line.category(), test::kSemLine);
    }

  private:
    std::string name_;
};

TEST_F(IpcNamedSem, creating_makes_a_semaphore_of_value_1_that_others_may_read) {
    umask(0);
    EXPECT_EQ(bridge_plock_creat(name()), 1);
    EXPECT_EQ(value(), 1);
    struct stat status {};
    ASSERT_EQ(stat(path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST_F(IpcNamedSem, creating_closes_its_handle) {
    make();
    bridge_plock_creat(name());
    EXPECT_EQ(calls("sem_open"), 1);
    EXPECT_EQ(calls("sem_close"), 1);
}

TEST_F(IpcNamedSem, creating_an_existing_one_keeps_its_value) {
    make();
    bridge_psem_down(name());
    EXPECT_EQ(bridge_plock_creat(name()), 1);
    EXPECT_EQ(value(), 0);
}

TEST_F(IpcNamedSem, creating_fails_when_it_cannot_be_opened) {
    fail("sem_open", 1, ENFILE);
    EXPECT_EQ(bridge_plock_creat(name()), 0);
    expect_line("sem_open", ENFILE);
}

TEST_F(IpcNamedSem, closing_a_missing_one_gives_0_silently) {
    EXPECT_EQ(bridge_close_plock(name()), 0);
    EXPECT_EQ(calls("sem_close"), 0);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcNamedSem, closing_gives_the_result_and_does_not_unlink) {
    make();
    EXPECT_EQ(bridge_close_plock(name()), 0);
    EXPECT_EQ(calls("sem_close"), 1);
    EXPECT_EQ(value(), 1);
    fail("sem_close", 1, EINVAL);
    EXPECT_EQ(bridge_close_plock(name()), -1);
    expect_line("sem_close", EINVAL);
}

TEST_F(IpcNamedSem, the_value_call_gives_0_when_there_is_nothing_to_read) {
    int value = 77;
    EXPECT_EQ(bridge_get_plock_value(name(), &value), 0);
    make();
    fail("sem_getvalue", 1, EINVAL);
    EXPECT_EQ(bridge_get_plock_value(name(), &value), 0);
    EXPECT_EQ(bridge_get_plock_value(name(), nullptr), 0);
    EXPECT_EQ(value, 77);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcNamedSem, up_and_down_change_the_value_and_give_0) {
    make();
    EXPECT_EQ(bridge_psem_up(name()), 0);
    EXPECT_EQ(value(), 2);
    EXPECT_EQ(bridge_psem_down(name()), 0);
    EXPECT_EQ(bridge_psem_down(name()), 0);
    EXPECT_EQ(value(), 0);
    EXPECT_EQ(calls("sem_close"), 0); // handles stay open
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcNamedSem, up_of_a_missing_one_fails) {
    EXPECT_EQ(bridge_psem_up(name()), -1);
    expect_line("sem_open", ENOENT);
}

TEST_F(IpcNamedSem, up_fails_when_the_post_fails) {
    make();
    fail("sem_post", 1, EOVERFLOW);
    EXPECT_EQ(bridge_psem_up(name()), -1);
    expect_line("sem_post", EOVERFLOW);
}

TEST_F(IpcNamedSem, down_of_a_missing_one_fails) {
    EXPECT_EQ(bridge_psem_down(name()), -1);
    expect_line("sem_open", ENOENT);
    EXPECT_EQ(calls("sem_wait"), 0);
}

TEST_F(IpcNamedSem, down_interrupted_once_waits_a_second_time) {
    make();
    fail("sem_wait", 1, EINTR);
    EXPECT_EQ(bridge_psem_down(name()), 0);
    EXPECT_EQ(calls("sem_wait"), 2);
    EXPECT_EQ(value(), 0);
    expect_line("sem_wait", EINTR);
}

TEST_F(IpcNamedSem, down_interrupted_twice_gives_the_failure) {
    make();
    fail("sem_wait", 1, EINTR, 2);
    EXPECT_EQ(bridge_psem_down(name()), -1);
    EXPECT_EQ(calls("sem_wait"), 2);
    EXPECT_EQ(value(), 1);
    expect_line("sem_wait", EINTR); // the second failure is only returned
}

TEST_F(IpcNamedSem, down_that_fails_otherwise_does_not_wait_again) {
    make();
    fail("sem_wait", 1, EINVAL);
    EXPECT_EQ(bridge_psem_down(name()), -1);
    EXPECT_EQ(calls("sem_wait"), 1);
    expect_line("sem_wait", EINVAL);
}

TEST_F(IpcNamedSem, down_ends_by_the_second_of_two_signals) {
    make();
    bridge_psem_down(name());
    static volatile sig_atomic_t signals = 0;
    struct sigaction action {};
    action.sa_handler = [](int) { signals = signals + 1; };
    ASSERT_EQ(sigaction(SIGALRM, &action, nullptr), 0);
    const itimerval every20ms{{0, 20000}, {0, 20000}};
    setitimer(ITIMER_REAL, &every20ms, nullptr);
    EXPECT_EQ(bridge_psem_down(name()), -1);
    const itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    EXPECT_GE(signals, 2);
}

TEST_F(IpcNamedSem, down_waits_for_the_post_of_another_process) {
    make();
    bridge_psem_down(name());
    const pid_t child = test::start_child([&] { return bridge_psem_up(name()) == 0 ? 0 : 1; });
    EXPECT_EQ(bridge_psem_down(name()), 0);
    EXPECT_EQ(test::wait_for(child), 0);
    EXPECT_EQ(value(), 0);
}

TEST_F(IpcNamedSem, a_null_name_gives_each_call_its_failure_result) {
    int value = 77;
    EXPECT_EQ(bridge_plock_creat(nullptr), 0);
    EXPECT_EQ(bridge_close_plock(nullptr), 0);
    EXPECT_EQ(bridge_get_plock_value(nullptr, &value), 0);
    EXPECT_EQ(bridge_psem_up(nullptr), -1);
    EXPECT_EQ(bridge_psem_down(nullptr), -1);
    EXPECT_EQ(value, 77);
    EXPECT_EQ(calls("sem_open"), 0);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(IpcNamedSem, nothing_is_logged_while_the_flag_is_off) {
    make();
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    fail("sem_post", 1, EINVAL);
    bridge_psem_up(name());
    fail("sem_wait", 1, EINVAL);
    bridge_psem_down(name());
    fail("sem_close", 1, EINVAL);
    bridge_close_plock(name());
    fail("sem_open", 1, EINVAL, 3);
    bridge_plock_creat(name());
    bridge_psem_up(name());
    bridge_psem_down(name());
    EXPECT_EQ(test::faults::injected(), 6);
    EXPECT_TRUE(test::log_lines().empty());
}

// What the process has mapped, in lines of its map and in pages.
struct Footprint {
    long maps = 0;
    long pages = 0;
    int descriptors = 0;
};

Footprint footprint() {
    Footprint now;
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
        ++now.maps;
    std::ifstream("/proc/self/statm") >> now.pages;
    now.descriptors = test::open_descriptors();
    return now;
}

class IpcNamedSemGrowth : public IpcNamedSem {
  protected:
    // Up, down and value in turn on one name.
    void expect_no_growth(int all_calls) {
        make();
        ASSERT_TRUE(round());
        footprint(); // what reading the figures allocates is there before
        const Footprint before = footprint();
        for (int done = 0; done < all_calls; done += 3)
            ASSERT_TRUE(round());
        EXPECT_GE(calls("sem_open"), all_calls);
        const Footprint after = footprint();
        EXPECT_EQ(after.maps, before.maps);
        EXPECT_EQ(after.pages, before.pages);
        EXPECT_EQ(after.descriptors, before.descriptors);
    }

  private:
    bool round() {
        int value = -1;
        return bridge_psem_up(name()) == 0 && bridge_psem_down(name()) == 0 &&
               bridge_get_plock_value(name(), &value) == 1 && value == 1;
    }
};
using IpcNamedSemSlow = IpcNamedSemGrowth;

TEST_F(IpcNamedSemGrowth, calls_on_one_name_do_not_grow_the_process) {
    expect_no_growth(test::scaled(30000));
}

TEST_F(IpcNamedSemSlow, a_million_calls_on_one_name_do_not_grow_the_process) {
    expect_no_growth(test::scaled(1000000));
}

} // namespace
