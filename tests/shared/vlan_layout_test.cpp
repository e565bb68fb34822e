// The layout of the VLAN segment by byte offset, both ways: bytes that a peer wrote are read by the operations, and
// what the operations write is read as bytes.
#include "tests/shared/vlan_fixture.h"

namespace {

using namespace test;

class VlanLayout : public VlanDb {
  protected:
    VlanLayout() { make(10); }
};

TEST_F(VlanLayout, header_stands_before_the_data) {
    const auto *start = reinterpret_cast<const uint8_t *>(g_vl_mng.shm->hdr);
    EXPECT_EQ(value_at<uint32_t>(start, 0), 0x11110001U + static_cast<unsigned>(vsd()));
    EXPECT_STREQ(reinterpret_cast<const char *>(start) + 8, "VLAN-SHM");
    EXPECT_EQ(value_at<uint32_t>(start, 72), 328196U);
    EXPECT_EQ(static_cast<const uint8_t *>(g_vl_mng.shm->data), start + 76);
}

TEST_F(VlanLayout, fields_of_an_entry_are_read_from_their_bytes) {
    uint8_t *bytes = entry(10);
    bytes[1] = 0x11;
    EXPECT_EQ(vl_get_vswpt_num(10), 0x11);
    bytes[2] = 1;
    EXPECT_EQ(vl_is_created_by_cli(10), 1);
    put_at<uint16_t>(bytes, 4, 0x2233);
    EXPECT_EQ(vl_get_vlan_latest_version(10), 0x2233);
    put_at<uint16_t>(bytes, 8, 0x0456);
    EXPECT_EQ(vl_get_manage_vid(10), 0x0456);
    put_at<uint16_t>(bytes, 10, 0x5566);
    EXPECT_EQ(vl_get_vlan_ref(10), 0x5566);
    put_at<uint32_t>(bytes, 12, 0x778899AA);
    uint32_t mode = 0;
    EXPECT_EQ(vl_get_vlan_mode(10, &mode), 1);
    EXPECT_EQ(mode, 0x778899AAU);
    put_at<uint32_t>(bytes, 16, 0xBBCCDDEE);
    EXPECT_EQ(vl_get_svi_ifx(10), 0xBBCCDDEEU);
    EXPECT_EQ(vl_get_vid_from_svifx(0xBBCCDDEE), 10);
    put_at<uint32_t>(bytes, 20, 0x01020304);
    EXPECT_EQ(vl_get_vlan_up_mem(10), 0x01020304U);
    std::memcpy(bytes + 28, "engineering", 12);
    char name[36];
    EXPECT_EQ(vl_get_vlan_name(10, name), 1);
    EXPECT_STREQ(name, "engineering");
    put_at<uint32_t>(bytes, 72, 0x80000002);
    put_at<uint32_t>(bytes, 76, 0x40000001);
    uint32_t members[2] = {};
    EXPECT_EQ(vl_get_vlan_port_bmap(10, members), 1);
    EXPECT_EQ(members[0], 0x80000002U);
    EXPECT_EQ(members[1], 0x40000001U);
    for (const int32_t ifx : {1, 31, 32, 62})
        EXPECT_EQ(vl_is_vlan_member(10, ifx), 1) << ifx;
    put_at<uint16_t>(bytes, 6, 0);
    EXPECT_EQ(vl_exist(10, 0), 0);
}

TEST_F(VlanLayout, entry_of_each_vlan_stands_at_80_times_its_id) {
    for (unsigned vid = 1; vid <= 4094; ++vid)
        put_at<uint16_t>(data(), vid * 80 + 6, static_cast<uint16_t>(vid));
    for (unsigned vid = 1; vid <= 4094; ++vid)
        put_at<uint16_t>(data(), vid * 80 + 10, static_cast<uint16_t>(vid ^ 0x5A5A));
    for (unsigned vid = 1; vid <= 4094; ++vid)
        ASSERT_EQ(vl_get_vlan_ref(static_cast<uint16_t>(vid)), vid ^ 0x5A5A) << vid;
}

TEST_F(VlanLayout, struct_and_bytes_agree_on_the_fields_that_no_operation_reads) {
    put_at<uint8_t>(entry(10), 0, 0xA0);
    put_at<uint8_t>(entry(10), 3, 0xA3);
    put_at<uint32_t>(entry(10), 24, 0xA4A5A6A7);
    put_at<uint32_t>(entry(10), 64, 0xB0B1B2B3);
    put_at<uint32_t>(entry(10), 68, 0xC0C1C2C3);
    vle copy{};
    ASSERT_EQ(vl_get_vlan_copy(10, &copy), 1);
    EXPECT_EQ(copy.proxy, 0xA0);
    EXPECT_EQ(copy.reserved, 0xA3);
    EXPECT_EQ(copy.create_time, 0xA4A5A6A7U);
    EXPECT_EQ(copy.svi_state_a, 0xB0B1B2B3U);
    EXPECT_EQ(copy.svi_state_b, 0xC0C1C2C3U);
}

// What each operation writes, and where: everything else of the data area keeps its bytes.
TEST_F(VlanLayout, each_change_writes_its_own_bytes_only) {
    const struct {
        const char *what;
        void (*change)();
        size_t offset;
        ByteVec bytes;
    } rows[] = {
        {"vswpt number", [] { vl_set_vswpt_num(10, 0x77); }, 801, {0x77}},
        {"operator's mark", [] { vl_set_created_by_cli(10); }, 802, {1}},
        {"users", [] { vl_increase_vlan_ref(10); }, 810, bytes_of(uint16_t{1})},
        {"mode", [] { vl_set_vlan_mode(10, 0x01020304); }, 812, bytes_of(uint32_t{0x01020304})},
        {"member 1", [] { vl_add_static_member(1, 10); }, 872, bytes_of(uint32_t{2})},
        {"member 63", [] { vl_add_static_member(63, 10); }, 876, bytes_of(uint32_t{0x80000000})},
        {"limits", [] { vl_set_vlan_range(0x0102, 0x0F04); }, 327600,
         bytes_of(std::array<uint16_t, 2>{0x0102, 0x0F04})},
        {"number", [] { vl_increase_vlan_number(); }, 327608, bytes_of(int32_t{1})},
        {"SVIs", [] { vl_decrease_svi_number(); }, 327616, bytes_of(int32_t{-1})},
        {"protocols",
         [] {
             uint32_t conflict;
             bridge_proto_state_set(9, &conflict);
         },
         328136, bytes_of(uint32_t{512})},
        {"mask 0", [] { bridge_proto_set_prejudge(0, 0xA1B2C3D4); }, 328140, bytes_of(uint32_t{0xA1B2C3D4})},
        {"mask 13", [] { bridge_proto_set_prejudge(13, 0xA1B2C3D4); }, 328192, bytes_of(uint32_t{0xA1B2C3D4})},
    };
    for (const auto &row : rows) {
        ByteVec expected(data(), data() + kVlanDataSize);
        std::copy(row.bytes.begin(), row.bytes.end(), expected.begin() + static_cast<ptrdiff_t>(row.offset));
        ASSERT_EQ(vl_exist(10, 0), 1) << row.what;
        row.change();
        ASSERT_TRUE(std::equal(expected.begin(), expected.end(), data())) << row.what;
        vl_set_vlan_range(1, 4094);
    }
}

TEST_F(VlanLayout, svi_and_deletion_write_their_own_words_only) {
    ByteVec expected(data(), data() + kVlanDataSize);
    vl_set_svi(10, 0x01020304);
    put_at<uint32_t>(expected.data(), 816, 0x01020304);
    put_at<int32_t>(expected.data(), 327616, 1);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), data()));
    put_at<int32_t>(expected.data(), 327608, 4);
    put_at<int32_t>(expected.data(), 327620, 1);
    put_at<int32_t>(data(), 327608, 5);
    vl_decrease_vlan_number();
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), data()));
}

TEST_F(VlanLayout, statistics_are_read_from_their_bytes) {
    put_at<uint16_t>(data(), 327600, 0x0011);
    put_at<uint16_t>(data(), 327602, 0x0EFE);
    put_at<int32_t>(data(), 327608, 0x01020304);
    put_at<int32_t>(data(), 327620, -0x01020304);
    uint32_t min = 0;
    uint32_t max = 0;
    vl_get_vlan_range(&min, &max);
    EXPECT_EQ(min, 0x11U);
    EXPECT_EQ(max, 0xEFEU);
    EXPECT_EQ(vl_get_vlan_number(), 0x01020304);
    EXPECT_EQ(vl_get_total_del_times(), -0x01020304);
}

TEST_F(VlanLayout, registry_is_read_from_its_bytes) {
    put_at<uint32_t>(data(), 328136, 1U << 2);
    put_at<uint32_t>(data(), 328140 + 4 * 11, 1U << 2);
    EXPECT_EQ(bridge_proto_get_state_all(), 4U);
    EXPECT_EQ(bridge_proto_state_get(2), 1);
    uint32_t conflict = 0;
    EXPECT_EQ(bridge_proto_state_set(11, &conflict), 0);
    EXPECT_EQ(conflict, 2U);
}

} // namespace
