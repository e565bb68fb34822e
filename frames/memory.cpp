#include "frames/memory.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace frames {

using namespace sandbox;

namespace {

using Json = nlohmann::json;

Json json_of(const Before &before) {
    return {{"link", before.link},
            {"bridged", before.bridged},
            {"enabled", before.enabled},
            {"learning", before.learning},
            {"state", before.state},
            {"vlans", vlans_text(before.vlans.members)},
            {"untagged", vlans_text(before.vlans.untagged)},
            {"native", before.vlans.pvid}};
}

Before before_in(const Json &json) {
    return {json.at("link"),    json.at("bridged"),
            json.at("enabled"), json.at("learning"),
            json.at("state"),   {parse_vlans(json.at("vlans")), parse_vlans(json.at("untagged")), json.at("native")}};
}

Json json_of(const Fdb &entries) {
    Json list = Json::array();
    for (const auto &[host, place] : entries)
        list.push_back({{"mac", host.mac}, {"vlan", host.vid}, {"state", place.state}, {"sticky", place.sticky}});
    return list;
}

Json json_of(const Memory &memory) {
    Json json = {{"bridge", memory.bridge},
                 {"ageing", memory.settings.ageing},
                 {"filters_vlans", memory.settings.filters_vlans},
                 {"stp", memory.settings.stp},
                 {"native", memory.settings.native},
                 {"devices", memory.devices},
                 {"links", Json::object()},
                 {"entries", Json::object()},
                 {"ports", Json::object()}};
    for (const auto &[name, before] : memory.links)
        json["links"][name] = json_of(before);
    for (const auto &[name, entries] : memory.entries)
        json["entries"][name] = json_of(entries);
    for (const auto &[ifx, name] : memory.ports)
        json["ports"][std::to_string(ifx)] = name;
    return json;
}

Memory memory_in(const Json &json) {
    Memory memory;
    memory.bridge = json.at("bridge");
    memory.settings = {json.at("ageing"), json.at("filters_vlans"), json.at("stp"), json.at("native")};
    memory.devices = json.at("devices").get<std::set<std::string>>();
    for (const auto &[name, before] : json.at("links").items())
        memory.links[name] = before_in(before);
    for (const auto &[name, entries] : json.at("entries").items())
        for (const Json &entry : entries)
            memory.entries[name][{entry.at("mac").get<Mac>(), entry.at("vlan")}] = {0, entry.at("state"),
                                                                                    entry.at("sticky")};
    for (const auto &[ifx, name] : json.at("ports").items())
        memory.ports[static_cast<uint32_t>(std::stoul(ifx))] = name;
    return memory;
}

} // namespace

Before before_of(uint32_t index, const Link &link, bool bridged) {
    return {index, bridged, link.is_enabled(), link.learning, link.state, link.vlans};
}

bool follow_names(Memory &memory, const Links &links) {
    std::map<std::string, std::string> names; // by those of before
    for (const auto &[name, before] : memory.links)
        if (const auto found = links.find(before.link); found != links.end() && found->second.name != name)
            names[name] = found->second.name;
    const auto name_of = [&](const std::string &name) { return names.contains(name) ? names.at(name) : name; };
    const auto follow = [&](auto &by_name) {
        std::remove_reference_t<decltype(by_name)> next;
        for (auto &[name, value] : by_name)
            next[name_of(name)] = std::move(value);
        by_name = std::move(next);
    };
    follow(memory.links);
    follow(memory.entries);
    for (auto &[ifx, name] : memory.ports)
        name = name_of(name);
    return !names.empty();
}

std::optional<Memory> read_memory(const std::string &path) {
    std::ifstream in(path);
    if (!in)
        return std::nullopt;
    try {
        return memory_in(Json::parse(in));
    } catch (const std::exception &) { // cut, or somebody else's
        return std::nullopt;
    }
}

void write_memory(const Memory &memory, const std::string &path) {
    const std::string next = path + ".new";
    std::ofstream out(next);
    out << json_of(memory).dump(1) << '\n';
    out.close();
    if (!out || std::rename(next.c_str(), path.c_str()) != 0)
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
}

} // namespace frames
