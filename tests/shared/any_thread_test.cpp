// Threads of one process on the same words of the shared tables: each switches something of its own on and off again
// and again, and nobody's change is lost.
#include "tests/shared/vlan_fixture.h"
#include "tests/support/children.h"

#include <bridge/protocol_registry.h>
#include <bridge/vlan_group.h>

#include <thread>

namespace {

using namespace test;

constexpr uint32_t kThreads = 2;
constexpr uint16_t kVlan = 10;
constexpr int32_t kPort = 5;

class AnyThread : public VlanDb {
  protected:
    AnyThread() {
        make(kVlan);
        plug(kPort);
    }

    template <class Body> static void in_threads(Body &&body) {
        std::vector<std::thread> threads;
        for (uint32_t index = 0; index < kThreads; ++index)
            threads.emplace_back(body, index);
        for (std::thread &thread : threads)
            thread.join();
    }

    // Every second bit of a word, from 1 on, for each of them.
    template <class Flip, class Read> static void expect_flips_hold(Flip &&flip, Read &&read) {
        FlipContest contest{};
        bool held[kThreads] = {};
        in_threads([&](uint32_t index) {
            held[index] = flips_hold(contest, kThreads, uint64_t{index == 0 ? 0x2AAAU : 0x1554U}, flip, read);
        });
        for (const bool one : held)
            EXPECT_TRUE(one);
        EXPECT_EQ(read(), 0U);
    }

    // Each counts up and down until they have met often: a count other than its own last one shows the other's.
    template <class Step> static void count_up_and_down(Step &&step) {
        const auto kOften = static_cast<uint32_t>(scaled(1000000));
        const auto latest = patience_ends();
        uint32_t met = 0;
        uint32_t arrived = 0;
        in_threads([&](uint32_t) {
            meet(arrived, kThreads);
            while (__atomic_load_n(&met, __ATOMIC_RELAXED) < kOften && std::chrono::steady_clock::now() <= latest) {
                const uint32_t up = step(true);
                const uint32_t down = step(false);
                if (up != 1 || down != 0)
                    __atomic_fetch_add(&met, 1U, __ATOMIC_RELAXED);
            }
        });
    }
};

TEST_F(AnyThread, changes_tag_vlans_beside_others) {
    expect_flips_hold(
        [](int bit, bool on) {
            const auto vid = static_cast<uint16_t>(32 + bit);
            on ? swport_tag_vlan_add(kPort, vid) : swport_tag_vlan_del(kPort, vid);
        },
        [] { return __atomic_load_n(&swport_get_tag_vlan(kPort)->words[1], __ATOMIC_RELAXED); });
}

TEST_F(AnyThread, changes_members_beside_others) {
    expect_flips_hold([](int bit, bool on) { (on ? vl_add_static_member : vl_del_static_member)(bit, kVlan); },
                      [] {
                          uint32_t words[2] = {};
                          vl_get_vlan_port_bmap(kVlan, words);
                          return words[0];
                      });
}

TEST_F(AnyThread, changes_protocols_beside_others) {
    expect_flips_hold(
        [](int bit, bool on) {
            uint32_t conflict = 0;
            on ? static_cast<void>(bridge_proto_state_set(static_cast<uint32_t>(bit), &conflict))
               : bridge_proto_state_unset(static_cast<uint32_t>(bit));
        },
        bridge_proto_get_state_all);
}

TEST_F(AnyThread, claims_port_functions_beside_others) {
    faults::fail("semop", 1, EINTR, 1 << 30); // the lock would keep them apart
    expect_flips_hold([](int bit, bool on) { swport_set_attr_exclude(kPort, 1U << bit, on ? 1 : 0, 0, nullptr); },
                      [] { return __atomic_load_n(&swport_get_spcb(kPort)->attr_exclude, __ATOMIC_RELAXED); });
}

// The count of a group is that of its bits, whoever changed them last.
TEST_F(AnyThread, changes_members_of_a_group_beside_others) {
    constexpr uint8_t kGroup = 9;
    ASSERT_EQ(vlan_group_shm_init(), 1);
    ASSERT_EQ(vlan_group_creat_entry(kGroup), 1);
    uint32_t arrived = 0;
    in_threads([&](uint32_t index) {
        meet(arrived, kThreads);
        for (int round = 0; round < scaled(160000); ++round) {
            vlanset wanted{};
            vlanset added{};
            vlanset removed{};
            uint8_t added_count = 0;
            uint8_t removed_count = 0;
            wanted.words[1 + index] = round % 2 == 0 ? 0xFFFF0000U : 0x000000FFU;
            vlan_group_set_member_vlan(kGroup, &wanted, &added, &removed, &added_count, &removed_count);
        }
    });
    const vlan_group_entry &left = *vlan_group_get_entry(kGroup);
    unsigned members = 0;
    for (const uint32_t word : left.members.words)
        members += static_cast<unsigned>(__builtin_popcount(word));
    EXPECT_EQ(left.member_count, members);
}

TEST_F(AnyThread, counts_users_of_a_vlan_beside_others) {
    count_up_and_down([](bool up) { return up ? vl_increase_vlan_ref(kVlan) : vl_decrease_vlan_ref(kVlan); });
    EXPECT_EQ(vl_get_vlan_ref(kVlan), 0);
}

TEST_F(AnyThread, counts_vlans_beside_others) {
    count_up_and_down([](bool up) {
        up ? vl_increase_vlan_number() : vl_decrease_vlan_number();
        return static_cast<uint32_t>(vl_get_vlan_number());
    });
    EXPECT_EQ(vl_get_vlan_number(), 0);
}

TEST_F(AnyThread, counts_routed_interfaces_beside_others) {
    count_up_and_down([](bool up) {
        up ? vl_increase_svi_number() : vl_decrease_svi_number();
        return static_cast<uint32_t>(__atomic_load_n(&g_vl_mng.stat->cur_svi_num, __ATOMIC_RELAXED));
    });
    EXPECT_EQ(g_vl_mng.stat->cur_svi_num, 0);
}

} // namespace
