// The host layer as C++ sees it.
#include "tests/host/layer_fixture.h"

#include <bridge/host.hpp>
#include <bridge/port_exclusion.h>

#include <memory>

using namespace test;

namespace {

namespace event = bridge::event;
using namespace std::chrono_literals;

class TypedHost : public Layer {
  protected:
    // Starts a host and brings it past the backup data.
    void begin(auto &host) {
        testing::internal::CaptureStdout();
        const bridge::error outcome = host.start();
        testing::internal::GetCapturedStdout();
        faults::clear();
        ASSERT_EQ(outcome, bridge::error::ok);
        connect();
        synchronise();
        sent();
        told.clear();
    }
    static bridge::options wanted() { return {.name = "unit", .loop = loop().master()}; }
    static ByteVec pvid(uint16_t vid) { return bytes_of(vl_evt_intf_pvid_rec{.ifx = 3, .pvid = vid, .reserved = 0}); }
};

TEST_F(TypedHost, hands_records_to_functions_with_a_state) {
    std::vector<unsigned> seen;
    bridge::host host{
        wanted(), bridge::on<event::port_pvid>([&](const bridge::port_pvid &e) { seen.push_back(e.pvid); }),
        bridge::on<event::port_mode_set>([&](const bridge::port_mode_set &e) { seen.push_back(e.mode); })};
    begin(host);
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, pvid(10));
    deliver(VLAN_EVENT_MODIFY_INTF_MODE, bytes_of(vl_evt_intf_mode_rec{.ifx = 3, .mode = BRI_PORT_HYBRID}));
    EXPECT_EQ(seen, (std::vector<unsigned>{10, BRI_PORT_HYBRID}));
}

TEST_F(TypedHost, calls_two_functions_of_one_event_in_their_order) {
    std::string seen;
    const auto first = [&](const bridge::port_pvid &) { seen += '1'; };
    bridge::host host{wanted(), bridge::on<event::port_pvid>(first),
                      bridge::on<event::port_pvid>([&](const bridge::port_pvid &) { seen += '2'; }),
                      bridge::on<event::port_pvid>(first)};
    begin(host);
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, pvid(10));
    EXPECT_EQ(seen, "121");
}

TEST_F(TypedHost, keeps_records_that_are_too_short_from_the_functions) {
    int calls = 0;
    bridge::host host{wanted(), bridge::on<event::port_pvid>([&](const bridge::port_pvid &) { ++calls; })};
    begin(host);
    ByteVec record = pvid(10);
    record.pop_back();
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, record);
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(bridge::statistics().dropped_short, 1U);
}

TEST_F(TypedHost, takes_no_memory_for_an_event) {
    unsigned calls = 0;
    bridge::host host{wanted(), bridge::on<event::port_pvid>([&](const bridge::port_pvid &) { ++calls; })};
    begin(host);
    const ByteVec record = pvid(10);
    const int before = faults::calls("malloc") + faults::calls("calloc");
    bridge_call_event_handlers(VLAN_EVENT_MODIFY_INTF_PVID, const_cast<uint8_t *>(record.data()),
                               static_cast<uint32_t>(record.size()));
    EXPECT_EQ(faults::calls("malloc") + faults::calls("calloc"), before);
    EXPECT_EQ(calls, 1U);
}

TEST_F(TypedHost, takes_functions_that_can_only_be_moved) {
    auto last = std::make_unique<unsigned>(0);
    unsigned *seen = last.get();
    bridge::host host{wanted(), bridge::on<event::port_pvid>(
                                    [kept = std::move(last)](const bridge::port_pvid &e) { *kept = e.pvid; })};
    begin(host);
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, pvid(10));
    EXPECT_EQ(*seen, 10U);
}

TEST_F(TypedHost, tells_connection_role_and_resynchronisation) {
    bridge::options options = wanted();
    options.sweep_ports = true;
    bridge::host host{
        options,
        bridge::on_connection([&](bool up) { write(up ? "up" : "down"); }),
        bridge::on_role([&](bridge::role role) { write(role == bridge::role::slave ? "slave" : "other role"); }),
        bridge::on_resync_begin([&](bri_submod submodule) { write("begin " + std::to_string(submodule)); }),
        bridge::on_resync_end([&](bri_submod submodule, bool complete) {
            write((complete ? "end " : "cut ") + std::to_string(submodule));
        }),
        bridge::on_vanished([&](const bridge::vanished &what) { write("vanished " + std::to_string(what.ifx)); })};
    begin(host);
    EXPECT_TRUE(bridge::in_step(BRI_SUBMOD_VLAN));
    add_port(3);
    EXPECT_EQ(bridge::resync(), bridge::error::ok);
    EXPECT_EQ(told, (Told{"begin 3", "end 3"}));
    told.clear();
    EXPECT_EQ(bridge::current_role(), bridge::role::master);
    remove_port(3);
    EXPECT_EQ(bridge::resync(), bridge::error::ok);
    EXPECT_EQ(told, (Told{"begin 3", "vanished 3", "end 3"}));
    told.clear();
    set_role(true);
    tick();
    EXPECT_EQ(told, Told{"slave"});
    told.clear();
    lose_connection();
    tick();
    EXPECT_EQ(told, Told{"down"});
}

