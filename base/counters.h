// What the library counts (include/bridge/counters.h). Figures of the loop's thread are plain; the senders' are counted
// under the send lock or one by one, and read by the loop's thread without the lock.
#pragma once

#include "base/probes.h"
#include "base/shared_word.h"

#include <bridge/counters.h>

namespace bri::counters {

// Every figure but those of Senders. client/counters.cpp, like the other one. Said to be hidden, a figure is counted by
// one instruction: where it lies need not be looked up.
[[gnu::visibility("hidden")]] extern bri_counters g_loop;

// Why an event or message goes no further.
enum class Drop { kSlave, kNotRegistered, kBeforeData, kStale, kShort, kUnknown };
inline constexpr uint64_t bri_counters::*kDrops[] = {
    &bri_counters::dropped_slave, &bri_counters::dropped_not_registered, &bri_counters::dropped_before_data,
    &bri_counters::dropped_stale, &bri_counters::dropped_short,          &bri_counters::dropped_unknown}; // by Drop

// Said to be inline, as compilers take a probe for longer than it is.
template <Drop kReason> [[gnu::always_inline]] inline void drop([[maybe_unused]] uint32_t type) {
    ++(g_loop.*kDrops[static_cast<size_t>(kReason)]);
    BRI_PROBE(dropped, static_cast<int>(kReason), type);
}

// A count beyond 32 bits that one thread at a time adds to and any other reads, on processors without a 64-bit atomic
// word. The upper half is written before and behind the lower one: a reader, who goes the other way, that meets two
// different halves has met the carry itself, and gives the value there. Nobody waits.
class Count {
  public:
    void add(uint32_t amount) {
        const uint32_t low = low_ + amount;
        const bool carried = low < amount;
        if (carried)
            word::store(before_, before_ + 1);
        __atomic_store_n(&low_, low, __ATOMIC_RELEASE);
        if (carried)
            __atomic_store_n(&behind_, before_, __ATOMIC_RELEASE);
    }

    [[nodiscard]] uint64_t value() const {
        const uint32_t behind = __atomic_load_n(&behind_, __ATOMIC_ACQUIRE);
        const uint32_t low = __atomic_load_n(&low_, __ATOMIC_ACQUIRE);
        const uint32_t before = word::load(before_);
        return (uint64_t{before} << 32) | (before == behind ? low : 0);
    }

  private:
    uint32_t before_ = 0;
    uint32_t low_ = 0;
    uint32_t behind_ = 0;
};

struct Senders {
    Count batches, messages, bytes, cached; // under the send lock
    uint32_t most_cached;                   // the same
    uint32_t dropped;                       // the same
    uint32_t refused;                       // any thread, by word::add
};
[[gnu::visibility("hidden")]] extern Senders g_senders;

} // namespace bri::counters
