// The commands about the kernel's address tables.
#include "sandbox/commands.h"
#include "sandbox/names.h"
#include "sandbox/output.h"
#include "sandbox/verbs.h"

#include <bridge/vlan_db.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <stdexcept>

namespace sandbox {

namespace {

using Words = std::vector<std::string>; // behind the verb

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

uint16_t parse_vid(const std::string &text) {
    return static_cast<uint16_t>(parse_number(text, BRI_VID_MAX));
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

void add(Addresses &addresses, const Words &words) {
    Words whole = words;
    if (whole.size() < 4)
        whole.emplace_back("dynamic");
    if (std::find(whole.begin(), whole.end(), "*") != whole.end())
        throw std::invalid_argument("an address to add is named whole");
    say("mac: %zu changed", addresses.apply(record_of(BRI_MAC_ADD, whole)));
}

void remove(Addresses &addresses, const Words &words) {
    say("mac: %zu changed", addresses.apply(record_of(BRI_MAC_DEL, words)));
}

// Learned addresses that count up from 06:00:00:00:00:00, for the look of a full table.
void fill(Addresses &addresses, const Words &words) {
    const uint32_t count = parse_number(words[0], kFillMost);
    std::vector<bri_mac_msg> run(count, record_of(BRI_MAC_ADD, {"06:00:00:00:00:00", words[1], words[2], "dynamic"}));
    for (uint32_t i = 0; i < count; ++i)
        for (unsigned byte = 0; byte < sizeof i; ++byte)
            run[i].entry.mac[5 - byte] = static_cast<uint8_t>(i >> 8 * byte);
    const Bytes records{reinterpret_cast<const uint8_t *>(run.data()), run.size() * sizeof run[0]};
    say("mac: %zu changed", addresses.apply_run(records));
}

void show(Addresses &addresses, const Words &) {
    addresses.macs().for_each([](const bri_mac_entry &entry) {
        say("  %s VLAN %u port %u %s", mac_text(entry.mac).c_str(), entry.bcast_id, entry.ifx, type_text(entry.type));
    });
    say("mac: %zu addresses", addresses.macs().size());
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

void add_host(Addresses &addresses, const Words &words) {
    mvlan_msg request = host_entry(kMacVlanAdd, words[0]);
    request.entry.vlan = parse_vid(words[1]);
    request.ifx = words.size() > 2 ? parse_number(words[2]) : 0;
    addresses.apply(request);
}

void remove_host(Addresses &addresses, const Words &words) {
    if (!addresses.apply(host_entry(kMacVlanDelete, words[0])))
        throw std::invalid_argument("no entry for " + words[0]);
}

void show_hosts(Addresses &addresses, const Words &) {
    for (const mvlan_msg &known : addresses.hosts().entries())
        say("  %s mask %s VLAN %u port %u", mac_text(known.entry.mac).c_str(), mac_text(known.entry.mask).c_str(),
            known.entry.vlan, known.ifx);
    say("mvlan: %zu entries", addresses.hosts().entries().size());
}

constexpr Verb<Addresses> kMacVerbs[] = {
    {"add", "MAC VID IFX [TYPE]", "dynamic, static, filter, local, copy, security, other, trusted", 3, 4, add},
    {"delete", "MAC VID IFX TYPE", "all that match; * and what is left out stand for any", 1, 4, remove},
    {"fill", "COUNT VID IFX", "that many dynamic addresses, from 06:00:00:00:00:00 on", 3, 3, fill},
    {"show", "", "the table", 0, 0, show},
};

constexpr Verb<Addresses> kHostVerbs[] = {
    {"add", "MAC VID [IFX]", "put the host with that address in a VLAN", 2, 3, add_host},
    {"delete", "MAC", "withdraw that", 1, 1, remove_host},
    {"show", "", "the entries", 0, 0, show_hosts},
};

constexpr struct {
    const char *name;
    KernelState state;
} kKernelStates[] = {
    {"up", KernelState::kUp},     {"down", KernelState::kDown},     {"error", KernelState::kError},
    {"long", KernelState::kLong}, {"silent", KernelState::kSilent},
};

} // namespace

Commands::Result Commands::mac(const Words &words, StreamState &) {
    run_verb(kMacVerbs, bridge_.addresses(), words);
    return std::nullopt;
}

Commands::Result Commands::mvlan(const Words &words, StreamState &) {
    run_verb(kHostVerbs, bridge_.addresses(), words);
    return std::nullopt;
}

Commands::Result Commands::kernel(const Words &words, StreamState &) {
    constexpr uint32_t largest_error = 4095;
    const auto *const row = std::find_if(std::begin(kKernelStates), std::end(kKernelStates), [&](const auto &known) {
        return words.size() == 1 ? known.state == kernel_.state() : words[1] == known.name;
    });
    if (words.size() == 1) {
        say("kernel: %s, %zu sockets, %zu listen, family %u, %zu addresses", row->name, kernel_.sockets(),
            kernel_.listeners(), kernel_.family(), bridge_.addresses().macs().size());
        return std::nullopt;
    }
    if (row == std::end(kKernelStates))
        throw std::invalid_argument("no such state: " + words[1]);
    if (words.size() > 2 && row->state != KernelState::kError)
        throw std::invalid_argument("only error takes a number");
    const uint32_t error = words.size() > 2 ? parse_number(words[2], largest_error) : uint32_t{EIO};
    kernel_.set_state(row->state, static_cast<int>(error));
    return std::nullopt;
}

} // namespace sandbox
