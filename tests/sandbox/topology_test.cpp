// Spanning-tree instances, port states and bridge protocols in the shared tables, and what is announced about them.
#include "sandbox/topology.h"
#include "sandbox/vlans.h"
#include "tests/support/test.h"

#include <bridge/events.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using namespace sandbox;

struct Told {
    uint32_t type;
    std::vector<uint8_t> payload;

    template <class Record> [[nodiscard]] Record record(size_t at = 0) const {
        return object_of<Record>(Bytes(payload).subspan(at));
    }
};

struct TopologyTest : test::Env {
    TopologyTest() {
        Vlans::open();
        for (const uint32_t ifx : {3U, 4U})
            Ports([](uint32_t, Bytes) {}).add(ifx, BRI_PORT_TRUNK, 1);
    }
    std::vector<Told> announced() { return std::exchange(told, {}); }
    template <class Fn> static std::string reason_of(Fn &&fn) {
        try {
            fn();
        } catch (const std::invalid_argument &error) {
            return error.what();
        }
        return "";
    }
    static uint32_t state_of(uint32_t ifx, uint16_t instance) {
        uint32_t state = UINT32_MAX;
        EXPECT_EQ(bridge_get_port_instance_status(ifx, instance, &state), 0);
        return state;
    }
    static l2top_port_status status(uint32_t ifx, uint16_t instance, uint32_t state) {
        return {ifx, instance, {}, state, 77, 1, {}};
    }

    std::vector<Told> told;
    Announce tell = [this](uint32_t type, Bytes payload) { told.push_back({type, {payload.begin(), payload.end()}}); };
    Topology topology{tell};
};

TEST_F(TopologyTest, states_stand_in_the_table_and_are_announced_as_they_came) {
    const l2top_port_status records[] = {status(3, 0, 2), status(4, 64, 3)};
    topology.set_states(records);
    EXPECT_EQ(state_of(3, 0), 2U);
    EXPECT_EQ(state_of(4, 64), 3U);
    const std::vector<Told> events = announced();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].type, uint32_t{L2TOP_EVENT_PORT_STATUS});
    EXPECT_EQ(events[0].payload.size(), 44U);
    EXPECT_EQ(events[0].record<uint16_t>(), 2);
    const auto second = events[0].record<l2top_port_status>(24);
    EXPECT_EQ(second.ifx, 4U);
    EXPECT_EQ(second.param, 77U);
    EXPECT_EQ(second.flag, 1);
}

TEST_F(TopologyTest, state_for_all_instances_is_announced_in_batches_of_64) {
    const l2top_port_status all = status(3, BRI_L2TOP_INSTANCE_ALL, 4);
    topology.set_states({&all, 1});
    for (uint16_t instance = 0; instance < BRI_STP_INSTANCES; ++instance)
        EXPECT_EQ(state_of(3, instance), 4U);
    EXPECT_EQ(state_of(4, 0), 0U);
    const std::vector<Told> events = announced();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].payload.size(), 1284U);
    EXPECT_EQ(events[1].payload.size(), 24U);
    EXPECT_EQ(events[1].record<l2top_port_status>(4).instance, 64);
}

TEST_F(TopologyTest, state_that_is_refused_does_not_hold_the_others) {
    const struct {
        l2top_port_status record;
        const char *reason;
    } cases[] = {{status(5, 0, 1), "no port 5"},
                 {status(0, 0, 1), "no port 0"},
                 {status(64, 0, 1), "no port 64"},
                 {status(3, 65, 1), "no instance 65"},
                 {status(3, 0, 65536), "no state 65536"}};
    for (const auto &row : cases) {
        const l2top_port_status records[] = {row.record, status(4, 1, 5)};
        EXPECT_EQ(reason_of([&] { topology.set_states(records); }), row.reason);
        const std::vector<Told> events = announced();
        ASSERT_EQ(events.size(), 1U);
        EXPECT_EQ(events[0].record<uint16_t>(), 1);
    }
    EXPECT_EQ(state_of(3, 0), 0U);
}

TEST_F(TopologyTest, vlans_move_to_an_instance_and_the_whole_table_is_announced) {
    topology.move_vlans(64, parse_vlans("10-11,4094"));
    EXPECT_EQ(swport_get_stp_instance(10), 64);
    EXPECT_EQ(swport_get_stp_instance(4094), 64);
    EXPECT_EQ(swport_get_stp_instance(12), 0);
    const std::vector<Told> events = announced();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].type, uint32_t{L2TOP_EVENT_INSTANCE_CONFIG});
    EXPECT_EQ(events[0].payload.size(), 8192U);
    EXPECT_EQ(events[0].record<uint16_t>(20), 64);
}

