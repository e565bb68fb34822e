// Requests, replies and rollback: what goes out byte by byte, what is refused, what is logged.
#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test;

class VlanRequest : public MappedVlanTest {
  protected:
    void SetUp() override {
        MappedVlanTest::SetUp();
        connect_server();
    }
    void expect_sent(uint32_t type, const ByteVec &payload) {
        const std::vector<Message> messages = sent();
        ASSERT_EQ(messages.size(), 1U) << "type " << type;
        EXPECT_EQ(messages[0].type, type);
        EXPECT_EQ(messages[0].payload, payload);
    }
    void expect_nothing_sent() { EXPECT_TRUE(sent().empty()); }

    static vlanset any_set() {
        vlanset set;
        for (unsigned index = 0; index < 128; ++index)
            set.words[index] = 0x01020304U * (index + 1);
        return set;
    }
    // `size` zero bytes with the set at an offset.
    static ByteVec with_set(size_t size, size_t offset, const vlanset &set) {
        ByteVec bytes(size);
        std::memcpy(bytes.data() + offset, &set, sizeof set);
        return bytes;
    }
};

TEST_F(VlanRequest, create_sends_the_id_alone) {
    EXPECT_EQ(vl_clnt_create_vlan_entry(0x123), 0);
    ByteVec expected(56);
    put_at<uint16_t>(expected.data(), 0, 0x123);
    expect_sent(VLAN_EVENT_CREATE_INDEX, expected);
}

TEST_F(VlanRequest, create_outside_the_range_sends_nothing) {
    vl_set_vlan_range(10, 20);
    for (const int vid : {0, 9, 21, 4094, 4095, 65535})
        EXPECT_EQ(vl_clnt_create_vlan_entry(static_cast<uint16_t>(vid)), 0) << vid;
    expect_nothing_sent();
    EXPECT_EQ(vl_clnt_create_vlan_entry(10), 0);
    EXPECT_EQ(vl_clnt_create_vlan_entry(20), 0);
    EXPECT_EQ(sent().size(), 2U);
}

TEST_F(VlanRequest, delete_sends_the_id_alone) {
    add_vlan(300, BRI_VLAN_DYNAMIC);
    EXPECT_EQ(vl_clnt_delete_vlan_entry(300), 0);
    ByteVec expected(56);
    put_at<uint16_t>(expected.data(), 0, 300);
    expect_sent(VLAN_EVENT_DESTROY_INDEX, expected);
}

TEST_F(VlanRequest, delete_of_a_missing_vlan_sends_nothing) {
    EXPECT_EQ(vl_clnt_delete_vlan_entry(300), 0);
    EXPECT_EQ(vl_clnt_delete_vlan_entry(0), 0);
    expect_nothing_sent();
}

TEST_F(VlanRequest, delete_of_a_vlan_that_this_process_missed_tells_no_create) {
    watch({VLAN_EVENT_CREATE_INDEX});
    add_vlan(300, BRI_VLAN_STATIC, {}, true);
    sent(); // the registration
    EXPECT_EQ(vl_clnt_delete_vlan_entry(300), 0);
    EXPECT_EQ(sent().size(), 1U);
    EXPECT_TRUE(events().empty());
}

TEST_F(VlanRequest, native_vlan_is_sent_unchecked) {
    vl_clnt_set_native_vlan(0x01020304, 0xFFFE);
    ByteVec expected(8);
    put_at<uint32_t>(expected.data(), 0, 0x01020304);
    put_at<uint16_t>(expected.data(), 4, 0xFFFE);
    expect_sent(VLAN_EVENT_MODIFY_INTF_PVID, expected);
}

TEST_F(VlanRequest, dynamic_member_is_sent_for_a_trunk_port) {
    add_port(7, BRI_PORT_TRUNK);
    add_vlan(300);
    ByteVec expected(24);
    put_at<uint32_t>(expected.data(), 0, 7);
    put_at<uint16_t>(expected.data(), 4, 300);
    EXPECT_EQ(vl_clnt_add_dyn_member(7, 300), 0);
    expect_sent(VLAN_EVENT_SET_ADD_DYN_INTF, expected);
    EXPECT_EQ(vl_clnt_del_dyn_member(7, 300), 0);
    expect_sent(VLAN_EVENT_SET_DEL_DYN_INTF, expected);
}

