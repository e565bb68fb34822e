// The commands about ports, VLANs, groups, claims on ports, spanning trees and bridge protocols.
#include "sandbox/sandbox.h"
#include "wire/value.h"

namespace sandbox {

namespace {

// What becomes of a command that is settled later. The clients' answers have their own bounds.
struct Pending {
    bool settled = false;
    std::string refusal;
    Answer answer;
};
Wait wait_for(const std::shared_ptr<Pending> &pending, Microseconds limit = std::chrono::hours(1)) {
    const auto done = [pending]() -> std::optional<Answer> {
        fail_if(!pending->refusal.empty(), pending->refusal);
        return pending->settled ? std::optional(pending->answer) : std::nullopt;
    };
    return {done, limit, [] { return std::string("waited in vain for the end of it"); }, {}};
}

Outcome create_vlans(Sandbox &sandbox, const Call &call) {
    const bri_vlan_mode mode = call.words.size() > 1 ? word_as<bri_vlan_mode>(call.words[1]) : BRI_VLAN_STATIC;
    const auto pending = std::make_shared<Pending>();
    const auto settled = [pending, &sandbox](const vlanset &vlans, const std::string &refusal) {
        const std::string created = vlans_text(vlans);
        if (!refusal.empty())
            pending->refusal = "vlan create " + created + ": " + refusal;
        pending->answer.say(created == "none" ? "vlan create: they exist already" : "vlan create {created}: done",
                            {{"created", created}});
        pending->settled = true;
        sandbox.trace.changed();
    };
    sandbox.bridge.vlans.create(parse_vlans(call.words[0]), mode, true, settled);
    return wait_for(pending);
}

Outcome delete_vlans(Sandbox &sandbox, const Call &call) {
    const vlanset vlans = parse_vlans(call.words[0]);
    refuse_if(count(sandbox.bridge.vlans.remove(vlans)) == 0, "no VLAN " + vlans_text(vlans));
    return Answer();
}

// A device of the back end becomes the port.
Outcome add_port(Sandbox &sandbox, const Call &call) {
    const auto ifx = word_as<uint32_t>(call.words[0]);
    const auto mode = word_as<bri_port_mode>(call.words[1]);
    const auto pvid = word_as<uint16_t>(call.words[2]);
    if (call.words.size() > 3) {
        refuse_if(sandbox.back_end == nullptr, "without --bridge there are no devices");
        Ports::check_new(ifx, pvid);
        sandbox.back_end->attach(ifx, call.words[3]);
    }
    sandbox.bridge.ports.add(ifx, mode, pvid);
    return Answer();
}

// Every client that decides on port modes is asked first, when told to.
Outcome set_port_mode(Sandbox &sandbox, const Call &call) {
    const auto ifx = word_as<uint32_t>(call.words[0]);
    const auto mode = word_as<bri_port_mode>(call.words[1]);
    if (call.words.size() < 3)
        return operation<&Ports::set_mode>(sandbox, call);
    refuse_if(call.words[2] != "ask", "usage: port mode IFX MODE [ask]");
    port_at(ifx);
    const auto pending = std::make_shared<Pending>();
    const auto question = [ifx, mode] {
        return Message{RESEARCH_EVENT_SWPORT_PREJUDGE, buffer_of(bytes_of(wire::swport_prejudge_request{ifx, mode}))};
    };
    const auto settled = [&sandbox, ifx, mode, line = call.line, pending](const std::string &refusal) {
        try {
            refuse_for(refusal);
            sandbox.bridge.ports.set_mode(ifx, mode);
            pending->answer.say("{command}: done", {{"command", line}});
        } catch (const std::invalid_argument &error) { // also when the port has been taken away
            pending->refusal = line + ": " + error.what();
        }
        pending->settled = true;
        sandbox.trace.note(line + " settled");
    };
    sandbox.bridge.prejudge.ask(question, settled);
    return wait_for(pending);
}

// A link that goes down and comes up again, some times in a row.
struct Flapping : Pending {
    Flapping(Loop &loop, unsigned changes) : left(changes), timer(loop, [] {}) {}

