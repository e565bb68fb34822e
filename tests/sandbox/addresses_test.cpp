// The server's word about addresses, and hosts that send: with the kernel's tables beside them and no process.
#include "sandbox/addresses.h"
#include "sandbox/vlan_sets.h"
#include "tests/support/bytes.h"

#include <bridge/events.h>

#include <gtest/gtest.h>

#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace sandbox;

// A switch with VLANs 10 and 11 and ports 3 and 4, of which port 4 is not in VLAN 11.
std::string place(uint16_t vid, uint32_t ifx) {
    if (vid != 0 && vid != 10 && vid != 11)
        return "no such VLAN";
    if (ifx != 0 && ifx != 3 && ifx != 4)
        return "no such port";
    return ifx == 4 && vid == 11 ? "not a member" : "";
}

bri_mac_entry address_entry(uint8_t last, uint16_t vid, uint32_t ifx, uint32_t type) {
    bri_mac_entry result{};
    result.field = BRI_MAC_FIELD_MAC | BRI_MAC_FIELD_TYPE | BRI_MAC_FIELD_BCAST_ID;
    result.field |= ifx != 0 ? BRI_MAC_FIELD_IFX : 0;
    result.mac[5] = last;
    result.bcast_id = vid;
    result.ifx = ifx;
    result.type = type;
    return result;
}

bri_mac_msg add(uint8_t last, uint16_t vid, uint32_t ifx, uint32_t type = BRI_MAC_TYPE_STATIC) {
    return {0, BRI_MAC_ADD, address_entry(last, vid, ifx, type)};
}

struct AddressesTest : testing::Test {
    // What was announced since the last call: the events' types.
    std::vector<uint32_t> announced() { return std::exchange(told, {}); }
    template <class Fn> static std::string reason_of(Fn &&fn) {
        try {
            fn();
        } catch (const std::invalid_argument &error) {
            return error.what();
        }
        return "";
    }

    Announce tell = [this](uint32_t type, Bytes payload) {
        told.push_back(type);
        last = {payload.begin(), payload.end()};
    };
    std::vector<uint32_t> told;
    test::ByteVec last;
    Microseconds now{0};
    KernelTables tables{tell, [this] { return now; }};
    Addresses addresses{[this](uint32_t type, Bytes data) { return handle(tables, Asker::kServer, type, data); }, tell,
                        place};
};

TEST_F(AddressesTest, configured_address_must_be_able_to_be_there) {
    const struct {
        bri_mac_msg record;
        const char *reason;
    } cases[] = {
        {add(1, 12, 3), "no such VLAN"},
        {add(1, 10, 5), "no such port"},
        {add(1, 11, 4), "not a member"},
        {add(1, 10, 0), "a configured address needs a port"},
        {add(1, 11, 4, BRI_MAC_TYPE_SECU), "not a member"},
        {add(1, 12, 0, BRI_MAC_TYPE_FILTER), "no such VLAN"},
        {add(1, 10, 3), ""},
        {add(2, 10, 0, BRI_MAC_TYPE_FILTER), ""},
        {add(3, 10, 0, BRI_MAC_TYPE_LOCAL), ""},
        {add(4, 99, 60, BRI_MAC_TYPE_DYNAMIC), ""}, // as somebody learned it
    };
    for (const auto &row : cases)
        EXPECT_EQ(reason_of([&] { addresses.apply({row.record}); }), row.reason);
    EXPECT_EQ(addresses.all().size(), 4U);
}

TEST_F(AddressesTest, record_that_is_refused_does_not_hold_the_others) {
    EXPECT_EQ(reason_of([&] { addresses.apply({add(1, 12, 3), add(2, 10, 3)}); }), "no such VLAN");
    ASSERT_EQ(addresses.all().size(), 1U);
    EXPECT_EQ(addresses.all()[0].entry.mac[5], 2);
}

TEST_F(AddressesTest, settings_reach_the_table_and_are_announced) {
    addresses.set_age_range(10, 60, 10);
    EXPECT_EQ(announced(), std::vector<uint32_t>{MAC_EVENT_SET_AGETIME_RANGE});
    EXPECT_EQ(addresses.set_age(37), 30U);
    EXPECT_EQ(announced(), std::vector<uint32_t>{MAC_EVENT_SET_AGETIME});
    EXPECT_EQ(object_of<uint32_t>(last), 30U);
    addresses.set_learning(false);
    EXPECT_EQ(announced(), std::vector<uint32_t>{MAC_EVENT_GLOBAL_LEARN});
    addresses.set_room(Limit{1}, Limit{2}, Limit{3});
    EXPECT_EQ(announced(), std::vector<uint32_t>{MAC_EVENT_SET_AVAILABLE_MAC});
    const KernelFigures figures = addresses.figures();
    EXPECT_EQ(figures.age, 30U);
    EXPECT_EQ(figures.learning, 0U);
    EXPECT_EQ(figures.room.filter_num, 2U);
    EXPECT_EQ(reason_of([&] { addresses.set_age_range(2, 1, 0); }), "no ageing time is in that range");
}

TEST_F(AddressesTest, port_that_fails_loses_what_was_learned_on_it) {
    addresses.apply({add(1, 10, 3), add(2, 10, 3, BRI_MAC_TYPE_DYNAMIC), add(3, 10, 4, BRI_MAC_TYPE_DYNAMIC)});
    announced();
    addresses.port_down(3);
    EXPECT_EQ(announced(), std::vector<uint32_t>{MAC_EVENT_NOTIFY_ADDR});
    EXPECT_EQ(addresses.all().size(), 2U);
}

