#include "tests/shared/vlan_fixture.h"
#include "tests/support/children.h"

namespace {

using namespace test;

class VlanMembers : public VlanDb {
  protected:
    VlanMembers() {
        make(10);
        clear_log();
    }
    static uint64_t member_words() {
        return value_at<uint32_t>(entry(10), 72) | uint64_t{value_at<uint32_t>(entry(10), 76)} << 32;
    }
    static void put_members(uint64_t bits) {
        put_at<uint32_t>(entry(10), 72, static_cast<uint32_t>(bits));
        put_at<uint32_t>(entry(10), 76, static_cast<uint32_t>(bits >> 32));
    }
    static void expect_only_line(const char *text) {
        ASSERT_EQ(log_lines().size(), 1U) << log_text();
        const LogLine &line = log_lines().front();
        EXPECT_EQ(line.text, text);
        EXPECT_EQ(line.category(), kVlanDbLine);
        clear_log();
    }
};

TEST_F(VlanMembers, each_port_has_its_bit) {
    for (int32_t ifx = 1; ifx <= 63; ++ifx) {
        put_members(uint64_t{1} << ifx);
        for (int32_t other = 1; other <= 63; ++other) {
            ASSERT_EQ(vl_is_vlan_member(10, other), other == ifx ? 1 : 0) << ifx << " " << other;
            ASSERT_EQ(vl_is_vlan_static_member(10, other), other == ifx ? 1 : 0) << ifx << " " << other;
        }
    }
}

TEST_F(VlanMembers, interface_indexes_outside_1_to_63_are_no_members) {
    put_members(~uint64_t{0});
    for (const int32_t ifx : {0, 64, -1, INT32_MAX, INT32_MIN, 65}) {
        EXPECT_EQ(vl_is_vlan_member(10, ifx), 0) << ifx;
        EXPECT_EQ(vl_is_vlan_static_member(10, ifx), 0) << ifx;
    }
}

TEST_F(VlanMembers, static_question_logs_an_invalid_interface_index) {
    EXPECT_EQ(vl_is_vlan_static_member(10, 64), 0);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_is_vlan_static_member(10, 64), 0);
    expect_only_line("Get member tag info, get spcb[64] failed.\n");
    EXPECT_EQ(vl_is_vlan_static_member(10, -3), 0);
    expect_only_line("Get member tag info, get spcb[-3] failed.\n");
    EXPECT_EQ(vl_is_vlan_member(10, 64), 0);
    EXPECT_EQ(vl_is_vlan_static_member(10, 63), 0);
    EXPECT_EQ(vl_is_vlan_static_member(11, 64), 0); // no such VLAN
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlanMembers, vlan_has_a_port_when_any_bit_is_set) {
    EXPECT_EQ(vl_is_vlan_have_port(10), 0);
    for (int bit = 0; bit < 64; ++bit) {
        put_members(uint64_t{1} << bit);
        EXPECT_EQ(vl_is_vlan_have_port(10), 1) << bit;
    }
    EXPECT_EQ(vl_is_vlan_have_port(11), 0);
}

TEST_F(VlanMembers, members_that_are_present_are_counted) {
    put_members(~uint64_t{0});
    EXPECT_EQ(vl_get_vlan_port_count(10), 0);
    for (int32_t ifx = 1; ifx <= 63; ++ifx) {
        plug(ifx);
        EXPECT_EQ(vl_get_vlan_port_count(10), ifx);
    }
    put_members(1U << 5 | uint64_t{1} << 63 | 1U);
    EXPECT_EQ(vl_get_vlan_port_count(10), 2);
}

TEST_F(VlanMembers, count_without_a_vlan_is_0_and_says_so) {
    EXPECT_EQ(vl_get_vlan_port_count(11), 0);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_get_vlan_port_count(11), 0);
    expect_only_line("Get vlan member number, VLAN[11] not exist.\n");
    EXPECT_EQ(vl_get_vlan_port_count(10), 0);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlanMembers, bitmap_is_the_two_words) {
    put_members(0x8000000280000001);
    uint32_t words[2] = {};
    EXPECT_EQ(vl_get_vlan_port_bmap(10, words), 1);
    EXPECT_EQ(words[0], 0x80000001);
    EXPECT_EQ(words[1], 0x80000002);
    EXPECT_EQ(vl_get_vlan_port_bmap(10, nullptr), 0);
    EXPECT_EQ(vl_get_vlan_port_bmap(11, words), 0);
}

TEST_F(VlanMembers, set_with_any_of_its_4096_bits_is_not_empty) {
    for (unsigned vid = 0; vid < 4096; ++vid) {
        const vlanset set = set_of({vid});
        ASSERT_EQ(vl_is_vlanset_not_empty(&set), 1) << vid;
    }
    const vlanset none{};
    EXPECT_EQ(vl_is_vlanset_not_empty(&none), 0);
    EXPECT_EQ(vl_is_vlanset_not_empty(nullptr), 0);
}

