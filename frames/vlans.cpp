#include "frames/vlans.h"

#include <algorithm>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <utility>

namespace frames {

using namespace sandbox;

namespace {

struct Run {
    uint16_t first;
    uint16_t last;
};

// Neighbours that are alike are one run.
template <class Alike> std::vector<Run> runs_of(const vlanset &vlans, Alike &&alike) {
    std::vector<Run> runs;
    for_each_vlan(vlans, [&](uint16_t vid) {
        if (!runs.empty() && runs.back().last + 1 == vid && alike(runs.back().last, vid))
            runs.back().last = vid;
        else
            runs.push_back({vid, vid});
    });
    return runs;
}

uint16_t flags_of(const PortVlans &vlans, uint16_t vid) {
    return static_cast<uint16_t>((holds(vlans.untagged, vid) ? BRIDGE_VLAN_INFO_UNTAGGED : 0) |
                                 (vlans.pvid == vid ? BRIDGE_VLAN_INFO_PVID : 0));
}

void put_info(Request &request, uint16_t flags, uint16_t vid) {
    request.put(IFLA_BRIDGE_VLAN_INFO, bytes_of(bridge_vlan_info{flags, vid}));
}

void put_run(Request &request, const Run &run, uint16_t flags) {
    const bool one = run.first == run.last;
    put_info(request, one ? flags : flags | BRIDGE_VLAN_INFO_RANGE_BEGIN, run.first);
    if (!one)
        put_info(request, flags | BRIDGE_VLAN_INFO_RANGE_END, run.last);
}

// As many messages as the runs take; `put` puts one, of at most two attributes.
template <class Start, class Put> Requests messages_of(const std::vector<Run> &runs, Start &&start, Put &&put) {
    Requests requests;
    for (size_t at = 0; at < runs.size();)
        requests.push_back(start([&](Request &request) {
            for (; at < runs.size() && request.has_room(8, sizeof(bridge_vlan_info)); ++at)
                put(request, runs[at]);
        }));
    return requests;
}

Requests change(uint16_t type, uint32_t link, Side side, const std::vector<Run> &runs, const PortVlans &how) {
    const auto start = [&](const auto &fill) {
        ifinfomsg head{};
        head.ifi_family = AF_BRIDGE;
        head.ifi_index = static_cast<int>(link);
        return Request(type, NLM_F_ACK, head).nest(IFLA_AF_SPEC, [&](Request &spec) {
            if (side == Side::kBridge)
                spec.put(IFLA_BRIDGE_FLAGS, uint16_t{BRIDGE_FLAGS_SELF});
            fill(spec);
        });
    };
    return messages_of(runs, start,
                       [&](Request &spec, const Run &run) { put_run(spec, run, flags_of(how, run.first)); });
}

void take_range(PortVlans &vlans, const Run &run, uint16_t flags, bool there) {
    for (uint32_t vid = run.first; vid <= run.last && vid <= BRI_VID_MAX; ++vid) {
        vlans.members = without(vlans.members, only(vid));
        vlans.untagged = without(vlans.untagged, only(vid));
        vlans.pvid = vlans.pvid == vid ? uint16_t{0} : vlans.pvid;
        if (!there)
            continue;
        put(vlans.members, vid);
        if ((flags & BRIDGE_VLAN_INFO_UNTAGGED) != 0)
            put(vlans.untagged, vid);
        if ((flags & BRIDGE_VLAN_INFO_PVID) != 0)
            vlans.pvid = static_cast<uint16_t>(vid);
    }
}

} // namespace

bool PortVlans::operator==(const PortVlans &other) const {
    return std::ranges::equal(members.words, other.members.words) &&
           std::ranges::equal(untagged.words, other.untagged.words) && pvid == other.pvid;
}

PortVlans vlans_of(Bytes af_spec) {
    PortVlans vlans;
    uint16_t first = 0; // of the range that has begun
    for_each_attribute(af_spec, [&](uint16_t type, Bytes data) {
        if (type != IFLA_BRIDGE_VLAN_INFO)
            return;
        const auto info = object_of<bridge_vlan_info>(data);
        if ((info.flags & BRIDGE_VLAN_INFO_RANGE_BEGIN) != 0) {
            first = info.vid;
            return;
        }
        const bool ends = (info.flags & BRIDGE_VLAN_INFO_RANGE_END) != 0 && first != 0;
        take_range(vlans, {ends ? std::exchange(first, uint16_t{0}) : info.vid, info.vid}, info.flags, true);
    });
    return vlans;
}

void take_vlans(const Notice &notice, PortVlans &vlans, VlanStates &states) {
    notice.for_each<br_vlan_msg>([&](uint16_t type, Bytes entry) {
        if (type != BRIDGE_VLANDB_ENTRY)
            return;
        bridge_vlan_info info{};
        uint16_t last = 0;
        uint8_t state = BR_STATE_FORWARDING;
        for_each_attribute(entry, [&](uint16_t part, Bytes data) {
            if (part == BRIDGE_VLANDB_ENTRY_INFO)
                info = object_of<bridge_vlan_info>(data);
            else if (part == BRIDGE_VLANDB_ENTRY_RANGE)
                last = object_of<uint16_t>(data);
            else if (part == BRIDGE_VLANDB_ENTRY_STATE)
                state = object_of<uint8_t>(data);
        });
        const Run run{info.vid, std::max(info.vid, last)};
        take_range(vlans, run, info.flags, notice.type == RTM_NEWVLAN);
        for (uint32_t vid = run.first; vid <= run.last && vid < states.size(); ++vid)
            states[vid] = state;
    });
}

Requests vlan_requests(uint32_t link, Side side, const PortVlans &have, const PortVlans &want) {
    const auto alike_in = [](const PortVlans &vlans) {
        return [&vlans](uint16_t left, uint16_t right) { return flags_of(vlans, left) == flags_of(vlans, right); };
    };
    const vlanset gone = without(have.members, want.members);
    const vlanset changed = those_of(want.members, [&](uint16_t vid) {
        return !holds(have.members, vid) || flags_of(have, vid) != flags_of(want, vid);
    });
    const PortVlans none;
    Requests requests = change(RTM_DELLINK, link, side, runs_of(gone, alike_in(none)), none);
    // The kernel takes a native VLAN by itself alone.
    Requests more = change(RTM_SETLINK, link, side, runs_of(changed, alike_in(want)), want);
    std::move(more.begin(), more.end(), std::back_inserter(requests));
    return requests;
}

Requests state_requests(uint32_t link, const vlanset &vlans, const VlanStates &have, const VlanStates &want) {
    const auto start = [&](const auto &fill) {
        br_vlan_msg head{};
        head.family = AF_BRIDGE;
        head.ifindex = link;
        Request request(RTM_NEWVLAN, NLM_F_ACK, head);
        fill(request);
        return request;
    };
    const auto put_state = [&](Request &request, const Run &run) {
        request.nest(BRIDGE_VLANDB_ENTRY, [&](Request &entry) {
            entry.put(BRIDGE_VLANDB_ENTRY_INFO, bytes_of(bridge_vlan_info{BRIDGE_VLAN_INFO_ONLY_OPTS, run.first}));
            if (run.last != run.first)
                entry.put(BRIDGE_VLANDB_ENTRY_RANGE, run.last);
            entry.put(BRIDGE_VLANDB_ENTRY_STATE, want[run.first]);
        });
    };
    const vlanset changed = those_of(vlans, [&](uint16_t vid) { return have[vid] != want[vid]; });
    return messages_of(runs_of(changed, [&](uint16_t left, uint16_t right) { return want[left] == want[right]; }),
                       start, put_state);
}

Request list_vlans() {
    br_vlan_msg head{};
    head.family = AF_BRIDGE;
    return Request(RTM_GETVLAN, NLM_F_DUMP, head);
}

} // namespace frames