    unsigned left;
    Timer timer;
};

Outcome flap(Sandbox &sandbox, const Call &call) {
    constexpr unsigned most = 10000;
    const Microseconds pause = call.words.size() > 2 ? parse_seconds(call.words[2]) : Microseconds(100000);
    const auto ifx = word_as<uint32_t>(call.words[0]);
    const unsigned times = parse_number(call.words[1], most);
    port_at(ifx);
    const auto flapping = std::make_shared<Flapping>(sandbox.loop, 2 * times);
    flapping->answer.say("{command}: done", {{"command", call.line}});
    flapping->settled = times == 0;
    flapping->timer.set([&sandbox, ifx, pause, self = flapping.get()] {
        try {
            sandbox.bridge.ports.set_link(ifx, --self->left % 2 == 0);
        } catch (const std::invalid_argument &error) { // the port has been taken away
            self->left = 0;
            self->refusal = error.what();
        }
        self->settled = self->left == 0;
        if (self->settled)
            sandbox.trace.note("port " + std::to_string(ifx) + " flaps no more"); // whoever waits looks then
        else
            self->timer.start(pause);
    });
    if (times != 0)
        flapping->timer.start(Microseconds(0));
    return wait_for(flapping, 2 * times * pause + std::chrono::hours(1));
}

void check_interface(bool there, uint32_t ifx) {
    refuse_if(!there, "no interface " + std::to_string(ifx));
}

// The two tables of claims; both are every process's to write, this one's too. To set gives what is in the way.
struct Exclusions {
    static const wire::Field &field() { return *wire::record_of<bri_exclusion_table>().find("flags"); }
    static uint32_t set(uint32_t ifx, uint32_t bits, uint32_t against) {
        uint32_t conflict = 0;
        check_interface(bridge_set_excflag(ifx, bits, against, &conflict) == 0 || conflict != 0, ifx);
        return conflict;
    }
    static void clear(uint32_t ifx, uint32_t bits) { check_interface(bridge_unset_excflag(ifx, bits) == 0, ifx); }
};

struct Attributes {
    static const wire::Field &field() { return *wire::record_of<spcb>().find("attr_exclude"); }
    static uint32_t set(uint32_t ifx, uint32_t bits, uint32_t against, uint8_t on = 1) {
        uint32_t conflict = 0;
        port_at(ifx);
        swport_set_attr_exclude(static_cast<int32_t>(ifx), bits, on, against, &conflict);
        return conflict;
    }
    static void clear(uint32_t ifx, uint32_t bits) { set(ifx, bits, 0, 0); }
};

template <class Claims> uint32_t bits_of(const std::string &word) {
    return wire::parse_number(Claims::field(), word);
}
template <class Claims> std::string bits_text(uint32_t bits) {
    return wire::number_text(Claims::field(), bits);
}

template <class Claims> Outcome claim(Sandbox &, const Call &call) {
    const uint32_t against = call.words.size() > 2 ? bits_of<Claims>(call.words[2]) : 0;
    const uint32_t conflict = Claims::set(parse_number(call.words[0]), bits_of<Claims>(call.words[1]), against);
    refuse_if(conflict != 0, bits_text<Claims>(conflict) + " is in the way");
    return Answer();
}

template <class Claims> Outcome release(Sandbox &, const Call &call) {
    Claims::clear(parse_number(call.words[0]), bits_of<Claims>(call.words[1]));
    return Answer();
}

// The table of exclusion flags has no call that gives its words, but a claim against all of them tells what is there.
Answer show_claims() {
    Answer answer{"exclusions", "attributes"};
    for (uint32_t ifx = 0; ifx <= BRI_EXCLUSION_IFX_MAX; ++ifx)
        if (const uint32_t bits = Exclusions::set(ifx, 0, UINT32_MAX); bits != 0)
            answer.row("exclusions", "  interface {ifx} {flags}",
                       {{"ifx", ifx}, {"flags", bits_text<Exclusions>(bits)}});
    for_each_port([&](uint32_t ifx) {
        if (const uint32_t bits = load(port_at(ifx).attr_exclude); bits != 0)
            answer.row("attributes", "  port {ifx} attributes {attr_exclude}",
                       {{"ifx", ifx}, {"attr_exclude", bits_text<Attributes>(bits)}});
    });
    return answer;
}

Outcome set_state(Sandbox &sandbox, const Call &call) {
    l2top_port_status record{};
    record.ifx = word_as<uint32_t>(call.words[0]);
    record.instance = call.words[1] == "all" ? BRI_L2TOP_INSTANCE_ALL : word_as<uint16_t>(call.words[1]);
    record.state = word_as<uint32_t>(call.words[2]);
    sandbox.bridge.topology.set_states({&record, 1});
    return Answer();
}

template <void (Topology::*Change)(uint32_t protocol)> Outcome change_protocol(Sandbox &sandbox, const Call &call) {
    (sandbox.bridge.topology.*Change)(parse_protocol(call.words[0]));
    return Answer();
}

Outcome set_conflicts(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.topology.set_conflicts(parse_protocol(call.words[0]), parse_protocols(call.words[1]));
    return Answer();
}

constexpr Command kSwitchCommands[] = {
    {"port add", "IFX MODE PVID [dev DEVICE]",
     "a new port, 1 to 63; MODE is access, trunk, hybrid, uplink, tunnel, host, promis, route; with --bridge a device "
     "is the port",
     add_port},
    {"port del", "IFX", "take a port away", operation<&Ports::remove>},
    {"port mode", "IFX MODE [ask]", "another mode; with ask, when no client objects", set_port_mode},
    {"port pvid", "IFX VID", "another native VLAN", operation<&Ports::set_pvid>},
    {"port allow", "IFX LIST", "the VLANs that may pass it", operation<&Ports::set_allowed>},
    {"port join", "IFX LIST", "make it a member of VLANs, whatever it carries", operation<&Ports::add_members>},
    {"port leave", "IFX LIST", "take it out of VLANs", operation<&Ports::remove_members>},
    {"port up", "IFX", "its link comes up", operation<&Ports::link_up>},
    {"port down", "IFX", "its link fails", operation<&Ports::link_down>},
    {"port flap", "IFX times N [every SECONDS]", "its link fails and comes back N times, 0.1 s apart", flap},
    {"port show", "", "the ports", show<&Ports::show>},
    {"vlan create", "LIST [MODE]", "new VLANs, when no client objects", create_vlans},
    {"vlan delete", "LIST", "take VLANs away", delete_vlans},
    {"vlan rename", "VID NAME", "another name", operation<&Vlans::rename>},
    {"vlan mode", "LIST MODE", "another mode: static, dynamic or super", operation<&Vlans::set_mode>},
    {"vlan svi", "VID IFX", "a routed interface; 0 takes it away", operation<&Vlans::set_svi>},
    {"vlan patience", "MILLISECONDS", "how long a client may take to object", operation<&Prejudge::set_patience>},
    {"vlan show", "", "the VLANs", show<&Vlans::show>},
    {"stp state", "IFX INSTANCE STATE", "a port's state, a number of the protocol, in one instance or in all",
     set_state},
    {"stp instance", "N vlans LIST", "the VLANs are in that instance, 0 to 64", operation<&Topology::move_vlans>},
    {"stp show", "", "the instances and the states in those that are in use", show<&Topology::show>},
    {"proto set", "PROTOCOL", "it runs: mstp, gvrp, lldp, erps, ... unless one that it conflicts with does",
     change_protocol<&Topology::start>},
    {"proto clear", "PROTOCOL", "it runs no more", change_protocol<&Topology::stop>},
    {"proto conflict", "PROTOCOL LIST", "what keeps it from starting: mstp|erps, or none", set_conflicts},
    {"proto show", "", "what runs, and what conflicts with what", show<&Topology::show_protocols>},
    {"group create", "ID", "a new VLAN group, 1 to 128", operation<&Groups::create>},
    {"group delete", "ID", "take it away", operation<&Groups::remove>},
    {"group vlans", "ID LIST", "exactly these VLANs are in it", operation<&Groups::set_vlans>},
    {"group default", "ID VID", "its default VLAN", operation<&Groups::set_default>},
    {"group mode", "ID MODE", "its VLAN assign mode, a number", operation<&Groups::set_assign_mode>},
    {"group show", "", "the groups", show<&Groups::show>},
    {"exclude set", "IFX FLAGS [against FLAGS]", "claim an interface: dot1x|secure, unless one of the others is there",
     claim<Exclusions>},
    {"exclude clear", "IFX FLAGS", "give it back", release<Exclusions>},
    {"exclude attribute", "IFX BITS [against BITS]", "the same with the attributes of a port", claim<Attributes>},
    {"exclude no-attribute", "IFX BITS", "give them back", release<Attributes>},
    {"exclude show", "", "all claims", show<show_claims>},
    {"super create", "LIST", "the VLANs are super VLANs from now on", operation<&SuperVlans::create>},
    {"super delete", "LIST", "they are none any more, nor are their sub VLANs sub VLANs",
     operation<&SuperVlans::remove>},
    {"super add", "VID LIST", "these VLANs are its sub VLANs too", operation<&SuperVlans::add>},
    {"super remove", "VID LIST", "these are not any more", operation<&SuperVlans::take>},
    {"super arp", "VID on|off", "whether a VLAN answers ARP for its hosts", operation<&SuperVlans::set_proxy>},
    {"super show", "", "the super VLANs and their sub VLANs", show<&SuperVlans::show>},
};

// The element of a show command's list whose field is the key.
Fields element(const Answer &answer, const char *list, const char *field, uint32_t key) {
    for (const Fields &object : answer.json()[list])
        if (object[field] == key)
            return object;
    return nullptr;
}

// Of every port and instance, also where nobody has set a state yet.
Fields state_value(Sandbox &, const Words &keys) {
    const uint32_t ifx = parse_number(keys[0]);
    const uint32_t instance = parse_number(keys[1], BRI_STP_INSTANCES - 1);
    if (!there_is_port(ifx))
        return nullptr;
    return {{"ifx", ifx}, {"instance", instance}, {"state", load(port_at(ifx).fwd_state[instance])}};
}

constexpr Value kSwitchValues[] = {
    {"port", "IFX",
     [](Sandbox &, const Words &keys) { return element(Ports::show(), "ports", "ifx", parse_number(keys[0])); }},
    {"stp", "IFX INSTANCE", state_value},
    {"proto", "", [](Sandbox &, const Words &) { return Topology::show_protocols().json(); }},
    {"vlan", "VID",
     [](Sandbox &, const Words &keys) { return element(Vlans::show(), "vlans", "vid", parse_number(keys[0])); }},
};

} // namespace

const Family switch_commands = kSwitchCommands;
const Values switch_values = kSwitchValues;

} // namespace sandbox
