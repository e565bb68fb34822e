#include "tests/shared/vlan_fixture.h"

namespace {

using namespace test;

class VlanEntry : public VlanDb {
  protected:
    VlanEntry() { clear_log(); }
};

TEST_F(VlanEntry, raw_look_up_gives_the_entry_of_every_id_in_the_range) {
    for (unsigned vid = 1; vid <= 4094; ++vid)
        ASSERT_EQ(reinterpret_cast<uint8_t *>(vl_get_raw_vlan_entry(static_cast<uint16_t>(vid))), entry(vid));
    EXPECT_EQ(vl_get_raw_vlan_entry(0), nullptr);
    EXPECT_EQ(vl_get_raw_vlan_entry(4095), nullptr);
    EXPECT_EQ(vl_get_raw_vlan_entry(65535), nullptr);
}

TEST_F(VlanEntry, look_up_gives_live_entries_only) {
    EXPECT_EQ(vl_get_vlan_entry(10), nullptr);
    make(10);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(vl_get_vlan_entry(10)), entry(10));
    vle *found = nullptr;
    vl_get_vle_from_vid(10, &found);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(found), entry(10));
    vl_get_vle_from_vid(11, &found);
    EXPECT_EQ(found, nullptr);
    vl_get_vle_from_vid(10, nullptr);
}

// The limits that a peer wrote are no bounds of the table.
TEST_F(VlanEntry, limits_beyond_the_table_reach_nothing_outside_it) {
    put_at<uint16_t>(stat(), 0, 0);
    put_at<uint16_t>(stat(), 2, 0xFFFF);
    std::memset(data() + kStatAt + 24, 0xFF, 512); // what an entry 4095 and following would be read from
    for (unsigned vid = 4095; vid <= 65535; ++vid) {
        const auto id = static_cast<uint16_t>(vid);
        ASSERT_EQ(vl_check_vlanid_valid(static_cast<int32_t>(vid)), 1) << vid;
        ASSERT_EQ(vl_get_raw_vlan_entry(id), nullptr) << vid;
        ASSERT_EQ(vl_exist(id, 0), 0) << vid;
    }
    EXPECT_EQ(reinterpret_cast<uint8_t *>(vl_get_raw_vlan_entry(4094)), entry(4094));
    EXPECT_EQ(reinterpret_cast<uint8_t *>(vl_get_raw_vlan_entry(0)), entry(0));
}

TEST_F(VlanEntry, limits_that_cross_leave_no_valid_id) {
    vl_set_vlan_range(200, 100);
    make(150);
    EXPECT_EQ(vl_exist(150, 0), 0);
    put_at<uint32_t>(entry(150), 16, 9);
    EXPECT_EQ(vl_get_vid_from_svifx(9), 0);
}

TEST_F(VlanEntry, look_up_follows_the_limits) {
    make(10);
    make(20);
    vl_set_vlan_range(11, 20);
    EXPECT_EQ(vl_exist(10, 0), 0);
    EXPECT_EQ(vl_exist(20, 0), 1);
    vl_set_vlan_range(10, 19);
    EXPECT_EQ(vl_exist(10, 0), 1);
    EXPECT_EQ(vl_exist(20, 0), 0);
}

TEST_F(VlanEntry, copy_is_the_whole_entry) {
    for (unsigned offset = 0; offset < 80; ++offset)
        entry(10)[offset] = static_cast<uint8_t>(offset + 1);
    vle copy{};
    EXPECT_EQ(vl_get_vlan_copy(10, &copy), 1);
    EXPECT_EQ(std::memcmp(&copy, entry(10), 80), 0);
}

TEST_F(VlanEntry, copy_without_an_entry_or_a_place_gives_0) {
    make(10);
    vle copy;
    std::memset(&copy, 0xEE, sizeof copy);
    EXPECT_EQ(vl_get_vlan_copy(11, &copy), 0);
    EXPECT_EQ(vl_get_vlan_copy(10, nullptr), 0);
    EXPECT_EQ(copy.mode, 0xEEEEEEEE);
}

TEST_F(VlanEntry, existence_takes_any_mode_or_the_entrys_own) {
    for (const uint32_t mode : {1U, 2U, 4U, 0x12345678U}) {
        make(10, mode);
        for (const uint32_t asked : {0U, 1U, 2U, 4U, 0x12345678U}) {
            EXPECT_EQ(vl_exist(10, asked), asked == 0 || asked == mode ? 1 : 0) << mode << " " << asked;
            EXPECT_EQ(vl_exist_imp(10, asked), asked == 0 || asked == mode ? 1 : 0) << mode << " " << asked;
        }
    }
    EXPECT_EQ(vl_exist(11, 0), 0);
    EXPECT_EQ(vl_exist_imp(11, 0), 0);
}

