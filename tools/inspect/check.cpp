#include "tools/inspect/check.h"

#include "tools/inspect/tables.h"
#include "wire/value.h"

#include <bridge/protocol_registry.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>
#include <unordered_set>

namespace inspect {

namespace {

constexpr auto kSecondLook = std::chrono::milliseconds(50);
using wire::Ids;
using wire::ids_in;
using wire::ids_text;
using wire::kGroupSegment;
using wire::kPortSegment;
using wire::kVlanSegment;

using Findings = std::vector<Json>;

void add(Findings &findings, const char *table, const std::string &text) {
    findings.push_back({{"finding", text}, {"table", table}});
}

std::string number(uint64_t value) {
    return std::to_string(value);
}

// ---- ports

void check_port(const spcb &port, unsigned index, Findings &findings) {
    const std::string who = "port " + number(index);
    if (port.ifx == 0)
        return;
    if (port.ifx != index)
        add(findings, "ports", who + " holds the interface index " + number(port.ifx));
    if (index == 0)
        add(findings, "ports", "port 0 is in use");
    if (port.mode > BRI_PORT_HYBRID)
        add(findings, "ports", who + " has the unknown mode " + number(port.mode));
    if (port.default_vid > BRI_VID_MAX)
        add(findings, "ports", who + " has the native VLAN " + number(port.default_vid));
}

void check_ports(const bri_portdb &ports, Findings &findings) {
    for (unsigned index = 0; index <= kLastPort; ++index)
        check_port(ports.ports[index], index, findings);
}

// ---- VLANs

bool live(const bri_vlandb &vlans, unsigned vid) {
    return vid <= BRI_VID_MAX && vlans.vlans[vid].vid != 0;
}

bool known_mode(uint32_t mode) {
    return mode == BRI_VLAN_STATIC || mode == BRI_VLAN_DYNAMIC || mode == BRI_VLAN_SUPER;
}

void check_manage_vlan(const bri_vlandb &vlans, unsigned vid, Findings &findings) {
    const vle &entry = vlans.vlans[vid];
    const unsigned manager = entry.manage_vid;
    const std::string who = "VLAN " + number(vid);
    if (manager == vid)
        return;
    if (entry.mode != BRI_VLAN_SUPER)
        add(findings, "vlans", who + " belongs to VLAN " + number(manager) + " without being a sub-VLAN");
    else if (!live(vlans, manager))
        add(findings, "vlans", who + " belongs to VLAN " + number(manager) + ", which does not exist");
    else if (vlans.vlans[manager].mode != BRI_VLAN_SUPER)
        add(findings, "vlans", who + " belongs to VLAN " + number(manager) + ", which is no super VLAN");
}

void check_vlan(const bri_vlandb &vlans, unsigned vid, Findings &findings) {
    const vle &entry = vlans.vlans[vid];
    const std::string who = "VLAN " + number(vid);
    if (entry.vid != vid)
        add(findings, "vlans", who + " holds the id " + number(entry.vid));
    if (vid < BRI_VID_MIN || vid < vlans.stat.min_vid || vid > vlans.stat.max_vid)
        add(findings, "vlans",
            who + " exists outside the limits " + number(vlans.stat.min_vid) + ".." + number(vlans.stat.max_vid));
    if (entry.version == 0)
        add(findings, "vlans", who + " has the version 0");
    if (!known_mode(entry.mode))
        add(findings, "vlans", who + " has the unknown mode " + number(entry.mode));
    if (std::find(std::begin(entry.name), std::end(entry.name), '\0') == std::end(entry.name))
        add(findings, "vlans", who + " has a name without an end");
    check_manage_vlan(vlans, vid, findings);
}

// Member bits against the ports that are there; `ports` is null when that cannot be told.
void check_members(const vle &entry, unsigned vid, const bri_portdb *ports, Findings &findings) {
    if ((entry.members[0] & 1) != 0)
        add(findings, "vlans", "VLAN " + number(vid) + " has the member 0, which no port can be");
    if (ports == nullptr)
        return;
    Ids absent;
    for (const unsigned ifx : ids_in(entry.members, 1, kLastPort))
        if (ports->ports[ifx].ifx == 0)
            absent.push_back(ifx);
    if (!absent.empty())
        add(findings, "vlans", "VLAN " + number(vid) + " has absent ports as members: " + ids_text(absent));
}

void check_svis(const bri_vlandb &vlans, Findings &findings) {
    std::map<uint32_t, Ids> owners;
    int32_t count = 0;
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid)
        if (live(vlans, vid) && vlans.vlans[vid].svi_ifx != 0) {
            owners[vlans.vlans[vid].svi_ifx].push_back(vid);
            ++count;
        }
    for (const auto &[svi, vids] : owners)
        if (vids.size() > 1)
            add(findings, "vlans", "SVI " + number(svi) + " belongs to several VLANs: " + ids_text(vids));
    if (count != vlans.stat.cur_svi_num)
        add(findings, "vlans",
            std::to_string(count) + " VLANs have an SVI, but the statistics count " +
                std::to_string(vlans.stat.cur_svi_num));
}

void check_vlans(const bri_vlandb &vlans, const bri_portdb *ports, Findings &findings) {
    const vl_stat &stat = vlans.stat;
    if (stat.min_vid < BRI_VID_MIN || stat.max_vid > BRI_VID_MAX || stat.min_vid > stat.max_vid)
        add(findings, "vlans",
            "the limits " + number(stat.min_vid) + ".." + number(stat.max_vid) + " do not lie within 1..4094");
    int32_t count = 0;
    for (unsigned vid = 0; vid <= BRI_VID_MAX; ++vid)
        if (live(vlans, vid)) {
            ++count;
            check_vlan(vlans, vid, findings);
            check_members(vlans.vlans[vid], vid, ports, findings);
        }
    if (count != stat.cur_vlan_num)
        add(findings, "vlans",
            std::to_string(count) + " VLANs exist, but the statistics count " + std::to_string(stat.cur_vlan_num));
    check_svis(vlans, findings);
}

void check_protocols(const bri_proto_registry &registry, Findings &findings) {
    for (const unsigned bit : ids_in({&registry.state, 1}, BRI_PROT_MAX))
        add(findings, "protocols", "protocol " + number(bit) + " is enabled, but there is none of that number");
}

// ---- groups

bool clear(const vlan_group_entry &group) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&group);
    return std::all_of(bytes, bytes + sizeof group, [](uint8_t byte) { return byte == 0; });
}

