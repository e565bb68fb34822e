// Sets and addresses as C++ values, and events as types.
#include "tests/support/test.h"

#include <bridge/events.hpp>
#include <bridge/sets.hpp>

#include <algorithm>
#include <map>

namespace {

using bridge::mac_address;
namespace event = bridge::event;

static_assert(std::ranges::forward_range<const bridge::vlans>);
static_assert(std::ranges::view<bridge::set_view<BRI_VID_MAX>>);
static_assert(sizeof(bridge::vlans) == sizeof(vlanset) && sizeof(bridge::ports) == sizeof(bri_port_set));
static_assert(std::is_trivially_copyable_v<bridge::vlans> && std::is_trivially_copyable_v<mac_address>);

std::vector<uint32_t> ids_of(const auto &range) {
    return {range.begin(), range.end()};
}

TEST(SetValues, walk_gives_the_numbers_of_a_set_where_it_lies) {
    vl_evt_vlanset_rec record{};
    for (const uint32_t vid : {1U, 31U, 32U, 4094U})
        bri_vlanset_add(&record.vlans, vid);
    EXPECT_EQ(ids_of(bridge::in(record.vlans)), (std::vector<uint32_t>{1, 31, 32, 4094}));
    EXPECT_EQ(std::ranges::distance(bridge::in(record.vlans)), 4);
}

TEST(SetValues, walk_goes_over_a_vlans_member_words) {
    vle entry{};
    entry.members[0] = 1U << 3 | 1U; // port 0 is none
    entry.members[1] = 1U << 31;
    EXPECT_EQ(ids_of(bridge::in(entry.members)), (std::vector<uint32_t>{3, 63}));
}

TEST(SetValues, an_empty_set_has_nothing_to_walk) {
    const bridge::ports none;
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.begin(), none.end());
    EXPECT_EQ(ids_of(bridge::set_view<BRI_IFX_MAX>()), std::vector<uint32_t>{});
}

TEST(SetValues, are_the_structs_of_the_interface) {
    bridge::vlans set{3, 70};
    vlanset *as_struct = &set;
    EXPECT_EQ(as_struct->words[0], 1U << 3);
    EXPECT_EQ(as_struct->words[2], 1U << 6);
    EXPECT_EQ(bri_vlanset_remove(as_struct, 3), 0);
    EXPECT_EQ(set, bridge::vlans{70});
}

TEST(SetValues, refuse_numbers_out_of_range) {
    bridge::ports set{0, 1, 64};
    EXPECT_EQ(ids_of(set), std::vector<uint32_t>{1});
    EXPECT_FALSE(set.add(64));
    EXPECT_FALSE(set.add(60, 64));
    EXPECT_FALSE(set.remove(0));
    EXPECT_TRUE(set.add(62, 63));
    EXPECT_TRUE(set.remove(1));
    EXPECT_EQ(ids_of(set), (std::vector<uint32_t>{62, 63}));
    EXPECT_EQ(set.size(), 2U);
    EXPECT_TRUE(set.contains(63));
    EXPECT_FALSE(set.contains(64));
}

TEST(SetValues, are_joined_cut_and_taken_away) {
    const bridge::vlans one{1, 2, 4094};
    const bridge::vlans other{2, 3};
    EXPECT_EQ(one | other, (bridge::vlans{1, 2, 3, 4094}));
    EXPECT_EQ(one & other, bridge::vlans{2});
    EXPECT_EQ(one - other, (bridge::vlans{1, 4094}));
    bridge::vlans cleared = one;
    cleared.clear();
    EXPECT_TRUE(cleared.empty());
}

TEST(SetValues, come_from_a_text_and_go_into_one) {
    const auto set = bridge::vlans::parse("20,1-10");
    ASSERT_TRUE(set.has_value());
    EXPECT_EQ(set->size(), 11U);
    EXPECT_STREQ(set->text().c_str(), "1-10,20");
    EXPECT_STREQ(bridge::events().text().c_str(), "");
    for (const char *text : {"0", "1,", "4095", "x"})
        EXPECT_FALSE(bridge::vlans::parse(text).has_value()) << text;
    EXPECT_FALSE(bridge::ports::parse(nullptr).has_value());
}

TEST(SetValues, work_with_algorithms) {
    const bridge::events set{VLAN_EVENT_RENAME, BRIDGE_EVENT_SYNC_DATA_END};
    EXPECT_NE(std::ranges::find(set, uint32_t{VLAN_EVENT_RENAME}), set.end());
    EXPECT_EQ(std::ranges::max_element(set), std::ranges::next(set.begin()));
}

