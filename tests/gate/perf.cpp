// Runs each path of the library so many times between two marks, at which callgrind or a plug-in of the emulator writes
// down the instructions that it has counted: see perf.sh and count_plugin.c. Prints "path runs" for each. What the
// kernel does is not counted, nor what prepares a run; the loop around the calls is, with 5 instructions or so. "perf
// library" is the library alone, "perf layer" the host layer's way of an event beside the bare one; "perf tools" prints
// what the counts depend on.
#include "bench/client.h"
#include "bench/tables.h"

#include <bridge/host.h>

#include <cstdio>
#include <gnu/libc-version.h>
#include <sys/prctl.h>
#include <valgrind/callgrind.h>

namespace {

using namespace bench;

constexpr uint32_t kPayload = 24;
constexpr uint32_t kMessages = 64;
constexpr uint32_t kRequests = 8; // whose largest fit into a batch
constexpr uint8_t kMac[6] = {0x02, 0x00, 0x5E, 0x10, 0x20, 0x30};
constexpr int32_t kPort = 2;

// A system call that does nothing, by its first argument: what the emulator's plug-in waits for.
constexpr int kMark = 0x62656E63;
void mark_begin() {
    prctl(kMark, 0);
    CALLGRIND_ZERO_STATS;
}
void mark_end(const char *path) {
    CALLGRIND_DUMP_STATS_AT(path);
    prctl(kMark, 1);
}

// The work runs once before it counts: the first time binds names and touches pages.
template <class Before, class Work, class After>
void count(const char *path, unsigned runs, Before before, Work work, After after) {
    for (const bool counted : {false, true}) {
        before();
        if (counted)
            mark_begin();
        work();
        if (counted)
            mark_end(path);
        need(after(), path);
    }
    std::printf("%s %u\n", path, runs);
}

void nothing() {}
bool drain_batch(uint32_t messages, uint32_t payload) {
    return drain(sizeof(bri_batch_hdr) + messages * (sizeof(bri_msg_hdr) + payload));
}

// --- messages

void append() {
    static const uint8_t payload[kPayload] = {};
    bridge_client_send_message(payload, sizeof payload, kEvent);
}

void count_sending() {
    count(
        "append", kMessages, nothing,
        [] {
            for (uint32_t index = 0; index < kMessages; ++index)
                append();
        },
        [] {
            flush();
            return drain_batch(kMessages, kPayload);
        });
    count("flush", 1, append, flush, [] { return drain_batch(1, kPayload); });
}

// Runs of 40 bytes that waited for the socket.
void count_drain() {
    constexpr uint32_t kRuns = 256;
    static const char filler[4096] = {};
    static char sink[65536];
    const auto empty_socket = [] {
        while (recv(g_far, sink, sizeof sink, MSG_DONTWAIT) > 0)
            ;
    };
    count(
        "drain", kRuns,
        [&] {
            while (send(g_near, filler, sizeof filler, MSG_DONTWAIT) > 0)
                ;
            for (uint32_t run = 0; run < kRuns; ++run) {
                append();
                flush();
            }
            need(g_bridge_client->cache_cnt == kRuns, "the cache");
            empty_socket();
        },
        flush,
        [&] {
            empty_socket();
            return g_bridge_client->cache_cnt == 0;
        });
}

void count_receiving(const char *path, uint32_t messages, unsigned handlers) {
    g_handled = 0;
    count(
        path, messages, [messages] { put(g_far, batch_of(messages, kPayload)); }, read_batch,
        [&] { return std::exchange(g_handled, 0) == uint64_t{messages} * handlers; });
}

void forget_handlers() {
    g_bridge_client->connected = 0;
    for (unsigned index = 0; index < 64; ++index) {
        event_set all; // a withdrawal writes to it
        std::memset(&all, 0xFF, sizeof all);
        bridge_client_unreg_event(&all, counting_handlers()[index]);
    }
    g_bridge_client->connected = 1;
}

void count_receiving() {
    handle_by(1, 1);
    count_receiving("receive", 1, 1);
    count_receiving("message_to_1", kMessages, 1);
    handle_by(8, 8);
    count_receiving("message_to_8", kMessages, 8);
    handle_by(64, 64);
    count_receiving("message_to_64", kMessages, 64);
    forget_handlers();
    handle_by(64, 1);
    count_receiving("message_to_1_of_64", kMessages, 1);
    forget_handlers();
}

// --- requests of each kind: built, logged by nobody, appended

struct Request {
    const char *path;
    void (*send)();
};

const vlanset kVlans = {{0xFE}};

constexpr Request kRequestRows[] = {
    {"request_mac", [] { bridge_maddr_add_static(kMac, 1, kPort); }},
    {"request_mac_vlanmap", [] { bridge_maddr_del_dyn_on_vlanmap(&kVlans, kPort, 0); }},
    {"request_vlan", [] { vl_clnt_create_vlan_entry(1); }},
    {"request_vlan_set", [] { vl_clnt_swport_add_allow_vlanset(kPort, &kVlans); }},
    {"request_port_state",
     [] {
         static const l2top_port_status_batch batch = {1, {}, {{kPort, 1, {}, 2, 0, 0, {}}}};
         bridge_set_port_fwd_status(&batch);
     }},
    {"request_mac_vlan", [] { mvlan_clnt_add_dyn_entry(kMac, 1); }},
};

// Urgent ones leave as they are sent, a batch each; the others in one.
bool drain_requests() {
    flush();
    uint32_t messages = 0;
    bri_batch_hdr header;
    while (exchange(recv(g_far, &header, sizeof header, MSG_DONTWAIT), sizeof header) && drain(header.msg_len))
        messages += header.msg_cnt;
    return messages == kRequests;
}

void count_requests() {
    for (const Request &request : kRequestRows)
        count(
            request.path, kRequests, nothing,
            [&] {
                for (uint32_t index = 0; index < kRequests; ++index)
                    request.send();
            },
            drain_requests);
}

// --- tables

template <class Ask> void count_questions(const char *path, Ask ask) {
    uint32_t sum = 0;
    count(
        path, kQuestions, nothing,
        [&] {
            for (unsigned number = 0; number < kQuestions; ++number)
                sum += static_cast<uint32_t>(ask(question(number)));
        },
        [&] { return sum != 0; });
}

void count_tables() {
    count_questions("member_test", [](const Question &asked) { return vl_is_vlan_member(asked.vid, asked.ifx); });
    count_questions("tag_rule", [](const Question &asked) { return swport_get_vlan_tag_rule(asked.ifx, asked.vid); });
}

int take(uint32_t, void *, uint16_t) {
    ++g_handled;
    return 0;
}

// Of all that the tables hold, to one handler.
void count_replay() {
    event_set all;
    std::memset(&all, 0xFF, sizeof all);
    handle(all, take);
    vl_clnt_notify_origin_data(); // brings the private versions up
    g_handled = 0;
    count("replay", 1, nothing, vl_clnt_notify_origin_data,
          [] { return std::exchange(g_handled, 0) >= BRI_PORT_SLOTS - 1; });
}

// --- an event from the dispatcher to the handler and back

constexpr uint32_t kEvents = 1000;

void on_record(const void *record, uint16_t, void *) {
    g_handled += static_cast<const vl_evt_intf_pvid_rec *>(record)->pvid;
}

int copy_record(uint32_t, void *data, uint16_t len) {
    vl_evt_intf_pvid_rec record;
    if (len < sizeof record)
        return 0;
    std::memcpy(&record, data, sizeof record);
    g_handled += record.pvid;
    return 0;
}

void count_events(const char *path, size_t offset) {
    alignas(8) static uint8_t bytes[64];
    const bri_msg_hdr header{kEvent, sizeof(vl_evt_intf_pvid_rec)};
    const vl_evt_intf_pvid_rec record{3, 1, 0};
    std::memcpy(bytes + offset, &header, sizeof header);
    std::memcpy(bytes + offset + sizeof header, &record, sizeof record);
    g_handled = 0;
    count(
        path, kEvents, nothing,
        [=] {
            for (uint32_t index = 0; index < kEvents; ++index)
                bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(bytes + offset));
        },
        [] { return std::exchange(g_handled, 0) == kEvents; });
}

