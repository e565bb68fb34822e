#include "tests/support/children.h"
#include "tests/vlan/vlan_group_fixture.h"

namespace {

using namespace test;

// One call of vlan_group_set_member_vlan with what it reports.
struct Update {
    vlanset added{};
    vlanset removed{};
    uint8_t added_count = 0;
    uint8_t removed_count = 0;
    int result = -9;

    Update(uint8_t id, const vlanset &wanted) {
        result = vlan_group_set_member_vlan(id, &wanted, &added, &removed, &added_count, &removed_count);
    }
};

class VlanGroupMembers : public VlanGroups {
  protected:
    VlanGroupMembers() { vlan_group_creat_entry(9); }
    static vlanset members(unsigned id) { return value_at<vlanset>(bytes(id), 8); }
    static void expect_set(const vlanset &set, std::initializer_list<unsigned> vids) {
        EXPECT_EQ(bytes_of(set), bytes_of(set_of(vids)));
    }
};

TEST_F(VlanGroupMembers, update_adds_and_removes_and_reports_both) {
    Update first(9, set_of({1, 31, 32, 4094}));
    EXPECT_EQ(first.result, 1);
    expect_set(first.added, {1, 31, 32, 4094});
    expect_set(first.removed, {});
    EXPECT_EQ(first.added_count, 4);
    EXPECT_EQ(first.removed_count, 0);
    EXPECT_EQ(bytes(9)[2], 4);

    Update second(9, set_of({31, 100}));
    EXPECT_EQ(second.result, 1);
    expect_set(second.added, {100});
    expect_set(second.removed, {1, 32, 4094});
    EXPECT_EQ(second.added_count, 1);
    EXPECT_EQ(second.removed_count, 3);
    EXPECT_EQ(bytes(9)[2], 2);
    expect_set(members(9), {31, 100});
}

TEST_F(VlanGroupMembers, update_touches_nothing_but_members_and_count) {
    bytes(9)[1] = 0xA1;
    bytes(9)[3] = 0xA3;
    put_at<uint32_t>(bytes(9), 4, 0xA4A5A6A7);
    std::memset(bytes(8), 0xEE, 520);
    std::memset(bytes(10), 0xEE, 520);
    Update(9, set_of({1, 4094}));
    EXPECT_EQ(bytes(9)[0], 9);
    EXPECT_EQ(bytes(9)[1], 0xA1);
    EXPECT_EQ(bytes(9)[3], 0xA3);
    EXPECT_EQ(value_at<uint32_t>(bytes(9), 4), 0xA4A5A6A7);
    EXPECT_EQ(std::count(bytes(8), bytes(9), 0xEE), 520);
    EXPECT_EQ(std::count(bytes(10), bytes(11), 0xEE), 520);
}

TEST_F(VlanGroupMembers, own_bitmap_changes_nothing) {
    Update(9, set_of({5, 6}));
    Update again(9, set_of({5, 6}));
    EXPECT_EQ(again.result, 1);
    EXPECT_EQ(again.added_count, 0);
    EXPECT_EQ(again.removed_count, 0);
    EXPECT_EQ(bytes(9)[2], 2);
    expect_set(members(9), {5, 6});

    Update in_place(9, vlan_group_get_entry(9)->members);
    EXPECT_EQ(in_place.added_count + in_place.removed_count, 0);
    expect_set(members(9), {5, 6});
}

TEST_F(VlanGroupMembers, ids_0_and_4095_are_neither_added_nor_removed) {
    put_member(9, 0);
    put_member(9, 4095);
    Update none(9, vlanset{});
    EXPECT_EQ(none.removed_count, 0);
    expect_set(none.removed, {});
    expect_set(members(9), {0, 4095});

    std::memset(bytes(9) + 8, 0, 512);
    Update both(9, set_of({0, 4095}));
    EXPECT_EQ(both.added_count, 0);
    expect_set(both.added, {});
    expect_set(members(9), {});
}

TEST_F(VlanGroupMembers, counts_wrap_at_8_bits) {
    vlanset all;
    std::memset(&all, 0xFF, sizeof all);
    Update every(9, all);
    EXPECT_EQ(every.added_count, 4094 % 256);
    EXPECT_EQ(bytes(9)[2], 4094 % 256);
    Update none(9, vlanset{});
    EXPECT_EQ(none.removed_count, 4094 % 256);
    EXPECT_EQ(bytes(9)[2], 0);
    bytes(9)[2] = 255;
    Update one(9, set_of({5}));
    EXPECT_EQ(bytes(9)[2], 0);
    bytes(9)[2] = 0;
    Update gone(9, vlanset{});
    EXPECT_EQ(bytes(9)[2], 255);
}

TEST_F(VlanGroupMembers, reports_are_added_to_what_the_caller_passes) {
    Update(9, set_of({5}));
    const vlanset wanted = set_of({6, 7});
    vlanset added = set_of({1000});
    vlanset removed = set_of({2000});
    uint8_t added_count = 255;
    uint8_t removed_count = 40;
    EXPECT_EQ(vlan_group_set_member_vlan(9, &wanted, &added, &removed, &added_count, &removed_count), 1);
    expect_set(added, {6, 7, 1000});
    expect_set(removed, {5, 2000});
    EXPECT_EQ(added_count, 1);
    EXPECT_EQ(removed_count, 41);
}

TEST_F(VlanGroupMembers, null_bitmap_or_count_changes_nothing) {
    const vlanset wanted = set_of({6});
    vlanset set{};
    uint8_t count = 7;
    EXPECT_EQ(vlan_group_set_member_vlan(9, nullptr, &set, &set, &count, &count), 0);
    EXPECT_EQ(vlan_group_set_member_vlan(9, &wanted, nullptr, &set, &count, &count), 0);
    EXPECT_EQ(vlan_group_set_member_vlan(9, &wanted, &set, nullptr, &count, &count), 0);
    EXPECT_EQ(vlan_group_set_member_vlan(9, &wanted, &set, &set, nullptr, &count), 0);
    EXPECT_EQ(vlan_group_set_member_vlan(9, &wanted, &set, &set, &count, nullptr), 0);
    EXPECT_EQ(count, 7);
    expect_set(set, {});
    expect_set(members(9), {});
}

TEST_F(VlanGroupMembers, update_of_a_free_entry_gives_0) {
    EXPECT_EQ(Update(10, set_of({6})).result, 0);
    EXPECT_EQ(std::count(bytes(10), bytes(11), 0), 520);
}

TEST_F(VlanGroupMembers, each_member_bit_is_found_and_no_other) {
    for (unsigned vid = 0; vid < 4096; ++vid) {
        std::memset(bytes(9) + 8, 0, 512);
        put_member(9, vid);
        EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(9, static_cast<uint16_t>(vid)), 1) << vid;
        EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(9, static_cast<uint16_t>(vid ^ 1)), 0) << vid;
        EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(9, static_cast<uint16_t>(vid ^ 32)), 0) << vid;
    }
}

