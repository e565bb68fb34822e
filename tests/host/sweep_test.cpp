// The sweep: what was known and is not told again.
#include "tests/host/layer_fixture.h"

using namespace test;

namespace {

class HostSweep : public Layer {
  protected:
    // The server's announcements.
    static void create_vlan(uint16_t vid) {
        vl_initial_vlan_entry(vid, BRI_VLAN_STATIC);
        deliver(VLAN_EVENT_CREATE_INDEX, record_of(vid));
    }
    static void delete_vlan(uint16_t vid) {
        const ByteVec record = record_of(vid);
        vl_clear_vlan_entry(vid);
        deliver(VLAN_EVENT_DESTROY_INDEX, record);
    }
    static ByteVec record_of(uint16_t vid) {
        vl_evt_vlan_rec record{};
        record.vid = vid;
        record.version = vl_get_vlan_latest_version(vid);
        return bytes_of(record);
    }
    static ByteVec ids_of(std::initializer_list<unsigned> vids) {
        vl_evt_vlanset_rec record{};
        record.vlans = set_of(vids);
        for (const unsigned vid : vids)
            record.versions[vid] = vl_get_vlan_latest_version(static_cast<uint16_t>(vid));
        return bytes_of(record);
    }
    void vanished(const Told &lines) {
        Told found;
        for (const std::string &line : told)
            if (line.starts_with("vanished "))
                found.push_back(line.substr(9));
        EXPECT_EQ(found, lines);
        told.clear();
    }
};

class HostSweepVlans : public HostSweep {
  protected:
    HostSweepVlans() { config.flags = BRIDGE_HOST_SWEEP_VLANS; }
    void SetUp() override {
        start_synchronised();
        range();
    }
};

TEST_F(HostSweepVlans, reports_those_that_went_while_nobody_told) {
    for (const uint16_t vid : std::initializer_list<uint16_t>{1, 10, 4094})
        create_vlan(vid);
    vl_clear_vlan_entry(1);
    vl_clear_vlan_entry(4094);
    backup();
    vanished({"vlan 1", "vlan 4094"});
    backup();
    vanished({});
}

TEST_F(HostSweepVlans, knows_those_of_a_replay) {
    vl_initial_vlan_entry(20, BRI_VLAN_STATIC);
    backup();
    vl_clear_vlan_entry(20);
    backup();
    vanished({"vlan 20"});
}

TEST_F(HostSweepVlans, forgets_those_that_were_taken_back) {
    create_vlan(10);
    create_vlan(11);
    delete_vlan(10);
    vl_clear_vlan_entry(11);
    deliver(VLAN_EVENT_DESTROY_RANGE, ids_of({11}));
    backup();
    vanished({});
}

TEST_F(HostSweepVlans, knows_those_of_a_range) {
    for (const uint16_t vid : std::initializer_list<uint16_t>{30, 31})
        vl_initial_vlan_entry(vid, BRI_VLAN_STATIC);
    deliver(VLAN_EVENT_CREATE_RANGE, ids_of({30, 31}));
    vl_clear_vlan_entry(31);
    backup();
    vanished({"vlan 31"});
}

TEST_F(HostSweepVlans, passes_over_records_that_are_cut) {
    ByteVec cut = record_of(10);
    cut.resize(4);
    deliver(VLAN_EVENT_CREATE_INDEX, cut);
    backup();
    vanished({});
}

TEST_F(HostSweepVlans, comes_between_the_items_and_the_end) {
    create_vlan(10);
    vl_clear_vlan_entry(10);
    told.clear();
    backup();
    EXPECT_EQ(told, (Told{"begin 3", "vanished vlan 10", "end 3"}));
}

TEST_F(HostSweepVlans, survives_a_callback_that_changes_what_is_known) {
    for (const uint16_t vid : std::initializer_list<uint16_t>{10, 11, 12}) {
        create_vlan(vid);
        vl_clear_vlan_entry(vid);
    }
    during = [](const std::string &line) {
        if (line == "vanished vlan 10")
            deliver(VLAN_EVENT_DESTROY_RANGE, ids_of({11}));
    };
    backup();
    vanished({"vlan 10", "vlan 12"});
}

TEST_F(HostSweepVlans, reports_nothing_behind_the_end_when_a_callback_stops_the_layer) {
    for (const uint16_t vid : std::initializer_list<uint16_t>{10, 11}) {
        create_vlan(vid);
        vl_clear_vlan_entry(vid);
    }
    told.clear();
    during = [](const std::string &line) {
        if (line == "vanished vlan 10")
            bridge_host_stop([](const bridge_host_left *, void *) {});
    };
    backup();
    EXPECT_EQ(told, (Told{"begin 3", "vanished vlan 10", "cut 3"}));
    loop().run("host-stop");
}

class HostSweepPorts : public HostSweep {
  protected:
    HostSweepPorts() { config.flags = BRIDGE_HOST_SWEEP_PORTS; }
    void SetUp() override { start_synchronised(); }
};

TEST_F(HostSweepPorts, reports_those_that_went_or_are_routed_now) {
    for (const int32_t ifx : {1, 2, 63})
        add_port(ifx);
    backup();
    remove_port(63);
    add_port(1, BRI_PORT_ROUTE);
    backup();
    vanished({"port 1", "port 63"});
}

TEST_F(HostSweepPorts, forgets_those_that_were_taken_back) {
    for (const int32_t ifx : {1, 2})
        add_port(ifx);
    backup();
    remove_port(1);
    deliver(VLAN_EVENT_DESTROY_INTF, bytes_of(uint32_t{1}));
    add_port(2, BRI_PORT_ROUTE);
    deliver(VLAN_EVENT_MODIFY_INTF_MODE, bytes_of(vl_evt_intf_mode_rec{2, BRI_PORT_ROUTE}));
    backup();
    vanished({});
}

TEST_F(HostSweepPorts, touches_nothing_for_a_number_that_no_port_has) {
    for (const uint32_t ifx : {0U, 64U, UINT32_MAX})
        deliver(VLAN_EVENT_CREATE_INTF, bytes_of(vl_evt_intf_rec{ifx, {}, BRI_PORT_TRUNK, 1, 0, 0}));
    backup();
    vanished({});
}

class HostSweepAddresses : public HostSweep {
  protected:
    HostSweepAddresses() { config.mac_capacity = 4; }
    void SetUp() override { start_synchronised(); }

