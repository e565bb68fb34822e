// The kernel channel against a kernel that has the bridge module.
#include "tests/lab/module_fixture.h"

namespace {

using namespace test;

using Module = ModuleHost;

constexpr uint8_t kFirstFilled[6] = {6, 0, 0, 0, 0, 0};

bri_mac_msg learned(uint8_t last, bri_mac_oper oper = BRI_MAC_ADD) {
    bri_mac_msg record{};
    record.oper = oper;
    record.entry.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
    record.entry.mac[0] = 2;
    record.entry.mac[5] = last;
    record.entry.bcast_id = 10;
    record.entry.ifx = 3;
    record.entry.type = BRI_MAC_TYPE_DYNAMIC;
    return record;
}

TEST_F(Module, channel_comes_up_and_asks_for_the_kernels_data) {
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
    EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(loop().count("bri-ef-read"), 1);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0].type, BRIDGE_EVENT_KERNEL_DATA_REQ);
}

TEST_F(Module, command_that_would_change_nothing_or_something_else_is_refused) {
    for (const char *command :
         {"nonsense", "state", "state nonsense", "state error", "mac add", "mac add 02:00:00:00:00:05 0 3 2",
          "mac add 02:00:00:00:00:05 10 3 0", "mac add 02:00:00:00:00:05 65546 3 2", "mac fill 65537 10 3",
          "mac fill 2 65546 3", "host add 02:00:00:00:00:09 65546 3", "host del 02:00:00:00:00:09 10 3"})
        EXPECT_FALSE(tell_module(command)) << command;
    EXPECT_EQ(module_figure("addresses"), 0);
    EXPECT_EQ(module_figure("hosts"), 0);
    EXPECT_EQ(module_text().find("state up\n"), 0U);
}

TEST_F(Module, look_up_of_one_address_gives_its_whole_entry) {
    tell("mac add 02:00:00:00:00:05 300 70000 2");
    bri_mac_entry entry;
    ASSERT_EQ(look_up({2, 0, 0, 0, 0, 5}, 300, entry), 0);
    EXPECT_EQ(entry.field, 15);
    EXPECT_EQ(bytes_of(entry.mac), (ByteVec{2, 0, 0, 0, 0, 5}));
    EXPECT_EQ(entry.bcast_id, 300);
    EXPECT_EQ(entry.ifx, 70000U);
    EXPECT_EQ(entry.type, static_cast<uint32_t>(BRI_MAC_TYPE_STATIC));
    EXPECT_EQ(look_up({2, 0, 0, 0, 0, 5}, 301, entry), -1);
    EXPECT_EQ(look_up({2, 0, 0, 0, 0, 6}, 300, entry), -1);
}

TEST_F(Module, walk_by_address_meets_every_entry_in_order) {
    tell("mac fill 300 10 3");
    bri_mac_entry entry{};
    entry.field = BRI_MAC_FIELD_MAC;
    ASSERT_EQ(bridge_maddr_find_first_on_mac(&entry), 0);
    EXPECT_EQ(bri_mac_compare(entry.mac, kFirstFilled), 0);
    int met = 1;
    for (bri_mac_entry last = entry; bridge_maddr_find_next_on_mac(&last, &entry) == 0; last = entry, ++met)
        EXPECT_LT(bri_mac_compare(last.mac, entry.mac), 0);
    EXPECT_EQ(met, 300);
}

TEST_F(Module, walk_by_port_meets_that_ports_entries_only) {
    tell("mac fill 20 10 3");
    tell("mac add 02:00:00:00:00:05 10 4 1");
    tell("mac add 0a:00:00:00:00:05 11 4 1");
    bri_mac_entry entry{};
    entry.field = BRI_MAC_FIELD_IFX;
    entry.ifx = 4;
    ASSERT_EQ(bridge_maddr_find_first_on_ifx(&entry), 0);
    EXPECT_EQ(entry.mac[0], 2);
    ASSERT_EQ(bridge_maddr_find_next_on_ifx(&entry, &entry), 0);
    EXPECT_EQ(entry.mac[0], 10);
    EXPECT_EQ(bridge_maddr_find_next_on_ifx(&entry, &entry), -1);
}

TEST_F(Module, static_address_of_a_port_is_found_beside_learned_ones) {
    tell("mac fill 20 10 3");
    EXPECT_EQ(bridge_maddr_find_static_on_ifx(3), -1);
    tell("mac add 02:00:00:00:00:05 10 3 2");
    EXPECT_EQ(bridge_maddr_find_static_on_ifx(3), 0);
}

TEST_F(Module, host_gets_the_vlan_of_its_entry) {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 9};
    uint16_t vlan = 7;
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(mac, &vlan), -1);
    EXPECT_EQ(vlan, 0);
    tell("host add 02:00:00:00:00:09 300 3");
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(mac, &vlan), 0);
    EXPECT_EQ(vlan, 300);
    tell("host del 02:00:00:00:00:09 300 3");
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(mac, &vlan), -1);
}

