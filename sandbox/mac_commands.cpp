// The commands about the kernel's address tables.
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <bridge/vlan_db.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace sandbox {

namespace {

constexpr uint32_t kFillMost = 1000000;
constexpr const char *kTypes[] = {"?",    "dynamic",  "static", "filter", "local",
                                  "copy", "security", "other",  "trusted"}; // by enum bri_mac_type
static_assert(std::size(kTypes) == BRI_MAC_TYPE_TRUST + 1);

const char *type_text(uint32_t type) {
    return kTypes[type < std::size(kTypes) ? type : 0];
}

uint32_t parse_type(const std::string &text) {
    const auto *const found = std::find(std::begin(kTypes) + 1, std::end(kTypes), text);
    if (found == std::end(kTypes))
        throw std::invalid_argument("no such type of address: " + text);
    return static_cast<uint32_t>(found - kTypes);
}

void parse_mac(const std::string &text, uint8_t (&mac)[6]) {
    unsigned bytes[6];
    int end = -1;
    if (text.size() != 17 ||
        std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%n", &bytes[0], &bytes[1], &bytes[2], &bytes[3], &bytes[4],
                    &bytes[5], &end) != 6 ||
        end != 17)
        throw std::invalid_argument("not an address such as 02:00:00:00:00:01: " + text);
    std::copy(std::begin(bytes), std::end(bytes), mac);
}

std::string mac_text(const uint8_t (&mac)[6]) {
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
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
    take(1, BRI_MAC_FIELD_BCAST_ID, [&](const std::string &word) { entry.bcast_id = parse_vid(word); });
    take(2, BRI_MAC_FIELD_IFX, [&](const std::string &word) { entry.ifx = parse_number(word); });
    take(3, BRI_MAC_FIELD_TYPE, [&](const std::string &word) { entry.type = parse_type(word); });
    return record;
}

Answer changed(size_t count) {
    return Answer().say("mac: {count} changed", {{"count", count}});
}

Outcome add(Sandbox &sandbox, const Call &call) {
    Words whole = call.words;
    if (whole.size() < 4)
        whole.emplace_back("dynamic");
    if (std::find(whole.begin(), whole.end(), "*") != whole.end())
        throw std::invalid_argument("an address to add is named whole");
    return changed(sandbox.bridge.addresses().apply(record_of(BRI_MAC_ADD, whole)));
}

Outcome remove(Sandbox &sandbox, const Call &call) {
    return changed(sandbox.bridge.addresses().apply(record_of(BRI_MAC_DEL, call.words)));
}

// Learned addresses that count up from 06:00:00:00:00:00, for the look of a full table.
Outcome fill(Sandbox &sandbox, const Call &call) {
    const uint32_t count = parse_number(call.words[0], kFillMost);
    std::vector<bri_mac_msg> run(
        count, record_of(BRI_MAC_ADD, {"06:00:00:00:00:00", call.words[1], call.words[2], "dynamic"}));
    for (uint32_t i = 0; i < count; ++i)
        for (unsigned byte = 0; byte < sizeof i; ++byte)
            run[i].entry.mac[5 - byte] = static_cast<uint8_t>(i >> 8 * byte);
    const Bytes records{reinterpret_cast<const uint8_t *>(run.data()), run.size() * sizeof run[0]};
    return changed(sandbox.bridge.addresses().apply_run(records));
}

Outcome show(Sandbox &sandbox, const Call &) {
    Answer answer;
    answer.begin("addresses");
    sandbox.bridge.addresses().macs().for_each([&](const bri_mac_entry &entry) {
        answer.row("addresses", "  {mac} VLAN {vlan} port {ifx} {type}",
                   {{"mac", mac_text(entry.mac)},
                    {"vlan", entry.bcast_id},
                    {"ifx", entry.ifx},
                    {"type", type_text(entry.type)}});
    });
    return answer.say("mac: {count} addresses", {{"count", sandbox.bridge.addresses().macs().size()}});
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
    request.entry.vlan = parse_vid(call.words[1]);
    request.ifx = call.words.size() > 2 ? parse_number(call.words[2]) : 0;
    sandbox.bridge.addresses().apply(request);
    return Answer();
}

Outcome remove_host(Sandbox &sandbox, const Call &call) {
    if (!sandbox.bridge.addresses().apply(host_entry(kMacVlanDelete, call.words[0])))
        throw std::invalid_argument("no entry for " + call.words[0]);
    return Answer();
}

Outcome show_hosts(Sandbox &sandbox, const Call &) {
    Answer answer;
    answer.begin("entries");
    for (const mvlan_msg &known : sandbox.bridge.addresses().hosts().entries())
        answer.row("entries", "  {mac} mask {mask} VLAN {vlan} port {ifx}",
                   {{"mac", mac_text(known.entry.mac)},
                    {"mask", mac_text(known.entry.mask)},
                    {"vlan", known.entry.vlan},
                    {"ifx", known.ifx}});
    return answer.say("mvlan: {count} entries", {{"count", sandbox.bridge.addresses().hosts().entries().size()}});
}

constexpr struct {
    const char *name;
    KernelState state;
} kKernelStates[] = {
    {"up", KernelState::kUp},     {"down", KernelState::kDown},     {"error", KernelState::kError},
    {"long", KernelState::kLong}, {"silent", KernelState::kSilent},
};

Outcome kernel(Sandbox &sandbox, const Call &call) {
    constexpr uint32_t largest_error = 4095;
    Kernel &module = sandbox.kernel;
    const auto *const row = std::find_if(std::begin(kKernelStates), std::end(kKernelStates), [&](const auto &known) {
        return call.words.empty() ? known.state == module.state() : call.words[0] == known.name;
    });
    if (call.words.empty())
        return Answer().say(
            "kernel: {state}, {sockets} sockets, {listeners} listen, family {family}, {addresses} addresses",
            {{"state", row->name},
             {"sockets", module.sockets()},
             {"listeners", module.listeners()},
             {"family", module.family()},
             {"addresses", sandbox.bridge.addresses().macs().size()}});
    if (row == std::end(kKernelStates))
        throw std::invalid_argument("no such state: " + call.words[0]);
    if (call.words.size() > 1 && row->state != KernelState::kError)
        throw std::invalid_argument("only error takes a number");
    const uint32_t error = call.words.size() > 1 ? parse_number(call.words[1], largest_error) : uint32_t{EIO};
    module.set_state(row->state, static_cast<int>(error));
    return Answer();
}

constexpr Command kCommands[] = {
    {"mac add", "MAC VID IFX [TYPE]", "dynamic, static, filter, local, copy, security, other, trusted", add},
    {"mac delete", "MAC [VID] [IFX] [TYPE]", "all that match; * and what is left out stand for any", remove},
    {"mac fill", "COUNT VID IFX", "that many dynamic addresses, from 06:00:00:00:00:00 on", fill},
    {"mac show", "", "the table", show},
    {"mvlan add", "MAC VID [IFX]", "put the host with that address in a VLAN", add_host},
    {"mvlan delete", "MAC", "withdraw that", remove_host},
    {"mvlan show", "", "the entries", show_hosts},
    {"kernel", "[STATE [ERRNO]]", "the kernel's bridge module: up, down, error, long or silent; or show it", kernel},
};

} // namespace

Family mac_commands() {
    return kCommands;
}

} // namespace sandbox
