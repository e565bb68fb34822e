// Origin data: the whole VLAN and port state as events. Every record is built from the tables right before its event,
// because a handler may change them.
#include "vlan/replay.h"

#include "base/bits.h"
#include "base/log.h"
#include "base/runtime.h"
#include "base/shared_word.h"
#include "base/text.h"
#include "vlan/membership.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/port_db.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>

#include <cstring>

namespace bri::vlan {

namespace {

template <class Record> void notify(uint32_t type, Record &rec) {
    bridge_call_event_handlers(type, &rec, sizeof rec);
}

vle *find(uint16_t vid) {
    vle *entry = nullptr;
    vl_clnt_get_vle_from_vid(vid, &entry);
    return entry;
}

template <class Fn> void for_each_vid(Fn &&fn) {
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid)
        fn(static_cast<uint16_t>(vid));
}

void notify_vlan_set() {
    BRI_LOG(log::kVlan, "Notify vlan create event:\n");
    vl_evt_vlanset_rec rec{};
    rec.origin_data = 1;
    for_each_vid([&](uint16_t vid) {
        if (find(vid) != nullptr)
            bits::set(rec.vlans.words, vid);
    });
    notify(VLAN_EVENT_CREATE_RANGE, rec);
}

// Whether the VLAN has the name that it got when it was initialised: "VLAN" and the id in four digits, behind a "D" for
// a dynamic one.
bool has_default_name(const vle &entry, unsigned vid) {
    constexpr char kWord[] = {'V', 'L', 'A', 'N'};
    constexpr size_t kEnd = sizeof kWord + 4; // of the text
    const bool dynamic = word::load(entry.mode) == BRI_VLAN_DYNAMIC;
    if (dynamic && entry.name[0] != 'D')
        return false;
    const char *text = dynamic ? entry.name + 1 : entry.name;
    if (std::memcmp(text, kWord, sizeof kWord) != 0 || text[kEnd] != '\0')
        return false;
    for (size_t at = kEnd; at-- != sizeof kWord; vid /= 10)
        if (text[at] != static_cast<char>('0' + vid % 10))
            return false;
    return true;
}

void notify_dynamic_mode(uint16_t vid, const vle &entry) {
    const uint32_t mode = word::load(entry.mode);
    if (mode != BRI_VLAN_DYNAMIC)
        return;
    vl_evt_vlan_rec rec{};
    rec.vid = vid;
    rec.occasion = BRI_VLAN_OCCASION_REPLAY;
    rec.mode = mode;
    notify(VLAN_EVENT_MODIFY_VLAN_MODE, rec);
}

void notify_name(uint16_t vid, const vle &entry) {
    if (has_default_name(entry, vid))
        return;
    vl_evt_vlan_rec rec{};
    rec.vid = vid;
    copy_text(rec.name, entry.name);
    notify(VLAN_EVENT_RENAME, rec);
}

void notify_svi(uint16_t vid) {
    vl_evt_svi_rec rec{};
    rec.svi_ifx = vl_get_svi_ifx(vid);
    rec.vid = vid;
    if (rec.svi_ifx != 0)
        notify(VLAN_EVENT_SVI_CREATE_DESTROY, rec);
}

void notify_vlan(uint16_t vid) {
    const vle *entry = find(vid);
    if (entry == nullptr)
        return;
    notify_dynamic_mode(vid, *entry);
    entry = find(vid);
    if (entry == nullptr)
        return;
    notify_name(vid, *entry);
    notify_svi(vid);
}

// A handler may have removed the port since the walk found it.
bool is_gone(const spcb &port) {
    return word::load(port.ifx) == 0;
}

void notify_port(spcb *port, void *) {
    vl_evt_intf_rec rec{};
    rec.ifx = word::load(port->ifx);
    rec.mode = word::load(port->mode);
    rec.pvid = word::load(port->default_vid);
    notify(VLAN_EVENT_CREATE_INTF, rec);
}

void notify_port_mode(const spcb &port) {
    vl_evt_intf_mode_rec rec{};
    rec.ifx = word::load(port.ifx);
    rec.mode = word::load(port.mode);
    notify(VLAN_EVENT_MODIFY_INTF_MODE, rec);
}

void notify_port_pvid(const spcb &port) {
    vl_evt_intf_pvid_rec rec{};
    rec.ifx = word::load(port.ifx);
    rec.pvid = word::load(port.default_vid);
    notify(VLAN_EVENT_MODIFY_INTF_PVID, rec);
}

void notify_port_allowed(const spcb &port) {
    vl_evt_intf_allow_rec rec{};
    rec.ifx = word::load(port.ifx);
    for (unsigned index = 0; index < bits::kSetWords; ++index)
        rec.allow.words[index] = word::load(port.allow_vlan.words[index]);
    notify(VLAN_EVENT_MODIFY_INTF_ALLOWVL, rec);
}

void notify_port_attributes(spcb *port, void *) {
    constexpr void (*kSteps[])(const spcb &) = {notify_port_mode, notify_port_pvid, notify_port_allowed};
    for (const auto step : kSteps)
        if (!is_gone(*port))
            step(*port);
}

void notify_access_vlan(const spcb &port) {
    vl_evt_intf_vlan_rec rec{};
    rec.ifx = word::load(port.ifx);
    rec.vid = word::load(port.default_vid);
    rec.value = 3;
    rec.mode = BRI_PORT_ACCESS;
    notify(VLAN_EVENT_ADD_INTF, rec);
}

// The database keeps no dynamic memberships, so there is never a record of that kind to send.
void notify_member_vlans(const spcb &port) {
    vl_evt_intf_vlanset_rec rec{};
    rec.ifx = word::load(port.ifx);
    const Membership member = membership_of(rec.ifx);
    rec.vlans = member.fixed;
    rec.tagged = member.tagged;
    rec.kind = BRI_MEMBERSHIP_STATIC;
    notify(VLAN_EVENT_RANGE_ADD_INTF, rec);
}

void notify_port_membership(spcb *port, void *) {
    if (word::load(port->mode) == BRI_PORT_ACCESS)
        notify_access_vlan(*port);
    else
        notify_member_vlans(*port);
}

} // namespace

void replay() {
    notify_vlan_set();
    BRI_LOG(log::kVlan, "Notify vlan other event:\n");
    for_each_vid(notify_vlan);
    BRI_LOG(log::kVlan, "Notify swport create event.\n");
    vl_clnt_swport_walk_throught(notify_port, nullptr);
    BRI_LOG(log::kVlan, "Notify swport vlan event.\n");
    vl_clnt_swport_walk_throught(notify_port_attributes, nullptr);
    BRI_LOG(log::kVlan, "Notify swport add vlan event.\n");
    vl_clnt_swport_walk_throught(notify_port_membership, nullptr);
}

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

void vl_clnt_notify_origin_data(void) {
    const runtime::ReplayLevel level;
    if (level.ok())
        vlan::replay();
}

void vl_clnt_swport_walk_throught(vl_swport_walk_fn callback, void *arg) {
    if (callback == nullptr) {
        BRI_LOG(log::kVlan, "Input parameter error, handler is null.\n");
        return;
    }
    for (int32_t ifx = 0; ifx < static_cast<int32_t>(BRI_PORT_SLOTS); ++ifx) {
        spcb *port = swport_get_spcb(ifx);
        if (port != nullptr && word::load(port->mode) != 0)
            callback(port, arg);
    }
}
