#include "tools/replay/choice.h"

#include "tools/replay/said.h"
#include "wire/value.h"

#include <algorithm>
#include <map>
#include <stdexcept>

namespace replay {

namespace {

using recording::Change;
using recording::Kind;
using recording::Packet;

struct Connections {
    std::map<uint32_t, std::string> names; // by number; empty when it did not register
    bool at_once = false;                  // two were open at the same time
};

// The name in a registration; empty for everything else.
std::string name_in(const Said &said) {
    if (said.type != BRIDGE_EVENT_REG_MSG || said.payload.size() != sizeof(bri_reg_msg))
        return {};
    const auto message = wire::object_of<bri_reg_msg>(said.payload);
    return wire::printable(message.name, sizeof message.name);
}

Connections connections_in(const std::vector<Packet> &packets, const std::set<uint32_t> *only) {
    Connections found;
    std::set<uint32_t> open;
    for (const Packet &packet : packets) {
        const uint32_t client = packet.head.client;
        const bool is_stream = packet.head.kind == Kind::kBatch || packet.head.kind == Kind::kConnection;
        if (!is_stream || (only != nullptr && !only->contains(client)))
            continue;
        std::string &name = found.names[client];
        if (packet.head.kind == Kind::kConnection && static_cast<Change>(packet.body[0]) != Change::kOpened)
            open.erase(client);
        else
            open.insert(client);
        found.at_once = found.at_once || open.size() > 1;
        if (packet.head.kind == Kind::kBatch && name.empty())
            for (const Said &said : said_in(packet))
                name = name.empty() ? name_in(said) : name;
    }
    return found;
}

std::string list(const Connections &connections) {
    std::string text;
    for (const auto &[number, name] : connections.names)
        text += (text.empty() ? "" : ", ") + std::to_string(number) + (name.empty() ? "" : " " + name);
    return text;
}

// Who only connected counts where nobody registered.
std::set<std::string> names_of(const Connections &connections) {
    std::set<std::string> names;
    for (const auto &[number, name] : connections.names)
        names.insert(name);
    if (names.size() > 1)
        names.erase("");
    return names;
}

Choice of_name(const Connections &connections, const std::string &name) {
    Choice choice{{}, name};
    for (const auto &[number, its_name] : connections.names)
        if (its_name == name)
            choice.clients.insert(number);
    return choice;
}

} // namespace

Choice choose(const std::vector<Packet> &packets, const std::string &wanted) {
    const Connections all = connections_in(packets, nullptr);
    if (all.names.empty())
        throw std::runtime_error("the recording has no client");
    for (const auto &[number, name] : all.names)
        if (std::to_string(number) == wanted)
            return {{number}, name};
    const std::set<std::string> names = names_of(all);
    if (wanted.empty() && names.size() > 1)
        throw std::runtime_error("the recording has several clients, choose one with --client: " + list(all));
    Choice choice = of_name(all, wanted.empty() ? *names.begin() : wanted);
    if (choice.clients.empty())
        throw std::runtime_error("no client " + wire::printable(wanted) + " in the recording, but " + list(all));
    if (const Connections those = connections_in(packets, &choice.clients); those.at_once)
        throw std::runtime_error("several connections at once, choose one by --client NUMBER: " + list(those));
    return choice;
}

std::vector<Packet> packets_of(const std::vector<Packet> &packets, const Choice &choice) {
    std::vector<Packet> its;
    std::ranges::copy_if(packets, std::back_inserter(its), [&](const Packet &packet) {
        const bool everybodys = packet.head.kind == Kind::kKernel && packet.head.client == 0;
        return packet.head.kind == Kind::kTable || everybodys || choice.clients.contains(packet.head.client);
    });
    return its;
}

size_t farewell_of(const std::vector<Packet> &packets) {
    const auto is_told = [](const Packet &packet) {
        return packet.head.kind == Kind::kBatch && packet.head.way == recording::Way::kToClient;
    };
    const auto closes = [](const Packet &packet) {
        return packet.head.kind == Kind::kConnection && static_cast<Change>(packet.body[0]) == Change::kClosedByClient;
    };
    const auto last = std::find_if(packets.rbegin(), packets.rend(), is_told);
    return std::any_of(packets.rbegin(), last, closes) ? static_cast<size_t>(packets.rend() - last) : packets.size();
}

} // namespace replay
