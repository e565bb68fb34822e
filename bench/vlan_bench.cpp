// The origin-data replay of a full switch beside its plainest form and beside the floor: the same bytes read and
// written, nothing decided. Then the look-up with its re-search beside the bare one, and VLAN list text.
#include "bench/host.h"
#include "bench/ratios.h"
#include "tests/vlan/replay_reference.h"

#include <cstring>

namespace {

using namespace bench;

constexpr unsigned kVlans = 4094;
constexpr int32_t kPorts = 63;

uint64_t g_events;

int count_event(uint32_t, void *, uint16_t) {
    ++g_events;
    return 0;
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

bool start() {
    event_set all;
    std::memset(&all, 0xFF, sizeof all);
    if (!connect_to_pair() || !handle(all, count_event) || swport_get_raw_spcb(1) == nullptr)
        return false;
    fill_tables();
    return true;
}

template <class Fn> void measure(benchmark::State &state, Fn &&fn) {
    for (auto _ : state)
        fn();
}

void replay(benchmark::State &state) {
    measure(state, vl_clnt_notify_origin_data);
}
BENCHMARK(replay)->Unit(benchmark::kMicrosecond)->Apply(repeated);

void replay_reference(benchmark::State &state) {
    measure(state, reference::replay);
}
BENCHMARK(replay_reference)->Unit(benchmark::kMicrosecond)->Apply(repeated);

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
    measure(state, touch_the_bytes_of_a_replay);
}
BENCHMARK(replay_floor)->Unit(benchmark::kMicrosecond)->Apply(repeated);

void look_up_bare(benchmark::State &state) {
    uint16_t vid = 0;
    measure(state, [&] {
        vid = static_cast<uint16_t>(vid % kVlans + 1);
        benchmark::DoNotOptimize(vl_get_vlan_entry(vid));
    });
}
BENCHMARK(look_up_bare)->Apply(repeated);

void look_up_with_research(benchmark::State &state) {
    uint16_t vid = 0;
    measure(state, [&] {
        vid = static_cast<uint16_t>(vid % kVlans + 1);
        vle *entry = nullptr;
        vl_clnt_get_vle_from_vid(vid, &entry);
        benchmark::DoNotOptimize(entry);
    });
}
BENCHMARK(look_up_with_research)->Apply(repeated);

const char kList[] = "1-10,20,30-40,100-199,301,303,305,307,309,1000-1499,2001-2010,4000-4094";

void list_parse(benchmark::State &state) {
    vlanset set;
    char error[128];
    measure(state, [&] {
        vl_clnt_vlist_str_to_map(kList, &set, error, sizeof error);
        benchmark::DoNotOptimize(set);
    });
}
BENCHMARK(list_parse)->Apply(repeated);

void list_format(benchmark::State &state) {
    vlanset set;
    char error[128];
    char line[160];
    vl_clnt_vlist_str_to_map(kList, &set, error, sizeof error);
    measure(state, [&] {
        int next = 1;
        do {
            next = vl_clnt_vlist_vlan_line_format(line, &set, next, 20);
            benchmark::DoNotOptimize(line);
        } while (next != 0);
    });
}
BENCHMARK(list_format)->Apply(repeated);

constexpr Pair kPairs[] = {
    {"replay_reference", "replay", "wanted: 25 and more"},
    {"replay", "replay_floor", "wanted: 20 and less"},
    {"look_up_with_research", "look_up_bare"},
};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || !start())
        return EXIT_FAILURE;
    return run("Origin-data replay of 4094 VLANs and 63 ports, look-ups, VLAN list text", kPairs);
}
