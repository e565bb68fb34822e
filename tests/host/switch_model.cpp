#include "tests/host/switch_model.h"

#include <algorithm>
#include <poll.h>

namespace test {

namespace {

constexpr uint16_t kFirstVlan = 1;
constexpr uint16_t kLastVlan = 24; // few, so that the same ones are hit again and again
constexpr uint32_t kPorts = 5;

ByteVec no_payload() {
    return {};
}

bri_mac_msg address_record(uint32_t oper, uint8_t mac, uint16_t vid, uint32_t ifx) {
    bri_mac_msg record{};
    record.oper = oper;
    record.entry.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
    record.entry.mac[0] = 2;
    record.entry.mac[5] = mac;
    record.entry.bcast_id = vid;
    record.entry.ifx = ifx;
    record.entry.type = BRI_MAC_TYPE_DYNAMIC;
    return record;
}

template <class Fn> void for_each_port(Fn &&fn) {
    for (uint32_t ifx = 1; ifx <= kPorts; ++ifx)
        if (spcb *port = swport_get_spcb(static_cast<int32_t>(ifx)); port != nullptr)
            fn(ifx, *port);
}

bool is_member(uint32_t ifx, uint16_t vid) {
    return vl_is_vlan_member(vid, static_cast<int32_t>(ifx)) != 0;
}

} // namespace

// Contents ------------------------------------------------------------------------------------------------------------

std::set<std::pair<uint32_t, uint16_t>> Contents::live_members() const {
    std::set<std::pair<uint32_t, uint16_t>> live;
    for (const auto &member : members)
        if (vlans.count(member.second) != 0 && ports.count(member.first) != 0)
            live.insert(member);
    return live;
}

bool Contents::same_tables(const Contents &other) const {
    return vlans == other.vlans && ports == other.ports && live_members() == other.live_members();
}

std::string Contents::text() const {
    std::string all = "vlans";
    for (const uint16_t vid : vlans)
        all += " " + std::to_string(vid);
    all += "; ports";
    for (const auto &[ifx, port] : ports)
        all += " " + std::to_string(ifx) + ":" + std::to_string(port.mode) + "/" + std::to_string(port.pvid);
    all += "; members";
    for (const auto &[ifx, vid] : live_members())
        all += " " + std::to_string(ifx) + "-" + std::to_string(vid);
    all += "; addresses";
    for (const auto &[key, ifx] : addresses)
        all += " " + std::to_string(key.first) + "/" + std::to_string(key.second) + "@" + std::to_string(ifx);
    return all;
}

Contents SwitchModel::contents() const {
    Contents now;
    for (uint16_t vid = kFirstVlan; vid <= kLastVlan; ++vid)
        if (vl_exist(vid, 0) != 0)
            now.vlans.insert(vid);
    for_each_port([&](uint32_t ifx, const spcb &port) {
        if (port.mode != BRI_PORT_ROUTE)
            now.ports[ifx] = {port.mode, port.default_vid};
        for (const uint16_t vid : now.vlans)
            if (is_member(ifx, vid))
                now.members.insert({ifx, vid});
    });
    now.addresses = addresses_;
    return now;
}

// VLANs ---------------------------------------------------------------------------------------------------------------

void SwitchModel::create_vlans(uint16_t first, uint16_t last) {
    std::set<uint16_t> made;
    for (uint16_t vid = first; vid <= std::min(last, kLastVlan); ++vid)
        if (vl_exist(vid, 0) == 0) {
            vl_initial_vlan_entry(vid, BRI_VLAN_STATIC);
            made.insert(vid);
        }
    tell_vlans(VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_RANGE, first, last, made);
    for_each_port([&](uint32_t ifx, const spcb &) { refresh_access(ifx); });
}

void SwitchModel::delete_vlans(uint16_t first, uint16_t last) {
    std::set<uint16_t> gone;
    for (uint16_t vid = first; vid <= std::min(last, kLastVlan); ++vid)
        if (vl_exist(vid, 0) != 0)
            gone.insert(vid);
    for (const uint16_t vid : gone) {
        for_each_port([&](uint32_t ifx, const spcb &) { member(ifx, vid, false); });
        std::erase_if(addresses_, [&](const auto &entry) {
            const bool found = entry.first.second == vid;
            if (found)
                tell_address(BRI_MAC_DEL, entry.first.first, vid, entry.second);
            return found;
        });
    }
    for (const uint16_t vid : gone)
        vl_clear_vlan_entry(vid);
    tell_vlans(VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_DESTROY_RANGE, first, last, gone);
}

void SwitchModel::tell_vlans(uint32_t one, uint32_t range, uint16_t first, uint16_t last,
                             const std::set<uint16_t> &vids) {
    if (vids.empty())
        return;
    if (first == last) {
        vl_evt_vlan_rec record{};
        record.vid = first;
        record.version = vl_get_vlan_latest_version(first);
        record.mode = BRI_VLAN_STATIC;
        return tell_record(one, record);
    }
    static vl_evt_vlanset_rec record;
    record = {};
    for (const uint16_t vid : vids) {
        record.vlans.words[vid / 32] |= uint32_t{1} << vid % 32;
        record.versions[vid] = vl_get_vlan_latest_version(vid);
    }
    tell_record(range, record);
}

// Ports ---------------------------------------------------------------------------------------------------------------

void SwitchModel::tell_port(uint32_t ifx) {
    const spcb &port = *swport_get_raw_spcb(static_cast<int32_t>(ifx));
    vl_evt_intf_rec record{};
    record.ifx = ifx;
    record.mode = port.mode;
    record.pvid = port.default_vid;
    tell_record(VLAN_EVENT_CREATE_INTF, record);
    tell_record(VLAN_EVENT_MODIFY_INTF_MODE, vl_evt_intf_mode_rec{ifx, port.mode});
    tell_record(VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec{ifx, port.default_vid, 0});
}

void SwitchModel::add_port(uint32_t ifx, uint32_t mode, uint16_t pvid) {
    spcb &port = *swport_get_raw_spcb(static_cast<int32_t>(ifx));
    if (port.ifx != 0)
        return;
    port = {};
    port.mode = mode;
    port.default_vid = pvid;
    port.ifx = ifx;
    tell_port(ifx);
    refresh_access(ifx);
}

void SwitchModel::remove_port(uint32_t ifx) {
    spcb &port = *swport_get_raw_spcb(static_cast<int32_t>(ifx));
    if (port.ifx == 0)
        return;
    for (uint16_t vid = kFirstVlan; vid <= kLastVlan; ++vid)
        member(ifx, vid, false);
    std::erase_if(addresses_, [&](const auto &entry) {
        const bool found = entry.second == ifx;
        if (found)
            tell_address(BRI_MAC_DEL, entry.first.first, entry.first.second, ifx);
        return found;
    });
    vl_evt_intf_rec record{};
    record.ifx = ifx;
    record.mode = port.mode;
    port.ifx = 0;
    tell_record(VLAN_EVENT_DESTROY_INTF, record);
}

// Replays leave routed ports out, so one that is no longer routed is told as a new one.
void SwitchModel::set_mode(uint32_t ifx, uint32_t mode) {
    spcb *port = swport_get_spcb(static_cast<int32_t>(ifx));
    if (port == nullptr || port->mode == mode)
        return;
    const bool was_routed = port->mode == BRI_PORT_ROUTE;
    for (uint16_t vid = kFirstVlan; vid <= kLastVlan; ++vid)
        member(ifx, vid, false);
    port->mode = mode;
    if (was_routed)
        tell_port(ifx);
    else
        tell_record(VLAN_EVENT_MODIFY_INTF_MODE, vl_evt_intf_mode_rec{ifx, mode});
    refresh_access(ifx);
}

void SwitchModel::set_pvid(uint32_t ifx, uint16_t pvid) {
    spcb *port = swport_get_spcb(static_cast<int32_t>(ifx));
    if (port == nullptr)
        return;
    port->default_vid = pvid;
    tell_record(VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec{ifx, pvid, 0});
    refresh_access(ifx);
}

// An access port is a member of its native VLAN, where that exists, and of no other.
void SwitchModel::refresh_access(uint32_t ifx) {
    const spcb &port = *swport_get_raw_spcb(static_cast<int32_t>(ifx));
    if (port.mode != BRI_PORT_ACCESS)
        return;
    for (uint16_t vid = kFirstVlan; vid <= kLastVlan; ++vid)
        member(ifx, vid, vid == port.default_vid);
}

void SwitchModel::member(uint32_t ifx, uint16_t vid, bool is) {
    if (vl_exist(vid, 0) == 0 || is_member(ifx, vid) == is)
        return;
    (is ? vl_add_static_member : vl_del_static_member)(static_cast<int32_t>(ifx), vid);
    vl_evt_intf_vlanset_rec record{};
    record.ifx = ifx;
    record.vlans.words[vid / 32] |= uint32_t{1} << vid % 32;
    record.kind = BRI_MEMBERSHIP_STATIC;
    tell_record(is ? VLAN_EVENT_RANGE_ADD_INTF : VLAN_EVENT_RANGE_DEL_INTF, record);
}

void SwitchModel::join(uint32_t ifx, uint16_t vid) {
    const spcb *port = swport_get_spcb(static_cast<int32_t>(ifx));
    if (port != nullptr && port->mode == BRI_PORT_TRUNK)
        member(ifx, vid, true);
}
void SwitchModel::leave(uint32_t ifx, uint16_t vid) {
    const spcb *port = swport_get_spcb(static_cast<int32_t>(ifx));
    if (port != nullptr && port->mode == BRI_PORT_TRUNK)
        member(ifx, vid, false);
}

// Addresses -----------------------------------------------------------------------------------------------------------

void SwitchModel::tell_address(uint32_t oper, uint8_t mac, uint16_t vid, uint32_t ifx) {
    tell_record(MAC_EVENT_NOTIFY_ADDR, address_record(oper, mac, vid, ifx));
}

void SwitchModel::learn(uint8_t mac, uint32_t where) {
    const auto members = contents().members;
    if (members.empty())
        return;
    const auto [ifx, vid] = *std::next(members.begin(), static_cast<std::ptrdiff_t>(where % members.size()));
    addresses_[{mac, vid}] = ifx;
    tell_address(BRI_MAC_ADD, mac, vid, ifx);
}

void SwitchModel::forget(uint32_t which) {
    if (addresses_.empty())
        return;
    const auto known = std::next(addresses_.begin(), static_cast<std::ptrdiff_t>(which % addresses_.size()));
    tell_address(BRI_MAC_DEL, known->first.first, known->first.second, known->second);
    addresses_.erase(known);
}

void SwitchModel::forget_all() {
    while (!addresses_.empty())
        forget(0);
}

void SwitchModel::answer_question() {
    if (lost_questions_ != 0) {
        --lost_questions_;
        return;
    }
    tell(MAC_EVENT_SYNC_DATA_BEGIN);
    for (const auto &[key, ifx] : addresses_)
        tell_address(BRI_MAC_ADD, key.first, key.second, ifx);
    tell(MAC_EVENT_SYNC_DATA_END);
    queue_.back().answered = std::make_shared<Contents>(contents());
}

// The connection ------------------------------------------------------------------------------------------------------

void SwitchModel::tell(uint32_t type, const ByteVec &payload) {
    if (registered_)
        queue_.push_back({{type, payload}, nullptr});
}

void SwitchModel::listen() {
    if (server_ == nullptr)
        server_ = std::make_unique<Server>();
}

void SwitchModel::drop() {
    peer_.close();
    queue_.clear();
    held_.clear();
    registered_ = false;
}

void SwitchModel::introduce() {
    registered_ = true;
    tell(BRIDGE_EVEVT_SERVER_STAT, {static_cast<uint8_t>(slave_ ? 1 : 0)});
    synchronise_again();
}

void SwitchModel::synchronise_again() {
    if (!registered_)
        return;
    tell(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    held_ = {{BRIDGE_EVENT_BKUP_DATA_END, no_payload()}, {BRIDGE_EVENT_SYNC_DATA_END, no_payload()}};
    if (!hold_)
        go_on();
}

void SwitchModel::go_on() {
    for (const Message &message : std::exchange(held_, {}))
        tell(message.type, message.payload);
}

void SwitchModel::serve() {
    if (!peer_.open() && server_ != nullptr)
        peer_ = server_->accept(0);
    if (!peer_.open())
        return;
    for (const Message &message : peer_.read_messages()) {
        if (message.type == BRIDGE_EVENT_REG_MSG && !registered_)
            introduce();
        if (message.type == BRIDGE_EVENT_ORI_DATA_REQUEST &&
            value_at<uint32_t>(message.payload.data(), 0) == BRI_SUBMOD_MAC)
            answer_question();
    }
    if (peer_.readable() && peer_.ended(0))
        drop();
}

// A client that does not read gets no more than it has room for.
void SwitchModel::let_out(size_t messages) {
    while (messages != 0 && !queue_.empty() && peer_.open()) {
        pollfd room{peer_.fd(), POLLOUT, 0};
        if (poll(&room, 1, 0) != 1 || (room.revents & (POLLHUP | POLLERR)) != 0)
            return;
        std::vector<Message> batch;
        for (size_t size = 0; messages != 0 && !queue_.empty(); --messages) {
            size += sizeof(bri_msg_hdr) + queue_.front().message.payload.size();
            if (size > BRI_BATCH_MSG_MAX)
                break;
            if (queue_.front().answered != nullptr)
                answered_.push_back(*queue_.front().answered);
            batch.push_back(std::move(queue_.front().message));
            queue_.pop_front();
        }
        peer_.send(batch);
    }
}

void SwitchModel::all_read() {
    answered_.erase(answered_.begin(), answered_.end() - 1);
}

// Roles ---------------------------------------------------------------------------------------------------------------

void SwitchModel::set_role(bool slave) {
    slave_ = slave;
    tell(BRIDGE_EVEVT_SERVER_STAT, {static_cast<uint8_t>(slave ? 1 : 0)});
}

void SwitchModel::begin_switchover() {
    slave_ = false;
    tell(BRIDGE_EVENT_SWITCHOVER_BEGIN);
}

void SwitchModel::end_switchover() {
    tell(BRIDGE_EVENT_SWITCHOVER_END);
}

} // namespace test
