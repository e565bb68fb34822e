// The origin-data replay beside its plainest form and beside the floor: the same bytes read and written, nothing
// decided. Then the look-up with its re-search, and VLAN list text.
#include "bench/client.h"
#include "bench/measure.h"
#include "bench/tables.h"
#include "tests/vlan/replay_reference.h"

namespace bench {
namespace {

// `size` is VLANs with 63 ports; kPortsOnly more than that is ports of all VLANs.
constexpr unsigned kPortsOnly = 10000;
constexpr unsigned kPorts = BRI_PORT_SLOTS - 1;

struct Extent {
    unsigned vlans, ports;
};
Extent extent_of(unsigned size) {
    if (size == 0)
        return {BRI_VID_MAX, kPorts};
    return size > kPortsOnly ? Extent{BRI_VID_MAX, size - kPortsOnly} : Extent{size, kPorts};
}

Extent start(unsigned size) {
    need(connect_to_pair(), "the start");
    const Extent extent = extent_of(size);
    fill_tables(extent.vlans, extent.ports);
    event_set all;
    std::memset(&all, 0xFF, sizeof all);
    need(handle(all, counting_handler<0>), "the handler");
    vl_clnt_notify_origin_data(); // brings the private versions up
    need(g_handled != 0, "the replay");
    return extent;
}

double replay(unsigned size) {
    start(size);
    return per_call(1, vl_clnt_notify_origin_data);
}

double replay_literal(unsigned size) {
    start(size);
    return per_call(1, reference::replay);
}

// Each VLAN's entry for the set and for its own step, each port's records, and for each port its bit in each entry.
void touch_the_bytes_of_a_replay(const Extent &extent) {
    static uint8_t out[8708];
    const vle *entries = g_records.vlans;
    uint32_t sum = 0;
    for (int pass = 0; pass < 2; ++pass)
        for (unsigned vid = 1; vid <= extent.vlans; ++vid) {
            uint32_t words[sizeof(vle) / 4];
            std::memcpy(words, &entries[vid], sizeof words);
            for (const uint32_t word : words)
                sum += word;
        }
    std::memset(out, static_cast<int>(sum), sizeof out);
    keep(out);
    for (unsigned ifx = 1; ifx <= extent.ports; ++ifx) {
        const spcb &port = g_records.ports[ifx];
        std::memcpy(out, &port, 24);
        keep(out);
        std::memcpy(out, &port.allow_vlan, sizeof port.allow_vlan);
        keep(out);
        uint32_t bits = 0;
        for (unsigned vid = 1; vid <= extent.vlans; ++vid)
            bits += entries[vid].members[ifx / 32];
        std::memcpy(out, &port.tag_vlan, sizeof port.tag_vlan);
        std::memset(out + 512, static_cast<int>(bits), 524);
        keep(out);
    }
}

double replay_floor(unsigned size) {
    const Extent extent = start(size);
    return per_call(1, [&] { touch_the_bytes_of_a_replay(extent); });
}

template <class LookUp> double look_up(LookUp look_up_one) {
    start(0);
    uint16_t vid = 0;
    return per_call(1, [&] {
        vid = static_cast<uint16_t>(vid % BRI_VID_MAX + 1);
        keep(look_up_one(vid));
    });
}
double entry(unsigned) {
    return look_up(vl_get_vlan_entry);
}
double entry_with_research(unsigned) {
    return look_up([](uint16_t vid) {
        vle *found = nullptr;
        vl_clnt_get_vle_from_vid(vid, &found);
        return found;
    });
}

const char kList[] = "1-10,20,30-40,100-199,301,303,305,307,309,1000-1499,2001-2010,4000-4094";

double list_parse(unsigned) {
    vlanset set;
    char error[128];
    return per_call(1, [&] {
        vl_clnt_vlist_str_to_map(kList, &set, error, sizeof error);
        keep(set);
    });
}

double list_format(unsigned) {
    vlanset set;
    char error[128];
    char line[160];
    vl_clnt_vlist_str_to_map(kList, &set, error, sizeof error);
    return per_call(1, [&] {
        int next = 1;
        do {
            next = vl_clnt_vlist_vlan_line_format(line, &set, next, 20);
            keep(line);
        } while (next != 0);
    });
}

constexpr Measurement kMeasurements[] = {
    {"replay", replay},
    {"replay_literal", replay_literal},
    {"replay_floor", replay_floor},
    {"entry", entry},
    {"entry_with_research", entry_with_research},
    {"list_parse", list_parse},
    {"list_format", list_format},
};

} // namespace

std::span<const Measurement> replays() {
    return kMeasurements;
}

} // namespace bench
