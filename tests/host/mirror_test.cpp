// Whatever happens to a switch, to the connection and to the daemon's role, a mirror that follows the layer equals the
// tables each time the layer says that it is in step. Random histories in virtual time, each in a process of its own; a
// failed one is cut down to what is needed for it. BRIDGE_TEST_SEED=N runs one.
#include "tests/host/mirror.h"
#include "tests/support/children.h"
#include "tests/support/kernel.h"
#include "tests/support/test.h"

#include <cstdio>
#include <random>

namespace {

using namespace test;

constexpr unsigned kSeeds = 1000;
constexpr unsigned kTogether = 25; // in one process: an emulator translates it once
static_assert(kSeeds / 10 % kTogether == 0);
constexpr size_t kOperations = 80;
constexpr long kSecond = 1000000; // in the loop's microseconds
constexpr int kPatience = 100;    // seconds, in which also a server that was given up is asked again

// Runs the doubles' jobs in the order of their times.
class VirtualTime {
  public:
    // What can run now: jobs that wait for nothing, and those with something to read.
    static void run_ready() {
        for (int rounds = 0; rounds < 1000; ++rounds)
            if (!run_event() && Loop::get().run_readable() == 0)
                return;
    }
    // Lets time pass. After each step of it, `between` runs.
    template <class Fn> void pass(long usec, Fn &&between) {
        const long end = now_ + usec;
        for (between(); now_ < end; between()) {
            now_ = std::min(end, now_ + kStep);
            while (const Job *job = next(now_))
                run(*job);
        }
    }

  private:
    static constexpr long kStep = 100000; // timers that are due within it run one behind the other

    static bool is_timer(const Job &job) {
        return job.kind == Job::Kind::kTimer || job.kind == Job::Kind::kTimerTimeval;
    }
    static bool run_event() {
        for (const Job &job : Loop::get().pending)
            if (job.kind == Job::Kind::kEvent) {
                run(job);
                return true;
            }
        return false;
    }
    static void run(const Job &job) {
        const Job copy = job;
        std::erase_if(Loop::get().pending, [&](const Job &other) { return other.id == copy.id; });
        copy.func(copy.arg);
    }
    // The timer that is due first, not behind `end`.
    const Job *next(long end) {
        const Job *first = nullptr;
        for (const Job &job : Loop::get().pending) {
            if (!is_timer(job))
                continue;
            const long due = due_.emplace(job.id, now_ + job.usec).first->second; // as of when it is first seen
            if (due <= end && (first == nullptr || due < due_[first->id]))
                first = &job;
        }
        return first;
    }

    std::map<int, long> due_; // by the job's number
    long now_ = 0;
};

struct Operation {
    unsigned kind;
    uint32_t a, b, c;
    bool busy; // the daemon does not run behind it
};

// One history, in a child.
class Life : public Env {
  public:
    Life() : mirror_(Loop::get().master(), [this](uint32_t submod) { in_step(submod); }) { vl_set_vlan_range(1, 4094); }
    void TestBody() override {}

    // What went wrong; empty: nothing.
    std::string run(const std::vector<Operation> &operations);

    struct Row;
    static const Row kRows[];
    static std::vector<Operation> draw(unsigned seed);
    static std::string text(const Operation &operation);

  private:
    void settle();
    void wait(long usec);
    void in_step(uint32_t submod);
    void check_calm();
    void end_well();
    void differs(const char *when, const Contents &expected);

