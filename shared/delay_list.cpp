#include "shared/delay_list.h"

#include "base/counters.h"
#include "base/list.h"
#include "base/runtime.h"

#include <bridge/debug.h>

#include <cstdlib>
#include <cstring>

bri_list g_bri_msg_delay_list = {&g_bri_msg_delay_list, &g_bri_msg_delay_list};
uint32_t g_bri_msg_delay_num;

namespace bri::delay {

namespace {

constexpr uint32_t kMostWaiting = 256; // the message that makes this many releases them all

struct Node {
    bri_list links;
    bri_msg_hdr header; // its payload follows

    [[nodiscard]] Message message() { return message_at(&header); }
};

static_assert(sizeof(Node) == offsetof(Node, header) + sizeof(bri_msg_hdr), "the payload follows its header");

// The message that a running release is dispatching; null while none runs.
Node *g_releasing;

Node *copy_of(const Message &message) {
    auto *node = static_cast<Node *>(std::malloc(sizeof(Node) + message.payload.size));
    if (node == nullptr)
        return nullptr;
    node->header = message.header;
    if (message.payload.size != 0)
        std::memcpy(node + 1, message.payload.data, message.payload.size);
    return node;
}

[[nodiscard]] bool detached(const Node &node) {
    return node.links.next == &node.links;
}

// Dispatches first and takes the message out afterwards: handlers see it counted. False when a handler initialised
// debugging anew and so emptied the list under us.
bool deliver(Node &node) {
    g_releasing = &node;
    ++counters::g_loop.messages_released;
    runtime::dispatch(node.message());
    g_releasing = nullptr;
    const bool emptied = detached(node);
    if (!emptied) {
        list::unlink(node.links);
        --g_bri_msg_delay_num;
    }
    std::free(&node);
    return !emptied;
}

} // namespace

void set_interval(int32_t seconds) {
    std::memcpy(&g_bri_clnt_dbg[BRI_DBG_DELAY], &seconds, sizeof seconds);
}

bool take(const Message &message) {
    if (interval() <= 0 || submod_of(message.type()) == BRI_SUBMOD_DEBUG || message.payload.size > BRI_BATCH_MSG_MAX)
        return false;
    Node *node = copy_of(message);
    if (node == nullptr)
        return false;
    list::append(g_bri_msg_delay_list, node->links);
    ++counters::g_loop.messages_delayed;
    // More than that wait only when handlers delayed them inside a release, which is not entered again.
    if (++g_bri_msg_delay_num >= kMostWaiting)
        release();
    return true;
}

void release() {
    if (g_releasing != nullptr)
        return;
    // Only what waits now: a handler may cause further messages to be delayed, which wait for the next release.
    for (uint32_t left = g_bri_msg_delay_num; left != 0; --left) {
        auto *node = list::first<Node>(g_bri_msg_delay_list);
        if (node == nullptr || !deliver(*node))
            return;
    }
}

void clear() {
    while (auto *node = list::first<Node>(g_bri_msg_delay_list)) {
        list::unlink(node->links);
        if (node != g_releasing)
            std::free(node);
    }
    g_bri_msg_delay_num = 0;
}

} // namespace bri::delay

using namespace bri;
using namespace bri::delay;

int bri_clnt_msg_delay_process(const bri_msg_hdr *msg) {
    return msg != nullptr && delay::take(message_at(msg)) ? 1 : 0;
}
