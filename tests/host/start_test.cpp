// Start of the layer: its configuration, the registration, the table of events.
#include "tests/host/layer_fixture.h"

using namespace test;

namespace {

class HostStart : public Layer {};

TEST_F(HostStart, starts_the_library_under_the_name) {
    ASSERT_EQ(start_layer(), 0);
    EXPECT_STREQ(ctx().name, "unit");
    EXPECT_EQ(loop().count("bri-conn"), 1);
    EXPECT_EQ(loop().count("host-tick"), 1);
}

TEST_F(HostStart, registers_the_events_of_the_table) {
    follow(VLAN_EVENT_CREATE_INDEX);
    follow(MVLAN_EVENT_NOTIFY_ENTRY);
    ASSERT_EQ(start_layer(), 0);
    EXPECT_TRUE(has(ctx().event_set, VLAN_EVENT_CREATE_INDEX));
    EXPECT_TRUE(has(ctx().event_set, MVLAN_EVENT_NOTIFY_ENTRY));
    EXPECT_TRUE(has(ctx().event_set, MVLAN_EVENT_SYNC_DATA_END)); // of a followed submodule
    EXPECT_FALSE(has(ctx().event_set, MAC_EVENT_SYNC_DATA_END));
    EXPECT_FALSE(has(ctx().event_set, MAC_EVENT_NOTIFY_ADDR));
}

TEST_F(HostStart, uses_a_library_that_has_been_started) {
    StartedHost::start("other");
    config.master = nullptr;
    ASSERT_EQ(start_layer(), 0);
    EXPECT_STREQ(ctx().name, "other");
    EXPECT_EQ(loop().find("host-tick")->master, loop().master());
}

TEST_F(HostStart, refuses_another_loop_than_the_librarys) {
    StartedHost::start();
    config.master = loop().other_master();
    EXPECT_EQ(start_layer(), BRI_ERR_INVALID);
}

TEST_F(HostStart, refuses_null) {
    EXPECT_EQ(bridge_host_start(nullptr), BRI_ERR_NULL);
    config.master = nullptr;
    EXPECT_EQ(start_layer(), BRI_ERR_NULL);
}

TEST_F(HostStart, refuses_what_is_out_of_range) {
    const auto refused = [&](auto &&change) {
        const bridge_host_config kept = config;
        change(config);
        const int result = bridge_host_start(&config);
        config = kept;
        return result == BRI_ERR_INVALID && loop().pending.empty();
    };
    StartedHost::start();
    loop().pending.clear();
    EXPECT_TRUE(refused([](auto &c) { c.size = 8; }));
    EXPECT_TRUE(refused([](auto &c) { c.flags = 8; }));
    EXPECT_TRUE(refused([](auto &c) { c.tick_ms = 9; }));
    EXPECT_TRUE(refused([](auto &c) { c.tick_ms = 1001; }));
    EXPECT_TRUE(refused([](auto &c) { c.handler_count = 1; }));
    EXPECT_TRUE(refused([](auto &c) {
        static const bridge_host_handler none{129, 0, nullptr, nullptr};
        c.handlers = &none;
        c.handler_count = 1;
    }));
    for (const uint32_t event : {0U, 4096U}) {
        follow(event);
        EXPECT_TRUE(refused([&](auto &c) {
            c.handlers = &rows.back();
            c.handler_count = 1;
        }));
    }
    EXPECT_EQ(bridge_host_start(&config), 0);
}

TEST_F(HostStart, refuses_a_second_start) {
    ASSERT_EQ(start_layer(), 0);
    EXPECT_EQ(bridge_host_start(&config), BRI_ERR_NOT_PERMITTED);
    EXPECT_EQ(loop().count("host-tick"), 1);
}

TEST_F(HostStart, takes_the_configuration_of_an_older_caller) {
    config.size = offsetof(bridge_host_config, on_vanished);
    EXPECT_EQ(start_layer(), 0);
}

TEST_F(HostStart, takes_a_newer_configuration_that_asks_nothing_new) {
    struct {
        bridge_host_config known;
        uint64_t more;
    } newer{config, 0};
    newer.known.size = sizeof newer;
    StartedHost::start();
    newer.more = 1;
    EXPECT_EQ(bridge_host_start(&newer.known), BRI_ERR_INVALID);
    newer.more = 0;
    EXPECT_EQ(bridge_host_start(&newer.known), 0);
}

TEST_F(HostStart, can_be_tried_again_when_the_loop_refused) {
    StartedHost::start();
    loop().refused = "host-tick";
    EXPECT_EQ(start_layer(), BRI_ERR_NO_MEMORY);
    loop().refused.clear();
    EXPECT_EQ(start_layer(), 0);
}

TEST_F(HostStart, gives_its_memory_back_when_it_fails) {
    StartedHost::start();
    config.mac_capacity = 100;
    for (int nth = 1; nth <= 4; ++nth) { // rows, addresses, their buckets, and the library's node
        const int before = faults::live_blocks();
        faults::fail("calloc", nth, ENOMEM);
        ASSERT_EQ(bridge_host_start(&config), BRI_ERR_NO_MEMORY) << nth;
        EXPECT_EQ(faults::injected(), 1);
        EXPECT_EQ(faults::live_blocks(), before) << nth;
        faults::clear();
    }
    EXPECT_EQ(bridge_host_start(&config), 0);
}

TEST_F(HostStart, says_when_the_library_cannot_be_started) {
    faults::fail("socket", 1, EMFILE);
    testing::internal::CaptureStdout();
    EXPECT_EQ(bridge_host_start(&config), BRI_ERR_UNKNOWN);
    EXPECT_NE(testing::internal::GetCapturedStdout(), "");
}

TEST_F(HostStart, adds_the_tick_again_when_the_loop_refused_it) {
    ASSERT_EQ(start_layer(), 0);
    loop().refused = "host-tick";
    tick();
    EXPECT_EQ(loop().count("host-tick"), 0);
    loop().refused.clear();
    connect();
    EXPECT_EQ(loop().count("host-tick"), 1);
}

class HostEvents : public Layer {
  protected:
    static ByteVec vlan(uint16_t vid) {
        vl_evt_vlan_rec record{};
        record.vid = vid;
        record.version = 1;
        return bytes_of(record);
    }
};

TEST_F(HostEvents, reach_their_rows_in_order) {
    follow(VLAN_EVENT_RENAME);
    follow(VLAN_EVENT_INTF_STATE);
    follow(VLAN_EVENT_RENAME);
    rows[2].handler = [](const void *, uint16_t, void *self) { static_cast<HostEvents *>(self)->write("second"); };
    rows[2].context = nullptr; // the configuration's
    config.context = static_cast<HostEvents *>(this);
    config.on_connection = nullptr;
    config.on_role = nullptr;
    config.on_resync_begin = nullptr;
    config.on_resync_end = nullptr;
    ASSERT_EQ(start_layer(), 0);
    connect();
    synchronise();
    told.clear();
    deliver(VLAN_EVENT_RENAME, vlan(10));
    EXPECT_EQ(told, (Told{"event 392", "second"}));
}

TEST_F(HostEvents, come_as_aligned_records) {
    follow(VLAN_EVENT_RENAME, sizeof(vl_evt_vlan_rec));
    start_synchronised();
    deliver(VLAN_EVENT_RENAME, vlan(10)); // lies one byte off
    ASSERT_EQ(records.size(), 1U);
    EXPECT_TRUE(records[0].aligned);
    EXPECT_EQ(records[0].bytes, vlan(10));
}

TEST_F(HostEvents, that_are_aligned_come_as_they_lie) {
    static const void *seen;
    rows.push_back({VLAN_EVENT_RENAME, 0, [](const void *record, uint16_t, void *) { seen = record; }, nullptr});
    start_synchronised();
    uint32_t record[2] = {1, 2};
    bridge_call_event_handlers(VLAN_EVENT_RENAME, record, sizeof record);
    EXPECT_EQ(seen, record);
}

TEST_F(HostEvents, that_are_too_short_are_dropped_and_counted) {
    follow(VLAN_EVENT_RENAME, sizeof(vl_evt_vlan_rec));
    start_synchronised();
    ByteVec cut = vlan(10);
    cut.pop_back();
    deliver(VLAN_EVENT_RENAME, cut);
    EXPECT_EQ(told, Told{});
    bridge_host_statistics figures{};
    figures.size = sizeof figures;
    ASSERT_EQ(bridge_host_get_statistics(&figures), 0);
    EXPECT_EQ(figures.dropped_short, 1U);
    EXPECT_EQ(figures.events, 1U);
}

TEST_F(HostEvents, without_a_record_come_with_null) {
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    deliver(VLAN_EVENT_RENAME);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_TRUE(records[0].null);
}

TEST_F(HostEvents, that_are_as_long_as_a_message_can_be_come_whole) {
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    const ByteVec longest = pattern(BRI_PAYLOAD_MAX);
    deliver(VLAN_EVENT_RENAME, longest);
    ASSERT_EQ(records.size(), 1U);
    EXPECT_EQ(records[0].bytes, longest);
}

TEST_F(HostEvents, that_are_longer_and_unaligned_are_dropped_and_counted) {
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    ByteVec bytes(BRI_PAYLOAD_MAX + 8);
    bridge_call_event_handlers(VLAN_EVENT_RENAME, bytes.data() + 1, BRI_PAYLOAD_MAX + 1);
    EXPECT_EQ(told, Told{});
    bridge_host_statistics figures{};
    figures.size = sizeof figures;
    bridge_host_get_statistics(&figures);
    EXPECT_EQ(figures.dropped_long, 1U);
}

TEST_F(HostEvents, inside_a_handler_leave_its_record_alone) {
    follow(VLAN_EVENT_RENAME);
    static uint16_t outer;
    rows.push_back({VLAN_EVENT_RENAME, 4,
                    [](const void *record, uint16_t size, void *) {
                        if (size < sizeof(vl_evt_vlan_rec)) // the inner one
                            return;
                        ByteVec bytes(9, 0xFF);
                        bridge_call_event_handlers(VLAN_EVENT_RENAME, bytes.data() + 1, 8);
                        outer = static_cast<const vl_evt_vlan_rec *>(record)->vid;
                    },
                    nullptr});
    start_synchronised();
    deliver(VLAN_EVENT_RENAME, vlan(10));
    EXPECT_EQ(outer, 10);
}

TEST_F(HostEvents, are_counted_by_type) {
    follow(VLAN_EVENT_RENAME);
    follow(VLAN_EVENT_RENAME);
    start_synchronised();
    deliver(VLAN_EVENT_RENAME, vlan(10));
    deliver(VLAN_EVENT_RENAME, vlan(11));
    EXPECT_EQ(bridge_host_event_count(VLAN_EVENT_RENAME), 2U);
    EXPECT_EQ(bridge_host_event_count(VLAN_EVENT_INTF_STATE), 0U);
    EXPECT_EQ(bridge_host_event_count(UINT32_MAX), 0U);
}

TEST_F(HostEvents, take_no_memory) {
    follow(VLAN_EVENT_CREATE_INTF);
    config.flags = BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS;
    config.mac_capacity = 10;
    start_synchronised();
    faults::clear();
    deliver(VLAN_EVENT_DESTROY_INTF, bytes_of(uint32_t{7}));
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(1)));
    tick();
    EXPECT_EQ(faults::calls("malloc") + faults::calls("calloc") + faults::calls("realloc"), 0);
}

} // namespace