void check_group(const vlan_group_entry &group, unsigned index, Findings &findings) {
    const std::string who = "group " + number(index);
    if (group.id == 0) {
        if (!clear(group))
            add(findings, "groups", who + " is free, but its entry is not clear");
        return;
    }
    if (index == 0)
        add(findings, "groups", "group 0 is in use");
    else if (group.id != index)
        add(findings, "groups", who + " holds the id " + number(group.id));
    const Ids members = ids_in(group.members.words);
    if (members.size() % 256 != group.member_count)
        add(findings, "groups",
            who + " has " + number(members.size()) + " members, but counts " + number(group.member_count) +
                " (modulo 256)");
    if (!members.empty() && (members.front() < BRI_VID_MIN || members.back() > BRI_VID_MAX))
        add(findings, "groups", who + " has a member outside 1..4094");
    if (group.default_vid > BRI_VID_MAX)
        add(findings, "groups", who + " has the default VLAN " + number(group.default_vid));
}

void check_groups(const bri_vlan_groups &groups, Findings &findings) {
    for (unsigned index = 0; index < BRI_VLAN_GROUP_ENTRIES; ++index)
        check_group(groups.groups[index], index, findings);
}

// ---- headers

void check_header(const bri_shm_hdr &header, const Segment &segment, Findings &findings) {
    const std::string name = wire::printable(header.name, sizeof header.name);
    if (name != segment.name)
        add(findings, "segments", std::string(segment.name) + " is headed \"" + name + "\"");
    if (header.size != segment.size)
        add(findings, "segments",
            std::string(segment.name) + " announces " + number(header.size) + " bytes of data instead of " +
                number(segment.size));
}

