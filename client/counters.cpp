// The library's counters, given to the host.
#include "base/counters.h"

#include <algorithm>
#include <cstring>

namespace bri::counters {

bri_counters g_loop;
Senders g_senders;

namespace {

bri_counters all() {
    bri_counters counters = g_loop;
    counters.batches_out = g_senders.batches.value();
    counters.messages_out = g_senders.messages.value();
    counters.bytes_out = g_senders.bytes.value();
    counters.messages_refused = word::load(g_senders.refused);
    counters.runs_cached = g_senders.cached.value();
    counters.runs_dropped = word::load(g_senders.dropped);
    counters.cache_most = word::load(g_senders.most_cached);
    return counters;
}

} // namespace

} // namespace bri::counters

size_t bridge_client_get_counters(bri_counters *out, size_t size) {
    if (out == nullptr)
        return 0;
    const bri_counters counters = bri::counters::all();
    const size_t known = std::min(size, sizeof counters);
    std::memset(out, 0, size);
    std::memcpy(out, &counters, known);
    return known;
}
