// Arbitrary bytes in the segments: every read, walk and print stays inside them and agrees with the bytes.
#include "tests/shared/vlan_fixture.h"

namespace {

using namespace test;

constexpr int kRounds = 6;
// Every id of the table and its ends, and samples beyond.
constexpr unsigned kVidEnd = 4100;

class VlanContents : public VlanDb {
  protected:
    // The same bytes on every run and every byte order.
    static void scatter(uint8_t *bytes, size_t size) {
        for (size_t index = 0; index < size; ++index) {
            state_ = state_ * 1664525 + 1013904223;
            bytes[index] = static_cast<uint8_t>(state_ >> 24);
        }
    }
    // Round 0 keeps the limits usual, the others take what comes; every other round leaves half of the entries empty.
    static void scatter_all(int round) {
        scatter(data(), kVlanDataSize);
        scatter(reinterpret_cast<uint8_t *>(swport_get_raw_spcb(1)), 63 * 1960);
        if (round == 0)
            vl_set_vlan_range(1, 4094);
        if (round % 2 == 1)
            for (unsigned vid = 0; vid < 4095; vid += 2)
                put_at<uint16_t>(entry(vid), 6, 0);
        for (int32_t ifx = 1; ifx < 64; ifx += 2)
            swport_get_raw_spcb(ifx)->ifx = 0;
    }
    static bool live(unsigned vid) {
        return vid <= 4094 && vid >= value_at<uint16_t>(stat(), 0) && vid <= value_at<uint16_t>(stat(), 2) &&
               value_at<uint16_t>(entry(vid), 6) != 0;
    }
    template <class T> static T field(unsigned vid, size_t offset, T missing = 0) {
        return live(vid) ? value_at<T>(entry(vid), offset) : missing;
    }