TEST_F(VlanRequest, dynamic_member_needs_a_valid_id_and_a_present_port) {
    add_port(7, BRI_PORT_TRUNK);
    add_port(8, BRI_PORT_ACCESS);
    for (int (*const request)(int32_t, uint16_t) : {vl_clnt_add_dyn_member, vl_clnt_del_dyn_member}) {
        EXPECT_EQ(request(7, 0), 0);
        EXPECT_EQ(request(7, 4095), 0);
        EXPECT_EQ(request(8, 4095), 0);
        EXPECT_EQ(request(9, 300), 0);
        EXPECT_EQ(request(64, 300), 0);
        EXPECT_EQ(request(-1, 300), 0);
    }
    expect_nothing_sent();
}

TEST_F(VlanRequest, dynamic_member_on_any_other_port_mode_gives_2) {
    add_vlan(300);
    for (const uint32_t mode : {0U, 1U, 3U, 4U, 5U, 6U, 7U, 8U}) {
        add_port(7, mode);
        EXPECT_EQ(vl_clnt_add_dyn_member(7, 300), 2) << mode;
        EXPECT_EQ(vl_clnt_del_dyn_member(7, 300), 2) << mode;
        EXPECT_EQ(vl_clnt_del_dyn_member(7, 301), 2) << mode;
    }
    expect_nothing_sent();
}

TEST_F(VlanRequest, dynamic_member_is_added_to_a_vlan_that_does_not_exist_yet) {
    add_port(7, BRI_PORT_TRUNK);
    EXPECT_EQ(vl_clnt_add_dyn_member(7, 300), 0);
    EXPECT_EQ(sent().size(), 1U);
}

TEST_F(VlanRequest, dynamic_member_is_not_deleted_from_a_missing_vlan) {
    add_port(7, BRI_PORT_TRUNK);
    EXPECT_EQ(vl_clnt_del_dyn_member(7, 300), 0);
    expect_nothing_sent();
}

TEST_F(VlanRequest, dynamic_member_deletion_tells_a_missed_create_first) {
    watch({VLAN_EVENT_CREATE_INDEX});
    add_port(7, BRI_PORT_TRUNK);
    add_vlan(300, BRI_VLAN_STATIC, {}, true);
    EXPECT_EQ(vl_clnt_add_dyn_member(7, 300), 0);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(vl_clnt_del_dyn_member(7, 300), 0);
    EXPECT_EQ(events().size(), 1U);
}

struct SetRequest {
    int (*call)(int32_t, const vlanset *);
    uint32_t type;
    bool complains;
};
constexpr SetRequest kSetRequests[] = {
    {vl_clnt_dyn_member_add_rang, VLAN_EVENT_DYN_MEM_ADD_RANG, false},
    {vl_clnt_dyn_member_del_rang, VLAN_EVENT_DYN_MEM_DEL_RANG, false},
    {vl_clnt_swport_add_allow_vlanset, VLAN_EVENT_SP_ADD_ALLOW_VLAN, true},
    {vl_clnt_swport_rmv_allow_vlanset, VLAN_EVENT_SP_RMV_ALLOW_VLAN, true},
    {vl_clnt_swport_rmv_sub_if_vlanset, VLAN_EVENT_SP_RMV_SUB_IF_VLAN, true},
};

TEST_F(VlanRequest, set_of_a_port_is_sent_unchecked) {
    for (const SetRequest &request : kSetRequests) {
        const vlanset set = any_set();
        ByteVec expected = with_set(516, 4, set);
        put_at<uint32_t>(expected.data(), 0, 0xFFFFFFFE);
        EXPECT_EQ(request.call(-2, &set), 0);
        expect_sent(request.type, expected);
    }
}

