// What clients ask for: one row for each request and answer, with the size that its payload must have.
#include "sandbox/names.h"
#include "sandbox/output.h"
#include "sandbox/vlans.h"

#include <bridge/events.h>

#include <stdexcept>

namespace sandbox {

namespace {

template <class Record> Record load(Bytes payload) {
    return bri::load_at<Record>(payload, 0);
}

} // namespace

struct Vlans::Request {
    uint32_t type;
    size_t size;
    void (*apply)(Vlans &vlans, const Connection &client, Bytes payload);
};

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
void change_port(Vlans &vlans, const vl_port_vlanset_req &request) {
    (vlans.ports().*Change)(request.ifx, request.vlans);
}
template <void (Ports::*Change)(uint32_t ifx, const vlanset &vlans)>
void change_one(Vlans &vlans, const Connection &, Bytes payload) {
    change_port<Change>(vlans, widened(payload));
}
template <void (Ports::*Change)(uint32_t ifx, const vlanset &vlans)>
void change_set(Vlans &vlans, const Connection &, Bytes payload) {
    change_port<Change>(vlans, load<vl_port_vlanset_req>(payload));
}

void create_one(Vlans &vlans, const Connection &, Bytes payload) {
    vlans.create(named_vlan(payload), BRI_VLAN_STATIC, false);
}
void destroy_one(Vlans &vlans, const Connection &, Bytes payload) {
    vlans.remove(named_vlan(payload));
}
void roll_back(Vlans &vlans, const Connection &, Bytes payload) {
    vlans.remove(load<vl_evt_vlanset_rec>(payload).vlans);
}
void set_native(Vlans &vlans, const Connection &, Bytes payload) {
    const auto request = load<vl_evt_intf_pvid_rec>(payload);
    vlans.ports().set_pvid(request.ifx, request.pvid);
}
void answer_one(Vlans &vlans, const Connection &client, Bytes payload) {
    vlans.prejudge().answer(client, VLAN_EVENT_CREATE_PREJ, load<uint32_t>(payload) == 0);
}
void answer_set(Vlans &vlans, const Connection &client, Bytes payload) {
    vlans.prejudge().answer(client, VLAN_EVENT_CREATE_RANGE_PREJ, load<vl_vlanset_reply>(payload).failure == 0);
}

} // namespace

const Vlans::Request Vlans::kRequests[] = {
    {VLAN_EVENT_CREATE_INDEX, sizeof(vl_evt_vlan_rec), create_one},
    {VLAN_EVENT_DESTROY_INDEX, sizeof(vl_evt_vlan_rec), destroy_one},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(vl_evt_vlanset_rec), roll_back},
    {VLAN_EVENT_CREATE_PREJ, sizeof(uint32_t), answer_one},
    {VLAN_EVENT_CREATE_RANGE_PREJ, sizeof(vl_vlanset_reply), answer_set},
    {VLAN_EVENT_MODIFY_INTF_PVID, sizeof(vl_evt_intf_pvid_rec), set_native},
    {VLAN_EVENT_SET_ADD_DYN_INTF, sizeof(vl_dyn_member_req), change_one<&Ports::add_dynamic>},
    {VLAN_EVENT_SET_DEL_DYN_INTF, sizeof(vl_dyn_member_req), change_one<&Ports::remove_dynamic>},
    {VLAN_EVENT_DYN_MEM_ADD_RANG, sizeof(vl_port_vlanset_req), change_set<&Ports::add_dynamic>},
    {VLAN_EVENT_DYN_MEM_DEL_RANG, sizeof(vl_port_vlanset_req), change_set<&Ports::remove_dynamic>},
    {VLAN_EVENT_SP_ADD_ALLOW_VLAN, sizeof(vl_port_vlanset_req), change_set<&Ports::allow>},
    {VLAN_EVENT_SP_RMV_ALLOW_VLAN, sizeof(vl_port_vlanset_req), change_set<&Ports::disallow>},
    // Ports have no sub-interfaces here; what is left of the request is that the port leaves the VLANs.
    {VLAN_EVENT_SP_RMV_SUB_IF_VLAN, sizeof(vl_port_vlanset_req), change_set<&Ports::remove_members>},
};

bool Vlans::take(const Connection &client, uint32_t type, Bytes payload) {
    for (const Request &row : kRequests) {
        if (row.type != type)
            continue;
        try {
            if (payload.size != row.size)
                throw std::invalid_argument(std::to_string(payload.size) + " bytes");
            row.apply(*this, client, payload);
        } catch (const std::invalid_argument &error) {
            say("%s: %s ignored, %s", client.text().c_str(), event_text(type).c_str(), error.what());
        }
        return true;
    }
    return false;
}

} // namespace sandbox
