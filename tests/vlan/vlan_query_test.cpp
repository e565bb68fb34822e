// VLAN questions over the shared tables.
#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test;

class VlanQuery : public MappedVlanTest {};

TEST_F(VlanQuery, exist_asks_for_the_vlan_and_its_mode) {
    add_vlan(10);
    add_vlan(11, BRI_VLAN_DYNAMIC);
    EXPECT_EQ(vl_clnt_exist(10, 0), 1);
    EXPECT_EQ(vl_clnt_exist(10, BRI_VLAN_STATIC), 1);
    EXPECT_EQ(vl_clnt_exist(10, BRI_VLAN_DYNAMIC), 0);
    EXPECT_EQ(vl_clnt_exist(11, BRI_VLAN_DYNAMIC), 1);
    EXPECT_EQ(vl_clnt_exist(12, 0), 0);
    EXPECT_EQ(vl_clnt_exist(0, 0), 0);
    EXPECT_EQ(vl_clnt_exist(4095, 0), 0);
}

TEST_F(VlanQuery, exist_tells_a_missed_create_first) {
    watch({VLAN_EVENT_CREATE_INDEX});
    add_vlan(10, BRI_VLAN_STATIC, {}, true);
    EXPECT_EQ(vl_clnt_exist(10, 0), 1);
    EXPECT_EQ(events().size(), 1U);
    EXPECT_EQ(vl_clnt_exist(10, 0), 1);
    EXPECT_EQ(events().size(), 1U);
}

int remove_10(uint32_t, void *, uint16_t) {
    vl_clear_vlan_entry(10);
    return 0;
}

TEST_F(VlanQuery, exist_and_mode_answer_from_the_table_behind_the_research) {
    listen({VLAN_EVENT_CREATE_INDEX}, remove_10);
    add_vlan(10, BRI_VLAN_STATIC, {}, true);
    EXPECT_EQ(vl_clnt_exist(10, 0), 0);
    add_vlan(10, BRI_VLAN_STATIC, {}, true);
    uint32_t mode = 99;
    EXPECT_EQ(vl_clnt_get_vlan_mode(10, &mode), -1);
    EXPECT_EQ(mode, 99U);
}

TEST_F(VlanQuery, vlan_mode_or_minus_1) {
    uint32_t mode = 99;
    add_vlan(10, BRI_VLAN_SUPER);
    EXPECT_EQ(vl_clnt_get_vlan_mode(10, &mode), 0);
    EXPECT_EQ(mode, 4U);
    EXPECT_EQ(vl_clnt_get_vlan_mode(11, &mode), -1);
    EXPECT_EQ(vl_clnt_get_vlan_mode(10, nullptr), -1);
}

TEST_F(VlanQuery, vlan_mode_tells_a_missed_create_first_also_without_an_out_pointer) {
    watch({VLAN_EVENT_CREATE_INDEX});
    add_vlan(10, BRI_VLAN_STATIC, {}, true);
    add_vlan(11, BRI_VLAN_STATIC, {}, true);
    uint32_t mode = 0;
    EXPECT_EQ(vl_clnt_get_vlan_mode(10, &mode), 0);
    EXPECT_EQ(vl_clnt_get_vlan_mode(11, nullptr), -1);
    EXPECT_EQ(events().size(), 2U);
}

// The other questions answer from the database alone.
TEST_F(VlanQuery, no_other_question_researches) {
    watch({VLAN_EVENT_CREATE_INDEX});
    add_vlan(10, BRI_VLAN_STATIC, {3}, true);
    add_port(3, BRI_PORT_TRUNK);
    uint32_t value = 0;
    uint16_t pvid = 0;
    vlanset set{};
    char name[36] = {};
    vl_clnt_get_member_info(10, 3, &value);
    vl_clnt_get_enable_vlans(3, &set);
    vl_clnt_get_vlan_name(10, name, sizeof name);
    vl_clnt_get_vlan_port_cnt(10, &value);
    vl_clnt_get_port_default_vid(3, &pvid);
    vl_clnt_is_supervlan(10);
    vl_clnt_is_subvlan(10);
    vl_clnt_get_manage_vid(10);
    vl_clnt_get_svifx_from_vid(10);
    EXPECT_TRUE(events().empty());
}