  private:
    static inline uint32_t state_ = 12345;
};

TEST_F(VlanContents, fields_are_what_the_bytes_say) {
    for (int round = 0; round < kRounds; ++round) {
        scatter_all(round);
        for (unsigned number = 0; number < kVidEnd; ++number) {
            const auto vid = static_cast<uint16_t>(number);
            ASSERT_EQ(vl_exist(vid, 0), live(vid) ? 1 : 0) << vid;
            ASSERT_EQ(vl_get_manage_vid(vid), field(vid, 8, vid)) << vid;
            ASSERT_EQ(vl_get_vlan_ref(vid), field<uint16_t>(vid, 10)) << vid;
            ASSERT_EQ(vl_get_svi_ifx(vid), field<uint32_t>(vid, 16)) << vid;
            ASSERT_EQ(vl_get_vlan_up_mem(vid), field<uint32_t>(vid, 20)) << vid;
            ASSERT_EQ(vl_get_vswpt_num(vid), field<uint8_t>(vid, 1)) << vid;
            ASSERT_EQ(vl_is_created_by_cli(vid), field<uint8_t>(vid, 2) != 0 ? 1 : 0) << vid;
            uint32_t mode = 0;
            ASSERT_EQ(vl_get_vlan_mode(vid, &mode), live(vid) ? 1 : 0) << vid;
            ASSERT_EQ(mode, field<uint32_t>(vid, 12)) << vid;
            vle copy{};
            ASSERT_EQ(vl_get_vlan_copy(vid, &copy), live(vid) ? 1 : 0) << vid;
        }
    }
}

TEST_F(VlanContents, names_end_within_their_field) {
    for (int round = 0; round < kRounds; ++round) {
        scatter_all(round);
        for (unsigned vid = 0; vid < 4095; ++vid)
            std::memset(entry(vid) + 28, vid % 3 == 0 ? 'n' : 0xFF, 36);
        for (unsigned vid = 0; vid < kVidEnd; ++vid) {
            char name[36] = {};
            const int given = vl_get_vlan_name(static_cast<uint16_t>(vid), name);
            ASSERT_EQ(given, live(vid) ? 1 : 0) << vid;
            ASSERT_EQ(strnlen(name, sizeof name), given == 1 ? 35U : 0U) << vid;
        }
    }
}

TEST_F(VlanContents, members_are_what_the_bytes_say) {
    for (int round = 0; round < kRounds; ++round) {
        scatter_all(round);
        for (unsigned number = 0; number < kVidEnd; ++number) {
            const auto vid = static_cast<uint16_t>(number);
            int present = 0;
            for (int32_t ifx = -1; ifx <= 64; ++ifx) {
                const bool valid = ifx >= 1 && ifx <= 63;
                const bool member =
                    valid && (field<uint32_t>(vid, 72U + static_cast<size_t>(ifx) / 32 * 4) >> ifx % 32 & 1) != 0;
                ASSERT_EQ(vl_is_vlan_member(vid, ifx), member ? 1 : 0) << vid << " " << ifx;
                present += member && swport_get_raw_spcb(ifx)->ifx != 0 ? 1 : 0;
            }
            ASSERT_EQ(vl_get_vlan_port_count(vid), present) << vid;
            uint32_t words[2] = {};
            ASSERT_EQ(vl_get_vlan_port_bmap(vid, words), live(vid) ? 1 : 0) << vid;
        }
    }
}

TEST_F(VlanContents, walks_end_and_find_what_the_bytes_say) {
    for (int round = 0; round < kRounds; ++round) {
        scatter_all(round);
        vlanset all;
        std::memset(&all, 0xFF, sizeof all);
        vlanset missing{};
        vl_vlanset_exist(0, &all, &missing);
        for (unsigned vid = 1; vid <= 4094; ++vid)
            ASSERT_EQ((missing.words[vid / 32] >> vid % 32 & 1) == 0, live(vid)) << vid;
        for (unsigned vid = 0; vid < 4095; vid += 97) {
            const auto svi = value_at<uint32_t>(entry(vid), 16);
            const uint16_t found = vl_get_vid_from_svifx(svi);
            if (found != 0) {
                ASSERT_TRUE(live(found));
                ASSERT_EQ(value_at<uint32_t>(entry(found), 16), svi);
            } else {
                ASSERT_TRUE(vid == 0 || !live(vid)) << vid;
            }
        }
    }
}

TEST_F(VlanContents, prints_and_protocols_take_any_bytes) {
    for (int round = 0; round < kRounds; ++round) {
        scatter_all(round);
        std::memset(g_vl_mng.shm->hdr->name, 'n', 64);
        clear_log();
        vl_vlandb_show_status();
        bridge_proto_state_show();
        EXPECT_EQ(log_lines().back().text, "\n");
        EXPECT_TRUE(logged("shm-name:   " + std::string(63, 'n') + "\n"));
        const auto state = value_at<uint32_t>(data(), kProtoAt);
        EXPECT_EQ(bridge_proto_get_state_all(), state);
        for (uint32_t proto = 0; proto < 14; ++proto)
            EXPECT_EQ(bridge_proto_state_get(proto), static_cast<int>(state >> proto & 1));
    }
}

TEST_F(VlanContents, changes_stay_inside_their_entry) {
    for (int round = 0; round < kRounds; ++round) {
        scatter_all(round);
        for (unsigned number = 0; number < kVidEnd; number += 7) {
            const auto vid = static_cast<uint16_t>(number);
            ByteVec expected(data(), data() + kVlanDataSize);
            vl_set_svi(vid, number);
            vl_set_vlan_mode(vid, number % 5);
            vl_increase_vlan_ref(vid);
            vl_set_vswpt_num(vid, 7);
            vl_add_static_member(static_cast<int32_t>(number % 70), vid);
            if (number % 2 == 0)
                vl_initial_vlan_entry(vid, 2);
            else
                vl_clear_vlan_entry(vid);
            if (number < 4095)
                std::memcpy(expected.data() + number * 80, entry(vid), 80);
            std::memcpy(expected.data() + kStatAt, stat(), 24);
            ASSERT_EQ(std::memcmp(expected.data(), data(), kVlanDataSize), 0) << vid;
        }
    }
}

} // namespace
