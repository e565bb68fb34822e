// Business callbacks: the host decides on what the server asks.
#include "base/bits.h"
#include "base/log.h"
#include "client/state.h"

#include <bridge/bridge.h>

namespace bri::client {

namespace {

bool set_callback(uint32_t type, bri_business_callback fn) {
    if (!can_set_callbacks())
        return false;
    if (type >= BRI_BUSINESS_TYPES) {
        BRI_LOG(log::kClient, "[%s] set business-callbk failed: invalid type %d.\n", name(), static_cast<int>(type));
        return false;
    }
    if (fn == nullptr) {
        BRI_LOG(log::kClient, "[%s] set business-callbk failed: callbk NULL.\n", name());
        return false;
    }
    g_state.business[type] = fn;
    return true;
}

// What the server asks of a connected host comes here too, by no exported name: a static link leaves that out.
[[gnu::noinline]] int ask_host(uint32_t type, void *arg1, void *arg2) {
    if (g_bridge_client == nullptr)
        return -1;
    if (type >= BRI_BUSINESS_TYPES) {
        BRI_LOG(log::kClient, "[%s] call business-callbk failed: invalid type %d.\n", name(), static_cast<int>(type));
        return -1;
    }
    if (g_state.business[type] == nullptr) {
        BRI_LOG(log::kClient, "[%s] call business-callbk is not reg,type %d.\n", name(), static_cast<int>(type));
        return -1;
    }
    if (g_state.business[type](arg1, arg2) < 0) {
        BRI_LOG(log::kClient, "[%s] call business-callbk process failed.\n", name());
        return -1;
    }
    BRI_LOG(log::kClient, "[%s] call business-callbk process success.\n", name());
    return 0;
}

// Answers a research message past the batch; a failed one too, so that the server never waits.
void answer(uint32_t type, const void *data, uint32_t len) {
    bridge_client_send_message_ontime(data, len, type);
}
void answer_failed() {
    answer(RESEARCH_EVENT_FAILED, nullptr, 0);
}
void refuse_prejudge() {
    answer_failed();
    BRI_LOG(log::kClient, "SWPORT-IS-ALLOW Callback func failed.\n");
}

// The request is laid out between the server and the host's callback, which gets no length. It names at least a port.
constexpr size_t kPrejudgeLeast = sizeof(uint32_t);

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

void bridge_agent_set_business_callback(uint32_t type, bri_business_callback fn) {
    set_callback(type, fn);
}

int bridge_agent_call_business_callback(uint32_t type, void *arg1, void *arg2) {
    return ask_host(type, arg1, arg2);
}

void bri_clnt_reg_swport_prejudge_callback(bri_business_callback fn) {
    if (set_callback(BRI_BUSINESS_SWPORT_PREJUDGE, fn))
        bits::set(g_bridge_client->event_set.words, RESEARCH_EVENT_SWPORT_PREJUDGE);
}

void bri_clnt_reg_ss_origin_mac_callback(bri_business_callback fn) {
    set_callback(BRI_BUSINESS_SS_ORIGIN_MAC, fn);
}

void client::on_swport_prejudge(MutableBytes request) {
    if (request.size >= kPrejudgeLeast)
        bri_clnt_call_swport_prejudge_callback(request.data);
    else if (g_bridge_client != nullptr)
        refuse_prejudge();
}

void bri_clnt_call_swport_prejudge_callback(void *request) {
    if (g_bridge_client == nullptr || request == nullptr)
        return;
    bri_swport_prejudge_reply reply{};
    reply.is_allow = 1;
    if (ask_host(BRI_BUSINESS_SWPORT_PREJUDGE, request, &reply) == 0) {
        BRI_LOG(log::kClient, "SWPORT-IS-ALLOW Callback func SUCC,is_allow %d.\n", static_cast<int>(reply.is_allow));
        answer(RESEARCH_EVENT_SWPORT_PREJUDGE, &reply, sizeof reply);
    } else {
        refuse_prejudge();
    }
}

void bri_clnt_call_ss_origin_mac_callback() {
    if (g_bridge_client == nullptr)
        return;
    uint32_t total = 0;
    if (ask_host(BRI_BUSINESS_SS_ORIGIN_MAC, nullptr, &total) == 0) {
        BRI_LOG(log::kClient, "SS-ORIGIN-MAC Callback func SUCC, total num(%u).\n", total);
        answer(RESEARCH_EVENT_SS_ORIGIN_MAC, &total, sizeof total);
    } else {
        answer_failed();
        BRI_LOG(log::kClient, "SS-ORIGIN-MAC Callback func failed.\n");
    }
}