TEST_F(VlanQuery, port_block_of_a_present_port) {
    spcb &port = add_port(3, BRI_PORT_TRUNK);
    EXPECT_EQ(vl_clnt_ifindex_to_spcb(3), &port);
    for (const int32_t ifx : {-1, 0, 4, 64, INT32_MAX, INT32_MIN})
        EXPECT_EQ(vl_clnt_ifindex_to_spcb(ifx), nullptr) << ifx;
}

TEST_F(VlanQuery, interface_indexes_1_to_63_are_valid) {
    for (int32_t ifx = -2; ifx <= 70; ++ifx)
        EXPECT_EQ(vl_clnt_check_ifindex_valid(ifx), ifx >= 1 && ifx <= 63 ? 1 : 0) << ifx;
}

TEST_F(VlanQuery, allowed_vlans_of_a_port) {
    add_port(3, BRI_PORT_TRUNK).allow_vlan = set_of({10, 4094});
    EXPECT_EQ(vl_clnt_is_allowvlan_mem(10, 3), 0);
    EXPECT_EQ(vl_clnt_is_allowvlan_mem(4094, 3), 0);
    EXPECT_EQ(vl_clnt_is_allowvlan_mem(11, 3), -2);
    EXPECT_EQ(vl_clnt_is_allowvlan_mem(10, 4), -2);
    EXPECT_EQ(vl_clnt_is_allowvlan_mem(10, 64), -2);
    EXPECT_EQ(vl_clnt_is_allowvlan_mem(65535, 3), -2);
}

TEST_F(VlanQuery, nobody_is_a_dynamic_member) {
    add_vlan(10, BRI_VLAN_DYNAMIC, {3});
    add_port(3, BRI_PORT_TRUNK);
    EXPECT_EQ(vl_clnt_if_is_dyn_member(3, 10), -2);
    EXPECT_EQ(vl_clnt_if_is_dyn_member(64, 10), -2);
}

TEST_F(VlanQuery, super_vlans_and_sub_vlans) {
    add_vlan(10, BRI_VLAN_SUPER);
    add_vlan(11, BRI_VLAN_SUPER).manage_vid = 10;
    add_vlan(12);
    EXPECT_EQ(vl_clnt_is_supervlan(10), 1);
    EXPECT_EQ(vl_clnt_is_subvlan(10), 0);
    EXPECT_EQ(vl_clnt_is_supervlan(11), 0);
    EXPECT_EQ(vl_clnt_is_subvlan(11), 1);
    EXPECT_EQ(vl_clnt_is_supervlan(12), 0);
    EXPECT_EQ(vl_clnt_is_subvlan(12), 0);
    EXPECT_EQ(vl_clnt_is_supervlan(13), 0);
    EXPECT_EQ(vl_clnt_get_manage_vid(11), 10);
    EXPECT_EQ(vl_clnt_get_manage_vid(12), 12);
    EXPECT_EQ(vl_clnt_get_manage_vid(13), 13);
}

TEST_F(VlanQuery, routed_interface_of_a_vlan_and_back) {
    add_vlan(10);
    vl_set_svi(10, 4099);
    EXPECT_EQ(vl_clnt_get_svifx_from_vid(10), 4099U);
    EXPECT_EQ(vl_clnt_get_svifx_from_vid(11), 0U);
    EXPECT_EQ(vl_clnt_get_vid_from_svifx(4099), 10);
    EXPECT_EQ(vl_clnt_get_vid_from_svifx(4100), 0);
    EXPECT_EQ(vl_clnt_get_vid_from_svifx(0), 0);
    vl_set_svi(10, 0);
    EXPECT_EQ(vl_clnt_get_vid_from_svifx(4099), 0); // nothing is kept from the search before
}

TEST_F(VlanQuery, search_for_a_routed_interface_is_logged) {
    vl_clnt_get_vid_from_svifx(4099);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    vl_clnt_get_vid_from_svifx(4294967295U);
    expect_vlan_log("vl client get vid_from svi_ifx: 4294967295.\n");
}

