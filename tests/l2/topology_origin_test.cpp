#include "tests/l2/fixture.h"

namespace {

using namespace test;

class TopologyOrigin : public L2Host {
  protected:
    TopologyOrigin() {
        debug_on({BRI_DBG_VLAN, BRI_DBG_MSG});
        watch({640, 641, 642, 643, 644, 645, 646});
        clear_log();
    }
    static uint16_t *table() { return swport_get_stp_instance_table(); }
    static void make_vlan(uint16_t vid, uint16_t instance, uint32_t mode = BRI_VLAN_STATIC) {
        vl_initial_vlan_entry(vid, mode);
        table()[vid] = instance;
    }
    static spcb &plug_with_states(int32_t ifx) {
        spcb &port = plug(ifx);
        for (unsigned instance = 0; instance < 65; ++instance)
            port.fwd_state[instance] = state_of(ifx, instance);
        return port;
    }
    static uint16_t state_of(int32_t ifx, unsigned instance) {
        return static_cast<uint16_t>(static_cast<unsigned>(ifx) * 256 + instance);
    }
    static ByteVec record(int32_t ifx, uint16_t instance) {
        return Bytes(20).put(0, static_cast<uint32_t>(ifx)).put(4, instance).put(8, uint32_t{state_of(ifx, instance)});
    }
    static std::vector<HostEvent> of_type(uint32_t type) {
        std::vector<HostEvent> all;
        for (const HostEvent &event : events())
            if (event.type == type)
                all.push_back(event);
        return all;
    }
    static std::vector<uint32_t> types() {
        std::vector<uint32_t> all;
        for (const HostEvent &event : events())
            all.push_back(event.type);
        return all;
    }
};

TEST_F(TopologyOrigin, messages_reach_the_handlers) {
    for (uint32_t type = 640; type <= 646; ++type) {
        events().clear();
        const ByteVec payload(24, static_cast<uint8_t>(type));
        int result = -2;
        deliver([&](bri_msg_hdr *msg) { result = bri_clnt_on_l2topo_msg(msg); }, type, payload);
        EXPECT_EQ(result, 0);
        ASSERT_EQ(events().size(), 1U);
        EXPECT_EQ(events()[0].type, type);
        EXPECT_EQ(events()[0].payload, payload);
    }
    EXPECT_EQ(bri_clnt_on_l2topo_msg(nullptr), -1);
}

// --- protocols

TEST_F(TopologyOrigin, running_protocols_come_one_by_one) {
    for (const uint32_t proto : {0U, 1U, 9U, 13U}) {
        uint32_t conflict = 0;
        ASSERT_EQ(bridge_proto_state_set(proto, &conflict), 1);
    }
    bri_clnt_notify_proto_status();
    ASSERT_EQ(events().size(), 3U); // 0 is never told
    const uint32_t told[] = {1, 9, 13};
    for (size_t n = 0; n < 3; ++n) {
        EXPECT_EQ(events()[n].type, L2TOP_EVENT_PROTO_CONFIG);
        EXPECT_EQ(events()[n].payload, ByteVec(Bytes(8).put(0, told[n]).put(4, uint8_t{1})));
    }
}

TEST_F(TopologyOrigin, no_protocol_tells_nothing) {
    bri_clnt_notify_proto_status();
    EXPECT_TRUE(events().empty());
}

// --- the whole

TEST_F(TopologyOrigin, comes_in_its_order) {
    uint32_t conflict = 0;
    ASSERT_EQ(bridge_proto_state_set(4, &conflict), 1);
    make_vlan(10, 3);
    plug_with_states(7);
    plug_with_states(2);
    l2top_clnt_notify_origin_data();
    EXPECT_EQ(types(),
              (std::vector<uint32_t>{L2TOP_EVENT_PROTO_CONFIG, L2TOP_EVENT_INSTANCE_CONFIG, L2TOP_EVENT_PORT_STATUS}));
    const auto *bytes = reinterpret_cast<const uint8_t *>(table());
    EXPECT_EQ(events()[1].payload, ByteVec(bytes, bytes + 8192));
    const ByteVec expected = Bytes(44).put(0, uint16_t{2}).put(4, record(2, 3)).put(24, record(7, 3));
    EXPECT_EQ(events()[2].payload, expected);
}

TEST_F(TopologyOrigin, tells_the_instances_of_existing_vlans_only) {
    make_vlan(1, 0);
    make_vlan(4094, 64, BRI_VLAN_DYNAMIC); // the mode does not matter
    table()[50] = 20;                      // VLAN 50 does not exist
    table()[4095] = table()[0] = 30;       // no VLANs
    make_vlan(60, 65);                     // no instance
    make_vlan(61, 0xFFFF);
    plug_with_states(5);
    l2top_clnt_notify_origin_data();
    const std::vector<HostEvent> batches = of_type(L2TOP_EVENT_PORT_STATUS);
    ASSERT_EQ(batches.size(), 1U);
    EXPECT_EQ(batches[0].payload, ByteVec(Bytes(44).put(0, uint16_t{2}).put(4, record(5, 0)).put(24, record(5, 64))));
}

TEST_F(TopologyOrigin, full_batches_come_whole_and_the_rest_as_long_as_it_is) {
    for (uint16_t instance = 0; instance <= 64; ++instance)
        make_vlan(static_cast<uint16_t>(100 + instance), instance);
    plug_with_states(3);
    plug_with_states(63);
    l2top_clnt_notify_origin_data();
    const std::vector<HostEvent> batches = of_type(L2TOP_EVENT_PORT_STATUS);
    ASSERT_EQ(batches.size(), 3U);
    EXPECT_EQ(batches[0].payload.size(), 1284U);
    EXPECT_EQ(batches[1].payload.size(), 1284U);
    EXPECT_EQ(batches[2].payload.size(), 44U);
    std::vector<ByteVec> records;
    for (const HostEvent &batch : batches)
        for (unsigned n = 0; n < value_at<uint16_t>(batch.payload.data(), 0); ++n) {
            const auto at = batch.payload.begin() + 4 + 20 * static_cast<std::ptrdiff_t>(n);
            records.emplace_back(at, at + 20);
        }
    ASSERT_EQ(records.size(), 130U);
    for (unsigned n = 0; n < 130; ++n)
        EXPECT_EQ(records[n], record(n < 65 ? 3 : 63, static_cast<uint16_t>(n % 65))) << n;
}

TEST_F(TopologyOrigin, a_number_that_fills_batches_leaves_nothing_to_flush) {
    for (uint16_t instance = 0; instance < 64; ++instance)
        make_vlan(static_cast<uint16_t>(100 + instance), instance);
    plug_with_states(3);
    l2top_clnt_notify_origin_data();
    EXPECT_EQ(of_type(L2TOP_EVENT_PORT_STATUS).size(), 1U);
    EXPECT_TRUE(logged("Client[unit] flush port status failed, no msg left.\n"));
}

TEST_F(TopologyOrigin, without_ports_or_vlans_tells_the_table_only) {
    l2top_clnt_notify_origin_data();
    EXPECT_EQ(types(), std::vector<uint32_t>{L2TOP_EVENT_INSTANCE_CONFIG});
    expect_line("Client[unit] flush port status failed, no msg left.\n", kVlanLine);
}

TEST_F(TopologyOrigin, without_memory_stops_behind_the_table) {
    make_vlan(10, 3);
    plug_with_states(7);
    faults::fail("calloc", 1, ENOMEM);
    l2top_clnt_notify_origin_data();
    EXPECT_EQ(types(), std::vector<uint32_t>{L2TOP_EVENT_INSTANCE_CONFIG});
    expect_line("Client[unit] notify port-status failed:no memory.\n", kVlanLine);
    events().clear();
    l2top_clnt_notify_origin_data();
    EXPECT_EQ(types(), (std::vector<uint32_t>{L2TOP_EVENT_INSTANCE_CONFIG, L2TOP_EVENT_PORT_STATUS}));
}

TEST_F(TopologyOrigin, without_the_flag_nothing_is_written) {
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    l2top_clnt_notify_origin_data(); // nothing is left to flush
    faults::fail("calloc", 1, ENOMEM);
    l2top_clnt_notify_origin_data();
    EXPECT_EQ(faults::injected(), 1);
    EXPECT_TRUE(log_lines().empty());
}

// --- the steps by themselves

TEST_F(TopologyOrigin, without_a_run_there_is_no_buffer) {
    const l2top_port_status status{};
    for (int round = 0; round < 2; ++round) {
        clear_log();
        swport_clnt_judge_notify_port_status(&status);
        expect_line("Client[unit] judge to notify port-status failed:buf is null.\n", kVlanLine);
        swport_clnt_judge_notify_port_status(nullptr);
        swport_clnt_notify_port_status_flush();
        expect_line("Client[unit] flush port status failed, buf is null.\n", kVlanLine);
        l2top_clnt_notify_origin_data(); // and none is left behind by one
    }
}

// A handler may append and flush, ask for the whole again, and spoil what it was given.
TEST_F(TopologyOrigin, a_handler_may_use_the_steps_in_the_middle_of_a_run) {
    for (uint16_t instance = 0; instance <= 64; ++instance)
        make_vlan(static_cast<uint16_t>(100 + instance), instance);
    plug_with_states(3);
    plug_with_states(4);
    int depth = 0;
    during = [&](uint32_t type) {
        if (type != L2TOP_EVENT_PORT_STATUS || depth != 0)
            return;
        ++depth;
        l2top_port_status own{};
        own.ifx = 99;
        for (int n = 0; n < 70; ++n)
            swport_clnt_judge_notify_port_status(&own);
        swport_clnt_notify_port_status_flush();
        l2top_clnt_notify_origin_data();
        --depth;
    };
    l2top_clnt_notify_origin_data();
    during = nullptr;
    unsigned own = 0;
    std::vector<ByteVec> others;
    for (const HostEvent &batch : of_type(L2TOP_EVENT_PORT_STATUS))
        for (unsigned n = 0; n < value_at<uint16_t>(batch.payload.data(), 0); ++n) {
            const auto at = batch.payload.begin() + 4 + 20 * static_cast<std::ptrdiff_t>(n);
            if (value_at<uint32_t>(&*at, 0) == 99)
                ++own;
            else
                others.emplace_back(at, at + 20);
        }
    EXPECT_EQ(others.size(), 130U); // each record once
    EXPECT_EQ(own % 70, 0U);
    EXPECT_GT(own, 0U);
    clear_log();
    swport_clnt_notify_port_status_flush();
    EXPECT_TRUE(logged("Client[unit] flush port status failed, buf is null.\n"));
}

TEST_F(TopologyOrigin, a_handler_may_spoil_the_batch_it_was_given) {
    for (uint16_t instance = 0; instance <= 64; ++instance)
        make_vlan(static_cast<uint16_t>(100 + instance), instance);
    plug_with_states(3);
    const event_set set = set_of_types({L2TOP_EVENT_PORT_STATUS});
    const bri_event_handler spoil = [](uint32_t, void *data, uint16_t len) {
        std::memset(data, 0xFF, len);
        return 0;
    };
    ASSERT_EQ(bridge_client_reg_event(&set, spoil), 0);
    l2top_clnt_notify_origin_data();
    const std::vector<HostEvent> batches = of_type(L2TOP_EVENT_PORT_STATUS);
    ASSERT_EQ(batches.size(), 2U);
    EXPECT_EQ(batches[1].payload, ByteVec(Bytes(24).put(0, uint16_t{1}).put(4, record(3, 64))));
}

// --- without databases

class TopologyOriginUnmapped : public Host {};

TEST_F(TopologyOriginUnmapped, tells_nothing_and_says_why) {
    debug_on({BRI_DBG_VLAN, BRI_DBG_MSG});
    watch({L2TOP_EVENT_INSTANCE_CONFIG, L2TOP_EVENT_PORT_STATUS, L2TOP_EVENT_PROTO_CONFIG});
    l2top_clnt_init("unit");
    clear_log();
    l2top_clnt_notify_origin_data();
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(log_text(), "Sync instance-config-table: table not ready.\n"
                          "[unit] get instance set fail: table not ready.\n");
    expect_line("Sync instance-config-table: table not ready.\n", kVlanLine);
    expect_line("[unit] get instance set fail: table not ready.\n", kClientLine);
    clear_log();
    std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg);
    const l2top_port_status status{};
    l2top_clnt_notify_origin_data();
    swport_clnt_judge_notify_port_status(&status);
    swport_clnt_notify_port_status_flush();
    EXPECT_TRUE(log_lines().empty());
}

} // namespace