TEST_F(VlanRequest, null_set_gives_minus_1_and_some_complain) {
    debug_on({BRI_DBG_VLAN});
    for (const SetRequest &request : kSetRequests) {
        clear_log();
        EXPECT_EQ(request.call(7, nullptr), -1);
        EXPECT_EQ(times_logged("Client(unit), argc set is NULL.\n"), request.complains ? 1 : 0) << request.type;
        EXPECT_EQ(log_lines().size(), request.complains ? 2U : 1U);
        if (request.complains)
            expect_vlan_log("Client(unit), argc set is NULL.\n");
    }
    expect_nothing_sent();
}

TEST_F(VlanRequest, shared_routines_send_as_any_type) {
    const vlanset set = any_set();
    EXPECT_EQ(vl_clnt_set_bri_dyn_member(500, 7, 4095), 0);
    ByteVec single(24);
    put_at<uint32_t>(single.data(), 0, 7);
    put_at<uint16_t>(single.data(), 4, 4095);
    expect_sent(500, single);
    EXPECT_EQ(vl_clnt_set_bri_dyn_member_rang(501, 7, &set), 0);
    ByteVec whole = with_set(516, 4, set);
    put_at<uint32_t>(whole.data(), 0, 7);
    expect_sent(501, whole);
    EXPECT_EQ(vl_clnt_set_bri_dyn_member_rang(501, 7, nullptr), -1);
    expect_nothing_sent();
}

TEST_F(VlanRequest, vswpt_tables_are_passed_through) {
    ByteVec first(512);
    ByteVec second(512);
    for (size_t i = 0; i < 512; ++i) {
        first[i] = static_cast<uint8_t>(i * 7 + 1);
        second[i] = static_cast<uint8_t>(i * 5 + 2);
    }
    ByteVec both = first;
    both.insert(both.end(), second.begin(), second.end());
    vl_clnt_notify_set_vswpt_num(first.data(), second.data());
    expect_sent(VLAN_EVENT_SET_VSWPT_NUM, both);
    EXPECT_EQ(vl_clnt_set_trill_vswpt_num(first.data(), second.data()), 0);
    expect_sent(VLAN_EVENT_SET_VSWPT_NUM, both);
}

TEST_F(VlanRequest, missing_vswpt_table_sends_nothing) {
    const uint8_t table[512] = {};
    vl_clnt_notify_set_vswpt_num(nullptr, table);
    vl_clnt_notify_set_vswpt_num(table, nullptr);
    EXPECT_EQ(vl_clnt_set_trill_vswpt_num(nullptr, table), -1);
    EXPECT_EQ(vl_clnt_set_trill_vswpt_num(table, nullptr), -1);
    expect_nothing_sent();
}

TEST_F(VlanRequest, rollback_of_a_set_carries_the_bitmap_alone) {
    const vlanset set = any_set();
    bridge_client_vlanset_rollback(&set);
    expect_sent(VLAN_EVENT_DESTROY_RANGE, with_set(8708, 0, set));
}

TEST_F(VlanRequest, rollback_of_one_vlan_is_a_set_of_one) {
    bridge_client_vlan_rollback(100);
    expect_sent(VLAN_EVENT_DESTROY_RANGE, with_set(8708, 0, set_of({100})));
    bridge_client_vlan_rollback(0);
    expect_sent(VLAN_EVENT_DESTROY_RANGE, with_set(8708, 0, set_of({0})));
    bridge_client_vlan_rollback(4095);
    expect_sent(VLAN_EVENT_DESTROY_RANGE, with_set(8708, 0, set_of({4095})));
}

TEST_F(VlanRequest, rollback_of_an_id_without_a_bit_or_of_null_sends_nothing) {
    bridge_client_vlan_rollback(4096);
    bridge_client_vlan_rollback(65535);
    bridge_client_vlanset_rollback(nullptr);
    expect_nothing_sent();
}

TEST_F(VlanRequest, single_reply_is_the_result) {
    for (const uint32_t result : {0U, 1U, 0xDEADBEEFU}) {
        bridge_client_vlan_reply(&result);
        ByteVec expected(4);
        put_at(expected.data(), 0, result);
        expect_sent(VLAN_EVENT_CREATE_PREJ, expected);
    }
}

