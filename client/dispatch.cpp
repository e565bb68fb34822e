// Dispatch: every message of the server finds its subsystem by one routing table; the client-management events change
// the process-wide role and synchronisation state here.
#include "base/counters.h"
#include "base/log.h"
#include "base/runtime.h"
#include "client/state.h"
#include "l2/messages.h"
#include "shared/debug.h"
#include "vlan/messages.h"

#include <bridge/bridge.h>

#include <iterator>

namespace bri::client {

namespace {

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
    bri_clnt_on_serv_stat_msg(message.payload.data);
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
    counters::drop<counters::Drop::kUnknown>(message.type());
    BRI_LOG(log::kClient, "Error mng-msg type(%s), discarded.\n", bri_msg_type_name(message.type()));
}

// Research ------------------------------------------------------------------------------------------------------------

void end_research() {
    BRI_LOG(log::kClient, "A msg over.\n");
    BRI_LOG(log::kClient, "\n");
    BRI_LOG(log::kClient, "\n");
}

void on_prejudge(const Message &message) {
    client::on_swport_prejudge(message.payload);
    end_research();
}

void on_ss_origin_mac(const Message &) {
    bri_clnt_call_ss_origin_mac_callback();
    end_research();
}

void on_other_research(const Message &message) {
    counters::drop<counters::Drop::kUnknown>(message.type());
    BRI_LOG(log::kClient, "Failed to parse research-msg from BRIDGE, type %s.\n", bri_msg_type_name(message.type()));
}

// Routing -------------------------------------------------------------------------------------------------------------

using Entry = void (*)(const Message &);

// The types that the runtime itself acts on. A message with fewer payload bytes than `least`, which are read on the
// way, is dropped.
struct TypeRoute {
    uint32_t type;
    uint32_t least;
    Entry entry;
};

template <class Row, size_t kCount> constexpr bool rising(const Row (&rows)[kCount], uint32_t Row::*key) {
    for (size_t row = 1; row < kCount; ++row)
        if (rows[row - 1].*key >= rows[row].*key)
            return false;
    return true;
}

template <size_t kCount> void route(const TypeRoute (&routes)[kCount], const Message &message, Entry rest) {
    for (const TypeRoute &row : routes) {
        if (row.type != message.type())
            continue;
        if (message.payload.size >= row.least)
            return row.entry(message);
        counters::drop<counters::Drop::kShort>(message.type());
        BRI_LOG(log::kClient, "[%s] msg is too short: type[%s, %d], len[%d], discarded.\n", name(),
                bri_msg_type_name(row.type), log::number(row.type), log::number(message.header.len));
        return;
    }
    rest(message);
}

constexpr TypeRoute kManagement[] = {
    {BRIDGE_EVENT_BKUP_DATA_BEGIN, 0, on_backup_begin},  {BRIDGE_EVENT_BKUP_DATA_END, 0, on_backup_end},
    {BRIDGE_EVENT_SYNC_DATA_END, 0, on_sync_end},        {BRIDGE_EVENT_ORI_DATA_REQUEST, 0, on_oridata_request},
    {BRIDGE_EVEVT_SERVER_STAT, 1, on_server_stat},       {BRIDGE_EVENT_SWITCHOVER_BEGIN, 0, on_switchover_begin},
    {BRIDGE_EVENT_SWITCHOVER_END, 0, on_switchover_end},
};
static_assert(rising(kManagement, &TypeRoute::type), "one row per type");

void on_management(const Message &message) {
    route(kManagement, message, on_other_management);
}

constexpr TypeRoute kResearch[] = {
    {RESEARCH_EVENT_SWPORT_PREJUDGE, 0, on_prejudge},
    {RESEARCH_EVENT_SS_ORIGIN_MAC, 0, on_ss_origin_mac},
};
static_assert(rising(kResearch, &TypeRoute::type), "one row per type");

void on_research(const Message &message) {
    route(kResearch, message, on_other_research);
}

// The other subsystems know their records' lengths themselves. A submodule without a row has no owner here.
struct Route {
    uint32_t submod;
    Entry entry;
};

constexpr Route kRoutes[] = {
    {BRI_SUBMOD_CLNT_MNG, on_management},  {BRI_SUBMOD_MAC, mac::on_message},
    {BRI_SUBMOD_VLAN, vlan::on_message},   {BRI_SUBMOD_MVLAN, mvlan::on_message},
    {BRI_SUBMOD_L2TOP, l2top::on_message}, {BRI_SUBMOD_VLAN_GROUP, groups::on_message},
    {BRI_SUBMOD_DEBUG, debug::on_message}, {BRI_SUBMOD_RESEARCH, on_research},
};

// The routes by their submodule's number.
constexpr size_t kSubmods = std::end(kRoutes)[-1].submod + 1;
struct EntryIndex {
    Entry of[kSubmods];
};

constexpr EntryIndex indexed() {
    EntryIndex index{};
    for (const Route &route : kRoutes)
        index.of[route.submod] = route.entry;
    return index;
}
constexpr EntryIndex kEntries = indexed();

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

void runtime::dispatch(const Message &message) {
    const uint32_t submod = submod_of(message.type());
    if (submod < kSubmods && kEntries.of[submod] != nullptr)
        return kEntries.of[submod](message);
    counters::drop<counters::Drop::kUnknown>(message.type());
    BRI_LOG(log::kClient, "[%s] error msg, module[%d], type[%d].\n", name(), log::number(submod),
            log::number(message.type()));
}

void bridge_client_msg_dspch(bri_msg_hdr *msg) {
    if (msg != nullptr)
        runtime::dispatch(message_at(msg));
}

void bri_clnt_on_serv_stat_msg(const void *payload) {
    if (payload == nullptr)
        return;
    g_state.slave = load_as<uint8_t>(payload);
    BRI_LOG(log::kClient, "[%s] receive serv-stat: [%s].\n", name(), g_state.slave == 0 ? "MASTER" : "SLAVE");
}
