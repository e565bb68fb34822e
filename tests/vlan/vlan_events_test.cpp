// Start of the VLAN client, and what becomes of each message of the VLAN submodule.
#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test;

TEST_F(VlanTest, start_maps_both_databases_and_keeps_the_name) {
    char *name = vl_clnt_manage_init(g_bridge_client);
    ASSERT_NE(name, nullptr);
    EXPECT_STREQ(name, "unit");
    EXPECT_NE(name, g_bridge_client->name);
    EXPECT_NE(g_vl_mng.entries, nullptr);
    EXPECT_NE(swport_get_raw_spcb(1), nullptr);
}

TEST_F(VlanTest, start_keeps_at_most_19_characters_of_the_name) {
    std::memset(g_bridge_client->name, 'x', sizeof g_bridge_client->name);
    EXPECT_EQ(vl_clnt_manage_init(g_bridge_client), std::string(19, 'x'));
}

TEST_F(VlanTest, start_without_a_client_fails) {
    EXPECT_EQ(vl_clnt_manage_init(nullptr), nullptr);
    EXPECT_EQ(g_vl_mng.entries, nullptr);
}

TEST_F(VlanTest, start_fails_without_the_port_database) {
    debug_on({BRI_DBG_VLAN});
    faults::fail("shmget", 1, ENOSPC, 100);
    EXPECT_EQ(vl_clnt_manage_init(g_bridge_client), nullptr);
    expect_vlan_log("Init bridge portdb failed.\n");
    EXPECT_FALSE(logged("Bridge module, vlandb-init failed.\n"));
}

// The next start maps the port database and fails at the VLAN database.
void fail_vlan_database() {
    ASSERT_EQ(bridge_portdb_init(), 1);
    faults::clear();
    ASSERT_EQ(bridge_portdb_init(), 1); // the segment is there now: so many calls attach to it
    const int calls = faults::calls("shmget");
    faults::clear();
    faults::fail("shmget", calls + 1, ENOSPC, 100);
}

TEST_F(VlanTest, start_fails_without_the_vlan_database) {
    fail_vlan_database();
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_clnt_manage_init(g_bridge_client), nullptr);
    expect_vlan_log("Bridge module, vlandb-init failed.\n");
    EXPECT_FALSE(logged("Init bridge portdb failed.\n"));
}

TEST_F(VlanTest, failed_start_is_silent_with_the_flag_off) {
    faults::fail("shmget", 1, ENOSPC, 100);
    EXPECT_EQ(vl_clnt_manage_init(g_bridge_client), nullptr);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlanTest, start_that_fails_at_the_vlan_database_is_silent_with_the_flag_off) {
    fail_vlan_database();
    EXPECT_EQ(vl_clnt_manage_init(g_bridge_client), nullptr);
    EXPECT_NE(swport_get_raw_spcb(1), nullptr);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlanTest, failed_start_keeps_no_name) {
    faults::fail("shmget", 1, ENOSPC, 100);
    EXPECT_EQ(vl_clnt_manage_init(g_bridge_client), nullptr);
    debug_on({BRI_DBG_VLAN});
    vl_clnt_create_vlan_entry(300);
    EXPECT_EQ(log_text(), "Client() create vlan 300.\n");
}

class VlanMessage : public MappedVlanTest {
  protected:
    void SetUp() override {
        MappedVlanTest::SetUp();
        watch_all();
    }
    static RawMessage single(uint32_t type, uint16_t vid, uint16_t version, size_t len = sizeof(vl_evt_vlan_rec)) {
        RawMessage message(type, len);
        message.with<uint16_t>(0, vid).with<uint16_t>(2, version);
        return message;
    }
};

TEST_F(VlanMessage, null_gives_minus_1) {
    EXPECT_EQ(vl_clnt_on_server_msg(nullptr), -1);
    EXPECT_TRUE(events().empty());
}

TEST_F(VlanMessage, fresh_create_reaches_the_handlers_as_it_came) {
    RawMessage message = single(VLAN_EVENT_CREATE_INDEX, 100, 3);
    std::memset(message.payload() + 4, 0xC3, 52);
    const ByteVec sent(message.payload(), message.payload() + 56);
    EXPECT_EQ(message.deliver(), 0);
    ASSERT_EQ(events().size(), 1U);
    expect_event(events()[0], VLAN_EVENT_CREATE_INDEX, sent);
    EXPECT_EQ(g_vlan_private_version[100], 3);
}

TEST_F(VlanMessage, late_create_gives_0_and_reaches_nobody) {
    g_vlan_private_version[100] = 3;
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(single(VLAN_EVENT_CREATE_INDEX, 100, 3).deliver(), 0);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(log_text(), "VLAN-Create msg is LATE, Drop.\n");
}

TEST_F(VlanMessage, destroy_of_the_known_version_reaches_the_handlers) {
    g_vlan_private_version[100] = 3;
    EXPECT_EQ(single(VLAN_EVENT_DESTROY_INDEX, 100, 3).deliver(), 0);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0].type, VLAN_EVENT_DESTROY_INDEX);
    EXPECT_EQ(g_vlan_private_version[100], 3);
}

