// VLAN questions over the shared tables, and the walk over a VLAN's member ports with its undo.
#include "base/bits.h"
#include "base/log.h"
#include "base/shared_word.h"

#include <bridge/port_db.h>
#include <bridge/services.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>
#include <bridge/vlan_query.h>

#include <cstring>

namespace bri::vlan {

namespace {

void log_missing_vlan(uint16_t vid) {
    BRI_LOG(log::kVlan, "Input parameter error, vlan(%d) isn't exist.\n", vid);
}

// How the port carries the VLAN; every obstacle counts as not a member.
uint32_t tag_of(uint16_t vid, int32_t ifx) {
    if (swport_check_exist(ifx) == 0)
        return BRI_TAG_NOT_MEMBER;
    if (vl_exist(vid, 0) == 0) {
        log_missing_vlan(vid);
        return BRI_TAG_NOT_MEMBER;
    }
    if (vl_is_supervlan(vid) != 0 || vl_is_vlan_member(vid, ifx) == 0)
        return BRI_TAG_NOT_MEMBER;
    return static_cast<uint32_t>(swport_get_vlan_tag_rule(ifx, vid));
}

// Undoes the action on the member ports below `failed`, the nearest first.
void roll_back_below(int32_t failed, uint16_t vid, vl_member_fn rollback, void *arg) {
    vle copy;
    if (vl_get_vlan_copy(vid, &copy) == 0)
        return;
    for (int32_t ifx = failed - 1; ifx >= 1; --ifx)
        if (swport_check_exist(ifx) != 0 && vl_is_vlan_member(copy.vid, ifx) != 0)
            rollback(ifx, arg);
}

} // namespace

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

int vl_clnt_exist(uint16_t vid, uint32_t flag) {
    vl_version_check_on_reserch(vid);
    return vl_exist_imp(vid, flag);
}

int vl_clnt_get_vlan_mode(uint16_t vid, uint32_t *mode) {
    vl_version_check_on_reserch(vid);
    return mode != nullptr && vl_get_vlan_mode(vid, mode) != 0 ? BRI_OK : BRI_ERR_NULL;
}

struct spcb *vl_clnt_ifindex_to_spcb(int32_t ifx) {
    return vl_ifindex_to_swport(ifx);
}

int vl_clnt_check_ifindex_valid(int32_t ifx) {
    return swport_check_ifindex_valid(ifx);
}

int vl_clnt_is_allowvlan_mem(uint16_t vid, int32_t ifx) {
    return swport_is_allow_vlan(ifx, vid) != 0 ? BRI_OK : BRI_ERR_INVALID;
}

int vl_clnt_if_is_dyn_member(int32_t ifx, uint16_t vid) {
    return vl_is_vlan_dynamic_member(vid, ifx) != 0 ? BRI_OK : BRI_ERR_INVALID;
}

uint16_t vl_clnt_get_manage_vid(uint16_t vid) {
    return vl_get_manage_vid(vid);
}

int vl_clnt_is_supervlan(uint16_t vid) {
    return vl_is_supervlan(vid);
}

int vl_clnt_is_subvlan(uint16_t vid) {
    return vl_is_subvlan(vid);
}

uint32_t vl_clnt_get_svifx_from_vid(uint16_t vid) {
    return vl_get_svi_ifx(vid);
}

uint16_t vl_clnt_get_vid_from_svifx(uint32_t ifx) {
    BRI_LOG(log::kVlan, "vl client get vid_from svi_ifx: %u.\n", ifx);
    return vl_get_vid_from_svifx(ifx);
}

int vl_clnt_get_vlan_port_cnt(uint16_t vid, uint32_t *count) {
    if (count == nullptr) {
        BRI_LOG(log::kVlan, "Input parameter error, count is NULL.\n");
        return BRI_ERR_NULL;
    }
    *count = static_cast<uint32_t>(vl_get_vlan_port_count(vid));
    return BRI_OK;
}

int vl_clnt_get_port_default_vid(int32_t ifx, uint16_t *vid) {
    if (vid == nullptr)
        return BRI_ERR_NULL;
    *vid = swport_get_port_default_vid(ifx);
    return *vid != 0 ? BRI_OK : BRI_ERR_NO_INTERFACE;
}

int vl_clnt_get_portmode_by_index(int32_t ifx, uint32_t *mode) {
    if (mode == nullptr)
        return BRI_ERR_NULL;
    if (swport_get_port_mode(ifx, mode) != 0)
        return BRI_OK;
    BRI_LOG(log::kVlan, "Input parameter error, swport isn't exist, ifx(%d).\n", ifx);
    return BRI_ERR_NO_INTERFACE;
}

int vl_clnt_get_member_info(uint16_t vid, int32_t ifx, uint32_t *tag) {
    if (tag == nullptr) {
        BRI_LOG(log::kVlan, "Input parameter error, action is NULL.\n");
        return BRI_ERR_NULL;
    }
    *tag = vlan::tag_of(vid, ifx);
    return BRI_OK;
}

int vl_clnt_get_enable_vlans(int32_t ifx, struct vlanset *set) {
    if (set == nullptr) {
        BRI_LOG(log::kVlan, "Input parameter error, set is NULL.\n");
        return BRI_ERR_NULL;
    }
    const spcb *port = vl_ifindex_to_swport(ifx);
    if (port == nullptr) {
        BRI_LOG(log::kVlan, "Input parameter error, spcb(ifx %d) is NULL.\n", ifx);
        return BRI_ERR_NO_INTERFACE;
    }
    if (word::load(port->mode) == BRI_PORT_ROUTE) {
        BRI_LOG(log::kVlan, "Input parameter error, spcb(ifx %d) is route.\n", ifx);
        return BRI_ERR_ROUTE_PORT;
    }
    std::memset(set, 0, sizeof *set);
    for (unsigned vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
        if (vlan::tag_of(static_cast<uint16_t>(vid), ifx) == BRI_TAG_NOT_MEMBER)
            continue;
        BRI_LOG(log::kVlan, "Current vlan %d.\n", static_cast<int>(vid));
        bits::set(set->words, vid);
    }
    return BRI_OK;
}

int vl_clnt_get_vlan_name(uint16_t vid, char *buf, int32_t size) {
    if (buf == nullptr) {
        BRI_LOG(log::kVlan, "Input parameter error, name is NULL.\n");
        return BRI_ERR_NULL;
    }
    char name[BRI_VLAN_NAME_SIZE];
    if (vl_get_vlan_name(vid, name) == 0) {
        vlan::log_missing_vlan(vid);
        return BRI_ERR_NO_VLAN;
    }
    const int64_t room = int64_t{size} - 1;
    const size_t length = strnlen(name, sizeof name - 1);
    if (static_cast<int64_t>(length) > room) {
        BRI_LOG(log::kVlan, "Input parameter error, size(%d) is small.\n", static_cast<int>(room));
        return BRI_ERR_INVALID;
    }
    // Byte size - 1 is left as it is, also behind a name that fills the rest: the caller cleared the buffer.
    std::memcpy(buf, name, length);
    std::memset(buf + length, 0, static_cast<size_t>(room) - length);
    return BRI_OK;
}

void vl_clnt_member_walk_through(uint16_t vid, vl_member_fn action, void *action_arg, vl_member_fn rollback,
                                 void *rollback_arg) {
    if (action == nullptr) {
        BRI_LOG(log::kVlan, "Input parameter error, handler is NULL.\n");
        return;
    }
    uint32_t members[2];
    if (vl_get_vlan_port_bmap(vid, members) == 0) {
        BRI_LOG(log::kVlan, "Input parameter error, vlan(%d) does not exist.\n", vid);
        return;
    }
    bits::for_each(members, 1, BRI_PORT_SLOTS - 1, [&](unsigned port) {
        const auto ifx = static_cast<int32_t>(port);
        const int verdict = action(ifx, action_arg);
        if (verdict == BRI_WALK_GO_ON)
            return true;
        if (verdict == BRI_WALK_STOP || rollback == nullptr)
            return false;
        if (verdict == BRI_WALK_UNDO_THIS)
            rollback(ifx, rollback_arg);
        else if (verdict == BRI_WALK_UNDO_EARLIER)
            vlan::roll_back_below(ifx, vid, rollback, rollback_arg);
        else
            return true;
        return false;
    });
}
