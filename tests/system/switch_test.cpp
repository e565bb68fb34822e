// The sandbox as a switch: spanning-tree states, links and port modes, by command and by request, as clients and the
// shared tables see them.
#include "tests/system/workstation.h"
#include "wire/own.h"

#include <bridge/l2_topology.h>
#include <bridge/port_exclusion.h>
#include <bridge/services.h>
#include <bridge/vlan_group.h>

#include <csignal>

namespace {

using namespace test;

struct Switch : Workstation {
    // A server whose tables this process reads as any client does.
    Process start_switch() const {
        Process sandbox = start_sandbox();
        EXPECT_EQ(bridge_portdb_init(), 1);
        EXPECT_EQ(vl_vlandb_init(), 1);
        EXPECT_EQ(vlan_group_shm_init(), 1);
        return sandbox;
    }
    template <class Record> static Record next_record(Peer &peer, uint32_t type) {
        const std::vector<Message> messages = next(peer);
        Record record{};
        EXPECT_EQ(messages.size(), 1U);
        if (messages.size() != 1 || messages[0].type != type || messages[0].payload.size() != sizeof record)
            ADD_FAILURE() << "no record of " << type;
        else
            std::memcpy(&record, messages[0].payload.data(), sizeof record);
        return record;
    }
    static uint32_t state_of(uint32_t ifx, uint16_t instance) {
        uint32_t state = UINT32_MAX;
        EXPECT_EQ(bridge_get_port_instance_status(ifx, instance, &state), 0);
        return state;
    }
    // A batch as the library sends it.
    static Message states(std::initializer_list<l2top_port_status> records) {
        l2top_port_status_batch batch{};
        for (const l2top_port_status &record : records)
            batch.records[batch.count++] = record;
        ByteVec bytes = bytes_of(batch);
        bytes.resize(4 + 20 * records.size());
        return {L2TOP_EVENT_PORT_STATUS, bytes};
    }
    static l2top_port_status status(uint32_t ifx, uint16_t instance, uint32_t state) {
        return {ifx, instance, {}, state, 0, 0, {}};
    }
};

struct SpanningTree : Switch {
    static constexpr std::initializer_list<unsigned> kTopology = {641, 642, 643, 644, 645};
};

TEST_F(SpanningTree, states_of_a_daemon_arrive_in_the_table_and_come_back_after_a_restart) {
    Process sandbox = start_switch();
    run(sandbox, "vlan create 10");
    run(sandbox, "port add 3 trunk 1");
    run(sandbox, "stp instance 2 vlans 10");
    Peer daemon = register_client(kTopology, "stpd");
    const Message told = states({status(3, 2, 4)});
    daemon.send({told});
    EXPECT_EQ(next(daemon), std::vector<Message>{told});
    EXPECT_EQ(state_of(3, 2), 4U);
    sandbox.signal(SIGKILL);
    EXPECT_EQ(sandbox.wait(), 1000 + SIGKILL);
    Process again = start_switch();
    EXPECT_EQ(state_of(3, 2), 4U);
    uint32_t state = 0;
    EXPECT_EQ(bridge_get_port_fwd_status(3, 10, &state), 0);
    EXPECT_EQ(state, 4U);
    Peer restarted = register_client(kTopology, "stpd");
    restarted.send({{BRIDGE_EVENT_ORI_DATA_REQUEST, bytes_of(uint32_t{BRI_SUBMOD_L2TOP})}});
    EXPECT_EQ(next(restarted), (std::vector<Message>{{L2TOP_EVENT_SYNC_DATA_BEGIN, {}}}));
    const std::vector<Message> table = next(restarted);
    ASSERT_EQ(table.size(), 1U);
    EXPECT_EQ(table[0].type, uint32_t{L2TOP_EVENT_INSTANCE_CONFIG});
    EXPECT_EQ(next(restarted), std::vector<Message>{told});
    EXPECT_EQ(next(restarted), (std::vector<Message>{{L2TOP_EVENT_SYNC_DATA_END, {}}}));
}

TEST_F(SpanningTree, instances_and_protocols_of_a_client_reach_the_others) {
    Process sandbox = start_switch();
    Peer daemon = register_client({}, "stpd");
    Peer other = register_client(kTopology, "other");
    std::vector<uint16_t> table(4096);
    table[10] = 5;
    ByteVec bytes(8192);
    std::memcpy(bytes.data(), table.data(), bytes.size());
    daemon.send({{L2TOP_EVENT_INSTANCE_CONFIG, bytes}});
    EXPECT_EQ(next(other), (std::vector<Message>{{L2TOP_EVENT_INSTANCE_CONFIG, bytes}}));
    EXPECT_EQ(swport_get_stp_instance(10), 5);
    const l2top_proto_config config{BRI_PROT_MSTP, 1, {}};
    daemon.send({{L2TOP_EVENT_PROTO_CONFIG, bytes_of(config)}});
    EXPECT_EQ(next_record<l2top_proto_config>(other, L2TOP_EVENT_PROTO_CONFIG).enable, 1);
    EXPECT_EQ(bridge_proto_state_get(BRI_PROT_MSTP), 1);
}

TEST_F(SpanningTree, conflict_of_protocols_is_answered_to_client_and_operator) {
    Process sandbox = start_switch();
    run(sandbox, "proto conflict erps mstp");
    run(sandbox, "proto set mstp");
    EXPECT_EQ(bridge_config_bri_protocol(BRI_PROT_ERPS, 1), BRI_PROT_MSTP);
    sandbox.write_line("proto set erps");
    EXPECT_TRUE(sandbox.shows("error: mstp is in the way\n"));
    Peer daemon = register_client({}, "raw");
    daemon.send({{L2TOP_EVENT_PROTO_CONFIG, bytes_of(l2top_proto_config{BRI_PROT_ERPS, 1, {}})}});
    EXPECT_TRUE(sandbox.shows("mstp is in the way"));
    EXPECT_EQ(bridge_proto_state_get(BRI_PROT_ERPS), 0);
}

TEST_F(SpanningTree, request_that_makes_no_sense_changes_nothing) {
    Process sandbox = start_switch();
    run(sandbox, "port add 3 trunk 1");
    Peer client = register_client(kTopology, "raw");
    ByteVec table(8192, 0xff);
    ByteVec counted_too_high = states({status(3, 0, 1)}).payload;
    counted_too_high[0] = counted_too_high[1] = 1;
    client.send({{L2TOP_EVENT_INSTANCE_CONFIG, table},
                 {L2TOP_EVENT_INSTANCE_CONFIG, {1}},
                 {L2TOP_EVENT_PORT_STATUS, {}},
                 {L2TOP_EVENT_PORT_STATUS, counted_too_high},
                 states({status(0, 0, 1), status(64, 0, 1), status(3, 65, 1)}),
                 {L2TOP_EVENT_PROTO_CONFIG, bytes_of(l2top_proto_config{14, 1, {}})},
                 {L2TOP_EVENT_PROTO_CONFIG, bytes_of(l2top_proto_config{UINT32_MAX, 0, {}})}});
    const Message last = states({status(3, 64, 9)});
    client.send({last});
    EXPECT_EQ(next(client), std::vector<Message>{last}); // and nothing before it
    EXPECT_EQ(bridge_proto_get_state_all(), 0U);
    EXPECT_EQ(state_of(3, 0), 0U);
}

TEST_F(Switch, link_flaps_and_the_members_that_are_up_follow) {
    Process sandbox = start_switch();
    for (const char *line : {"vlan create 10", "vlan svi 10 900", "port add 3 access 10", "port add 4 access 10"})
        run(sandbox, line);
    Peer client = register_client({401, 412}, "raw");
    run(sandbox, "port flap 3 times 2 every 0.01");
    for (const uint32_t state : {0U, 1U, 0U, 1U}) {
        EXPECT_EQ(next_record<wire::intf_state>(client, VLAN_EVENT_INTF_STATE).state, state);
        EXPECT_EQ(next_record<wire::svi_up_num>(client, VLAN_EVENT_SVI_MODIFY_UP_NUM).up_num, 1 + state);
    }
    EXPECT_EQ(vl_get_vlan_up_mem(10), 2U);
    run(sandbox, "port down 4");
    EXPECT_EQ(vl_get_vlan_up_mem(10), 1U);
    sandbox.write_line("traffic 02:00:00:00:00:05 10 4");
    EXPECT_TRUE(sandbox.shows("error: port 4 is down\n"));
}

TEST_F(Switch, addresses_learned_on_a_port_are_gone_before_its_failure_is_announced) {
    Process sandbox = start_switch();
    run(sandbox, "vlan create 10");
    run(sandbox, "port add 3 access 10");
    run(sandbox, "traffic 02:00:00:00:00:05 10 3");
    Peer client = register_client({261, 401}, "raw");
    run(sandbox, "port down 3");
    const std::vector<Message> first = next(client);
    ASSERT_EQ(first.size(), 1U);
    EXPECT_EQ(first[0].type, uint32_t{MAC_EVENT_NOTIFY_ADDR});
    EXPECT_EQ(next_record<wire::intf_state>(client, VLAN_EVENT_INTF_STATE).ifx, 3U);
}

TEST_F(Switch, groups_are_told_to_a_client_that_asks_for_their_data) {
    Process sandbox = start_switch();
    run(sandbox, "group create 5");
    run(sandbox, "group vlans 5 10-12");
    EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(5, 11), 1);
    Peer client = register_client({1025, 1026, 1033, 1034}, "raw");
    client.send({{BRIDGE_EVENT_ORI_DATA_REQUEST, bytes_of(uint32_t{BRI_SUBMOD_VLAN_GROUP})}});
    EXPECT_EQ(next(client), (std::vector<Message>{{VG_EVENT_SYNC_DATA_BEGIN, {}}}));
    EXPECT_EQ(next_record<wire::group_policy>(client, VG_EVENT_POLICY_ENTRY).id, 5);
    EXPECT_EQ(next_record<vlan_group_entry>(client, VG_EVENT_MEM_VLAN).member_count, 3);
    EXPECT_EQ(next(client), (std::vector<Message>{{VG_EVENT_SYNC_DATA_END, {}}}));
}

