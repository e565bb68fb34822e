#include "frames/links.h"

#include <algorithm>
#include <linux/if.h>
#include <linux/if_bridge.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace frames {

namespace {

ifinfomsg head_of(uint32_t link, uint8_t family = AF_UNSPEC) {
    ifinfomsg head{};
    head.ifi_family = family;
    head.ifi_index = static_cast<int>(link);
    return head;
}

// The rows of what is read: where an attribute's value goes.
template <class Record> struct Row {
    uint16_t type;
    void (*take)(Record &record, Bytes data);
};
template <auto Member>
constexpr auto store = [](auto &record, Bytes data) {
    record.*Member = object_of<std::remove_reference_t<decltype(record.*Member)>>(data);
};
template <class Record, size_t Count> auto take_by(const Row<Record> (&rows)[Count], Record &record) {
    return [&](uint16_t type, Bytes data) {
        for (const Row<Record> &row : rows)
            if (row.type == type)
                row.take(record, data);
    };
}

constexpr Row<BridgeSettings> kBridgeRows[] = {
    {IFLA_BR_AGEING_TIME, store<&BridgeSettings::ageing>},
    {IFLA_BR_VLAN_FILTERING, store<&BridgeSettings::filters_vlans>},
    {IFLA_BR_STP_STATE, store<&BridgeSettings::stp>},
    {IFLA_BR_VLAN_DEFAULT_PVID, store<&BridgeSettings::native>},
};
constexpr Row<Link> kVlanRows[] = {{IFLA_VLAN_ID, store<&Link::vid>}};
constexpr Row<Link> kPortRows[] = {
    {IFLA_BRPORT_STATE, store<&Link::state>},
    {IFLA_BRPORT_LEARNING, store<&Link::learning>},
};

void take_info(Link &link, Bytes info) {
    Bytes data;
    for_each_attribute(info, [&](uint16_t type, Bytes value) {
        if (type == IFLA_INFO_KIND)
            link.kind = text_of(value);
        else if (type == IFLA_INFO_DATA)
            data = value;
    });
    if (link.kind == "bridge")
        for_each_attribute(data, take_by(kBridgeRows, link.bridge));
    else if (link.kind == "vlan")
        for_each_attribute(data, take_by(kVlanRows, link));
}

constexpr Row<Link> kLinkRows[] = {
    {IFLA_IFNAME, [](Link &link, Bytes data) { link.name = text_of(data); }},
    {IFLA_ADDRESS, store<&Link::address>},
    {IFLA_MASTER, store<&Link::master>},
    {IFLA_LINK, store<&Link::below>},
    {IFLA_LINKINFO, take_info},
    {IFLA_CARRIER_DOWN_COUNT, store<&Link::failures>},
};
// As a bridge tells of itself and its ports.
constexpr Row<Link> kBridgedRows[] = {
    {IFLA_IFNAME, [](Link &link, Bytes data) { link.name = text_of(data); }},
    {IFLA_PROTINFO, [](Link &link, Bytes data) { for_each_attribute(data, take_by(kPortRows, link)); }},
    {IFLA_AF_SPEC, [](Link &link, Bytes data) { link.vlans = vlans_of(data); }},
};

Request set_port(uint32_t link, uint16_t attribute, uint8_t value) {
    return Request(RTM_SETLINK, NLM_F_ACK, head_of(link, AF_BRIDGE))
        .nest(IFLA_PROTINFO | NLA_F_NESTED, [&](Request &port) { port.put(attribute, value); });
}

// A link's data by its kind.
template <class Fill> void put_info(Request &request, const char *kind, Fill &&fill) {
    request.nest(IFLA_LINKINFO, [&](Request &info) {
        info.put(IFLA_INFO_KIND, std::string(kind));
        info.nest(IFLA_INFO_DATA, fill);
    });
}

} // namespace

bool Link::is_up() const {
    return (flags & IFF_UP) != 0 && (flags & IFF_LOWER_UP) != 0;
}

