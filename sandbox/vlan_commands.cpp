// The commands about ports and VLANs: one row for each, as in commands.cpp.
#include "sandbox/commands.h"
#include "sandbox/names.h"
#include "sandbox/output.h"
#include "sandbox/verbs.h"

#include <memory>
#include <stdexcept>

namespace sandbox {

namespace {

using Words = std::vector<std::string>; // behind "port" and its verb, or "vlan" and its verb

uint32_t ifx_of(const std::string &word) {
    return parse_number(word, BRI_PORT_SLOTS - 1);
}
uint16_t vid_of(const std::string &word) {
    return static_cast<uint16_t>(parse_number(word, BRI_VID_MAX));
}

template <void (Ports::*Change)(uint32_t ifx, const vlanset &vlans)>
void change_port(Vlans &vlans, const Words &words) {
    (vlans.ports().*Change)(ifx_of(words[0]), parse_vlans(words[1]));
}

constexpr Verb<Vlans> kPortVerbs[] = {
    {"add", "IFX MODE PVID", "a new port, 1 to 63; MODE is access, trunk, hybrid, uplink, tunnel, host, promis, route",
     3, 3,
     [](Vlans &vlans, const Words &words) {
         vlans.ports().add(ifx_of(words[0]), parse_port_mode(words[1]), vid_of(words[2]));
     }},
    {"del", "IFX", "take a port away", 1, 1,
     [](Vlans &vlans, const Words &words) { vlans.ports().remove(ifx_of(words[0])); }},
    {"mode", "IFX MODE", "another mode", 2, 2,
     [](Vlans &vlans, const Words &words) { vlans.ports().set_mode(ifx_of(words[0]), parse_port_mode(words[1])); }},
    {"pvid", "IFX VID", "another native VLAN", 2, 2,
     [](Vlans &vlans, const Words &words) { vlans.ports().set_pvid(ifx_of(words[0]), vid_of(words[1])); }},
    {"allow", "IFX LIST", "the VLANs that may pass it", 2, 2, change_port<&Ports::set_allowed>},
    {"join", "IFX LIST", "make it a member of VLANs, whatever it carries", 2, 2, change_port<&Ports::add_members>},
    {"leave", "IFX LIST", "take it out of VLANs", 2, 2, change_port<&Ports::remove_members>},
    {"show", "", "the ports", 0, 0, [](Vlans &, const Words &) { Ports::show(); }},
};

constexpr Verb<Vlans> kVlanVerbs[] = {
    {"delete", "LIST", "take VLANs away", 1, 1,
     [](Vlans &vlans, const Words &words) { vlans.remove(parse_vlans(words[0])); }},
    {"rename", "VID NAME", "another name", 2, 2,
     [](Vlans &vlans, const Words &words) { vlans.rename(vid_of(words[0]), words[1]); }},
    {"mode", "LIST MODE", "another mode: static, dynamic or super", 2, 2,
     [](Vlans &vlans, const Words &words) { vlans.set_mode(parse_vlans(words[0]), parse_vlan_mode(words[1])); }},
    {"svi", "VID IFX", "a routed interface; 0 takes it away", 2, 2,
     [](Vlans &vlans, const Words &words) { vlans.set_svi(vid_of(words[0]), parse_number(words[1])); }},
    {"patience", "MILLISECONDS", "how long a client may take to object", 1, 1,
     [](Vlans &vlans, const Words &words) {
         vlans.prejudge().set_patience(Milliseconds(parse_number(words[0], 600000)));
     }},
    {"show", "", "the VLANs", 0, 0, [](Vlans &, const Words &) { Vlans::show(); }},
};

std::string text_of(const Words &words) {
    std::string text;
    for (const std::string &word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// Runs the verb that words[1] names; one that shows nothing says that it is done.
template <size_t N> void run_and_say(const Verb<Vlans> (&verbs)[N], Vlans &vlans, const Words &words) {
    const Verb<Vlans> *verb = run_verb(verbs, vlans, words);
    if (verb != nullptr && verb->most != 0)
        say("%s: done", text_of(words).c_str());
}

} // namespace

Commands::Result Commands::port(const Words &words, StreamState &) {
    run_and_say(kPortVerbs, bridge_.vlans(), words);
    return std::nullopt;
}

Commands::Result Commands::vlan(const Words &words, StreamState &) {
    if (words[1] == "create")
        return create_vlans(words);
    if (words[1] == "help")
        say("  %-13s%-22s%s", "create", "LIST [MODE]", "new VLANs, when no client objects");
    run_and_say(kVlanVerbs, bridge_.vlans(), words);
    return std::nullopt;
}

// The next command waits until it is settled, one way or the other.
Commands::Result Commands::create_vlans(const Words &words) {
    if (words.size() < 3)
        throw std::invalid_argument("usage: vlan create LIST [MODE]");
    const uint32_t mode = words.size() > 3 ? parse_vlan_mode(words[3]) : uint32_t{BRI_VLAN_STATIC};
    const auto settled = std::make_shared<bool>(false);
    bridge_.vlans().create(parse_vlans(words[2]), mode, true, [this, settled] {
        *settled = true;
        bridge_.on_change();
    });
    if (*settled)
        return std::nullopt;
    constexpr Milliseconds long_enough{3600000}; // the questions before it have their own bounds
    return Wait{[settled] { return *settled; }, long_enough, "waited in vain for the clients' answers"};
}

} // namespace sandbox
