// Operations that ask nothing of the system that could fail: they read and write memory, or only log.
#include "client/state.h"
#include "tests/faults/rows.h"

namespace test {

namespace {

constexpr uint8_t kGroup = 1;

// What the calls write to.
char g_text[512];
uint32_t g_number;
uint16_t g_half;
uint8_t g_byte;
uint32_t g_words[4];
vlanset g_set, g_other_set;
spcb g_port;
vle g_vlan;
vle *g_vlan_pointer;
vlan_group_entry g_group;
vl_evt_vlanset_rec g_range;

int go_on(int32_t, void *) {
    return BRI_WALK_GO_ON;
}
void see(spcb *, void *) {}

// A message without an effect outside the process.
bri_msg_hdr *message(uint32_t type) {
    alignas(4) static uint8_t bytes[64];
    std::memset(bytes, 0, sizeof bytes);
    put_at(bytes, 0, type);
    put_at(bytes, 4, uint32_t{sizeof bytes - 8});
    return reinterpret_cast<bri_msg_hdr *>(bytes);
}

Row quiet(const char *operation, void (*call)()) {
    const auto attempt = [call](SweptHost &) {
        call();
        return done();
    };
    return {operation, Level::kConnected, attempt, {}};
}

} // namespace

// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): the name of the operation is that of the call
#define QUIET(operation, arguments) quiet(#operation, [] { static_cast<void>(operation arguments); })

// One row a line.
// clang-format off
std::vector<Row> quiet_rows() {
    return {
        QUIET(bri_msg_type_name, (VLAN_EVENT_RENAME)),
        QUIET(bri_submod_name, (BRI_SUBMOD_VLAN)),
        QUIET(bri_strerror, (BRI_ERR_SOCKET)),
        QUIET(bridge_client_get_counters, (nullptr, 0)),
        QUIET(bridge_client_thread_event, (BRI_CLNT_EVT_MSG_TIMER)),
        QUIET(bridge_client_connect_reset, ()),
        QUIET(bridge_call_event_handlers, (VLAN_EVENT_RENAME, nullptr, 0)),
        QUIET(bri_clnt_on_serv_stat_msg, ("\0")),
        QUIET(bridge_agent_set_business_callback, (0, agree)),
        QUIET(bridge_agent_call_business_callback, (0, nullptr, nullptr)),
        QUIET(bri_clnt_reg_swport_prejudge_callback, (agree)),
        QUIET(bri_clnt_reg_ss_origin_mac_callback, (agree)),
        QUIET(bridge_submod_set_data_state, (3, 1)),
        QUIET(bridge_dspch_client_init, ("unit")),
        QUIET(bri_clnt_debug_all, ()),
        QUIET(bri_clnt_match_mac_dbg_filter, (nullptr)),

        QUIET(bridge_shm_show, (g_vl_mng.shm)),
        QUIET(bridge_portdb_deinit, ()),
        QUIET(swport_rdown, ()),
        QUIET(swport_wdown, ()),
        QUIET(swport_up, ()),
        QUIET(swport_check_ifindex_valid, (kPort)),
        QUIET(swport_get_raw_spcb, (kPort)),
        QUIET(swport_get_spcb, (kPort)),
        QUIET(vl_ifindex_to_swport, (kPort)),
        QUIET(swport_check_exist, (kPort)),
        QUIET(swport_get_spcb_copy, (kPort, &g_port)),
        QUIET(swport_get_version, (kPort)),
        QUIET(swport_get_port_mode, (kPort, &g_number)),
        QUIET(swport_get_port_default_mode, (kPort, &g_number)),
        QUIET(swport_get_port_default_vid, (kPort)),
        QUIET(swport_get_tag_vlan, (kPort)),
        QUIET(swport_is_allow_vlan, (kPort, kVlan)),
        QUIET(swport_get_total_port_num, ()),
        QUIET(swport_vlan_mode_name, (BRI_PORT_TRUNK)),
        QUIET(swport_get_vlan_tag_rule, (kPort, kVlan)),
        QUIET(swport_tag_vlan_add, (kPort, kVlan)),
        QUIET(swport_tag_vlan_del, (kPort, kVlan)),
        QUIET(swport_tag_vlan_merge_map, (kPort, &g_set)),
        QUIET(swport_tag_vlan_rmv_map, (kPort, &g_set)),
        QUIET(swport_reset_tag_vlan, (kPort)),
        QUIET(swport_get_stp_instance_table, ()),
        QUIET(swport_set_instance_table, (swport_get_stp_instance_table())),
        QUIET(swport_get_stp_instance, (kVlan)),
        QUIET(swport_inc_total_num, ()),
        QUIET(swport_dec_total_num, ()),
        QUIET(swport_get_shm_head, (g_words, g_words + 1, g_words + 2, g_text)),
        QUIET(swport_show_status, ()),

        QUIET(vl_vlandb_deinit, ()),
        QUIET(vl_rdown, ()),
        QUIET(vl_wdown, ()),
        QUIET(vl_up, ()),
        QUIET(vl_check_vlanid_valid, (kVlan)),
        QUIET(vl_get_vlan_range, (g_words, g_words + 1)),
        QUIET(vl_set_vlan_range, (1, 4094)),
        QUIET(vl_check_vlan_capacity, ()),
        QUIET(vl_increase_vlan_number, ()),
        QUIET(vl_decrease_vlan_number, ()),
        QUIET(vl_get_vlan_number, ()),
        QUIET(vl_get_total_del_times, ()),
        QUIET(vl_increase_svi_number, ()),
        QUIET(vl_decrease_svi_number, ()),
        QUIET(vl_get_raw_vlan_entry, (kVlan)),
        QUIET(vl_get_vlan_entry, (kVlan)),
        QUIET(vl_get_vle_from_vid, (kVlan, &g_vlan_pointer)),
        QUIET(vl_get_vlan_copy, (kVlan, &g_vlan)),
        QUIET(vl_exist, (kVlan, 0)),
        QUIET(vl_exist_imp, (kVlan, 0)),
        QUIET(vl_vlanset_exist, (0, &g_set, &g_other_set)),
        QUIET(vl_get_vlan_latest_version, (kVlan)),
        QUIET(vl_get_vlan_mode, (kVlan, &g_number)),
        QUIET(vl_get_vlan_name, (kVlan, g_text)),
        QUIET(vl_get_svi_ifx, (kVlan)),
        QUIET(vl_get_manage_vid, (kVlan)),
        QUIET(vl_get_vlan_up_mem, (kVlan)),
        QUIET(vl_get_vlan_ref, (kVlan)),
        QUIET(vl_is_created_by_cli, (kVlan)),
        QUIET(vl_get_vswpt_num, (kVlan)),
        QUIET(vl_get_vid_from_svifx, (4096)),
        QUIET(vl_is_subvlan, (kVlan)),
        QUIET(vl_is_supervlan, (kVlan)),
        QUIET(vl_is_vlan_member, (kVlan, kPort)),
        QUIET(vl_is_vlan_static_member, (kVlan, kPort)),
        QUIET(vl_is_vlan_have_port, (kVlan)),
        QUIET(vl_get_vlan_port_count, (kVlan)),
        QUIET(vl_get_vlan_port_bmap, (kVlan, g_words)),
        QUIET(vl_is_vlanset_not_empty, (&g_set)),
        QUIET(vl_add_static_member, (kPort, kVlan)),
        QUIET(vl_del_static_member, (kPort, kVlan)),
        QUIET(vl_is_vlan_dynamic_member, (kVlan, kPort)),
        QUIET(vl_add_dynamic_member, (kPort, kVlan)),
        QUIET(vl_del_dynamic_member, (kPort, kVlan)),
        QUIET(vl_set_iprange, (kVlan, 1, 2)),
        QUIET(vl_get_subvlan_iprange, (kVlan, g_words, g_words + 1)),
        QUIET(vl_svlan_is_subvid_ip, (kVlan, 1)),
        QUIET(vl_svlan_search_ip, (kVlan, 1)),
        QUIET(vl_clear_vlan_entry, (kVlan)),
        QUIET(vl_set_vlan_mode, (kVlan, BRI_VLAN_STATIC)),
        QUIET(vl_set_vlan_mode_batch, (&g_set, BRI_VLAN_STATIC)),
        QUIET(vl_set_svi, (kVlan, 4096)),
        QUIET(vl_increase_vlan_ref, (kVlan)),
        QUIET(vl_decrease_vlan_ref, (kVlan)),
        QUIET(vl_set_created_by_cli, (kVlan)),
        QUIET(vl_clear_created_by_cli, (kVlan)),
        QUIET(vl_range_set_created_by_cli, (&g_set)),
        QUIET(vl_set_vswpt_num, (kVlan, 1)),
        QUIET(vldb_get_shm_head, (g_words, g_words + 1, g_words + 2, g_text)),
        QUIET(vl_vlandb_show_status, ()),

        QUIET(bp_rdown, ()),
        QUIET(bp_wdown, ()),
        QUIET(bp_up, ()),
        QUIET(bridge_proto_get_name, (BRI_PROT_ERPS)),
        QUIET(bridge_proto_state_set, (BRI_PROT_ERPS, &g_number)),
        QUIET(bridge_proto_state_unset, (BRI_PROT_ERPS)),
        QUIET(bridge_proto_state_get, (BRI_PROT_ERPS)),
        QUIET(bridge_proto_get_state_all, ()),
        QUIET(bridge_proto_set_prejudge, (BRI_PROT_ERPS, 0)),
        QUIET(bridge_proto_state_show, ()),
        QUIET(bridge_lib_nlclient_deinit, (&SweptHost::ctx())),
        QUIET(bridge_lib_nlmsg_dispch, (nullptr)),

        QUIET(vl_clnt_on_server_msg, (message(VLAN_EVENT_RENAME))),
        QUIET(vl_clnt_notify_origin_data, ()),
        QUIET(vl_get_vlan_private_version, (kVlan)),
        QUIET(vl_version_check_on_create_notify, (kVlan, 1)),
        QUIET(vl_version_check_on_destroy_notify, (kVlan, 1)),
        QUIET(vl_version_check_on_range_create_notify, (&g_range)),
        QUIET(vl_version_check_on_range_destroy_notify, (&g_range)),
        QUIET(vl_version_check_on_reserch, (kVlan)),
        QUIET(vl_version_update, (kVlan, 1)),
        QUIET(vl_clnt_get_vle_from_vid, (kVlan, &g_vlan_pointer)),
        QUIET(vl_clnt_swport_walk_throught, (see, nullptr)),
        QUIET(vl_clnt_exist, (kVlan, 0)),
        QUIET(vl_clnt_get_vlan_mode, (kVlan, &g_number)),
        QUIET(vl_clnt_ifindex_to_spcb, (kPort)),
        QUIET(vl_clnt_check_ifindex_valid, (kPort)),
        QUIET(vl_clnt_is_allowvlan_mem, (kVlan, kPort)),
        QUIET(vl_clnt_if_is_dyn_member, (kPort, kVlan)),
        QUIET(vl_clnt_get_manage_vid, (kVlan)),
        QUIET(vl_clnt_is_supervlan, (kVlan)),
        QUIET(vl_clnt_is_subvlan, (kVlan)),
        QUIET(vl_clnt_get_svifx_from_vid, (kVlan)),
        QUIET(vl_clnt_get_vid_from_svifx, (4096)),
        QUIET(vl_clnt_get_vlan_port_cnt, (kVlan, &g_number)),
        QUIET(vl_clnt_get_port_default_vid, (kPort, &g_half)),
        QUIET(vl_clnt_get_portmode_by_index, (kPort, &g_number)),
        QUIET(vl_clnt_get_member_info, (kVlan, kPort, &g_number)),
        QUIET(vl_clnt_get_enable_vlans, (kPort, &g_set)),
        QUIET(vl_clnt_get_vlan_name, (kVlan, g_text, sizeof g_text)),
        QUIET(vl_clnt_member_walk_through, (kVlan, go_on, nullptr, go_on, nullptr)),
        QUIET(vl_clnt_trim_str, (g_text)),
        QUIET(vl_clnt_exchange_int, (reinterpret_cast<int32_t *>(g_words), reinterpret_cast<int32_t *>(g_words + 1))),
        QUIET(vl_clnt_show_vlanlist, (&g_set, 40)),
        QUIET(vl_clnt_vlist_vlan_line_format, (g_text, &g_set, 1, 8)),
        QUIET(vl_clnt_show_swport, ()),

        QUIET(bridge_vlan_group_lib_dispose_msg, (message(VG_EVENT_MEM_VLAN))),
        QUIET(vlan_group_wr_lock, ()),
        QUIET(vlan_group_read_lock, ()),
        QUIET(vlan_group_unlock, ()),
        QUIET(vlan_group_base_entry, ()),
        QUIET(vlan_group_creat_entry, (kGroup)),
        QUIET(vlan_group_free_entry, (kGroup)),
        QUIET(vlan_group_get_entry, (kGroup)),
        QUIET(vlan_group_check_exist, (kGroup)),
        QUIET(vg_clnt_check_exist, (kGroup)),
        QUIET(vlan_group_set_default_vlan, (kGroup, kVlan)),
        QUIET(vlan_group_get_default_vlan, (kGroup, &g_half)),
        QUIET(vlan_group_set_vlan_assign_mode, (kGroup, 1)),
        QUIET(vlan_group_get_vlan_assign_mode, (kGroup, &g_byte)),
        QUIET(vlan_group_get_member_vlan_cnt, (kGroup, &g_byte)),
        QUIET(vlan_group_set_member_vlan, (kGroup, &g_set, &g_other_set, &g_other_set, &g_byte, &g_byte)),
        QUIET(vlan_group_get_entry_copy, (kGroup, &g_group)),
        QUIET(vlan_group_check_vlan_is_member_vlan, (kGroup, kVlan)),
        QUIET(vlan_group_get_member_vlan_bitmap, (kGroup, &g_set)),
        QUIET(vg_clnt_get_vlan_list, (kGroup, &g_set)),
        QUIET(vg_clnt_get_default_vid, (kGroup)),
        QUIET(vg_clnt_get_assign_mode, (kGroup)),
        QUIET(vg_clnt_is_member_of_any_group, (kVlan, &g_byte)),
        QUIET(vg_clnt_change_array_to_bitmap, (&g_half, 1, &g_set)),

        QUIET(l2top_clnt_init, ("unit")),
        QUIET(bridge_set_bri_proto_prejudge, (BRI_PROT_ERPS, 0)),
        QUIET(bridge_get_port_instance_status, (kPort, 0, &g_number)),
        QUIET(bridge_get_port_fwd_status, (kPort, kVlan, &g_number)),
        QUIET(bridge_get_vlan_from_instance, (g_words, &g_set)),
        QUIET(bridge_set_port_errdisable, ()),
        QUIET(bri_clnt_on_l2topo_msg, (message(L2TOP_EVENT_PROTO_CONFIG))),
        QUIET(bri_clnt_notify_proto_status, ()),
        QUIET(swport_clnt_judge_notify_port_status, (nullptr)),
        QUIET(swport_clnt_notify_port_status_flush, ()),

        QUIET(mac_client_init, (&SweptHost::ctx())),
        QUIET(bridge_maddr_get_available_total, (&g_number)),
        QUIET(mac_client_on_server_msg, (message(MAC_EVENT_SYNC_DATA_BEGIN))),
        QUIET(mac_client_get_available_total, ()),
        QUIET(mac_client_set_available_total, (1024)),
        QUIET(mac_client_show_statistic, ()),
        QUIET(bridge_mvlan_lib_dispose_msg, (message(MVLAN_EVENT_SYNC_DATA_BEGIN))),
    };
}
// clang-format on

#undef QUIET

} // namespace test
