// Claims of ports, and filtered addresses.
#include "tests/host/layer_fixture.h"

#include <bridge/port_exclusion.h>

using namespace test;

namespace {

class HostPort : public Layer {
  protected:
    void SetUp() override {
        start_synchronised();
        add_port(3);
    }
    static uint32_t flags() {
        uint32_t set = 0;
        bridge_set_excflag(3, 0, UINT32_MAX, &set);
        return set;
    }
    static uint32_t attrs() { return swport_get_spcb(3)->attr_exclude; }

    bridge_host_claim claim{3, BRI_SECURE, BRI_DOT1X | BRI_MIR_DEST, 0x80, 0x140};
    bridge_host_refusal why{};
};

TEST_F(HostPort, is_claimed_in_both_tables) {
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), 0);
    EXPECT_EQ(why.reason, BRIDGE_HOST_CLAIM_FREE);
    EXPECT_STREQ(why.text, "");
    EXPECT_EQ(flags(), uint32_t{BRI_SECURE});
    EXPECT_EQ(attrs(), 0x80U);
}

TEST_F(HostPort, is_claimed_in_one_table_when_that_is_all) {
    claim.attrs = 0;
    EXPECT_EQ(bridge_host_claim_port(&claim, nullptr), 0);
    EXPECT_EQ(attrs(), 0U);
    bridge_host_release_port(&claim);
    claim = {3, 0, BRI_DOT1X, 0x80, 0};
    EXPECT_EQ(bridge_host_claim_port(&claim, nullptr), 0);
    EXPECT_EQ(flags(), 0U);
    EXPECT_EQ(attrs(), 0x80U);
}

TEST_F(HostPort, is_refused_with_the_holders_of_its_flags) {
    uint32_t conflict = 0;
    bridge_set_excflag(3, BRI_DOT1X | BRI_MIR_DEST | BRI_HOST, 0, &conflict);
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_NOT_PERMITTED);
    EXPECT_EQ(why.reason, BRIDGE_HOST_CLAIM_HELD);
    EXPECT_EQ(why.flags, uint32_t{BRI_DOT1X | BRI_MIR_DEST});
    EXPECT_EQ(why.attrs, 0U);
    EXPECT_STREQ(why.text, "port 3 is held: BRI_DOT1X BRI_MIR_DEST");
    EXPECT_EQ(flags(), uint32_t{BRI_DOT1X | BRI_MIR_DEST | BRI_HOST});
    EXPECT_EQ(attrs(), 0U);
}

TEST_F(HostPort, is_given_back_in_the_first_table_when_the_second_refuses) {
    swport_set_attr_exclude(3, 0x140, 1, 0, nullptr);
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_NOT_PERMITTED);
    EXPECT_EQ(why.reason, BRIDGE_HOST_CLAIM_HELD);
    EXPECT_EQ(why.attrs, 0x140U);
    EXPECT_STREQ(why.text, "port 3 is held: attributes 0x140");
    EXPECT_EQ(flags(), 0U);
    EXPECT_EQ(attrs(), 0x140U);
}

TEST_F(HostPort, keeps_a_flag_that_was_set_before) {
    uint32_t conflict = 0;
    bridge_set_excflag(3, BRI_SECURE, 0, &conflict);
    swport_set_attr_exclude(3, 0x40, 1, 0, nullptr);
    claim.flags |= BRI_HOST;
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_NOT_PERMITTED);
    EXPECT_EQ(flags(), uint32_t{BRI_SECURE});
}

TEST_F(HostPort, may_be_claimed_again) {
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), 0);
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), 0);
}

TEST_F(HostPort, names_flags_that_have_no_name_by_number) {
    uint32_t conflict = 0;
    claim.flag_conflicts = UINT32_MAX;
    bridge_set_excflag(3, 0x80000001, 0, &conflict);
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_NOT_PERMITTED);
    EXPECT_STREQ(why.text, "port 3 is held: BRI_DOT1Q_TUNNEL flags 0x80000000");
}

TEST_F(HostPort, has_room_for_every_holder) {
    uint32_t conflict = 0;
    claim.flag_conflicts = UINT32_MAX;
    bridge_set_excflag(3, UINT32_MAX, 0, &conflict);
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_NOT_PERMITTED);
    EXPECT_STREQ(why.text, "port 3 is held: BRI_DOT1Q_TUNNEL BRI_MAC_COPY BRI_SECURE BRI_DOT1X BRI_MIR_DEST BRI_HOST "
                           "BRI_PROMISCUOUS flags 0xffffff80");
}

TEST_F(HostPort, is_refused_when_there_is_none) {
    for (const uint32_t ifx : {0U, 4U, 64U, UINT32_MAX}) {
        claim.ifx = ifx;
        EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_NO_INTERFACE) << ifx;
        EXPECT_EQ(why.reason, BRIDGE_HOST_CLAIM_NO_PORT);
        EXPECT_EQ(why.text, "port " + std::to_string(ifx) + " does not exist");
    }
}

