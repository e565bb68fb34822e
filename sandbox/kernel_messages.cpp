#include "sandbox/kernel_messages.h"

#include "sandbox/netlink_reply.h"
#include "sandbox/vlan_sets.h"

#include <bridge/events.h>

#include <cerrno>
#include <iterator>

namespace sandbox {

namespace {

template <class Record> Record load(Bytes data) {
    return bri::load_at<Record>(data, 0);
}

// A look-up comes back with its key, and with its result when there is one.
template <class Query> KernelResult found(Query query, const std::optional<bri_mac_entry> &entry) {
    query.found = entry ? 1 : 0;
    query.result = entry.value_or(bri_mac_entry{});
    return answer_of(query);
}

KernelResult find_first(KernelTables &tables, Bytes data) {
    const auto query = load<bri_mac_find_first>(data);
    return found(query, tables.macs().first(query.key));
}

KernelResult find_next(KernelTables &tables, Bytes data) {
    const auto query = load<bri_mac_find_next>(data);
    return found(query, tables.macs().next(query.key, query.current));
}

// The host's own words back, VLAN 0, when no entry covers it.
KernelResult find_vlan(KernelTables &tables, Bytes data) {
    auto answer = load<mvlan_msg>(data);
    const std::optional<mvlan_msg> known = tables.hosts().find(answer.entry.mac);
    answer.entry.vlan = 0;
    if (known) {
        answer.ifx = known->ifx;
        answer.entry.vlan = known->entry.vlan;
        answer.entry.priority = known->entry.priority;
        answer.entry.flag = known->entry.flag;
    }
    return answer_of(answer);
}

KernelResult set_vlan(KernelTables &tables, Bytes data) {
    switch (tables.apply(load<mvlan_msg>(data))) {
    case MacVlans::Outcome::kDone:
        return {};
    case MacVlans::Outcome::kFull:
        return {ENOSPC, {}};
    case MacVlans::Outcome::kUnknown:
        return {ENOENT, {}};
    default:
        return {EINVAL, {}};
    }
}

// A host is not answered: nobody reads what comes on its channel.
KernelResult take_notified(KernelTables &tables, Bytes data) {
    tables.apply_run(data);
    return {};
}

KernelResult take_addresses(KernelTables &tables, Bytes data) {
    return answer_of(static_cast<uint32_t>(tables.apply_run(data)));
}

KernelResult begin_check(KernelTables &tables, Bytes) {
    tables.begin_check(true);
    return {};
}

KernelResult end_check(KernelTables &tables, Bytes) {
    tables.end_check(true);
    return {};
}

KernelResult begin_configured_check(KernelTables &tables, Bytes data) {
    tables.begin_check(false, load<uint32_t>(data));
    return {};
}

KernelResult end_configured_check(KernelTables &tables, Bytes data) {
    tables.end_check(false, load<uint32_t>(data));
    return {};
}

KernelResult see_frames(KernelTables &tables, Bytes data) {
    FramesSeen seen{};
    tables.change([&](MacTable &macs, Microseconds now, MacNews &news) {
        for (; data.size >= sizeof(bri_mac_entry); data = data.from(sizeof(bri_mac_entry)))
            ++seen.times[static_cast<size_t>(macs.see(load<bri_mac_entry>(data), now, news))];
    });
    return answer_of(seen);
}

KernelResult flush_vlans(KernelTables &tables, Bytes data) {
    const auto request = load<bri_mac_vlanmap_del>(data);
    return answer_of(static_cast<uint32_t>(tables.change([&](MacTable &macs, Microseconds, MacNews &news) {
        macs.remove_if(
            [&](const bri_mac_entry &entry) {
                return is_dynamic(entry) && holds(request.vlans, entry.bcast_id) &&
                       (request.ifx == 0 || request.ifx == entry.ifx);
            },
            news);
    })));
}

KernelResult forget(KernelTables &tables, Bytes data) {
    const auto request = load<KernelForget>(data);
    tables.forget([&](uint16_t vid,
                      uint32_t ifx) { return holds(request.vlans, vid) && (request.ifx == 0 || request.ifx == ifx); },
                  request.hosts != 0);
    return {};
}

KernelResult switch_learning(KernelTables &tables, Bytes data) {
    tables.macs().settings.learning = load<uint32_t>(data) == 0;
    return {};
}

KernelResult switch_port_learning(KernelTables &tables, Bytes data) {
    const auto request = load<bri_mac_intf_learn>(data);
    if (request.ifx >= BRI_PORT_SLOTS)
        return {EINVAL, {}};
    tables.macs().settings.quiet_ports[request.ifx] = request.learn_disable != 0;
    return {};
}

KernelResult set_age(KernelTables &tables, Bytes data) {
    tables.macs().settings.age = std::chrono::seconds(load<uint32_t>(data));
    return answer_of(static_cast<uint32_t>(tables.macs().settings.allowed_age().count()));
}

KernelResult set_age_range(KernelTables &tables, Bytes data) {
    tables.macs().settings.range = load<bri_mac_age_range>(data);
    return {};
}

KernelResult set_room(KernelTables &tables, Bytes data) {
    tables.macs().settings.room = load<bri_mac_available>(data);
    return {};
}

KernelResult set_host_room(KernelTables &tables, Bytes data) {
    tables.hosts().room = load<uint32_t>(data);
    return {};
}

template <class Record> KernelResult answer_run(const std::vector<Record> &records) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(records.data());
    return {0, {bytes, bytes + records.size() * sizeof(Record)}};
}

KernelResult read_addresses(KernelTables &tables, Bytes) {
    MacChanges all;
    tables.macs().for_each([&](const bri_mac_entry &entry) { all.push_back({0, BRI_MAC_ADD, entry}); });
    return answer_run(all);
}

KernelResult read_hosts(KernelTables &tables, Bytes) {
    return answer_run(tables.hosts().entries());
}

KernelResult read_figures(KernelTables &tables, Bytes) {
    const MacTable &macs = tables.macs();
    KernelFigures figures{};
    figures.age = static_cast<uint32_t>(macs.settings.allowed_age().count());
    figures.range = macs.settings.range;
    figures.room = macs.settings.room;
    figures.learning = macs.settings.learning ? 1 : 0;
    for (unsigned ifx = 0; ifx < BRI_PORT_SLOTS; ++ifx)
        figures.quiet_ports[ifx / 32] |= uint32_t{macs.settings.quiet_ports[ifx]} << ifx % 32;
    for (uint32_t type = 0; type < std::size(figures.of_type); ++type)
        figures.of_type[type] = macs.count(type);
    figures.addresses = static_cast<uint32_t>(macs.size());
    figures.hosts = static_cast<uint32_t>(tables.hosts().entries().size());
    figures.host_room = tables.hosts().room;
    return answer_of(figures);
}

constexpr struct Row {
    Asker asker;
    uint32_t type;
    size_t least; // bytes of data
    KernelResult (*handle)(KernelTables &tables, Bytes data);
} kRows[] = {
    {Asker::kHost, MAC_EVENT_CLIENT_FIND_FIRST, sizeof(bri_mac_find_first), find_first},
    {Asker::kHost, MAC_EVENT_CLIENT_FIND_NEXT, sizeof(bri_mac_find_next), find_next},
    {Asker::kHost, MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), find_vlan},
    {Asker::kHost, MAC_EVENT_SS_NOTIFY_ADDR, 0, take_notified},
    {Asker::kHost, MAC_EVENT_DYN_CHECK_BEGIN, 0, begin_check},
    {Asker::kHost, MAC_EVENT_DYN_CHECK_END, 0, end_check},
    {Asker::kServer, MAC_EVENT_NOTIFY_ADDR, 0, take_addresses},
    {Asker::kServer, MAC_EVENT_CLIENT_FIND_FIRST, sizeof(bri_mac_find_first), find_first},
    {Asker::kServer, MAC_EVENT_DEL_DYN_ON_VLANMAP, sizeof(bri_mac_vlanmap_del), flush_vlans},
    {Asker::kServer, MAC_EVENT_NONDYN_CHECK_BEGIN, sizeof(uint32_t), begin_configured_check},
    {Asker::kServer, MAC_EVENT_NONDYN_CHECK_END, sizeof(uint32_t), end_configured_check},
    {Asker::kServer, MAC_EVENT_SET_AGETIME, sizeof(uint32_t), set_age},
    {Asker::kServer, MAC_EVENT_SET_AGETIME_RANGE, sizeof(bri_mac_age_range), set_age_range},
    {Asker::kServer, MAC_EVENT_INTF_LEARN, sizeof(bri_mac_intf_learn), switch_port_learning},
    {Asker::kServer, MAC_EVENT_GLOBAL_LEARN, sizeof(uint32_t), switch_learning},
    {Asker::kServer, MAC_EVENT_SET_AVAILABLE_MAC, sizeof(bri_mac_available), set_room},
    {Asker::kServer, MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), set_vlan},
    {Asker::kServer, kFramesSeen, 0, see_frames},
    {Asker::kServer, kForget, sizeof(KernelForget), forget},
    {Asker::kServer, kHostRoom, sizeof(uint32_t), set_host_room},
    {Asker::kServer, kReadAddresses, 0, read_addresses},
    {Asker::kServer, kReadHosts, 0, read_hosts},
    {Asker::kServer, kReadFigures, 0, read_figures},
};

} // namespace

std::optional<KernelMessage> kernel_message(Bytes packet) {
    const Bytes payload = packet.from(kNetlinkHeaders + sizeof(nlattr));
    const auto length = bri::load_at<uint32_t>(payload, sizeof(uint32_t));
    const Bytes data = payload.from(2 * sizeof(uint32_t));
    if (!payload.holds(0, 2 * sizeof(uint32_t)) || !data.holds(0, length))
        return std::nullopt;
    return KernelMessage{bri::load_at<uint32_t>(payload, 0), {data.data, length}};
}

KernelResult handle(KernelTables &tables, Asker asker, const KernelMessage &message) {
    for (const Row &row : kRows)
        if (row.asker == asker && row.type == message.type)
            return message.data.size < row.least ? KernelResult{EINVAL, {}} : row.handle(tables, message.data);
    return {EOPNOTSUPP, {}};
}

} // namespace sandbox
