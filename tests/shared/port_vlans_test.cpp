// Switch-port database: tagged and allowed VLANs, tag rules, instances.
#include "tests/shared/port_fixture.h"
#include "tests/support/children.h"

#include <bridge/port_db.h>
#include <bridge/vlan_db.h>

namespace {

using test::kTagAt;
using test::set_of;

// A present port 5, and VLANs of the full range.
class PortVlans : public test::PortDb {
  protected:
    PortVlans() {
        if (vl_vlandb_init() != 1)
            throw std::runtime_error("no VLAN database");
        vl_set_vlan_range(1, 4094);
        plug(5);
    }

    static void join(uint16_t vid, int32_t ifx) {
        vl_initial_vlan_entry(vid, BRI_VLAN_STATIC);
        vl_add_static_member(ifx, vid);
    }
    void set_mode(int32_t ifx, uint32_t mode, uint16_t default_vid) {
        test::put_at<uint32_t>(block(ifx), 16, mode);
        test::put_at<uint16_t>(block(ifx), 0, default_vid);
    }
    vlanset tagged(int32_t ifx) { return test::value_at<vlanset>(block(ifx), kTagAt); }
};

void expect_equal(const vlanset &set, const vlanset &expected) {
    for (unsigned index = 0; index < 128; ++index)
        ASSERT_EQ(set.words[index], expected.words[index]) << "word " << index;
}

TEST_F(PortVlans, every_vlan_is_added_once_and_deleted_once) {
    for (unsigned vid = 0; vid < 4096; ++vid) {
        const auto id = static_cast<uint16_t>(vid);
        ASSERT_EQ(swport_tag_vlan_del(5, id), -22) << vid;
        ASSERT_EQ(swport_tag_vlan_add(5, id), 0) << vid;
        ASSERT_TRUE(bit(5, kTagAt, vid)) << vid;
        ASSERT_EQ(swport_tag_vlan_add(5, id), -17) << vid;
        ASSERT_EQ(swport_tag_vlan_del(5, id), 0) << vid;
        ASSERT_FALSE(bit(5, kTagAt, vid)) << vid;
    }
}

TEST_F(PortVlans, adding_and_deleting_touch_one_bit_of_the_segment) {
    test::ByteVec expected = snapshot();
    swport_tag_vlan_add(5, 100);
    const size_t word_at = 5 * test::kBlockSize + kTagAt + 100 / 32 * 4;
    test::put_at<uint32_t>(expected.data(), word_at, 1U << 100 % 32);
    EXPECT_EQ(snapshot(), expected);
    swport_tag_vlan_del(5, 100);
    test::put_at<uint32_t>(expected.data(), word_at, 0);
    EXPECT_EQ(snapshot(), expected);
}

TEST_F(PortVlans, vlan_ids_beyond_the_bitmap_are_refused) {
    const test::ByteVec before = snapshot();
    for (const unsigned vid : {4096U, 4097U, 8191U, 65535U}) {
        EXPECT_EQ(swport_tag_vlan_add(5, static_cast<uint16_t>(vid)), -22) << vid;
        EXPECT_EQ(swport_tag_vlan_del(5, static_cast<uint16_t>(vid)), -22) << vid;
    }
    EXPECT_EQ(snapshot(), before);
}

TEST_F(PortVlans, vlan_ids_beyond_the_bitmap_are_never_allowed) {
    std::memset(block(5) + 424, 0xFF, test::kBlockSize - 424);
    EXPECT_EQ(swport_is_allow_vlan(5, 4095), 1);
    for (const unsigned vid : {4096U, 8191U, 65535U})
        EXPECT_EQ(swport_is_allow_vlan(5, static_cast<uint16_t>(vid)), 0) << vid;
}

TEST_F(PortVlans, an_absent_port_changes_nothing) {
    unplug(5);
    std::memset(block(5) + kTagAt, 0x55, 512);
    const test::ByteVec before = snapshot();
    EXPECT_EQ(swport_tag_vlan_add(5, 1), -22);
    EXPECT_EQ(swport_tag_vlan_del(5, 2), -22);
    vlanset map = set_of({1, 2, 3});
    swport_tag_vlan_merge_map(5, &map);
    swport_tag_vlan_rmv_map(5, &map);
    swport_reset_tag_vlan(5);
    expect_equal(map, set_of({1, 2, 3}));
    EXPECT_EQ(snapshot(), before);
}

TEST_F(PortVlans, null_maps_change_nothing) {
    swport_tag_vlan_add(5, 1);
    const test::ByteVec before = snapshot();
    swport_tag_vlan_merge_map(5, nullptr);
    swport_tag_vlan_rmv_map(5, nullptr);
    EXPECT_EQ(snapshot(), before);
}

TEST_F(PortVlans, merging_adds_the_map_and_leaves_it) {
    swport_tag_vlan_add(5, 1);
    swport_tag_vlan_add(5, 4094);
    const vlanset map = set_of({1, 31, 32, 2000, 4095});
    const vlanset unchanged = map;
    swport_tag_vlan_merge_map(5, &map);
    expect_equal(tagged(5), set_of({1, 31, 32, 2000, 4094, 4095}));
    expect_equal(map, unchanged);
}

TEST_F(PortVlans, removing_gives_back_exactly_what_was_removed) {
    const vlanset before = set_of({1, 31, 32, 64, 2000, 4094});
    swport_tag_vlan_merge_map(5, &before);
    vlanset map = set_of({0, 1, 32, 33, 64, 96, 4094, 4095});
    swport_tag_vlan_rmv_map(5, &map);
    expect_equal(map, set_of({1, 32, 64, 4094}));
    expect_equal(tagged(5), set_of({31, 2000}));
}

TEST_F(PortVlans, removing_the_ports_own_bitmap_clears_it) {
    const vlanset some = set_of({1, 100, 4094});
    swport_tag_vlan_merge_map(5, &some);
    swport_tag_vlan_rmv_map(5, swport_get_tag_vlan(5));
    expect_equal(tagged(5), vlanset{});
}

TEST_F(PortVlans, merging_the_ports_own_bitmap_keeps_it) {
    const vlanset some = set_of({1, 100, 4094});
    swport_tag_vlan_merge_map(5, &some);
    swport_tag_vlan_merge_map(5, swport_get_tag_vlan(5));
    expect_equal(tagged(5), some);
}

TEST_F(PortVlans, map_operations_touch_only_the_tag_bitmap) {
    std::memset(block(5), 0x5A, test::kBlockSize);
    test::ByteVec expected = snapshot();
    vlanset all;
    std::memset(&all, 0xFF, sizeof all);
    swport_tag_vlan_merge_map(5, &all);
    std::memset(expected.data() + 5 * test::kBlockSize + kTagAt, 0xFF, 512);
    EXPECT_EQ(snapshot(), expected);
    swport_tag_vlan_rmv_map(5, &all);
    std::memset(expected.data() + 5 * test::kBlockSize + kTagAt, 0, 512);
    EXPECT_EQ(snapshot(), expected);
    swport_tag_vlan_merge_map(5, &all);
    swport_reset_tag_vlan(5);
    EXPECT_EQ(snapshot(), expected);
}

TEST_F(PortVlans, resetting_clears_one_port) {
    plug(6);
    swport_tag_vlan_add(5, 10);
    swport_tag_vlan_add(6, 10);
    swport_reset_tag_vlan(5);
    expect_equal(tagged(5), vlanset{});
    expect_equal(tagged(6), set_of({10}));
}

// Rules for VLAN 10 and VLAN 20 of which port 5 is a member, with default VLAN 10 and both tag bits set.
TEST_F(PortVlans, each_mode_has_its_tag_rule) {
    join(10, 5);
    join(20, 5);
    swport_tag_vlan_add(5, 10);
    swport_tag_vlan_add(5, 20);
    struct Row {
        uint32_t mode;
        int native;
        int other;
    };
    for (const Row row :
         {Row{BRI_PORT_ROUTE, 3, 3}, Row{BRI_PORT_ACCESS, 3, 3}, Row{BRI_PORT_TRUNK, 3, 4}, Row{BRI_PORT_HOST, 3, 3},
          Row{BRI_PORT_PROMIS, 3, 3}, Row{BRI_PORT_TUNNEL, 3, 3}, Row{BRI_PORT_UPLINK, 4, 4},
          Row{BRI_PORT_HYBRID, 3, 4}, Row{8, 3, 3}, Row{UINT32_MAX, 3, 3}}) {
        set_mode(5, row.mode, 10);
        EXPECT_EQ(swport_get_vlan_tag_rule(5, 10), row.native) << "mode " << row.mode;
        EXPECT_EQ(swport_get_vlan_tag_rule(5, 20), row.other) << "mode " << row.mode;
    }
}

TEST_F(PortVlans, a_hybrid_port_carries_what_is_not_tagged_untagged) {
    join(20, 5);
    set_mode(5, BRI_PORT_HYBRID, 10);
    EXPECT_EQ(swport_get_vlan_tag_rule(5, 20), 3);
    swport_tag_vlan_add(5, 20);
    EXPECT_EQ(swport_get_vlan_tag_rule(5, 20), 4);
}

TEST_F(PortVlans, without_membership_the_rule_is_1) {
    join(10, 6);
    for (uint32_t mode = 0; mode < 9; ++mode) {
        set_mode(5, mode, 10);
        EXPECT_EQ(swport_get_vlan_tag_rule(5, 10), 1); // another port's VLAN
        EXPECT_EQ(swport_get_vlan_tag_rule(5, 11), 1); // no VLAN
    }
    for (const unsigned vid : {0U, 4095U, 4096U, 65535U})
        EXPECT_EQ(swport_get_vlan_tag_rule(5, static_cast<uint16_t>(vid)), 1);
}

TEST_F(PortVlans, an_absent_or_invalid_port_has_rule_1) {
    join(10, 5);
    set_mode(5, BRI_PORT_UPLINK, 10);
    ASSERT_EQ(swport_get_vlan_tag_rule(5, 10), 4);
    unplug(5);
    EXPECT_EQ(swport_get_vlan_tag_rule(5, 10), 1);
    for (const int32_t ifx : {-1, 0, 64})
        EXPECT_EQ(swport_get_vlan_tag_rule(ifx, 10), 1);
}

TEST_F(PortVlans, every_vlan_has_the_instance_of_the_table) {
    uint16_t table[4096];
    for (unsigned vid = 0; vid < 4096; ++vid)
        table[vid] = static_cast<uint16_t>(60000 - vid);
    swport_set_instance_table(table);
    EXPECT_EQ(std::memcmp(data() + test::kInstancesAt, table, sizeof table), 0);
    EXPECT_EQ(std::memcmp(swport_get_stp_instance_table(), table, sizeof table), 0);
    for (unsigned vid = 1; vid <= 4094; ++vid)
        ASSERT_EQ(swport_get_stp_instance(static_cast<uint16_t>(vid)), 60000 - vid);
}

TEST_F(PortVlans, setting_the_instance_table_touches_nothing_else) {
    std::memset(data(), 0x5A, test::kPortDataSize);
    test::ByteVec expected = snapshot();
    const uint16_t table[4096] = {};
    swport_set_instance_table(table);
    std::memset(expected.data() + test::kInstancesAt, 0, 8192);
    EXPECT_EQ(snapshot(), expected);
}

TEST_F(PortVlans, a_vlan_outside_the_databases_range_has_no_instance) {
    std::memset(data() + test::kInstancesAt, 0, 8192);
    EXPECT_EQ(swport_get_stp_instance(0), 1022);
    EXPECT_EQ(swport_get_stp_instance(4095), 1022);
    vl_set_vlan_range(100, 200);
    EXPECT_EQ(swport_get_stp_instance(99), 1022);
    EXPECT_EQ(swport_get_stp_instance(100), 0);
    EXPECT_EQ(swport_get_stp_instance(200), 0);
    EXPECT_EQ(swport_get_stp_instance(201), 1022);
}

TEST_F(PortVlans, limits_in_shared_memory_do_not_widen_the_instance_table) {
    std::memset(data(), 0, test::kPortDataSize); // instance 0 wherever a look-up would land in the segment
    vl_set_vlan_range(0, 65535);
    for (const unsigned vid : {4096U, 5000U, 65535U})
        EXPECT_EQ(swport_get_stp_instance(static_cast<uint16_t>(vid)), 1022) << vid;
}

class PortInstances : public test::PortDb {};

TEST_F(PortInstances, no_vlan_has_an_instance_before_the_vlan_database_is_there) {
    EXPECT_EQ(swport_get_stp_instance(10), 1022);
}

// Four processes share the same few words of the bitmap: process p owns the VLANs whose id is p modulo 4.
constexpr int kProcesses = 4;
constexpr unsigned kOwnVlans = 64;

unsigned own_vlan(unsigned process, unsigned number) {
    return number * kProcesses + process;
}

// The same pseudo-random sequence in the child that acts and in the parent that foretells.
class Sequence {
  public:
    explicit Sequence(unsigned seed) : state_(seed * 2654435761U + 1) {}
    unsigned next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
        return state_;
    }