TEST_F(VlanMessage, late_destroy_reaches_nobody) {
    g_vlan_private_version[100] = 3;
    EXPECT_EQ(single(VLAN_EVENT_DESTROY_INDEX, 100, 2).deliver(), 0);
    EXPECT_TRUE(events().empty());
}

TEST_F(VlanMessage, single_event_needs_the_4_bytes_that_are_checked) {
    for (const uint32_t type : {VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX}) {
        events().clear();
        clear_log();
        g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
        EXPECT_EQ(single(type, 100, 3, 4).deliver(), 0);
        EXPECT_EQ(events().size(), 1U);
        g_vlan_private_version[100] = 0;
        for (size_t len = 0; len < 4; ++len) {
            debug_on({BRI_DBG_VLAN});
            EXPECT_EQ(RawMessage(type, len).deliver(), 0);
            EXPECT_EQ(log_lines().size(), 1U);
            expect_vlan_log(std::string("VLAN msg type(") + bri_msg_type_name(type) + ") is too short, len(" +
                            std::to_string(len) + "), Drop.\n");
            clear_log();
        }
        EXPECT_EQ(events().size(), 1U);
    }
}

TEST_F(VlanMessage, range_create_passes_on_only_fresh_bits) {
    g_vlan_private_version[40] = 9;
    RawMessage message(VLAN_EVENT_CREATE_RANGE, sizeof(vl_evt_vlanset_rec));
    message.with<uint32_t>(4, 0x300).with<uint16_t>(512 + 2 * 40, 9).with<uint16_t>(512 + 2 * 41, 1);
    EXPECT_EQ(message.deliver(), 0);
    ASSERT_EQ(events().size(), 1U);
    ByteVec expected(8708);
    put_at<uint32_t>(expected.data(), 4, 0x200);
    put_at<uint16_t>(expected.data(), 512 + 2 * 40, 9);
    put_at<uint16_t>(expected.data(), 512 + 2 * 41, 1);
    expect_event(events()[0], VLAN_EVENT_CREATE_RANGE, expected);
}

TEST_F(VlanMessage, range_create_with_every_vlan_late_reaches_nobody) {
    RawMessage message(VLAN_EVENT_CREATE_RANGE, sizeof(vl_evt_vlanset_rec));
    message.with<uint32_t>(4, 0x300);
    EXPECT_EQ(message.deliver(), 0);
    EXPECT_TRUE(events().empty());
}

TEST_F(VlanMessage, range_destroy_passes_on_only_current_bits) {
    g_vlan_private_version[40] = 9;
    RawMessage message(VLAN_EVENT_DESTROY_RANGE, sizeof(vl_evt_vlanset_rec));
    message.with<uint32_t>(4, 0x300).with<uint16_t>(512 + 2 * 40, 8);
    EXPECT_EQ(message.deliver(), 0);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0].type, VLAN_EVENT_DESTROY_RANGE);
    EXPECT_EQ(value_at<uint32_t>(events()[0].payload.data(), 4), 0x200U);
}

TEST_F(VlanMessage, range_payload_longer_than_the_record_is_passed_on_whole) {
    RawMessage message(VLAN_EVENT_DESTROY_RANGE, sizeof(vl_evt_vlanset_rec) + 3);
    message.with<uint32_t>(4, 0x300).with<uint8_t>(8710, 0x77);
    EXPECT_EQ(message.deliver(), 0);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0].payload.size(), 8711U);
    EXPECT_EQ(events()[0].payload[8710], 0x77);
}

TEST_F(VlanMessage, range_payload_shorter_than_the_record_is_dropped_unread) {
    debug_on({BRI_DBG_VLAN});
    for (const uint32_t type : {VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_DESTROY_RANGE})
        for (const size_t len : {size_t{0}, size_t{512}, size_t{8704}, size_t{8707}}) {
            clear_log();
            RawMessage message(type, len);
            std::memset(message.payload(), 0xFF, len);
            EXPECT_EQ(message.deliver(), 0);
            EXPECT_EQ(log_lines().size(), 1U);
            expect_vlan_log(std::string("VLAN msg type(") + bri_msg_type_name(type) + ") is too short, len(" +
                            std::to_string(len) + "), Drop.\n");
            for (size_t at = 0; at < len; ++at)
                ASSERT_EQ(message.payload()[at], 0xFF);
        }
    EXPECT_TRUE(events().empty());
    for (const uint16_t version : g_vlan_private_version)
        ASSERT_EQ(version, 0);
}