TEST_F(TypedHost, hands_the_options_on) {
    bridge::options options = wanted();
    options.refuse_as_slave = true;
    options.tick = 100ms;
    bridge::host host{options};
    begin(host);
    EXPECT_EQ(bridge::may_send(), bridge::error::ok);
    set_role(true);
    EXPECT_EQ(bridge::may_send(), bridge::error::not_permitted);
    EXPECT_EQ(bridge::filter_add({2, 0, 0, 0, 0, 1}, 10), bridge::error::not_permitted);
    options.tick = 1ms;
    bridge::host second{options};
    EXPECT_EQ(second.start(), bridge::error::not_permitted);
}

TEST_F(TypedHost, says_why_it_could_not_start) {
    bridge::options options = wanted();
    options.tick = 1ms;
    bridge::host host{options};
    EXPECT_EQ(host.start(), bridge::error::invalid);
    EXPECT_STREQ(bridge::text_of(bridge::error::invalid), bri_strerror(BRI_ERR_INVALID));
}

TEST_F(TypedHost, is_not_called_behind_its_end) {
    int calls = 0;
    {
        bridge::host host{wanted(), bridge::on<event::port_pvid>([&](const bridge::port_pvid &) { ++calls; }),
                          bridge::on_connection([&](bool) { ++calls; }),
                          bridge::on_role([&](bridge::role) { ++calls; })};
        begin(host);
        calls = 0;
    }
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, pvid(10));
    set_role(true);
    for (int i = 0; i < 20 && loop().run("host-tick") != -1000; ++i)
        continue;
    lose_connection();
    EXPECT_EQ(calls, 0);
}

TEST_F(TypedHost, stops_and_tells_that_all_is_out) {
    static int stopped = 0;
    bridge::host host{wanted()};
    begin(host);
    bridge_client_send_message(nullptr, 0, VLAN_EVENT_DEFAULT_INTF);
    EXPECT_EQ(bridge::stop([](const bridge::left &left) { stopped += left.result == 0 ? 1 : 100; }), bridge::error::ok);
    for (int i = 0; i < 20 && stopped == 0; ++i)
        loop().run("host-stop");
    EXPECT_EQ(stopped, 1);
}

TEST_F(TypedHost, that_has_ended_leaves_the_next_one_alone) {
    static int stopped = 0;
    int calls = 0;
    bridge::host next{wanted(), bridge::on<event::port_pvid>([&](const bridge::port_pvid &) { ++calls; })};
    {
        bridge::host first{wanted()};
        begin(first);
        ASSERT_EQ(bridge::stop([](const bridge::left &) { ++stopped; }), bridge::error::ok);
        for (int i = 0; i < 20 && stopped == 0; ++i)
            loop().run("host-stop");
        ASSERT_EQ(next.start(), bridge::error::ok);
    }
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, pvid(10));
    EXPECT_EQ(calls, 1);
}

class TypedRequest : public TypedHost {
  protected:
    void SetUp() override { begin(host_); }

    std::vector<bridge::result> ends_;
    bridge::host<> host_{wanted()};
};

TEST_F(TypedRequest, is_done_by_the_event_of_which_the_function_says_so) {
    bridge::request request{1s, [] { return bridge_client_send_message(nullptr, 0, VLAN_EVENT_RENAME); },
                            bridge::until<event::port_pvid>([](const bridge::port_pvid &e) { return e.pvid == 10; }),
                            [&](bridge::result end) { ends_.push_back(end); }};
    ASSERT_EQ(request.start(), bridge::error::ok);
    EXPECT_EQ(request.start(), bridge::error::invalid); // it is on its way
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, pvid(9));
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, {1});
    EXPECT_TRUE(ends_.empty());
    deliver(VLAN_EVENT_MODIFY_INTF_PVID, pvid(10));
    EXPECT_EQ(ends_, std::vector{bridge::result::done});
    EXPECT_EQ(request.start(), bridge::error::ok);
}