TEST_F(VlanEntry, set_whose_vlans_all_exist_gives_1) {
    for (const uint16_t vid : {uint16_t{1}, uint16_t{32}, uint16_t{4094}})
        make(vid);
    const vlanset set = set_of({1, 32, 4094});
    vlanset missing{};
    EXPECT_EQ(vl_vlanset_exist(0, &set, &missing), 1);
    EXPECT_EQ(vl_vlanset_exist(BRI_VLAN_STATIC, &set, &missing), 1);
    EXPECT_TRUE(vids_of(missing).empty());
}

TEST_F(VlanEntry, missing_vlan_of_a_set_is_told) {
    make(1);
    make(100);
    const vlanset set = set_of({1, 99, 100});
    vlanset missing{};
    EXPECT_EQ(vl_vlanset_exist(0, &set, &missing), 0);
    EXPECT_EQ(vids_of(missing), std::vector<unsigned>{99});
}

TEST_F(VlanEntry, vlan_of_another_mode_is_missing_and_missing_is_only_added_to) {
    make(1, BRI_VLAN_STATIC);
    make(2, BRI_VLAN_DYNAMIC);
    const vlanset set = set_of({1, 2});
    vlanset missing = set_of({7});
    EXPECT_EQ(vl_vlanset_exist(BRI_VLAN_STATIC, &set, &missing), 0);
    EXPECT_EQ(vids_of(missing), (std::vector<unsigned>{2, 7}));
}

TEST_F(VlanEntry, set_walk_never_visits_0_and_4095) {
    const vlanset set = set_of({0, 4095});
    vlanset missing{};
    EXPECT_EQ(vl_vlanset_exist(0, &set, &missing), 1);
    EXPECT_TRUE(vids_of(missing).empty());
}

TEST_F(VlanEntry, set_question_needs_both_pointers) {
    const vlanset set{};
    vlanset missing{};
    EXPECT_EQ(vl_vlanset_exist(0, nullptr, &missing), 0);
    EXPECT_EQ(vl_vlanset_exist(0, &set, nullptr), 0);
}

TEST_F(VlanEntry, version_is_given_for_empty_entries_too) {
    put_at<uint16_t>(entry(10), 4, 0xABCD);
    EXPECT_EQ(vl_get_vlan_latest_version(10), 0xABCD);
    EXPECT_EQ(vl_get_vlan_latest_version(4095), 0);
    EXPECT_EQ(vl_get_vlan_latest_version(0), 0);
}

TEST_F(VlanEntry, mode_needs_an_entry_and_a_place) {
    uint32_t mode = 77;
    EXPECT_EQ(vl_get_vlan_mode(10, &mode), 0);
    EXPECT_EQ(mode, 77U);
    make(10, 4);
    EXPECT_EQ(vl_get_vlan_mode(10, nullptr), 0);
    EXPECT_EQ(vl_get_vlan_mode(10, &mode), 1);
    EXPECT_EQ(mode, 4U);
}

TEST_F(VlanEntry, name_is_copied) {
    make(10);
    std::strcpy(reinterpret_cast<char *>(entry(10)) + 28, "uplinks");
    char name[36];
    EXPECT_EQ(vl_get_vlan_name(10, name), 1);
    EXPECT_STREQ(name, "uplinks");
    EXPECT_EQ(vl_get_vlan_name(11, name), 0);
    EXPECT_EQ(vl_get_vlan_name(10, nullptr), 0);
}

TEST_F(VlanEntry, name_that_never_ends_is_cut) {
    make(10);
    std::memset(entry(10) + 28, 'n', 36);
    put_at<uint32_t>(entry(10), 64, 0x6E6E6E6E);
    char name[40];
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(vl_get_vlan_name(10, name), 1);
    EXPECT_EQ(name, std::string(35, 'n'));
    EXPECT_EQ(name[36], 'x');
}

