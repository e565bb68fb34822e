// The kernel channel and what is asked over it.
#include "tests/faults/rows.h"

namespace test {

namespace {

constexpr uint16_t kFamily = 27;
const uint8_t kData[4] = {1, 2, 3, 4};

void channel_down(SweptHost &) {
    bridge_lib_nlclient_deinit(&SweptHost::ctx());
}

// The kernel's answer to a closed channel: a job that tries again every second.
void kernel_gone(SweptHost &host) {
    if (host.kernel.persistent() == nullptr)
        return;
    host.kernel.deliver(host.kernel.persistent()->fd, netlink_error(-ENOENT));
    SweptHost::loop().run("bri-ef-read");
}

void message_waits(SweptHost &host) {
    host.kernel.deliver(host.kernel.persistent()->fd, netlink_message(kFamily, 3, netlink_attr(0, Packet(16, 1))));
}

Got reconnect_job() {
    SweptHost::loop().run("bri-ef-reconn");
    if (SweptHost::ctx().nl_ready != 0)
        return SweptHost::loop().count("bri-ef-read") == 1 ? Got::kSuccess : Got::kElse;
    return SweptHost::loop().count("bri-ef-reconn") == 1 ? Got::kFailure : Got::kElse;
}

Got read_job() {
    SweptHost::loop().run("bri-ef-read");
    return SweptHost::loop().count("bri-ef-read") == 1 ? Got::kSuccess : Got::kElse;
}

bri_mac_entry entry_by(bri_mac_field field) {
    bri_mac_entry entry{};
    entry.field = field;
    entry.ifx = kPort;
    return entry;
}

const Effects kBroughtUp{{"socket", Got::kFailure}, {"bind", Got::kFailure},           {"setsockopt", Got::kSuccess},
                         {"sendto", Got::kFailure}, {"sendto", Got::kSuccess, EAGAIN}, {"recv", Got::kFailure}};
const Effects kSent{{"malloc", Got::kFailure}, {"sendto", Got::kFailure}, {"sendto", Got::kSuccess, EAGAIN}};
const Effects kQueried{{"socket", Got::kFailure}, {"bind", Got::kFailure},           {"setsockopt", Got::kSuccess},
                       {"sendto", Got::kFailure}, {"sendto", Got::kSuccess, EAGAIN}, {"recv", Got::kFailure},
                       {"malloc", Got::kFailure}, {"recvfrom", Got::kFailure}};

} // namespace

std::vector<Row> kernel_rows() {
    return {
        {"bridge_lib_nlclient_init", Level::kConnected,
         [](SweptHost &) { return one(bridge_lib_nlclient_init(&SweptHost::ctx())); }, kBroughtUp, 0, channel_down},
        {"job bri-ef-reconn", Level::kConnected, [](SweptHost &) { return reconnect_job(); }, kBroughtUp, 0,
         kernel_gone},
        {"job bri-ef-read",
         Level::kConnected,
         [](SweptHost &) { return read_job(); },
         {{"recvfrom", Got::kSuccess}, {"recv", Got::kSuccess}},
         0,
         message_waits,
         channel_down},
        {"bridge_lib_send_netlink", Level::kConnected,
         [](SweptHost &) { return zero(bridge_lib_send_netlink(kData, sizeof kData, 1)); }, kSent},
        {"bridge_lib_query_netlink", Level::kConnected,
         [](SweptHost &) { return made(bridge_lib_query_netlink(kData, sizeof kData, 1)); }, kQueried},
        {"bridge_lib_feedback_netlink",
         Level::kConnected,
         [](SweptHost &host) { return made(bridge_lib_feedback_netlink(host.kernel.persistent()->fd, kFamily)); },
         {{"recvfrom", Got::kFailure}, {"recv", Got::kFailure}},
         0,
         message_waits,
         channel_down},
        {"bridge_maddr_dynmac_check_begin", Level::kConnected,
         [](SweptHost &) { return zero(bridge_maddr_dynmac_check_begin()); }, kSent},
        {"bridge_maddr_dynmac_check_end", Level::kConnected,
         [](SweptHost &) { return zero(bridge_maddr_dynmac_check_end()); }, kSent},
        {"bridge_maddr_notify", Level::kConnected,
         [](SweptHost &) {
             const bri_mac_msg records[2] = {};
             return zero(bridge_maddr_notify(records, 2));
         },
         kSent},
        {"bridge_maddr_find_first_on_mac", Level::kConnected,
         [](SweptHost &) {
             bri_mac_entry entry = entry_by(BRI_MAC_FIELD_MAC);
             return zero(bridge_maddr_find_first_on_mac(&entry));
         },
         kQueried},
        {"bridge_maddr_find_first_on_ifx", Level::kConnected,
         [](SweptHost &) {
             bri_mac_entry entry = entry_by(BRI_MAC_FIELD_IFX);
             return zero(bridge_maddr_find_first_on_ifx(&entry));
         },
         kQueried},
        {"bridge_maddr_find_next_on_mac", Level::kConnected,
         [](SweptHost &) {
             const bri_mac_entry current{};
             bri_mac_entry next;
             return zero(bridge_maddr_find_next_on_mac(&current, &next));
         },
         kQueried},
        {"bridge_maddr_find_next_on_ifx", Level::kConnected,
         [](SweptHost &) {
             const bri_mac_entry current{};
             bri_mac_entry next;
             return zero(bridge_maddr_find_next_on_ifx(&current, &next));
         },
         kQueried},
        {"bridge_maddr_find_static_on_ifx", Level::kConnected,
         [](SweptHost &) { return zero(bridge_maddr_find_static_on_ifx(kPort)); }, kQueried},
        {"bridge_maddr_find_single", Level::kConnected,
         [](SweptHost &) {
             bri_mac_entry entry;
             return zero(bridge_maddr_find_single(kMac, kVlan, &entry));
         },
         kQueried},
        {"mvlan_clnt_get_dyn_entry", Level::kConnected,
         [](SweptHost &) {
             uint16_t vlan = 0;
             return zero(mvlan_clnt_get_dyn_entry(kMac, &vlan));
         },
         kQueried},
    };
}

} // namespace test
