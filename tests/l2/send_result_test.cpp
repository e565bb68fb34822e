// What the requests make of the transport's result: some give it on, some know only success and failure.
#include "tests/l2/fixture.h"
#include "tests/l2/transport.h"

namespace {

using namespace test;

class SendResult : public L2Host {
  protected:
    SendResult() {
        debug_on({BRI_DBG_VLAN, BRI_DBG_MAC, BRI_DBG_MSG});
        plug(7);
    }
    ~SendResult() override { transport_gives.reset(); }

    static constexpr int kResults[] = {0, 1, 5, 6, -1, -7};
    const vlanset map{};
    const bri_mac_msg record{};
};

TEST_F(SendResult, entry_changes_give_it_on) {
    const uint8_t *mac = kMac.data();
    for (const int result : kResults) {
        transport_gives = result;
        EXPECT_EQ(bridge_maddr_add_static(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_add_secu(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_add_trust(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_add_other(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_del_static(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_del_dyn(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_force_del_dyn(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_del_secu(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_del_trust(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_del_other(mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_rollback(2, mac, 10, 7), result);
        EXPECT_EQ(bridge_maddr_bypass(1, mac, 10, 7), result);
    }
}

TEST_F(SendResult, requests_that_are_logged_before_give_it_on) {
    for (const int result : kResults) {
        transport_gives = result;
        EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(&map, 0, 0), result);
        EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(&map, 7, 0), result);
        EXPECT_EQ(bridge_maddr_nondyn_check_begin(1), result);
        EXPECT_EQ(bridge_maddr_nondyn_check_end(1), result);
        EXPECT_EQ(bridge_maddr_set_root_bridge_mode(1), result);
        EXPECT_EQ(bridge_set_instance_configtable(swport_get_stp_instance_table()), result);
    }
}

// Anything negative is a failure and gives -1, anything else a success and gives 0.
TEST_F(SendResult, requests_that_are_logged_after_know_success_and_failure) {
    for (const int result : kResults) {
        const bool sent = result >= 0;
        const std::string outcome = sent ? "success" : "failed";
        const struct {
            std::function<int()> call;
            std::string line;
        } rows[] = {
            {[] { return bridge_maddr_set_intf_learn(7, 1); },
             "(unit), send BRIDGE_SET_INTF_MAC_LEARN msg " + outcome + (sent ? ", ifx(7), oper(OPEN).\n" : ".\n")},
            {[] { return bridge_maddr_set_dyn_life_range(1, 2, 3); },
             "(unit), send MAC_EVENT_SET_AGETIME_RANGE msg " + outcome +
                 (sent ? ", min(1), max(2), step(3).\n" : ".\n")},
            {[] { return bridge_maddr_set_available_mac(1, 2, 3); },
             "(unit), send MAC_EVENT_SET_AVAILABLE_MAC msg " + outcome +
                 (sent ? ", static(1), filter(2), total.\n" : ".\n")},
            {[] { return bridge_maddr_dynmac_check_begin(); },
             "(unit), send MAC_EVENT_DYN_CHECK_BEGIN to kernel " + outcome + ".\n"},
            {[] { return bridge_maddr_dynmac_check_end(); },
             "(unit), send MAC_EVENT_DYN_CHECK_END to kernel " + outcome + ".\n"},
            {[this] { return bridge_maddr_notify(&record, 1); },
             "(unit), send nlmsg to kernel " + outcome + (sent ? " : msg_num(1), msg_len(40).\n" : ".\n")},
        };
        transport_gives = result;
        for (const auto &row : rows) {
            clear_log();
            EXPECT_EQ(row.call(), sent ? 0 : -1) << result;
            EXPECT_EQ(log_text(), row.line) << result;
        }
    }
}

TEST_F(SendResult, port_states_know_success_and_failure) {
    l2top_port_status_batch one{};
    one.count = 1;
    l2top_port_status_batch every = one;
    every.records[0].instance = BRI_L2TOP_INSTANCE_ALL;
    for (const int result : kResults) {
        transport_gives = result;
        for (const l2top_port_status_batch *batch : {&one, &every}) {
            clear_log();
            EXPECT_EQ(bridge_set_port_fwd_status(batch), result < 0 ? -1 : 0) << result;
            EXPECT_EQ(times_logged("Client[unit] set port status failed: send msg fail.\n"), result < 0 ? 1 : 0);
        }
    }
}

TEST_F(SendResult, protocols_know_success_and_failure) {
    for (const int result : kResults) {
        clear_log();
        transport_gives = result;
        EXPECT_EQ(bridge_config_bri_protocol(4, 1), result < 0 ? -1 : 0) << result;
        EXPECT_EQ(times_logged("[unit] send conf-bri-proto msg success.\n"), result < 0 ? 0 : 1);
        EXPECT_EQ(times_logged("[unit] send conf-bri-proto msg failed.\n"), result < 0 ? 1 : 0);
        EXPECT_EQ(bridge_proto_state_get(4), result < 0 ? 0 : 1);
        bridge_proto_state_unset(4);
    }
}

// Only 0 is a success here: a positive result is logged as a failure too.
TEST_F(SendResult, mac_vlan_entries_call_nothing_but_0_a_success) {
    const mvlan_entry entry{};
    for (const int result : kResults) {
        transport_gives = result;
        const std::string outcome = result == 0 ? " success.\n" : " fail.\n";
        clear_log();
        mvlan_clnt_add_dyn_entry(kMac.data(), 10);
        mvlan_clnt_add_dyn_entry_dot1x(kMac.data(), 10, 3);
        mvlan_clnt_del_dyn_entry(kMac.data());
        EXPECT_EQ(times_logged("mac vlan lib send msg: type MVLAN_EVENT_NOTIFY_ENTRY, msg_len 28" + outcome), 3);
        mvlan_clnt_send_error_result(&entry);
        EXPECT_EQ(times_logged("mac vlan lib send msg: type MVLAN_EVENT_ERROR, msg_len 24" + outcome), 1);
        EXPECT_EQ(log_lines().size(), 8U); // each request's own line, and that of its send
    }
}

} // namespace
