// What clients ask for about VLANs and ports, and what they answer to questions.
#include "sandbox/bridge.h"
#include "sandbox/request.h"

#include <bridge/events.h>
#include <bridge/services.h>

#include <stdexcept>

namespace sandbox {

namespace {

vlanset named_vlan(Bytes payload) {
    const auto vid = load<vl_evt_vlan_rec>(payload).vid;
    if (vl_check_vlanid_valid(vid) == 0)
        throw std::invalid_argument("no VLAN id: " + std::to_string(vid));
    return only(vid);
}

// The two requests of one port and one VLAN, as the set that they are a case of.
vl_port_vlanset_req widened(Bytes payload) {
    const auto one = load<vl_dyn_member_req>(payload);
    vl_port_vlanset_req request{};
    request.ifx = one.ifx;
    if (vl_check_vlanid_valid(one.vid) != 0)
        put(request.vlans, one.vid);
    return request;
}

template <void (Ports::*Change)(uint32_t ifx, const vlanset &vlans)>
void change_port(Bridge &bridge, const vl_port_vlanset_req &request) {
    (bridge.vlans().ports().*Change)(request.ifx, request.vlans);
}
template <void (Ports::*Change)(uint32_t ifx, const vlanset &vlans)>
void change_one(Bridge &bridge, const Connection &, Bytes payload) {
    change_port<Change>(bridge, widened(payload));
}
template <void (Ports::*Change)(uint32_t ifx, const vlanset &vlans)>
void change_set(Bridge &bridge, const Connection &, Bytes payload) {
    change_port<Change>(bridge, load<vl_port_vlanset_req>(payload));
}

void create_one(Bridge &bridge, const Connection &, Bytes payload) {
    Trace &trace = bridge.trace();
    bridge.vlans().create(
        named_vlan(payload), BRI_VLAN_STATIC, false, [&trace](const vlanset &vlans, const std::string &refusal) {
            trace.note(count(vlans) == 0
                           ? "vlan create: they exist already"
                           : "vlan create " + vlans_text(vlans) + ": " + (refusal.empty() ? "done" : refusal));
        });
}
void destroy_one(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.vlans().remove(named_vlan(payload));
}
void roll_back(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.vlans().remove(load<vl_evt_vlanset_rec>(payload).vlans);
}
void set_native(Bridge &bridge, const Connection &, Bytes payload) {
    const auto request = load<vl_evt_intf_pvid_rec>(payload);
    bridge.vlans().ports().set_pvid(request.ifx, request.pvid);
}
const char *objection(bool refused) {
    return refused ? "refused" : "";
}
void answer_one(Bridge &bridge, const Connection &client, Bytes payload) {
    bridge.vlans().prejudge().answer(client, VLAN_EVENT_CREATE_PREJ, objection(load<uint32_t>(payload) != 0));
}
void answer_set(Bridge &bridge, const Connection &client, Bytes payload) {
    bridge.vlans().prejudge().answer(client, VLAN_EVENT_CREATE_RANGE_PREJ,
                                     objection(load<vl_vlanset_reply>(payload).failure != 0));
}
void answer_port(Bridge &bridge, const Connection &client, Bytes payload) {
    bridge.vlans().prejudge().answer(client, RESEARCH_EVENT_SWPORT_PREJUDGE,
                                     objection(load<bri_swport_prejudge_reply>(payload).is_allow == 0));
}
void fail_to_answer(Bridge &bridge, const Connection &client, Bytes) {
    bridge.vlans().prejudge().answer(client, RESEARCH_EVENT_SWPORT_PREJUDGE, "could not decide");
}

constexpr Request kRequests[] = {
    {VLAN_EVENT_CREATE_INDEX, sizeof(vl_evt_vlan_rec), sizeof(vl_evt_vlan_rec), create_one},
    {VLAN_EVENT_DESTROY_INDEX, sizeof(vl_evt_vlan_rec), sizeof(vl_evt_vlan_rec), destroy_one},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(vl_evt_vlanset_rec), sizeof(vl_evt_vlanset_rec), roll_back},
    {VLAN_EVENT_CREATE_PREJ, sizeof(uint32_t), sizeof(uint32_t), answer_one},
    {VLAN_EVENT_CREATE_RANGE_PREJ, sizeof(vl_vlanset_reply), sizeof(vl_vlanset_reply), answer_set},
    {RESEARCH_EVENT_SWPORT_PREJUDGE, sizeof(bri_swport_prejudge_reply), sizeof(bri_swport_prejudge_reply), answer_port},
    {RESEARCH_EVENT_FAILED, 0, BRI_PAYLOAD_MAX, fail_to_answer},
    {VLAN_EVENT_MODIFY_INTF_PVID, sizeof(vl_evt_intf_pvid_rec), sizeof(vl_evt_intf_pvid_rec), set_native},
    {VLAN_EVENT_SET_ADD_DYN_INTF, sizeof(vl_dyn_member_req), sizeof(vl_dyn_member_req),
     change_one<&Ports::add_dynamic>},
    {VLAN_EVENT_SET_DEL_DYN_INTF, sizeof(vl_dyn_member_req), sizeof(vl_dyn_member_req),
     change_one<&Ports::remove_dynamic>},
    {VLAN_EVENT_DYN_MEM_ADD_RANG, sizeof(vl_port_vlanset_req), sizeof(vl_port_vlanset_req),
     change_set<&Ports::add_dynamic>},
    {VLAN_EVENT_DYN_MEM_DEL_RANG, sizeof(vl_port_vlanset_req), sizeof(vl_port_vlanset_req),
     change_set<&Ports::remove_dynamic>},
    {VLAN_EVENT_SP_ADD_ALLOW_VLAN, sizeof(vl_port_vlanset_req), sizeof(vl_port_vlanset_req), change_set<&Ports::allow>},
    {VLAN_EVENT_SP_RMV_ALLOW_VLAN, sizeof(vl_port_vlanset_req), sizeof(vl_port_vlanset_req),
     change_set<&Ports::disallow>},
    // Ports have no sub-interfaces here; what is left of the request is that the port leaves the VLANs.
    {VLAN_EVENT_SP_RMV_SUB_IF_VLAN, sizeof(vl_port_vlanset_req), sizeof(vl_port_vlanset_req),
     change_set<&Ports::remove_members>},
};

} // namespace

Requests vlan_requests() {
    return kRequests;
}

} // namespace sandbox