TEST_F(TopologyTest, table_with_an_instance_that_is_none_is_refused_whole) {
    EXPECT_EQ(reason_of([&] { topology.move_vlans(65, parse_vlans("10,20")); }), "no instance 65 for VLAN 10");
    EXPECT_EQ(swport_get_stp_instance(10), 0);
    EXPECT_TRUE(announced().empty());
}

TEST_F(TopologyTest, protocol_runs_until_it_is_stopped) {
    topology.start(BRI_PROT_ERPS);
    EXPECT_EQ(bridge_proto_state_get(BRI_PROT_ERPS), 1);
    topology.stop(BRI_PROT_ERPS);
    EXPECT_EQ(bridge_proto_state_get(BRI_PROT_ERPS), 0);
    const std::vector<Told> events = announced();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0].record<l2top_proto_config>().protocol, uint32_t{BRI_PROT_ERPS});
    EXPECT_EQ(events[0].record<l2top_proto_config>().enable, 1);
    EXPECT_EQ(events[1].record<l2top_proto_config>().enable, 0);
}

TEST_F(TopologyTest, protocol_that_another_one_is_in_the_way_of_is_refused) {
    topology.set_conflicts(BRI_PROT_ERPS, parse_protocols("mstp|gvrp"));
    topology.start(BRI_PROT_MSTP);
    announced();
    EXPECT_EQ(reason_of([&] { topology.start(BRI_PROT_ERPS); }), "mstp is in the way");
    EXPECT_EQ(reason_of([&] { topology.start(14); }), "no protocol 14");
    EXPECT_EQ(reason_of([&] { topology.stop(14); }), "no protocol 14");
    EXPECT_EQ(bridge_proto_get_state_all(), 1U << BRI_PROT_MSTP);
    EXPECT_TRUE(announced().empty());
    topology.stop(BRI_PROT_MSTP);
    EXPECT_EQ(reason_of([&] { topology.start(BRI_PROT_ERPS); }), "");
}

TEST_F(TopologyTest, replay_tells_protocols_instances_and_the_states_in_those_that_are_in_use) {
    topology.start(BRI_PROT_MSTP);
    topology.move_vlans(2, parse_vlans("10"));
    vl_initial_vlan_entry(10, BRI_VLAN_STATIC);
    const l2top_port_status records[] = {status(3, 2, 6), status(3, 5, 7)};
    topology.set_states(records);
    announced();
    Topology::replay(BRI_SUBMOD_VLAN, tell);
    EXPECT_TRUE(announced().empty());
    Topology::replay(BRI_SUBMOD_L2TOP, tell);
    const std::vector<Told> events = announced();
    ASSERT_EQ(events.size(), 3U);
    EXPECT_EQ(events[0].type, uint32_t{L2TOP_EVENT_PROTO_CONFIG});
    EXPECT_EQ(events[1].type, uint32_t{L2TOP_EVENT_INSTANCE_CONFIG});
    EXPECT_EQ(events[2].type, uint32_t{L2TOP_EVENT_PORT_STATUS});
    EXPECT_EQ(events[2].record<uint16_t>(), 2); // two ports, one instance
    const auto first = events[2].record<l2top_port_status>(4);
    EXPECT_EQ(first.ifx, 3U);
    EXPECT_EQ(first.instance, 2);
    EXPECT_EQ(first.state, 6U);
}

TEST_F(TopologyTest, show_has_what_is_set) {
    topology.move_vlans(2, parse_vlans("10"));
    topology.set_conflicts(BRI_PROT_ERPS, parse_protocols("mstp"));
    topology.start(BRI_PROT_GVRP);
    const l2top_port_status record = status(3, 2, 6);
    topology.set_states({&record, 1});
    EXPECT_EQ(Topology::show().text(), "  instance 0 vlans 1-9,11-4094\n  instance 2 vlans 10\n"
                                       "  port 3 instance 2 state 6\n");
    EXPECT_EQ(Topology::show_protocols().text(), "protocols: gvrp\n  erps not beside mstp\n");
}

} // namespace
