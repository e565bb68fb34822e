#include "tests/l2/fixture.h"

namespace {

using namespace test;

class TopologyState : public L2Host {
  protected:
    TopologyState() {
        debug_on({BRI_DBG_VLAN, BRI_DBG_MSG});
        spcb &port = plug(7);
        for (unsigned instance = 0; instance < 65; ++instance)
            port.fwd_state[instance] = static_cast<uint16_t>(0xFF00 - instance);
    }
    static void expect_only_vlan_line(const std::string &text) {
        EXPECT_EQ(log_text(), text);
        expect_line(text, kVlanLine);
    }
    static void expect_only_client_line(const std::string &text) {
        EXPECT_EQ(log_text(), text);
        expect_line(text, kClientLine);
    }
    static void put_instance(unsigned vid, uint16_t instance) { swport_get_stp_instance_table()[vid] = instance; }
    static std::string number(uint32_t value) { return std::to_string(static_cast<int32_t>(value)); }

    uint32_t state = 0xAAAAAAAA;
};

// --- of an instance

TEST_F(TopologyState, of_every_instance) {
    for (uint16_t instance = 0; instance < 65; ++instance) {
        clear_log();
        EXPECT_EQ(bridge_get_port_instance_status(7, instance, &state), 0);
        EXPECT_EQ(state, 0xFF00U - instance);
        expect_only_vlan_line("get port 7 msti " + number(instance) + " fwd status " + number(state) + " success.\r\n");
    }
}

// Read where the server writes it, byte by byte.
TEST_F(TopologyState, lies_at_292_of_the_block) {
    put_at<uint16_t>(swport_get_raw_spcb(7), 292 + 2 * 13, 0x1234);
    EXPECT_EQ(bridge_get_port_instance_status(7, 13, &state), 0);
    EXPECT_EQ(state, 0x1234U);
}

TEST_F(TopologyState, of_an_instance_above_64_is_refused) {
    for (const uint16_t instance : {uint16_t{65}, uint16_t{0x3FF}, uint16_t{0xFFFF}}) {
        clear_log();
        EXPECT_EQ(bridge_get_port_instance_status(7, instance, &state), -1);
        expect_only_vlan_line("get port fwd status, but mtid " + number(instance) + " is fail.\r\n");
    }
    EXPECT_EQ(state, 0xAAAAAAAAU);
}

TEST_F(TopologyState, of_an_ifx_above_64_is_refused) {
    for (const uint32_t ifx : {65U, 100U, 0x80000007U, 0xFFFFFFFFU}) {
        clear_log();
        EXPECT_EQ(bridge_get_port_instance_status(ifx, 0, &state), -1);
        expect_only_vlan_line("get port fwd status, but if " + number(ifx) + " is fail.\r\n");
        clear_log();
        EXPECT_EQ(bridge_get_port_fwd_status(ifx, 10, &state), -1);
        expect_only_vlan_line("get port fwd status, but if " + number(ifx) + " is fail.\r\n");
    }
    EXPECT_EQ(state, 0xAAAAAAAAU);
}

TEST_F(TopologyState, of_an_absent_port_is_refused) {
    for (const uint32_t ifx : {0U, 8U, 63U, 64U}) {
        clear_log();
        EXPECT_EQ(bridge_get_port_instance_status(ifx, 0, &state), -1);
        expect_only_vlan_line("get port fwd status, but spcb is NULL.\r\n");
        clear_log();
        EXPECT_EQ(bridge_get_port_fwd_status(ifx, 10, &state), -1);
        expect_only_vlan_line("get port fwd status, but spcb is NULL.\r\n");
    }
    EXPECT_EQ(state, 0xAAAAAAAAU);
}

TEST_F(TopologyState, without_a_place_for_the_state_is_refused_silently) {
    EXPECT_EQ(bridge_get_port_instance_status(7, 0, nullptr), -1);
    EXPECT_EQ(bridge_get_port_instance_status(99, 0, nullptr), -1);
    EXPECT_EQ(bridge_get_port_fwd_status(7, 10, nullptr), -1);
    EXPECT_EQ(bridge_get_port_fwd_status(99, 10, nullptr), -1);
    EXPECT_TRUE(log_lines().empty());
}

// --- of a VLAN

TEST_F(TopologyState, of_a_vlan_is_that_of_its_instance) {
    put_instance(1, 64);
    put_instance(4094, 5);
    EXPECT_EQ(bridge_get_port_fwd_status(7, 1, &state), 0);
    EXPECT_EQ(state, 0xFF00U - 64);
    expect_only_vlan_line("get port 7 vid 1(msti 64) fwd status 65216 success.\r\n");
    clear_log();
    EXPECT_EQ(bridge_get_port_fwd_status(7, 4094, &state), 0);
    EXPECT_EQ(state, 0xFF00U - 5);
    expect_only_vlan_line("get port 7 vid 4094(msti 5) fwd status 65275 success.\r\n");
}

TEST_F(TopologyState, of_a_vlan_id_above_4094_is_refused) {
    for (const uint16_t vid : {uint16_t{4095}, uint16_t{4096}, uint16_t{0xFFFF}}) {
        clear_log();
        EXPECT_EQ(bridge_get_port_fwd_status(7, vid, &state), -1);
        expect_only_vlan_line("get port fwd status, but vid " + number(vid) + " is fail.\r\n");
    }
}

TEST_F(TopologyState, of_a_vlan_without_an_instance_is_refused) {
    for (const uint16_t instance : {uint16_t{65}, uint16_t{1022}, uint16_t{0xFFFF}}) {
        clear_log();
        put_instance(10, instance);
        EXPECT_EQ(bridge_get_port_fwd_status(7, 10, &state), -1);
        expect_only_vlan_line("get port fwd status, get invalid instance-id.\r\n");
    }
    clear_log();
    EXPECT_EQ(bridge_get_port_fwd_status(7, 0, &state), -1); // outside the database's range
    expect_only_vlan_line("get port fwd status, get invalid instance-id.\r\n");
    EXPECT_EQ(state, 0xAAAAAAAAU);
}

// The instance is looked at before the port, the port before the VLAN's instance.
TEST_F(TopologyState, checks_go_in_their_order) {
    EXPECT_EQ(bridge_get_port_instance_status(99, 99, &state), -1);
    EXPECT_EQ(bridge_get_port_instance_status(8, 99, &state), -1);
    EXPECT_EQ(bridge_get_port_fwd_status(99, 5000, &state), -1);
    EXPECT_EQ(bridge_get_port_fwd_status(8, 5000, &state), -1);
    EXPECT_EQ(bridge_get_port_fwd_status(8, 0, &state), -1);
    EXPECT_EQ(log_text(), "get port fwd status, but if 99 is fail.\r\n"
                          "get port fwd status, but mtid 99 is fail.\r\n"
                          "get port fwd status, but if 99 is fail.\r\n"
                          "get port fwd status, but vid 5000 is fail.\r\n"
                          "get port fwd status, but spcb is NULL.\r\n");
}

// --- VLANs of instances

class VlansOfInstances : public TopologyState {
  protected:
    static std::vector<unsigned> vids(const vlanset &set) {
        std::vector<unsigned> all;
        for (unsigned vid = 0; vid < 4096; ++vid)
            if (has(set, vid))
                all.push_back(vid);
        return all;
    }
    vlanset vlans{};
};

TEST_F(VlansOfInstances, instance_0_holds_every_vlan_of_the_common_tree) {
    std::memset(&vlans, 0xFF, sizeof vlans);
    put_instance(100, 1);
    const uint32_t instances[3] = {1, 0, 0};
    EXPECT_EQ(bridge_get_vlan_from_instance(instances, &vlans), 0);
    const std::vector<unsigned> all = vids(vlans);
    EXPECT_EQ(all.size(), 4093U);
    EXPECT_EQ(all.front(), 1U);
    EXPECT_EQ(all.back(), 4094U);
    EXPECT_EQ(std::count(all.begin(), all.end(), 100U), 0);
}

TEST_F(VlansOfInstances, every_instance_has_its_bit) {
    for (unsigned instance = 1; instance <= 64; ++instance)
        put_instance(instance * 60, static_cast<uint16_t>(instance));
    for (unsigned instance = 1; instance <= 64; ++instance) {
        uint32_t instances[3] = {};
        instances[instance / 32] = 1U << instance % 32;
        EXPECT_EQ(bridge_get_vlan_from_instance(instances, &vlans), 0);
        EXPECT_EQ(vids(vlans), std::vector<unsigned>{instance * 60}) << instance;
    }
}

TEST_F(VlansOfInstances, numbers_above_64_in_the_table_set_no_bit) {
    const uint16_t numbers[] = {65, 95, 96, 127, 1022, 1023, 0x8000, 0xFFFF};
    for (unsigned n = 0; n < 8; ++n)
        put_instance(200 + n, numbers[n]);
    const uint32_t instances[3] = {0xFFFFFFFE, 0xFFFFFFFF, 0xFFFFFFFF};
    EXPECT_EQ(bridge_get_vlan_from_instance(instances, &vlans), 0);
    EXPECT_TRUE(vids(vlans).empty());
}

TEST_F(VlansOfInstances, vlan_0_and_4095_are_never_set) {
    put_instance(0, 3);
    put_instance(4095, 3);
    const uint32_t instances[3] = {1U << 3, 0, 0};
    EXPECT_EQ(bridge_get_vlan_from_instance(instances, &vlans), 0);
    EXPECT_TRUE(vids(vlans).empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlansOfInstances, a_missing_argument_is_refused) {
    const uint32_t instances[3] = {1, 0, 0};
    EXPECT_EQ(bridge_get_vlan_from_instance(nullptr, &vlans), -1);
    expect_only_client_line("[unit] get vlan from instance fail: invaid param.\n");
    clear_log();
    EXPECT_EQ(bridge_get_vlan_from_instance(instances, nullptr), -1);
    expect_only_client_line("[unit] get vlan from instance fail: invaid param.\n");
}

TEST_F(VlansOfInstances, each_line_needs_its_flag) {
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    bridge_get_port_instance_status(7, 0, &state);
    bridge_get_port_instance_status(99, 0, &state);
    bridge_get_port_instance_status(7, 99, &state);
    bridge_get_port_fwd_status(7, 10, &state);
    bridge_get_port_fwd_status(7, 0, &state);
    bridge_get_port_fwd_status(8, 10, &state);
    EXPECT_TRUE(log_lines().empty());
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 1;
    bridge_get_vlan_from_instance(nullptr, &vlans);
    EXPECT_TRUE(log_lines().empty());
}

class TopologyStateUnmapped : public Host {};

TEST_F(TopologyStateUnmapped, everything_fails) {
    debug_on({BRI_DBG_VLAN, BRI_DBG_MSG});
    l2top_clnt_init("unit");
    uint32_t state = 1;
    vlanset vlans;
    std::memset(&vlans, 0xFF, sizeof vlans);
    const uint32_t instances[3] = {1, 0, 0};
    EXPECT_EQ(bridge_get_port_instance_status(7, 0, &state), -1);
    EXPECT_EQ(bridge_get_port_fwd_status(7, 10, &state), -1);
    clear_log();
    EXPECT_EQ(bridge_get_vlan_from_instance(instances, &vlans), -1);
    EXPECT_EQ(log_text(), "[unit] get vlan from instance fail: table not ready.\n");
    expect_line(log_text(), kClientLine);
    EXPECT_EQ(vlans.words[5], 0xFFFFFFFFU);
    clear_log();
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0; // the flag of the one line, not of the others
    EXPECT_EQ(bridge_get_vlan_from_instance(instances, &vlans), -1);
    EXPECT_TRUE(log_lines().empty());
}

} // namespace
