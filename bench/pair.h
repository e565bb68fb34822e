// Two processes of a measurement: what one sends the other takes. The processor time of both counts, per message or
// exchange; they wait for each other at the end of each round, so that a socket's buffer is never full.
#pragma once

#include "bench/client.h"
#include "bench/measure.h"
#include "bench/tables.h"

#include <csignal>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>

namespace bench {

// Both on one processor, where the one can only run when the other waits: what it costs to wake a process on another
// processor, several times what is measured here, is the machine's and the moment's. Threads of a library follow.
inline void share_a_processor() {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<unsigned>(sched_getcpu()), &set);
    sched_setaffinity(0, sizeof set, &set);
}

// Both ends of a connection, made before the processes part.
struct Ends {
    int at[2];
};
inline Ends make_ends() {
    Ends ends{};
    need(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.at) == 0, "the socket pair");
    return ends;
}

// A round is so many windows; in one, the sender sends `messages` and waits until the taker has them.
struct Pair {
    int go[2];   // the sender tells how many windows the next round has; 0 at the end
    int told[2]; // a byte for each window, and the processor seconds of each round
};

template <class T> void tell(int fd, const T &value) {
    need(exchange(write(fd, &value, sizeof value), sizeof value), "the pipe");
}
template <class T> T hear(int fd) {
    T value{};
    need(exchange(read(fd, &value, sizeof value), sizeof value), "the pipe");
    return value;
}

template <class Take> [[noreturn]] void take_rounds(const Pair &pair, Take take) {
    for (;;) {
        const auto windows = hear<uint32_t>(pair.go[0]);
        if (windows == 0)
            _exit(0);
        const double start = processor_seconds();
        for (uint32_t window = 0; window < windows; ++window) {
            take();
            tell(pair.told[1], '.');
        }
        tell(pair.told[1], processor_seconds() - start);
    }
}

template <class Send> double send_round(const Pair &pair, uint32_t windows, Send send) {
    tell(pair.go[1], windows);
    const double start = processor_seconds();
    for (uint32_t window = 0; window < windows; ++window) {
        send();
        hear<char>(pair.told[0]);
    }
    const double seconds = processor_seconds() - start;
    return seconds + hear<double>(pair.told[0]);
}

// Nanoseconds per message. `make_taker` runs in the other process and gives what takes a window; `make_sender`, in this
// one, what sends it.
template <class MakeTaker, class MakeSender>
double of_both(uint32_t messages, MakeTaker make_taker, MakeSender make_sender) {
    share_a_processor();
    Pair pair{};
    need(pipe(pair.go) == 0 && pipe(pair.told) == 0, "the pipes");
    const pid_t taker = fork();
    if (taker == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        auto take = make_taker();
        take_rounds(pair, take);
    }
    auto send = make_sender();
    send_round(pair, 1, send); // binds names, touches pages
    const double time = fastest(messages, [&](uint32_t windows) { return send_round(pair, windows, send); });
    tell(pair.go[1], uint32_t{0});
    waitpid(taker, nullptr, 0);
    return time;
}

constexpr uint32_t kExchanges = 64; // a window of requests and replies

// Windows that a socket's buffer holds: 8 full batches.
inline uint32_t per_window(uint32_t payload) {
    return 8 * (BRI_BATCH_MSG_MAX / (static_cast<uint32_t>(sizeof(bri_msg_hdr)) + payload));
}

} // namespace bench