TEST_F(Switch, claims_of_the_operator_and_of_a_daemon_exclude_each_other) {
    Process sandbox = start_switch();
    run(sandbox, "exclude set 3 dot1x");
    uint32_t conflict = 0;
    EXPECT_EQ(bridge_set_excflag(3, BRI_SECURE, BRI_DOT1X, &conflict), -1);
    EXPECT_EQ(conflict, uint32_t{BRI_DOT1X});
    EXPECT_EQ(bridge_set_excflag(4, BRI_SECURE, BRI_DOT1X, &conflict), 0);
    sandbox.write_line("exclude set 4 mac-copy against secure|host");
    EXPECT_TRUE(sandbox.shows("error: secure is in the way\n"));
    sandbox.write_line("exclude show");
    EXPECT_TRUE(sandbox.shows("  interface 3 dot1x\n  interface 4 secure\n"));
    run(sandbox, "exclude clear 3 dot1x");
    EXPECT_EQ(bridge_coxmng_get_status(3, nullptr, 0), 0);
    run(sandbox, "port add 3 access 1");
    run(sandbox, "exclude attribute 3 0x40");
    EXPECT_EQ(swport_set_attr_exclude(3, 0x80, 1, 0x40, &conflict), 1);
    EXPECT_EQ(conflict, 0x40U);
}

