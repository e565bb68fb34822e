// The commands about addresses, the frames they are learned from, and the kernel's bridge module.
#include "sandbox/sandbox.h"
#include "wire/value.h"

#include <algorithm>
#include <cerrno>

namespace sandbox {

namespace {

constexpr uint32_t kFillMost = 1000000;
constexpr Microseconds kFastest{1000};
constexpr const char *kTypes[] = {"?",    "dynamic",  "static", "filter", "local",
                                  "copy", "security", "other",  "trusted"}; // by enum bri_mac_type
static_assert(std::size(kTypes) == BRI_MAC_TYPE_TRUST + 1);

const char *type_text(uint32_t type) {
    return kTypes[type < std::size(kTypes) ? type : 0];
}

// The place of a word in a table, behind the first ones.
template <size_t N>
uint32_t find_word(const char *const (&table)[N], const std::string &word, const char *what, size_t first = 0) {
    const auto *const found = std::find(table + first, table + N, word);
    refuse_if(found == table + N, std::string("no such ") + what + ": " + word);
    return static_cast<uint32_t>(found - table);
}

std::string mac_text(const uint8_t (&mac)[6]) {
    char text[BRI_MAC_TEXT_SIZE];
    bri_mac_to_text(mac, text, sizeof text);
    return text;
}

// A record of the given words, address, VLAN, port and type, of which * stands for any.
bri_mac_msg record_of(bri_mac_oper oper, const Words &words) {
    bri_mac_msg record{};
    bri_mac_entry &entry = record.entry;
    const auto take = [&](size_t index, bri_mac_field field, const auto &parse) {
        if (index >= words.size() || words[index] == "*")
            return;
        entry.field = static_cast<uint8_t>(entry.field | field);
        parse(words[index]);
    };
    record.oper = oper;
    take(0, BRI_MAC_FIELD_MAC, [&](const std::string &word) { parse_mac(word, entry.mac); });
    take(1, BRI_MAC_FIELD_BCAST_ID, [&](const std::string &word) { entry.bcast_id = word_as<uint16_t>(word); });
    take(2, BRI_MAC_FIELD_IFX, [&](const std::string &word) { entry.ifx = parse_number(word); });
    take(3, BRI_MAC_FIELD_TYPE,
         [&](const std::string &word) { entry.type = find_word(kTypes, word, "type of address", 1); });
    return record;
}

Answer changed(const Call &, uint32_t count) {
    return Answer().say("mac: {count} changed", {{"count", count}});
}

Outcome add_address(Sandbox &sandbox, const Call &call) {
    Words whole = call.words;
    if (whole.size() < 4)
        whole.emplace_back("dynamic");
    refuse_if(std::ranges::find(whole, "*") != whole.end(), "an address to add is named whole");
    return changed(call, sandbox.bridge.addresses.apply({record_of(BRI_MAC_ADD, whole)}));
}

// COUNT VID IFX: entries that count up from 06:00:00:00:00:00, for the look of a full table.
std::vector<bri_mac_entry> many_of(const Words &words) {
    const Words one = {"06:00:00:00:00:00", words[1], words[2], "dynamic"};
    std::vector<bri_mac_entry> all(parse_number(words[0], kFillMost), record_of(BRI_MAC_ADD, one).entry);
    for (uint32_t i = 0; i < all.size(); ++i)
        for (unsigned byte = 0; byte < sizeof i; ++byte)
            all[i].mac[5 - byte] = static_cast<uint8_t>(i >> 8 * byte);
    return all;
}

Outcome fill_table(Sandbox &sandbox, const Call &call) {
    std::vector<bri_mac_msg> records;
    for (const bri_mac_entry &entry : many_of(call.words))
        records.push_back({0, BRI_MAC_ADD, entry});
    return changed(call, sandbox.bridge.addresses.apply(records));
}

Fields fields_of(const bri_mac_entry &entry) {
    return {
        {"mac", mac_text(entry.mac)}, {"vlan", entry.bcast_id}, {"ifx", entry.ifx}, {"type", type_text(entry.type)}};
}

Outcome show_addresses(Sandbox &sandbox, const Call &) {
    Answer answer{"addresses"};
    for (const bri_mac_msg &record : sandbox.bridge.addresses.all())
        answer.row("addresses", "  {mac} VLAN {vlan} port {ifx} {type}", fields_of(record.entry));
    return answer.say("mac: {count} addresses", {{"count", answer.json()["addresses"].size()}});
}

Outcome find_address(Sandbox &sandbox, const Call &call) {
    const auto found = sandbox.bridge.addresses.find(record_of(BRI_MAC_ADD, call.words).entry);
    refuse_if(!found, "no such address");
    return Answer().say("mac: {mac} VLAN {vlan} port {ifx} {type}", fields_of(*found));
}

std::string limit_text(uint32_t limit) {
    return limit == MacSettings::kNoLimit ? "any" : std::to_string(limit);
}

Answer figures_of(Sandbox &sandbox) {
    const KernelFigures figures = sandbox.bridge.addresses.figures();
    Answer answer;
    for (uint32_t type = BRI_MAC_TYPE_DYNAMIC; type < std::size(kTypes); ++type)
        if (figures.of_type[type] != 0)
            answer.row("types", "  {type} {count}", {{"type", type_text(type)}, {"count", figures.of_type[type]}});
    const wire::Ids quiet = wire::ids_in(figures.quiet_ports.words);
    answer.say("mac: {count} addresses, age {age} s, room for {static} static, {filter} filter, {total} in all, "
               "learning {learning}",
               {{"count", figures.addresses},
                {"age", figures.age},
                {"static", limit_text(figures.room.static_num)},
                {"filter", limit_text(figures.room.filter_num)},
                {"total", limit_text(figures.room.total_num)},
                {"learning", figures.learning != 0 ? "on" : "off"}});
    if (!quiet.empty())
        answer.say("mac: learning off on port {quiet}", {{"quiet", quiet}});
    return answer;
}

Answer age_set(const Call &, uint32_t seconds) {
    return Answer().say("mac: age {seconds} s", {{"seconds", seconds}});
}

Outcome set_learning(Sandbox &sandbox, const Call &call) {
    const bool on = word_as<bool>(call.words[0]);
    if (call.words.size() > 1)
        sandbox.bridge.addresses.set_port_learning(word_as<uint32_t>(call.words[1]), on);
    else
        sandbox.bridge.addresses.set_learning(on);
    return Answer();
}

// What became of a frame, by enum Seen.
constexpr const char *kSeen[] = {"learned",
                                 "known",
                                 "moved",
                                 "configured, stays where it is",
                                 "not learned, learning is off",
                                 "not learned, learning is off on the port",
                                 "not learned, the table is full"};
static_assert(std::size(kSeen) == static_cast<size_t>(Seen::kFull) + 1);

Outcome traffic(Sandbox &sandbox, const Call &call) {
    const bool again = call.words.size() > 3;
    const Words place(call.words.begin(), call.words.begin() + 3);
    const bri_mac_entry frame = record_of(BRI_MAC_ADD, place).entry;
    refuse_if(bri_mac_is_multicast(frame.mac) != 0, "a group address is nobody's");
    const Microseconds period = again ? parse_seconds(call.words[3]) : Microseconds(0);
    refuse_if(again && period < kFastest, "a millisecond apart at least");
    const Seen seen = again ? sandbox.traffic.start(frame, period) : sandbox.traffic.send(frame);
    return Answer().say("traffic: {outcome}", {{"outcome", kSeen[static_cast<size_t>(seen)]}});
}

Outcome flood(Sandbox &sandbox, const Call &call) {
    const std::vector<bri_mac_entry> frames = many_of(call.words);
    refuse_for(frames.empty() ? "" : sandbox.bridge.addresses.refusal(frames[0]));
    const FramesSeen seen = sandbox.bridge.addresses.see(frames);
    Answer answer{"outcomes"};
    for (size_t outcome = 0; outcome < std::size(kSeen); ++outcome)
        if (seen.times[outcome] != 0)
            answer.row("outcomes", "traffic: {count} {outcome}",
                       {{"count", seen.times[outcome]}, {"outcome", kSeen[outcome]}});
    return answer;
}

Outcome stop_traffic(Sandbox &sandbox, const Call &call) {
    uint8_t mac[6];
    const bool all = call.words[0] == "all";
    if (!all)
        parse_mac(call.words[0], mac);
    const size_t count = all ? sandbox.traffic.stop_all() : sandbox.traffic.stop(mac);
    return Answer().say("traffic: {count} stopped", {{"count", count}});
}

Outcome show_traffic(Sandbox &sandbox, const Call &) {
    Answer answer{"hosts"};
    for (const Traffic::Source &source : sandbox.traffic.sources())
        answer.row("hosts", "  {mac} VLAN {vlan} port {ifx} every {seconds} s",
                   {{"mac", mac_text(source.frame.mac)},
                    {"vlan", source.frame.bcast_id},
                    {"ifx", source.frame.ifx},
                    {"seconds", static_cast<double>(source.period.count()) / 1e6}});
    return answer.say("traffic: {count} hosts send", {{"count", sandbox.traffic.sources().size()}});
}

// A host's entry as the library asks for it: one address, dynamic.
mvlan_msg host_entry(MacVlanOper oper, const std::string &mac) {
    constexpr uint8_t dynamic = 2;
    mvlan_msg request{};
    request.entry.type = oper;
    parse_mac(mac, request.entry.mac);
    std::memset(request.entry.mask, 0xFF, sizeof request.entry.mask);
    request.entry.flag = dynamic;
    return request;
}

Outcome add_host(Sandbox &sandbox, const Call &call) {
    mvlan_msg request = host_entry(kMacVlanAdd, call.words[0]);
    request.entry.vlan = word_as<uint16_t>(call.words[1]);
    request.ifx = word_or<uint32_t>(call, 2);
    sandbox.bridge.addresses.apply_host(request);
    return Answer();
}

Outcome show_hosts(Sandbox &sandbox, const Call &) {
    Answer answer{"entries"};
    for (const mvlan_msg &known : sandbox.bridge.addresses.hosts())
        answer.row("entries", "  {mac} mask {mask} VLAN {vlan} port {ifx}",
                   {{"mac", mac_text(known.entry.mac)},
                    {"mask", mac_text(known.entry.mask)},
                    {"vlan", known.entry.vlan},
                    {"ifx", known.ifx}});
    return answer.say("mvlan: {count} entries", {{"count", answer.json()["entries"].size()}});
}

constexpr const char *kKernelStates[] = {"up", "down", "error", "long", "silent"}; // by enum KernelState
static_assert(std::size(kKernelStates) == static_cast<size_t>(KernelState::kSilent) + 1);

Outcome show_kernel(Sandbox &sandbox) {
    const auto module = sandbox.bridge.kernel.ask(kReadModule).record<KernelModule>();
    Answer answer;
    answer.say("kernel: {state}, {sockets} sockets, {listeners} listen, family {family}, {addresses} addresses",
               {{"state", kKernelStates[module.state]},
                {"sockets", module.sockets},
                {"listeners", module.listeners},
                {"family", module.family},
                {"addresses", sandbox.bridge.addresses.figures().addresses}});
    if (module.delay_ms != 0)
        answer.say("kernel: answers after {delay_ms} ms", {{"delay_ms", module.delay_ms}});
    return answer;
}

// A state, or how long every answer takes.
Outcome set_kernel(Sandbox &sandbox, const Call &call) {
    constexpr uint32_t largest_error = 4095;
    constexpr uint32_t longest_delay = 600000;
    if (call.words.empty())
        return show_kernel(sandbox);
    KernelLink &link = sandbox.bridge.kernel;
    auto module = link.ask(kReadModule).record<KernelModule>();
    const std::string &word = call.words[0];
    if (word == "delay")
        module.delay_ms = parse_number(call.rest(1), longest_delay);
    else {
        module.state = find_word(kKernelStates, word, "state");
        refuse_if(call.words.size() > 1 && word != "error", "only error takes a number");
        module.error = call.words.size() > 1 ? parse_number(call.words[1], largest_error) : uint32_t{EIO};
    }
    link.ask(kSetModule, bytes_of(module));
    return Answer();
}

constexpr Command kMacCommands[] = {
    {"mac add", "MAC VID IFX [TYPE]", "dynamic, static, filter, local, copy, security, other, trusted", add_address},
    {"mac delete", "MAC [VID] [IFX] [TYPE]", "all that match; * and what is left out stand for any",
     [](Sandbox &sandbox, const Call &call) -> Outcome {
         return changed(call, sandbox.bridge.addresses.apply({record_of(BRI_MAC_DEL, call.words)}));
     }},
    {"mac fill", "COUNT VID IFX", "that many dynamic addresses, from 06:00:00:00:00:00 on", fill_table},
    {"mac flush", "[LIST] [IFX]", "the learned addresses of VLANs go, on a port or on all",
     operation<&Addresses::flush, changed>},
    {"mac show", "", "the table", show_addresses},
    {"mac find", "MAC VID", "one address", find_address},
    {"mac count", "", "how many of each type, and the settings",
     [](Sandbox &sandbox, const Call &) -> Outcome { return figures_of(sandbox); }},
    {"mac age", "SECONDS", "how long a learned address stays without a frame; 0: for ever",
     operation<&Addresses::set_age, age_set>},
    {"mac range", "MIN MAX STEP", "the ages that are allowed, in seconds; zeros: all",
     operation<&Addresses::set_age_range>},
    {"mac learning", "on|off [IFX]", "learn addresses from frames, everywhere or on a port", set_learning},
    {"mac capacity", "STATIC FILTER TOTAL", "the addresses that there is room for; any: no limit",
     operation<&Addresses::set_room>},
    {"traffic", "MAC VID IFX [every SECONDS]", "a frame from that address comes in, once or again and again", traffic},
    {"traffic flood", "COUNT VID IFX", "one from each of that many, from 06:00:00:00:00:00 on", flood},
    {"traffic stop", "MAC", "that host is silent; all: everybody is", stop_traffic},
    {"traffic show", "", "the hosts that send", show_traffic},
    {"mvlan add", "MAC VID [IFX]", "put the host with that address in a VLAN", add_host},
    {"mvlan delete", "MAC", "withdraw that",
     [](Sandbox &sandbox, const Call &call) -> Outcome {
         sandbox.bridge.addresses.apply_host(host_entry(kMacVlanDelete, call.words[0]));
         return Answer();
     }},
    {"mvlan capacity", "ENTRIES", "the entries that there is room for; any: no limit",
     operation<&Addresses::set_host_room>},
    {"mvlan show", "", "the entries", show_hosts},
    {"kernel", "[STATE [NUMBER]]",
     "the kernel's bridge module: up, down, error [ERRNO], long or silent; delay MS; or show it", set_kernel},
};

Fields address_value(Sandbox &sandbox, const Words &keys) {
    const auto found = sandbox.bridge.addresses.find(record_of(BRI_MAC_ADD, keys).entry);
    return found ? fields_of(*found) : Fields(nullptr);
}

constexpr Value kMacValues[] = {
    {"mac", "MAC VID", address_value},
    {"addresses", "", [](Sandbox &sandbox, const Words &) { return figures_of(sandbox).json(); }},
};

} // namespace

const Family mac_commands = kMacCommands;
const Values mac_values = kMacValues;

} // namespace sandbox