TEST_F(VlanRequest, set_reply_is_sent_as_the_caller_filled_it) {
    vl_vlanset_reply reply{any_set(), 0};
    bridge_client_vlanset_reply(&reply);
    expect_sent(VLAN_EVENT_CREATE_RANGE_PREJ, with_set(516, 0, reply.failed));
    reply.failure = 0x01020304;
    bridge_client_vlanset_reply(&reply);
    ByteVec expected = with_set(516, 0, reply.failed);
    put_at<uint32_t>(expected.data(), 512, 0x01020304);
    expect_sent(VLAN_EVENT_CREATE_RANGE_PREJ, expected);
}

TEST_F(VlanRequest, null_reply_sends_and_logs_nothing) {
    debug_on({BRI_DBG_VLAN});
    bridge_client_vlan_reply(nullptr);
    bridge_client_vlanset_reply(nullptr);
    EXPECT_TRUE(log_lines().empty());
    expect_nothing_sent();
}

TEST_F(VlanRequest, replies_leave_at_once_ahead_of_waiting_requests) {
    vl_clnt_set_native_vlan(7, 10);
    const uint32_t result = 1;
    bridge_client_vlan_reply(&result);
    const vl_vlanset_reply reply{};
    bridge_client_vlanset_reply(&reply);
    std::vector<uint32_t> types;
    for (const Message &message : sent())
        types.push_back(message.type);
    EXPECT_EQ(types, (std::vector<uint32_t>{VLAN_EVENT_CREATE_PREJ, VLAN_EVENT_CREATE_RANGE_PREJ,
                                            VLAN_EVENT_MODIFY_INTF_PVID}));
}

// What each call writes to the log when it sends.
TEST_F(VlanRequest, announcement_and_result_are_logged) {
    debug_on({BRI_DBG_VLAN});
    add_port(7, BRI_PORT_TRUNK);
    add_vlan(300);
    const vlanset set = any_set();
    const uint8_t table[512] = {};
    const uint32_t accept = 0;
    const uint32_t refuse = 9;
    const auto expect_log = [](const std::string &announcement, const std::string &type) {
        EXPECT_EQ(log_text(), announcement + "Send msg type(" + type + ") to bridge, ret = 0.\n");
        for (const LogLine &line : log_lines())
            expect_vlan_log(line.text);
        clear_log();
    };
    clear_log();
    vl_clnt_create_vlan_entry(300);
    expect_log("Client(unit) create vlan 300.\n", "VLAN_EVENT_CREATE_INDEX");
    vl_clnt_delete_vlan_entry(300);
    expect_log("Client(unit) delete vlan 300.\n", "VLAN_EVENT_DESTROY_INDEX");
    bridge_client_vlan_reply(&accept);
    expect_log("Client(unit) vlan reply success.\n", "VLAN_EVENT_CREATE_PREJ");
    bridge_client_vlan_reply(&refuse);
    expect_log("Client(unit) vlan reply fail.\n", "VLAN_EVENT_CREATE_PREJ");
    bridge_client_vlan_rollback(300);
    expect_log("Client(unit) ROLLBACK-VLAN[300].\nClient(unit) ROLLBACK-VLAN-SET.\n", "VLAN_EVENT_DESTROY_RANGE");
    bridge_client_vlanset_rollback(&set);
    expect_log("Client(unit) ROLLBACK-VLAN-SET.\n", "VLAN_EVENT_DESTROY_RANGE");
    vl_clnt_set_native_vlan(7, 300);
    expect_log("Client(unit) set native vlan 300 on port 7.\n", "VLAN_EVENT_MODIFY_INTF_PVID");
    vl_clnt_add_dyn_member(7, 300);
    expect_log("Client(unit) add dynamic member port 7 to vlan 300.\n", "VLAN_EVENT_SET_ADD_DYN_INTF");
    vl_clnt_del_dyn_member(7, 300);
    expect_log("Client(unit) delete dynamic member port 7 from vlan 300.\n", "VLAN_EVENT_SET_DEL_DYN_INTF");
    vl_clnt_dyn_member_add_rang(7, &set);
    expect_log("Client(unit) add dynamic member port 7 to a vlan set.\n", "VLAN_EVENT_DYN_MEM_ADD_RANG");
    vl_clnt_dyn_member_del_rang(7, &set);
    expect_log("Client(unit) delete dynamic member port 7 from a vlan set.\n", "VLAN_EVENT_DYN_MEM_DEL_RANG");
    vl_clnt_swport_add_allow_vlanset(7, &set);
    expect_log("Client(unit) add allowed vlan set to port 7.\n", "VLAN_EVENT_SP_ADD_ALLOW_VLAN");
    vl_clnt_swport_rmv_allow_vlanset(7, &set);
    expect_log("Client(unit) remove allowed vlan set from port 7.\n", "VLAN_EVENT_SP_RMV_ALLOW_VLAN");
    vl_clnt_swport_rmv_sub_if_vlanset(7, &set);
    expect_log("Client(unit) remove sub-interface vlan set from port 7.\n", "VLAN_EVENT_SP_RMV_SUB_IF_VLAN");
    vl_clnt_notify_set_vswpt_num(table, table);
    expect_log("Client(unit) set vswpt numbers.\n", "VLAN_EVENT_SET_VSWPT_NUM");
    vl_clnt_set_bri_dyn_member(VLAN_EVENT_SET_ADD_DYN_INTF, 7, 300);
    expect_log("", "VLAN_EVENT_SET_ADD_DYN_INTF");
}

