#include "tests/shared/vlan_fixture.h"
#include "tests/support/children.h"

namespace {

using namespace test;

class UnmappedProtocolRegistry : public UnmappedVlanDb {};

class ProtocolRegistry : public VlanDb {
  protected:
    ProtocolRegistry() { clear_log(); }
    static uint8_t *area() { return data() + kProtoAt; }
    static uint32_t state() { return value_at<uint32_t>(area(), 0); }
    static void put_state(uint32_t bits) { put_at<uint32_t>(area(), 0, bits); }
    static void put_mask(uint32_t proto, uint32_t bits) { put_at<uint32_t>(area(), 4 + 4 * proto, bits); }
};

constexpr const char *kNames[] = {"BRI_PROT_MIN",  "BRI_PROT_MSTP",   "BRI_PROT_GVRP",  "BRI_PROT_LLDP",
                                  "BRI_PROT_ERPS", "BRI_PROT_RERP",   "BRI_PROT_REUP",  "BRI_PROT_RLDP",
                                  "BRI_PROT_TPP",  "BRI_PROT_CDP",    "BRI_PROT_DHCP4", "BRI_PROT_DHCP6",
                                  "BRI_PROT_TILL", "BRI_PROT_UNKOWN", "BRI_PROT_MAX"};

TEST_F(UnmappedProtocolRegistry, each_number_has_its_name) {
    for (uint32_t proto = 0; proto < std::size(kNames); ++proto)
        EXPECT_STREQ(bridge_proto_get_name(proto), kNames[proto]) << proto;
}

TEST_F(UnmappedProtocolRegistry, numbers_from_15_on_are_unknown) {
    for (const uint32_t proto : {15U, 16U, 20U, 255U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_STREQ(bridge_proto_get_name(proto), "BRI_PROT_UNKOWN") << proto;
}

TEST_F(UnmappedProtocolRegistry, nothing_happens_before_the_database_is_mapped) {
    debug_on({BRI_DBG_VLAN});
    uint32_t conflict = 77;
    EXPECT_EQ(bridge_proto_state_set(1, &conflict), 0);
    EXPECT_EQ(conflict, 77U);
    EXPECT_EQ(bridge_proto_state_get(1), 0);
    EXPECT_EQ(bridge_proto_get_state_all(), 0U);
    EXPECT_EQ(bridge_proto_set_prejudge(1, 2), 0);
    bridge_proto_state_unset(1);
    bridge_proto_state_show();
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ProtocolRegistry, each_protocol_has_its_bit) {
    uint32_t expected = 0;
    for (uint32_t proto = 0; proto < 14; ++proto) {
        uint32_t conflict = 77;
        EXPECT_EQ(bridge_proto_state_get(proto), 0) << proto;
        EXPECT_EQ(bridge_proto_state_set(proto, &conflict), 1) << proto;
        EXPECT_EQ(conflict, 0U) << proto;
        EXPECT_EQ(bridge_proto_state_get(proto), 1) << proto;
        expected |= 1U << proto;
        EXPECT_EQ(state(), expected);
        EXPECT_EQ(bridge_proto_get_state_all(), expected);
    }
    for (uint32_t proto = 0; proto < 14; ++proto) {
        bridge_proto_state_unset(proto);
        expected &= ~(1U << proto);
        EXPECT_EQ(state(), expected);
    }
}

TEST_F(ProtocolRegistry, each_protocol_has_its_mask_word) {
    for (uint32_t proto = 0; proto < 14; ++proto)
        EXPECT_EQ(bridge_proto_set_prejudge(proto, 0xA0B0C000 + proto), 1);
    for (uint32_t proto = 0; proto < 14; ++proto)
        EXPECT_EQ(value_at<uint32_t>(data(), 328140 + 4 * proto), 0xA0B0C000 + proto);
    EXPECT_EQ(state(), 0U);
    EXPECT_EQ(kProtoAt + 4 + 4 * 14, kVlanDataSize);
}

TEST_F(ProtocolRegistry, mask_replaces_the_old_one) {
    bridge_proto_set_prejudge(4, 0xFF);
    EXPECT_EQ(bridge_proto_set_prejudge(4, 2), 1);
    EXPECT_EQ(value_at<uint32_t>(area(), 20), 2U);
}

TEST_F(ProtocolRegistry, numbers_from_14_on_are_refused) {
    debug_on({BRI_DBG_VLAN});
    const ByteVec before(area(), area() + 60);
    for (const uint32_t proto : {14U, 15U, 32U, 0xFFFFFFFFU}) {
        uint32_t conflict = 77;
        EXPECT_EQ(bridge_proto_state_set(proto, &conflict), 0);
        EXPECT_EQ(conflict, 77U);
        EXPECT_EQ(bridge_proto_state_get(proto), 0);
        EXPECT_EQ(bridge_proto_set_prejudge(proto, 1), 0);
    }
    EXPECT_EQ(ByteVec(area(), area() + 60), before);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ProtocolRegistry, set_without_a_place_for_the_conflict_is_refused) {
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(bridge_proto_state_set(1, nullptr), 0);
    EXPECT_EQ(state(), 0U);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ProtocolRegistry, enabled_protocol_of_the_mask_is_the_conflict) {
    uint32_t conflict = 77;
    ASSERT_EQ(bridge_proto_state_set(BRI_PROT_MSTP, &conflict), 1);
    bridge_proto_set_prejudge(BRI_PROT_ERPS, 1U << BRI_PROT_MSTP);
    EXPECT_EQ(bridge_proto_state_set(BRI_PROT_ERPS, &conflict), 0);
    EXPECT_EQ(conflict, 1U);
    EXPECT_EQ(state(), 2U);
    bridge_proto_state_unset(BRI_PROT_MSTP);
    EXPECT_EQ(bridge_proto_state_set(BRI_PROT_ERPS, &conflict), 1);
    EXPECT_EQ(conflict, 0U);
    EXPECT_EQ(state(), 1U << 4);
}

// Every pair of an enabled protocol and one that asks, the mask holding just the enabled one.
TEST_F(ProtocolRegistry, only_protocols_1_to_13_other_than_oneself_are_in_the_way) {
    for (uint32_t proto = 0; proto < 14; ++proto) {
        put_mask(proto, 0);
        for (uint32_t other = 0; other < 32; ++other) {
            put_state(1U << other);
            bridge_proto_set_prejudge(proto, 1U << other);
            uint32_t conflict = 77;
            const bool blocked = other >= 1 && other <= 13 && other != proto;
            EXPECT_EQ(bridge_proto_state_set(proto, &conflict), blocked ? 0 : 1) << proto << " " << other;
            EXPECT_EQ(conflict, blocked ? other : 0) << proto << " " << other;
            EXPECT_EQ(state(), blocked ? 1U << other : 1U << other | 1U << proto) << proto << " " << other;
        }
    }
}

TEST_F(ProtocolRegistry, lowest_conflict_is_reported) {
    put_state(0xFFFFFFFF);
    bridge_proto_set_prejudge(3, 1U << 0 | 1U << 3 | 1U << 9 | 1U << 6 | 1U << 30);
    uint32_t conflict = 0;
    EXPECT_EQ(bridge_proto_state_set(3, &conflict), 0);
    EXPECT_EQ(conflict, 6U);
}

TEST_F(ProtocolRegistry, mask_blocks_its_own_protocol_only) {
    uint32_t conflict = 77;
    bridge_proto_set_prejudge(4, 1U << 1);
    ASSERT_EQ(bridge_proto_state_set(4, &conflict), 1);
    EXPECT_EQ(bridge_proto_state_set(1, &conflict), 1);
    EXPECT_EQ(state(), 1U << 4 | 1U << 1);
}

TEST_F(ProtocolRegistry, protocol_that_is_enabled_may_be_enabled_again) {
    uint32_t conflict = 77;
    ASSERT_EQ(bridge_proto_state_set(4, &conflict), 1);
    EXPECT_EQ(bridge_proto_state_set(4, &conflict), 1);
    EXPECT_EQ(state(), 1U << 4);
}

TEST_F(ProtocolRegistry, unset_takes_the_lowest_five_bits_of_the_number) {
    put_state(0xFFFFFFFF);
    bridge_proto_state_unset(33);
    EXPECT_EQ(state(), ~(1U << 1));
    bridge_proto_state_unset(31);
    EXPECT_EQ(state(), ~(1U << 1 | 1U << 31));
}

// Four processes enable and disable protocols of their own, three each, in the one word that all share.
TEST_F(ProtocolRegistry, processes_that_change_their_own_protocols_lose_none) {
    SharedBlock<FlipContest> contest;
    put_state(1U << 13);
    EXPECT_TRUE(all_children(4, [&](int index) {
        const auto flip = [](int proto, bool on) {
            uint32_t conflict = 0;
            if (on)
                bridge_proto_state_set(static_cast<uint32_t>(proto), &conflict);
            else
                bridge_proto_state_unset(static_cast<uint32_t>(proto));
        };
        return flips_hold(*contest, 4, uint64_t{0xE} << 3 * index, flip, bridge_proto_get_state_all) ? 0 : 1;
    }));
    EXPECT_EQ(state(), 1U << 13);
}

TEST_F(ProtocolRegistry, all_states_are_the_whole_word) {
    put_state(0xC0000001);
    EXPECT_EQ(bridge_proto_get_state_all(), 0xC0000001U);
}

TEST_F(ProtocolRegistry, changes_and_questions_are_logged) {
    debug_on({BRI_DBG_VLAN});
    uint32_t conflict = 0;
    bridge_proto_state_set(BRI_PROT_LLDP, &conflict);
    bridge_proto_state_get(BRI_PROT_LLDP);
    bridge_proto_state_unset(BRI_PROT_LLDP);
    bridge_proto_set_prejudge(BRI_PROT_LLDP, 0xAB);
    EXPECT_EQ(log_text(), "Set bri-protocol state: BRI_PROT_LLDP.\nGet bri-protocol state: BRI_PROT_LLDP.\n"
                          "Unset bri-protocol state: BRI_PROT_LLDP.\n"
                          "Set bri-protocol prejudge: protocol 3, set ab\n");
    for (const LogLine &line : log_lines()) {
        EXPECT_EQ(line.category(), kVlanDbLine);
    }
}

TEST_F(ProtocolRegistry, refusal_is_logged_as_an_attempt) {
    debug_on({BRI_DBG_VLAN});
    put_state(2);
    put_mask(4, 2);
    uint32_t conflict = 0;
    EXPECT_EQ(bridge_proto_state_set(4, &conflict), 0);
    EXPECT_EQ(log_text(), "Set bri-protocol state: BRI_PROT_ERPS.\n");
}

TEST_F(ProtocolRegistry, changes_and_questions_are_silent_while_the_flag_is_off) {
    uint32_t conflict = 0;
    bridge_proto_state_set(BRI_PROT_LLDP, &conflict);
    bridge_proto_state_get(BRI_PROT_LLDP);
    bridge_proto_state_unset(BRI_PROT_LLDP);
    bridge_proto_set_prejudge(BRI_PROT_LLDP, 0xAB);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ProtocolRegistry, empty_registry_shows_two_heads) {
    bridge_proto_state_show();
    EXPECT_EQ(log_text(), "Protocol         Status\n---------------- ------\n"
                          "\nProtocol         Conflict\n---------------- --------\n");
}

TEST_F(ProtocolRegistry, show_prints_enabled_protocols_and_masks) {
    put_state(1U << 0 | 1U << 1 | 1U << 10 | 1U << 13 | 1U << 14 | 1U << 31);
    put_mask(0, 0xFFFFFFFF);
    put_mask(4, 1U << 1 | 1U << 5 | 1U << 13);
    put_mask(9, 1U << 0 | 1U << 20);
    put_mask(13, 1U << 12);
    bridge_proto_state_show();
    EXPECT_EQ(log_text(), "Protocol         Status\n"
                          "---------------- ------\n"
                          "BRI_PROT_MSTP    ON\n"
                          "BRI_PROT_DHCP4   ON\n"
                          "BRI_PROT_UNKOWN  ON\n"
                          "\nProtocol         Conflict\n"
                          "---------------- --------\n"
                          "BRI_PROT_ERPS    BRI_PROT_MSTP BRI_PROT_RERP BRI_PROT_UNKOWN \n"
                          "BRI_PROT_CDP     \n"
                          "BRI_PROT_UNKOWN  BRI_PROT_TILL \n");
    for (const LogLine &line : log_lines()) {
        EXPECT_EQ(line.category(), kShownLine);
    }
}

TEST_F(ProtocolRegistry, each_part_of_a_conflict_line_is_written_by_itself) {
    put_mask(4, 1U << 1 | 1U << 5);
    bridge_proto_state_show();
    std::vector<std::string> texts;
    for (const LogLine &line : log_lines())
        texts.push_back(line.text);
    EXPECT_EQ(texts, (std::vector<std::string>{"Protocol         Status\n", "---------------- ------\n",
                                               "\nProtocol         Conflict\n", "---------------- --------\n",
                                               "BRI_PROT_ERPS    ", "BRI_PROT_MSTP ", "BRI_PROT_RERP ", "\n"}));
}

} // namespace
