#include "sandbox/kernel_tables.h"

#include <algorithm>
#include <cerrno>

namespace sandbox {

namespace {

bool covers(const mvlan_entry &entry, const uint8_t (&mac)[6]) {
    for (size_t i = 0; i < sizeof mac; ++i)
        if (((entry.mac[i] ^ mac[i]) & entry.mask[i]) != 0)
            return false;
    return true;
}

// What a check concerns: learned addresses, or the configured ones of a type, 0 for all.
template <bool Dynamic> auto kind_of(Bytes data) {
    return [type = object_of<uint32_t>(data)](const bri_mac_entry &entry) {
        return is_dynamic(entry) == Dynamic && (Dynamic || type == 0 || entry.type == type);
    };
}

template <bool Dynamic> KernelResult begin_check(KernelTables &tables, Bytes data) {
    tables.macs.begin_check(kind_of<Dynamic>(data));
    return {};
}

template <bool Dynamic> KernelResult end_check(KernelTables &tables, Bytes data) {
    tables.change([&](MacTable &macs, Microseconds, MacNews &news) { macs.end_check(kind_of<Dynamic>(data), news); });
    return {};
}

// A look-up comes back with its key, and with its result when there is one.
template <class Query> KernelResult found(Query query, const std::optional<bri_mac_entry> &entry) {
    query.found = entry ? 1 : 0;
    query.result = entry.value_or(bri_mac_entry{});
    return answer_of(query);
}

KernelResult find_first(KernelTables &tables, Bytes data) {
    const auto query = object_of<bri_mac_find_first>(data);
    return found(query, tables.macs.first(query.key));
}

KernelResult find_next(KernelTables &tables, Bytes data) {
    const auto query = object_of<bri_mac_find_next>(data);
    return found(query, tables.macs.next(query.key, query.current));
}

// The host's own words back, VLAN 0, when no entry covers it.
KernelResult find_vlan(KernelTables &tables, Bytes data) {
    auto answer = object_of<mvlan_msg>(data);
    answer.entry.vlan = 0;
    if (const mvlan_msg *known = tables.hosts.find(answer.entry.mac)) {
        answer.ifx = known->ifx;
        answer.entry.vlan = known->entry.vlan;
        answer.entry.priority = known->entry.priority;
        answer.entry.flag = known->entry.flag;
    }
    return answer_of(answer);
}

KernelResult set_vlan(KernelTables &tables, Bytes data) {
    const int error = tables.hosts.apply(object_of<mvlan_msg>(data));
    if (error == 0)
        tables.tell(MVLAN_EVENT_NOTIFY_ENTRY, data.first(sizeof(mvlan_msg)));
    return {error};
}

KernelResult take_addresses(KernelTables &tables, Bytes data) {
    return answer_of(tables.change([&](MacTable &macs, Microseconds now, MacNews &news) {
        for (const bri_mac_msg &record : records_of<bri_mac_msg>(data))
            macs.apply(record, now, news);
    }));
}

// A host is not answered: nobody reads what comes on its channel.
KernelResult take_notified(KernelTables &tables, Bytes data) {
    take_addresses(tables, data);
    return {};
}

KernelResult see_frames(KernelTables &tables, Bytes data) {
    FramesSeen seen{};
    tables.change([&](MacTable &macs, Microseconds now, MacNews &news) {
        for (const bri_mac_entry &frame : records_of<bri_mac_entry>(data))
            ++seen.times[static_cast<size_t>(macs.see(frame, now, news))];
    });
    return answer_of(seen);
}

KernelResult forget(KernelTables &tables, Bytes data) {
    const auto request = object_of<KernelForget>(data);
    const auto there = [&](uint16_t vid, uint32_t ifx) {
        return (request.everywhere != 0 || holds(request.vlans, vid)) && (request.ifx == 0 || request.ifx == ifx);
    };
    const auto goes = [&](const bri_mac_entry &entry) {
        return there(entry.bcast_id, entry.ifx) && (request.learned == 0 || is_dynamic(entry));
    };
    const uint32_t gone =
        tables.change([&](MacTable &macs, Microseconds, MacNews &news) { macs.remove_if(goes, news); });
    if (request.hosts != 0)
        for (mvlan_msg host :
             tables.hosts.remove_if([&](const mvlan_msg &known) { return there(known.entry.vlan, known.ifx); })) {
            host.entry.type = kMacVlanDelete;
            tables.tell(MVLAN_EVENT_NOTIFY_ENTRY, bytes_of(host));
        }
    return answer_of(gone);
}

KernelResult switch_port_learning(KernelTables &tables, Bytes data) {
    const auto request = object_of<bri_mac_intf_learn>(data);
    const auto change = request.learn_disable != 0 ? bri_port_set_add : bri_port_set_remove;
    return {change(&tables.macs.settings.quiet_ports, request.ifx) == 0 ? 0 : EINVAL};
}

KernelResult set_age(KernelTables &tables, Bytes data) {
    tables.macs.settings.age = std::chrono::seconds(object_of<uint32_t>(data));
    return answer_of(static_cast<uint32_t>(tables.macs.settings.allowed_age().count()));
}

template <auto Setting> KernelResult set(KernelTables &tables, Bytes data) {
    auto &setting = tables.macs.settings.*Setting;
    setting = object_of<std::remove_reference_t<decltype(setting)>>(data);
    return {};
}

KernelResult set_ages_elsewhere(KernelTables &tables, Bytes data) {
    tables.macs.settings.ages_elsewhere = object_of<uint32_t>(data) != 0;
    return {};
}

KernelResult set_host_room(KernelTables &tables, Bytes data) {
    tables.hosts.room = object_of<uint32_t>(data);
    return {};
}

KernelResult read_addresses(KernelTables &tables, Bytes) {
    MacChanges all;
    tables.macs.for_each([&](const bri_mac_entry &entry) { all.push_back({0, BRI_MAC_ADD, entry}); });
    return {0, buffer_of(run_of(all))};
}

KernelResult read_figures(KernelTables &tables, Bytes) {
    const MacTable &macs = tables.macs;
    KernelFigures figures{};
    figures.age = static_cast<uint32_t>(macs.settings.allowed_age().count());
    figures.range = macs.settings.range;
    figures.room = macs.settings.room;
    figures.learning = macs.settings.learn_disable == 0 ? 1 : 0;
    figures.quiet_ports = macs.settings.quiet_ports;
    for (uint32_t type = 0; type < std::size(figures.of_type); ++type)
        figures.of_type[type] = macs.count(type);
    figures.addresses = static_cast<uint32_t>(macs.size());
    return answer_of(figures);
}

constexpr struct HandlerRow {
    Asker asker;
    uint32_t type;
    size_t least; // bytes of data
    KernelResult (*handle)(KernelTables &tables, Bytes data);
} kHandlers[] = {
    {Asker::kHost, MAC_EVENT_CLIENT_FIND_FIRST, sizeof(bri_mac_find_first), find_first},
    {Asker::kHost, MAC_EVENT_CLIENT_FIND_NEXT, sizeof(bri_mac_find_next), find_next},
    {Asker::kHost, MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), find_vlan},
    {Asker::kHost, MAC_EVENT_SS_NOTIFY_ADDR, 0, take_notified},
    {Asker::kHost, MAC_EVENT_DYN_CHECK_BEGIN, 0, begin_check<true>},
    {Asker::kHost, MAC_EVENT_DYN_CHECK_END, 0, end_check<true>},
    {Asker::kServer, MAC_EVENT_NOTIFY_ADDR, 0, take_addresses},
    {Asker::kServer, MAC_EVENT_CLIENT_FIND_FIRST, sizeof(bri_mac_find_first), find_first},
    {Asker::kServer, MAC_EVENT_NONDYN_CHECK_BEGIN, sizeof(uint32_t), begin_check<false>},
    {Asker::kServer, MAC_EVENT_NONDYN_CHECK_END, sizeof(uint32_t), end_check<false>},
    {Asker::kServer, MAC_EVENT_SET_AGETIME, sizeof(uint32_t), set_age},
    {Asker::kServer, MAC_EVENT_SET_AGETIME_RANGE, sizeof(bri_mac_age_range), set<&MacSettings::range>},
    {Asker::kServer, MAC_EVENT_INTF_LEARN, sizeof(bri_mac_intf_learn), switch_port_learning},
    {Asker::kServer, MAC_EVENT_GLOBAL_LEARN, sizeof(uint32_t), set<&MacSettings::learn_disable>},
    {Asker::kServer, MAC_EVENT_SET_AVAILABLE_MAC, sizeof(bri_mac_available), set<&MacSettings::room>},
    {Asker::kServer, MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), set_vlan},
    {Asker::kServer, kFramesSeen, 0, see_frames},
    {Asker::kServer, kForget, sizeof(KernelForget), forget},
    {Asker::kServer, kAgeElsewhere, sizeof(uint32_t), set_ages_elsewhere},
    {Asker::kServer, kHostRoom, sizeof(uint32_t), set_host_room},
    {Asker::kServer, kReadAddresses, 0, read_addresses},
    {Asker::kServer, kReadHosts, 0,
     [](KernelTables &tables, Bytes) -> KernelResult {
         return {0, buffer_of(run_of(tables.hosts.entries()))};
     }},
    {Asker::kServer, kReadFigures, 0, read_figures},
};

} // namespace

