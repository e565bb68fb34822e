// Callbacks, origin data, addresses, memory figures, debugging.
#include "client/state.h"
#include "tests/faults/rows.h"

namespace test {

namespace {

constexpr uint32_t kAsked = BRIDGE_EVENT_ORI_DATA_REQUEST;
constexpr uint32_t kOtherSubmod = BRI_SUBMOD_QINQ; // the server has its data

uint8_t g_mac[6];
bri_sys_mem_info g_memory;

Got found(int result) {
    return result == 1 ? Got::kSuccess : result == 0 ? Got::kFailure : Got::kElse;
}

// Files below the host's directory, where the device keeps its addresses.
void device_and_system(SweptHost &host) {
    host.write_file("device", "1\n2\n3\n4\n00:d0:f8:00:00:01\n");
    host.write_file("system", "00d0.f800.0002\n");
}
void system_only(SweptHost &host) {
    host.write_file("system", "00d0.f800.0002\n");
}
void kernel_only(SweptHost &host) {
    host.write_file("kernel", "00d0.f800.0003\n");
}
void routed_only(SweptHost &host) {
    host.write_file("routed", "00d0.f800.0004\n");
}

const Effects kSearched{{"fopen", Got::kSuccess}, {"malloc", Got::kSuccess, 0, 0, false, true}};

void answer_questions(SweptHost &) {
    bri_clnt_reg_swport_prejudge_callback(agree);
    bri_clnt_reg_ss_origin_mac_callback(agree);
}

void set_delay(int32_t seconds) {
    const int32_t message[] = {DEBUG_EVENT_MSG_DELAY, 8, 0, seconds};
    bri_clnt_on_debug_msg(reinterpret_cast<const bri_msg_hdr *>(message));
}

Got delay() {
    const uint32_t message[] = {VG_EVENT_MEM_VLAN, 4, 0};
    return one(bri_clnt_msg_delay_process(reinterpret_cast<const bri_msg_hdr *>(message)));
}

Got print_vlans() {
    const uint32_t message[] = {DEBUG_EVENT_SHOW_VLAN, 0};
    bri_clnt_on_debug_msg(reinterpret_cast<const bri_msg_hdr *>(message));
    return done();
}

} // namespace

std::vector<Row> service_rows() {
    const Effects replay{{"send", Got::kSuccess}, {"calloc", Got::kSuccess}};
    return {
        {"bri_clnt_call_swport_prejudge_callback", Level::kConnected,
         [](SweptHost &) {
             uint32_t request[2] = {};
             bri_clnt_call_swport_prejudge_callback(request);
             return done();
         },
         kAnswered, RESEARCH_EVENT_SWPORT_PREJUDGE, answer_questions},
        {"bri_clnt_call_ss_origin_mac_callback", Level::kConnected,
         [](SweptHost &) {
             bri_clnt_call_ss_origin_mac_callback();
             return done();
         },
         kAnswered, RESEARCH_EVENT_SS_ORIGIN_MAC, answer_questions},
        {"bridge_client_request_oridata", Level::kConnected,
         [](SweptHost &) {
             bridge_client_request_oridata();
             return bri::client::g_state.oridata_state == bri::client::kOridataSent ? Got::kSuccess : Got::kElse;
         },
         replay, kAsked},
        {"bridge_client_request_submod_oridata", Level::kConnected,
         [](SweptHost &) {
             bridge_client_request_submod_oridata(kOtherSubmod);
             return bri::client::g_state.oridata_state == bri::client::kOridataSent ? Got::kSuccess : Got::kElse;
         },
         kBatched, kAsked},
        {"bridge_client_notify_all_oridata", Level::kConnected,
         [](SweptHost &) {
             bridge_client_notify_all_oridata();
             return SweptHost::ctx().data_synced == 1 ? Got::kSuccess : Got::kElse;
         },
         replay, kAsked},
        {"bridge_client_notify_submod_oridata", Level::kConnected,
         [](SweptHost &) {
             bridge_client_notify_submod_oridata(kOtherSubmod);
             return done();
         },
         kBatched, kAsked},
        {"bridge_client_notify_submod_oridata, topology",
         Level::kConnected,
         [](SweptHost &) {
             bridge_client_notify_submod_oridata(BRI_SUBMOD_L2TOP);
             return done();
         },
         {{"calloc", Got::kSuccess}}},
        {"bridge_client_get_local_mac", Level::kBare,
         [](SweptHost &) { return found(bridge_client_get_local_mac(g_mac)); }, kSearched, 0, device_and_system},
        {"bridge_client_get_local_mac, without the device file",
         Level::kBare,
         [](SweptHost &) { return found(bridge_client_get_local_mac(g_mac)); },
         {{"fopen", Got::kSuccess}, {"open", Got::kFailure}, {"read", Got::kFailure}},
         0,
         system_only},
        {"bridge_client_get_svi_mac",
         Level::kBare,
         [](SweptHost &) { return found(bridge_client_get_svi_mac(g_mac)); },
         {{"open", Got::kSuccess}, // without a local address the routed one counts
          {"open", Got::kFailure, 0, 1},
          {"fopen", Got::kSuccess},
          {"read", Got::kFailure}},
         0,
         routed_only},
        {"bridge_maddr_get_local",
         Level::kBare,
         [](SweptHost &) { return zero(bridge_maddr_get_local(g_mac)); },
         {{"fopen", Got::kSuccess},
          {"open", Got::kSuccess}, // of the system's file, which is not there anyway
          {"open", Got::kFailure, 0, 2},
          {"read", Got::kFailure}},
         0,
         kernel_only},
        {"bridge_get_sys_mem_info",
         Level::kBare,
         [](SweptHost &) {
             const int result = bridge_get_sys_mem_info(&g_memory);
             return result == 0 ? Got::kSuccess : result == -2 ? Got::kFailure : Got::kElse;
         },
         {{"fopen", Got::kFailure}, {"malloc", Got::kSuccess, 0, 0, false, true}}},
        {"bri_clnt_debug_init",
         Level::kStarted,
         [](SweptHost &) {
             bri_clnt_debug_init(&SweptHost::ctx());
             return done();
         },
         {{"access", Got::kSuccess}}},
        {"bri_clnt_debug_name_parse",
         Level::kBare,
         [](SweptHost &) {
             g_bri_clnt_dbg[BRI_DBG_VMAP] = 0;
             bri_clnt_debug_name_parse("unit");
             return g_bri_clnt_dbg[BRI_DBG_VMAP] != 0 ? Got::kSuccess : Got::kFailure;
         },
         {{"access", Got::kFailure}},
         0,
         [](SweptHost &host) { faults::redirect("/data/bridge_client_unit", host.write_file("marker", "")); }},
        {"bri_clnt_msg_delay_process",
         Level::kStarted,
         [](SweptHost &) { return delay(); },
         {{"malloc", Got::kFailure}},
         0,
         [](SweptHost &) { set_delay(3); },
         [](SweptHost &) { set_delay(0); }},
        {"bri_clnt_on_debug_msg",
         Level::kStarted,
         [](SweptHost &) { return print_vlans(); },
         {{"malloc", Got::kSuccess}}},
        {"vl_clnt_show_vlan",
         Level::kStarted,
         [](SweptHost &) {
             vl_clnt_show_vlan();
             return done();
         },
         {{"malloc", Got::kSuccess}}},
    };
}

} // namespace test