    static void tell(const bri_mac_msg &record) { deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(record)); }
    // A deletion that names only these fields.
    static void take_back(uint8_t field, const bri_mac_msg &like) {
        bri_mac_msg record = like;
        record.oper = BRI_MAC_DEL;
        record.entry.field = field;
        tell(record);
    }
    void ask_again(const std::vector<bri_mac_msg> &answer) {
        told.clear();
        answer_addresses(answer);
    }
};

TEST_F(HostSweepAddresses, reports_them_with_domain_and_port) {
    tell(address(1, BRI_MAC_ADD, 10, 3));
    tell(address(1, BRI_MAC_ADD, 11, 4)); // another domain, another entry
    ask_again({address(1, BRI_MAC_ADD, 11, 4)});
    vanished({"00:00:00:00:00:01 10 3"});
}

TEST_F(HostSweepAddresses, knows_where_one_has_moved) {
    tell(address(1, BRI_MAC_ADD, 10, 3));
    tell(address(1, BRI_MAC_ADD, 10, 5));
    ask_again({});
    vanished({"00:00:00:00:00:01 10 5"});
}

TEST_F(HostSweep, reports_an_address_as_a_whole_entry) {
    static bri_mac_entry seen;
    config.mac_capacity = 4;
    config.on_vanished = [](const bridge_host_vanished *what, void *) { seen = what->address; };
    start_synchronised();
    bri_mac_msg record = address(7);
    record.entry.type = BRI_MAC_TYPE_SECU;
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(record));
    answer_addresses({});
    EXPECT_EQ(bytes_of(seen), bytes_of(record.entry));
}

TEST_F(HostSweepAddresses, forgets_one_that_was_taken_back) {
    tell(address(1));
    tell(address(1, BRI_MAC_DEL));
    ask_again({});
    vanished({});
}

TEST_F(HostSweepAddresses, keeps_one_that_another_one_replaced) {
    bri_mac_msg fixed = address(1);
    fixed.entry.type = BRI_MAC_TYPE_STATIC;
    tell(address(1));
    tell(fixed);
    tell(address(1, BRI_MAC_DEL)); // the dynamic one
    ask_again({});
    vanished({"00:00:00:00:00:01 10 3"});
}