TEST_F(VlanGroupMembers, vlan_ids_of_4096_and_above_are_members_of_no_group) {
    std::memset(bytes(9), 0xFF, 520 * 2);
    for (const unsigned vid : {4096U, 4097U, 8192U, 65535U}) {
        EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(9, static_cast<uint16_t>(vid)), 0) << vid;
        EXPECT_EQ(vg_clnt_is_member_of_any_group(static_cast<uint16_t>(vid), nullptr), 0) << vid;
    }
}

TEST_F(VlanGroupMembers, member_test_on_a_free_entry_gives_0) {
    std::memset(bytes(10) + 8, 0xFF, 512);
    EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(10, 5), 0);
}

TEST_F(VlanGroupMembers, bitmap_is_copied_as_it_stands) {
    for (unsigned offset = 0; offset < 512; ++offset)
        bytes(9)[8 + offset] = static_cast<uint8_t>(offset * 7);
    vlanset out{};
    EXPECT_EQ(vlan_group_get_member_vlan_bitmap(9, &out), 0);
    EXPECT_EQ(std::memcmp(&out, bytes(9) + 8, 512), 0);
    vlanset list{};
    EXPECT_EQ(vg_clnt_get_vlan_list(9, &list), 1);
    EXPECT_EQ(std::memcmp(&list, bytes(9) + 8, 512), 0);
}

TEST_F(VlanGroupMembers, bitmap_failures_are_told_apart) {
    vlanset out = set_of({77});
    EXPECT_EQ(vlan_group_get_member_vlan_bitmap(9, nullptr), -22);
    EXPECT_EQ(vlan_group_get_member_vlan_bitmap(10, nullptr), -22);
    EXPECT_EQ(vlan_group_get_member_vlan_bitmap(10, &out), -1);
    EXPECT_EQ(vg_clnt_get_vlan_list(9, nullptr), 0);
    EXPECT_EQ(vg_clnt_get_vlan_list(10, &out), 0);
    expect_set(out, {77});
}