TEST_F(VlanQuery, port_count_counts_present_members) {
    add_vlan(10, BRI_VLAN_STATIC, {1, 2, 63});
    add_port(1, BRI_PORT_TRUNK);
    add_port(63, BRI_PORT_TRUNK);
    uint32_t count = 99;
    EXPECT_EQ(vl_clnt_get_vlan_port_cnt(10, &count), 0);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(vl_clnt_get_vlan_port_cnt(11, &count), 0);
    EXPECT_EQ(count, 0U);
}

TEST_F(VlanQuery, port_count_without_an_out_pointer) {
    EXPECT_EQ(vl_clnt_get_vlan_port_cnt(10, nullptr), -1);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_clnt_get_vlan_port_cnt(10, nullptr), -1);
    expect_vlan_log("Input parameter error, count is NULL.\n");
}

TEST_F(VlanQuery, native_vlan_of_a_port) {
    add_port(3, BRI_PORT_TRUNK, 77);
    add_port(4, BRI_PORT_TRUNK, 0);
    uint16_t vid = 99;
    EXPECT_EQ(vl_clnt_get_port_default_vid(3, &vid), 0);
    EXPECT_EQ(vid, 77);
    EXPECT_EQ(vl_clnt_get_port_default_vid(4, &vid), -9);
    EXPECT_EQ(vid, 0);
    EXPECT_EQ(vl_clnt_get_port_default_vid(5, &vid), -9);
    EXPECT_EQ(vl_clnt_get_port_default_vid(3, nullptr), -1);
}

TEST_F(VlanQuery, mode_of_a_port) {
    add_port(3, BRI_PORT_HYBRID);
    uint32_t mode = 99;
    EXPECT_EQ(vl_clnt_get_portmode_by_index(3, &mode), 0);
    EXPECT_EQ(mode, 7U);
    EXPECT_EQ(vl_clnt_get_portmode_by_index(3, nullptr), -1);
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_clnt_get_portmode_by_index(4, &mode), -9);
    EXPECT_EQ(mode, 7U);
    EXPECT_EQ(log_text(), "Input parameter error, swport isn't exist, ifx(4).\n");
    expect_vlan_log("Input parameter error, swport isn't exist, ifx(4).\n");
}

TEST_F(VlanQuery, missing_port_is_silent_with_the_flag_off) {
    uint32_t mode = 0;
    EXPECT_EQ(vl_clnt_get_portmode_by_index(4, &mode), -9);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlanQuery, member_info_is_the_tag_rule) {
    add_vlan(10, BRI_VLAN_STATIC, {3, 4});
    add_vlan(11, BRI_VLAN_STATIC, {3});
    add_port(3, BRI_PORT_TRUNK, 10);
    add_port(4, BRI_PORT_UPLINK, 10);
    uint32_t tag = 99;
    EXPECT_EQ(vl_clnt_get_member_info(10, 3, &tag), 0);
    EXPECT_EQ(tag, 3U);
    EXPECT_EQ(vl_clnt_get_member_info(11, 3, &tag), 0);
    EXPECT_EQ(tag, 4U);
    EXPECT_EQ(vl_clnt_get_member_info(10, 4, &tag), 0);
    EXPECT_EQ(tag, 4U);
}

TEST_F(VlanQuery, member_info_is_1_for_every_obstacle) {
    add_vlan(10, BRI_VLAN_STATIC, {5});
    add_vlan(11, BRI_VLAN_SUPER, {3});
    add_vlan(12, BRI_VLAN_SUPER, {3}).manage_vid = 11;
    add_port(3, BRI_PORT_TRUNK, 1);
    struct Row {
        uint16_t vid;
        int32_t ifx;
        uint32_t tag;
    };
    for (const Row &row : {Row{10, 5, 1}, Row{10, 64, 1}, Row{10, 3, 1}, Row{11, 3, 1}, Row{12, 3, 4}, Row{13, 3, 1}}) {
        uint32_t tag = 99;
        EXPECT_EQ(vl_clnt_get_member_info(row.vid, row.ifx, &tag), 0);
        EXPECT_EQ(tag, row.tag) << row.vid << " " << row.ifx;
    }
}

