#include "frames/fdb.h"

#include <algorithm>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace frames {

namespace {

// What is configured stays where it is, also when frames from it come in elsewhere.
constexpr struct KindRow {
    uint16_t state;
    bool at_bridge;
    uint32_t types[5]; // that it stands for; the first one is what it is taken for
} kKinds[] = {
    {NUD_REACHABLE, false, {BRI_MAC_TYPE_DYNAMIC}},
    {NUD_NOARP,
     false,
     {BRI_MAC_TYPE_STATIC, BRI_MAC_TYPE_COPY, BRI_MAC_TYPE_SECU, BRI_MAC_TYPE_OTHER, BRI_MAC_TYPE_TRUST}},
    {NUD_PERMANENT, true, {BRI_MAC_TYPE_FILTER, BRI_MAC_TYPE_LOCAL}},
};

const KindRow &row_of(uint32_t type) {
    const auto *found = std::find_if(std::begin(kKinds), std::end(kKinds), [&](const KindRow &row) {
        return std::find(std::begin(row.types), std::end(row.types), type) != std::end(row.types);
    });
    return found != std::end(kKinds) ? *found : kKinds[1];
}

// Whatever else the kernel says of an entry, it is one of these.
uint16_t kind_of(uint16_t state) {
    return state & NUD_PERMANENT ? NUD_PERMANENT : state & NUD_NOARP ? NUD_NOARP : NUD_REACHABLE;
}

Request entry(uint16_t message, uint16_t flags, const Host &host, const Place &place, uint32_t bridge) {
    ndmsg head{};
    head.ndm_family = AF_BRIDGE;
    head.ndm_ifindex = static_cast<int>(place.link);
    head.ndm_state = place.state;
    head.ndm_flags = place.link == bridge ? NTF_SELF : NTF_MASTER;
    if (message == RTM_NEWNEIGH && place.sticky)
        head.ndm_flags |= NTF_STICKY;
    return Request(message, static_cast<uint16_t>(NLM_F_ACK | flags), head)
        .put(NDA_LLADDR, bytes_of(host.mac))
        .put(NDA_VLAN, host.vid);
}

} // namespace

std::optional<FdbChange> fdb_change(const Notice &notice, uint32_t bridge) {
    const auto head = notice.head<ndmsg>();
    if ((notice.type != RTM_NEWNEIGH && notice.type != RTM_DELNEIGH) || head.ndm_family != AF_BRIDGE)
        return std::nullopt;
    FdbChange change{{}, std::nullopt, static_cast<uint32_t>(head.ndm_ifindex)};
    uint32_t master = 0;
    notice.for_each<ndmsg>([&](uint16_t type, Bytes data) {
        if (type == NDA_LLADDR)
            change.host.mac = object_of<Mac>(data);
        else if (type == NDA_VLAN)
            change.host.vid = object_of<uint16_t>(data);
        else if (type == NDA_MASTER)
            master = object_of<uint32_t>(data);
    });
    if (master != bridge || change.host.vid == 0)
        return std::nullopt;
    if (notice.type == RTM_NEWNEIGH)
        change.place = Place{change.link, kind_of(head.ndm_state), (head.ndm_flags & NTF_STICKY) != 0};
    return change;
}

Place place_of(uint32_t type, uint32_t port, uint32_t bridge) {
    const KindRow &row = row_of(type);
    return {row.at_bridge ? bridge : port, row.state, row.state == NUD_NOARP};
}

uint32_t type_of(const Place &place, uint32_t bridge) {
    if (place.state == NUD_PERMANENT && place.link != bridge)
        return BRI_MAC_TYPE_LOCAL;
    for (const KindRow &row : kKinds)
        if (row.state == place.state)
            return row.types[0];
    return BRI_MAC_TYPE_OTHER;
}

Request add_entry(const Host &host, const Place &place, uint32_t bridge) {
    return entry(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, host, place, bridge);
}

Request remove_entry(const Host &host, const Place &place, uint32_t bridge) {
    return entry(RTM_DELNEIGH, 0, host, place, bridge);
}

Request list_entries() {
    ndmsg head{};
    head.ndm_family = AF_BRIDGE;
    return Request(RTM_GETNEIGH, NLM_F_DUMP, head);
}

} // namespace frames