TEST(MacValues, compare_as_numbers_and_serve_as_keys) {
    constexpr mac_address less{0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    constexpr mac_address greater{0x80, 0, 0, 0, 0, 0};
    static_assert(less < greater && less != greater);
    std::map<mac_address, int> known{{greater, 2}, {less, 1}};
    EXPECT_EQ(known.begin()->second, 1);
}

TEST(MacValues, come_from_a_record_and_from_a_text) {
    bri_mac_entry entry{};
    entry.mac[0] = 0x02;
    entry.mac[5] = 0x0F;
    const mac_address address(entry.mac);
    EXPECT_STREQ(address.text().c_str(), "02:00:00:00:00:0f");
    EXPECT_EQ(mac_address::parse("0200.0000.000F"), address);
    EXPECT_FALSE(mac_address::parse("02:00").has_value());
    EXPECT_EQ(bri_mac_compare(address.data(), entry.mac), 0);
    EXPECT_TRUE(mac_address().is_zero());
    EXPECT_FALSE(address.is_zero());
    EXPECT_FALSE(address.is_multicast());
    EXPECT_TRUE((mac_address{1, 0, 0, 0, 0, 0}.is_multicast()));
}

// A function that takes another event's record is refused when it is compiled.
constexpr auto kTakesPvid = [](const bridge::port_pvid &) {};
constexpr auto kTakesNothing = [] {};
static_assert(bridge::takes<decltype(kTakesPvid), event::port_pvid>);
static_assert(!bridge::takes<decltype(kTakesPvid), event::port_mode_set>);
static_assert(!bridge::takes<decltype(kTakesPvid), event::raw<VLAN_EVENT_MODIFY_INTF_PVID>>);
static_assert(!bridge::takes<decltype(kTakesNothing), event::port_pvid>);
static_assert(bridge::takes<decltype(kTakesNothing), event::raw<BRIDGE_EVENT_SYNC_DATA_END>>);

TEST(EventTypes, give_the_record_itself) {
    const vl_evt_intf_pvid_rec record{.ifx = 3, .pvid = 10, .reserved = 0};
    const void *seen = nullptr;
    auto fn = [&](const bridge::port_pvid &e) { seen = &e; };
    bridge::give<event::port_pvid>(fn, &record, sizeof record);
    EXPECT_EQ(seen, &record);
}

TEST(EventTypes, give_as_many_records_as_are_whole) {
    const bri_mac_msg records[3] = {};
    for (const size_t size : {sizeof records, sizeof records - 1, sizeof *records}) {
        std::span<const bri_mac_msg> seen;
        auto fn = [&](std::span<const bri_mac_msg> e) { seen = e; };
        bridge::give<event::mac_moved>(fn, records, static_cast<uint16_t>(size));
        EXPECT_EQ(seen.data(), records);
        EXPECT_EQ(seen.size(), size / sizeof *records);
    }
}

TEST(EventTypes, port_states_are_as_many_as_the_batch_says_and_has) {
    l2top_port_status_batch batch{};
    const auto states = [&](uint16_t count, size_t bytes) {
        batch.count = count;
        size_t seen = 99;
        auto fn = [&](std::span<const l2top_port_status> e) { seen = e.size(); };
        bridge::give<event::port_states>(fn, &batch, static_cast<uint16_t>(bytes));
        return seen;
    };
    EXPECT_EQ(states(0, 4), 0U);
    EXPECT_EQ(states(2, 44), 2U);
    EXPECT_EQ(states(1, sizeof batch), 1U);
    EXPECT_EQ(states(64, 44), 2U) << "more than there are";
    EXPECT_EQ(states(UINT16_MAX, sizeof batch), 64U);
    EXPECT_EQ(states(1, 23), 0U) << "a record that is cut";
}

TEST(EventTypes, raw_gives_the_bytes) {
    const uint8_t bytes[3] = {1, 2, 3};
    std::span<const uint8_t> seen;
    auto fn = [&](std::span<const uint8_t> e) { seen = e; };
    bridge::give<event::raw<VLAN_EVENT_INTF_STATE>>(fn, bytes, sizeof bytes);
    EXPECT_EQ(seen.data(), bytes);
    EXPECT_EQ(seen.size(), 3U);
    bridge::give<event::raw<VLAN_EVENT_INTF_STATE>>(fn, nullptr, 0);
    EXPECT_TRUE(seen.empty());
}

} // namespace
