// Every read of the port database against the bytes of the segment, taken by offset.
#include "tests/shared/port_fixture.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

#include <random>

namespace {

constexpr size_t kVlanEntry = 80;
constexpr size_t kVlanDataSize = 328196;
constexpr size_t kVlanStat = 327600;

// Arbitrary vids and indices, those next to every bound included.
constexpr unsigned kVids[] = {0,    1,    2,    31,   32,   33,   1021, 2048,  4063, 4064,
                              4093, 4094, 4095, 4096, 4097, 5119, 8192, 32768, 65535};
constexpr int32_t kOutside[] = {INT32_MIN, -64, -1, 0, 64, 65, 127, 4096, INT32_MAX};

class PortContents : public test::PortDb {
  protected:
    PortContents() {
        if (vl_vlandb_init() != 1)
            throw std::runtime_error("no VLAN database");
        vl_set_vlan_range(1, 4094);
    }
    ~PortContents() override { std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg); }

    static uint8_t *vlan_data() { return reinterpret_cast<uint8_t *>(g_vl_mng.shm->hdr) + 76; }

    uint32_t word(int32_t ifx, size_t offset) { return test::value_at<uint32_t>(block(ifx), offset); }
    uint16_t half(int32_t ifx, size_t offset) { return test::value_at<uint16_t>(block(ifx), offset); }
    bool in_set(int32_t ifx, size_t set_at, unsigned vid) { return vid < 4096 && bit(ifx, set_at, vid); }

    // What the rule has to be, told from the bytes of both segments.
    int rule(int32_t ifx, unsigned vid) {
        if (!member(ifx, vid))
            return 1;
        const bool native = vid == half(ifx, 0);
        switch (word(ifx, 16)) {
        case 2:
            return native ? 3 : 4;
        case 6:
            return 4;
        case 7:
            return !native && in_set(ifx, test::kTagAt, vid) ? 4 : 3;
        default:
            return 3;
        }
    }
    static bool member(int32_t ifx, unsigned vid) {
        if (!in_range(vid) || vid > 4094)
            return false;
        const uint8_t *entry = vlan_data() + vid * kVlanEntry;
        const auto index = static_cast<unsigned>(ifx);
        return test::value_at<uint16_t>(entry, 6) != 0 &&
               (test::value_at<uint32_t>(entry, 72 + index / 32 * 4) >> index % 32 & 1) != 0;
    }
    static bool in_range(unsigned vid) {
        return test::value_at<uint16_t>(vlan_data(), kVlanStat) <= vid &&
               vid <= test::value_at<uint16_t>(vlan_data(), kVlanStat + 2);
    }

    void expect_present(int32_t ifx) {
        SCOPED_TRACE(ifx);
        uint32_t value = 0;
        spcb copy{};
        EXPECT_EQ(swport_check_exist(ifx), 1);
        EXPECT_EQ(swport_get_spcb(ifx), swport_get_raw_spcb(ifx));
        EXPECT_EQ(vl_ifindex_to_swport(ifx), swport_get_raw_spcb(ifx));
        EXPECT_EQ(swport_get_spcb_copy(ifx, &copy), 1);
        EXPECT_EQ(std::memcmp(&copy, block(ifx), test::kBlockSize), 0);
        EXPECT_EQ(copy.ifx, word(ifx, 4));
        EXPECT_EQ(copy.attr_exclude, word(ifx, 8));
        for (unsigned instance = 0; instance < 65; ++instance)
            EXPECT_EQ(copy.fwd_state[instance], half(ifx, 292 + 2 * instance));
        EXPECT_EQ(swport_get_version(ifx), word(ifx, 12));
        EXPECT_EQ(swport_get_port_mode(ifx, &value), 1);
        EXPECT_EQ(value, word(ifx, 16));
        EXPECT_EQ(swport_get_port_default_mode(ifx, &value), 1);
        EXPECT_EQ(value, word(ifx, 20));
        EXPECT_EQ(swport_get_port_default_vid(ifx), half(ifx, 0));
        EXPECT_EQ(std::memcmp(swport_get_tag_vlan(ifx), block(ifx) + test::kTagAt, 512), 0);
        for (const unsigned vid : kVids) {
            EXPECT_EQ(swport_is_allow_vlan(ifx, static_cast<uint16_t>(vid)), in_set(ifx, test::kAllowAt, vid)) << vid;
            EXPECT_EQ(swport_get_vlan_tag_rule(ifx, static_cast<uint16_t>(vid)), rule(ifx, vid)) << vid;
        }
    }

