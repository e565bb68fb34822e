// The origin-data replay: its order, every byte of its records, and what a handler's changes do to it.
#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test;

class Replay : public MappedVlanTest {
  protected:
    void SetUp() override {
        MappedVlanTest::SetUp();
        watch_all();
    }
    static std::vector<HostEvent> run() {
        events().clear();
        vl_clnt_notify_origin_data();
        return events();
    }
    static std::vector<HostEvent> of_type(uint32_t type) {
        std::vector<HostEvent> found;
        for (const HostEvent &event : events())
            if (event.type == type)
                found.push_back(event);
        return found;
    }
    static std::vector<uint32_t> types() {
        std::vector<uint32_t> all;
        for (const HostEvent &event : events())
            all.push_back(event.type);
        return all;
    }
};

TEST_F(Replay, of_empty_tables_is_one_empty_set) {
    run();
    ASSERT_EQ(events().size(), 1U);
    expect_event(events()[0], VLAN_EVENT_CREATE_RANGE, Bytes(8708).put<uint32_t>(8704, 1));
}

TEST_F(VlanTest, replay_of_unmapped_tables_is_one_empty_set) {
    watch_all();
    vl_clnt_notify_origin_data();
    ASSERT_EQ(events().size(), 1U);
    expect_event(events()[0], VLAN_EVENT_CREATE_RANGE, Bytes(8708).put<uint32_t>(8704, 1));
}

TEST_F(Replay, set_lists_every_vlan_without_versions) {
    for (const int vid : {1, 31, 32, 4094}) {
        add_vlan(static_cast<uint16_t>(vid)).version = 5;
        g_vlan_private_version[vid] = 5;
    }
    run();
    EXPECT_EQ(events()[0].type, VLAN_EVENT_CREATE_RANGE);
    Bytes expected(8708);
    expected.put<uint32_t>(0, 0x80000002).put<uint32_t>(4, 1).put<uint32_t>(508, 1U << 30).put<uint32_t>(8704, 1);
    EXPECT_EQ(of_type(VLAN_EVENT_CREATE_RANGE)[0].payload, expected);
}

TEST_F(Replay, never_reports_vlan_0_or_4095) {
    vl_set_vlan_range(0, 65535);
    g_vl_mng.entries[0].vid = 7; // a foreign writer's mistake
    add_vlan(4094);
    run();
    const vlanset only = set_of({4094});
    EXPECT_EQ(std::memcmp(events()[0].payload.data(), &only, sizeof only), 0);
    for (const HostEvent &event : of_type(VLAN_EVENT_RENAME))
        EXPECT_NE(value_at<uint16_t>(event.payload.data(), 0), 0);
}

TEST_F(Replay, static_vlan_with_its_default_name_is_told_by_the_set_alone) {
    add_vlan(1);
    add_vlan(4094);
    EXPECT_EQ(run().size(), 1U);
}

TEST_F(Replay, dynamic_vlan_tells_its_mode) {
    add_vlan(300, BRI_VLAN_DYNAMIC);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_MODIFY_VLAN_MODE}));
    EXPECT_EQ(events()[1].payload, Bytes(56).put<uint16_t>(0, 300).put<uint32_t>(40, 2).put<uint32_t>(44, 2));
}

TEST_F(Replay, renamed_vlan_tells_its_name) {
    std::strcpy(add_vlan(300).name, "guests");
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_RENAME}));
    EXPECT_EQ(events()[1].payload, Bytes(56).put<uint16_t>(0, 300).text(4, "guests"));
}

TEST_F(Replay, name_is_measured_by_the_mode) {
    std::strcpy(add_vlan(300).name, "DVLAN0300");
    std::strcpy(add_vlan(301, BRI_VLAN_DYNAMIC).name, "VLAN0301");
    add_vlan(302, BRI_VLAN_SUPER);
    std::strcpy(add_vlan(303, BRI_VLAN_DYNAMIC).name, "XVLAN0303");
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_RENAME, VLAN_EVENT_MODIFY_VLAN_MODE,
                                              VLAN_EVENT_RENAME, VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_RENAME}));
    EXPECT_EQ(of_type(VLAN_EVENT_RENAME)[0].payload, Bytes(56).put<uint16_t>(0, 300).text(4, "DVLAN0300"));
    EXPECT_EQ(of_type(VLAN_EVENT_RENAME)[1].payload, Bytes(56).put<uint16_t>(0, 301).text(4, "VLAN0301"));
}

