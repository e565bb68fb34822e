// Private versions: the checks of creates and deletes, single and of a set, and the re-search of look-ups.
#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test;

class Versions : public MappedVlanTest {};

uint16_t bits16(int value) {
    return static_cast<uint16_t>(value);
}

TEST_F(Versions, start_at_zero_and_keep_what_an_update_stores) {
    for (const uint16_t version : g_vlan_private_version)
        ASSERT_EQ(version, 0);
    vl_version_update(100, 7);
    EXPECT_EQ(vl_get_vlan_private_version(100), 7);
    EXPECT_EQ(g_vlan_private_version[100], 7);
}

TEST_F(Versions, outlive_a_lost_connection) {
    connect_server();
    vl_version_update(100, 7);
    bridge_client_connect_reset();
    EXPECT_EQ(ctx().connected, 0);
    EXPECT_EQ(vl_get_vlan_private_version(100), 7);
}

TEST_F(Versions, update_logs_old_and_new) {
    debug_on({BRI_DBG_VLAN});
    vl_version_update(100, 7);
    vl_version_update(100, 65533);
    expect_vlan_log("Updata vlan-private version from:0 to:7.\n");
    expect_vlan_log("Updata vlan-private version from:7 to:65533.\n");
}

TEST_F(Versions, ids_outside_the_database_range_have_none) {
    vl_set_vlan_range(10, 20);
    for (const unsigned vid : {0U, 9U, 21U, 4094U, 4095U, 4096U, 65535U}) {
        vl_version_update(static_cast<uint16_t>(vid), 5);
        EXPECT_EQ(vl_get_vlan_private_version(static_cast<uint16_t>(vid)), 0) << vid;
    }
    for (const uint16_t version : g_vlan_private_version)
        ASSERT_EQ(version, 0);
    vl_version_update(10, 5);
    vl_version_update(20, 6);
    EXPECT_EQ(vl_get_vlan_private_version(10), 5);
    EXPECT_EQ(vl_get_vlan_private_version(20), 6);
}

TEST_F(Versions, a_range_wider_than_the_table_reaches_nothing_behind_it) {
    vl_set_vlan_range(0, 65535);
    vl_version_update(4095, 5);
    vl_version_update(65535, 5);
    EXPECT_EQ(vl_get_vlan_private_version(4095), 0);
    EXPECT_EQ(vl_get_vlan_private_version(65535), 0);
    EXPECT_EQ(vl_version_check_on_create_notify(4095, 1), 1); // nothing known of it: any version above 0 is new
    vl_version_update(4094, 5);
    EXPECT_EQ(vl_get_vlan_private_version(4094), 5);
}

TEST_F(VlanTest, unmapped_database_has_no_versions) {
    vl_version_update(100, 7);
    EXPECT_EQ(vl_get_vlan_private_version(100), 0);
    EXPECT_EQ(g_vlan_private_version[100], 0);
    vl_version_check_on_reserch(100);
    vle dummy{};
    vle *entry = &dummy;
    vl_clnt_get_vle_from_vid(100, &entry);
    EXPECT_EQ(entry, nullptr);
}

TEST_F(Versions, create_must_be_strictly_newer) {
    struct Row {
        int known, message, accepted;
    };
    for (const Row &row :
         {Row{0, 1, 1}, Row{0, 0, 0}, Row{5, 5, 0}, Row{5, 4, 0}, Row{5, 6, 1}, Row{5, -3, 0}, Row{-3, 5, 1},
          Row{-3, -2, 1}, Row{-3, -4, 0}, Row{32767, -32768, 0}, Row{-32768, 32767, 1}}) {
        g_vlan_private_version[100] = bits16(row.known);
        EXPECT_EQ(vl_version_check_on_create_notify(100, bits16(row.message)), row.accepted)
            << row.known << " " << row.message;
        EXPECT_EQ(vl_get_vlan_private_version(100), bits16(row.accepted != 0 ? row.message : row.known));
    }
}