template <class T>
std::unique_ptr<const Snapshot<T>> try_look(const Segment &segment, int32_t vsd, std::vector<std::string> &missing) {
    try {
        return look<T>(segment, vsd);
    } catch (const Unreadable &reason) {
        missing.emplace_back(reason.what());
        return nullptr;
    }
}

Findings both(const Findings &first, const Findings &second) {
    std::unordered_set<std::string> known;
    for (const Json &finding : second)
        known.insert(finding.dump());
    Findings standing;
    for (const Json &finding : first)
        if (known.contains(finding.dump()))
            standing.push_back(finding);
    return standing;
}

void version_step(const char *table, const std::string &who, uint64_t before, uint64_t now, Findings &findings) {
    add(findings, table, who + " stepped back from version " + number(before) + " to " + number(now));
}

} // namespace

Tables look_at_all(int32_t vsd) {
    Tables tables;
    tables.ports = try_look<bri_portdb>(kPortSegment, vsd, tables.missing);
    tables.vlans = try_look<bri_vlandb>(kVlanSegment, vsd, tables.missing);
    tables.groups = try_look<bri_vlan_groups>(kGroupSegment, vsd, tables.missing);
    return tables;
}

std::vector<Json> faults_in(const Tables &tables) {
    Findings findings;
    const bri_portdb *ports = tables.ports != nullptr ? &tables.ports->data : nullptr;
    if (ports != nullptr) {
        check_header(tables.ports->header, kPortSegment, findings);
        check_ports(*ports, findings);
    }
    if (tables.vlans != nullptr) {
        check_header(tables.vlans->header, kVlanSegment, findings);
        check_vlans(tables.vlans->data, ports, findings);
        check_protocols(tables.vlans->data.proto, findings);
    }
    if (tables.groups != nullptr) {
        check_header(tables.groups->header, kGroupSegment, findings);
        check_groups(tables.groups->data, findings);
    }
    return findings;
}

// Versions wrap, so the shorter way round tells which of two is the older.
std::vector<Json> steps_back(const Tables &before, const Tables &now) {
    Findings findings;
    if (before.vlans != nullptr && now.vlans != nullptr)
        for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
            const uint16_t old = before.vlans->data.vlans[vid].version;
            const uint16_t version = now.vlans->data.vlans[vid].version;
            if (static_cast<int16_t>(version - old) < 0)
                version_step("vlans", "VLAN " + number(vid), old, version, findings);
        }
    if (before.ports != nullptr && now.ports != nullptr)
        for (unsigned ifx = 1; ifx <= kLastPort; ++ifx) {
            const spcb &old = before.ports->data.ports[ifx];
            const spcb &port = now.ports->data.ports[ifx];
            if (old.ifx != 0 && port.ifx != 0 && static_cast<int32_t>(port.version - old.version) < 0)
                version_step("ports", "port " + number(ifx), old.version, port.version, findings);
        }
    return findings;
}

namespace {

Findings all_faults(const Tables &before, const Tables &now) {
    Findings findings = faults_in(now);
    const Findings steps = steps_back(before, now);
    findings.insert(findings.end(), steps.begin(), steps.end());
    return findings;
}

} // namespace

Report Checker::look(std::vector<std::string> &missing) {
    Tables tables = look_at_all(vsd_);
    Findings findings = all_faults(last_, tables);
    if (!findings.empty()) {
        std::this_thread::sleep_for(kSecondLook);
        tables = look_at_all(vsd_);
        findings = both(findings, all_faults(last_, tables));
    }
    missing = tables.missing;
    const bool nothing = tables.ports == nullptr && tables.vlans == nullptr && tables.groups == nullptr;
    last_ = std::move(tables);
    return {kFindings,
            Json::object(),
            {{"FINDING", "finding"}, {"TABLE", "table"}},
            findings,
            nothing ? "nothing to check" : "no findings"};
}

} // namespace inspect
