// The commands about ports and VLANs.
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"
#include "sandbox/values.h"
#include "wire/own.h"

#include <bridge/events.h>

#include <memory>
#include <stdexcept>

namespace sandbox {

namespace {

// For the clients' answers: the questions before it have their own bounds.
constexpr Microseconds kLongEnough = std::chrono::hours(1);
std::string no_answer() {
    return "waited in vain for the clients' answers";
}

template <void (Ports::*Change)(uint32_t ifx, const vlanset &vlans)>
Outcome change_port(Sandbox &sandbox, const Call &call) {
    (sandbox.bridge.vlans().ports().*Change)(parse_ifx(call.words[0]), parse_vlans(call.words[1]));
    return Answer();
}

Outcome add_port(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().ports().add(parse_ifx(call.words[0]), parse_port_mode(call.words[1]),
                                       parse_vid(call.words[2]));
    return Answer();
}

Outcome delete_port(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().ports().remove(parse_ifx(call.words[0]));
    return Answer();
}

Outcome set_pvid(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().ports().set_pvid(parse_ifx(call.words[0]), parse_vid(call.words[1]));
    return Answer();
}

Outcome show_ports(Sandbox &, const Call &) {
    return Ports::show();
}

// What became of a creation, when it has been settled.
struct Creation {
    bool settled = false;
    std::string vlans;
    std::string refusal;
};

Answer answer_of(const Creation &creation) {
    if (!creation.refusal.empty())
        throw std::runtime_error("vlan create " + creation.vlans + ": " + creation.refusal);
    if (creation.vlans == "none")
        return Answer().say("vlan create: they exist already", {{"created", creation.vlans}});
    return Answer().say("vlan create {created}: done", {{"created", creation.vlans}});
}

// Settled when the clients have answered, one way or the other.
Outcome create_vlans(Sandbox &sandbox, const Call &call) {
    const uint32_t mode = call.words.size() > 1 ? parse_vlan_mode(call.words[1]) : uint32_t{BRI_VLAN_STATIC};
    const auto creation = std::make_shared<Creation>();
    sandbox.bridge.vlans().create(parse_vlans(call.words[0]), mode, true,
                                  [creation, &sandbox](const vlanset &vlans, const std::string &refusal) {
                                      *creation = {true, vlans_text(vlans), refusal};
                                      sandbox.trace.changed();
                                  });
    return Wait{[creation] { return creation->settled ? std::optional(answer_of(*creation)) : std::nullopt; },
                kLongEnough,
                no_answer,
                {}};
}

// What became of a question about a port.
struct Decision {
    bool settled = false;
    std::string refusal;
};

// Every client that decides on port modes is asked first, when told to.
Outcome set_port_mode(Sandbox &sandbox, const Call &call) {
    const uint32_t ifx = parse_ifx(call.words[0]);
    const uint32_t mode = parse_port_mode(call.words[1]);
    Ports &ports = sandbox.bridge.vlans().ports();
    if (call.words.size() < 3) {
        ports.set_mode(ifx, mode);
        return Answer();
    }
    if (call.words[2] != "ask")
        throw std::invalid_argument("port mode IFX MODE [ask]");
    port_at(ifx);
    const std::string line = call.command + " " + call.rest();
    const auto decision = std::make_shared<Decision>();
    sandbox.bridge.vlans().prejudge().ask(
        [ifx, mode] {
            const wire::swport_prejudge_request question{ifx, mode};
            const Bytes bytes = sandbox::bytes_of(question);
            return Message{RESEARCH_EVENT_SWPORT_PREJUDGE, {bytes.data, bytes.data + bytes.size}};
        },
        [&sandbox, &ports, ifx, mode, line, decision](std::string refusal) {
            if (refusal.empty() && !there_is_port(ifx))
                refusal = "no port " + std::to_string(ifx);
            if (refusal.empty())
                ports.set_mode(ifx, mode);
            *decision = {true, refusal};
            sandbox.trace.note(line + " settled");
        });
    const auto done = [decision, line]() -> std::optional<Answer> {
        if (!decision->refusal.empty())
            throw std::runtime_error(line + ": " + decision->refusal);
        return decision->settled ? std::optional(Answer().say("{command}: done", {{"command", line}})) : std::nullopt;
    };
    return Wait{done, kLongEnough, no_answer, {}};
}

Outcome delete_vlans(Sandbox &sandbox, const Call &call) {
    const vlanset vlans = parse_vlans(call.words[0]);
    if (count(sandbox.bridge.vlans().remove(vlans)) == 0)
        throw std::invalid_argument("no VLAN " + vlans_text(vlans));
    return Answer();
}

Outcome rename_vlan(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().rename(parse_vid(call.words[0]), call.words[1]);
    return Answer();
}

Outcome set_vlan_mode(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().set_mode(parse_vlans(call.words[0]), parse_vlan_mode(call.words[1]));
    return Answer();
}

Outcome set_svi(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().set_svi(parse_vid(call.words[0]), parse_number(call.words[1]));
    return Answer();
}

Outcome set_patience(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.vlans().prejudge().set_patience(Milliseconds(parse_number(call.words[0], 600000)));
    return Answer();
}

Outcome show_vlans(Sandbox &, const Call &) {
    return Vlans::show();
}

constexpr Command kPortCommands[] = {
    {"port add", "IFX MODE PVID",
     "a new port, 1 to 63; MODE is access, trunk, hybrid, uplink, tunnel, host, promis, route", add_port},
    {"port del", "IFX", "take a port away", delete_port},
    {"port mode", "IFX MODE [ask]", "another mode; with ask, when no client objects", set_port_mode},
    {"port pvid", "IFX VID", "another native VLAN", set_pvid},
    {"port allow", "IFX LIST", "the VLANs that may pass it", change_port<&Ports::set_allowed>},
    {"port join", "IFX LIST", "make it a member of VLANs, whatever it carries", change_port<&Ports::add_members>},
    {"port leave", "IFX LIST", "take it out of VLANs", change_port<&Ports::remove_members>},
    {"port show", "", "the ports", show_ports},
};

constexpr Command kVlanCommands[] = {
    {"vlan create", "LIST [MODE]", "new VLANs, when no client objects", create_vlans},
    {"vlan delete", "LIST", "take VLANs away", delete_vlans},
    {"vlan rename", "VID NAME", "another name", rename_vlan},
    {"vlan mode", "LIST MODE", "another mode: static, dynamic or super", set_vlan_mode},
    {"vlan svi", "VID IFX", "a routed interface; 0 takes it away", set_svi},
    {"vlan patience", "MILLISECONDS", "how long a client may take to object", set_patience},
    {"vlan show", "", "the VLANs", show_vlans},
};

// The element of a show command's list whose field is the key.
Fields element(const Answer &answer, const char *list, const char *field, uint32_t key) {
    for (const Fields &object : answer.json()[list])
        if (object[field] == key)
            return object;
    return nullptr;
}

Fields port_value(Sandbox &, const Words &keys) {
    return element(Ports::show(), "ports", "ifx", parse_ifx(keys[0]));
}

Fields vlan_value(Sandbox &, const Words &keys) {
    return element(Vlans::show(), "vlans", "vid", parse_vid(keys[0]));
}

constexpr Value kVlanValues[] = {
    {"port", "IFX", port_value},
    {"vlan", "VID", vlan_value},
};

} // namespace

Family port_commands() {
    return kPortCommands;
}

Family vlan_commands() {
    return kVlanCommands;
}

Values vlan_values() {
    return kVlanValues;
}

} // namespace sandbox