TEST_F(Versions, late_create_is_logged) {
    debug_on({BRI_DBG_VLAN});
    g_vlan_private_version[100] = 5;
    EXPECT_EQ(vl_version_check_on_create_notify(100, 5), 0);
    expect_vlan_log("VLAN-Create msg is LATE, Drop.\n");
    EXPECT_EQ(log_lines().size(), 1U);
}

TEST_F(Versions, accepted_create_logs_the_update_alone) {
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vl_version_check_on_create_notify(100, 6), 1);
    EXPECT_EQ(log_text(), "Updata vlan-private version from:0 to:6.\n");
}

TEST_F(Versions, destroy_is_accepted_unless_older) {
    struct Row {
        int known, message, accepted, kept;
    };
    for (const Row &row : {Row{0, 0, 1, 0}, Row{5, 5, 1, 5}, Row{5, 4, 0, 5}, Row{5, 6, 1, 6}, Row{5, -3, 0, 5},
                           Row{-3, 5, 1, 5}, Row{-3, -4, 0, -3}, Row{-3, -3, 1, -3}, Row{32767, -32768, 0, 32767}}) {
        g_vlan_private_version[100] = bits16(row.known);
        EXPECT_EQ(vl_version_check_on_destroy_notify(100, bits16(row.message)), row.accepted)
            << row.known << " " << row.message;
        EXPECT_EQ(vl_get_vlan_private_version(100), bits16(row.kept));
    }
}

TEST_F(Versions, destroy_logs_what_is_odd) {
    debug_on({BRI_DBG_VLAN});
    g_vlan_private_version[100] = 5;
    vl_version_check_on_destroy_notify(100, 5);
    EXPECT_EQ(log_text(), "");
    vl_version_check_on_destroy_notify(100, 4);
    expect_vlan_log("VLAN-Delete msg is LATE, Drop.\n");
    clear_log();
    vl_version_check_on_destroy_notify(100, 6);
    EXPECT_EQ(log_text(), "VLAN-Delete msg is befor VLAN-Create msg, ERROR.\n"
                          "Updata vlan-private version from:5 to:6.\n");
    expect_vlan_log("VLAN-Delete msg is befor VLAN-Create msg, ERROR.\n");
}

TEST_F(Versions, checks_are_silent_with_the_flag_off) {
    g_vlan_private_version[100] = 5;
    vl_version_check_on_create_notify(100, 5);
    vl_version_check_on_create_notify(100, 6);
    vl_version_check_on_destroy_notify(100, 4);
    vl_version_check_on_destroy_notify(100, 9);
    EXPECT_TRUE(log_lines().empty());
}

class RangeVersions : public MappedVlanTest {
  protected:
    vl_evt_vlanset_rec rec{};
    void put(unsigned vid, uint16_t version) {
        add_to(rec.vlans, vid);
        rec.versions[vid] = version;
    }
};

TEST_F(RangeVersions, create_keeps_fresh_bits_and_clears_late_ones) {
    g_vlan_private_version[5] = 3;
    g_vlan_private_version[4094] = 3;
    put(1, 1);
    put(5, 3);
    put(31, 2);
    put(32, 0);
    put(4094, 4);
    EXPECT_EQ(vl_version_check_on_range_create_notify(&rec), 1);
    const vlanset kept = set_of({1, 31, 4094});
    EXPECT_EQ(std::memcmp(&rec.vlans, &kept, sizeof kept), 0);
    EXPECT_EQ(g_vlan_private_version[1], 1);
    EXPECT_EQ(g_vlan_private_version[5], 3);
    EXPECT_EQ(g_vlan_private_version[31], 2);
    EXPECT_EQ(g_vlan_private_version[4094], 4);
}

TEST_F(RangeVersions, only_bits_change_in_the_record) {
    put(7, 0);
    put(8, 9);
    rec.origin_data = 0xA5A5A5A5;
    vl_evt_vlanset_rec expected = rec;
    expected.vlans = set_of({8});
    EXPECT_EQ(vl_version_check_on_range_create_notify(&rec), 1);
    EXPECT_EQ(bytes_of(rec), bytes_of(expected));
}