    void expect_absent(int32_t ifx) {
        SCOPED_TRACE(ifx);
        uint32_t value = 77;
        spcb copy{};
        EXPECT_EQ(swport_check_exist(ifx), 0);
        EXPECT_EQ(swport_get_spcb(ifx), nullptr);
        EXPECT_EQ(swport_get_spcb_copy(ifx, &copy), 0);
        EXPECT_EQ(swport_get_version(ifx), 0U);
        EXPECT_EQ(swport_get_port_mode(ifx, &value), 0);
        EXPECT_EQ(swport_get_port_default_mode(ifx, &value), 0);
        EXPECT_EQ(value, 77U);
        EXPECT_EQ(swport_get_port_default_vid(ifx), 0);
        EXPECT_EQ(swport_get_tag_vlan(ifx), nullptr);
        for (const unsigned vid : kVids) {
            EXPECT_EQ(swport_is_allow_vlan(ifx, static_cast<uint16_t>(vid)), 0);
            EXPECT_EQ(swport_get_vlan_tag_rule(ifx, static_cast<uint16_t>(vid)), 1);
        }
    }

    void expect_all_as_the_bytes_say() {
        int count = 0;
        for (int32_t ifx = 1; ifx < 64; ++ifx) {
            const bool there = word(ifx, 4) != 0;
            count += there ? 1 : 0;
            there ? expect_present(ifx) : expect_absent(ifx);
        }
        EXPECT_EQ(swport_get_total_port_num(), count);
        for (const int32_t ifx : kOutside)
            expect_absent(ifx);
        for (const unsigned vid : kVids) {
            const bool listed = in_range(vid) && vid < 4096;
            EXPECT_EQ(swport_get_stp_instance(static_cast<uint16_t>(vid)),
                      listed ? test::value_at<uint16_t>(data(), test::kInstancesAt + 2 * vid) : 1022)
                << vid;
        }
    }
};

TEST_F(PortContents, each_field_is_read_from_its_own_bytes) {
    // One port, one field at a time: only that field's answer changes.
    block(63)[7] = 1;
    block(63)[4] = 1; // present on either byte order
    struct Field {
        size_t offset;
        size_t width;
    };
    for (const Field field : {Field{0, 2}, Field{12, 4}, Field{16, 4}, Field{20, 4}})
        for (size_t byte = 0; byte < field.width; ++byte) {
            block(63)[field.offset + byte] = static_cast<uint8_t>(0xA0 + byte);
            uint32_t mode = 0;
            uint32_t default_mode = 0;
            swport_get_port_mode(63, &mode);
            swport_get_port_default_mode(63, &default_mode);
            EXPECT_EQ(swport_get_port_default_vid(63), half(63, 0));
            EXPECT_EQ(swport_get_version(63), word(63, 12));
            EXPECT_EQ(mode, word(63, 16));
            EXPECT_EQ(default_mode, word(63, 20));
            EXPECT_NE(half(63, 0) + word(63, 12) + mode + default_mode, 0U);
            block(63)[field.offset + byte] = 0;
        }
}

TEST_F(PortContents, each_allowed_vlan_is_read_from_its_own_bit) {
    plug(7);
    for (unsigned vid = 0; vid < 4096; ++vid) {
        const size_t word_at = test::kAllowAt + vid / 32 * 4;
        test::put_at<uint32_t>(block(7), word_at, 1U << vid % 32);
        ASSERT_EQ(swport_is_allow_vlan(7, static_cast<uint16_t>(vid)), 1) << vid;
        ASSERT_EQ(swport_is_allow_vlan(7, static_cast<uint16_t>(vid ^ 1U)), 0) << vid;
        ASSERT_EQ(swport_is_allow_vlan(7, static_cast<uint16_t>(vid ^ 32U)), 0) << vid;
        test::put_at<uint32_t>(block(7), word_at, 0);
    }
}

TEST_F(PortContents, presence_is_any_bit_of_the_index_word_alone) {
    std::memset(block(9), 0xFF, test::kBlockSize);
    unplug(9);
    EXPECT_EQ(swport_check_exist(9), 0);
    for (size_t byte = 4; byte < 8; ++byte) {
        block(9)[byte] = 0x80;
        EXPECT_EQ(swport_check_exist(9), 1) << byte;
        block(9)[byte] = 0;
    }
}