TEST_F(Replay, every_default_name_counts_as_default) {
    for (unsigned vid = 1; vid <= 4094; ++vid)
        add_vlan(static_cast<uint16_t>(vid), vid % 2 == 0 ? BRI_VLAN_DYNAMIC : BRI_VLAN_STATIC);
    run();
    EXPECT_TRUE(of_type(VLAN_EVENT_RENAME).empty());
    EXPECT_EQ(of_type(VLAN_EVENT_MODIFY_VLAN_MODE).size(), 2047U);
}

TEST_F(Replay, names_close_to_the_default_one_are_told) {
    uint16_t vid = 100;
    const char *const names[] = {"VLAN010", "VLAN01010", "vlan0102", "", "VLAN104", "XVLAN0105", "VLAN0106 "};
    for (const char *name : names)
        std::strcpy(add_vlan(vid++).name, name);
    run();
    ASSERT_EQ(of_type(VLAN_EVENT_RENAME).size(), std::size(names));
    for (size_t i = 0; i < std::size(names); ++i)
        EXPECT_STREQ(reinterpret_cast<char *>(of_type(VLAN_EVENT_RENAME)[i].payload.data()) + 4, names[i]);
}

TEST_F(Replay, name_without_a_terminator_is_told_with_35_characters) {
    vle &entry = add_vlan(300);
    std::memset(entry.name, 'n', sizeof entry.name);
    run();
    EXPECT_EQ(of_type(VLAN_EVENT_RENAME)[0].payload,
              Bytes(56).put<uint16_t>(0, 300).text(4, std::string(35, 'n').c_str()));
}

TEST_F(Replay, svi_is_told) {
    ASSERT_EQ(vl_set_svi((add_vlan(300), 300), 0x01020304), 0);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_SVI_CREATE_DESTROY}));
    EXPECT_EQ(events()[1].payload, Bytes(16).put<uint32_t>(0, 0x01020304).put<uint16_t>(8, 300));
}

TEST_F(Replay, vlan_steps_come_vlan_by_vlan) {
    for (const uint16_t vid : {uint16_t{2}, uint16_t{3}}) {
        std::strcpy(add_vlan(vid, BRI_VLAN_DYNAMIC).name, "x");
        vl_set_svi(vid, vid + 1000U);
    }
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_RENAME,
                                              VLAN_EVENT_SVI_CREATE_DESTROY, VLAN_EVENT_MODIFY_VLAN_MODE,
                                              VLAN_EVENT_RENAME, VLAN_EVENT_SVI_CREATE_DESTROY}));
}

TEST_F(Replay, port_steps_come_in_three_rounds) {
    add_port(1, BRI_PORT_ACCESS);
    add_port(63, BRI_PORT_TRUNK);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_CREATE_INTF,
                                              VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_PVID,
                                              VLAN_EVENT_MODIFY_INTF_ALLOWVL, VLAN_EVENT_MODIFY_INTF_MODE,
                                              VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_MODIFY_INTF_ALLOWVL,
                                              VLAN_EVENT_ADD_INTF, VLAN_EVENT_RANGE_ADD_INTF}));
    for (size_t i = 1; i < events().size(); ++i)
        EXPECT_EQ(value_at<uint32_t>(events()[i].payload.data(), 0), i == 1 || (i >= 3 && i <= 5) || i == 9 ? 1U : 63U);
}

TEST_F(Replay, absent_and_routed_ports_are_left_out) {
    add_port(1, BRI_PORT_ROUTE);
    add_port(2, BRI_PORT_TRUNK).ifx = 0;
    EXPECT_EQ(run().size(), 1U);
}

TEST_F(Replay, port_creation_record) {
    add_port(7, BRI_PORT_HYBRID, 1234);
    run();
    EXPECT_EQ(of_type(VLAN_EVENT_CREATE_INTF)[0].payload,
              Bytes(28).put<uint32_t>(0, 7).put<uint32_t>(16, 7).put<uint16_t>(20, 1234));
}