TEST_F(VlanGroupMembers, search_reports_the_lowest_group_that_holds_the_vlan) {
    for (const uint8_t id : {uint8_t{128}, uint8_t{50}, uint8_t{30}}) {
        vlan_group_creat_entry(id);
        put_member(id, 500);
        uint8_t found = 0;
        EXPECT_EQ(vg_clnt_is_member_of_any_group(500, &found), 1);
        EXPECT_EQ(found, id);
    }
    EXPECT_EQ(vg_clnt_is_member_of_any_group(500, nullptr), 1);
}

TEST_F(VlanGroupMembers, search_reports_the_id_byte_of_the_entry) {
    put_member(9, 500);
    bytes(9)[0] = 200;
    uint8_t found = 0;
    EXPECT_EQ(vg_clnt_is_member_of_any_group(500, &found), 1);
    EXPECT_EQ(found, 200);
}

TEST_F(VlanGroupMembers, search_passes_over_entry_0_and_free_entries) {
    std::memset(bytes(0), 0xFF, 520);
    std::memset(bytes(5) + 8, 0xFF, 512);
    uint8_t found = 77;
    EXPECT_EQ(vg_clnt_is_member_of_any_group(500, &found), 0);
    EXPECT_EQ(found, 77);
}

TEST_F(VlanGroupMembers, array_becomes_a_bitmap) {
    const uint16_t vids[] = {0, 1, 4094, 4095, 7};
    vlanset set{};
    EXPECT_EQ(vg_clnt_change_array_to_bitmap(vids, 3, &set), 4);
    expect_set(set, {0, 1, 4094});
    EXPECT_EQ(vg_clnt_change_array_to_bitmap(vids + 3, 1, &set), 2);
    expect_set(set, {0, 1, 4094, 4095});
    EXPECT_EQ(vg_clnt_change_array_to_bitmap(vids, 0, &set), 1);
}

TEST_F(VlanGroupMembers, array_of_255_ids_gives_256) {
    uint16_t vids[255];
    for (uint16_t index = 0; index < 255; ++index)
        vids[index] = static_cast<uint16_t>(index * 16);
    vlanset set{};
    EXPECT_EQ(vg_clnt_change_array_to_bitmap(vids, 255, &set), 256);
    EXPECT_EQ(set.words[0], 0x00010001U);
}

TEST_F(VlanGroupMembers, array_ids_of_4096_and_above_are_skipped) {
    const uint16_t vids[] = {4096, 65535, 12, 4128};
    struct {
        vlanset set;
        uint32_t behind[2048];
    } guarded{};
    EXPECT_EQ(vg_clnt_change_array_to_bitmap(vids, 4, &guarded.set), 5);
    expect_set(guarded.set, {12});
    for (const uint32_t word : guarded.behind)
        ASSERT_EQ(word, 0U);
}

TEST_F(VlanGroupMembers, array_or_bitmap_that_is_missing_gives_0) {
    const uint16_t vids[] = {5};
    vlanset set{};
    EXPECT_EQ(vg_clnt_change_array_to_bitmap(nullptr, 1, &set), 0);
    EXPECT_EQ(vg_clnt_change_array_to_bitmap(vids, 1, nullptr), 0);
}

TEST_F(VlanGroupMembers, processes_that_create_one_group_at_once_leave_a_valid_entry) {
    for (int round = 0; round < 20; ++round) {
        std::memset(bytes(20), 0, 520);
        bytes(20)[0] = 99;
        put_at<uint16_t>(bytes(20), 4, 1);
        ASSERT_TRUE(all_children(2, [](int) { return vlan_group_creat_entry(20) == 1 ? 0 : 1; }));
        EXPECT_EQ(bytes(20)[0], 20);
        EXPECT_EQ(std::count(bytes(20) + 1, bytes(21), 0), 519);
    }
}

// Each process drives a word of its own; its stale view of the others' words undoes some of their work. The count has
// to follow all the same.
TEST_F(VlanGroupMembers, count_follows_the_bits_that_processes_change_at_once) {
    ASSERT_TRUE(all_children(4, [](int index) {
        for (int round = 0; round < scaled(2000); ++round) {
            vlanset wanted{};
            vlan_group_get_member_vlan_bitmap(9, &wanted);
            wanted.words[index] = round % 2 == 0 ? 0xFFFF0000U : 0x0000FFFFU;
            Update(9, wanted);
        }
        return 0;
    }));
    const vlanset left = members(9);
    unsigned bits = 0;
    for (const uint32_t word : left.words)
        bits += static_cast<unsigned>(__builtin_popcount(word));
    EXPECT_EQ(bytes(9)[2], bits % 256);
}

} // namespace