TEST_F(HostPort, is_refused_when_the_table_cannot_be_had) {
    faults::fail("shmget", 1, ENOSPC, 10);
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_NO_MEMORY);
    EXPECT_EQ(why.reason, BRIDGE_HOST_CLAIM_NO_TABLE);
    EXPECT_STREQ(why.text, "port 3 cannot be claimed: the table cannot be had");
    EXPECT_EQ(attrs(), 0U);
}

TEST_F(HostPort, is_not_claimed_for_nothing) {
    claim.flags = claim.attrs = 0;
    EXPECT_EQ(bridge_host_claim_port(&claim, &why), BRI_ERR_INVALID);
    EXPECT_EQ(bridge_host_claim_port(nullptr, &why), BRI_ERR_NULL);
}

TEST_F(HostPort, is_released_in_both_tables) {
    uint32_t conflict = 0;
    bridge_host_claim_port(&claim, nullptr);
    bridge_set_excflag(3, BRI_HOST, 0, &conflict);
    EXPECT_EQ(bridge_host_release_port(&claim), 0);
    EXPECT_EQ(flags(), uint32_t{BRI_HOST});
    EXPECT_EQ(attrs(), 0U);
    EXPECT_EQ(bridge_host_release_port(&claim), 0); // nothing is set
}

TEST_F(HostPort, is_released_when_it_has_gone) {
    bridge_host_claim_port(&claim, nullptr);
    remove_port(3);
    EXPECT_EQ(bridge_host_release_port(&claim), 0);
    EXPECT_EQ(flags(), 0U);
    EXPECT_EQ(bridge_host_release_port(nullptr), BRI_ERR_NULL);
}

TEST_F(HostPort, filters_an_address) {
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    EXPECT_EQ(bridge_host_filter_add(mac, 10), 0);
    EXPECT_EQ(bridge_host_filter_del(mac, 10), 0);
    const std::vector<Message> messages = sent();
    ASSERT_EQ(messages.size(), 2U);
    bri_mac_msg expected{};
    expected.oper = BRI_MAC_ADD;
    expected.entry.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
    std::memcpy(expected.entry.mac, mac, sizeof mac);
    expected.entry.bcast_id = 10;
    expected.entry.type = BRI_MAC_TYPE_FILTER;
    EXPECT_EQ(messages[0], (Message{MAC_EVENT_NOTIFY_ADDR, bytes_of(expected)}));
    expected.oper = BRI_MAC_DEL;
    EXPECT_EQ(messages[1], (Message{MAC_EVENT_NOTIFY_ADDR, bytes_of(expected)}));
}

TEST_F(HostPort, filters_no_address_that_cannot_be_one) {
    const uint8_t group[6] = {1, 0, 0, 0, 0, 1};
    const uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    EXPECT_EQ(bridge_host_filter_add(nullptr, 10), BRI_ERR_NULL);
    EXPECT_EQ(bridge_host_filter_add(group, 10), BRI_ERR_INVALID);
    EXPECT_EQ(bridge_host_filter_add(mac, 0), BRI_ERR_INVALID);
    EXPECT_EQ(bridge_host_filter_add(mac, 4095), BRI_ERR_INVALID);
    lose_connection();
    EXPECT_EQ(bridge_host_filter_add(mac, 10), BRI_ERR_SOCKET);
    EXPECT_TRUE(sent().empty());
}

class HostStatistics : public Layer {};

TEST_F(HostStatistics, go_to_callers_of_every_age) {
    start_synchronised();
    struct {
        bridge_host_statistics known;
        uint32_t more;
    } newer{};
    newer.known.size = sizeof newer;
    newer.more = 7;
    EXPECT_EQ(bridge_host_get_statistics(&newer.known), 0);
    EXPECT_EQ(newer.more, 0U);
    EXPECT_EQ(newer.known.size, sizeof newer);
    EXPECT_EQ(newer.known.connections, 1U);
    bridge_host_statistics older{};
    older.size = 8;
    older.outages = 7;
    EXPECT_EQ(bridge_host_get_statistics(&older), 0);
    EXPECT_EQ(older.connections, 1U);
    EXPECT_EQ(older.outages, 7U); // unknown to it
    older.size = 3;
    EXPECT_EQ(bridge_host_get_statistics(&older), BRI_ERR_INVALID);
    EXPECT_EQ(bridge_host_get_statistics(nullptr), BRI_ERR_NULL);
}

TEST_F(HostStatistics, begin_anew_with_the_layer) {
    start_synchronised();
    set_role(true);
    deliver(VLAN_EVENT_RENAME);
    bridge_host_statistics figures{};
    figures.size = sizeof figures;
    bridge_host_get_statistics(&figures);
    EXPECT_EQ(figures.dropped_missed, 1U);
    EXPECT_EQ(figures.connections, 1U);
    bridge_host_stop([](const bridge_host_left *, void *) {});
    loop().run("host-stop");
    start_layer();
    bridge_host_get_statistics(&figures);
    EXPECT_EQ(figures.dropped_missed, 0U);
    EXPECT_EQ(figures.connections, 0U);
}

} // namespace