TEST_F(Replay, port_attribute_records) {
    spcb &port = add_port(9, BRI_PORT_UPLINK, 77);
    for (unsigned index = 0; index < 128; ++index)
        port.allow_vlan.words[index] = index * 0x01010101U;
    run();
    EXPECT_EQ(of_type(VLAN_EVENT_MODIFY_INTF_MODE)[0].payload, Bytes(8).put<uint32_t>(0, 9).put<uint32_t>(4, 6));
    EXPECT_EQ(of_type(VLAN_EVENT_MODIFY_INTF_PVID)[0].payload, Bytes(8).put<uint32_t>(0, 9).put<uint16_t>(4, 77));
    Bytes allow(1036);
    allow.put<uint32_t>(0, 9);
    for (unsigned index = 0; index < 128; ++index)
        allow.put<uint32_t>(4 + 4 * index, index * 0x01010101U);
    EXPECT_EQ(of_type(VLAN_EVENT_MODIFY_INTF_ALLOWVL)[0].payload, allow);
}

TEST_F(Replay, access_port_tells_its_native_vlan) {
    add_vlan(10, BRI_VLAN_STATIC, {9});
    add_port(9, BRI_PORT_ACCESS, 10);
    run();
    EXPECT_TRUE(of_type(VLAN_EVENT_RANGE_ADD_INTF).empty());
    EXPECT_EQ(of_type(VLAN_EVENT_ADD_INTF)[0].payload,
              Bytes(24).put<uint32_t>(0, 9).put<uint16_t>(4, 10).put<uint32_t>(12, 3).put<uint32_t>(16, 1));
}

TEST_F(Replay, access_port_without_a_native_vlan_tells_it_as_0) {
    add_port(9, BRI_PORT_ACCESS, 0);
    run();
    ASSERT_EQ(of_type(VLAN_EVENT_ADD_INTF).size(), 1U);
    EXPECT_EQ(of_type(VLAN_EVENT_ADD_INTF)[0].payload,
              Bytes(24).put<uint32_t>(0, 9).put<uint32_t>(12, 3).put<uint32_t>(16, BRI_PORT_ACCESS));
}

// Mode by mode: which of a port's VLANs 10 (native), 33 (in its tag set), 64 are told as tagged.
TEST_F(Replay, member_set_record_in_every_mode) {
    for (const uint16_t vid : {uint16_t{10}, uint16_t{33}, uint16_t{64}})
        add_vlan(vid, BRI_VLAN_STATIC, {40});
    add_vlan(65, BRI_VLAN_STATIC, {8});
    struct Row {
        uint32_t mode;
        bool native, tagged, other;
    };
    for (const Row &row : {Row{BRI_PORT_TRUNK, false, true, true}, Row{BRI_PORT_HOST, false, false, false},
                           Row{BRI_PORT_PROMIS, false, false, false}, Row{BRI_PORT_TUNNEL, false, false, false},
                           Row{BRI_PORT_UPLINK, true, true, true}, Row{BRI_PORT_HYBRID, false, true, false},
                           Row{8, false, false, false}, Row{0xFFFFFFFF, false, false, false}}) {
        spcb &port = add_port(40, row.mode, 10);
        port.tag_vlan = set_of({10, 33, 65, 100});
        run();
        Bytes expected(1036);
        expected.put<uint32_t>(0, 40).put<uint32_t>(1028, 1);
        expected.put<uint32_t>(4, 1U << 10).put<uint32_t>(8, 2).put<uint32_t>(12, 1);
        expected.put<uint32_t>(516, row.native ? 1U << 10 : 0).put<uint32_t>(520, row.tagged ? 2 : 0);
        expected.put<uint32_t>(524, row.other ? 1 : 0);
        ASSERT_EQ(of_type(VLAN_EVENT_RANGE_ADD_INTF).size(), 1U) << row.mode;
        EXPECT_EQ(of_type(VLAN_EVENT_RANGE_ADD_INTF)[0].payload, expected) << row.mode;
    }
}

TEST_F(Replay, member_bits_of_an_empty_entry_do_not_count) {
    add_vlan(10, BRI_VLAN_STATIC, {40});
    add_port(40, BRI_PORT_TRUNK);
    g_vl_mng.entries[10].vid = 0;
    run();
    EXPECT_EQ(of_type(VLAN_EVENT_RANGE_ADD_INTF)[0].payload, Bytes(1036).put<uint32_t>(0, 40).put<uint32_t>(1028, 1));
}