  private:
    unsigned state_;
};

// Toggles own VLANs; gives how many steps did not have their result.
int toggle_own(int process, int steps, uint32_t &arrived) {
    Sequence sequence(static_cast<unsigned>(process));
    bool tagged[kOwnVlans] = {};
    int wrong = 0;
    test::meet(arrived, kProcesses);
    for (int step = 0; step < steps; ++step) {
        const unsigned number = sequence.next() % kOwnVlans;
        const auto vid = static_cast<uint16_t>(own_vlan(static_cast<unsigned>(process), number));
        wrong += (tagged[number] ? swport_tag_vlan_del(5, vid) : swport_tag_vlan_add(5, vid)) != 0 ? 1 : 0;
        tagged[number] = !tagged[number];
    }
    return wrong;
}

vlanset foretell_toggles(int steps) {
    vlanset expected{};
    for (unsigned process = 0; process < kProcesses; ++process) {
        Sequence sequence(process);
        for (int step = 0; step < steps; ++step) {
            const unsigned vid = own_vlan(process, sequence.next() % kOwnVlans);
            expected.words[vid / 32] ^= 1U << vid % 32;
        }
    }
    return expected;
}

TEST_F(PortVlans, processes_that_change_their_own_bits_never_lose_one) {
    const int steps = test::scaled(2000000);
    test::SharedBlock<uint32_t> arrived;
    EXPECT_TRUE(
        test::all_children(kProcesses, [&](int process) { return toggle_own(process, steps, *arrived) == 0 ? 0 : 1; }));
    expect_equal(tagged(5), foretell_toggles(steps));
}