TEST_F(TypedRequest, is_done_by_what_stands_in_a_table) {
    bool there = false;
    bridge::request request{1s, [] { return 0; }, bridge::until_true<VLAN_EVENT_RENAME>([&] { return there; }),
                            [&](bridge::result end) { ends_.push_back(end); }};
    ASSERT_EQ(request.start(), bridge::error::ok);
    tick();
    deliver(VLAN_EVENT_RENAME);
    EXPECT_TRUE(ends_.empty());
    there = true;
    deliver(VLAN_EVENT_RENAME);
    EXPECT_EQ(ends_, std::vector{bridge::result::done});
    ASSERT_EQ(request.start(), bridge::error::ok);
    tick();
    EXPECT_EQ(ends_.size(), 2U);
}

TEST_F(TypedRequest, times_out) {
    bridge::request request{1s, [] { return 0; }, bridge::until_true([] { return false; }),
                            [&](bridge::result end) { ends_.push_back(end); }};
    ASSERT_EQ(request.start(), bridge::error::ok);
    loop().run("host-deadline");
    EXPECT_EQ(ends_, std::vector{bridge::result::timed_out});
}

TEST_F(TypedRequest, that_could_not_be_sent_says_so) {
    bridge::request request{1s, [] { return bridge::error::no_vlan; }, bridge::until_true([] { return true; }),
                            [&](bridge::result end) { ends_.push_back(end); }};
    EXPECT_EQ(request.start(), bridge::error::no_vlan);
    tick();
    EXPECT_TRUE(ends_.empty());
}

TEST_F(TypedRequest, ends_with_its_object) {
    {
        bridge::request request{1s, [] { return 0; }, bridge::until_true([] { return true; }),
                                [&](bridge::result end) { ends_.push_back(end); }};
        ASSERT_EQ(request.start(), bridge::error::ok);
    }
    tick();
    EXPECT_TRUE(ends_.empty());
    EXPECT_EQ(bridge::statistics().requests_cancelled, 1U);
}

class TypedClaim : public TypedHost {
  protected:
    void SetUp() override {
        begin(host_);
        add_port(3);
    }
    static uint32_t flags() {
        uint32_t set = 0;
        bridge_set_excflag(3, 0, UINT32_MAX, &set);
        return set;
    }

    bridge::host<> host_{wanted()};
};

TEST_F(TypedClaim, holds_a_port_until_its_end) {
    {
        bridge::claim claim(
            {.ifx = 3, .flags = BRI_SECURE, .flag_conflicts = BRI_DOT1X, .attrs = 0, .attr_conflicts = 0});
        EXPECT_FALSE(claim.held());
        EXPECT_EQ(claim.take(), bridge::error::ok);
        EXPECT_TRUE(claim.held());
        EXPECT_EQ(flags(), uint32_t{BRI_SECURE});
    }
    EXPECT_EQ(flags(), 0U);
}

TEST_F(TypedClaim, that_is_refused_gives_nothing_back) {
    uint32_t conflict = 0;
    bridge_set_excflag(3, BRI_DOT1X | BRI_SECURE, 0, &conflict);
    {
        bridge::claim claim(
            {.ifx = 3, .flags = BRI_SECURE, .flag_conflicts = BRI_DOT1X, .attrs = 0, .attr_conflicts = 0});
        EXPECT_EQ(claim.take(), bridge::error::not_permitted);
        EXPECT_EQ(claim.why().reason, BRIDGE_HOST_CLAIM_HELD);
        EXPECT_FALSE(claim.held());
    }
    EXPECT_EQ(flags(), uint32_t{BRI_DOT1X | BRI_SECURE});
}

TEST_F(TypedHost, filters_an_address) {
    bridge::host<> host{wanted()};
    begin(host);
    EXPECT_EQ(bridge::filter_add({2, 0, 0, 0, 0, 1}, 10), bridge::error::ok);
    EXPECT_EQ(bridge::filter_del({2, 0, 0, 0, 0, 1}, 10), bridge::error::ok);
    EXPECT_EQ(bridge::filter_add({1, 0, 0, 0, 0, 1}, 10), bridge::error::invalid);
    const std::vector<Message> out = sent();
    ASSERT_EQ(out.size(), 2U);
    EXPECT_EQ(out[0].type, uint32_t{MAC_EVENT_NOTIFY_ADDR});
}

} // namespace
