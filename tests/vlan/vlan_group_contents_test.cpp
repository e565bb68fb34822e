// Arbitrary bytes in the group table: every read and search stays inside it and agrees with the bytes.
#include "tests/vlan/vlan_group_fixture.h"

namespace {

using namespace test;

class VlanGroupContents : public VlanGroups {
  protected:
    static void scatter(uint32_t seed) {
        uint32_t state = seed;
        for (size_t index = 0; index < kTableSize; ++index) {
            state = state * 1664525 + 1013904223;
            bytes(0)[index] = static_cast<uint8_t>(state >> 24);
        }
        for (unsigned id = seed % 3; id <= 128; id += 3)
            bytes(id)[0] = 0;
    }
    static bool used(unsigned id) { return id <= 128 && bytes(id)[0] != 0; }
};

TEST_F(VlanGroupContents, reads_are_what_the_bytes_say) {
    for (uint32_t seed = 1; seed <= 5; ++seed) {
        scatter(seed);
        for (unsigned number = 0; number <= 255; ++number) {
            const auto id = static_cast<uint8_t>(number);
            const int exists = used(id) ? 1 : 0;
            ASSERT_EQ(vlan_group_check_exist(id), exists) << number;
            ASSERT_EQ(vg_clnt_get_assign_mode(id), exists != 0 ? bytes(id)[1] : 0) << number;
            ASSERT_EQ(vg_clnt_get_default_vid(id), exists != 0 ? value_at<uint16_t>(bytes(id), 4) : 0) << number;
            vlan_group_entry copy{};
            ASSERT_EQ(vlan_group_get_entry_copy(id, &copy), exists) << number;
            vlanset members{};
            ASSERT_EQ(vg_clnt_get_vlan_list(id, &members), exists) << number;
            for (unsigned vid = 0; vid < 4200; vid += 3)
                ASSERT_EQ(vlan_group_check_vlan_is_member_vlan(id, static_cast<uint16_t>(vid)),
                          exists != 0 && vid < 4096 && member_bit(id, vid) ? 1 : 0)
                    << number << " " << vid;
        }
    }
}

TEST_F(VlanGroupContents, search_finds_the_first_entry_in_use_that_holds_the_vlan) {
    for (uint32_t seed = 1; seed <= 5; ++seed) {
        scatter(seed);
        for (unsigned id = 2; id <= 128; ++id) // few members, so that the search goes far
            for (size_t offset = 8; offset < 520; ++offset)
                bytes(id)[offset] = offset % 16 == id % 16 ? bytes(id)[offset] : 0;
        for (unsigned vid = 0; vid < 4200; ++vid) {
            unsigned expected = 0;
            for (unsigned id = 1; id <= 128 && vid < 4096 && expected == 0; ++id)
                if (used(id) && member_bit(id, vid))
                    expected = id;
            uint8_t found = 0;
            ASSERT_EQ(vg_clnt_is_member_of_any_group(static_cast<uint16_t>(vid), &found), expected != 0 ? 1 : 0);
            ASSERT_EQ(found, expected != 0 ? bytes(expected)[0] : 0);
        }
    }
}

TEST_F(VlanGroupContents, update_reaches_any_wish_from_any_state) {
    for (uint32_t seed = 1; seed <= 5; ++seed) {
        scatter(seed);
        for (unsigned number = 1; number <= 128; number += 5) {
            const auto id = static_cast<uint8_t>(number);
            const auto wanted = value_at<vlanset>(bytes(129 - number), 8);
            const auto old = value_at<vlanset>(bytes(id), 8);
            vlanset added{};
            vlanset removed{};
            uint8_t added_count = 0;
            uint8_t removed_count = 0;
            if (vlan_group_set_member_vlan(id, &wanted, &added, &removed, &added_count, &removed_count) != 1)
                continue;
            for (unsigned index = 0; index < 128; ++index) {
                const uint32_t kept = index == 0 ? 1U : index == 127 ? 1U << 31 : 0; // ids 0 and 4095
                const auto now = value_at<uint32_t>(bytes(id), 8 + index * 4);
                ASSERT_EQ(now, (wanted.words[index] & ~kept) | (old.words[index] & kept));
                ASSERT_EQ(added.words[index], now & ~old.words[index]);
                ASSERT_EQ(removed.words[index], old.words[index] & ~now);
            }
        }
    }
}

} // namespace