    SwitchModel switch_;
    Kernel kernel_;
    VirtualTime time_;
    Mirror mirror_;
    std::string fault_;
};

struct Life::Row {
    const char *name;
    unsigned weight;
    void (*act)(Life &life, const Operation &drawn);
};

uint16_t vid_of(uint32_t number) {
    return static_cast<uint16_t>(1 + number % 24);
}
uint32_t ifx_of(uint32_t number) {
    return 1 + number % 5;
}
uint8_t mac_of(uint32_t number) {
    return static_cast<uint8_t>(1 + number % 12);
}
uint32_t mode_of(uint32_t number) {
    constexpr uint32_t kModes[] = {BRI_PORT_TRUNK, BRI_PORT_TRUNK, BRI_PORT_ACCESS, BRI_PORT_ROUTE};
    return kModes[number % std::size(kModes)];
}

const Life::Row Life::kRows[] = {
    {"create a VLAN", 8,
     [](Life &l, const Operation &o) { l.switch_.create_vlans(vid_of(o.a), vid_of(o.a)); }},
    {"create VLANs", 4,
     [](Life &l, const Operation &o) {
         l.switch_.create_vlans(vid_of(o.a), static_cast<uint16_t>(vid_of(o.a) + 1 + o.b % 6));
     }},
    {"delete a VLAN", 5, [](Life &l, const Operation &o) { l.switch_.delete_vlans(vid_of(o.a), vid_of(o.a)); }},
    {"delete VLANs", 2,
     [](Life &l, const Operation &o) {
         l.switch_.delete_vlans(vid_of(o.a), static_cast<uint16_t>(vid_of(o.a) + 1 + o.b % 9));
     }},
    {"add a port", 6,
     [](Life &l, const Operation &o) { l.switch_.add_port(ifx_of(o.a), mode_of(o.b), vid_of(o.c)); }},
    {"remove a port", 2, [](Life &l, const Operation &o) { l.switch_.remove_port(ifx_of(o.a)); }},
    {"change a mode", 3, [](Life &l, const Operation &o) { l.switch_.set_mode(ifx_of(o.a), mode_of(o.b)); }},
    {"change a native VLAN", 3, [](Life &l, const Operation &o) { l.switch_.set_pvid(ifx_of(o.a), vid_of(o.b)); }},
    {"join", 8, [](Life &l, const Operation &o) { l.switch_.join(ifx_of(o.a), vid_of(o.b)); }},
    {"leave", 3, [](Life &l, const Operation &o) { l.switch_.leave(ifx_of(o.a), vid_of(o.b)); }},
    {"learn", 10, [](Life &l, const Operation &o) { l.switch_.learn(mac_of(o.a), o.b); }},
    {"forget", 3, [](Life &l, const Operation &o) { l.switch_.forget(o.a); }},
    {"forget all", 1, [](Life &l, const Operation &) { l.switch_.forget_all(); }},
    {"let some out", 12, [](Life &l, const Operation &o) { l.switch_.let_out(1 + o.a % 6); }},
    {"let all out", 8, [](Life &l, const Operation &) { l.switch_.let_all_out(); }},
    {"wait", 10, [](Life &l, const Operation &o) { l.wait(static_cast<long>(o.a % 30) * kSecond / 10); }},
    {"wait long", 1, [](Life &l, const Operation &o) { l.wait(static_cast<long>(o.a % 20) * kSecond); }},
    {"drop", 4, [](Life &l, const Operation &) { l.switch_.drop(); }},
    {"stop listening", 2,
     [](Life &l, const Operation &) {
         l.switch_.drop();
         l.switch_.stop_listening();
     }},
    {"listen", 4, [](Life &l, const Operation &) { l.switch_.listen(); }},
    {"slave", 2, [](Life &l, const Operation &) { l.switch_.set_role(true); }},
    {"master", 3, [](Life &l, const Operation &) { l.switch_.set_role(false); }},
    {"slave for a moment", 2,
     [](Life &l, const Operation &o) {
         l.switch_.set_role(true);
         l.switch_.learn(mac_of(o.a), o.b);
         l.switch_.set_role(false);
     }},
    {"begin a switch-over", 2, [](Life &l, const Operation &) { l.switch_.begin_switchover(); }},
    {"end a switch-over", 3, [](Life &l, const Operation &) { l.switch_.end_switchover(); }},
    {"synchronise again", 2, [](Life &l, const Operation &) { l.switch_.synchronise_again(); }},
    {"hold the synchronisation", 2,
     [](Life &l, const Operation &) { l.switch_.hold_synchronisation(true); }},
    {"go on with it", 4,
     [](Life &l, const Operation &) {
         l.switch_.hold_synchronisation(false);
         l.switch_.go_on();
     }},
    {"lose a question", 1, [](Life &l, const Operation &o) { l.switch_.lose_questions(1 + o.a % 4); }},
    {"ask for everything", 2, [](Life &, const Operation &) { bridge_host_resync(); }},
    {"kernel without its module", 1, [](Life &l, const Operation &) { l.kernel_.family = 0; }},
    {"silent kernel", 1, [](Life &l, const Operation &) { l.kernel_.silent = true; }},
    {"kernel again", 3,
     [](Life &l, const Operation &) {
         l.kernel_.family = 27;
         l.kernel_.silent = false;
     }},
};

std::vector<Operation> Life::draw(unsigned seed) {
    std::mt19937 random(seed);
    const auto number = [&] { return static_cast<uint32_t>(random()); };
    unsigned weights = 0;
    for (const Row &row : kRows)
        weights += row.weight;
    std::vector<Operation> all;
    while (all.size() < kOperations) {
        unsigned at = number() % weights;
        unsigned kind = 0;
        for (; at >= kRows[kind].weight; ++kind)
            at -= kRows[kind].weight;
        const uint32_t a = number();
        const uint32_t b = number();
        const uint32_t c = number();
        all.push_back({kind, a, b, c, number() % 3 == 0});
    }
    return all;
}

std::string Life::text(const Operation &operation) {
    return std::string(kRows[operation.kind].name) + " " + std::to_string(operation.a % 1000) + " " +
           std::to_string(operation.b % 1000) + " " + std::to_string(operation.c % 1000) +
           (operation.busy ? " (busy)" : "");
}

void Life::differs(const char *when, const Contents &expected) {
    if (fault_.empty())
        fault_ = std::string(when) + "\n  is       " + expected.text() + "\n  mirrored " + mirror_.seen().text();
}

// Called by the mirror, in the middle of everything.
void Life::in_step(uint32_t submod) {
    if (submod == BRI_SUBMOD_VLAN && !mirror_.seen().same_tables(switch_.contents()))
        differs("VLANs and ports are said to be in step", switch_.contents());
    const auto is_seen = [&](const Contents &answer) { return answer.addresses == mirror_.seen().addresses; };
    if (submod == BRI_SUBMOD_MAC && !std::any_of(switch_.answered().begin(), switch_.answered().end(), is_seen))
        differs("addresses are said to be in step", switch_.answered().back());
}

// When everything that was told has arrived, in step means the present.
void Life::check_calm() {
    if (!mirror_.fault().empty() && fault_.empty())
        fault_ = mirror_.fault();
    if (!switch_.all_out())
        return;
    switch_.all_read();
    const Contents now = switch_.contents();
    if (bridge_host_in_step(BRI_SUBMOD_VLAN) == 1 && !mirror_.seen().same_tables(now))
        differs("VLANs and ports are in step", now);
    if (bridge_host_in_step(BRI_SUBMOD_MAC) == 1 && mirror_.seen().addresses != now.addresses)
        differs("addresses are in step", now);
}

void Life::settle() {
    switch_.serve();
    VirtualTime::run_ready();
    switch_.serve();
}

void Life::wait(long usec) {
    time_.pass(usec, [this] { settle(); });
}

// With nothing in the way any more it comes to be in step.
void Life::end_well() {
    kernel_.family = 27;
    kernel_.silent = false;
    switch_.listen();
    switch_.lose_questions(0);
    switch_.hold_synchronisation(false);
    switch_.go_on();
    switch_.set_role(false);
    const auto is_well = [this] {
        return switch_.all_out() && bridge_host_in_step(BRI_SUBMOD_VLAN) == 1 &&
               bridge_host_in_step(BRI_SUBMOD_MAC) == 1;
    };
    int well = 0; // seconds
    for (int second = 0; second < kPatience && well < 3 && fault_.empty(); ++second) {
        switch_.let_all_out();
        settle();
        check_calm();
        well = is_well() ? well + 1 : 0;
        wait(kSecond);
    }
    if (fault_.empty() && well == 0)
        fault_ = "does not come to be in step";
}

std::string Life::run(const std::vector<Operation> &operations) {
    kernel_.timeout_ms = 1;
    if (!mirror_.started())
        return "the layer does not start";
    for (const Operation &operation : operations) {
        kRows[operation.kind].act(*this, operation);
        if (!operation.busy) {
            settle();
            check_calm();
        }
        if (!fault_.empty())
            return fault_;
    }
    end_well();
    return fault_;
}

using History = std::vector<Operation>;

// The fault of histories that a child lives one behind the other; empty when there is none.
std::string fault_of(const std::vector<History> &histories) {
    struct Text {
        char bytes[8192];
    };
    SharedBlock<Text> told;
    const int status = wait_for(start_child([&] {
        Life life;
        std::string fault;
        for (size_t i = 0; i < histories.size() && fault.empty(); ++i)
            fault = life.run(histories[i]);
        std::snprintf(told->bytes, sizeof told->bytes, "%s", fault.c_str());
        return fault.empty() ? 0 : 1;
    }));
    if (WIFEXITED(status) && WEXITSTATUS(status) <= 1)
        return told->bytes;
    return "ended with status " + std::to_string(status);
}

// Leaves out ever smaller parts as long as there is a fault without them.
History cut_down(History operations) {
    for (size_t part = operations.size() / 2; part != 0; part /= 2)
        for (size_t from = 0; from < operations.size();) {
            History fewer = operations;
            const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(from);
            fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(part, fewer.size() - from)));
            if (fault_of({fewer}).empty())
                from += part;
            else
                operations = fewer;
        }
    return operations;
}