TEST_F(PortContents, full_segments_are_read_as_the_bytes_say) {
    std::memset(data(), 0xFF, test::kPortDataSize);
    std::memset(vlan_data(), 0xFF, kVlanStat);
    expect_all_as_the_bytes_say();
}

// The bytes of one round; every third port is absent, and modes are small ones half of the time, so that every branch
// of a rule is met.
void scramble(std::mt19937 &random, uint8_t *ports, uint8_t *vlans) {
    const auto fill = [&](uint8_t *bytes, size_t size) {
        for (size_t at = 0; at + 4 <= size; at += 4)
            test::put_at<uint32_t>(bytes, at, static_cast<uint32_t>(random()));
    };
    fill(ports, test::kPortDataSize);
    fill(vlans, kVlanDataSize);
    for (size_t ifx = 0; ifx < 64; ++ifx) {
        uint8_t *block = ports + ifx * test::kBlockSize;
        if (random() % 3 == 0)
            test::put_at<uint32_t>(block, 4, 0);
        if (random() % 2 == 0)
            test::put_at<uint32_t>(block, 16, static_cast<uint32_t>(random() % 10));
        if (random() % 2 == 0)
            test::put_at<uint16_t>(block, 0, static_cast<uint16_t>(kVids[random() % std::size(kVids)]));
    }
    if (random() % 2 == 0) { // otherwise limits of any kind
        test::put_at<uint16_t>(vlans, kVlanStat, 0);
        test::put_at<uint16_t>(vlans, kVlanStat + 2, 65535);
    }
}

TEST_F(PortContents, arbitrary_segments_are_read_as_the_bytes_say) {
    test::debug_on({BRI_DBG_VLAN});
    std::mt19937 random(20240229);
    for (int round = 0; round < 20 && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        scramble(random, data(), vlan_data());
        const test::ByteVec before = snapshot();
        test::clear_log();
        expect_all_as_the_bytes_say();
        EXPECT_TRUE(test::log_lines().empty()); // look-ups never log
        EXPECT_EQ(snapshot(), before);          // nor write
    }
}

TEST_F(PortContents, an_arbitrary_header_is_shown_within_its_bounds) {
    std::mt19937 random(7);
    for (int round = 0; round < 50; ++round) {
        for (size_t at = 0; at < test::kPortHeader; ++at)
            segment()[at] = static_cast<uint8_t>(random() | 1U); // no byte ends the name
        uint32_t key_word = 0;
        uint32_t id = 0;
        uint32_t size = 0;
        char name[64];
        ASSERT_EQ(swport_get_shm_head(&key_word, &id, &size, name), 1);
        EXPECT_EQ(key_word, test::value_at<uint32_t>(segment(), 0));
        EXPECT_EQ(id, test::value_at<uint32_t>(segment(), 4));
        EXPECT_EQ(size, test::value_at<uint32_t>(segment(), 72));
        EXPECT_EQ(std::string(name), std::string(reinterpret_cast<char *>(segment()) + 8, 63));
        test::clear_log();
        swport_show_status();
        EXPECT_EQ(test::log_lines()[1].text, "shm-name:   " + std::string(name) + "\n");
    }
}

TEST_F(PortContents, changes_on_arbitrary_contents_stay_inside_their_fields) {
    std::mt19937 random(11);
    scramble(random, data(), vlan_data());
    test::ByteVec expected = snapshot();
    for (int32_t ifx = -1; ifx < 70; ++ifx)
        for (const unsigned vid : kVids) {
            swport_tag_vlan_add(ifx, static_cast<uint16_t>(vid));
            swport_tag_vlan_del(ifx, static_cast<uint16_t>(vid ^ 7U));
            swport_set_attr_exclude(ifx, vid, vid & 1U, UINT32_MAX, nullptr);
        }
    for (size_t ifx = 1; ifx < 64; ++ifx) // blank the fields that may change, then compare the rest
        for (uint8_t *bytes : {expected.data(), data()}) {
            std::memset(bytes + ifx * test::kBlockSize + 8, 0, 4);
            std::memset(bytes + ifx * test::kBlockSize + test::kTagAt, 0, 512);
        }
    EXPECT_EQ(snapshot(), expected);
}

} // namespace
