#include "sandbox/kernel_messages.h"

#include "sandbox/netlink_reply.h"

#include <bridge/events.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace sandbox {

namespace {

template <class Record> KernelResult answer_of(const Record &record) {
    KernelResult result;
    result.answer.resize(sizeof record);
    std::memcpy(result.answer.data(), &record, sizeof record);
    return result;
}

// A look-up comes back with its key, and with its result when there is one.
template <class Query> KernelResult found(Query query, const std::optional<bri_mac_entry> &entry) {
    query.found = entry ? 1 : 0;
    query.result = entry.value_or(bri_mac_entry{});
    return answer_of(query);
}

KernelResult find_first(Addresses &addresses, Bytes data) {
    const auto query = bri::load_at<bri_mac_find_first>(data, 0);
    return found(query, addresses.macs().first(query.key));
}

KernelResult find_next(Addresses &addresses, Bytes data) {
    const auto query = bri::load_at<bri_mac_find_next>(data, 0);
    return found(query, addresses.macs().next(query.key, query.current));
}

// The host's own words back, VLAN 0, when no entry covers it.
KernelResult find_vlan(Addresses &addresses, Bytes data) {
    auto answer = bri::load_at<mvlan_msg>(data, 0);
    const std::optional<mvlan_msg> known = addresses.hosts().find(answer.entry.mac);
    answer.entry.vlan = 0;
    if (known) {
        answer.ifx = known->ifx;
        answer.entry.vlan = known->entry.vlan;
        answer.entry.priority = known->entry.priority;
        answer.entry.flag = known->entry.flag;
    }
    return answer_of(answer);
}

KernelResult take_addresses(Addresses &addresses, Bytes data) {
    addresses.apply_run(data);
    return {};
}

KernelResult begin_check(Addresses &addresses, Bytes) {
    addresses.begin_check(true);
    return {};
}

KernelResult end_check(Addresses &addresses, Bytes) {
    addresses.end_check(true);
    return {};
}

constexpr struct Row {
    uint32_t type;
    size_t least; // bytes of data
    KernelResult (*handle)(Addresses &addresses, Bytes data);
} kRows[] = {
    {MAC_EVENT_CLIENT_FIND_FIRST, sizeof(bri_mac_find_first), find_first},
    {MAC_EVENT_CLIENT_FIND_NEXT, sizeof(bri_mac_find_next), find_next},
    {MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), find_vlan},
    {MAC_EVENT_SS_NOTIFY_ADDR, 0, take_addresses},
    {MAC_EVENT_DYN_CHECK_BEGIN, 0, begin_check},
    {MAC_EVENT_DYN_CHECK_END, 0, end_check},
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

KernelResult handle(Addresses &addresses, const KernelMessage &message) {
    for (const Row &row : kRows)
        if (row.type == message.type)
            return message.data.size < row.least ? KernelResult{EINVAL, {}} : row.handle(addresses, message.data);
    return {EOPNOTSUPP, {}};
}

} // namespace sandbox
