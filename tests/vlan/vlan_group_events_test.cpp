#include "tests/support/host.h"
#include "tests/vlan/vlan_group_fixture.h"

namespace {

using namespace test;

class VlanGroupEvents : public UnmappedVlanGroups {};

struct GroupMessage {
    bri_msg_hdr header;
    uint8_t payload[12];
};

std::string name_logged_for(uint32_t type) {
    clear_log();
    GroupMessage message{{type, 12}, {}};
    bridge_vlan_group_lib_dispose_msg(&message.header);
    for (const LogLine &line : log_lines())
        if (line.format == "vg lib recv msg: event %s, msg len %d.\n") {
            const std::string text = line.text.substr(std::strlen("vg lib recv msg: event "));
            return text.substr(0, text.find(','));
        }
    return {};
}

TEST_F(VlanGroupEvents, each_type_is_logged_by_its_name) {
    debug_on({BRI_DBG_MSG});
    const std::pair<uint32_t, const char *> names[] = {
        {1024, "unknow type"},
        {1025, "VG_EVENT_POLICY_ENTRY"},
        {1026, "VG_EVENT_MEM_VLAN"},
        {1027, "VG_EVENT_DEFAULT_VLAN"},
        {1028, "VG_EVENT_VLAN_MODE"},
        {1029, "VG_EVENT_DHCP_VLAN_STATUS"},
        {1030, "VG_EVENT_MAC_VLAN_CHANGE"},
        {1031, "VG_EVENT_GET_VLAN_BY_VGID"},
        {1032, "unknow type"},
        {1033, "VG_EVENT_SYNC_DATA_BEGIN"},
        {1034, "VG_EVENT_SYNC_DATA_END"},
        {1035, "unknow type"},
        {0, "unknow type"},
        {0xFFFFFFFF, "unknow type"},
    };
    for (const auto &[type, name] : names)
        EXPECT_EQ(name_logged_for(type), name) << type;
}

TEST_F(VlanGroupEvents, line_has_the_length_and_the_category_of_the_client) {
    debug_on({BRI_DBG_MSG});
    GroupMessage message{{VG_EVENT_MEM_VLAN, 12}, {}};
    bridge_vlan_group_lib_dispose_msg(&message.header);
    const LogLine line = log_line("vg lib recv msg: event VG_EVENT_MEM_VLAN, msg len 12.\n");
    EXPECT_EQ(line.category(), kClientLine);
}

TEST_F(VlanGroupEvents, no_line_while_the_flag_is_off) {
    debug_on({BRI_DBG_VLAN});
    GroupMessage message{{VG_EVENT_MEM_VLAN, 12}, {}};
    bridge_vlan_group_lib_dispose_msg(&message.header);
    EXPECT_EQ(times_logged("vg lib recv msg: event VG_EVENT_MEM_VLAN, msg len 12.\n"), 0);
}

TEST_F(VlanGroupEvents, message_may_lie_unaligned) {
    debug_on({BRI_DBG_MSG});
    alignas(8) uint8_t bytes[32] = {};
    for (size_t shift = 0; shift < 4; ++shift) {
        clear_log();
        put_at<uint32_t>(bytes, shift, VG_EVENT_MEM_VLAN);
        put_at<uint32_t>(bytes, shift + 4, 3);
        bridge_vlan_group_lib_dispose_msg(reinterpret_cast<bri_msg_hdr *>(bytes + shift));
        EXPECT_EQ(times_logged("vg lib recv msg: event VG_EVENT_MEM_VLAN, msg len 3.\n"), 1) << shift;
    }
}

TEST_F(VlanGroupEvents, no_message_is_nothing) {
    debug_on({BRI_DBG_MSG});
    bridge_vlan_group_lib_dispose_msg(nullptr);
    EXPECT_TRUE(log_lines().empty());
}

class VlanGroupHandlers : public Host {};

// The unnamed 1032 and types of other submodules among them: nothing is checked.
TEST_F(VlanGroupHandlers, get_type_payload_and_length_of_every_message) {
    const ByteVec payload{1, 2, 3, 4, 5};
    for (const uint32_t type : {1025U, 1026U, 1027U, 1028U, 1029U, 1030U, 1031U, 1032U, 1033U, 1034U, 1151U}) {
        watch({type});
        events().clear();
        deliver(bridge_vlan_group_lib_dispose_msg, type, payload);
        ASSERT_EQ(events().size(), 1U) << type;
        EXPECT_EQ(events()[0].type, type);
        EXPECT_EQ(events()[0].payload, payload);
        EXPECT_EQ(events()[0].len, 5);
    }
}

TEST_F(VlanGroupHandlers, are_called_when_the_line_is_written) {
    watch({VG_EVENT_MEM_VLAN});
    debug_on({BRI_DBG_MSG});
    std::string at_handler;
    during = [&](uint32_t) { at_handler = log_text(); };
    deliver(bridge_vlan_group_lib_dispose_msg, VG_EVENT_MEM_VLAN, {1, 2, 3});
    during = nullptr;
    EXPECT_EQ(at_handler, "vg lib recv msg: event VG_EVENT_MEM_VLAN, msg len 3.\n");
}

TEST_F(VlanGroupHandlers, get_messages_without_a_payload) {
    watch({VG_EVENT_SYNC_DATA_END});
    events().clear();
    deliver(bridge_vlan_group_lib_dispose_msg, VG_EVENT_SYNC_DATA_END);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0].len, 0);
}

} // namespace