TEST_F(VlanEntry, fields_of_an_empty_entry_are_not_read) {
    std::memset(entry(10), 0xEE, 80);
    put_at<uint16_t>(entry(10), 6, 0);
    EXPECT_EQ(vl_get_svi_ifx(10), 0U);
    EXPECT_EQ(vl_get_manage_vid(10), 10);
    EXPECT_EQ(vl_get_vlan_up_mem(10), 0U);
    EXPECT_EQ(vl_get_vlan_ref(10), 0);
    EXPECT_EQ(vl_is_created_by_cli(10), 0);
    EXPECT_EQ(vl_get_vswpt_num(10), 0);
    EXPECT_EQ(vl_is_subvlan(10), 0);
    EXPECT_EQ(vl_is_supervlan(10), 0);
    EXPECT_EQ(vl_is_vlan_member(10, 1), 0);
    EXPECT_EQ(vl_is_vlan_static_member(10, 1), 0);
    EXPECT_EQ(vl_is_vlan_have_port(10), 0);
    uint32_t words[2] = {7, 7};
    EXPECT_EQ(vl_get_vlan_port_bmap(10, words), 0);
    EXPECT_EQ(words[0], 7U);
}

TEST_F(VlanEntry, manage_vid_of_a_vlan_that_is_not_there_is_its_own_id) {
    EXPECT_EQ(vl_get_manage_vid(11), 11);
    EXPECT_EQ(vl_get_manage_vid(65535), 65535);
    make(11);
    put_at<uint16_t>(entry(11), 8, 300);
    EXPECT_EQ(vl_get_manage_vid(11), 300);
}

TEST_F(VlanEntry, created_by_cli_is_1_for_any_mark) {
    make(10);
    EXPECT_EQ(vl_is_created_by_cli(10), 0);
    entry(10)[2] = 1;
    EXPECT_EQ(vl_is_created_by_cli(10), 1);
    entry(10)[2] = 0x80;
    EXPECT_EQ(vl_is_created_by_cli(10), 1);
}

TEST_F(VlanEntry, lowest_vlan_of_an_svi_is_found) {
    for (const uint16_t vid : {uint16_t{4094}, uint16_t{300}, uint16_t{1}}) {
        make(vid);
        put_at<uint32_t>(entry(vid), 16, 0x1005);
        EXPECT_EQ(vl_get_vid_from_svifx(0x1005), vid);
    }
    EXPECT_EQ(vl_get_vid_from_svifx(0x1006), 0);
}

TEST_F(VlanEntry, svi_search_finds_neither_0_nor_empty_entries_nor_entry_0) {
    make(300);
    EXPECT_EQ(vl_get_vid_from_svifx(0), 0);
    put_at<uint32_t>(entry(200), 16, 9);
    make(0);
    put_at<uint16_t>(entry(0), 6, 1);
    put_at<uint32_t>(entry(0), 16, 9);
    EXPECT_EQ(vl_get_vid_from_svifx(9), 0);
    vl_set_vlan_range(0, 0xFFFF);
    EXPECT_EQ(vl_get_vid_from_svifx(9), 0);
}

TEST_F(VlanEntry, look_ups_log_nothing) {
    make(10);
    debug_on({BRI_DBG_VLAN});
    for (const uint16_t vid : {uint16_t{0}, uint16_t{10}, uint16_t{11}, uint16_t{65535}}) {
        uint32_t words[2];
        vle copy;
        char name[36];
        vl_exist(vid, 0);
        vl_get_vlan_copy(vid, &copy);
        vl_get_vlan_latest_version(vid);
        vl_get_vlan_mode(vid, words);
        vl_get_vlan_name(vid, name);
        vl_get_svi_ifx(vid);
        vl_get_manage_vid(vid);
        vl_get_vlan_up_mem(vid);
        vl_get_vlan_ref(vid);
        vl_is_created_by_cli(vid);
        vl_get_vswpt_num(vid);
        vl_is_subvlan(vid);
        vl_is_supervlan(vid);
        vl_is_vlan_have_port(vid);
        vl_get_vlan_port_bmap(vid, words);
        vl_is_vlan_member(vid, 0);
    }
    vl_get_vid_from_svifx(9);
    EXPECT_TRUE(log_lines().empty());
}

// mode, manage vid, own vid -> sub-VLAN, super VLAN; all of VLAN 10
TEST_F(VlanEntry, sub_and_super_vlans_are_told_by_mode_and_manage_vid) {
    const struct {
        uint32_t mode;
        uint16_t manage_vid;
        uint16_t own;
        int sub;
        int super;
    } rows[] = {
        {4, 10, 10, 0, 1}, {4, 20, 10, 1, 0}, {4, 0, 10, 1, 0},  {1, 20, 10, 0, 0}, {2, 20, 10, 0, 0},
        {1, 10, 10, 0, 0}, {5, 20, 10, 0, 0}, {4, 20, 20, 1, 1}, // the entry's own id is not this VLAN's
    };
    for (const auto &row : rows) {
        make(10, row.mode);
        put_at<uint16_t>(entry(10), 6, row.own);
        put_at<uint16_t>(entry(10), 8, row.manage_vid);
        EXPECT_EQ(vl_is_subvlan(10), row.sub) << row.mode << " " << row.manage_vid;
        EXPECT_EQ(vl_is_supervlan(10), row.super) << row.mode << " " << row.manage_vid;
    }
}

