// Origin data: the host asks to go through its data again, or the server asks for it. A request before the backup data
// has ended, or of a slave, is kept and run later, once per request cycle.
#include "client/origin_data.h"

#include "base/bits.h"
#include "base/log.h"
#include "base/runtime.h"
#include "base/text.h"
#include "client/state.h"
#include "l2/replay.h"
#include "vlan/replay.h"

#include <bridge/bridge.h>

namespace bri::client {

namespace {

constexpr unsigned kAllBit = 20; // of oridata_req_set: every submodule's data

char g_name[20]; // the client name in the lines of this file

// This client is a collector: its own data is replayed only when it asks.
constexpr const char *kSilentClient = "SS";

void call_handlers(uint32_t type) {
    bridge_call_event_handlers(type, nullptr, 0);
}

void ask_server(uint32_t submod) {
    bridge_client_send_message(&submod, sizeof submod, BRIDGE_EVENT_ORI_DATA_REQUEST);
}

void replay_vlan() {
    call_handlers(VLAN_EVENT_SYNC_DATA_BEGIN);
    vlan::replay();
    call_handlers(VLAN_EVENT_SYNC_DATA_END);
}

void replay_l2_topology() {
    call_handlers(L2TOP_EVENT_SYNC_DATA_BEGIN);
    l2top::replay();
    call_handlers(L2TOP_EVENT_SYNC_DATA_END);
}

void replay_all() {
    const runtime::ReplayLevel level;
    if (!level.ok())
        return;
    BRI_LOG(log::kClient, "[%s] notifying request-oridata ...\n", g_name);
    call_handlers(BRIDGE_EVENT_SYNC_DATA_BEGIN);
    replay_vlan();
    ask_server(BRI_SUBMOD_MAC);
    replay_l2_topology();
    call_handlers(BRIDGE_EVENT_SYNC_DATA_END);
    g_bridge_client->data_synced = 1;
}

void replay_one(void (*replay)()) {
    const runtime::ReplayLevel level;
    if (level.ok())
        replay();
}

bool can_replay_now() {
    return g_state.sync_state == client::kSyncEnded && g_state.slave == 0;
}

void keep_request(unsigned bit) {
    g_state.oridata_req_set |= bits::mask_of(bit);
}

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

uint32_t client::g_submod_data_state;

void client::run_requested_oridata() {
    if (g_bridge_client == nullptr)
        return;
    if (g_state.oridata_req_set == 0 && std::strcmp(g_bridge_client->name, kSilentClient) != 0)
        keep_request(kAllBit);
    if (bits::test(&g_state.oridata_req_set, kAllBit))
        bridge_client_notify_all_oridata();
    else
        bits::for_each(&g_state.oridata_req_set, 0, kAllBit, bridge_client_notify_submod_oridata);
    g_state.oridata_req_set = 0;
    g_state.oridata_state = kOridataSent;
}

void bridge_client_request_oridata() {
    if (g_bridge_client == nullptr)
        return;
    BRI_LOG(log::kClient, "[%s] request oridata ...\n", g_name);
    g_state.oridata_state = client::kOridataRequested;
    if (can_replay_now()) {
        bridge_client_notify_all_oridata();
        g_state.oridata_state = client::kOridataSent;
    } else {
        keep_request(kAllBit);
        BRI_LOG(log::kClient, "[%s] request oridata, but oridata is not ready.\n", g_name);
    }
}

void bridge_client_request_submod_oridata(uint32_t submod) {
    if (g_bridge_client == nullptr)
        return;
    BRI_LOG(log::kClient, "[%s] request [%s] oridata ...\n", g_name, bri_submod_name(submod));
    g_state.oridata_state = client::kOridataRequested;
    if (can_replay_now()) {
        bridge_client_notify_submod_oridata(submod);
        g_state.oridata_state = client::kOridataSent;
    } else {
        keep_request(submod);
    }
}

void bridge_client_notify_all_oridata() {
    if (g_bridge_client != nullptr)
        replay_all();
}

void bridge_client_notify_submod_oridata(uint32_t submod) {
    if (g_bridge_client == nullptr)
        return;
    if (submod == BRI_SUBMOD_VLAN) {
        replay_one(replay_vlan);
    } else if (submod == BRI_SUBMOD_L2TOP) {
        replay_one(replay_l2_topology);
    } else {
        ask_server(submod);
        BRI_LOG(log::kClient, "[%s] request [%s]data from server.\n", g_name, bri_submod_name(submod));
    }
}

void bridge_submod_set_data_state(uint32_t submod, uint32_t flag) {
    const uint32_t mask = bits::mask_of(submod);
    if (flag != 0)
        client::g_submod_data_state |= mask;
    else
        client::g_submod_data_state &= ~mask;
}

void bridge_dspch_client_init(const char *name) {
    if (name != nullptr)
        copy_text(g_name, name);
}
