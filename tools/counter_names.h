// The library's counters by their names, for whatever shows them.
#pragma once

#include <bridge/counters.h>

#include <cstddef>

namespace tools {

struct CounterName {
    const char *name; // of the member
    uint64_t bri_counters::*member;
};

// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): a member's identifier is its name
#define COUNTER(member)                                                                                                \
    { #member, &bri_counters::member }
inline constexpr CounterName kCounterNames[] = {
    COUNTER(connections),         COUNTER(connect_failed),    COUNTER(reset_by_peer), COUNTER(reset_bad_frame),
    COUNTER(reset_timeout),       COUNTER(reset_error),       COUNTER(reset_asked),   COUNTER(batches_in),
    COUNTER(messages_in),         COUNTER(bytes_in),          COUNTER(batches_out),   COUNTER(messages_out),
    COUNTER(bytes_out),           COUNTER(events_handed_on),  COUNTER(dropped_slave), COUNTER(dropped_not_registered),
    COUNTER(dropped_before_data), COUNTER(dropped_stale),     COUNTER(dropped_short), COUNTER(dropped_unknown),
    COUNTER(messages_refused),    COUNTER(runs_cached),       COUNTER(runs_dropped),  COUNTER(cache_most),
    COUNTER(messages_delayed),    COUNTER(messages_released), COUNTER(lookups_done),  COUNTER(lookups_failed),
    COUNTER(lookups_timed_out),   COUNTER(lookup_longest),    COUNTER(jobs_refused)};
#undef COUNTER
static_assert(sizeof kCounterNames / sizeof *kCounterNames == sizeof(bri_counters) / sizeof(uint64_t),
              "every counter has its name");

} // namespace tools
