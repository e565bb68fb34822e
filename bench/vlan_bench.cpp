// The origin-data replay of a full switch beside its plainest form and beside the floor: the same bytes read and
// written, nothing decided. Then the look-up with its re-search beside the bare one, and VLAN list text.
#include "base/list.h"
#include "client/state.h"
#include "tests/vlan/replay_reference.h"

#include <bridge/bridge.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/sem.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

constexpr unsigned kVlans = 4094;
constexpr int32_t kPorts = 63;

uint64_t g_events;

int count_event(uint32_t, void *, uint16_t) {
    ++g_events;
    return 0;
}

// Removes the segment and the semaphore of a key; the mappings live on until the process ends.
void remove_ipc(uint32_t base) {
    const auto key = static_cast<key_t>(base + static_cast<uint32_t>(getpid()));
    shmctl(shmget(key, 0, 0), IPC_RMID, nullptr);
    semctl(semget(key, 0, 0), 0, IPC_RMID);
}

// A host with a handler for every VLAN event, over tables of its own.
bool start() {
    static bri_clnt_ctx context;
    std::strcpy(context.name, "bench");
    for (bri_list *head : {&context.handlers, &context.conn_cbs, &context.oridata_cbs, &context.cache})
        bri::list::init(*head);
    g_bridge_client = &context;
    bri::client::g_state.sync_state = bri::client::kSyncEnded;
    setenv("VSDID", std::to_string(getpid()).c_str(), 1);
    const bool mapped = vl_clnt_manage_init(&context) != nullptr;
    remove_ipc(0x11110001);
    remove_ipc(0x22220001);
    event_set all;
    std::memset(&all, 0xFF, sizeof all);
    return mapped && bridge_client_reg_event(&all, count_event) == 0;
}

// Every VLAN with every port, ports of all the modes that tell a set of VLANs.
void fill_tables() {
    vl_set_vlan_range(1, kVlans);
    for (int32_t ifx = 1; ifx <= kPorts; ++ifx) {
        constexpr uint32_t kModes[] = {BRI_PORT_TRUNK, BRI_PORT_HYBRID, BRI_PORT_UPLINK};
        spcb &port = *swport_get_raw_spcb(ifx);
        port.ifx = static_cast<uint32_t>(ifx);
        port.mode = kModes[ifx % 3];
        port.default_vid = 1;
        std::memset(&port.tag_vlan, 0x5A, sizeof port.tag_vlan);
        std::memset(&port.allow_vlan, 0xFF, sizeof port.allow_vlan);
    }
    for (unsigned id = 1; id <= kVlans; ++id) {
        const auto vid = static_cast<uint16_t>(id);
        vl_initial_vlan_entry(vid, BRI_VLAN_STATIC);
        for (int32_t ifx = 1; ifx <= kPorts; ++ifx)
            vl_add_static_member(ifx, vid);
    }
    vl_clnt_notify_origin_data(); // brings the private versions up
}

bool ready() {
    static const bool once = start() && (fill_tables(), true);
    return once;
}

template <class Fn> void run(benchmark::State &state, Fn &&fn) {
    if (!ready()) {
        state.SkipWithError("no tables");
        return;
    }
    for (auto _ : state)
        fn();
}

void replay(benchmark::State &state) {
    run(state, vl_clnt_notify_origin_data);
}
BENCHMARK(replay)->Unit(benchmark::kMicrosecond);

void replay_reference(benchmark::State &state) {
    run(state, reference::replay);
}
BENCHMARK(replay_reference)->Unit(benchmark::kMicrosecond);

// Each VLAN's entry for the set and for its own step, each port's records, and for each port its bit in each entry.
void touch_the_bytes_of_a_replay() {
    static uint8_t out[8708];
    const vle *entries = g_vl_mng.entries;
    uint32_t sum = 0;
    for (int pass = 0; pass < 2; ++pass)
        for (unsigned vid = 1; vid <= kVlans; ++vid) {
            uint32_t words[sizeof(vle) / 4];
            std::memcpy(words, &entries[vid], sizeof words);
            for (const uint32_t word : words)
                sum += word;
        }
    std::memset(out, static_cast<int>(sum), sizeof out);
    benchmark::DoNotOptimize(out);
    for (int32_t ifx = 1; ifx <= kPorts; ++ifx) {
        const spcb &port = *swport_get_raw_spcb(ifx);
        std::memcpy(out, &port, 24);
        benchmark::DoNotOptimize(out);
        std::memcpy(out, &port.allow_vlan, sizeof port.allow_vlan);
        benchmark::DoNotOptimize(out);
        uint32_t bits = 0;
        for (unsigned vid = 1; vid <= kVlans; ++vid)
            bits += entries[vid].members[ifx / 32];
        std::memcpy(out, &port.tag_vlan, sizeof port.tag_vlan);
        std::memset(out + 512, static_cast<int>(bits), 524);
        benchmark::DoNotOptimize(out);
    }
}

void replay_floor(benchmark::State &state) {
    run(state, touch_the_bytes_of_a_replay);
}
BENCHMARK(replay_floor)->Unit(benchmark::kMicrosecond);

void look_up_bare(benchmark::State &state) {
    uint16_t vid = 0;
    run(state, [&] {
        vid = static_cast<uint16_t>(vid % kVlans + 1);
        benchmark::DoNotOptimize(vl_get_vlan_entry(vid));
    });
}
BENCHMARK(look_up_bare);

void look_up_with_research(benchmark::State &state) {
    uint16_t vid = 0;
    run(state, [&] {
        vid = static_cast<uint16_t>(vid % kVlans + 1);
        vle *entry = nullptr;
        vl_clnt_get_vle_from_vid(vid, &entry);
        benchmark::DoNotOptimize(entry);
    });
}
BENCHMARK(look_up_with_research);

const char kList[] = "1-10,20,30-40,100-199,301,303,305,307,309,1000-1499,2001-2010,4000-4094";

void list_parse(benchmark::State &state) {
    vlanset set;
    char error[128];
    run(state, [&] {
        vl_clnt_vlist_str_to_map(kList, &set, error, sizeof error);
        benchmark::DoNotOptimize(set);
    });
}
BENCHMARK(list_parse);

void list_format(benchmark::State &state) {
    vlanset set;
    char error[128];
    char line[160];
    if (ready())
        vl_clnt_vlist_str_to_map(kList, &set, error, sizeof error);
    run(state, [&] {
        int next = 1;
        do {
            next = vl_clnt_vlist_vlan_line_format(line, &set, next, 20);
            benchmark::DoNotOptimize(line);
        } while (next != 0);
    });
}
BENCHMARK(list_format);

} // namespace

BENCHMARK_MAIN();
