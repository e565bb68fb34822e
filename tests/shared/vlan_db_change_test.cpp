#include "tests/shared/vlan_fixture.h"
#include "tests/support/children.h"

#include <cerrno>
#include <sys/sysinfo.h>

namespace {

using namespace test;

class VlanChange : public VlanDb {
  protected:
    static int32_t number() { return value_at<int32_t>(stat(), 8); }
    static int32_t deletions() { return value_at<int32_t>(stat(), 20); }
    static int32_t svis() { return value_at<int32_t>(stat(), 16); }
    static std::string name(unsigned vid) {
        const auto *text = reinterpret_cast<const char *>(entry(vid)) + 28;
        return {text, strnlen(text, 36)};
    }
    static ByteVec entry_bytes(unsigned vid) { return {entry(vid), entry(vid) + 80}; }
};

TEST_F(VlanChange, initialised_entry_holds_exactly_what_begins_a_life) {
    std::memset(entry(100), 0xEE, 80);
    put_at<uint16_t>(entry(100), 4, 41);
    struct sysinfo before {};
    sysinfo(&before);
    vl_initial_vlan_entry(100, BRI_VLAN_STATIC);
    struct sysinfo after {};
    sysinfo(&after);
    uint8_t expected[80] = {};
    expected[0] = 1;
    put_at<uint16_t>(expected, 4, 42);
    put_at<uint16_t>(expected, 6, 100);
    put_at<uint16_t>(expected, 8, 100);
    put_at<uint32_t>(expected, 12, 1);
    const auto created = value_at<uint32_t>(entry(100), 24);
    put_at<uint32_t>(expected, 24, created);
    std::memcpy(expected + 28, "VLAN0100", 8);
    EXPECT_EQ(entry_bytes(100), ByteVec(expected, expected + 80));
    EXPECT_GE(created, static_cast<uint32_t>(before.uptime) * 100U);
    EXPECT_LE(created, static_cast<uint32_t>(after.uptime) * 100U);
    EXPECT_EQ(created % 100, 0U);
    EXPECT_EQ(number(), 1);
}

TEST_F(VlanChange, initialising_touches_no_neighbour) {
    std::memset(entry(99), 0xEE, 80 * 3);
    vl_initial_vlan_entry(100, 1);
    EXPECT_EQ(entry_bytes(99), ByteVec(80, 0xEE));
    EXPECT_EQ(entry_bytes(101), ByteVec(80, 0xEE));
}

TEST_F(VlanChange, name_and_mode_follow_the_mode_asked_for) {
    const struct {
        uint16_t vid;
        uint32_t mode;
        const char *name;
    } rows[] = {{7, 1, "VLAN0007"},    {7, 2, "DVLAN0007"}, {4094, 2, "DVLAN4094"},
                {4094, 4, "VLAN4094"}, {1, 0, "VLAN0001"},  {1, 0xFFFFFFFF, "VLAN0001"}};
    for (const auto &row : rows) {
        vl_initial_vlan_entry(row.vid, row.mode);
        EXPECT_EQ(name(row.vid), row.name);
        EXPECT_EQ(value_at<uint32_t>(entry(row.vid), 12), row.mode);
    }
}

TEST_F(VlanChange, creation_time_without_an_uptime_is_0) {
    faults::fail("sysinfo", 1, EFAULT);
    vl_initial_vlan_entry(100, 1);
    EXPECT_EQ(value_at<uint32_t>(entry(100), 24), 0U);
    EXPECT_EQ(vl_exist(100, 1), 1);
}

TEST_F(VlanChange, version_rises_with_each_life_and_survives_clearing) {
    for (uint16_t life = 1; life <= 5; ++life) {
        vl_initial_vlan_entry(100, 1);
        EXPECT_EQ(vl_get_vlan_latest_version(100), life);
        vl_clear_vlan_entry(100);
        EXPECT_EQ(vl_get_vlan_latest_version(100), life);
        EXPECT_EQ(vl_exist(100, 0), 0);
    }
}

TEST_F(VlanChange, version_wraps_at_16_bits) {
    put_at<uint16_t>(entry(100), 4, 0xFFFF);
    vl_initial_vlan_entry(100, 1);
    EXPECT_EQ(value_at<uint16_t>(entry(100), 4), 0);
}

TEST_F(VlanChange, live_entry_that_is_initialised_again_is_counted_again) {
    vl_initial_vlan_entry(100, 1);
    vl_initial_vlan_entry(100, 2);
    EXPECT_EQ(number(), 2);
    EXPECT_EQ(vl_get_vlan_latest_version(100), 2);
}

TEST_F(VlanChange, ids_outside_the_limits_are_not_initialised) {
    const ByteVec before(data(), data() + kStatAt);
    for (const uint16_t vid : {uint16_t{0}, uint16_t{4095}, uint16_t{65535}})
        vl_initial_vlan_entry(vid, 1);
    vl_set_vlan_range(10, 20);
    vl_initial_vlan_entry(21, 1);
    EXPECT_EQ(ByteVec(data(), data() + kStatAt), before);
    EXPECT_EQ(number(), 0);
}

TEST_F(VlanChange, clearing_keeps_the_version_only) {
    std::memset(entry(99), 0xEE, 80 * 3);
    put_at<uint16_t>(entry(100), 4, 0x0102);
    put_at<int32_t>(stat(), 8, 5);
    vl_clear_vlan_entry(100);
    ByteVec expected(80, 0);
    put_at<uint16_t>(expected.data(), 4, 0x0102);
    EXPECT_EQ(entry_bytes(100), expected);
    EXPECT_EQ(entry_bytes(99), ByteVec(80, 0xEE));
    EXPECT_EQ(entry_bytes(101), ByteVec(80, 0xEE));
    EXPECT_EQ(number(), 4);
    EXPECT_EQ(deletions(), 1);
}

TEST_F(VlanChange, clearing_an_empty_entry_changes_nothing) {
    std::memset(entry(100), 0xEE, 80);
    put_at<uint16_t>(entry(100), 6, 0);
    put_at<int32_t>(stat(), 8, 5);
    const ByteVec before = entry_bytes(100);
    vl_clear_vlan_entry(100);
    EXPECT_EQ(entry_bytes(100), before);
    EXPECT_EQ(number(), 5);
    EXPECT_EQ(deletions(), 0);
}

TEST_F(VlanChange, dynamic_vlan_made_static_is_renamed) {
    vl_initial_vlan_entry(7, BRI_VLAN_DYNAMIC);
    ASSERT_EQ(name(7), "DVLAN0007");
    vl_set_vlan_mode(7, BRI_VLAN_STATIC);
    EXPECT_EQ(name(7), "VLAN0007");
    EXPECT_EQ(vl_exist(7, BRI_VLAN_STATIC), 1);
}

// old mode, new mode, whether the name is made anew
TEST_F(VlanChange, every_other_change_of_mode_keeps_the_name) {
    for (const uint32_t old : {0U, 1U, 2U, 4U, 9U})
        for (const uint32_t mode : {0U, 1U, 2U, 4U, 9U}) {
            make(7, old);
            std::strcpy(reinterpret_cast<char *>(entry(7)) + 28, "mine");
            vl_set_vlan_mode(7, mode);
            EXPECT_EQ(name(7), old == 2 && mode == 1 ? "VLAN0007" : "mine") << old << " " << mode;
            EXPECT_EQ(value_at<uint32_t>(entry(7), 12), mode);
        }
}

TEST_F(VlanChange, mode_of_an_empty_or_invalid_vlan_is_not_stored) {
    const ByteVec before(data(), data() + kVlanDataSize);
    for (const uint16_t vid : {uint16_t{0}, uint16_t{7}, uint16_t{4095}, uint16_t{65535}})
        vl_set_vlan_mode(vid, 1);
    EXPECT_EQ(ByteVec(data(), data() + kVlanDataSize), before);
}

TEST_F(VlanChange, batch_changes_the_live_vlans_of_the_set) {
    for (const uint16_t vid : {uint16_t{1}, uint16_t{2}, uint16_t{33}, uint16_t{4094}})
        vl_initial_vlan_entry(vid, BRI_VLAN_DYNAMIC);
    const vlanset set = set_of({0, 1, 3, 33, 4094, 4095});
    vl_set_vlan_mode_batch(&set, BRI_VLAN_STATIC);
    EXPECT_EQ(name(1), "VLAN0001");
    EXPECT_EQ(name(2), "DVLAN0002");
    EXPECT_EQ(name(33), "VLAN0033");
    EXPECT_EQ(name(4094), "VLAN4094");
    EXPECT_EQ(vl_exist(1, 1), 1);
    EXPECT_EQ(vl_exist(2, 2), 1);
    EXPECT_EQ(entry_bytes(3), ByteVec(80, 0));
    EXPECT_EQ(entry_bytes(0), ByteVec(80, 0));
    vl_set_vlan_mode_batch(nullptr, BRI_VLAN_STATIC);
}

TEST_F(VlanChange, svi_is_set_once_and_taken_away) {
    make(10);
    put_at<uint32_t>(entry(10), 20, 3);
    put_at<uint32_t>(entry(10), 64, 4);
    put_at<uint32_t>(entry(10), 68, 5);
    EXPECT_EQ(vl_set_svi(10, 5), 0);
    EXPECT_EQ(value_at<uint32_t>(entry(10), 16), 5U);
    EXPECT_EQ(svis(), 1);
    EXPECT_EQ(vl_set_svi(10, 5), 0);
    EXPECT_EQ(svis(), 1);
    EXPECT_EQ(vl_set_svi(10, 6), -1);
    EXPECT_EQ(value_at<uint32_t>(entry(10), 16), 5U);
    EXPECT_EQ(svis(), 1);
    EXPECT_EQ(value_at<uint32_t>(entry(10), 20), 3U);
    EXPECT_EQ(value_at<uint32_t>(entry(10), 64), 4U);
    EXPECT_EQ(vl_set_svi(10, 0), 0);
    for (const size_t offset : {16U, 20U, 64U, 68U})
        EXPECT_EQ(value_at<uint32_t>(entry(10), offset), 0U) << offset;
    EXPECT_EQ(svis(), 0);
}

TEST_F(VlanChange, svi_0_on_a_vlan_without_one_changes_nothing) {
    make(10);
    put_at<uint32_t>(entry(10), 20, 3);
    EXPECT_EQ(vl_set_svi(10, 0), 0);
    EXPECT_EQ(value_at<uint32_t>(entry(10), 20), 3U);
    EXPECT_EQ(svis(), 0);
}

TEST_F(VlanChange, svi_needs_a_vlan) {
    EXPECT_EQ(vl_set_svi(10, 5), -2);
    EXPECT_EQ(vl_set_svi(4095, 5), -2);
    EXPECT_EQ(svis(), 0);
}

TEST_F(VlanChange, users_are_counted_with_a_16_bit_wrap_up_and_a_floor_of_0) {
    make(10);
    EXPECT_EQ(vl_decrease_vlan_ref(10), 0U);
    EXPECT_EQ(vl_increase_vlan_ref(10), 1U);
    EXPECT_EQ(vl_increase_vlan_ref(10), 2U);
    EXPECT_EQ(vl_get_vlan_ref(10), 2);
    EXPECT_EQ(vl_decrease_vlan_ref(10), 1U);
    EXPECT_EQ(value_at<uint16_t>(entry(10), 10), 1);
    put_at<uint16_t>(entry(10), 10, 0xFFFF);
    EXPECT_EQ(vl_increase_vlan_ref(10), 0U);
    EXPECT_EQ(value_at<uint16_t>(entry(10), 8), 10); // the neighbour half of the word
    EXPECT_EQ(vl_decrease_vlan_ref(10), 0U);
    EXPECT_EQ(value_at<uint16_t>(entry(10), 10), 0);
}

TEST_F(VlanChange, users_of_no_vlan_are_not_counted) {
    EXPECT_EQ(vl_increase_vlan_ref(10), 0xFFFFFFFF);
    EXPECT_EQ(vl_decrease_vlan_ref(10), 0xFFFFFFFF);
    EXPECT_EQ(value_at<uint16_t>(entry(10), 10), 0);
}

TEST_F(VlanChange, operators_mark_is_set_and_cleared) {
    make(10);
    EXPECT_EQ(vl_set_created_by_cli(10), 1);
    EXPECT_EQ(entry(10)[2], 1);
    EXPECT_EQ(vl_clear_created_by_cli(10), 1);
    EXPECT_EQ(entry(10)[2], 0);
    EXPECT_EQ(vl_set_created_by_cli(11), 0);
    EXPECT_EQ(vl_clear_created_by_cli(11), 0);
    EXPECT_EQ(entry(11)[2], 0);
}

TEST_F(VlanChange, operators_mark_is_set_for_the_live_vlans_of_a_set) {
    for (const uint16_t vid : {uint16_t{1}, uint16_t{2}, uint16_t{4094}})
        make(vid);
    const vlanset set = set_of({0, 1, 3, 4094, 4095});
    vl_range_set_created_by_cli(&set);
    vl_range_set_created_by_cli(nullptr);
    EXPECT_EQ(vl_is_created_by_cli(1), 1);
    EXPECT_EQ(vl_is_created_by_cli(2), 0);
    EXPECT_EQ(vl_is_created_by_cli(4094), 1);
    EXPECT_EQ(entry(3)[2], 0);
    EXPECT_EQ(entry(0)[2], 0);
}

TEST_F(VlanChange, vswpt_number_is_stored) {
    make(10);
    EXPECT_EQ(vl_set_vswpt_num(10, 200), 0);
    EXPECT_EQ(entry(10)[1], 200);
    EXPECT_EQ(vl_get_vswpt_num(10), 200);
    EXPECT_EQ(vl_set_vswpt_num(11, 200), -2);
    EXPECT_EQ(entry(11)[1], 0);
}

TEST_F(VlanChange, byte_marks_leave_their_neighbours_alone) {
    std::memset(entry(10), 0xA5, 4);
    put_at<uint16_t>(entry(10), 6, 10);
    vl_set_created_by_cli(10);
    vl_set_vswpt_num(10, 9);
    EXPECT_EQ(entry(10)[0], 0xA5);
    EXPECT_EQ(entry(10)[1], 9);
    EXPECT_EQ(entry(10)[2], 1);
    EXPECT_EQ(entry(10)[3], 0xA5);
}

TEST_F(VlanChange, changes_log_nothing) {
    debug_on({BRI_DBG_VLAN});
    clear_log();
    vl_initial_vlan_entry(10, 2);
    vl_set_vlan_mode(10, 1);
    vl_set_svi(10, 4);
    vl_increase_vlan_ref(10);
    vl_set_created_by_cli(10);
    vl_clear_vlan_entry(10);
    vl_set_svi(10, 4);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlanChange, counters_that_processes_change_at_once_come_out_right) {
    const int rounds = scaled(20000);
    make(10);
    put_at<int32_t>(stat(), 8, 1000);
    ASSERT_TRUE(all_children(4, [&](int) {
        for (int round = 0; round < rounds; ++round) {
            vl_increase_vlan_number();
            vl_increase_svi_number();
            vl_increase_vlan_ref(10);
            vl_decrease_vlan_ref(10);
            vl_decrease_vlan_number();
        }
        return 0;
    }));
    EXPECT_EQ(number(), 1000);
    EXPECT_EQ(deletions(), 4 * rounds);
    EXPECT_EQ(svis(), 4 * rounds);
    EXPECT_EQ(vl_get_vlan_ref(10), 0);
}

} // namespace
