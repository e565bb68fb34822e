// Debug switches of this process, set by messages that the server forwards or by a marker file.
#include "shared/debug.h"

#include "base/counters.h"
#include "base/log.h"
#include "base/refused_jobs.h"
#include "base/runtime.h"
#include "base/shared_word.h"
#include "shared/delay_list.h"

#include <bridge/client.h>
#include <bridge/debug.h>
#include <bridge/events.h>
#include <bridge/mac_client.h>
#include <bridge/vlan_list.h>

#include <qv_thread.h>

#include <cstdio>
#include <cstring>
#include <iterator>
#include <unistd.h>

uint8_t g_bri_clnt_dbg[BRI_DBG_FLAGS];
bri_mac_filter g_bglib_mac_filter;

namespace bri::debug {

namespace {

constexpr size_t kValue = 4; // the second word of a payload is the value

// The client whose switches these are; null before bri_clnt_debug_init.
bri_clnt_ctx *g_client;

// Everything that bri_clnt_debug_all switches on. Some of these bytes are only read by other users of the array.
constexpr uint8_t kAllFlags[] = {0, 1, 2, 3, 4, 7, 11, 13, 15, 16, 17, 24, 25};

const char *on_off(bool on) {
    return on ? "ON" : "OFF";
}

int delay_job(void *arg);

void add_delay_timer(int32_t seconds) {
    qv_thread_add_timer_withname(g_client->master, delay_job, g_client, seconds, "msg-delay-timer");
}

// Runs on with whatever interval stands now, zero included.
int delay_job(void *) {
    refused_jobs::keep_flush_timer();
    const runtime::ReconnectAfterHandlers guard;
    delay::release();
    if (g_client != nullptr) // a start-up that failed has taken the record away
        add_delay_timer(delay::interval());
    return 0;
}

using Action = void (*)(Bytes payload);

[[nodiscard]] int32_t value_of(Bytes payload) {
    return load_at<int32_t>(payload, kValue);
}

bool set_flag(bri_debug_flag flag, Bytes payload) {
    const bool on = value_of(payload) != 0;
    word::store<uint8_t>(g_bri_clnt_dbg[flag], on ? 1 : 0);
    return on;
}

void set_vlan(Bytes payload) {
    const bool on = set_flag(BRI_DBG_VLAN, payload);
    BRI_LOG(log::kClient, "Client(%s) vlan-debug is %s.\n", g_client->name, on_off(on));
}

void set_qinq(Bytes payload) {
    const bool on = set_flag(BRI_DBG_QINQ, payload);
    BRI_LOG(log::kClient, "Client(%s) qinq-debug is %s.\n", g_client->name, on_off(on));
}

void set_vmap(Bytes payload) {
    const bool on = set_flag(BRI_DBG_VMAP, payload);
    BRI_LOG(log::kClient, "Client(%s) vmap-debug is %s.\n", g_client->name, on_off(on));
}

void set_pvlan(Bytes payload) {
    const bool on = set_flag(BRI_DBG_PVLAN, payload);
    BRI_LOG(log::kClient, "Client(%s) pvlan-debug is %s.\n", g_client->name, on_off(on));
}

// Its own line is under the flag itself, so it is only ever seen when messages are switched on.
void set_msg(Bytes payload) {
    const bool on = set_flag(BRI_DBG_MSG, payload);
    BRI_LOG(log::kClient, "Client(%s) msg-debug is %s.\n", g_client->name, on_off(on));
}

// Field by field, since a thread that sends may be reading it. One that reads meanwhile may see some of the new fields
// and some of the old.
void store_filter(const bri_mac_filter &filter) {
    bri_mac_filter &shared = g_bglib_mac_filter;
    word::store(shared.enable, filter.enable);
    word::store(shared.vid, filter.vid);
    word::store(shared.ifx, filter.ifx);
    for (size_t i = 0; i < sizeof filter.mac; ++i)
        word::store(shared.mac[i], filter.mac[i]);
    // Nobody reads these.
    shared.reserved1 = filter.reserved1;
    std::memcpy(shared.reserved2, filter.reserved2, sizeof shared.reserved2);
    std::memcpy(shared.reserved3, filter.reserved3, sizeof shared.reserved3);
}

void set_mac(Bytes payload) {
    const auto filter = load_as<bri_mac_filter>(payload.data);
    store_filter(filter);
    word::store(g_bri_clnt_dbg[BRI_DBG_MAC], filter.enable);
    BRI_LOG(log::kClient,
            "Client(%s) mac-debug is %s, filter section: mac(%02x%02x.%02x%02x.%02x%02x), vid(%u), ifx(%u).\n",
            g_client->name, on_off(filter.enable != 0), filter.mac[0], filter.mac[1], filter.mac[2], filter.mac[3],
            filter.mac[4], filter.mac[5], filter.vid, filter.ifx);
}

void set_delay(Bytes payload) {
    const int32_t before = delay::interval();
    const int32_t seconds = value_of(payload);
    delay::set_interval(seconds);
    BRI_LOG(log::kClient, "Client(%s) msg-delay %d second.\n", g_client->name, seconds);
    if (seconds > 0)
        add_delay_timer(seconds); // beside one that already runs
    else if (before > 0)
        delay::release();
}

void show_flags(Bytes) {
    if (g_bri_clnt_dbg[BRI_DBG_VLAN] != 0)
        BRI_LOG(log::kPrint, "  bridge client pid %d vlan debugging is on\n", log::number(g_client->pid));
    if (g_bri_clnt_dbg[BRI_DBG_MAC] != 0)
        BRI_LOG(log::kPrint, "  bridge client pid %d mac debugging is on\n", log::number(g_client->pid));
    if (g_bri_clnt_dbg[BRI_DBG_MSG] != 0)
        BRI_LOG(log::kPrint, "  bridge client pid %d msg debugging is on\n", log::number(g_client->pid));
}

void show_delay(Bytes) {
    const int32_t seconds = delay::interval();
    if (seconds == 0) {
        BRI_LOG(log::kPrint, " Bridge client pid %d event-delay is not set.\n", log::number(g_client->pid));
        return;
    }
    BRI_LOG(log::kPrint, " Bridge client[pid %d] event-delay timer: %d second.\n", log::number(g_client->pid), seconds);
    BRI_LOG(log::kPrint, " Delay-event number: %d.\n", log::number(g_bri_msg_delay_num));
}

// Other threads may be sending.
void show_cache(Bytes) {
    BRI_LOG(log::kPrint, " Bridge client[pid %d] cache-msg-flush timer: %d usecs\n", log::number(g_client->pid),
            runtime::kFlushPeriodUsec);
    BRI_LOG(log::kPrint, " Cache-msg number: %d\n", log::number(word::load(g_client->cache_cnt)));
    BRI_LOG(log::kPrint, " Cache-msg limit: %u\n", g_client->cache_max);
    BRI_LOG(log::kPrint, " Cache-msg drop: %u\n", word::load(g_client->cache_drop));
    BRI_LOG(log::kPrint, " Notify-data-sync-end: %s\n", g_client->data_synced != 0 ? "YES" : "NO");
}

void show_vlan(Bytes) {
    vl_clnt_show_vlan();
}
void show_mac_statistic(Bytes) {
    mac_client_show_statistic();
}
void show_swport(Bytes) {
    vl_clnt_show_swport();
}

struct Command {
    uint32_t type;
    uint32_t least; // payload bytes that the action reads
    Action action;
};

constexpr uint32_t kSwitch = 8; // a word that is not read, and the value
constexpr Command kCommands[] = {
    {DEBUG_EVENT_VLAN, kSwitch, set_vlan},   {DEBUG_EVENT_MAC, sizeof(bri_mac_filter), set_mac},
    {DEBUG_EVENT_MSG, kSwitch, set_msg},     {DEBUG_EVENT_QINQ, kSwitch, set_qinq},
    {DEBUG_EVENT_VMAP, kSwitch, set_vmap},   {DEBUG_EVENT_MSG_DELAY, kSwitch, set_delay},
    {DEBUG_EVENT_PVLAN, kSwitch, set_pvlan}, {DEBUG_EVENT_SHOW_FLAGS, 0, show_flags},
    {DEBUG_EVENT_SHOW_VLAN, 0, show_vlan},   {DEBUG_EVENT_SHOW_MAC_STATISTIC, 0, show_mac_statistic},
    {DEBUG_EVENT_SHOW_CACHE, 0, show_cache}, {DEBUG_EVENT_SHOW_SWPORT, 0, show_swport},
    {DEBUG_EVENT_SHOW_DELAY, 0, show_delay},
};

constexpr bool rising() {
    for (size_t row = 1; row < std::size(kCommands); ++row)
        if (kCommands[row - 1].type >= kCommands[row].type)
            return false;
    return true;
}
static_assert(rising(), "one row per debug command, in the order of their types");

void run(const Command &command, const Message &message) {
    if (message.payload.size >= command.least)
        return command.action(message.payload);
    counters::drop<counters::Drop::kShort>(message.type());
    BRI_LOG(log::kClient, "[%s] debug-msg[%x] is too short, len[%d], discarded.\n", g_client->name, command.type,
            log::number(message.header.len));
}

// Whether a field of the filter, if it is set, has this value.
template <class T> bool agrees(const T &field, T value) {
    const T wanted = word::load(field);
    return wanted == 0 || wanted == value;
}

bool mac_agrees(const uint8_t (&field)[6], const uint8_t (&mac)[6]) {
    bool any = true;
    bool same = true;
    for (size_t i = 0; i < sizeof field; ++i) {
        const uint8_t wanted = word::load(field[i]);
        any = any && wanted == 0;
        same = same && wanted == mac[i];
    }
    return any || same;
}

} // namespace

} // namespace bri::debug

