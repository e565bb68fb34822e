// The commands about VLAN groups, and about functions that exclude each other on a port.
#include "base/shared_word.h"
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"
#include "wire/value.h"

#include <bridge/port_exclusion.h>

#include <cstring>
#include <stdexcept>

namespace sandbox {

namespace {

Groups &groups_of(Sandbox &sandbox) {
    return sandbox.bridge.groups();
}

Outcome create_group(Sandbox &sandbox, const Call &call) {
    groups_of(sandbox).create(parse_number(call.words[0]));
    return Answer();
}
Outcome delete_group(Sandbox &sandbox, const Call &call) {
    groups_of(sandbox).remove(parse_number(call.words[0]));
    return Answer();
}
Outcome set_group_vlans(Sandbox &sandbox, const Call &call) {
    groups_of(sandbox).set_vlans(parse_number(call.words[0]), parse_vlans(call.words[1]));
    return Answer();
}
Outcome set_group_default(Sandbox &sandbox, const Call &call) {
    groups_of(sandbox).set_default(parse_number(call.words[0]), parse_vid(call.words[1]));
    return Answer();
}
Outcome set_group_mode(Sandbox &sandbox, const Call &call) {
    groups_of(sandbox).set_assign_mode(parse_number(call.words[0]),
                                       static_cast<uint8_t>(parse_number(call.words[1], UINT8_MAX)));
    return Answer();
}
Outcome show_groups(Sandbox &, const Call &) {
    return Groups::show();
}

// The two tables of claims; both are every process's to write, this one's too.
struct Claims {
    const wire::Field &field; // how a word of it is written
    // Both give what is in the way.
    uint32_t (*set)(uint32_t ifx, uint32_t bits, uint32_t against);
    void (*clear)(uint32_t ifx, uint32_t bits);
};

const Claims &exclusions() {
    static const wire::Field word = wire::element_of(*wire::record_of<bri_exclusion_table>().find("flags"), 0);
    static const Claims claims{word,
                               [](uint32_t ifx, uint32_t bits, uint32_t against) {
                                   uint32_t conflict = 0;
                                   if (bridge_set_excflag(ifx, bits, against, &conflict) != 0 && conflict == 0)
                                       throw std::invalid_argument("no interface " + std::to_string(ifx));
                                   return conflict;
                               },
                               [](uint32_t ifx, uint32_t bits) {
                                   if (bridge_unset_excflag(ifx, bits) != 0)
                                       throw std::invalid_argument("no interface " + std::to_string(ifx));
                               }};
    return claims;
}

const Claims &attributes() {
    static const wire::Field word = *wire::record_of<spcb>().find("attr_exclude");
    static const Claims claims{word,
                               [](uint32_t ifx, uint32_t bits, uint32_t against) {
                                   port_at(ifx);
                                   uint32_t conflict = 0;
                                   swport_set_attr_exclude(static_cast<int32_t>(ifx), bits, 1, against, &conflict);
                                   return conflict;
                               },
                               [](uint32_t ifx, uint32_t bits) {
                                   port_at(ifx);
                                   swport_set_attr_exclude(static_cast<int32_t>(ifx), bits, 0, 0, nullptr);
                               }};
    return claims;
}

uint32_t parse_bits(const wire::Field &field, const std::string &text) {
    std::vector<uint8_t> bytes(field.offset + field.width);
    wire::parse_value(field, text, bytes, wire::Order::kNative);
    return bri::load_at<uint32_t>({bytes.data(), bytes.size()}, field.offset);
}

std::string bits_text(const wire::Field &field, uint32_t bits) {
    std::vector<uint8_t> bytes(field.offset + field.width);
    std::memcpy(bytes.data() + field.offset, &bits, sizeof bits);
    return wire::value_text(field, bytes, wire::Order::kNative);
}

template <const Claims &(*Table)()> Outcome claim(Sandbox &, const Call &call) {
    const bool bounded = call.words.size() == 4 && call.words[2] == "against";
    if (call.words.size() > 2 && !bounded)
        throw std::invalid_argument(call.command + " IFX BITS [against BITS]");
    const Claims &claims = Table();
    const uint32_t against = bounded ? parse_bits(claims.field, call.words[3]) : 0;
    const uint32_t conflict = claims.set(parse_number(call.words[0]), parse_bits(claims.field, call.words[1]), against);
    if (conflict != 0)
        throw std::invalid_argument(bits_text(claims.field, conflict) + " is in the way");
    return Answer();
}

template <const Claims &(*Table)()> Outcome release(Sandbox &, const Call &call) {
    Table().clear(parse_number(call.words[0]), parse_bits(Table().field, call.words[1]));
    return Answer();
}

// The table of exclusion flags has no call that gives its words, but a claim against all of them tells what is there.
Outcome show_exclusions(Sandbox &, const Call &) {
    Answer answer;
    answer.begin("exclusions").begin("attributes");
    for (uint32_t ifx = 0; ifx <= BRI_EXCLUSION_IFX_MAX; ++ifx)
        if (const uint32_t bits = exclusions().set(ifx, 0, UINT32_MAX); bits != 0)
            answer.row("exclusions", "  interface {ifx} {flags}",
                       {{"ifx", ifx}, {"flags", bits_text(exclusions().field, bits)}});
    for_each_port([&](uint32_t ifx) {
        if (const uint32_t bits = bri::word::load(port_at(ifx).attr_exclude); bits != 0)
            answer.row("attributes", "  port {ifx} attributes {attr_exclude}",
                       {{"ifx", ifx}, {"attr_exclude", bits_text(attributes().field, bits)}});
    });
    return answer;
}

constexpr Command kGroupCommands[] = {
    {"group create", "ID", "a new VLAN group, 1 to 128", create_group},
    {"group delete", "ID", "take it away", delete_group},
    {"group vlans", "ID LIST", "exactly these VLANs are in it", set_group_vlans},
    {"group default", "ID VID", "its default VLAN", set_group_default},
    {"group mode", "ID MODE", "its VLAN assign mode, a number", set_group_mode},
    {"group show", "", "the groups", show_groups},
    {"exclude set", "IFX FLAGS [against FLAGS]", "claim an interface: dot1x|secure, unless one of the others is there",
     claim<exclusions>},
    {"exclude clear", "IFX FLAGS", "give it back", release<exclusions>},
    {"exclude attribute", "IFX BITS [against BITS]", "the same with the attributes of a port", claim<attributes>},
    {"exclude no-attribute", "IFX BITS", "give them back", release<attributes>},
    {"exclude show", "", "all claims", show_exclusions},
};

} // namespace

Family group_commands() {
    return kGroupCommands;
}

} // namespace sandbox