TEST_F(VlanQuery, member_info_logs_a_missing_vlan_and_a_null_pointer) {
    add_port(3, BRI_PORT_TRUNK, 1);
    uint32_t tag = 0;
    EXPECT_EQ(vl_clnt_get_member_info(13, 3, nullptr), -1);
    vl_clnt_get_member_info(13, 3, &tag);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    vl_clnt_get_member_info(13, 3, &tag);
    EXPECT_EQ(vl_clnt_get_member_info(13, 3, nullptr), -1);
    EXPECT_EQ(log_text(), "Input parameter error, vlan(13) isn't exist.\n"
                          "Input parameter error, action is NULL.\n");
    expect_vlan_log("Input parameter error, vlan(13) isn't exist.\n");
    expect_vlan_log("Input parameter error, action is NULL.\n");
}

TEST_F(VlanQuery, enabled_vlans_are_those_of_which_the_port_is_a_member) {
    for (const uint16_t vid : {uint16_t{1}, uint16_t{10}, uint16_t{4094}})
        add_vlan(vid, BRI_VLAN_STATIC, {3});
    add_vlan(11, BRI_VLAN_SUPER, {3});
    add_vlan(12, BRI_VLAN_STATIC, {4});
    add_port(3, BRI_PORT_TRUNK, 1);
    vlanset set;
    std::memset(&set, 0xFF, sizeof set);
    EXPECT_EQ(vl_clnt_get_enable_vlans(3, &set), 0);
    const vlanset expected = set_of({1, 10, 4094});
    EXPECT_EQ(std::memcmp(&set, &expected, sizeof set), 0);
    EXPECT_TRUE(log_lines().empty()); // with the flag off
}

TEST_F(VlanQuery, enabled_vlans_of_a_tagged_member_of_one) {
    add_vlan(10, BRI_VLAN_STATIC, {3});
    add_port(3, BRI_PORT_UPLINK, 1);
    vlanset set;
    EXPECT_EQ(vl_clnt_get_enable_vlans(3, &set), 0);
    const vlanset expected = set_of({10});
    EXPECT_EQ(std::memcmp(&set, &expected, sizeof set), 0);
}

TEST_F(VlanQuery, enabled_vlans_log_each_of_them) {
    add_vlan(10, BRI_VLAN_STATIC, {3});
    add_port(3, BRI_PORT_UPLINK, 1);
    vlanset set;
    debug_on({BRI_DBG_VLAN});
    vl_clnt_get_enable_vlans(3, &set);
    EXPECT_EQ(times_logged("Current vlan 10.\n"), 1);
    expect_vlan_log("Current vlan 10.\n");
    EXPECT_EQ(times_logged("Input parameter error, vlan(9) isn't exist.\n"), 1);
    EXPECT_EQ(log_lines().size(), 4094U);
}

TEST_F(VlanQuery, enabled_vlans_fail_without_touching_the_set) {
    add_port(3, BRI_PORT_ROUTE, 1);
    vlanset set;
    std::memset(&set, 0xA5, sizeof set);
    const vlanset before = set;
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_clnt_get_enable_vlans(3, nullptr), -1);
    EXPECT_EQ(vl_clnt_get_enable_vlans(4, &set), -9);
    EXPECT_EQ(vl_clnt_get_enable_vlans(3, &set), -10);
    EXPECT_EQ(std::memcmp(&set, &before, sizeof set), 0);
    EXPECT_EQ(log_text(), "Input parameter error, set is NULL.\n"
                          "Input parameter error, spcb(ifx 4) is NULL.\n"
                          "Input parameter error, spcb(ifx 3) is route.\n");
    for (const LogLine &line : log_lines())
        expect_vlan_log(line.text);
}

TEST_F(VlanQuery, failed_enabled_vlans_are_silent_with_the_flag_off) {
    add_port(3, BRI_PORT_ROUTE, 1);
    vlanset set;
    vl_clnt_get_enable_vlans(3, nullptr);
    vl_clnt_get_enable_vlans(4, &set);
    vl_clnt_get_enable_vlans(3, &set);
    EXPECT_TRUE(log_lines().empty());
}