TEST_F(RangeVersions, create_with_all_late_or_none_gives_0) {
    EXPECT_EQ(vl_version_check_on_range_create_notify(&rec), 0);
    g_vlan_private_version[5] = 3;
    put(5, 3);
    put(6, 0);
    EXPECT_EQ(vl_version_check_on_range_create_notify(&rec), 0);
    EXPECT_EQ(vl_is_vlanset_not_empty(&rec.vlans), 0);
}

TEST_F(RangeVersions, destroy_keeps_current_bits_and_clears_late_ones) {
    g_vlan_private_version[5] = 3;
    g_vlan_private_version[6] = 3;
    g_vlan_private_version[7] = 3;
    put(5, 3);
    put(6, 2);
    put(7, 4);
    EXPECT_EQ(vl_version_check_on_range_destroy_notify(&rec), 1);
    const vlanset kept = set_of({5, 7});
    EXPECT_EQ(std::memcmp(&rec.vlans, &kept, sizeof kept), 0);
    EXPECT_EQ(g_vlan_private_version[6], 3);
    EXPECT_EQ(g_vlan_private_version[7], 4);
}

TEST_F(RangeVersions, destroy_with_all_late_gives_0) {
    g_vlan_private_version[6] = 3;
    put(6, 2);
    EXPECT_EQ(vl_version_check_on_range_destroy_notify(&rec), 0);
    EXPECT_EQ(vl_is_vlanset_not_empty(&rec.vlans), 0);
}

TEST_F(RangeVersions, each_late_vlan_is_logged_by_itself) {
    g_vlan_private_version[6] = g_vlan_private_version[7] = 3;
    put(6, 2);
    put(7, 2);
    put(8, 1);
    debug_on({BRI_DBG_VLAN});
    vl_evt_vlanset_rec again = rec;
    vl_version_check_on_range_create_notify(&rec);
    EXPECT_EQ(log_text(), "VLAN-Create msg is LATE, Drop.\nVLAN-Create msg is LATE, Drop.\n"
                          "Updata vlan-private version from:0 to:1.\n");
    clear_log();
    vl_version_check_on_range_destroy_notify(&again);
    EXPECT_EQ(log_text(), "VLAN-Delete msg is LATE, Drop.\nVLAN-Delete msg is LATE, Drop.\n");
}

TEST_F(RangeVersions, vlan_0_and_4095_are_neither_checked_nor_touched) {
    put(0, 9);
    put(4095, 9);
    EXPECT_EQ(vl_version_check_on_range_create_notify(&rec), 0);
    EXPECT_EQ(vl_version_check_on_range_destroy_notify(&rec), 0);
    EXPECT_TRUE(has(rec.vlans, 0));
    EXPECT_TRUE(has(rec.vlans, 4095));
}

TEST_F(RangeVersions, null_gives_0) {
    EXPECT_EQ(vl_version_check_on_range_create_notify(nullptr), 0);
    EXPECT_EQ(vl_version_check_on_range_destroy_notify(nullptr), 0);
}

TEST_F(RangeVersions, record_may_lie_at_any_address) {
    put(33, 1);
    put(34, 0);
    alignas(8) uint8_t bytes[sizeof rec + 8] = {};
    for (size_t shift = 0; shift < 8; ++shift) {
        g_vlan_private_version[33] = 0;
        std::memcpy(bytes + shift, &rec, sizeof rec);
        EXPECT_EQ(vl_version_check_on_range_create_notify(reinterpret_cast<vl_evt_vlanset_rec *>(bytes + shift)), 1);
        EXPECT_EQ(value_at<uint32_t>(bytes + shift, 4), 2U);
    }
}

TEST_F(RangeVersions, every_vlan_is_checked_with_its_own_version) {
    for (unsigned vid = 1; vid <= 4094; ++vid) {
        put(vid, static_cast<uint16_t>(vid));
        g_vlan_private_version[vid] = static_cast<uint16_t>(vid % 3 == 0 ? vid : vid - 1);
    }
    EXPECT_EQ(vl_version_check_on_range_create_notify(&rec), 1);
    for (unsigned vid = 1; vid <= 4094; ++vid) {
        ASSERT_EQ(has(rec.vlans, vid), vid % 3 != 0) << vid;
        ASSERT_EQ(g_vlan_private_version[vid], vid);
    }
}

