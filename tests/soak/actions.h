// What happens in a soak, at random moments.
#pragma once

#include "tests/soak/stage.h"

#include <array>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace soak {

class Actions {
  public:
    Actions(Stage &stage, uint64_t seed) : stage_(stage), random_(seed) {}

    // Each of the heavy ones once, for every host, so that all memory that is ever needed has been asked for.
    void warm_up();
    // Random ones for that long, with connections that end in the middle.
    void run(Milliseconds time);
    // Undoes what still holds somebody up.
    void settle();

    // How often each thing was done.
    [[nodiscard]] const std::map<std::string, unsigned> &counts() const { return counts_; }

  private:
    struct Row;
    static const Row kRows[];
    static const Row kEnds[];

    void act(const Row *rows, size_t count);
    void later(unsigned from_ms, unsigned to_ms, std::function<void()> what);
    void run_due();
    unsigned number(unsigned from, unsigned to);
    bool chance(unsigned percent) { return number(1, 100) <= percent; }
    unsigned host() { return number(0, kHosts - 1); }
    uint32_t type();

    void event();
    void event_to_one();
    void burst();
    void large_events();
    void requests();
    void slave();
    void switchover();
    void stall();
    void stall_all();
    void slow_host();
    void full_cache();
    void delay();
    void kernel();
    void debugging();
    void listing() { stage_.ask_list(); }
    void drop_one();
    void drop_all();
    void restart();
    void kill();

    void fill_cache(unsigned host);

    struct Later {
        Clock::time_point when;
        std::function<void()> what;
    };
    Stage &stage_;
    std::mt19937_64 random_;
    std::vector<Later> later_;
    std::map<std::string, unsigned> counts_;
    std::array<bool, kHosts> flooded_{}; // until the next settling: sends nothing else, so that nothing else is dropped
    Clock::time_point delays_end_{};     // the last delay timer has fired for the last time
};

} // namespace soak