class VlanName : public MappedVlanTest {
  protected:
    char buf[64];
    void SetUp() override {
        MappedVlanTest::SetUp();
        add_vlan(10);
        std::memset(buf, '#', sizeof buf);
    }
    template <size_t N> [[nodiscard]] bool begins_with(const char (&expected)[N]) const {
        return std::memcmp(buf, expected, N - 1) == 0;
    }
};

TEST_F(VlanName, is_copied_and_filled_up_to_the_last_byte_but_one) {
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 12), 0);
    EXPECT_TRUE(begins_with("VLAN0010\0\0\0##"));
}

TEST_F(VlanName, that_fills_the_room_has_no_terminator) {
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 9), 0);
    EXPECT_TRUE(begins_with("VLAN0010##"));
}

TEST_F(VlanName, too_long_for_the_buffer_is_refused) {
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 8), -2);
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 5), -2);
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 0), -2);
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, -7), -2);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(log_text(), "Input parameter error, size(7) is small.\n"
                          "Input parameter error, size(4) is small.\n"
                          "Input parameter error, size(-1) is small.\n"
                          "Input parameter error, size(-8) is small.\n");
    expect_vlan_log("Input parameter error, size(4) is small.\n");
}

TEST_F(VlanName, smallest_size_of_all_is_refused) {
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, INT32_MIN), -2);
    EXPECT_EQ(buf[0], '#');
    EXPECT_TRUE(log_lines().empty()); // with the flag off
}

TEST_F(VlanName, empty_name_fits_size_1) {
    vl_get_vlan_entry(10)->name[0] = '\0';
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 1), 0);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 0), -2);
}

TEST_F(VlanName, without_a_terminator_has_35_characters) {
    std::memset(vl_get_vlan_entry(10)->name, 'n', 36);
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 35), -2);
    EXPECT_EQ(vl_clnt_get_vlan_name(10, buf, 36), 0);
    EXPECT_TRUE(begins_with("nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn##"));
}

TEST_F(VlanName, of_a_missing_vlan_and_into_null_fail) {
    EXPECT_EQ(vl_clnt_get_vlan_name(11, buf, 36), -7);
    EXPECT_EQ(vl_clnt_get_vlan_name(11, nullptr, 36), -1);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_clnt_get_vlan_name(11, nullptr, 36), -1);
    EXPECT_EQ(vl_clnt_get_vlan_name(11, buf, 36), -7);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(log_text(), "Input parameter error, name is NULL.\n"
                          "Input parameter error, vlan(11) isn't exist.\n");
    expect_vlan_log("Input parameter error, name is NULL.\n");
}

// Before the databases are mapped every question has its answer for a VLAN and a port that do not exist.
TEST_F(VlanTest, questions_without_tables) {
    uint32_t value = 99;
    uint16_t vid = 99;
    vlanset set{};
    char name[36];
    EXPECT_EQ(vl_clnt_exist(10, 0), 0);
    EXPECT_EQ(vl_clnt_get_vlan_mode(10, &value), -1);
    EXPECT_EQ(vl_clnt_ifindex_to_spcb(3), nullptr);
    EXPECT_EQ(vl_clnt_is_allowvlan_mem(10, 3), -2);
    EXPECT_EQ(vl_clnt_if_is_dyn_member(3, 10), -2);
    EXPECT_EQ(vl_clnt_get_manage_vid(10), 10);
    EXPECT_EQ(vl_clnt_is_supervlan(10), 0);
    EXPECT_EQ(vl_clnt_is_subvlan(10), 0);
    EXPECT_EQ(vl_clnt_get_svifx_from_vid(10), 0U);
    EXPECT_EQ(vl_clnt_get_vid_from_svifx(7), 0);
    EXPECT_EQ(vl_clnt_get_vlan_port_cnt(10, &value), 0);
    EXPECT_EQ(value, 0U);
    EXPECT_EQ(vl_clnt_get_port_default_vid(3, &vid), -9);
    EXPECT_EQ(vl_clnt_get_portmode_by_index(3, &value), -9);
    EXPECT_EQ(vl_clnt_get_member_info(10, 3, &value), 0);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(vl_clnt_get_enable_vlans(3, &set), -9);
    EXPECT_EQ(vl_clnt_get_vlan_name(10, name, sizeof name), -7);
}

} // namespace