TEST_F(Replay, vlans_outside_the_database_range_are_left_out) {
    for (const uint16_t vid : {uint16_t{9}, uint16_t{10}, uint16_t{20}, uint16_t{21}})
        add_vlan(vid, BRI_VLAN_STATIC, {40});
    add_port(40, BRI_PORT_TRUNK);
    vl_set_vlan_range(10, 20);
    run();
    EXPECT_EQ(value_at<uint32_t>(events()[0].payload.data(), 0), 1U << 10 | 1U << 20);
    EXPECT_EQ(value_at<uint32_t>(of_type(VLAN_EVENT_RANGE_ADD_INTF)[0].payload.data(), 4), 1U << 10 | 1U << 20);
}

TEST_F(Replay, block_whose_own_index_is_wrong_harms_nothing) {
    add_vlan(10, BRI_VLAN_STATIC, {40, 41});
    add_port(40, BRI_PORT_TRUNK).ifx = 41;
    add_port(42, BRI_PORT_TRUNK).ifx = 64;
    add_port(43, BRI_PORT_TRUNK).ifx = 0xFFFFFFFF;
    run();
    ASSERT_EQ(of_type(VLAN_EVENT_RANGE_ADD_INTF).size(), 3U);
    // Port 41 is a member, but it is not there, so it has no tag rule.
    EXPECT_EQ(of_type(VLAN_EVENT_RANGE_ADD_INTF)[0].payload,
              Bytes(1036).put<uint32_t>(0, 41).put<uint32_t>(4, 1U << 10).put<uint32_t>(1028, 1));
    EXPECT_EQ(of_type(VLAN_EVENT_RANGE_ADD_INTF)[1].payload, Bytes(1036).put<uint32_t>(0, 64).put<uint32_t>(1028, 1));
    EXPECT_EQ(of_type(VLAN_EVENT_RANGE_ADD_INTF)[2].payload,
              Bytes(1036).put<uint32_t>(0, 0xFFFFFFFF).put<uint32_t>(1028, 1));
}

TEST_F(Replay, block_whose_own_index_is_invalid_is_named_for_each_vlan) {
    add_vlan(10);
    add_vlan(4094);
    add_port(42, BRI_PORT_TRUNK).ifx = 64;
    add_port(43, BRI_PORT_ACCESS).ifx = 65; // asks nothing of the VLANs
    debug_on({BRI_DBG_VLAN});
    run();
    EXPECT_EQ(log_text(), "Notify vlan create event:\n"
                          "Notify vlan other event:\n"
                          "Notify swport create event.\n"
                          "Notify swport vlan event.\n"
                          "Notify swport add vlan event.\n"
                          "Get member tag info, get spcb[64] failed.\n"
                          "Get member tag info, get spcb[64] failed.\n");
    EXPECT_EQ(log_lines().back().category(), kVlanDbLine);
    clear_log();
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    run();
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Replay, missed_vlans_are_told_before_the_set) {
    add_vlan(5, BRI_VLAN_STATIC, {}, true);
    add_vlan(6, BRI_VLAN_STATIC, {}, true).version = 4;
    g_vlan_private_version[6] = 2;
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX,
                                              VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_RANGE}));
    EXPECT_EQ(run().size(), 1U); // known now
}

TEST_F(Replay, every_step_is_logged_at_its_start) {
    debug_on({BRI_DBG_VLAN});
    run();
    EXPECT_EQ(log_text(), "Notify vlan create event:\n"
                          "Notify vlan other event:\n"
                          "Notify swport create event.\n"
                          "Notify swport vlan event.\n"
                          "Notify swport add vlan event.\n");
    for (const LogLine &line : log_lines())
        expect_vlan_log(line.text);
}

// The lines that stand in the log when each event is raised.
TEST_F(Replay, line_of_a_step_is_written_before_its_events) {
    add_vlan(10, BRI_VLAN_DYNAMIC, {40});
    add_port(40, BRI_PORT_TRUNK);
    debug_on({BRI_DBG_VLAN});
    std::vector<std::pair<uint32_t, std::string>> seen;
    during = [&](uint32_t type) { seen.emplace_back(type, log_lines().empty() ? "" : log_lines().back().text); };
    run();
    during = nullptr;
    const std::vector<std::pair<uint32_t, std::string>> expected{
        {VLAN_EVENT_CREATE_RANGE, "Notify vlan create event:\n"},
        {VLAN_EVENT_MODIFY_VLAN_MODE, "Notify vlan other event:\n"},
        {VLAN_EVENT_CREATE_INTF, "Notify swport create event.\n"},
        {VLAN_EVENT_MODIFY_INTF_MODE, "Notify swport vlan event.\n"},
        {VLAN_EVENT_MODIFY_INTF_PVID, "Notify swport vlan event.\n"},
        {VLAN_EVENT_MODIFY_INTF_ALLOWVL, "Notify swport vlan event.\n"},
        {VLAN_EVENT_RANGE_ADD_INTF, "Notify swport add vlan event.\n"}};
    EXPECT_EQ(seen, expected);
}

