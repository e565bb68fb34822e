// Event handlers of the host: registration, withdrawal, and the one way by which an event reaches them.
#include "base/bits.h"
#include "base/counters.h"
#include "base/list.h"
#include "base/log.h"
#include "base/runtime.h"
#include "base/text.h"
#include "client/state.h"

#include <bridge/bridge.h>

#include <cstdlib>

namespace bri::client {

namespace {

enum RegOp : uint8_t { kWithdraw = 0, kRegister = 1 };

// One handler of the host and the types it wants. There is one node per function; nodes stay for the life of the
// process, if need be with an empty set, so a walk survives whatever a handler does.
struct EventHandler {
    bri_list link;
    event_set set;
    bri_event_handler func;
};

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
    if (node != nullptr) {
        bits::merge(node->set.words, set.words, bits::kSetWords);
        return node;
    }
    node = static_cast<EventHandler *>(std::calloc(1, sizeof *node));
    if (node != nullptr) {
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

// Whether an event passes to the handlers at all: the process's role, its registered set, and the order of the start,
// in which only client management speaks before the backup data has ended.
bool admits(uint32_t type, unsigned bit) {
    if (g_state.slave != 0) {
        counters::drop<counters::Drop::kSlave>(type);
        return false;
    }
    if (bit >= bits::kSetBits || !bits::test(g_bridge_client->event_set.words, bit)) {
        counters::drop<counters::Drop::kNotRegistered>(type);
        BRI_LOG(log::kClient, "[%s] dose not care this event[%s, %d].\n", name(), bri_msg_type_name(type),
                static_cast<int>(type));
        return false;
    }
    if (g_state.sync_state != client::kSyncEnded && submod_of(type) != BRI_SUBMOD_CLNT_MNG) {
        counters::drop<counters::Drop::kBeforeData>(type);
        BRI_LOG(log::kClient, "[%s] data-sync is not end, ignored[%d].\n", name(), static_cast<int>(type));
        return false;
    }
    return true;
}

} // namespace

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

void bridge_call_event_handlers(uint32_t type, void *data, uint32_t len) {
    if (g_bridge_client == nullptr) {
        BRI_LOG(log::kClient, "Call event-handler failed: client is not init.\n");
        return;
    }
    const unsigned bit = type & 0xFFFF;
    if (!admits(type, bit))
        return;
    ++counters::g_loop.events_handed_on;
    BRI_PROBE(handed_on, type, len);
    // The bit is tested when the walk reaches a node: a type that an earlier handler withdrew is not delivered any
    // more, a handler that it registered is called.
    list::for_each<EventHandler>(g_bridge_client->handlers, [&](EventHandler &node) {
        if (!bits::test(node.set.words, bit) || node.func == nullptr)
            return;
        node.func(type, data, static_cast<uint16_t>(len));
        BRI_LOG(log::kClient, "[%s] event[%s, %d] is handled.\n", name(), bri_msg_type_name(type),
                static_cast<int>(type));
    });
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
    keep_unwanted(*set);
    bits::remove(g_bridge_client->event_set.words, set->words, bits::kSetWords);
    announce(*set, kWithdraw);
    BRI_LOG(log::kClient, "[%s] event-unreg SUCC.\n", name());
    return 0;
}