TEST_F(UnmappedVlanDb, every_operation_does_nothing_before_set_up) {
    debug_on({BRI_DBG_VLAN});
    vlanset set = set_of({5});
    vlanset missing{};
    vle copy{};
    vle *found = &copy;
    uint32_t word = 77;
    uint32_t words[2] = {7, 7};
    char name[36] = "old";
    EXPECT_EQ(vl_check_vlanid_valid(5), 0);
    EXPECT_EQ(vl_check_vlanid_valid(0), 0);
    vl_set_vlan_range(1, 4094);
    EXPECT_EQ(vl_check_vlan_capacity(), 0);
    vl_increase_vlan_number();
    vl_decrease_vlan_number();
    vl_increase_svi_number();
    vl_decrease_svi_number();
    EXPECT_EQ(vl_get_vlan_number(), 0);
    EXPECT_EQ(vl_get_total_del_times(), 0);
    EXPECT_EQ(vl_get_raw_vlan_entry(5), nullptr);
    EXPECT_EQ(vl_get_vlan_entry(5), nullptr);
    vl_get_vle_from_vid(5, &found);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(vl_get_vlan_copy(5, &copy), 0);
    EXPECT_EQ(vl_exist(5, 0), 0);
    EXPECT_EQ(vl_exist_imp(5, 0), 0);
    EXPECT_EQ(vl_vlanset_exist(0, &set, &missing), 0);
    EXPECT_TRUE(vids_of(missing).empty());
    EXPECT_EQ(vl_get_vlan_latest_version(5), 0);
    EXPECT_EQ(vl_get_vlan_mode(5, &word), 0);
    EXPECT_EQ(vl_get_vlan_name(5, name), 0);
    EXPECT_EQ(vl_get_svi_ifx(5), 0U);
    EXPECT_EQ(vl_get_manage_vid(5), 5);
    EXPECT_EQ(vl_get_vlan_up_mem(5), 0U);
    EXPECT_EQ(vl_get_vlan_ref(5), 0);
    EXPECT_EQ(vl_is_created_by_cli(5), 0);
    EXPECT_EQ(vl_get_vswpt_num(5), 0);
    EXPECT_EQ(vl_get_vid_from_svifx(5), 0);
    EXPECT_EQ(vl_is_subvlan(5), 0);
    EXPECT_EQ(vl_is_supervlan(5), 0);
    EXPECT_EQ(vl_is_vlan_member(5, 1), 0);
    EXPECT_EQ(vl_is_vlan_static_member(5, 0), 0);
    EXPECT_EQ(vl_is_vlan_have_port(5), 0);
    EXPECT_EQ(vl_get_vlan_port_bmap(5, words), 0);
    vl_initial_vlan_entry(5, 1);
    vl_clear_vlan_entry(5);
    vl_set_vlan_mode(5, 1);
    vl_set_vlan_mode_batch(&set, 1);
    EXPECT_EQ(vl_set_svi(5, 1), -2);
    EXPECT_EQ(vl_increase_vlan_ref(5), 0xFFFFFFFF);
    EXPECT_EQ(vl_decrease_vlan_ref(5), 0xFFFFFFFF);
    EXPECT_EQ(vl_set_created_by_cli(5), 0);
    EXPECT_EQ(vl_clear_created_by_cli(5), 0);
    vl_range_set_created_by_cli(&set);
    EXPECT_EQ(vl_set_vswpt_num(5, 1), -2);
    EXPECT_TRUE(log_lines().empty());
    EXPECT_EQ(vl_get_vlan_port_count(5), 0);
    vl_add_static_member(1, 5);
    vl_del_static_member(1, 5);
    EXPECT_EQ(log_lines().size(), 3U); // each says that there is no such VLAN
    EXPECT_EQ(word, 77U);
    EXPECT_EQ(words[0], 7U);
    EXPECT_STREQ(name, "old");
}

TEST_F(UnmappedVlanDb, range_before_set_up_is_0_to_0) {
    uint32_t min = 9;
    uint32_t max = 9;
    vl_get_vlan_range(&min, &max);
    EXPECT_EQ(min, 0U);
    EXPECT_EQ(max, 0U);
}

} // namespace
