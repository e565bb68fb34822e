// Links that fail and come back: the ports' own words, the VLANs' numbers of members that are up, what is announced.
#include "sandbox/addresses.h"
#include "sandbox/vlans.h"
#include "tests/support/test.h"
#include "wire/own.h"

#include <bridge/events.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using namespace sandbox;

struct LinksTest : test::Env {
    LinksTest() {
        Vlans::open();
        vl_initial_vlan_entry(10, BRI_VLAN_STATIC);
        vl_initial_vlan_entry(11, BRI_VLAN_STATIC);
        ports.add(3, BRI_PORT_ACCESS, 10);
        ports.add(4, BRI_PORT_TRUNK, 1);
        ports.set_allowed(4, parse_vlans("10-11"));
        types.clear();
    }
    static void expect_up(uint32_t in_10, uint32_t in_11) {
        EXPECT_EQ(vl_get_vlan_up_mem(10), in_10);
        EXPECT_EQ(vl_get_vlan_up_mem(11), in_11);
    }
    std::vector<uint32_t> announced() { return std::exchange(types, {}); }

    std::vector<uint32_t> types;
    std::vector<uint8_t> last;
    Ports ports{[this](uint32_t type, Bytes payload) {
        types.push_back(type);
        last = {payload.begin(), payload.end()};
    }};
};

TEST_F(LinksTest, members_that_are_up_are_counted_in_every_vlan) {
    expect_up(2, 1);
    ports.set_link(4, false);
    expect_up(1, 0);
    ports.set_link(3, false);
    expect_up(0, 0);
    ports.set_link(4, true);
    expect_up(1, 1);
}

TEST_F(LinksTest, number_follows_the_membership) {
    ports.disallow(4, only(10));
    expect_up(1, 1);
    ports.set_link(4, false);
    ports.allow(4, only(10));
    expect_up(1, 0);
    ports.remove(3);
    expect_up(0, 0);
    ports.add(3, BRI_PORT_ACCESS, 11);
    expect_up(0, 1);
}

TEST_F(LinksTest, port_that_comes_again_is_up) {
    ports.set_link(3, false);
    ports.remove(3);
    EXPECT_FALSE(link_is_down(3));
    ports.add(3, BRI_PORT_ACCESS, 10);
    EXPECT_FALSE(link_is_down(3));
    expect_up(2, 1);
}

TEST_F(LinksTest, link_is_announced_when_it_has_changed_and_only_then) {
    ports.set_link(3, true);
    EXPECT_TRUE(announced().empty());
    ports.set_link(3, false);
    EXPECT_EQ(announced(), std::vector<uint32_t>{VLAN_EVENT_INTF_STATE});
    const auto record = object_of<wire::intf_state>(last);
    EXPECT_EQ(record.ifx, 3U);
    EXPECT_EQ(record.state, 0U);
    ports.set_link(3, false);
    EXPECT_TRUE(announced().empty());
}

TEST_F(LinksTest, number_of_a_vlan_with_an_svi_is_announced) {
    ASSERT_EQ(vl_set_svi(11, 900), 0);
    ports.set_link(4, false);
    EXPECT_EQ(announced(), (std::vector<uint32_t>{VLAN_EVENT_INTF_STATE, VLAN_EVENT_SVI_MODIFY_UP_NUM}));
    const auto record = object_of<wire::svi_up_num>(last);
    EXPECT_EQ(record.svi_ifx, 900U);
    EXPECT_EQ(record.vid, 11);
    EXPECT_EQ(record.up_num, 0U);
}

TEST_F(LinksTest, failure_is_told_to_the_switch_before_the_clients) {
    uint32_t failed = 0;
    ports.on_down = [&](uint32_t ifx) {
        EXPECT_TRUE(types.empty());
        EXPECT_EQ(vl_get_vlan_up_mem(11), 0U);
        failed = ifx;
    };
    ports.set_link(4, false);
    EXPECT_EQ(failed, 4U);
    ports.on_down = [](uint32_t) { ADD_FAILURE(); };
    ports.set_link(4, true);
}

TEST_F(LinksTest, absent_port_has_no_link) {
    EXPECT_THROW(ports.set_link(5, true), std::invalid_argument);
    EXPECT_THROW(ports.set_link(64, false), std::invalid_argument);
    EXPECT_FALSE(link_is_down(64));
}

TEST_F(LinksTest, no_frame_comes_in_on_a_port_that_is_down) {
    const Addresses addresses([](uint32_t, Bytes) { return KernelResult{}; }, [](uint32_t, Bytes) {});
    bri_mac_entry frame{};
    frame.ifx = 3;
    frame.bcast_id = 10;
    EXPECT_EQ(addresses.refusal(frame), "");
    ports.set_link(3, false);
    EXPECT_EQ(addresses.refusal(frame), "port 3 is down");
}

} // namespace