void count_layer() {
    static const bridge_host_handler rows[] = {{kEvent, sizeof(vl_evt_intf_pvid_rec), on_record, nullptr}};
    handle(only(kEvent), copy_record);
    count_events("event_bare", 0);
    event_set all = only(kEvent);
    g_bridge_client->connected = 0; // so that nothing is sent
    bridge_client_unreg_event(&all, copy_record);
    bridge_host_config config{};
    config.size = sizeof config;
    config.handlers = rows;
    config.handler_count = 1;
    need(bridge_host_start(&config) == 0, "the layer");
    g_bridge_client->connected = 1;
    count_events("event_layer", 0);
    count_events("event_layer_odd", 1);
}

void count_library() {
    count_sending();
    count_receiving();
    fill_tables(BRI_VID_MAX, BRI_PORT_SLOTS - 1);
    count_requests();
    count_tables();
    count_replay();
    count_drain();
}

} // namespace

int main(int argc, char **argv) {
    const std::string what = argc == 2 ? argv[1] : "";
    if (what == "tools") {
        std::printf("compiler %s, C library %s\n", __VERSION__, gnu_get_libc_version());
        return EXIT_SUCCESS;
    }
    need(what == "library" || what == "layer", "the command line");
    need(connect_to_pair(), "the start");
    CALLGRIND_START_INSTRUMENTATION;
    (what == "layer" ? count_layer : count_library)();
    return EXIT_SUCCESS;
}