TEST_F(VlanRequest, set_reply_log_shows_the_first_line_of_the_failed_set) {
    debug_on({BRI_DBG_VLAN});
    vl_vlanset_reply reply{};
    for (unsigned vid = 2; vid <= 60; vid += 2)
        add_to(reply.failed, vid);
    bridge_client_vlanset_reply(&reply);
    EXPECT_EQ(log_text(), "Client(unit) vlan range reply all success.\n"
                          "Send msg type(VLAN_EVENT_CREATE_RANGE_PREJ) to bridge, ret = 0.\n");
    clear_log();
    reply.failure = 2;
    bridge_client_vlanset_reply(&reply);
    EXPECT_EQ(log_text(), "Client(unit) vlan range reply fail map "
                          "2,4,6,8,10,12,14,16,18,20,22,24,26,28,30,32,34,36,38,40...\n"
                          "Send msg type(VLAN_EVENT_CREATE_RANGE_PREJ) to bridge, ret = 0.\n");
    for (const LogLine &line : log_lines())
        expect_vlan_log(line.text);
    clear_log();
    reply.failed = set_of({0, 7});
    bridge_client_vlanset_reply(&reply);
    EXPECT_TRUE(logged("Client(unit) vlan range reply fail map 7...\n"));
    reply.failed = {};
    bridge_client_vlanset_reply(&reply);
    EXPECT_TRUE(logged("Client(unit) vlan range reply fail map ...\n"));
}

TEST_F(VlanRequest, refused_request_logs_its_announcement_alone) {
    debug_on({BRI_DBG_VLAN});
    vl_clnt_create_vlan_entry(4095);
    vl_clnt_delete_vlan_entry(300);
    vl_clnt_add_dyn_member(7, 300);
    vl_clnt_del_dyn_member(7, 300);
    bridge_client_vlan_rollback(4096);
    bridge_client_vlanset_rollback(nullptr);
    vl_clnt_notify_set_vswpt_num(nullptr, nullptr);
    EXPECT_EQ(log_text(), "Client(unit) create vlan 4095.\n"
                          "Client(unit) delete vlan 300.\n"
                          "Client(unit) add dynamic member port 7 to vlan 300.\n"
                          "Client(unit) delete dynamic member port 7 from vlan 300.\n"
                          "Client(unit) ROLLBACK-VLAN[4096].\n"
                          "Client(unit) ROLLBACK-VLAN-SET.\n"
                          "Client(unit) set vswpt numbers.\n");
}

