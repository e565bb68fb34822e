// Dispatch: every message of the server finds its subsystem by one routing table; the client-management events change
// the process-wide role and synchronisation state here.
#include "base/bytes.h"
#include "base/log.h"
#include "client/state.h"

#include <bridge/bridge.h>

#include <algorithm>
#include <iterator>

namespace bri::client {

namespace {

// A received message. Messages in a batch are not aligned: the header is a copy, `start` is never read as a record.
struct Message {
    bri_msg_hdr header;
    uint8_t *start;

    [[nodiscard]] bri_msg_hdr *whole() const { return reinterpret_cast<bri_msg_hdr *>(start); }
    [[nodiscard]] uint8_t *payload() const { return start + sizeof(bri_msg_hdr); }
};

void call_handlers(uint32_t type) {
    bridge_call_event_handlers(type, nullptr, 0);
}

void run_oridata_once() {
    if (g_state.oridata_state < client::kOridataSent)
        client::run_requested_oridata();
}

// Client management ---------------------------------------------------------------------------------------------------

void on_backup_begin(const Message &) {
    g_state.sync_state = client::kSyncBegun;
    BRI_LOG(log::kClient, "[%s] receive data-sync BEGIN.", name());
    call_handlers(BRIDGE_EVENT_BKUP_DATA_BEGIN);
}

// Also completes a switch-over whose end came before the backup data was there.
void on_backup_end(const Message &) {
    g_state.sync_state = client::kSyncEnded;
    BRI_LOG(log::kClient, "[%s] receive data-sync END.", name());
    if (g_state.slave != 0) {
        BRI_LOG(log::kClient, "[%s] Slave ignor data-sync END notification.", name());
        return;
    }
    call_handlers(BRIDGE_EVENT_BKUP_DATA_END);
    run_oridata_once();
    if (g_state.switchover_state == client::kSwitchoverBegun) {
        g_state.switchover_state = client::kSwitchoverEnded;
        call_handlers(BRIDGE_EVENT_SWITCHOVER_END);
    }
}

// The server ends all of its data with one event; the host sees the begin and end of every submodule.
void on_sync_end(const Message &) {
    for (const uint32_t type :
         {BRIDGE_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END, MAC_EVENT_SYNC_DATA_BEGIN,
          MAC_EVENT_SYNC_DATA_END, L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_SYNC_DATA_END, BRIDGE_EVENT_SYNC_DATA_END})
        call_handlers(type);
    if (g_bridge_client != nullptr)
        g_bridge_client->data_synced = 1;
}

void on_oridata_request(const Message &) {
    BRI_LOG(log::kClient, "[%s] send oridata ...\n", name());
    if (g_bridge_client == nullptr) {
        BRI_LOG(log::kClient, "Bridge client send data-finish-evt failed: client is not init.\n");
        return;
    }
    client::run_callbacks(g_bridge_client->oridata_cbs);
    if (bridge_client_send_message(nullptr, 0, BRIDGE_EVENT_ORI_DATA_OVER) == 0)
        BRI_LOG(log::kClient, "[%s] send oridata OVER.\n", name());
    else
        BRI_LOG(log::kClient, "[%s] send data-finish-evt failed: send msg error.\n", name());
}

void on_server_stat(const Message &message) {
    bri_clnt_on_serv_stat_msg(message.payload());
}

void on_switchover_begin(const Message &) {
    BRI_LOG(log::kClient, "[%s] receive switch-over BEGIN, change to master.\n", name());
    g_state.slave = 0;
    g_state.switchover_state = client::kSwitchoverBegun;
    call_handlers(BRIDGE_EVENT_SWITCHOVER_BEGIN);
}

// Does not look at the role: a slave, too, runs its origin data here.
void on_switchover_end(const Message &) {
    BRI_LOG(log::kClient, "[%s] receive switch-over END.\n", name());
    if (g_state.sync_state != client::kSyncEnded) {
        BRI_LOG(log::kClient, "[%s] Switch-over END, but oridata is not ready.\n", name());
        return;
    }
    g_state.switchover_state = client::kSwitchoverEnded;
    call_handlers(BRIDGE_EVENT_SWITCHOVER_END);
    run_oridata_once();
}

void on_other_management(const Message &message) {
    BRI_LOG(log::kClient, "Error mng-msg type(%s), discarded.\n", bri_msg_type_name(message.header.type));
}

// Research ------------------------------------------------------------------------------------------------------------

void end_research() {
    BRI_LOG(log::kClient, "A msg over.\n");
    BRI_LOG(log::kClient, "\n");
    BRI_LOG(log::kClient, "\n");
}

void on_swport_prejudge(const Message &message) {
    bri_clnt_call_swport_prejudge_callback(message.payload());
    end_research();
}

void on_ss_origin_mac(const Message &) {
    bri_clnt_call_ss_origin_mac_callback();
    end_research();
}

void on_other_research(const Message &message) {
    BRI_LOG(log::kClient, "Failed to parse research-msg from BRIDGE, type %s.\n",
            bri_msg_type_name(message.header.type));
}

// Routing -------------------------------------------------------------------------------------------------------------

// Where messages go. A row is for one type, or (type 0 in it) for what else comes from its submodule; `least` is the
// number of payload bytes that are read on the way, so a shorter message is dropped. The entries of the other
// subsystems see the whole message and know their records' lengths themselves.
struct Route {
    uint32_t submod;
    uint32_t type;
    uint32_t least;
    void (*handle)(const Message &);
};

constexpr uint32_t kRest = 0;
// The request of a pre-judgement is laid out between the server and the host's callback, which gets no length. It
// names at least a port.
constexpr uint32_t kPrejudgeLeast = sizeof(uint32_t);

constexpr Route kRoutes[] = {
    {BRI_SUBMOD_CLNT_MNG, BRIDGE_EVENT_BKUP_DATA_BEGIN, 0, on_backup_begin},
    {BRI_SUBMOD_CLNT_MNG, BRIDGE_EVENT_BKUP_DATA_END, 0, on_backup_end},
    {BRI_SUBMOD_CLNT_MNG, BRIDGE_EVENT_SYNC_DATA_END, 0, on_sync_end},
    {BRI_SUBMOD_CLNT_MNG, BRIDGE_EVENT_ORI_DATA_REQUEST, 0, on_oridata_request},
    {BRI_SUBMOD_CLNT_MNG, BRIDGE_EVEVT_SERVER_STAT, 1, on_server_stat},
    {BRI_SUBMOD_CLNT_MNG, BRIDGE_EVENT_SWITCHOVER_BEGIN, 0, on_switchover_begin},
    {BRI_SUBMOD_CLNT_MNG, BRIDGE_EVENT_SWITCHOVER_END, 0, on_switchover_end},
    {BRI_SUBMOD_CLNT_MNG, kRest, 0, on_other_management},
    {BRI_SUBMOD_MAC, kRest, 0, [](const Message &message) { mac_client_on_server_msg(message.whole()); }},
    {BRI_SUBMOD_VLAN, kRest, 0, [](const Message &message) { vl_clnt_on_server_msg(message.whole()); }},
    {BRI_SUBMOD_MVLAN, kRest, 0, [](const Message &message) { bridge_mvlan_lib_dispose_msg(message.whole()); }},
    {BRI_SUBMOD_L2TOP, kRest, 0, [](const Message &message) { bri_clnt_on_l2topo_msg(message.whole()); }},
    {BRI_SUBMOD_VLAN_GROUP, kRest, 0,
     [](const Message &message) { bridge_vlan_group_lib_dispose_msg(message.whole()); }},
    {BRI_SUBMOD_DEBUG, kRest, 0, [](const Message &message) { bri_clnt_on_debug_msg(message.whole()); }},
    {BRI_SUBMOD_RESEARCH, RESEARCH_EVENT_SWPORT_PREJUDGE, kPrejudgeLeast, on_swport_prejudge},
    {BRI_SUBMOD_RESEARCH, RESEARCH_EVENT_SS_ORIGIN_MAC, 0, on_ss_origin_mac},
    {BRI_SUBMOD_RESEARCH, kRest, 0, on_other_research},
};

constexpr bool ordered() {
    return std::is_sorted(std::begin(kRoutes), std::end(kRoutes), [](const Route &a, const Route &b) {
        // The row for the rest of a submodule is its last one.
        const auto rank = [](const Route &route) { return route.type == kRest ? UINT32_MAX : route.type; };
        return a.submod != b.submod ? a.submod < b.submod : rank(a) < rank(b);
    });
}
constexpr bool in_own_submodule(const Route &route) {
    return route.type == kRest || route.type >> 7 == route.submod;
}
static_assert(ordered(), "routes rise by submodule and type, each submodule's rest last");
static_assert(std::all_of(std::begin(kRoutes), std::end(kRoutes), in_own_submodule));

const Route *route_of(uint32_t type) {
    for (const Route &route : kRoutes)
        if (route.submod == type >> 7 && (route.type == type || route.type == kRest))
            return &route;
    return nullptr;
}

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

void bridge_client_msg_dspch(bri_msg_hdr *msg) {
    if (msg == nullptr)
        return;
    const Message message{load_as<bri_msg_hdr>(msg), reinterpret_cast<uint8_t *>(msg)};
    const uint32_t type = message.header.type;
    const Route *route = route_of(type);
    if (route == nullptr)
        BRI_LOG(log::kClient, "[%s] error msg, module[%d], type[%d].\n", name(), static_cast<int>(type >> 7),
                static_cast<int>(type));
    else if (message.header.len < route->least)
        BRI_LOG(log::kClient, "[%s] msg is too short: type[%s, %d], len[%d], discarded.\n", name(),
                bri_msg_type_name(type), static_cast<int>(type), static_cast<int>(message.header.len));
    else
        route->handle(message);
}

void bri_clnt_on_serv_stat_msg(const void *payload) {
    if (payload == nullptr)
        return;
    g_state.slave = load_as<uint8_t>(payload);
    BRI_LOG(log::kClient, "[%s] receive serv-stat: [%s].\n", name(), g_state.slave == 0 ? "MASTER" : "SLAVE");
}
