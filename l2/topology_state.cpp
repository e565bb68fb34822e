// Reads of the shared topology state. Nothing is sent.
#include "base/log.h"
#include "l2/topology.h"

#include <bridge/vlan_query.h>

namespace bri::l2top {

namespace {

using log::kVlan;

// The number behind the last block passes, too: its port is not found.
constexpr uint32_t kIfxLast = BRI_PORT_SLOTS;

// The port behind an interface index, or null with a line that says why.
[[nodiscard]] const spcb *port_of(uint32_t ifx) {
    const spcb *port = vl_clnt_ifindex_to_spcb(static_cast<int32_t>(ifx));
    if (port == nullptr)
        BRI_LOG(kVlan, "get port fwd status, but spcb is NULL.\r\n");
    return port;
}

[[nodiscard]] bool ifx_fits(uint32_t ifx) {
    if (ifx <= kIfxLast)
        return true;
    BRI_LOG(kVlan, "get port fwd status, but if %d is fail.\r\n", static_cast<int>(ifx));
    return false;
}

} // namespace

} // namespace bri::l2top

using namespace bri;
using namespace bri::l2top;

int bridge_get_port_instance_status(uint32_t ifx, uint16_t instance, uint32_t *state) {
    if (state == nullptr || !ifx_fits(ifx))
        return -1;
    if (instance >= BRI_STP_INSTANCES) {
        BRI_LOG(kVlan, "get port fwd status, but mtid %d is fail.\r\n", instance);
        return -1;
    }
    const spcb *port = port_of(ifx);
    if (port == nullptr)
        return -1;
    *state = bri::word::load(port->fwd_state[instance]);
    BRI_LOG(kVlan, "get port %d msti %d fwd status %d success.\r\n", static_cast<int>(ifx), instance,
            static_cast<int>(*state));
    return 0;
}

int bridge_get_port_fwd_status(uint32_t ifx, uint16_t vid, uint32_t *state) {
    if (state == nullptr || !ifx_fits(ifx))
        return -1;
    if (vid > BRI_VID_MAX) {
        BRI_LOG(kVlan, "get port fwd status, but vid %d is fail.\r\n", vid);
        return -1;
    }
    const spcb *port = port_of(ifx);
    if (port == nullptr)
        return -1;
    const uint16_t instance = swport_get_stp_instance(vid);
    if (instance >= BRI_STP_INSTANCES) {
        BRI_LOG(kVlan, "get port fwd status, get invalid instance-id.\r\n");
        return -1;
    }
    *state = bri::word::load(port->fwd_state[instance]);
    BRI_LOG(kVlan, "get port %d vid %d(msti %d) fwd status %d success.\r\n", static_cast<int>(ifx), vid, instance,
            static_cast<int>(*state));
    return 0;
}

int bridge_get_vlan_from_instance(const uint32_t *instances, vlanset *vlans) {
    if (instances == nullptr || vlans == nullptr) {
        BRI_LOG(bri::log::kClient, "[%s] get vlan from instance fail: invaid param.\n", name());
        return -1;
    }
    const uint16_t *table = swport_get_stp_instance_table();
    if (table == nullptr) {
        BRI_LOG(bri::log::kClient, "[%s] get vlan from instance fail: table not ready.\n", name());
        return -1;
    }
    *vlans = {};
    for (unsigned vid = BRI_VID_MIN, instance = 0; vid <= BRI_VID_MAX; ++vid)
        if (instance_of(table, vid, instance) && bri::bits::test(instances, instance))
            bri::bits::set(vlans->words, vid);
    return 0;
}
