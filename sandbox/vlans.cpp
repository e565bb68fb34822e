#include "sandbox/vlans.h"

#include "sandbox/parse.h"
#include "wire/json.h"
#include "wire/value.h"

namespace sandbox {

namespace {

std::string vlan_text(uint16_t vid) {
    return "VLAN " + std::to_string(vid);
}

vle &existing(uint16_t vid) {
    if (vle *entry = vl_get_vlan_entry(vid); entry != nullptr)
        return *entry;
    throw std::invalid_argument("no " + vlan_text(vid));
}

std::string name_of(uint16_t vid) {
    const vle &entry = existing(vid);
    return {entry.name, strnlen(entry.name, sizeof entry.name - 1)};
}

// The VLAN as events tell it. One that has gone has the version of the life that has ended, and nothing else.
vl_evt_vlan_rec vlan_record(uint16_t vid) {
    vl_evt_vlan_rec record{};
    record.vid = vid;
    record.version = vl_get_vlan_latest_version(vid);
    if (there_is_vlan(vid)) {
        name_of(vid).copy(record.name, sizeof record.name - 1);
        record.mode = existing(vid).mode;
    }
    return record;
}

void announce_vlan(const Announce &announce, uint32_t type, uint16_t vid) {
    announce(type, bytes_of(vlan_record(vid)));
}

// One VLAN has a record, several are a set with the versions of their newest lives.
void announce_vlans(const Announce &announce, uint32_t type_of_one, uint32_t type_of_set, const vlanset &vlans) {
    if (count(vlans) == 1)
        return announce_vlan(announce, type_of_one, lowest(vlans));
    vl_evt_vlanset_rec record{};
    record.vlans = vlans;
    for_each_vlan(vlans, [&](uint16_t vid) { record.versions[vid] = vl_get_vlan_latest_version(vid); });
    if (count(vlans) != 0)
        announce(type_of_set, bytes_of(record));
}

// May they be created?
std::optional<Message> question_about(const vlanset &vlans) {
    vl_evt_vlan_rec record{};
    record.vid = lowest(vlans);
    if (count(vlans) == 0)
        return std::nullopt;
    return count(vlans) == 1 ? Message{VLAN_EVENT_CREATE_PREJ, buffer_of(bytes_of(record))}
                             : Message{VLAN_EVENT_CREATE_RANGE_PREJ, buffer_of(bytes_of(vlans))};
}

void check_super(uint16_t vid) {
    refuse_if(vl_is_supervlan(vid) == 0, vlan_text(vid) + " is no super VLAN");
}

// Neither super nor sub VLAN.
void check_plain(uint16_t vid) {
    existing(vid);
    refuse_if(vl_is_supervlan(vid) != 0, vlan_text(vid) + " is a super VLAN");
    refuse_if(vl_is_subvlan(vid) != 0, vlan_text(vid) + " belongs to " + vlan_text(vl_get_manage_vid(vid)));
}

vlanset subs_of(uint16_t vid) {
    return those_of(all_vlans(),
                    [&](uint16_t sub) { return vl_is_subvlan(sub) != 0 && vl_get_manage_vid(sub) == vid; });
}

uint8_t valid_id(uint32_t id) {
    refuse_if(id == 0 || id >= BRI_VLAN_GROUP_ENTRIES, "no group number: " + std::to_string(id));
    return static_cast<uint8_t>(id);
}

uint8_t existing_id(uint32_t id) {
    refuse_if(vlan_group_check_exist(valid_id(id)) == 0, "no group " + std::to_string(id));
    return static_cast<uint8_t>(id);
}

vlan_group_entry entry_of(uint8_t id) {
    vlan_group_entry entry{};
    vlan_group_get_entry_copy(id, &entry);
    entry.id = id; // whatever another process has put there
    return entry;
}

void announce_entry(const Announce &announce, uint32_t type, uint8_t id) {
    announce(type, bytes_of(entry_of(id)));
}

void announce_policy(const Announce &announce, uint8_t id, bool exists) {
    announce(VG_EVENT_POLICY_ENTRY, bytes_of(wire::group_policy{id, exists ? uint8_t{1} : uint8_t{0}, {}}));
}

template <class Fn> void for_each_group(Fn &&fn) {
    for (uint8_t id = 1; id < BRI_VLAN_GROUP_ENTRIES; ++id)
        if (vlan_group_check_exist(id) != 0)
            fn(id);
}

} // namespace

// To its own id where manage_vid is 0.
void SuperVlans::change(const vlanset &vlans, uint32_t mode, uint16_t manage_vid) {
    for_each_vlan(vlans, [&](uint16_t vid) {
        store(vl_get_raw_vlan_entry(vid)->manage_vid, manage_vid != 0 ? manage_vid : vid);
        vl_set_vlan_mode(vid, mode);
    });
    for_each_vlan(vlans, [&](uint16_t vid) { announce_vlan(announce_, VLAN_EVENT_MODIFY_VLAN_MODE, vid); });
}

void SuperVlans::free_subs(uint32_t type, uint16_t vid, const vlanset &subs) {
    if (count(subs) == 0)
        return;
    change(subs, BRI_VLAN_STATIC, 0);
    announce_(type, bytes_of(wire::super_subs{vid, 0, subs}));
}

void SuperVlans::announce_supers(const vlanset &vlans, bool created) const {
    announce_vlans(announce_, created ? VLAN_EVENT_SUPER_CREATE : VLAN_EVENT_SUPER_DELETE,
                   created ? VLAN_EVENT_SUPER_CREATE_RANGE : VLAN_EVENT_SUPER_DELETE_RANGE, vlans);
}

void SuperVlans::create(const vlanset &vlans) {
    for_each_vlan(vlans, check_plain);
    change(vlans, BRI_VLAN_SUPER, 0);
    announce_supers(vlans, true);
}

void SuperVlans::remove(const vlanset &vlans) {
    for_each_vlan(vlans, check_super);
    for_each_vlan(vlans, [&](uint16_t vid) { free_subs(VLAN_EVENT_SUPER_RANG_DEL_SUB, vid, subs_of(vid)); });
    change(vlans, BRI_VLAN_STATIC, 0);
    announce_supers(vlans, false);
}

void SuperVlans::add(uint16_t vid, const vlanset &subs) {
    check_super(vid);
    const vlanset added = without(subs, subs_of(vid));
    for_each_vlan(added, check_plain);
    change(added, BRI_VLAN_SUPER, vid);
    if (count(added) != 0)
        announce_(VLAN_EVENT_SUPER_ADD_RANGE_SUB, bytes_of(wire::super_subs{vid, 0, added}));
}

void SuperVlans::take(uint16_t vid, const vlanset &subs) {
    check_super(vid);
    if (const vlanset others = without(subs, subs_of(vid)); count(others) != 0)
        throw std::invalid_argument(vlan_text(lowest(others)) + " does not belong to " + vlan_text(vid));
    free_subs(VLAN_EVENT_SUPER_DEL_RANGE_SUB, vid, subs);
}

void SuperVlans::set_proxy(uint16_t vid, bool on) {
    store(existing(vid).proxy, on ? 1 : 0);
    announce_(VLAN_EVENT_ARPROXY, bytes_of(wire::vlan_arproxy{vid, 0, on ? 1U : 0U}));
}

void SuperVlans::dissolve(const vlanset &vlans) {
    remove(those_of(vlans, [](uint16_t vid) { return vl_is_supervlan(vid) != 0; }));
    for_each_vlan(vlans, [&](uint16_t vid) {
        if (vl_is_subvlan(vid) != 0)
            free_subs(VLAN_EVENT_SUPER_DEL_RANGE_SUB, vl_get_manage_vid(vid), only(vid));
    });
}

Answer SuperVlans::show() {
    Answer answer{"supers"};
    for_each_vlan(all_vlans(), [&](uint16_t vid) {
        if (vl_is_supervlan(vid) != 0)
            answer.row("supers", "  super vlan {vid} subs {subs}", {{"vid", vid}, {"subs", vlans_text(subs_of(vid))}});
    });
    return answer;
}

void Vlans::open() {
    Ports::open();
    fail_if(vl_vlandb_init() == 0, "cannot map the VLAN table");
    vl_set_vlan_range(BRI_VID_MIN, BRI_VID_MAX);
    store(g_vl_mng.stat->max_vlan_num, BRI_VID_MAX);
    store(g_vl_mng.stat->max_svi_num, BRI_VID_MAX);
}

void Vlans::create(const vlanset &vlans, bri_vlan_mode mode, bool by_operator, Settled settled) {
    const auto missing = std::make_shared<vlanset>();
    const auto word = [missing, vlans] {
        *missing = without(vlans, those_of(vlans, there_is_vlan));
        return question_about(*missing);
    };
    prejudge_.ask(word, [this, mode, by_operator, missing, settled = std::move(settled)](const std::string &refusal) {
        if (refusal.empty())
            create_now(*missing, mode, by_operator);
        settled(*missing, refusal);
    });
}

void Vlans::create_now(const vlanset &vlans, bri_vlan_mode mode, bool by_operator) {
    for_each_vlan(vlans, [&](uint16_t vid) {
        vl_initial_vlan_entry(vid, mode);
        if (by_operator)
            vl_set_created_by_cli(vid);
    });
    announce_vlans(announce_, VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_RANGE, vlans);
    // The record of a set carries no modes; without more, its VLANs are static.
    if (count(vlans) > 1 && mode != BRI_VLAN_STATIC)
        for_each_vlan(vlans, [&](uint16_t vid) { announce_vlan(announce_, VLAN_EVENT_MODIFY_VLAN_MODE, vid); });
    if (mode == BRI_VLAN_SUPER)
        supers_.announce_supers(vlans, true);
    ports_.vlans_created(vlans);
}

vlanset Vlans::remove(const vlanset &vlans) {
    const vlanset leaving = those_of(vlans, there_is_vlan);
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
    announce_vlans(announce_, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_DESTROY_RANGE, leaving);
    return leaving;
}

void Vlans::set_mode(const vlanset &vlans, bri_vlan_mode mode) {
    const vlanset others =
        those_of(vlans, [&](uint16_t vid) { return there_is_vlan(vid) && vl_exist(vid, mode) == 0; });
    if (mode == BRI_VLAN_SUPER)
        return supers_.create(others);
    supers_.dissolve(vlans);
    for_each_vlan(others, [&](uint16_t vid) {
        const std::string name = name_of(vid);
        vl_set_vlan_mode(vid, mode);
        announce_vlan(announce_, VLAN_EVENT_MODIFY_VLAN_MODE, vid);
        if (name_of(vid) != name)
            announce_vlan(announce_, VLAN_EVENT_RENAME, vid);
    });
}

void Vlans::rename(uint16_t vid, const std::string &name) {
    vle &entry = existing(vid);
    refuse_if(name.empty() || name.size() >= sizeof entry.name, "a name has 1 to 35 characters");
    char padded[sizeof entry.name] = {};
    name.copy(padded, sizeof padded - 1);
    std::memcpy(entry.name, padded, sizeof padded);
    announce_vlan(announce_, VLAN_EVENT_RENAME, vid);
}

// Interface 0: the VLAN has none any more.
void Vlans::set_svi(uint16_t vid, uint32_t ifx) {
    const uint32_t old = existing(vid).svi_ifx;
    refuse_if(vl_set_svi(vid, ifx) != 0, vlan_text(vid) + " has the SVI " + std::to_string(old));
    Ports::count_up(only(vid)); // gone with the interface
    announce_(VLAN_EVENT_SVI_CREATE_DESTROY, bytes_of(vl_evt_svi_rec{vl_get_svi_ifx(vid), {}, vid, {}}));
}

Answer Vlans::show() {
    Answer answer{"vlans"};
    for_each_vlan(all_vlans(), [&](uint16_t vid) {
        vle entry;
        if (vl_get_vlan_copy(vid, &entry) == 0)
            return;
        const wire::Ids members = wire::ids_in(entry.members, 1, BRI_PORT_SLOTS - 1);
        wire::Ids down = members;
        std::erase_if(down, [](unsigned ifx) { return !link_is_down(ifx); });
        answer.row("vlans",
                   "  vlan {vid} {name} {mode} version {version} svi {svi} ports " +
                       std::string(members.empty() ? "none" : "{members}") + (down.empty() ? "" : " down {down}"),
                   {{"vid", vid},
                    {"name", name_of(vid)},
                    {"mode", wire::json_of(vlan_record(vid))["mode"]},
                    {"version", entry.version},
                    {"svi", entry.svi_ifx},
                    {"members", members},
                    {"down", down},
                    {"up_mem", entry.up_mem}});
    });
    return answer.say("vlans: {count}", {{"count", vl_get_vlan_number()}});
}

void Groups::open() {
    fail_if(vlan_group_shm_init() == 0, "cannot map the table of VLAN groups");
}

void Groups::create(uint32_t id) {
    refuse_if(vlan_group_check_exist(valid_id(id)) != 0, "there is a group " + std::to_string(id) + " already");
    vlan_group_creat_entry(static_cast<uint8_t>(id));
    announce_policy(announce_, static_cast<uint8_t>(id), true);
}

void Groups::remove(uint32_t id) {
    vlan_group_free_entry(existing_id(id));
    announce_policy(announce_, static_cast<uint8_t>(id), false);
}

void Groups::set_vlans(uint32_t id, const vlanset &vlans) {
    vlanset changed[2] = {}; // added, removed; how many
    uint8_t counts[2] = {};
    vlan_group_set_member_vlan(existing_id(id), &vlans, &changed[0], &changed[1], &counts[0], &counts[1]);
    announce_entry(announce_, VG_EVENT_MEM_VLAN, static_cast<uint8_t>(id));
}

void Groups::set_default(uint32_t id, uint16_t vid) {
    vlan_group_set_default_vlan(existing_id(id), vid);
    announce_entry(announce_, VG_EVENT_DEFAULT_VLAN, static_cast<uint8_t>(id));
}

void Groups::set_assign_mode(uint32_t id, uint8_t mode) {
    vlan_group_set_vlan_assign_mode(existing_id(id), mode);
    announce_entry(announce_, VG_EVENT_VLAN_MODE, static_cast<uint8_t>(id));
}

void Groups::replay(uint32_t submodule, const Announce &send) {
    if (submodule != BRI_SUBMOD_VLAN_GROUP)
        return;
    for_each_group([&](uint8_t id) {
        announce_policy(send, id, true);
        for (const uint32_t type : {VG_EVENT_MEM_VLAN, VG_EVENT_DEFAULT_VLAN, VG_EVENT_VLAN_MODE})
            announce_entry(send, type, id);
    });
}

Answer Groups::show() {
    Answer answer{"groups"};
    for_each_group([&](uint8_t id) {
        const vlan_group_entry entry = entry_of(id);
        answer.row("groups", "  group {id} vlans {members} default {default_vid} mode {assign_mode}",
                   {{"id", id},
                    {"members", vlans_text(entry.members)},
                    {"default_vid", entry.default_vid},
                    {"assign_mode", entry.assign_mode}});
    });
    return answer.total("groups");
}

} // namespace sandbox