TEST_F(Switch, super_vlan_that_is_deleted_frees_its_sub_vlans) {
    Process sandbox = start_switch();
    run(sandbox, "vlan create 10-12");
    run(sandbox, "super create 10");
    run(sandbox, "super add 10 11-12");
    EXPECT_EQ(vl_is_subvlan(11), 1);
    run(sandbox, "vlan mode 12 dynamic");
    EXPECT_EQ(vl_exist(12, BRI_VLAN_DYNAMIC), 1);
    EXPECT_EQ(vl_get_manage_vid(12), 12);
    run(sandbox, "vlan delete 10");
    EXPECT_EQ(vl_exist(11, BRI_VLAN_STATIC), 1);
    EXPECT_EQ(vl_get_manage_vid(11), 11);
}

TEST_F(Switch, super_vlans_that_are_created_are_told_as_such) {
    Process sandbox = start_switch();
    Peer client = register_client({VLAN_EVENT_SUPER_CREATE, VLAN_EVENT_SUPER_CREATE_RANGE}, "raw");
    run(sandbox, "vlan create 10 super");
    EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_SUPER_CREATE).vid, 10);
    run(sandbox, "vlan create 11-12 super");
    const auto several = next_record<vl_evt_vlanset_rec>(client, VLAN_EVENT_SUPER_CREATE_RANGE);
    EXPECT_EQ(several.vlans.words[0], 3U << 11);
    EXPECT_EQ(several.versions[12], vl_get_vlan_latest_version(12));
}