TEST_F(VlanRequest, nothing_is_logged_with_the_flag_off) {
    const vlanset set = any_set();
    const vl_vlanset_reply refusal{set, 1};
    const vl_vlanset_reply acceptance{};
    const uint32_t accept = 0;
    const uint32_t refuse = 1;
    const uint8_t table[512] = {};
    add_port(7, BRI_PORT_TRUNK);
    add_vlan(300);
    vl_clnt_create_vlan_entry(300);
    vl_clnt_delete_vlan_entry(300);
    bridge_client_vlan_reply(&accept);
    bridge_client_vlan_reply(&refuse);
    bridge_client_vlanset_reply(&refusal);
    bridge_client_vlanset_reply(&acceptance);
    bridge_client_vlan_rollback(300);
    bridge_client_vlanset_rollback(&set);
    vl_clnt_set_native_vlan(7, 300);
    vl_clnt_add_dyn_member(7, 300);
    vl_clnt_del_dyn_member(7, 300);
    for (const SetRequest &request : kSetRequests) {
        request.call(7, &set);
        request.call(7, nullptr);
    }
    vl_clnt_set_trill_vswpt_num(table, table);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MappedVlanTest, request_without_a_connection_fails_and_is_logged) {
    debug_on({BRI_DBG_VLAN});
    add_vlan(300);
    add_port(7, BRI_PORT_TRUNK);
    clear_log();
    EXPECT_EQ(vl_clnt_create_vlan_entry(300), -1);
    EXPECT_EQ(log_text(), "Client(unit) create vlan 300.\n"
                          "Send msg type(VLAN_EVENT_CREATE_INDEX) to bridge, ret = -1.\n");
    const vlanset set = set_of({1});
    const uint8_t table[512] = {};
    EXPECT_EQ(vl_clnt_delete_vlan_entry(300), -1);
    EXPECT_EQ(vl_clnt_add_dyn_member(7, 300), -1);
    EXPECT_EQ(vl_clnt_del_dyn_member(7, 300), -1);
    for (const SetRequest &request : kSetRequests)
        EXPECT_EQ(request.call(7, &set), -1) << request.type;
    EXPECT_EQ(vl_clnt_set_trill_vswpt_num(table, table), 0);
    EXPECT_EQ(vl_clnt_set_bri_dyn_member(VLAN_EVENT_SET_ADD_DYN_INTF, 7, 300), -1);
}

TEST_F(MappedVlanTest, reply_and_rollback_without_a_connection_fail_and_are_logged) {
    debug_on({BRI_DBG_VLAN});
    const uint32_t result = 0;
    const vl_vlanset_reply reply{};
    bridge_client_vlan_reply(&result);
    bridge_client_vlanset_reply(&reply);
    bridge_client_vlan_rollback(300);
    vl_clnt_set_native_vlan(7, 300);
    EXPECT_EQ(times_logged("Send msg type(VLAN_EVENT_CREATE_PREJ) to bridge, ret = -1.\n"), 1);
    EXPECT_EQ(times_logged("Send msg type(VLAN_EVENT_CREATE_RANGE_PREJ) to bridge, ret = -1.\n"), 1);
    EXPECT_EQ(times_logged("Send msg type(VLAN_EVENT_DESTROY_RANGE) to bridge, ret = -1.\n"), 1);
    EXPECT_EQ(times_logged("Send msg type(VLAN_EVENT_MODIFY_INTF_PVID) to bridge, ret = -1.\n"), 1);
}

TEST_F(VlanTest, requests_before_the_start_are_refused_or_fail) {
    g_bridge_client = nullptr;
    const uint32_t result = 0;
    const vl_vlanset_reply reply{};
    const vlanset set{};
    EXPECT_EQ(vl_clnt_create_vlan_entry(300), 0);
    EXPECT_EQ(vl_clnt_delete_vlan_entry(300), 0);
    EXPECT_EQ(vl_clnt_add_dyn_member(7, 300), 0);
    EXPECT_EQ(vl_clnt_del_dyn_member(7, 300), 0);
    EXPECT_EQ(vl_clnt_dyn_member_add_rang(7, &set), -1);
    bridge_client_vlan_reply(&result);
    bridge_client_vlanset_reply(&reply);
    bridge_client_vlan_rollback(300);
    vl_clnt_set_native_vlan(7, 300);
}

TEST_F(VlanTest, request_log_before_the_start_has_no_name) {
    debug_on({BRI_DBG_VLAN});
    vl_clnt_create_vlan_entry(300);
    EXPECT_EQ(log_text(), "Client() create vlan 300.\n");
}

} // namespace
