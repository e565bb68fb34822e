// What clients ask for, and what they answer to questions.
#include "sandbox/operation.h"

namespace sandbox {

namespace {

using enum Request::Size;

vlanset named_vlan(Bytes payload) {
    const auto vid = object_of<vl_evt_vlan_rec>(payload).vid;
    refuse_if(vl_check_vlanid_valid(vid) == 0, "no VLAN id: " + std::to_string(vid));
    return only(vid);
}

void create_vlan(Bridge &bridge, const Connection &, Bytes payload) {
    const auto settled = [&bridge](const vlanset &vlans, const std::string &refusal) {
        bridge.note(count(vlans) == 0
                        ? "vlan create: they exist already"
                        : "vlan create " + vlans_text(vlans) + ": " + (refusal.empty() ? "done" : refusal));
    };
    bridge.vlans.create(named_vlan(payload), BRI_VLAN_STATIC, false, settled);
}
// An answer to the question of the same number; what the field must be for the client to accept.
template <uint32_t Type, auto Field, bool Accepts>
void answer(Bridge &bridge, const Connection &client, Bytes payload) {
    const auto reply = object_of<typename MemberOf<decltype(Field)>::Whole>(payload);
    bridge.prejudge.answer(client, Type, (reply.*Field != 0) == Accepts ? "" : "refused");
}
// A cut record at the end is passed over.
void take_records(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses.apply(records_of<bri_mac_msg>(payload));
}
// What a client could not do goes out of the table again.
void take_host_error(Bridge &bridge, const Connection &, Bytes payload) {
    mvlan_msg request{0, object_of<mvlan_entry>(payload)};
    if (request.entry.type != kMacVlanAdd)
        return;
    request.entry.type = kMacVlanDelete;
    bridge.addresses.apply_host(request);
}
// On the port that the payload names, or on all.
void flush_all(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses.flush(all_vlans(), object_of<uint32_t>(payload));
}
void switch_port_learning(Bridge &bridge, const Connection &, Bytes payload) {
    const auto request = object_of<bri_mac_intf_learn>(payload);
    bridge.addresses.set_port_learning(request.ifx, request.learn_disable == 0);
}

// Zeroes may follow the last record.
void take_states(Bridge &bridge, const Connection &, Bytes payload) {
    const auto batch = object_of<l2top_port_status_batch>(payload);
    if (batch.count > BRI_L2TOP_BATCH_MAX ||
        offsetof(l2top_port_status_batch, records) + batch.count * sizeof(l2top_port_status) > payload.size())
        throw std::invalid_argument(std::to_string(batch.count) + " states in " + std::to_string(payload.size()) +
                                    " bytes");
    bridge.topology.set_states({batch.records, batch.count});
}
void take_protocol(Bridge &bridge, const Connection &, Bytes payload) {
    const auto config = object_of<l2top_proto_config>(payload);
    if (config.enable != 0)
        bridge.topology.start(config.protocol);
    else
        bridge.topology.stop(config.protocol);
}

template <auto Operation>
constexpr auto one_vlan = request<Operation, &vl_dyn_member_req::ifx, &vl_dyn_member_req::vid>;
template <auto Operation>
constexpr auto some_vlans = request<Operation, &vl_port_vlanset_req::ifx, &vl_port_vlanset_req::vlans>;
constexpr auto flush_learned = request<&Addresses::flush, &bri_mac_vlanmap_del::vlans, &bri_mac_vlanmap_del::ifx>;

// A setting is announced by whoever sets it; the others that are echoed are events of their own.
constexpr Request kRequests[] = {
    {VLAN_EVENT_CREATE_INDEX, kExact, create_vlan},
    {VLAN_EVENT_DESTROY_INDEX, kExact,
     [](Bridge &bridge, const Connection &, Bytes payload) { bridge.vlans.remove(named_vlan(payload)); }},
    {VLAN_EVENT_DESTROY_RANGE, kExact, request<&Vlans::remove, &vl_evt_vlanset_rec::vlans>},
    {VLAN_EVENT_CREATE_PREJ, kExact, answer<VLAN_EVENT_CREATE_PREJ, &wire::vlan_reply::result, false>},
    {VLAN_EVENT_CREATE_RANGE_PREJ, kExact, answer<VLAN_EVENT_CREATE_RANGE_PREJ, &vl_vlanset_reply::failure, false>},
    {VLAN_EVENT_MODIFY_INTF_PVID, kExact,
     request<&Ports::set_pvid, &vl_evt_intf_pvid_rec::ifx, &vl_evt_intf_pvid_rec::pvid>},
    {VLAN_EVENT_SET_ADD_DYN_INTF, kExact, one_vlan<&Ports::add_dynamic>},
    {VLAN_EVENT_SET_DEL_DYN_INTF, kExact, one_vlan<&Ports::remove_dynamic>},
    {VLAN_EVENT_DYN_MEM_ADD_RANG, kExact, some_vlans<&Ports::add_dynamic>},
    {VLAN_EVENT_DYN_MEM_DEL_RANG, kExact, some_vlans<&Ports::remove_dynamic>},
    {VLAN_EVENT_SP_ADD_ALLOW_VLAN, kExact, some_vlans<&Ports::allow>},
    {VLAN_EVENT_SP_RMV_ALLOW_VLAN, kExact, some_vlans<&Ports::disallow>},
    // Ports have no sub-interfaces here; what is left of the request is that the port leaves the VLANs.
    {VLAN_EVENT_SP_RMV_SUB_IF_VLAN, kExact, some_vlans<&Ports::remove_members>},
    {MAC_EVENT_NOTIFY_ADDR, kAny, take_records},
    {MAC_EVENT_ROLLBACK_ADDR, kAny, take_records, true},
    {MAC_EVENT_BYPASS_ADDR, kAny, take_records, true},
    {MAC_EVENT_DYN_FLUSH, kAny, flush_all, true},
    {MAC_EVENT_DEL_DYN_ON_VLANMAP, kAtLeast, flush_learned, true},
    {MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, kAtLeast, flush_learned, true},
    {MAC_EVENT_INTF_LEARN, kAtLeast, switch_port_learning},
    {MAC_EVENT_SET_AGETIME_RANGE, kAtLeast,
     request<&Addresses::set_age_range, &bri_mac_age_range::min, &bri_mac_age_range::max, &bri_mac_age_range::step>},
    {MAC_EVENT_SET_AVAILABLE_MAC, kAtLeast, whole_request<&Addresses::set_room>},
    {MAC_EVENT_NONDYN_CHECK_BEGIN, kAny, whole_request<&Addresses::begin_check>},
    {MAC_EVENT_NONDYN_CHECK_END, kAny, whole_request<&Addresses::end_check>},
    {MVLAN_EVENT_NOTIFY_ENTRY, kAtLeast, whole_request<&Addresses::apply_host>},
    {MVLAN_EVENT_ERROR, kAtLeast, take_host_error, true},
    {L2TOP_EVENT_INSTANCE_CONFIG, kExact,
     [](Bridge &bridge, const Connection &, Bytes payload) {
         bridge.topology.set_instances(object_of<wire::instance_table>(payload).instances);
     }},
    {L2TOP_EVENT_PORT_STATUS, kExact, take_states},
    {L2TOP_EVENT_PROTO_CONFIG, kExact, take_protocol},
    {RESEARCH_EVENT_SWPORT_PREJUDGE, kExact,
     answer<RESEARCH_EVENT_SWPORT_PREJUDGE, &bri_swport_prejudge_reply::is_allow, true>},
    {RESEARCH_EVENT_FAILED, kAny,
     [](Bridge &bridge, const Connection &client, Bytes) {
         bridge.prejudge.answer(client, RESEARCH_EVENT_SWPORT_PREJUDGE, "could not decide");
     }},
};

} // namespace

const Request *find_request(uint32_t type) {
    for (const Request &row : kRequests)
        if (row.type == type)
            return &row;
    return nullptr;
}

} // namespace sandbox