class Research : public MappedVlanTest {
  protected:
    void SetUp() override {
        MappedVlanTest::SetUp();
        watch({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    }
};

TEST_F(Research, missing_vlan_changes_nothing) {
    g_vlan_private_version[100] = 4;
    vl_version_check_on_reserch(100);
    EXPECT_EQ(g_vlan_private_version[100], 4);
    EXPECT_TRUE(events().empty());
}

TEST_F(Research, equal_versions_change_nothing) {
    debug_on({BRI_DBG_VLAN});
    add_vlan(100);
    clear_log();
    vl_version_check_on_reserch(100);
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Research, vlan_never_seen_gives_one_create) {
    vle &entry = add_vlan(100, BRI_VLAN_DYNAMIC, {}, true);
    entry.version = 9;
    debug_on({BRI_DBG_VLAN});
    vl_version_check_on_reserch(100);
    EXPECT_EQ(g_vlan_private_version[100], 9);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0].type, VLAN_EVENT_CREATE_INDEX);
    ByteVec expected(56);
    put_at<uint16_t>(expected.data(), 0, 100);
    std::memcpy(expected.data() + 4, "DVLAN0100", 9);
    put_at<uint32_t>(expected.data(), 44, 2);
    EXPECT_EQ(events()[0].payload, expected);
    EXPECT_EQ(log_text(), "VLAN-Search: VLAN[100] private version[0] is smaller than latest[9].\n"
                          "Updata vlan-private version from:0 to:9.\n");
    expect_vlan_log("VLAN-Search: VLAN[100] private version[0] is smaller than latest[9].\n");
}

TEST_F(Research, older_incarnation_gives_destroy_then_create) {
    vle &entry = add_vlan(100, BRI_VLAN_SUPER, {}, true);
    entry.version = 9;
    g_vlan_private_version[100] = 4;
    vl_version_check_on_reserch(100);
    ASSERT_EQ(events().size(), 2U);
    EXPECT_EQ(events()[0].type, VLAN_EVENT_DESTROY_INDEX);
    EXPECT_EQ(events()[1].type, VLAN_EVENT_CREATE_INDEX);
    ByteVec expected(56);
    put_at<uint16_t>(expected.data(), 0, 100);
    std::memcpy(expected.data() + 4, "VLAN0100", 8);
    put_at<uint32_t>(expected.data(), 40, 1);
    put_at<uint32_t>(expected.data(), 44, 4);
    EXPECT_EQ(events()[0].payload, expected);
    put_at<uint32_t>(expected.data(), 40, 0);
    EXPECT_EQ(events()[1].payload, expected);
}

TEST_F(Research, private_version_ahead_is_set_back_silently) {
    vle &entry = add_vlan(100);
    entry.version = 4;
    g_vlan_private_version[100] = 9;
    debug_on({BRI_DBG_VLAN});
    vl_version_check_on_reserch(100);
    EXPECT_EQ(g_vlan_private_version[100], 4);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(log_text(), "VLAN-Search: VLAN[100] private version[9] is biger than latest[4], ERROR.\n");
    expect_vlan_log("VLAN-Search: VLAN[100] private version[9] is biger than latest[4], ERROR.\n");
}

TEST_F(Research, logs_versions_as_signed_numbers) {
    vle &entry = add_vlan(100, BRI_VLAN_STATIC, {}, true);
    debug_on({BRI_DBG_VLAN});
    entry.version = bits16(-3);
    g_vlan_private_version[100] = bits16(-2);
    vl_version_check_on_reserch(100);
    entry.version = bits16(-1);
    vl_version_check_on_reserch(100);
    EXPECT_EQ(log_text(), "VLAN-Search: VLAN[100] private version[-2] is biger than latest[-3], ERROR.\n"
                          "VLAN-Search: VLAN[100] private version[-3] is smaller than latest[-1].\n"
                          "Updata vlan-private version from:65533 to:65535.\n");
}

