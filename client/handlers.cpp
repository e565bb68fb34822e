// Event handlers of the host: registration, withdrawal, and the one way by which an event reaches them.
#include "base/apart.h"
#include "base/list.h"
#include "base/runtime.h"
#include "base/text.h"
#include "client/handing_on.h"

#include <bridge/bridge.h>

#include <cstdlib>

namespace bri::client {

namespace {

enum RegOp : uint8_t { kWithdraw = 0, kRegister = 1 };

// A type that few of many handlers want is not looked for in all of them each time: here are those who want it, in
// their order. Found out when the type first comes behind a change of any set; a type that more want has kMany of them.
constexpr unsigned kFew = 3;
constexpr unsigned kMany = kFew + 1;
struct Wanting {
    uint32_t generation;
    uint16_t bit;
    uint16_t count;
    EventHandler *nodes[kFew];
};

constexpr unsigned kTypesKept = 128;
BRI_APART Wanting g_wanting[kTypesKept];
uint32_t g_generation = 1; // of all sets

[[gnu::noinline]] void find_wanting(Wanting &wanting, unsigned bit) {
    wanting = {g_generation, static_cast<uint16_t>(bit), 0, {}};
    list::for_each<EventHandler>(g_bridge_client->handlers, [&](EventHandler &node) {
        if (!bits::test(node.set.words, bit) || wanting.count == kMany)
            return;
        if (wanting.count < kFew)
            wanting.nodes[wanting.count] = &node;
        ++wanting.count;
    });
}

// The groups of types are spread so that those of the busy ones share no place.
const Wanting &wanting_of(unsigned bit) {
    Wanting &wanting = g_wanting[(bit + (bit >> 7) * 37) % kTypesKept];
    if (wanting.generation != g_generation || wanting.bit != bit)
        find_wanting(wanting, bit);
    return wanting;
}

EventHandler *find(bri_event_handler handler) {
    EventHandler *found = nullptr;
    list::for_each<EventHandler>(g_bridge_client->handlers, [&](EventHandler &node) {
        if (found == nullptr && node.func == handler)
            found = &node;
    });
    return found;
}

// The node of the handler with the types added to it; null when memory is short.
EventHandler *add_to_node(const event_set &set, bri_event_handler handler) {
    EventHandler *node = find(handler);
    ++g_generation;
    if (node != nullptr) {
        bits::merge(node->set.words, set.words, bits::kSetWords);
        return node;
    }
    node = static_cast<EventHandler *>(std::calloc(1, sizeof *node));
    if (node != nullptr) {
        ++g_nodes;
        node->set = set;
        node->func = handler;
        list::append(g_bridge_client->handlers, node->link);
    }
    return node;
}

// Takes out of `set` what some handler still wants.
void keep_unwanted(event_set &set) {
    list::for_each<EventHandler>(g_bridge_client->handlers,
                                 [&](EventHandler &node) { bits::remove(set.words, node.set.words, bits::kSetWords); });
}

// Tells the server of a change; before the connection stands nothing goes out, since the full registration that
// follows it carries the whole set.
void announce(const event_set &set, RegOp op) {
    if (g_bridge_client->connected == 0)
        return;
    bri_reg_msg message{};
    message.event_set = set;
    message.op = op;
    bridge_client_send_message(&message, sizeof message, BRIDGE_EVENT_REG_MSG);
}

[[gnu::cold, gnu::noinline]] void log_not_init() {
    BRI_LOG(log::kClient, "Call event-handler failed: client is not init.\n");
}

} // namespace

unsigned g_nodes;

void drop_unregistered(uint32_t type) {
    counters::drop<counters::Drop::kNotRegistered>(type);
    BRI_LOG(log::kClient, "[%s] dose not care this event[%s, %d].\n", name(), bri_msg_type_name(type),
            static_cast<int>(type));
}

void drop_early(uint32_t type) {
    counters::drop<counters::Drop::kBeforeData>(type);
    BRI_LOG(log::kClient, "[%s] data-sync is not end, ignored[%d].\n", name(), static_cast<int>(type));
}

void log_handled(uint32_t type) {
    BRI_LOG(log::kClient, "[%s] event[%s, %d] is handled.\n", name(), bri_msg_type_name(type), static_cast<int>(type));
}

[[gnu::noinline]] void call_from(const bri_list *link, const bri_list &handlers, const Message &event) {
    const uint32_t type = event.type();
    void *const data = event.payload.data;
    const uint32_t len = event.header.len;
    for (; link != &handlers; link = link->next) {
        const auto &node = *reinterpret_cast<const EventHandler *>(link);
        if (bits::test(node.set.words, bit_of(type)))
            call(node, type, data, len);
    }
}

// Behind a handler that changed any set, or raised an event that took the place in the index, the walk goes on from
// that handler.
void call_wanting(const bri_list &handlers, const Message &event) {
    const Wanting &wanting = wanting_of(bit_of(event.type()));
    if (wanting.count == kMany)
        return call_from(handlers.next, handlers, event);
    const uint32_t generation = g_generation;
    for (unsigned index = 0; index < wanting.count; ++index) {
        const EventHandler &node = *wanting.nodes[index];
        call(node, event.type(), event.payload.data, event.header.len);
        if (g_generation != generation || wanting.bit != bit_of(event.type()))
            return call_from(node.link.next, handlers, event);
    }
}

} // namespace bri::client

