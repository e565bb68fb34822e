// Child processes of a test.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace test {

// A lab machine, see lab/init.cpp: slow, and its tests run on the workstation too.
inline bool in_lab_machine() {
    return std::getenv("BRIDGE_MODULE") != nullptr;
}

// Iterations of a test that only gets surer by more of them; an emulated processor takes a share.
inline int scaled(int iterations) {
#if defined(__powerpc__)
    constexpr int kShare = 20;
#else
    constexpr int kShare = 1;
#endif
    return std::max(1, iterations / (in_lab_machine() ? 60 : kShare));
}

// The same of random histories, each of which is long enough to show something.
inline unsigned scaled_histories(unsigned histories) {
    return in_lab_machine() ? histories / 10 : histories;
}

// When those that are to meet often give up: on a machine with one processor they never do.
inline std::chrono::steady_clock::time_point patience_ends() {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(in_lab_machine() ? 200 : 5000);
}

constexpr unsigned kChildSeconds = 60; // a child that hangs ends by a signal, which fails its test

// Runs fn() in a child, whose exit status is what it gives. The child does not return into the test.
template <class Fn> pid_t start_child(Fn &&fn) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(kChildSeconds);
        _exit(fn());
    }
    return child;
}

constexpr int kNoNamespace = 77; // status of a child that may not have a namespace of its own

// Runs fn() in a child with System V objects of its own, where the first one of each kind has the id 0, as on a machine
// that has just started.
template <class Fn> pid_t start_child_alone(Fn &&fn) {
    return start_child([&] {
        const bool alone = unshare(CLONE_NEWIPC) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0;
        return alone ? fn() : kNoNamespace;
    });
}

// The status that waitpid gives.
inline int wait_for(pid_t child) {
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    return status;
}

// Runs fn(index) in `count` children that begin together, and waits for them. True when each gave 0.
template <class Fn> bool all_children(int count, Fn &&fn) {
    int gate[2];
    if (pipe(gate) != 0)
        return false;
    std::vector<pid_t> children;
    for (int index = 0; index < count; ++index)
        children.push_back(start_child([&] {
            close(gate[1]);
            char byte;
            const bool open = read(gate[0], &byte, 1) == 0; // ends when the parent closes
            return open ? fn(index) : 1;
        }));
    close(gate[0]);
    close(gate[1]);
    bool ok = true;
    for (const pid_t child : children)
        ok = child > 0 && wait_for(child) == 0 && ok;
    return ok;
}

// Zeroed memory that the children started after it share with the test.
template <class T> class SharedBlock {
  public:
    SharedBlock() {
        void *place = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        block_ = place != MAP_FAILED ? new (place) T{} : nullptr;
    }
    ~SharedBlock() { munmap(block_, sizeof(T)); }
    SharedBlock(const SharedBlock &) = delete;
    SharedBlock &operator=(const SharedBlock &) = delete;

    T *operator->() { return block_; }
    T &operator*() { return *block_; }

  private:
    T *block_;
};

// Waits until `total` arrivals were counted, its own included, so that all go on within nanoseconds of each other. The
// count stands in memory that the processes or threads share, and goes up by one a meeting and participant.
inline void meet(uint32_t &arrived, uint32_t total) {
    __atomic_add_fetch(&arrived, 1U, __ATOMIC_SEQ_CST);
    for (unsigned spins = 1; __atomic_load_n(&arrived, __ATOMIC_SEQ_CST) < total; ++spins)
        if (spins % 1024 == 0)
            sched_yield();
}

// Contest of processes for bits of shared words, where each flips its own ones. It goes on until they have met often:
// on a busy machine they may run one after the other for a long time, and what comes between a reading and a writing
// then never does.
struct FlipContest {
    uint32_t arrived;
    uint32_t met; // how often a process found that another one had been there since its last look
};

// The part of one of `processes`. flip(bit, on) changes a bit of `own`, all clear at first and in the end, and read()
// gives all bits. Each bit keeps its value while the others are flipped, so one that is lost still shows at the next
// reading. True when none was lost.
template <class Flip, class Read>
bool flips_hold(FlipContest &contest, uint32_t processes, uint64_t own, Flip &&flip, Read &&read) {
    const auto kOften = static_cast<uint32_t>(scaled(20000));
    const auto latest = patience_ends();
    uint64_t expected = 0;
    uint64_t others = 0;
    meet(contest.arrived, processes);
    while (__atomic_load_n(&contest.met, __ATOMIC_RELAXED) < kOften && std::chrono::steady_clock::now() <= latest) {
        uint32_t met = 0;
        for (int pass = 0; pass < 2; ++pass) // sets every bit, then clears every bit
            for (uint64_t left = own; left != 0; left &= left - 1) {
                const int bit = __builtin_ctzll(left);
                expected ^= uint64_t{1} << bit;
                flip(bit, pass == 0);
                const uint64_t all = read();
                if ((all & own) != expected) {
                    __atomic_store_n(&contest.met, kOften, __ATOMIC_RELAXED);
                    return false;
                }
                met += (all & ~own) != others ? 1U : 0U;
                others = all & ~own;
            }
        if (met != 0)
            __atomic_fetch_add(&contest.met, met, __ATOMIC_RELAXED);
    }
    return true;
}

} // namespace test