TEST_F(Module, bulk_of_changes_fills_and_empties_the_table) {
    up();
    std::vector<bri_mac_msg> records;
    for (unsigned i = 0; i < 204; ++i)
        records.push_back(learned(static_cast<uint8_t>(i)));
    ASSERT_EQ(bridge_maddr_notify(records.data(), 204), 0);
    EXPECT_EQ(module_figure("addresses"), 204);
    bri_mac_entry entry;
    EXPECT_EQ(look_up({2, 0, 0, 0, 0, 203}, 10, entry), 0);
    for (bri_mac_msg &record : records)
        record.oper = BRI_MAC_DEL;
    ASSERT_EQ(bridge_maddr_notify(records.data(), 204), 0);
    EXPECT_EQ(module_figure("addresses"), 0);
}

TEST_F(Module, check_ages_out_the_learned_addresses_that_nobody_names_again) {
    up();
    tell("mac add 02:00:00:00:00:01 10 3 2");
    const bri_mac_msg records[] = {learned(2), learned(3)};
    ASSERT_EQ(bridge_maddr_notify(records, 2), 0);
    ASSERT_EQ(bridge_maddr_dynmac_check_begin(), 0);
    ASSERT_EQ(bridge_maddr_notify(records, 1), 0);
    ASSERT_EQ(bridge_maddr_dynmac_check_end(), 0);
    EXPECT_EQ(module_text().substr(module_text().find("mac ")),
              "mac 02:00:00:00:00:01 vlan 10 port 3 type 2\nmac 02:00:00:00:00:02 vlan 10 port 3 type 1\n");
}

TEST_F(Module, longest_message_arrives_whole) {
    up();
    const ByteVec data(19987, 1);
    ASSERT_EQ(bridge_lib_send_netlink(data.data(), 19987, MAC_EVENT_SS_NOTIFY_ADDR), 0);
    EXPECT_EQ(module_figure("last"), MAC_EVENT_SS_NOTIFY_ADDR);
    EXPECT_NE(module_text().find("size 19987\n"), std::string::npos);
}

TEST_F(Module, notices_are_taken_off_the_channel_and_change_nothing) {
    up();
    ASSERT_EQ(bridge_maddr_dynmac_check_begin(), 0); // the module knows the host by it
    clear_log();
    tell("notify 3");
    EXPECT_EQ(read_all(), 3);
    EXPECT_EQ(log_text(), "");
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(loop().count("bri-ef-read"), 1);
}

TEST_F(Module, error_answer_gives_nothing_and_restarts_the_channel) {
    up();
    tell("state error 16");
    bri_mac_entry entry;
    EXPECT_EQ(look_up({2, 0, 0, 0, 0, 5}, 10, entry), -1);
    EXPECT_TRUE(logged("[unit] EF-bridge disconn msg received.\n"));
    EXPECT_TRUE(logged(std::string("[unit] Get msg head failed. error -16, ") + strerror(-16) + ".\n"));
    EXPECT_EQ(ctx().nl_ready, 0);
    ASSERT_EQ(loop().count("bri-ef-reconn"), 1);
    tell("state up");
    EXPECT_EQ(loop().run("bri-ef-reconn"), 0);
    EXPECT_EQ(ctx().nl_ready, 1);
}

TEST_F(Module, error_on_a_message_that_awaits_no_answer_is_met_by_the_read_job) {
    up();
    tell("state error 5");
    EXPECT_EQ(bridge_maddr_dynmac_check_begin(), 0);
    EXPECT_EQ(loop().run_readable(100), 1);
    EXPECT_TRUE(logged(std::string("[unit] Get msg head failed. error -5, ") + strerror(-5) + ".\n"));
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(loop().count("bri-ef-reconn"), 1);
}

TEST_F(Module, too_long_an_answer_gives_nothing_and_restarts_the_channel) {
    up();
    tell("state long");
    bri_mac_entry entry;
    EXPECT_EQ(look_up({2, 0, 0, 0, 0, 5}, 10, entry), -1);
    EXPECT_TRUE(logged("[unit] EF-bridge disconn msg received.\n"));
    EXPECT_EQ(ctx().nl_ready, 0);
    EXPECT_EQ(loop().count("bri-ef-reconn"), 1);
}

TEST_F(Module, question_of_an_unknown_type_gives_nothing) {
    EXPECT_EQ(bridge_lib_query_netlink("", 1, 12345), nullptr);
    EXPECT_TRUE(logged(std::string("[] Get msg head failed. error -95, ") + strerror(-95) + ".\n")) << log_text();
}

using ModuleSlow = ModuleHost;

TEST_F(ModuleSlow, silence_holds_a_question_for_ten_seconds) {
    up();
    tell("state silent");
    const time_t start = now();
    bri_mac_entry entry;
    EXPECT_EQ(look_up({2, 0, 0, 0, 0, 5}, 10, entry), -1);
    EXPECT_GE(now() - start, 9);
    EXPECT_LE(now() - start, 15);
    EXPECT_EQ(ctx().nl_ready, 1); // silence is no sign that it has gone
}

} // namespace
