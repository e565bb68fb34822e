// Requests to the server, and texts and prints that need memory.
#include "tests/faults/rows.h"

namespace test {

namespace {

constexpr uint16_t kFree = 20; // no such VLAN

vlanset g_vlans;
char g_error[128];

// Requests wait for the timer, so an attempt is the call and the next flush.
Got flushed(Got result) {
    SweptHost::tick();
    return result;
}

template <class Call> std::function<Got(SweptHost &)> request(Call call) {
    return [call](SweptHost &) { return flushed(zero(call())); };
}
template <class Call> std::function<Got(SweptHost &)> order(Call call) {
    return [call](SweptHost &) {
        call();
        return flushed(done());
    };
}

l2top_port_status_batch status_batch(uint16_t instance) {
    l2top_port_status_batch batch{};
    batch.count = 1;
    batch.records[0].ifx = kPort;
    batch.records[0].instance = instance;
    return batch;
}

l2top_port_instance_req instance_request() {
    l2top_port_instance_req wanted{};
    wanted.ifx = kPort;
    wanted.instances[0] = 2;
    return wanted;
}

void no_protocol(SweptHost &) {
    bridge_proto_state_unset(BRI_PROT_ERPS);
}

const Effects kListed{{"malloc", Got::kFailure}};

} // namespace

std::vector<Row> request_rows() {
    using enum Level;
    const auto mac_row = [](const char *name, int (*call)(const uint8_t *, uint32_t, uint32_t)) {
        return Row{name, kConnected, request([call] { return call(kMac, kVlan, kPort); }), kBatched,
                   MAC_EVENT_NOTIFY_ADDR};
    };
    const auto set_row = [](const char *name, int (*call)(int32_t, const vlanset *), int type) {
        return Row{name, kConnected, request([call] { return call(kPort, &g_vlans); }), kBatched, type};
    };
    const Effects expanded{{"calloc", Got::kFailure}, {"send", Got::kSuccess}};
    return {
        {"vl_clnt_create_vlan_entry", kConnected, request([] { return vl_clnt_create_vlan_entry(kFree); }), kBatched,
         VLAN_EVENT_CREATE_INDEX},
        {"vl_clnt_delete_vlan_entry", kConnected, request([] { return vl_clnt_delete_vlan_entry(kVlan); }), kBatched,
         VLAN_EVENT_DESTROY_INDEX},
        {"bridge_client_vlan_reply", kConnected, order([] {
             const uint32_t result = 0;
             bridge_client_vlan_reply(&result);
         }),
         kAnswered, VLAN_EVENT_CREATE_PREJ},
        {"bridge_client_vlanset_reply", kConnected, order([] {
             const vl_vlanset_reply reply{};
             bridge_client_vlanset_reply(&reply);
         }),
         kAnswered, VLAN_EVENT_CREATE_RANGE_PREJ},
        {"bridge_client_vlan_rollback", kConnected, order([] { bridge_client_vlan_rollback(kVlan); }), kBatched,
         VLAN_EVENT_DESTROY_RANGE},
        {"bridge_client_vlanset_rollback", kConnected, order([] { bridge_client_vlanset_rollback(&g_vlans); }),
         kBatched, VLAN_EVENT_DESTROY_RANGE},
        {"vl_clnt_set_native_vlan", kConnected, order([] { vl_clnt_set_native_vlan(kPort, kVlan); }), kBatched,
         VLAN_EVENT_MODIFY_INTF_PVID},
        {"vl_clnt_add_dyn_member", kConnected, request([] { return vl_clnt_add_dyn_member(kPort, kVlan); }), kBatched,
         VLAN_EVENT_SET_ADD_DYN_INTF},
        {"vl_clnt_del_dyn_member", kConnected, request([] { return vl_clnt_del_dyn_member(kPort, kVlan); }), kBatched,
         VLAN_EVENT_SET_DEL_DYN_INTF},
        set_row("vl_clnt_dyn_member_add_rang", vl_clnt_dyn_member_add_rang, VLAN_EVENT_DYN_MEM_ADD_RANG),
        set_row("vl_clnt_dyn_member_del_rang", vl_clnt_dyn_member_del_rang, VLAN_EVENT_DYN_MEM_DEL_RANG),
        set_row("vl_clnt_swport_add_allow_vlanset", vl_clnt_swport_add_allow_vlanset, VLAN_EVENT_SP_ADD_ALLOW_VLAN),
        set_row("vl_clnt_swport_rmv_allow_vlanset", vl_clnt_swport_rmv_allow_vlanset, VLAN_EVENT_SP_RMV_ALLOW_VLAN),
        set_row("vl_clnt_swport_rmv_sub_if_vlanset", vl_clnt_swport_rmv_sub_if_vlanset, VLAN_EVENT_SP_RMV_SUB_IF_VLAN),
        {"vl_clnt_notify_set_vswpt_num", kConnected, order([] {
             static const uint8_t table[512] = {};
             vl_clnt_notify_set_vswpt_num(table, table);
         }),
         kBatched, VLAN_EVENT_SET_VSWPT_NUM},
        {"vl_clnt_set_trill_vswpt_num", kConnected, request([] {
             static const uint8_t table[512] = {};
             return vl_clnt_set_trill_vswpt_num(table, table);
         }),
         kBatched, VLAN_EVENT_SET_VSWPT_NUM},
        {"vl_clnt_set_bri_dyn_member", kConnected,
         request([] { return vl_clnt_set_bri_dyn_member(VLAN_EVENT_SET_ADD_DYN_INTF, kPort, kVlan); }), kBatched,
         VLAN_EVENT_SET_ADD_DYN_INTF},
        {"vl_clnt_set_bri_dyn_member_rang", kConnected,
         request([] { return vl_clnt_set_bri_dyn_member_rang(VLAN_EVENT_DYN_MEM_ADD_RANG, kPort, &g_vlans); }),
         kBatched, VLAN_EVENT_DYN_MEM_ADD_RANG},

        {"vl_clnt_check_vlan_set", kStarted,
         [](SweptHost &) {
             const int result = vl_clnt_check_vlan_set("1,3-5", g_error, sizeof g_error);
             return result == 1 ? Got::kSuccess : result == 0 ? Got::kFailure : Got::kElse;
         },
         kListed},
        {"vl_clnt_vlist_str_to_map", kStarted,
         [](SweptHost &) {
             const int result = vl_clnt_vlist_str_to_map("1,3-5", &g_vlans, g_error, sizeof g_error);
             return result == 0 ? Got::kSuccess : result == -2 ? Got::kFailure : Got::kElse;
         },
         kListed},

        {"bridge_set_port_fwd_status", kConnected, request([] {
             const l2top_port_status_batch batch = status_batch(0);
             return bridge_set_port_fwd_status(&batch);
         }),
         kBatched, L2TOP_EVENT_PORT_STATUS},
        {"bridge_set_port_fwd_status, every instance", kConnected, request([] {
             const l2top_port_status_batch batch = status_batch(BRI_L2TOP_INSTANCE_ALL);
             return bridge_set_port_fwd_status(&batch);
         }),
         expanded},
        {"bridge_set_port_instance_status", kConnected, request([] {
             const l2top_port_instance_req wanted = instance_request();
             return bridge_set_port_instance_status(&wanted);
         }),
         expanded, L2TOP_EVENT_PORT_STATUS},
        {"bridge_set_instance_configtable", kConnected,
         request([] { return bridge_set_instance_configtable(swport_get_stp_instance_table()); }), kBatched,
         L2TOP_EVENT_INSTANCE_CONFIG},
        {"bridge_config_bri_protocol", kConnected, request([] { return bridge_config_bri_protocol(BRI_PROT_ERPS, 1); }),
         kBatched, L2TOP_EVENT_PROTO_CONFIG, no_protocol},
        {"l2top_clnt_notify_origin_data",
         kStarted,
         [](SweptHost &) {
             l2top_clnt_notify_origin_data();
             return done();
         },
         {{"calloc", Got::kSuccess}}},

        mac_row("bridge_maddr_add_static", bridge_maddr_add_static),
        mac_row("bridge_maddr_add_secu", bridge_maddr_add_secu),
        mac_row("bridge_maddr_add_trust", bridge_maddr_add_trust),
        mac_row("bridge_maddr_add_other", bridge_maddr_add_other),
        mac_row("bridge_maddr_del_static", bridge_maddr_del_static),
        mac_row("bridge_maddr_del_dyn", bridge_maddr_del_dyn),
        mac_row("bridge_maddr_force_del_dyn", bridge_maddr_force_del_dyn),
        mac_row("bridge_maddr_del_secu", bridge_maddr_del_secu),
        mac_row("bridge_maddr_del_trust", bridge_maddr_del_trust),
        mac_row("bridge_maddr_del_other", bridge_maddr_del_other),
        {"bridge_maddr_rollback", kConnected,
         request([] { return bridge_maddr_rollback(BRI_MAC_TYPE_STATIC, kMac, kVlan, kPort); }), kBatched,
         MAC_EVENT_ROLLBACK_ADDR},
        {"bridge_maddr_bypass", kConnected,
         request([] { return bridge_maddr_bypass(BRI_MAC_TYPE_DYNAMIC, kMac, kVlan, kPort); }), kBatched,
         MAC_EVENT_BYPASS_ADDR},
        {"bridge_maddr_del_dyn_on_vlanmap", kConnected,
         request([] { return bridge_maddr_del_dyn_on_vlanmap(&g_vlans, kPort, 1); }), kBatched,
         MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP},
        {"bridge_maddr_set_intf_learn", kConnected, request([] { return bridge_maddr_set_intf_learn(kPort, 1); }),
         kBatched, MAC_EVENT_INTF_LEARN},
        {"bridge_maddr_set_dyn_life_range", kConnected,
         request([] { return bridge_maddr_set_dyn_life_range(1, 2, 1); }), kBatched, MAC_EVENT_SET_AGETIME_RANGE},
        {"bridge_maddr_set_available_mac", kConnected, request([] { return bridge_maddr_set_available_mac(1, 2, 3); }),
         kBatched, MAC_EVENT_SET_AVAILABLE_MAC},
        {"bridge_maddr_nondyn_check_begin", kConnected,
         request([] { return bridge_maddr_nondyn_check_begin(BRI_MAC_TYPE_STATIC); }), kBatched,
         MAC_EVENT_NONDYN_CHECK_BEGIN},
        {"bridge_maddr_nondyn_check_end", kConnected,
         request([] { return bridge_maddr_nondyn_check_end(BRI_MAC_TYPE_STATIC); }), kBatched,
         MAC_EVENT_NONDYN_CHECK_END},
        {"bridge_maddr_set_root_bridge_mode", kConnected, request([] { return bridge_maddr_set_root_bridge_mode(1); }),
         kBatched, MAC_EVENT_SET_ROOT_BRIDGE_MODE},

        {"mvlan_clnt_add_dyn_entry", kConnected, order([] { mvlan_clnt_add_dyn_entry(kMac, kVlan); }), kBatched,
         MVLAN_EVENT_NOTIFY_ENTRY},
        {"mvlan_clnt_add_dyn_entry_dot1x", kConnected,
         order([] { mvlan_clnt_add_dyn_entry_dot1x(kMac, kVlan, kPort); }), kBatched, MVLAN_EVENT_NOTIFY_ENTRY},
        {"mvlan_clnt_del_dyn_entry", kConnected, order([] { mvlan_clnt_del_dyn_entry(kMac); }), kBatched,
         MVLAN_EVENT_NOTIFY_ENTRY},
        {"mvlan_clnt_send_error_result", kConnected, order([] {
             const mvlan_entry entry{};
             mvlan_clnt_send_error_result(&entry);
         }),
         kBatched, MVLAN_EVENT_ERROR},
    };
}

} // namespace test