TEST_F(VlanMembers, members_are_added_and_removed_by_their_bit) {
    uint64_t expected = 0;
    for (int32_t ifx = 0; ifx < 64; ++ifx) {
        vl_add_static_member(ifx, 10);
        expected |= uint64_t{1} << ifx;
        ASSERT_EQ(member_words(), expected);
    }
    for (int32_t ifx = 0; ifx < 64; ++ifx) {
        vl_del_static_member(ifx, 10);
        expected &= ~(uint64_t{1} << ifx);
        ASSERT_EQ(member_words(), expected);
    }
}

TEST_F(VlanMembers, interface_indexes_outside_the_words_change_nothing) {
    constexpr int32_t kOutside[] = {64, 65, 95, 96, 2048, -1, -32, INT32_MAX, INT32_MIN};
    for (const int fill : {0x00, 0xFF}) { // where a bit that is set shows, and one that is cleared
        std::memset(entry(9), fill, 3 * 80);
        put_at<uint16_t>(entry(10), 6, 10);
        const ByteVec before(data(), data() + kVlanDataSize);
        for (const int32_t ifx : kOutside)
            (fill == 0 ? vl_add_static_member : vl_del_static_member)(ifx, 10);
        EXPECT_EQ(ByteVec(data(), data() + kVlanDataSize), before);
    }
}

TEST_F(VlanMembers, changes_are_logged_also_for_an_index_without_a_bit) {
    debug_on({BRI_DBG_VLAN});
    vl_add_static_member(5, 10);
    expect_only_line("Add static member[5] to VLAN[10].\n");
    vl_del_static_member(5, 10);
    expect_only_line("Del static member[5] from VLAN[10].\n");
    vl_add_static_member(64, 10);
    expect_only_line("Add static member[64] to VLAN[10].\n");
    vl_del_static_member(-1, 10);
    expect_only_line("Del static member[-1] from VLAN[10].\n");
}

TEST_F(VlanMembers, changes_of_no_vlan_are_logged_as_failed) {
    debug_on({BRI_DBG_VLAN});
    vl_add_static_member(5, 11);
    expect_only_line("Add static member-port failed, VLAN[11] not exist.\n");
    vl_del_static_member(5, 65535);
    expect_only_line("Del static member-port failed, VLAN[65535] not exist.\n");
    EXPECT_EQ(vl_get_vlan_entry(11), nullptr);
}

TEST_F(VlanMembers, changes_are_silent_while_the_flag_is_off) {
    vl_add_static_member(5, 10);
    vl_del_static_member(5, 10);
    vl_add_static_member(5, 11);
    vl_del_static_member(5, 11);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(VlanMembers, dynamic_members_and_address_ranges_are_not_kept) {
    put_members(~uint64_t{0});
    const ByteVec before(data(), data() + kVlanDataSize);
    uint32_t low = 7;
    uint32_t high = 8;
    vl_add_dynamic_member(5, 10);
    vl_del_dynamic_member(5, 10);
    EXPECT_EQ(vl_is_vlan_dynamic_member(10, 5), 0);
    EXPECT_EQ(vl_set_iprange(10, 1, 2), 0);
    EXPECT_EQ(vl_get_subvlan_iprange(10, &low, &high), 0);
    EXPECT_EQ(vl_get_subvlan_iprange(10, nullptr, nullptr), 0);
    EXPECT_EQ(vl_svlan_is_subvid_ip(10, 1), 0);
    EXPECT_EQ(vl_svlan_search_ip(10, 1), 0);
    EXPECT_EQ(low, 7U);
    EXPECT_EQ(high, 8U);
    EXPECT_EQ(ByteVec(data(), data() + kVlanDataSize), before);
}

// Four processes flip bits of the same two words, and nobody touches the rest.
TEST_F(VlanMembers, processes_that_flip_their_own_bits_lose_none) {
    constexpr uint64_t kRest = uint64_t{1} << 0 | uint64_t{1} << 8 | uint64_t{1} << 32;
    SharedBlock<FlipContest> contest;
    put_members(kRest);
    EXPECT_TRUE(all_children(4, [&](int index) {
        // Process 0 has ports 1..7 and 33..39, process 1 has 9..15 and 41..47, and so on.
        const uint64_t own = uint64_t{0x000000FE000000FE} << 8 * index;
        const auto flip = [](int ifx, bool on) { (on ? vl_add_static_member : vl_del_static_member)(ifx, 10); };
        const auto read = [] {
            uint32_t words[2] = {};
            vl_get_vlan_port_bmap(10, words);
            return words[0] | uint64_t{words[1]} << 32;
        };
        return flips_hold(*contest, 4, own, flip, read) ? 0 : 1;
    }));
    EXPECT_EQ(member_words(), kRest);
}

} // namespace