TEST_F(Switch, client_is_asked_for_its_addresses_without_having_registered_that) {
    Process sandbox = start_switch();
    Peer client = register_client({}, "SS");
    sandbox.write_line("event @SS RESEARCH_EVENT_SS_ORIGIN_MAC");
    EXPECT_EQ(next(client), (std::vector<Message>{{RESEARCH_EVENT_SS_ORIGIN_MAC, {}}}));
    client.send({{RESEARCH_EVENT_SS_ORIGIN_MAC, bytes_of(uint32_t{7})}});
    sandbox.write_line("wait request RESEARCH_EVENT_SS_ORIGIN_MAC total=7 from SS");
    sandbox.write_line("print counted");
    EXPECT_TRUE(sandbox.shows("counted\n"));
}

// Clients that are asked whether a port may change its mode.
struct PortModes : Switch {
    static Message answer(uint32_t is_allow) {
        return {RESEARCH_EVENT_SWPORT_PREJUDGE, bytes_of(bri_swport_prejudge_reply{is_allow, {}})};
    }
    static void expect_question(Peer &client, uint32_t ifx, uint32_t mode) {
        const auto question = next_record<wire::swport_prejudge_request>(client, RESEARCH_EVENT_SWPORT_PREJUDGE);
        EXPECT_EQ(question.ifx, ifx);
        EXPECT_EQ(question.mode, mode);
    }
    static uint32_t mode_of(int32_t ifx) {
        uint32_t mode = UINT32_MAX;
        EXPECT_EQ(swport_get_port_mode(ifx, &mode), 1);
        return mode;
    }
};

TEST_F(PortModes, change_waits_for_everybody_who_decides) {
    Process sandbox = start_switch();
    run(sandbox, "port add 3 access 1");
    Peer first = register_client({407, RESEARCH_EVENT_SWPORT_PREJUDGE}, "first");
    Peer second = register_client({RESEARCH_EVENT_SWPORT_PREJUDGE}, "second");
    sandbox.write_line("port mode 3 trunk ask");
    expect_question(first, 3, BRI_PORT_TRUNK);
    expect_question(second, 3, BRI_PORT_TRUNK);
    first.send({answer(1)});
    EXPECT_FALSE(first.readable(20)); // one answer is missing
    EXPECT_EQ(mode_of(3), uint32_t{BRI_PORT_ACCESS});
    second.send({answer(1)});
    EXPECT_EQ(next_record<vl_evt_intf_mode_rec>(first, VLAN_EVENT_MODIFY_INTF_MODE).mode, uint32_t{BRI_PORT_TRUNK});
    EXPECT_EQ(mode_of(3), uint32_t{BRI_PORT_TRUNK});
    EXPECT_TRUE(sandbox.shows("port mode 3 trunk ask: done\n"));
}

TEST_F(PortModes, client_that_refuses_or_cannot_decide_keeps_the_mode) {
    Process sandbox = start_switch();
    run(sandbox, "port add 3 access 1");
    Peer client = register_client({407, RESEARCH_EVENT_SWPORT_PREJUDGE}, "guard");
    sandbox.write_line("port mode 3 trunk ask");
    expect_question(client, 3, BRI_PORT_TRUNK);
    client.send({answer(0)});
    EXPECT_TRUE(sandbox.shows("port mode 3 trunk ask: client 1 (guard) refused\n"));
    sandbox.write_line("port mode 3 hybrid ask");
    expect_question(client, 3, BRI_PORT_HYBRID);
    client.send({{RESEARCH_EVENT_FAILED, {}}});
    EXPECT_TRUE(sandbox.shows("port mode 3 hybrid ask: client 1 (guard) could not decide\n"));
    EXPECT_EQ(mode_of(3), uint32_t{BRI_PORT_ACCESS});
    run(sandbox, "port mode 3 hybrid"); // nobody is asked
    EXPECT_EQ(next_record<vl_evt_intf_mode_rec>(client, VLAN_EVENT_MODIFY_INTF_MODE).mode, uint32_t{BRI_PORT_HYBRID});
}

TEST_F(PortModes, absent_port_is_not_asked_about_and_nobody_need_decide) {
    Process sandbox = start_switch();
    run(sandbox, "port add 3 access 1");
    sandbox.write_line("port mode 4 trunk ask");
    EXPECT_TRUE(sandbox.shows("error: no port 4\n"));
    run(sandbox, "port mode 3 trunk ask"); // nobody decides
    EXPECT_EQ(mode_of(3), uint32_t{BRI_PORT_TRUNK});
}

} // namespace