using namespace bri;
using namespace bri::client;

void client::send_full_registration() {
    if (g_bridge_client == nullptr) {
        BRI_LOG(log::kClient, "Bridge client send reg-evt failed: client is not init.\n");
        return;
    }
    bri_clnt_ctx &ctx = *g_bridge_client;
    bri_reg_msg message{};
    message.event_set = ctx.event_set;
    message.op = kRegister;
    message.pid = ctx.pid;
    copy_text(message.name, ctx.name);
    message.fresh = ctx.fresh;
    ctx.fresh = 0;
    if (bridge_client_send_message(&message, sizeof message, BRIDGE_EVENT_REG_MSG) == 0)
        BRI_LOG(log::kClient, "[%s] send reg-evt SUCC, Client name(%s), pid(%d).\n", name(), message.name,
                static_cast<int>(ctx.pid));
    else
        BRI_LOG(log::kClient, "[%s] send reg-evt failed: send msg error.\n", name());
}

// Out of line for those of the library who call it, all of them seldom.
[[gnu::noinline]] void bridge_call_event_handlers(uint32_t type, void *data, uint32_t len) {
    if (g_bridge_client == nullptr) {
        log_not_init();
        return;
    }
    call_handlers(*g_bridge_client, type, {{type, len}, {static_cast<uint8_t *>(data), len}});
}

void runtime::hand_on(const Message &message) {
    bridge_call_event_handlers(message.type(), message.payload.data, message.header.len);
}

int bridge_client_reg_event(const event_set *set, bri_event_handler handler) {
    if (g_bridge_client == nullptr) {
        BRI_LOG(log::kClient, "Client reg event failed: client is not ready.\n");
        return -1;
    }
    if (set == nullptr || handler == nullptr) {
        BRI_LOG(log::kClient, "Client reg event failed: invalid param\n");
        return -1;
    }
    if (add_to_node(*set, handler) == nullptr) {
        BRI_LOG(log::kClient, "[%s] reg event failed: no memory.\n", name());
        return -1;
    }
    bits::merge(g_bridge_client->event_set.words, set->words, bits::kSetWords);
    announce(*set, kRegister);
    BRI_LOG(log::kClient, "[%s] event-reg add SUCC: handler [%p].\n", name(), reinterpret_cast<void *>(handler));
    return 0;
}

int bridge_client_unreg_event(event_set *set, bri_event_handler handler) {
    if (g_bridge_client == nullptr) {
        BRI_LOG(log::kClient, "Client unreg event failed: client is not ready.\n");
        return -1;
    }
    if (set == nullptr || handler == nullptr) {
        BRI_LOG(log::kClient, "Client unreg event failed: invalid set or handler.\n");
        return -1;
    }
    if (EventHandler *node = find(handler); node != nullptr)
        bits::remove(node->set.words, set->words, bits::kSetWords);
    ++g_generation;
    keep_unwanted(*set);
    bits::remove(g_bridge_client->event_set.words, set->words, bits::kSetWords);
    announce(*set, kWithdraw);
    BRI_LOG(log::kClient, "[%s] event-unreg SUCC.\n", name());
    return 0;
}