TEST_F(VlanMessage, messages_at_every_address_are_handled) {
    ByteVec buffer(8 + sizeof(bri_msg_hdr) + sizeof(vl_evt_vlanset_rec));
    for (size_t shift = 0; shift < 8; ++shift) {
        uint8_t *bytes = buffer.data() + shift;
        put_at<uint32_t>(bytes, 0, VLAN_EVENT_CREATE_RANGE);
        put_at<uint32_t>(bytes, 4, sizeof(vl_evt_vlanset_rec));
        put_at<uint32_t>(bytes, 8 + 4, 2);
        put_at<uint16_t>(bytes, 8 + 512 + 2 * 33, static_cast<uint16_t>(shift + 1));
        EXPECT_EQ(vl_clnt_on_server_msg(reinterpret_cast<bri_msg_hdr *>(bytes)), 0);
        EXPECT_EQ(g_vlan_private_version[33], shift + 1);
    }
    EXPECT_EQ(events().size(), 8U);
}

// Types without a version and without a special treatment, in and outside the submodule's names.
TEST_F(VlanMessage, every_other_type_reaches_the_handlers_unchanged) {
    for (uint32_t type = 385; type <= 511; ++type) {
        if (type >= 387 && type <= 390)
            continue;
        events().clear();
        RawMessage message(type, 5);
        message.with<uint32_t>(1, type);
        EXPECT_EQ(message.deliver(), 0);
        const bool internal = type == VLAN_EVENT_SVI_MODIFY_UP_NUM || type == VLAN_EVENT_SET_ADD_DYN_INTF ||
                              type == VLAN_EVENT_SET_DEL_DYN_INTF;
        ASSERT_EQ(events().size(), internal ? 0U : 1U) << type;
        if (!internal) {
            expect_event(events()[0], type, ByteVec(message.payload(), message.payload() + 5));
        }
    }
}

TEST_F(VlanMessage, notified_event_is_logged) {
    debug_on({BRI_DBG_VLAN});
    RawMessage(VLAN_EVENT_DEFAULT_INTF, 0).deliver();
    EXPECT_EQ(log_text(), "Ready to notify event, type(VLAN_EVENT_DEFAULT_INTF), event(400).\n");
    expect_vlan_log("Ready to notify event, type(VLAN_EVENT_DEFAULT_INTF), event(400).\n");
    EXPECT_EQ(events().size(), 1U);
    EXPECT_TRUE(events()[0].payload.empty());
}

TEST_F(VlanMessage, event_is_logged_before_it_reaches_the_handlers) {
    debug_on({BRI_DBG_VLAN});
    std::string at_handler;
    during = [&](uint32_t) { at_handler = log_text(); };
    RawMessage(VLAN_EVENT_DEFAULT_INTF, 0).deliver();
    during = nullptr;
    EXPECT_EQ(at_handler, "Ready to notify event, type(VLAN_EVENT_DEFAULT_INTF), event(400).\n");
}

TEST_F(VlanMessage, internal_types_are_logged_and_never_passed_on) {
    debug_on({BRI_DBG_VLAN});
    struct Row {
        uint32_t type;
        const char *text;
    };
    for (const Row &row :
         {Row{VLAN_EVENT_SVI_MODIFY_UP_NUM, "Ready to notify event, type(VLAN_EVENT_SVI_MODIFY_UP_NUM), event(412).\n"
                                            "The event(412) needn't notify.\n"},
          Row{VLAN_EVENT_SET_ADD_DYN_INTF, "Ready to notify event, type(VLAN_EVENT_SET_ADD_DYN_INTF), event(413).\n"
                                           "The event(413) needn't notify.\n"},
          Row{VLAN_EVENT_SET_DEL_DYN_INTF, "Ready to notify event, type(VLAN_EVENT_SET_DEL_DYN_INTF), event(414).\n"
                                           "The event(414) needn't notify.\n"},
          Row{DEBUG_EVENT_VLAN, "Ready to notify event, type(BRIDGE_UNKNOWN_TYPE), event(2177).\n"
                                "The event(2177) needn't notify.\n"}}) {
        clear_log();
        EXPECT_EQ(RawMessage(row.type, 8).deliver(), 0);
        EXPECT_EQ(log_text(), row.text);
        for (const LogLine &line : log_lines())
            EXPECT_EQ(line.category(), kVlanLine);
    }
    EXPECT_TRUE(events().empty());
}

TEST_F(VlanMessage, nothing_is_logged_with_the_flag_off) {
    RawMessage(VLAN_EVENT_DEFAULT_INTF, 0).deliver();
    RawMessage(VLAN_EVENT_SVI_MODIFY_UP_NUM, 0).deliver();
    RawMessage(VLAN_EVENT_CREATE_INDEX, 1).deliver();
    single(VLAN_EVENT_CREATE_INDEX, 100, 0).deliver();
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MappedVlanTest, versions_are_kept_also_for_an_event_that_nobody_wants) {
    EXPECT_EQ(RawMessage(VLAN_EVENT_CREATE_INDEX, 4).with<uint16_t>(0, 100).with<uint16_t>(2, 3).deliver(), 0);
    EXPECT_EQ(g_vlan_private_version[100], 3);
}

} // namespace
