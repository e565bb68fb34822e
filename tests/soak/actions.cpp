#include "tests/soak/actions.h"

#include <algorithm>
#include <csignal>

namespace soak {

namespace {

constexpr size_t kSwitchSize = 8;  // bytes of a debug message that switches something
constexpr unsigned kFlood = 11000; // more than a host caches
constexpr unsigned kDelaySeconds = 1;

} // namespace

struct Actions::Row {
    unsigned weight;
    const char *name;
    void (Actions::*act)();
};

const Actions::Row Actions::kRows[] = {
    {500, "events", &Actions::event},
    {150, "events to one host", &Actions::event_to_one},
    {20, "bursts", &Actions::burst},
    {15, "large events", &Actions::large_events},
    {150, "requests", &Actions::requests},
    {30, "slave flips", &Actions::slave},
    {25, "switch-overs", &Actions::switchover},
    {12, "stalls of one", &Actions::stall},
    {4, "stalls of all", &Actions::stall_all},
    {10, "slow hosts", &Actions::slow_host},
    {4, "full caches", &Actions::full_cache},
    {14, "delays", &Actions::delay},
    {8, "kernel down", &Actions::kernel},
    {25, "debug switches", &Actions::debugging},
    {20, "listings", &Actions::listing},
};

const Actions::Row Actions::kEnds[] = {
    {4, "drops of one", &Actions::drop_one},
    {1, "drops of all", &Actions::drop_all},
    {3, "restarts", &Actions::restart},
    {2, "kills", &Actions::kill},
};

unsigned Actions::number(unsigned from, unsigned to) {
    // Not a standard distribution: those differ between libraries, and a seed must mean the same everywhere.
    return from + static_cast<unsigned>(random_() % (to - from + 1));
}

uint32_t Actions::type() {
    return soak_events[number(0, sizeof soak_events / sizeof *soak_events - 1)];
}

void Actions::act(const Row *rows, size_t count) {
    unsigned sum = 0;
    for (size_t i = 0; i < count; ++i)
        sum += rows[i].weight;
    unsigned choice = number(1, sum);
    for (; choice > rows->weight; ++rows)
        choice -= rows->weight;
    ++counts_[rows->name];
    (this->*rows->act)();
}

void Actions::later(unsigned from_ms, unsigned to_ms, std::function<void()> what) {
    later_.push_back({Clock::now() + Milliseconds(number(from_ms, to_ms)), std::move(what)});
}

void Actions::run_due() {
    for (size_t i = 0; i < later_.size();) {
        if (later_[i].when > Clock::now()) {
            ++i;
            continue;
        }
        const std::function<void()> what = std::move(later_[i].what);
        later_.erase(later_.begin() + static_cast<ptrdiff_t>(i));
        what();
    }
}

void Actions::run(Milliseconds time) {
    const Clock::time_point end = Clock::now() + time;
    const Clock::time_point break_at = Clock::now() + Milliseconds(number(0, static_cast<unsigned>(time.count())));
    bool broken = chance(20); // now and then a time without any end
    while (Clock::now() < end) {
        act(kRows, std::size(kRows));
        if (!broken && Clock::now() >= break_at) {
            broken = true;
            act(kEnds, std::size(kEnds));
        }
        stage_.run(Milliseconds(number(0, 12)));
        run_due();
    }
}

void Actions::settle() {
    for (const Later &later : later_)
        later.what();
    later_.clear();
    stage_.command("role master");
    stage_.list(); // a restart may still be under way
    stage_.run_until("all hosts to be registered", [this] { return stage_.books.all_registered(); });
    for (unsigned i = 0; i < kHosts; ++i)
        stage_.debug(i, "delay -1", kSwitchSize);
    if (Clock::now() < delays_end_)
        stage_.run(std::chrono::duration_cast<Milliseconds>(delays_end_ - Clock::now()));
    flooded_.fill(false);
}

void Actions::warm_up() {
    for (unsigned i = 0; i < kHosts; ++i) {
        fill_cache(i);
        stage_.debug(i, "delay " + std::to_string(kDelaySeconds), kSwitchSize);
        stage_.signal_host(i, SIGSTOP);
    }
    delays_end_ = Clock::now() + Milliseconds(3000 * kDelaySeconds);
    for (unsigned i = 0; i < 256; ++i)
        stage_.send_event(kAll, type(), 10000);
    stage_.run(Milliseconds(1000));
    for (unsigned i = 0; i < kHosts; ++i)
        stage_.signal_host(i, SIGCONT);
    stage_.command("resume");
}

void Actions::event() {
    for (unsigned left = number(1, 4); left != 0; --left)
        stage_.send_event(kAll, type(), number(sizeof(soak_event), 64));
}

void Actions::event_to_one() {
    stage_.send_event(static_cast<int>(host()), type(), number(sizeof(soak_event), 600));
}

void Actions::burst() {
    for (unsigned left = number(50, 300); left != 0; --left)
        stage_.send_event(kAll, type(), sizeof(soak_event));
}

void Actions::large_events() {
    for (unsigned left = number(1, 30); left != 0; --left)
        stage_.send_event(kAll, type(), number(4000, BRI_PAYLOAD_MAX));
}

void Actions::requests() {
    const unsigned sender = host();
    if (!flooded_[sender])
        stage_.tell_host(sender, "send " + std::to_string(number(1, 30)));
}

void Actions::slave() {
    stage_.command("role slave");
    later(0, 300, [this] { stage_.command("role master"); });
}

void Actions::switchover() {
    stage_.command("role slave");
    if (chance(50))
        event();
    stage_.command("switchover begin");
    later(0, 100, [this] { stage_.command("switchover end"); });
}

void Actions::stall() {
    const std::string client = "@h" + std::to_string(host());
    stage_.command("stall " + client);
    later(10, 1500, [this, client] { stage_.command("resume " + client); });
}

void Actions::stall_all() {
    stage_.command("stall");
    later(10, 800, [this] { stage_.command("resume"); });
}

void Actions::slow_host() {
    const unsigned slow = host();
    stage_.signal_host(slow, SIGSTOP);
    for (unsigned left = number(0, 60); left != 0; --left)
        stage_.send_event(kAll, type(), number(sizeof(soak_event), BRI_PAYLOAD_MAX));
    later(10, 1500, [this, slow] { stage_.signal_host(slow, SIGCONT); });
}

// The server reads nothing of the host, which sends more than the socket and its cache take.
void Actions::fill_cache(unsigned host) {
    flooded_[host] = true;
    stage_.command("stall @h" + std::to_string(host));
    stage_.list(); // with which the stall has begun
    stage_.tell_host(host, "flood " + std::to_string(kFlood));
}

void Actions::full_cache() {
    const unsigned sender = host();
    if (flooded_[sender])
        return;
    fill_cache(sender);
    later(100, 1000, [this, sender] { stage_.command("resume @h" + std::to_string(sender)); });
}

// Switched off by 0, the client's timer would go on without a pause: the negative one ends it.
void Actions::delay() {
    const unsigned late = host();
    stage_.debug(late, "delay " + std::to_string(kDelaySeconds), kSwitchSize);
    delays_end_ = Clock::now() + Milliseconds(3000 * kDelaySeconds);
    later(50, 2500, [this, late] {
        if (chance(50))
            stage_.debug(late, "delay 0", kSwitchSize);
        stage_.debug(late, "delay -1", kSwitchSize);
        delays_end_ = Clock::now() + Milliseconds(1500 * kDelaySeconds);
    });
}

void Actions::kernel() {
    stage_.command("kernel down");
    later(50, 1500, [this] { stage_.command("kernel up"); });
}

void Actions::debugging() {
    static const char *const switches[] = {"vlan", "msg", "qinq", "vmap", "pvlan"};
    static const char *const shows[] = {"flags", "vlan", "mac", "cache", "swport", "delay"};
    const unsigned client = host();
    if (chance(70))
        stage_.debug(client, std::string(switches[number(0, 4)]) + (chance(50) ? " on" : " off"), kSwitchSize);
    else
        stage_.debug(client, std::string("show ") + shows[number(0, 5)], 0);
}

void Actions::drop_one() {
    listing();
    stage_.drop(static_cast<int>(host()));
}

void Actions::drop_all() {
    listing();
    stage_.drop(kAll);
}

void Actions::restart() {
    listing();
    stage_.command("restart 0." + std::to_string(number(0, 9)));
}

void Actions::kill() {
    if (chance(70))
        stage_.list(); // so that the books know what the server has written
    if (chance(50))
        burst();
    stage_.kill_server();
    stage_.run(Milliseconds(number(0, 500)));
    stage_.start_server();
}

} // namespace soak