TEST_F(AddressesTest, port_or_vlan_that_goes_takes_everything_along) {
    mvlan_msg host{3, {}};
    host.entry.vlan = 11;
    addresses.apply({add(1, 10, 3), add(2, 10, 4), add(3, 11, 3)});
    addresses.apply_host(host);
    addresses.vlans_deleted(only(11));
    EXPECT_EQ(addresses.all().size(), 2U);
    EXPECT_EQ(addresses.hosts().size(), 0U);
    EXPECT_EQ(told.back(), uint32_t{MVLAN_EVENT_NOTIFY_ENTRY});
    EXPECT_EQ(object_of<mvlan_msg>(last).entry.type, uint32_t{kMacVlanDelete});
    addresses.port_deleted(3);
    EXPECT_EQ(addresses.all().size(), 1U);
}

TEST_F(AddressesTest, port_that_leaves_a_vlan_takes_its_addresses_there_along) {
    addresses.apply({add(1, 10, 3), add(2, 11, 3), add(3, 11, 3, BRI_MAC_TYPE_DYNAMIC)});
    addresses.port_left(3, only(11));
    ASSERT_EQ(addresses.all().size(), 1U);
    EXPECT_EQ(addresses.all()[0].entry.bcast_id, 10);
}

TEST_F(AddressesTest, vlan_of_a_host_that_cannot_be_is_answered_with_an_error) {
    mvlan_msg host{0, {}};
    host.entry.vlan = 12;
    EXPECT_EQ(reason_of([&] { addresses.apply_host(host); }), "no such VLAN");
    EXPECT_EQ(announced(), std::vector<uint32_t>{MVLAN_EVENT_ERROR});
    EXPECT_EQ(last.size(), sizeof(mvlan_entry));
    host.entry.vlan = 10;
    addresses.set_host_room(Limit{0});
    EXPECT_EQ(reason_of([&] { addresses.apply_host(host); }), "the table of hosts' VLANs is full");
    host.entry.type = kMacVlanDelete;
    EXPECT_EQ(reason_of([&] { addresses.apply_host(host); }), "no such entry");
    host.entry.type = kMacVlanQuery;
    EXPECT_EQ(reason_of([&] { addresses.apply_host(host); }), "neither an add nor a delete");
    EXPECT_EQ(announced(), (std::vector<uint32_t>{MVLAN_EVENT_ERROR, MVLAN_EVENT_ERROR}));
}

TEST_F(AddressesTest, every_message_from_the_server_has_its_least_size) {
    const uint8_t none[1] = {};
    for (const uint32_t type : {uint32_t{MAC_EVENT_SET_AGETIME}, uint32_t{MAC_EVENT_INTF_LEARN},
                                uint32_t{MVLAN_EVENT_NOTIFY_ENTRY}, uint32_t{kForget}})
        EXPECT_EQ(handle(tables, Asker::kServer, type, {none, sizeof none}).error, EINVAL) << type;
    EXPECT_EQ(handle(tables, Asker::kServer, MAC_EVENT_SS_NOTIFY_ADDR, {}).error, EOPNOTSUPP);
    EXPECT_EQ(handle(tables, Asker::kHost, kForget, {none, sizeof none}).error, EOPNOTSUPP);
}

struct TrafficTest : AddressesTest {
    void run_for(Microseconds time) {
        const Microseconds end = loop.now() + time;
        while (loop.now() < end) {
            now = loop.now();
            event_base_loop(loop.base(), EVLOOP_ONCE | EVLOOP_NONBLOCK);
        }
    }
    Loop loop{1000}; // a second takes a millisecond
    Traffic traffic{loop, addresses};
};

TEST_F(TrafficTest, host_that_sends_stays_and_one_that_stops_ages) {
    using std::chrono::seconds;
    addresses.set_age(20);
    EXPECT_EQ(traffic.start(address_entry(1, 10, 3, 0), seconds(1)), Seen::kLearned);
    EXPECT_EQ(traffic.send(address_entry(2, 10, 3, 0)), Seen::kLearned);
    run_for(seconds(100));
    const auto expire = [this] {
        tables.change([](MacTable &macs, Microseconds time, MacNews &news) { macs.expire(time, news); });
    };
    expire();
    ASSERT_EQ(addresses.all().size(), 1U);
    EXPECT_EQ(addresses.all()[0].entry.mac[5], 1);
    EXPECT_EQ(traffic.stop(addresses.all()[0].entry.mac), 1U);
    run_for(seconds(100));
    expire();
    EXPECT_EQ(addresses.all().size(), 0U);
}

TEST_F(TrafficTest, frame_comes_in_where_a_port_lets_it) {
    EXPECT_EQ(reason_of([&] { traffic.send(address_entry(1, 10, 0, 0)); }), "no port 0");
    EXPECT_EQ(reason_of([&] { traffic.start(address_entry(1, 11, 4, 0), Microseconds(1000)); }), "not a member");
    EXPECT_EQ(traffic.stop_all(), 0U);
    EXPECT_EQ(traffic.start(address_entry(1, 10, 3, 0), Microseconds(1000)), Seen::kLearned);
    EXPECT_EQ(traffic.start(address_entry(1, 10, 4, 0), Microseconds(1000)), Seen::kMoved); // the same host
    EXPECT_EQ(traffic.stop_all(), 1U);
}

} // namespace