bool Link::is_enabled() const {
    return (flags & IFF_UP) != 0;
}

void take_link(const Notice &notice, Links &links) {
    if (notice.type == RTM_NEWVLAN || notice.type == RTM_DELVLAN) {
        if (const auto found = links.find(notice.head<br_vlan_msg>().ifindex); found != links.end())
            take_vlans(notice, found->second.vlans, found->second.states);
        return;
    }
    const auto head = notice.head<ifinfomsg>();
    const auto index = static_cast<uint32_t>(head.ifi_index); // 0: the message is cut
    const bool bridged = head.ifi_family == AF_BRIDGE;
    if (notice.type == RTM_DELLINK && !bridged)
        links.erase(index);
    if (notice.type != RTM_NEWLINK || index == 0 || (bridged && !links.contains(index)))
        return;
    Link &link = links[index];
    link.flags = head.ifi_flags;
    if (bridged)
        return notice.for_each<ifinfomsg>(take_by(kBridgedRows, link));
    link.master = 0; // the attribute lacks when it has none
    notice.for_each<ifinfomsg>(take_by(kLinkRows, link));
}

Request list_links() {
    return Request(RTM_GETLINK, NLM_F_DUMP, head_of(0));
}

Request list_ports() {
    return Request(RTM_GETLINK, NLM_F_DUMP, head_of(0, AF_BRIDGE))
        .put(IFLA_EXT_MASK, uint32_t{RTEXT_FILTER_BRVLAN_COMPRESSED});
}

const std::pair<const uint32_t, Link> *find_link(const Links &links, const std::string &name) {
    const auto found =
        std::find_if(links.begin(), links.end(), [&](const auto &link) { return link.second.name == name; });
    return found != links.end() ? &*found : nullptr;
}

Request set_master(uint32_t link, uint32_t master) {
    return Request(RTM_NEWLINK, NLM_F_ACK, head_of(link)).put(IFLA_MASTER, master);
}

Request set_enabled(uint32_t link, bool on) {
    ifinfomsg head = head_of(link);
    head.ifi_change = IFF_UP;
    head.ifi_flags = on ? IFF_UP : 0;
    return Request(RTM_NEWLINK, NLM_F_ACK, head);
}

Request set_learning(uint32_t link, bool on) {
    return set_port(link, IFLA_BRPORT_LEARNING, on ? 1 : 0);
}

Request set_state(uint32_t link, uint8_t state) {
    return set_port(link, IFLA_BRPORT_STATE, state);
}

std::optional<Request> set_bridge(uint32_t link, const BridgeSettings &have, const BridgeSettings &want) {
    if (have == want)
        return std::nullopt;
    Request request(RTM_NEWLINK, NLM_F_ACK, head_of(link));
    put_info(request, "bridge", [&](Request &data) {
        if (have.filters_vlans != want.filters_vlans)
            data.put(IFLA_BR_VLAN_FILTERING, want.filters_vlans);
        if (have.ageing != want.ageing)
            data.put(IFLA_BR_AGEING_TIME, want.ageing);
        if (have.stp != want.stp)
            data.put(IFLA_BR_STP_STATE, want.stp);
        if (have.native != want.native)
            data.put(IFLA_BR_VLAN_DEFAULT_PVID, want.native);
    });
    return request;
}

Request add_vlan_device(uint32_t bridge, const std::string &name, uint16_t vid) {
    ifinfomsg head = head_of(0);
    head.ifi_change = IFF_UP;
    head.ifi_flags = IFF_UP;
    Request request(RTM_NEWLINK, NLM_F_ACK | NLM_F_CREATE | NLM_F_EXCL, head);
    request.put(IFLA_IFNAME, name).put(IFLA_LINK, bridge);
    put_info(request, "vlan", [&](Request &data) { data.put(IFLA_VLAN_ID, vid); });
    return request;
}

Request remove_device(uint32_t link) {
    return Request(RTM_DELLINK, NLM_F_ACK, head_of(link));
}

} // namespace frames