// True when the seed's history has no fault by itself.
bool live_alone(unsigned seed) {
    const History operations = Life::draw(seed);
    if (fault_of({operations}).empty())
        return true;
    const History needed = cut_down(operations);
    std::string all = "BRIDGE_TEST_SEED=" + std::to_string(seed) + ", cut down:\n";
    for (const Operation &operation : needed)
        all += "  " + Life::text(operation) + "\n";
    ADD_FAILURE() << all << fault_of({needed});
    return false;
}

// One daemon lives them one behind the other; alone those are lived where that was wrong.
void live(unsigned first, unsigned count) {
    std::vector<History> histories;
    for (unsigned seed = first; seed < first + count; ++seed)
        histories.push_back(Life::draw(seed));
    const std::string fault = fault_of(histories);
    if (fault.empty())
        return;
    for (unsigned seed = first; seed < first + count; ++seed)
        if (!live_alone(seed))
            return;
    ADD_FAILURE() << count << " histories one behind the other, from BRIDGE_TEST_SEED=" << first << " on:\n" << fault;
}

TEST(MirrorProperty, equals_the_tables_whenever_it_is_in_step) {
    if (const char *given = std::getenv("BRIDGE_TEST_SEED"); given != nullptr)
        return live(static_cast<unsigned>(std::strtoul(given, nullptr, 10)), 1);
    for (unsigned seed = 1; seed <= scaled_histories(kSeeds) && !HasFailure(); seed += kTogether)
        live(seed, kTogether);
}

} // namespace