using namespace bri;
using namespace bri::debug;

void bri::debug::forget(const bri_clnt_ctx *client) {
    if (g_client == client)
        g_client = nullptr;
}

void bri_clnt_debug_init(bri_clnt_ctx *client) {
    if (client == nullptr)
        return;
    std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg);
    bri::delay::clear();
    bri::debug::g_client = client;
    bri_clnt_debug_name_parse(client->name);
}

void bri_clnt_debug_name_parse(const char *name) {
    if (name == nullptr)
        return;
    char path[64];
    std::snprintf(path, sizeof path, "/data/bridge_client_%s", name);
    if (access(path, F_OK) == 0)
        bri_clnt_debug_all();
}

void bri_clnt_debug_all(void) {
    for (const uint8_t flag : bri::debug::kAllFlags)
        bri::word::store<uint8_t>(g_bri_clnt_dbg[flag], 1);
}

void bri::debug::on_message(const Message &message) {
    if (g_client == nullptr)
        return;
    for (const Command &command : kCommands)
        if (command.type == message.type())
            return run(command, message);
    counters::drop<counters::Drop::kUnknown>(message.type());
}

void bri_clnt_on_debug_msg(const bri_msg_hdr *msg) {
    if (msg != nullptr)
        debug::on_message(message_at(msg));
}

int bri_clnt_match_mac_dbg_filter(const bri_mac_entry *entry) {
    if (entry == nullptr)
        return 1;
    const bri_mac_filter &filter = g_bglib_mac_filter;
    return agrees(filter.vid, entry->bcast_id) && mac_agrees(filter.mac, entry->mac) && agrees(filter.ifx, entry->ifx)
               ? 1
               : 0;
}
