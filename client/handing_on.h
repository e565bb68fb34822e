// The road of an event to the host's handlers, which is part of the road of every message: whether it passes, and the
// walk over those who want it. Event-loop thread. handlers.cpp has the rest.
#pragma once

#include "base/bits.h"
#include "base/counters.h"
#include "base/log.h"
#include "base/message.h"
#include "client/state.h"

#include <bridge/services.h>

namespace bri::client {

// One handler of the host and the types it wants. There is one node per function; nodes stay for the life of the
// process, if need be with an empty set, so a walk survives whatever a handler does.
struct EventHandler {
    bri_list link;
    event_set set;
    bri_event_handler func;
};

extern unsigned g_nodes;

constexpr unsigned kWorthIt = 8; // nodes: fewer are walked as fast as found by the index of types

// Lines of the road of every event stand in functions of their own, for which the road itself saves no registers.
[[gnu::cold]] void drop_unregistered(uint32_t type);
[[gnu::cold]] void drop_early(uint32_t type);
[[gnu::cold]] void log_handled(uint32_t type);

// Calls those of a list who want the event, from `link` on. The bit is tested when the walk reaches a node: a type that
// an earlier handler withdrew is not delivered any more, a handler that it registered is called.
void call_from(const bri_list *link, const bri_list &handlers, const Message &event);

// The same for all of the list, without a look at those who do not want the event.
void call_wanting(const bri_list &handlers, const Message &event);

[[nodiscard]] inline unsigned bit_of(uint32_t type) {
    return type & 0xFFFF;
}

// Whether an event passes to the handlers at all: the process's role, its registered set, and the order of the start,
// in which only client management speaks before the backup data has ended.
[[nodiscard, gnu::always_inline]] inline bool admits(const bri_clnt_ctx &ctx, uint32_t type) {
    const unsigned bit = bit_of(type);
    if (g_state.slave != 0) {
        counters::drop<counters::Drop::kSlave>(type);
        return false;
    }
    if (bit >= bits::kSetBits || !bits::test(ctx.event_set.words, bit)) {
        drop_unregistered(type);
        return false;
    }
    if (g_state.sync_state != kSyncEnded && submod_of(type) != BRI_SUBMOD_CLNT_MNG) {
        drop_early(type);
        return false;
    }
    return true;
}

[[gnu::always_inline]] inline void call(const EventHandler &node, uint32_t type, void *data, uint32_t len) {
    node.func(type, data, static_cast<uint16_t>(len));
    if (log::kClient.on())
        log_handled(type);
}

// Hands an event to the handlers, if it passes. The first one who wants it is called from here: mostly there is no
// other, and the road saves nothing for the way back from a walk.
[[gnu::always_inline]] inline void call_handlers(const bri_clnt_ctx &ctx, uint32_t type, const Message &event) {
    if (!admits(ctx, type))
        return;
    ++counters::g_loop.events_handed_on;
    BRI_PROBE(handed_on, type, event.header.len);
    if (g_nodes > kWorthIt)
        return call_wanting(ctx.handlers, event);
    for (const bri_list *link = ctx.handlers.next; link != &ctx.handlers; link = link->next) {
        const auto &node = *reinterpret_cast<const EventHandler *>(link);
        if (!bits::test(node.set.words, bit_of(type)))
            continue;
        call(node, type, event.payload.data, event.header.len);
        if (link->next != &ctx.handlers) [[unlikely]]
            call_from(link->next, ctx.handlers, event);
        return;
    }
}

} // namespace bri::client