// Merges a random part of the own VLANs, then removes all VLANs of the own kind: exactly the part comes back.
bool merge_and_remove(unsigned process, int rounds, uint32_t &arrived) {
    Sequence sequence(process);
    const uint32_t own = 0x11111111U << process;
    test::meet(arrived, kProcesses);
    for (int round = 0; round < rounds; ++round) {
        vlanset part{};
        vlanset all{};
        for (unsigned index = 0; index < 128; ++index) {
            part.words[index] = sequence.next() & own;
            all.words[index] = own;
        }
        swport_tag_vlan_merge_map(5, &part);
        swport_tag_vlan_rmv_map(5, &all);
        if (std::memcmp(&all, &part, sizeof all) != 0)
            return false;
    }
    return true;
}

TEST_F(PortVlans, processes_that_merge_and_remove_maps_get_back_exactly_their_own) {
    test::SharedBlock<uint32_t> arrived;
    EXPECT_TRUE(test::all_children(kProcesses, [&](int process) {
        return merge_and_remove(static_cast<unsigned>(process), test::scaled(10000), *arrived) ? 0 : 1;
    }));
    expect_equal(tagged(5), vlanset{});
}

// Four processes remove the same full map at once: each bit comes back to exactly one of them.
TEST_F(PortVlans, a_bit_that_several_processes_remove_comes_back_to_one) {
    struct Block {
        uint32_t arrived;
        vlanset got[kProcesses];
    };
    test::SharedBlock<Block> block_of;
    vlanset full;
    std::memset(&full, 0xFF, sizeof full);
    for (int round = 0; round < 20; ++round) {
        block_of->arrived = 0;
        swport_tag_vlan_merge_map(5, &full);
        ASSERT_TRUE(test::all_children(kProcesses, [&](int process) {
            block_of->got[process] = full;
            test::meet(block_of->arrived, kProcesses);
            swport_tag_vlan_rmv_map(5, &block_of->got[process]);
            return 0;
        }));
        for (unsigned index = 0; index < 128; ++index) {
            uint32_t seen = 0;
            uint32_t twice = 0;
            for (const vlanset &got : block_of->got) {
                twice |= seen & got.words[index];
                seen |= got.words[index];
            }
            ASSERT_EQ(twice, 0U);
            ASSERT_EQ(seen, UINT32_MAX);
        }
    }
}

} // namespace
