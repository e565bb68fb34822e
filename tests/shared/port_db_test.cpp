// Switch-port database: set-up, look-ups, status.
#include "shared/ports.h"
#include "tests/shared/port_fixture.h"
#include "tests/support/effects.h"

#include <bridge/port_db.h>

#include <climits>
#include <cstdlib>
#include <sys/sem.h>

namespace {

using test::PortDb;
using test::UnmappedPortDb;
using test::faults::calls;
using test::faults::fail;

void expect_port_db_line(const std::string &text) {
    const test::LogLine line = test::log_line(text);
    EXPECT_EQ(line.category(), test::kPortDbLine) << text << "among:\n" << test::log_text();
}

std::string pointer_text(const void *pointer) {
    char text[32];
    std::snprintf(text, sizeof text, "%p", pointer);
    return text;
}

// Every operation on an unmapped database, and that it gives what an absent port gives.
void expect_unmapped() {
    uint32_t word = 77;
    spcb copy{};
    vlanset map{};
    map.words[0] = 2;
    const uint16_t table[4096] = {};
    EXPECT_EQ(swport_get_raw_spcb(5), nullptr);
    EXPECT_EQ(swport_get_spcb(5), nullptr);
    EXPECT_EQ(vl_ifindex_to_swport(5), nullptr);
    EXPECT_EQ(swport_check_exist(5), 0);
    EXPECT_EQ(swport_get_spcb_copy(5, &copy), 0);
    EXPECT_EQ(swport_get_version(5), 0U);
    EXPECT_EQ(swport_get_port_mode(5, &word), 0);
    EXPECT_EQ(swport_get_port_default_mode(5, &word), 0);
    EXPECT_EQ(swport_get_port_default_vid(5), 0);
    EXPECT_EQ(swport_get_tag_vlan(5), nullptr);
    EXPECT_EQ(swport_is_allow_vlan(5, 10), 0);
    EXPECT_EQ(swport_get_total_port_num(), 0);
    EXPECT_EQ(swport_get_vlan_tag_rule(5, 10), 1);
    EXPECT_EQ(swport_tag_vlan_add(5, 10), -22);
    EXPECT_EQ(swport_tag_vlan_del(5, 10), -22);
    swport_tag_vlan_merge_map(5, &map);
    swport_tag_vlan_rmv_map(5, &map);
    swport_reset_tag_vlan(5);
    EXPECT_EQ(map.words[0], 2U);
    EXPECT_EQ(swport_set_attr_exclude(5, 0x40, 1, 0x1fc0, &word), 0);
    EXPECT_EQ(swport_get_stp_instance_table(), nullptr);
    swport_set_instance_table(table);
    EXPECT_EQ(swport_get_stp_instance(10), 1022);
    EXPECT_EQ(word, 77U);
}

TEST_F(UnmappedPortDb, every_operation_finds_nothing_before_set_up) {
    expect_unmapped();
}

TEST_F(UnmappedPortDb, set_up_makes_the_segment_and_its_lock) {
    EXPECT_EQ(bridge_portdb_init(), 1);
    shmid_ds status{};
    ASSERT_EQ(shmctl(shmget(key(), 0, 0), IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 76U + 135592U);
    EXPECT_EQ(test::value_at<int32_t>(segment(), 0), key());
    EXPECT_STREQ(reinterpret_cast<char *>(segment()) + 8, "SWPORT-SHM");
    EXPECT_EQ(test::value_at<uint32_t>(segment(), 72), 135592U);
    EXPECT_EQ(semctl(semget(key(), 0, 0), 0, GETVAL), 1);
}

TEST_F(UnmappedPortDb, set_up_says_where_the_table_is) {
    test::debug_on({BRI_DBG_VLAN});
    bridge_portdb_init();
    expect_port_db_line("PORTDB initial SUCC: SHM head " + pointer_text(swport_get_raw_spcb(1) - 1) + ".\n");
}

TEST_F(UnmappedPortDb, set_up_of_every_virtual_device_has_its_own_key) {
    setenv("VSDID", "-7", 1);
    EXPECT_EQ(bri::ipc_key(0x22220001), 0x2221FFFA);
    setenv("VSDID", "12junk", 1);
    EXPECT_EQ(bri::ipc_key(0x22220001), 0x2222000D);
    setenv("VSDID", "99999999999", 1); // saturated to 32 bits, not cut to them
    EXPECT_EQ(bri::ipc_key(0x22220001), static_cast<int32_t>(0xA2220000));
    setenv("VSDID", "-99999999999", 1);
    EXPECT_EQ(bri::ipc_key(0x22220001), static_cast<int32_t>(0xA2220001));
    unsetenv("VSDID");
    EXPECT_EQ(bri::ipc_key(0x22220001), 0x22220001);
    setenv("VSDID", std::to_string(vsd()).c_str(), 1);
}

TEST_F(UnmappedPortDb, a_key_of_zero_is_refused) {
    test::debug_on({BRI_DBG_VLAN});
    setenv("VSDID", std::to_string(-0x22220001).c_str(), 1);
    EXPECT_EQ(bridge_portdb_init(), 0);
    ASSERT_EQ(test::log_lines().size(), 1U);
    expect_port_db_line("Get ipc-key failed.\n");
    EXPECT_EQ(calls("semget") + calls("shmget"), 0);
}

TEST_F(UnmappedPortDb, set_up_fails_without_the_lock) {
    test::debug_on({BRI_DBG_VLAN});
    fail("semget", 1, ENOSPC);
    EXPECT_EQ(bridge_portdb_init(), 0);
    expect_port_db_line("Create SEM failed.\n");
    EXPECT_EQ(calls("shmget"), 0);
    expect_unmapped();
}

TEST_F(UnmappedPortDb, set_up_fails_without_the_segment) {
    test::debug_on({BRI_DBG_VLAN});
    fail("shmget", 1, ENOSPC);
    EXPECT_EQ(bridge_portdb_init(), 0);
    expect_port_db_line("Create SHM failed.\n");
    expect_unmapped();
    EXPECT_EQ(bridge_portdb_init(), 1);
}

TEST_F(UnmappedPortDb, a_segment_that_is_too_small_is_refused) {
    segment(1000);
    EXPECT_EQ(bridge_portdb_init(), 0);
    expect_unmapped();
}

TEST_F(PortDb, after_a_failed_repetition_the_old_mapping_is_not_used) {
    plug(5);
    for (const char *call : {"calloc", "semget", "shmget", "shmat", "malloc"}) {
        ASSERT_EQ(bridge_portdb_init(), 1);
        ASSERT_EQ(swport_check_exist(5), 1);
        fail(call, 1, ENOMEM);
        EXPECT_EQ(bridge_portdb_init(), 0) << call;
        expect_unmapped();
    }
}

TEST_F(PortDb, a_repetition_without_a_key_changes_nothing) {
    plug(5);
    swport_inc_total_num();
    const spcb *before = swport_get_spcb(5);
    setenv("VSDID", std::to_string(-0x22220001).c_str(), 1);
    EXPECT_EQ(bridge_portdb_init(), 0);
    EXPECT_EQ(swport_get_spcb(5), before);
    swport_show_status();
    EXPECT_TRUE(test::logged("total-swport-num:\t1\n"));
}

TEST_F(PortDb, a_repetition_forgets_the_old_mapping_before_it_makes_the_lock) {
    plug(5);
    test::debug_on({BRI_DBG_VLAN});
    int found = -1;
    test::on_effect = [&](const std::string &line) {
        if (found < 0 && line.rfind("Create SEM ", 0) == 0)
            found = swport_check_exist(5);
    };
    EXPECT_EQ(bridge_portdb_init(), 1);
    test::on_effect = nullptr;
    EXPECT_EQ(found, 0);
}

TEST_F(PortDb, a_repetition_replaces_the_mapping_and_forgets_the_count) {
    plug(5);
    swport_inc_total_num();
    const spcb *before = swport_get_spcb(5);
    ASSERT_EQ(bridge_portdb_init(), 1);
    ASSERT_NE(swport_get_spcb(5), nullptr);
    EXPECT_NE(swport_get_spcb(5), before);
    EXPECT_EQ(before->ifx, 5U); // the old mapping stays until the process ends
    swport_show_status();
    EXPECT_TRUE(test::logged("total-swport-num:\t0\n"));
}

// Whoever kept one may still use it, and give it back.
TEST_F(PortDb, a_repetition_leaves_the_earlier_handles_to_their_keepers) {
    plug(5);
    const bri::ports::Manager before = bri::ports::g_manager;
    ASSERT_EQ(bridge_portdb_init(), 1);
    EXPECT_NE(bri::ports::g_manager.shm, before.shm);
    EXPECT_NE(bri::ports::g_manager.lock, before.lock);
    bridge_shm_dettach(before.shm);
    std::free(before.lock);
    EXPECT_EQ(swport_check_exist(5), 1);
    EXPECT_EQ(swport_set_attr_exclude(5, 1, 1, 0, nullptr), 1);
}

TEST_F(PortDb, taking_down_does_nothing) {
    plug(5);
    bridge_portdb_deinit();
    EXPECT_EQ(swport_check_exist(5), 1);
}

TEST_F(PortDb, the_markers_take_no_lock) {
    test::faults::clear();
    swport_rdown();
    swport_wdown();
    swport_up();
    EXPECT_EQ(calls("semop"), 0);
    EXPECT_EQ(semctl(semget(key(), 0, 0), 0, GETVAL), 1);
}

TEST_F(PortDb, indices_1_to_63_are_valid) {
    for (int32_t ifx = -70; ifx < 200; ++ifx) {
        const int valid = ifx >= 1 && ifx <= 63 ? 1 : 0;
        ASSERT_EQ(swport_check_ifindex_valid(ifx), valid) << ifx;
        ASSERT_EQ(swport_get_raw_spcb(ifx) != nullptr, valid == 1) << ifx;
    }
    for (const int32_t ifx : {INT_MIN, INT_MIN + 1, INT_MAX, 0x10001, 0x20000000})
        EXPECT_EQ(swport_check_ifindex_valid(ifx), 0) << ifx;
}

TEST_F(PortDb, an_absent_port_has_a_block_but_is_not_found) {
    EXPECT_EQ(reinterpret_cast<uint8_t *>(swport_get_raw_spcb(5)),
              reinterpret_cast<uint8_t *>(swport_get_raw_spcb(1)) + 4 * test::kBlockSize);
    EXPECT_EQ(swport_get_spcb(5), nullptr);
    plug(5);
    EXPECT_EQ(swport_get_spcb(5), swport_get_raw_spcb(5));
    EXPECT_EQ(vl_ifindex_to_swport(5), swport_get_raw_spcb(5));
    EXPECT_EQ(swport_check_exist(5), 1);
    unplug(5);
    EXPECT_EQ(swport_check_exist(5), 0);
}

TEST_F(PortDb, an_index_outside_is_never_present) {
    std::memset(data(), 0xFF, test::kPortDataSize);
    for (const int32_t ifx : {INT_MIN, -1, 0, 64, INT_MAX}) {
        EXPECT_EQ(swport_get_spcb(ifx), nullptr);
        EXPECT_EQ(vl_ifindex_to_swport(ifx), nullptr);
        EXPECT_EQ(swport_check_exist(ifx), 0);
        EXPECT_EQ(swport_get_version(ifx), 0U);
        EXPECT_EQ(swport_get_tag_vlan(ifx), nullptr);
        EXPECT_EQ(swport_tag_vlan_add(ifx, 1), -22);
        EXPECT_EQ(swport_is_allow_vlan(ifx, 1), 0);
    }
}

TEST_F(PortDb, an_absent_port_has_no_values) {
    std::memset(block(5), 0xFF, test::kBlockSize);
    unplug(5);
    uint32_t word = 77;
    spcb copy{};
    EXPECT_EQ(swport_get_version(5), 0U);
    EXPECT_EQ(swport_get_port_mode(5, &word), 0);
    EXPECT_EQ(swport_get_port_default_mode(5, &word), 0);
    EXPECT_EQ(swport_get_port_default_vid(5), 0);
    EXPECT_EQ(swport_get_spcb_copy(5, &copy), 0);
    EXPECT_EQ(swport_is_allow_vlan(5, 10), 0);
    EXPECT_EQ(swport_get_tag_vlan(5), nullptr);
    EXPECT_EQ(word, 77U);
    EXPECT_EQ(test::bytes_of(copy), test::ByteVec(test::kBlockSize));
}

TEST_F(PortDb, look_ups_log_nothing) {
    plug(5);
    test::debug_on({BRI_DBG_VLAN});
    test::clear_log();
    for (const int32_t ifx : {-1, 0, 5, 6, 64}) {
        uint32_t word = 0;
        spcb copy;
        swport_check_ifindex_valid(ifx);
        swport_get_raw_spcb(ifx);
        swport_check_exist(ifx);
        swport_get_spcb_copy(ifx, &copy);
        swport_get_version(ifx);
        swport_get_port_mode(ifx, &word);
        swport_get_port_default_mode(ifx, &word);
        swport_get_port_default_vid(ifx);
        swport_get_tag_vlan(ifx);
        swport_is_allow_vlan(ifx, 10);
        swport_get_vlan_tag_rule(ifx, 10);
        swport_tag_vlan_add(ifx, 10);
        swport_tag_vlan_del(ifx, 10);
        swport_set_attr_exclude(ifx, 1, 1, 0, nullptr);
    }
    swport_get_total_port_num();
    swport_get_stp_instance(10);
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(PortDb, null_places_for_a_value_give_0) {
    plug(5);
    EXPECT_EQ(swport_get_port_mode(5, nullptr), 0);
    EXPECT_EQ(swport_get_port_default_mode(5, nullptr), 0);
    EXPECT_EQ(swport_get_spcb_copy(5, nullptr), 0);
    swport_set_instance_table(nullptr);
}

TEST_F(PortDb, the_total_counts_the_ports_that_are_there) {
    EXPECT_EQ(swport_get_total_port_num(), 0);
    for (const int32_t ifx : {0, 1, 17, 63})
        test::put_at<uint32_t>(block(ifx), 4, 9);
    EXPECT_EQ(swport_get_total_port_num(), 3); // index 0 never counts
}

TEST_F(PortDb, the_private_count_stays_within_0_and_65) {
    const auto shown = [] {
        test::clear_log();
        swport_show_status();
        return test::log_lines()[test::log_lines().size() - 2].text;
    };
    swport_dec_total_num();
    EXPECT_EQ(shown(), "total-swport-num:\t0\n");
    swport_inc_total_num();
    swport_dec_total_num();
    EXPECT_EQ(shown(), "total-swport-num:\t0\n");
    for (int times = 0; times < 64; ++times)
        swport_inc_total_num();
    EXPECT_EQ(shown(), "total-swport-num:\t64\n");
    swport_inc_total_num();
    EXPECT_EQ(shown(), "total-swport-num:\t65\n");
    swport_inc_total_num();
    EXPECT_EQ(shown(), "total-swport-num:\t65\n");
    swport_dec_total_num();
    EXPECT_EQ(shown(), "total-swport-num:\t64\n");
}

TEST_F(PortDb, every_mode_has_its_name) {
    const char *names[] = {"ROUTE", "ACCESS", "TRUNK", "HOST", "PROMIS", "TUNNEL", "UPLINK", "HYBRID"};
    for (uint32_t mode = 0; mode < 8; ++mode)
        EXPECT_STREQ(swport_vlan_mode_name(mode), names[mode]);
    for (const uint32_t mode : {8U, 9U, 255U, 0x80000000U, UINT32_MAX})
        EXPECT_STREQ(swport_vlan_mode_name(mode), "Unkonw-swport- mode");
}

TEST_F(PortDb, the_head_tells_what_the_segment_header_says) {
    uint32_t key_word = 0;
    uint32_t id = 0;
    uint32_t size = 0;
    char name[65];
    std::memset(name, 'z', sizeof name);
    ASSERT_EQ(swport_get_shm_head(&key_word, &id, &size, name), 1);
    EXPECT_EQ(key_word, static_cast<uint32_t>(key()));
    EXPECT_EQ(id, static_cast<uint32_t>(shmget(key(), 0, 0)));
    EXPECT_EQ(size, 135592U);
    EXPECT_STREQ(name, "SWPORT-SHM");
    EXPECT_EQ(name[64], 'z');

    test::put_at<uint32_t>(segment(), 0, 1);
    test::put_at<uint32_t>(segment(), 4, 2);
    std::memset(segment() + 8, 'n', 64);
    test::put_at<uint32_t>(segment(), 72, 3);
    ASSERT_EQ(swport_get_shm_head(&key_word, &id, &size, name), 1);
    EXPECT_EQ(key_word, 1U);
    EXPECT_EQ(id, 2U);
    EXPECT_EQ(size, 3U);
    EXPECT_EQ(std::string(name), std::string(63, 'n')); // bounded, also where the header's name has no end
    EXPECT_EQ(name[64], 'z');
}

TEST_F(PortDb, the_head_needs_every_pointer) {
    test::debug_on({BRI_DBG_VLAN});
    test::clear_log();
    uint32_t word = 77;
    char name[64] = "untouched";
    EXPECT_EQ(swport_get_shm_head(nullptr, &word, &word, name), 0);
    EXPECT_EQ(swport_get_shm_head(&word, nullptr, &word, name), 0);
    EXPECT_EQ(swport_get_shm_head(&word, &word, nullptr, name), 0);
    EXPECT_EQ(swport_get_shm_head(&word, &word, &word, nullptr), 0);
    EXPECT_EQ(word, 77U);
    EXPECT_STREQ(name, "untouched");
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(UnmappedPortDb, the_head_of_an_unmapped_segment_is_not_ready) {
    uint32_t word = 77;
    char name[64];
    EXPECT_EQ(swport_get_shm_head(&word, &word, &word, name), 0);
    EXPECT_TRUE(test::log_lines().empty());
    test::debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(swport_get_shm_head(&word, &word, &word, name), 0);
    ASSERT_EQ(test::log_lines().size(), 1U);
    expect_port_db_line("SWPORT-SHM is not ready.\n");
    EXPECT_EQ(word, 77U);
}

TEST_F(PortDb, the_status_shows_segment_addresses_and_count) {
    swport_inc_total_num();
    swport_show_status();
    char key_text[16];
    std::snprintf(key_text, sizeof key_text, "0x%x", static_cast<unsigned>(key()));
    const std::string entries = pointer_text(swport_get_raw_spcb(1) - 1);
    EXPECT_EQ(test::log_text(), "--------------------SWPORT-DB---------------------\n"
                                "shm-name:   SWPORT-SHM\n"
                                "shm-id:     " +
                                    std::to_string(shmget(key(), 0, 0)) + "\nshm-key:    " + key_text +
                                    "\nshm-size:   135592\n"
                                    "shm-addr:   " +
                                    entries + "\nSWPORT-ENTRY head " + entries + "\nSTP-VLAN-INST head " +
                                    pointer_text(swport_get_stp_instance_table()) +
                                    "\ntotal-swport-num:\t1\n"
                                    "--------------------END---------------------\n");
    for (const test::LogLine &line : test::log_lines()) {
        EXPECT_EQ(line.category(), test::kShownLine);
    }
}

TEST_F(UnmappedPortDb, the_status_of_an_unmapped_database_has_no_segment) {
    swport_show_status();
    const std::string null = pointer_text(nullptr);
    EXPECT_EQ(test::log_text(), "--------------------SWPORT-DB---------------------\n"
                                "SWPORT-ENTRY head " +
                                    null + "\nSTP-VLAN-INST head " + null +
                                    "\ntotal-swport-num:\t0\n"
                                    "--------------------END---------------------\n");
}

} // namespace