TEST_F(Research, is_silent_with_the_flag_off) {
    vle &entry = add_vlan(100, BRI_VLAN_STATIC, {}, true);
    vl_version_check_on_reserch(100);
    EXPECT_EQ(g_vlan_private_version[100], entry.version);
    entry.version = 0;
    vl_version_check_on_reserch(100);
    EXPECT_EQ(g_vlan_private_version[100], 0);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(Research, compares_signed_so_a_wrapped_latest_is_older) {
    vle &entry = add_vlan(100);
    entry.version = bits16(-32768);
    g_vlan_private_version[100] = 32767;
    vl_version_check_on_reserch(100);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(g_vlan_private_version[100], 32768);
    entry.version = 3;
    vl_version_check_on_reserch(100);
    EXPECT_EQ(events().size(), 2U);
}

TEST_F(Research, name_without_a_terminator_is_cut_at_35_characters) {
    vle &entry = add_vlan(100, BRI_VLAN_STATIC, {}, true);
    std::memset(entry.name, 'n', sizeof entry.name);
    vl_version_check_on_reserch(100);
    ASSERT_EQ(events().size(), 1U);
    const ByteVec name(events()[0].payload.begin() + 4, events()[0].payload.begin() + 40);
    ByteVec expected(36, 'n');
    expected[35] = 0;
    EXPECT_EQ(name, expected);
    EXPECT_EQ(value_at<uint32_t>(events()[0].payload.data(), 40), 0U);
}

int change_entry_on_destroy(uint32_t type, void *, uint16_t) {
    if (type == VLAN_EVENT_DESTROY_INDEX)
        std::strcpy(vl_get_vlan_entry(100)->name, "other");
    return 0;
}

TEST_F(Research, both_events_carry_the_entry_as_it_was_found) {
    listen({VLAN_EVENT_DESTROY_INDEX}, change_entry_on_destroy);
    add_vlan(100, BRI_VLAN_STATIC, {}, true).version = 9;
    g_vlan_private_version[100] = 4;
    vl_version_check_on_reserch(100);
    ASSERT_EQ(events().size(), 2U);
    EXPECT_STREQ(reinterpret_cast<char *>(events()[1].payload.data()) + 4, "VLAN0100");
}

int search_again(uint32_t, void *, uint16_t) {
    vl_version_check_on_reserch(100);
    return 0;
}

TEST_F(Research, handler_that_searches_the_same_vlan_gets_no_second_event) {
    listen({VLAN_EVENT_CREATE_INDEX}, search_again);
    add_vlan(100, BRI_VLAN_STATIC, {}, true);
    vl_version_check_on_reserch(100);
    EXPECT_EQ(events().size(), 1U);
}

TEST_F(Research, entry_look_up_finds_and_researches) {
    vle &entry = add_vlan(100, BRI_VLAN_STATIC, {}, true);
    vle *found = nullptr;
    vl_clnt_get_vle_from_vid(100, &found);
    EXPECT_EQ(found, &entry);
    EXPECT_EQ(events().size(), 1U);
    vl_clnt_get_vle_from_vid(101, &found);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(events().size(), 1U);
}

TEST_F(Research, entry_look_up_into_null_does_nothing) {
    add_vlan(100, BRI_VLAN_STATIC, {}, true);
    vl_clnt_get_vle_from_vid(100, nullptr);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(g_vlan_private_version[100], 0);
}

int remove_vlan(uint32_t, void *, uint16_t) {
    vl_clear_vlan_entry(100);
    return 0;
}

TEST_F(Research, entry_stays_readable_when_a_handler_removes_it) {
    listen({VLAN_EVENT_CREATE_INDEX}, remove_vlan);
    add_vlan(100, BRI_VLAN_STATIC, {}, true);
    vle *found = nullptr;
    vl_clnt_get_vle_from_vid(100, &found);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->vid, 0);
}

} // namespace
