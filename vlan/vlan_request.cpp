// What the VLAN client asks of the server. Each call announces itself in the log, tests what it needs, and sends one
// record; replies leave at once.
#include "base/bits.h"
#include "base/log.h"
#include "base/shared_word.h"
#include "vlan/client_name.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/port_db.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>
#include <bridge/vlan_list.h>
#include <bridge/vlan_query.h>
#include <bridge/vlan_request.h>

#include <cstring>

namespace bri::vlan {

namespace {

constexpr int kWrongPortMode = 2; // what the dynamic-member requests give for a port that is no trunk

using Send = int (*)(const void *data, uint32_t len, uint32_t type);

template <class Record> int send(uint32_t type, const Record &rec, Send how = bridge_client_send_message) {
    const int result = how(&rec, sizeof rec, type);
    BRI_LOG(log::kVlan, "Send msg type(%s) to bridge, ret = %d.\n", bri_msg_type_name(type), result);
    return result;
}

int send_vlan(uint32_t type, uint16_t vid) {
    vl_evt_vlan_rec rec{};
    rec.vid = vid;
    return send(type, rec);
}

// Whether a dynamic membership of the VLAN may be asked for on the port; if not, `refusal` is what the request gives.
bool takes_dyn_member(int32_t ifx, uint16_t vid, int &refusal) {
    const spcb *port = swport_get_spcb(ifx);
    const bool known = vl_check_vlanid_valid(vid) != 0 && port != nullptr;
    const bool trunk = known && word::load(port->mode) == BRI_PORT_TRUNK;
    refusal = known && !trunk ? kWrongPortMode : 0;
    return trunk;
}

// The requests that name a set of allowed VLANs complain of a missing one.
int send_allowed(uint32_t type, int32_t ifx, const vlanset *set) {
    if (set == nullptr)
        BRI_LOG(log::kVlan, "Client(%s), argc set is NULL.\n", client_name());
    return vl_clnt_set_bri_dyn_member_rang(type, ifx, set);
}

// The set is printed only when somebody reads it, and only its first line.
void log_set_reply(const vl_vlanset_reply &reply) {
    if (!log::kVlan.on())
        return;
    if (reply.failure == 0) {
        BRI_LOG(log::kVlan, "Client(%s) vlan range reply all success.\n", client_name());
        return;
    }
    char line[256];
    vl_clnt_vlist_vlan_line_format(line, &reply.failed, BRI_VID_MIN, BRI_VID_MAX);
    BRI_LOG(log::kVlan, "Client(%s) vlan range reply fail map %s...\n", client_name(), line);
}

} // namespace

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

int vl_clnt_create_vlan_entry(uint16_t vid) {
    BRI_LOG(log::kVlan, "Client(%s) create vlan %u.\n", client_name(), vid);
    return vl_check_vlanid_valid(vid) != 0 ? vlan::send_vlan(VLAN_EVENT_CREATE_INDEX, vid) : 0;
}

int vl_clnt_delete_vlan_entry(uint16_t vid) {
    BRI_LOG(log::kVlan, "Client(%s) delete vlan %u.\n", client_name(), vid);
    return vl_exist(vid, 0) != 0 ? vlan::send_vlan(VLAN_EVENT_DESTROY_INDEX, vid) : 0;
}

void bridge_client_vlan_reply(const uint32_t *result) {
    if (result == nullptr)
        return;
    BRI_LOG(log::kVlan, "Client(%s) vlan reply %s.\n", client_name(), *result == 0 ? "success" : "fail");
    vlan::send(VLAN_EVENT_CREATE_PREJ, *result, bridge_client_send_message_ontime);
}

void bridge_client_vlanset_reply(const struct vl_vlanset_reply *reply) {
    if (reply == nullptr)
        return;
    vlan::log_set_reply(*reply);
    vlan::send(VLAN_EVENT_CREATE_RANGE_PREJ, *reply, bridge_client_send_message_ontime);
}

void bridge_client_vlan_rollback(uint16_t vid) {
    BRI_LOG(log::kVlan, "Client(%s) ROLLBACK-VLAN[%d].\n", client_name(), vid);
    if (vid >= bits::kSetBits)
        return;
    vlanset set{};
    bits::set(set.words, vid);
    bridge_client_vlanset_rollback(&set);
}

void bridge_client_vlanset_rollback(const struct vlanset *set) {
    BRI_LOG(log::kVlan, "Client(%s) ROLLBACK-VLAN-SET.\n", client_name());
    if (set == nullptr)
        return;
    vl_evt_vlanset_rec rec{};
    rec.vlans = *set;
    vlan::send(VLAN_EVENT_DESTROY_RANGE, rec);
}

void vl_clnt_set_native_vlan(int32_t ifx, uint16_t vid) {
    BRI_LOG(log::kVlan, "Client(%s) set native vlan %u on port %d.\n", client_name(), vid, ifx);
    vl_evt_intf_pvid_rec rec{};
    rec.ifx = static_cast<uint32_t>(ifx);
    rec.pvid = vid;
    vlan::send(VLAN_EVENT_MODIFY_INTF_PVID, rec);
}

int vl_clnt_add_dyn_member(int32_t ifx, uint16_t vid) {
    BRI_LOG(log::kVlan, "Client(%s) add dynamic member port %d to vlan %u.\n", client_name(), ifx, vid);
    int refusal = 0;
    if (!vlan::takes_dyn_member(ifx, vid, refusal))
        return refusal;
    return vl_clnt_set_bri_dyn_member(VLAN_EVENT_SET_ADD_DYN_INTF, ifx, vid);
}

int vl_clnt_del_dyn_member(int32_t ifx, uint16_t vid) {
    BRI_LOG(log::kVlan, "Client(%s) delete dynamic member port %d from vlan %u.\n", client_name(), ifx, vid);
    int refusal = 0;
    if (!vlan::takes_dyn_member(ifx, vid, refusal) || vl_clnt_exist(vid, 0) == 0)
        return refusal;
    return vl_clnt_set_bri_dyn_member(VLAN_EVENT_SET_DEL_DYN_INTF, ifx, vid);
}

int vl_clnt_dyn_member_add_rang(int32_t ifx, const struct vlanset *set) {
    BRI_LOG(log::kVlan, "Client(%s) add dynamic member port %d to a vlan set.\n", client_name(), ifx);
    return vl_clnt_set_bri_dyn_member_rang(VLAN_EVENT_DYN_MEM_ADD_RANG, ifx, set);
}

int vl_clnt_dyn_member_del_rang(int32_t ifx, const struct vlanset *set) {
    BRI_LOG(log::kVlan, "Client(%s) delete dynamic member port %d from a vlan set.\n", client_name(), ifx);
    return vl_clnt_set_bri_dyn_member_rang(VLAN_EVENT_DYN_MEM_DEL_RANG, ifx, set);
}

int vl_clnt_swport_add_allow_vlanset(int32_t ifx, const struct vlanset *set) {
    BRI_LOG(log::kVlan, "Client(%s) add allowed vlan set to port %d.\n", client_name(), ifx);
    return vlan::send_allowed(VLAN_EVENT_SP_ADD_ALLOW_VLAN, ifx, set);
}

int vl_clnt_swport_rmv_allow_vlanset(int32_t ifx, const struct vlanset *set) {
    BRI_LOG(log::kVlan, "Client(%s) remove allowed vlan set from port %d.\n", client_name(), ifx);
    return vlan::send_allowed(VLAN_EVENT_SP_RMV_ALLOW_VLAN, ifx, set);
}

int vl_clnt_swport_rmv_sub_if_vlanset(int32_t ifx, const struct vlanset *set) {
    BRI_LOG(log::kVlan, "Client(%s) remove sub-interface vlan set from port %d.\n", client_name(), ifx);
    return vlan::send_allowed(VLAN_EVENT_SP_RMV_SUB_IF_VLAN, ifx, set);
}

void vl_clnt_notify_set_vswpt_num(const uint8_t *first, const uint8_t *second) {
    BRI_LOG(log::kVlan, "Client(%s) set vswpt numbers.\n", client_name());
    if (first == nullptr || second == nullptr)
        return;
    vl_vswpt_req rec;
    std::memcpy(rec.first, first, sizeof rec.first);
    std::memcpy(rec.second, second, sizeof rec.second);
    vlan::send(VLAN_EVENT_SET_VSWPT_NUM, rec);
}

int vl_clnt_set_trill_vswpt_num(const uint8_t *first, const uint8_t *second) {
    if (first == nullptr || second == nullptr)
        return -1;
    vl_clnt_notify_set_vswpt_num(first, second);
    return 0;
}

int vl_clnt_set_bri_dyn_member(uint32_t type, int32_t ifx, uint16_t vid) {
    vl_dyn_member_req rec{};
    rec.ifx = static_cast<uint32_t>(ifx);
    rec.vid = vid;
    return vlan::send(type, rec);
}

int vl_clnt_set_bri_dyn_member_rang(uint32_t type, int32_t ifx, const struct vlanset *set) {
    if (set == nullptr)
        return -1;
    vl_port_vlanset_req rec{};
    rec.ifx = static_cast<uint32_t>(ifx);
    rec.vlans = *set;
    return vlan::send(type, rec);
}
