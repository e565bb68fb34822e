#include "sandbox/vlans.h"

#include "base/shared_word.h"

#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

namespace sandbox {

namespace word = bri::word;

namespace {

struct ModeName {
    const char *name;
    uint32_t mode;
};
constexpr ModeName kModes[] = {{"static", BRI_VLAN_STATIC}, {"dynamic", BRI_VLAN_DYNAMIC}, {"super", BRI_VLAN_SUPER}};

const char *mode_name(uint32_t mode) {
    for (const ModeName &row : kModes)
        if (row.mode == mode)
            return row.name;
    return "unknown";
}

bool exists(uint16_t vid) {
    return vl_exist(vid, 0) != 0;
}

vle &existing(uint16_t vid) {
    vle *entry = vl_get_vlan_entry(vid);
    if (entry == nullptr)
        throw std::invalid_argument("no VLAN " + std::to_string(vid));
    return *entry;
}

std::string name_of(uint16_t vid) {
    const vle &entry = existing(vid);
    return {entry.name, strnlen(entry.name, sizeof entry.name - 1)};
}

// May they be created? One VLAN has a record, several are a set.
std::optional<Message> question_about(const vlanset &vlans) {
    if (count(vlans) == 0)
        return std::nullopt;
    const bool one = count(vlans) == 1;
    vl_evt_vlan_rec record{};
    record.vid = lowest(vlans);
    const Bytes bytes = one ? bytes_of(record) : bytes_of(vlans);
    return Message{one ? uint32_t{VLAN_EVENT_CREATE_PREJ} : uint32_t{VLAN_EVENT_CREATE_RANGE_PREJ},
                   {bytes.data, bytes.data + bytes.size}};
}

} // namespace

Vlans::Vlans(Loop &loop, Server &server, Announcer &announcer)
    : announce_([&announcer](uint32_t type, Bytes payload) { announcer.announce(type, payload); }), ports_(announce_),
      supers_(announce_), prejudge_(loop, server, announcer) {}

void Vlans::open() {
    Ports::open();
    if (vl_vlandb_init() == 0)
        throw std::runtime_error("cannot map the VLAN table");
    vl_set_vlan_range(BRI_VID_MIN, BRI_VID_MAX);
    word::store(g_vl_mng.stat->max_vlan_num, static_cast<int32_t>(BRI_VID_MAX));
    word::store(g_vl_mng.stat->max_svi_num, static_cast<int32_t>(BRI_VID_MAX));
}

void Vlans::create(const vlanset &vlans, uint32_t mode, bool by_operator, Settled settled) {
    const auto missing = std::make_shared<vlanset>();
    const auto word = [missing, vlans] {
        *missing = those_of(vlans, [](uint16_t vid) { return !exists(vid); });
        return question_about(*missing);
    };
    prejudge_.ask(word, [this, mode, by_operator, missing, settled = std::move(settled)](const std::string &refusal) {
        if (refusal.empty())
            create_now(*missing, mode, by_operator);
        settled(*missing, refusal);
    });
}

void Vlans::create_now(const vlanset &vlans, uint32_t mode, bool by_operator) {
    if (count(vlans) == 0)
        return;
    for_each_vlan(vlans, [&](uint16_t vid) {
        vl_initial_vlan_entry(vid, mode);
        if (by_operator)
            vl_set_created_by_cli(vid);
    });
    if (count(vlans) == 1)
        announce_vlan(VLAN_EVENT_CREATE_INDEX, lowest(vlans));
    else
        announce_set(VLAN_EVENT_CREATE_RANGE, vlans);
    // The record of a set carries no modes; without more, its VLANs are static.
    if (count(vlans) > 1 && mode != BRI_VLAN_STATIC)
        for_each_vlan(vlans, [&](uint16_t vid) { announce_vlan(VLAN_EVENT_MODIFY_VLAN_MODE, vid); });
    if (mode == BRI_VLAN_SUPER)
        supers_.announce_supers(vlans, true);
    ports_.vlans_created(vlans);
}

vlanset Vlans::remove(const vlanset &vlans) {
    const vlanset leaving = those_of(vlans, exists);
    if (count(leaving) == 0)
        return leaving;
    supers_.dissolve(leaving);
    for_each_vlan(leaving, [&](uint16_t vid) {
        if (vl_get_svi_ifx(vid) != 0)
            set_svi(vid, 0);
    });
    ports_.vlans_leaving(leaving);
    for_each_vlan(leaving, [](uint16_t vid) { vl_clear_vlan_entry(vid); });
    on_removed(leaving);
    if (count(leaving) == 1)
        announce_vlan(VLAN_EVENT_DESTROY_INDEX, lowest(leaving));
    else
        announce_set(VLAN_EVENT_DESTROY_RANGE, leaving);
    return leaving;
}

void Vlans::set_mode(const vlanset &vlans, uint32_t mode) {
    const vlanset others = those_of(vlans, [&](uint16_t vid) { return exists(vid) && vl_exist(vid, mode) == 0; });
    if (mode == BRI_VLAN_SUPER)
        return supers_.create(others);
    supers_.dissolve(vlans);
    for_each_vlan(others, [&](uint16_t vid) {
        const std::string name = name_of(vid);
        vl_set_vlan_mode(vid, mode);
        announce_vlan(VLAN_EVENT_MODIFY_VLAN_MODE, vid);
        if (name_of(vid) != name)
            announce_vlan(VLAN_EVENT_RENAME, vid);
    });
}

void Vlans::rename(uint16_t vid, const std::string &name) {
    vle &entry = existing(vid);
    if (name.empty() || name.size() >= sizeof entry.name)
        throw std::invalid_argument("a name has 1 to 35 characters");
    char padded[sizeof entry.name] = {};
    name.copy(padded, sizeof padded - 1);
    std::memcpy(entry.name, padded, sizeof padded);
    announce_vlan(VLAN_EVENT_RENAME, vid);
}

void Vlans::set_svi(uint16_t vid, uint32_t ifx) {
    const uint32_t old = existing(vid).svi_ifx;
    if (vl_set_svi(vid, ifx) != 0)
        throw std::invalid_argument("VLAN " + std::to_string(vid) + " has the SVI " + std::to_string(old));
    Ports::count_up(only(vid)); // gone with the interface
    announce_svi(vid);
}

void Vlans::announce_vlan(uint32_t type, uint16_t vid) const {
    announce_(type, bytes_of(vlan_record(vid)));
}

void Vlans::announce_set(uint32_t type, const vlanset &vlans) const {
    announce_(type, bytes_of(vlanset_record(vlans)));
}

// Interface 0: the VLAN has none any more.
void Vlans::announce_svi(uint16_t vid) const {
    vl_evt_svi_rec record{};
    record.svi_ifx = vl_get_svi_ifx(vid);
    record.vid = vid;
    announce_(VLAN_EVENT_SVI_CREATE_DESTROY, bytes_of(record));
}

Answer Vlans::show() {
    Answer answer;
    answer.begin("vlans");
    for_each_vlan(all_vlans(), [&](uint16_t vid) {
        vle entry;
        if (vl_get_vlan_copy(vid, &entry) == 0)
            return;
        Fields members = Fields::array();
        Fields down = Fields::array();
        bri::bits::for_each(entry.members, 1, BRI_PORT_SLOTS - 1, [&](unsigned ifx) {
            members.push_back(ifx);
            if (link_is_down(ifx))
                down.push_back(ifx);
        });
        answer.row("vlans",
                   "  vlan {vid} {name} {mode} version {version} svi {svi} ports " +
                       std::string(members.empty() ? "none" : "{members}") + (down.empty() ? "" : " down {down}"),
                   {{"vid", vid},
                    {"name", name_of(vid)},
                    {"mode", mode_name(entry.mode)},
                    {"version", entry.version},
                    {"svi", entry.svi_ifx},
                    {"members", members},
                    {"down", down},
                    {"up_mem", entry.up_mem}});
    });
    return answer.say("vlans: {count}", {{"count", vl_get_vlan_number()}});
}

vl_evt_vlan_rec vlan_record(uint16_t vid) {
    vl_evt_vlan_rec record{};
    record.vid = vid;
    record.version = vl_get_vlan_latest_version(vid);
    if (exists(vid)) {
        name_of(vid).copy(record.name, sizeof record.name - 1);
        record.mode = existing(vid).mode;
    }
    return record;
}

vl_evt_vlanset_rec vlanset_record(const vlanset &vlans) {
    vl_evt_vlanset_rec record{};
    record.vlans = vlans;
    for_each_vlan(vlans, [&](uint16_t vid) { record.versions[vid] = vl_get_vlan_latest_version(vid); });
    return record;
}

uint32_t parse_vlan_mode(const std::string &text) {
    for (const ModeName &row : kModes)
        if (text == row.name)
            return row.mode;
    throw std::invalid_argument("no such VLAN mode: " + text);
}

} // namespace sandbox