// The first step finds missed VLANs and tells them, so its line comes before those too.
TEST_F(Replay, first_line_is_written_before_what_was_missed_is_told) {
    add_vlan(5, BRI_VLAN_STATIC, {}, true);
    debug_on({BRI_DBG_VLAN});
    run();
    EXPECT_EQ(log_lines()[0].text, "Notify vlan create event:\n");
}

TEST_F(Replay, is_silent_with_the_flag_off) {
    add_vlan(10, BRI_VLAN_DYNAMIC, {1});
    add_port(1, BRI_PORT_TRUNK);
    run();
    EXPECT_TRUE(log_lines().empty());
}

// Changes by handlers ------------------------------------------------------------------------------------------------

int remove_vlan_300(uint32_t, void *, uint16_t) {
    vl_clear_vlan_entry(300);
    return 0;
}

TEST_F(Replay, vlan_removed_by_the_set_handler_is_skipped) {
    std::strcpy(add_vlan(300, BRI_VLAN_DYNAMIC).name, "x");
    listen({VLAN_EVENT_CREATE_RANGE}, remove_vlan_300);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE}));
}

TEST_F(Replay, vlan_removed_by_the_mode_handler_is_skipped_from_there) {
    std::strcpy(add_vlan(300, BRI_VLAN_DYNAMIC).name, "x");
    vl_set_svi(300, 9);
    listen({VLAN_EVENT_MODIFY_VLAN_MODE}, remove_vlan_300);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_MODIFY_VLAN_MODE}));
}

TEST_F(Replay, vlan_removed_by_the_name_handler_tells_no_svi) {
    std::strcpy(add_vlan(300, BRI_VLAN_DYNAMIC).name, "x");
    vl_set_svi(300, 9);
    listen({VLAN_EVENT_RENAME}, remove_vlan_300);
    run();
    EXPECT_EQ(types(),
              (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_RENAME}));
}

int make_again(uint32_t, void *, uint16_t) {
    vl_clear_vlan_entry(300);
    vl_initial_vlan_entry(300, BRI_VLAN_STATIC);
    return 0;
}

TEST_F(Replay, vlan_made_again_by_the_mode_handler_is_researched_by_the_second_look_up) {
    add_vlan(300, BRI_VLAN_DYNAMIC);
    listen({VLAN_EVENT_MODIFY_VLAN_MODE}, make_again);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_MODIFY_VLAN_MODE,
                                              VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_INDEX}));
}

int rename_vlan_300(uint32_t, void *, uint16_t) {
    std::strcpy(vl_get_vlan_entry(300)->name, "late");
    vl_set_svi(300, 0);
    vl_set_svi(300, 4321);
    return 0;
}

TEST_F(Replay, name_and_svi_set_by_the_mode_handler_are_told) {
    add_vlan(300, BRI_VLAN_DYNAMIC);
    listen({VLAN_EVENT_MODIFY_VLAN_MODE}, rename_vlan_300);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_RENAME,
                                              VLAN_EVENT_SVI_CREATE_DESTROY}));
    EXPECT_STREQ(reinterpret_cast<char *>(events()[2].payload.data()) + 4, "late");
    EXPECT_EQ(value_at<uint32_t>(events()[3].payload.data(), 0), 4321U);
}

int remove_port_40(uint32_t, void *, uint16_t) {
    swport_get_raw_spcb(40)->ifx = 0;
    return 0;
}