int MacVlans::apply(const mvlan_msg &request) {
    if (request.entry.type != kMacVlanAdd && request.entry.type != kMacVlanDelete)
        return EINVAL;
    const auto known = std::find_if(entries_.begin(), entries_.end(), [&](const mvlan_msg &other) {
        return std::ranges::equal(other.entry.mac, request.entry.mac) &&
               std::ranges::equal(other.entry.mask, request.entry.mask);
    });
    const bool there = known != entries_.end();
    if (request.entry.type == kMacVlanDelete) {
        if (!there)
            return ENOENT;
        entries_.erase(known);
    } else if (there) {
        *known = request;
    } else if (entries_.size() >= room) {
        return ENOSPC;
    } else {
        entries_.push_back(request);
    }
    return 0;
}

std::vector<mvlan_msg> MacVlans::remove_if(const std::function<bool(const mvlan_msg &)> &wanted) {
    const auto leaving = std::stable_partition(entries_.begin(), entries_.end(), std::not_fn(wanted));
    std::vector<mvlan_msg> gone(leaving, entries_.end());
    entries_.erase(leaving, entries_.end());
    return gone;
}

const mvlan_msg *MacVlans::find(const uint8_t (&mac)[6]) const {
    const mvlan_msg *best = nullptr;
    for (const mvlan_msg &candidate : entries_)
        if (covers(candidate.entry, mac) &&
            (best == nullptr || std::memcmp(candidate.entry.mask, best->entry.mask, sizeof best->entry.mask) > 0))
            best = &candidate;
    return best;
}

void send_records(uint32_t type, const MacChanges &records, const Announce &send) {
    constexpr size_t most = BRI_PAYLOAD_MAX / sizeof(bri_mac_msg);
    const Bytes all = run_of(records);
    for (size_t at = 0; at < all.size(); at += most * sizeof(bri_mac_msg))
        send(type, all.subspan(at, std::min(most * sizeof(bri_mac_msg), all.size() - at)));
}

KernelResult handle(KernelTables &tables, Asker asker, uint32_t type, Bytes data) {
    for (const HandlerRow &row : kHandlers)
        if (row.asker == asker && row.type == type)
            return data.size() < row.least ? KernelResult{EINVAL} : row.handle(tables, data);
    return {EOPNOTSUPP};
}

} // namespace sandbox