TEST_F(HostSweepAddresses, understands_deletions_with_wildcards) {
    tell(address(1, BRI_MAC_ADD, 10, 3));
    tell(address(2, BRI_MAC_ADD, 10, 4));
    tell(address(3, BRI_MAC_ADD, 11, 4));
    take_back(BRI_MAC_FIELD_IFX | BRI_MAC_FIELD_BCAST_ID, address(0, BRI_MAC_DEL, 10, 4));
    ask_again({});
    vanished({"00:00:00:00:00:01 10 3", "00:00:00:00:00:03 11 4"});
}

TEST_F(HostSweepAddresses, understands_the_deletion_of_all) {
    for (uint8_t last = 1; last <= 4; ++last)
        tell(address(last));
    take_back(BRI_MAC_FIELD_TYPE, address(0));
    ask_again({});
    vanished({});
}

TEST_F(HostSweepAddresses, never_says_complete_when_there_was_no_room) {
    for (uint8_t last = 1; last <= 5; ++last)
        tell(address(last));
    ask_again({address(1)});
    EXPECT_EQ(told, (Told{"begin 2", "cut 2"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
    bridge_host_statistics figures{};
    figures.size = sizeof figures;
    bridge_host_get_statistics(&figures);
    EXPECT_EQ(figures.addresses_left_out, 1U);
}

TEST_F(HostSweepAddresses, reports_nothing_behind_the_end_when_a_callback_stops_the_layer) {
    tell(address(1));
    tell(address(2));
    told.clear();
    during = [](const std::string &line) {
        if (line.starts_with("vanished"))
            bridge_host_stop([](const bridge_host_left *, void *) {});
    };
    ask_again({});
    EXPECT_EQ(told.size(), 3U);
    EXPECT_EQ(told.back(), "cut 2");
    loop().run("host-stop");
}

TEST_F(HostSweepAddresses, of_an_earlier_start_that_had_no_room_are_forgotten) {
    for (uint8_t last = 1; last <= 5; ++last)
        tell(address(last));
    ASSERT_EQ(bridge_host_stop([](const bridge_host_left *, void *) {}), 0);
    loop().run("host-stop");
    config.mac_capacity = 0;
    follow(MAC_EVENT_NOTIFY_ADDR);
    ASSERT_EQ(start_layer(), 0);
    tick(); // sees the connection, and asks
    told.clear();
    answer_addresses({});
    EXPECT_EQ(told, (Told{"begin 2", "end 2"}));
}

TEST_F(HostSweepAddresses, uses_its_room_again) {
    for (unsigned round = 0; round < 1000; ++round) {
        const auto last = static_cast<uint8_t>(round);
        tell(address(last, BRI_MAC_ADD, static_cast<uint16_t>(1 + round % 4094)));
        tell(address(last, BRI_MAC_DEL, static_cast<uint16_t>(1 + round % 4094)));
    }
    for (uint8_t last = 1; last <= 4; ++last)
        tell(address(last));
    ask_again({});
    EXPECT_EQ(told.size(), 6U); // four vanished between begin and end
}

// Against a plain list: additions, deletions and sweeps in a random order.
TEST_F(HostSweepAddresses, agrees_with_a_plain_list) {
    std::vector<uint8_t> known;
    unsigned seed = 1;
    const auto random = [&](unsigned below) { return (seed = seed * 1103515245U + 12345U) / 65536U % below; };
    for (int step = 0; step < 3000; ++step) {
        const auto last = static_cast<uint8_t>(random(3));
        const auto found = std::find(known.begin(), known.end(), last);
        if (random(2) == 0) {
            tell(address(last));
            if (found == known.end())
                known.push_back(last);
        } else {
            tell(address(last, BRI_MAC_DEL));
            if (found != known.end())
                known.erase(found);
        }
        if (random(50) != 0)
            continue;
        ask_again({address(9)}); // asked for by nobody, and not empty
        ASSERT_EQ(told.size(), known.size() + 2) << step;
        tell(address(9, BRI_MAC_DEL));
        known.clear();
    }
}

} // namespace