TEST_F(Replay, port_removed_by_a_handler_is_skipped_from_there) {
    struct Row {
        unsigned type;
        std::vector<uint32_t> seen;
    };
    for (const Row &row : {Row{VLAN_EVENT_CREATE_INTF, {VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_CREATE_INTF}},
                           Row{VLAN_EVENT_MODIFY_INTF_MODE,
                               {VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_MODIFY_INTF_MODE}},
                           Row{VLAN_EVENT_MODIFY_INTF_PVID,
                               {VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_MODIFY_INTF_MODE,
                                VLAN_EVENT_MODIFY_INTF_PVID}},
                           Row{VLAN_EVENT_MODIFY_INTF_ALLOWVL,
                               {VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_CREATE_INTF, VLAN_EVENT_MODIFY_INTF_MODE,
                                VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_MODIFY_INTF_ALLOWVL}}}) {
        add_port(40, BRI_PORT_TRUNK);
        listen({row.type}, remove_port_40);
        run();
        EXPECT_EQ(types(), row.seen);
        event_set set = set_of_types({row.type});
        bridge_client_unreg_event(&set, remove_port_40);
    }
}

int change_port_40(uint32_t, void *, uint16_t) {
    spcb &port = *swport_get_raw_spcb(40);
    port.mode = BRI_PORT_ACCESS;
    port.default_vid = 11;
    port.allow_vlan = set_of({12});
    return 0;
}

TEST_F(Replay, port_changed_by_a_handler_shows_in_the_records_behind) {
    add_port(40, BRI_PORT_TRUNK, 10);
    listen({VLAN_EVENT_MODIFY_INTF_MODE}, change_port_40);
    run();
    EXPECT_EQ(types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_CREATE_INTF,
                                              VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_PVID,
                                              VLAN_EVENT_MODIFY_INTF_ALLOWVL, VLAN_EVENT_ADD_INTF}));
    EXPECT_EQ(value_at<uint32_t>(of_type(VLAN_EVENT_MODIFY_INTF_MODE)[0].payload.data(), 4), 2U);
    EXPECT_EQ(value_at<uint16_t>(of_type(VLAN_EVENT_MODIFY_INTF_PVID)[0].payload.data(), 4), 11);
    EXPECT_EQ(value_at<uint32_t>(of_type(VLAN_EVENT_MODIFY_INTF_ALLOWVL)[0].payload.data(), 4), 1U << 12);
}

int join_vlan_10(uint32_t, void *data, uint16_t) {
    if (value_at<uint32_t>(data, 0) == 40)
        vl_add_static_member(41, 10);
    return 0;
}

TEST_F(Replay, membership_made_while_one_port_is_told_shows_at_the_next) {
    add_vlan(10);
    add_port(40, BRI_PORT_TRUNK);
    add_port(41, BRI_PORT_TRUNK);
    listen({VLAN_EVENT_RANGE_ADD_INTF}, join_vlan_10);
    run();
    EXPECT_EQ(value_at<uint32_t>(of_type(VLAN_EVENT_RANGE_ADD_INTF)[0].payload.data(), 4), 0U);
    EXPECT_EQ(value_at<uint32_t>(of_type(VLAN_EVENT_RANGE_ADD_INTF)[1].payload.data(), 4), 1U << 10);
}

// Walk over the ports ------------------------------------------------------------------------------------------------

void note_port(spcb *port, void *arg) {
    static_cast<std::vector<uint32_t> *>(arg)->push_back(port->ifx);
}

TEST_F(Replay, port_walk_visits_present_ports_with_a_mode_rising) {
    for (const int ifx : {63, 1, 32})
        add_port(ifx, BRI_PORT_HYBRID);
    add_port(5, BRI_PORT_ROUTE);
    add_port(6, BRI_PORT_TRUNK).ifx = 0;
    std::vector<uint32_t> seen;
    vl_clnt_swport_walk_throught(note_port, &seen);
    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 32, 63}));
}

TEST_F(Replay, port_walk_without_a_callback_is_logged) {
    debug_on({BRI_DBG_VLAN});
    add_port(1, BRI_PORT_TRUNK);
    vl_clnt_swport_walk_throught(nullptr, nullptr);
    EXPECT_EQ(log_text(), "Input parameter error, handler is null.\n");
    expect_vlan_log("Input parameter error, handler is null.\n");
}

TEST_F(VlanTest, port_walk_over_unmapped_tables_visits_nothing) {
    std::vector<uint32_t> seen;
    vl_clnt_swport_walk_throught(note_port, &seen);
    vl_clnt_swport_walk_throught(nullptr, nullptr);
    EXPECT_TRUE(seen.empty());
    EXPECT_TRUE(log_lines().empty());
}

} // namespace
