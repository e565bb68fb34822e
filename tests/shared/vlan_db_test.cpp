#include "tests/shared/vlan_fixture.h"
#include "tests/support/effects.h"

#include <cerrno>
#include <cstdlib>
#include <sys/sem.h>
#include <sys/shm.h>

namespace {

using namespace test;

constexpr unsigned kKeyBase = 0x11110001;

TEST_F(UnmappedVlanDb, set_up_maps_a_segment_of_the_exact_size_under_the_key_of_the_device) {
    ASSERT_EQ(vl_vlandb_init(), 1);
    const auto key = static_cast<key_t>(kKeyBase + static_cast<unsigned>(vsd()));
    const int id = shmget(key, 0, 0);
    ASSERT_GE(id, 0);
    shmid_ds status{};
    ASSERT_EQ(shmctl(id, IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 76 + kVlanDataSize);
    EXPECT_GE(semget(key, 1, 0), 0);
}

TEST_F(UnmappedVlanDb, set_up_points_the_manager_into_the_segment) {
    ASSERT_EQ(vl_vlandb_init(), 1);
    auto *data = static_cast<uint8_t *>(g_vl_mng.shm->data);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(g_vl_mng.entries), data);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(g_vl_mng.stat), data + 327600);
    EXPECT_EQ(reinterpret_cast<uint8_t *>(g_vl_mng.proto_state), data + 328136);
    EXPECT_NE(g_vl_mng.lock, nullptr);
}

TEST_F(UnmappedVlanDb, manager_holds_five_pointers_in_the_order_of_the_interface) {
    ASSERT_EQ(vl_vlandb_init(), 1);
    const void *members[] = {g_vl_mng.shm, g_vl_mng.lock, g_vl_mng.entries, g_vl_mng.stat, g_vl_mng.proto_state};
    static_assert(sizeof members == sizeof(vl_mng));
    EXPECT_EQ(std::memcmp(&g_vl_mng, members, sizeof members), 0);
}

TEST_F(UnmappedVlanDb, set_up_logs_where_the_table_lies) {
    debug_on({BRI_DBG_VLAN});
    ASSERT_EQ(vl_vlandb_init(), 1);
    char expected[100];
    std::snprintf(expected, sizeof expected, "VLANDB initial SUCC: SHM head %p.\n",
                  static_cast<void *>(g_vl_mng.entries));
    const LogLine line = log_line(expected);
    EXPECT_EQ(line.category(), kVlanDbLine);
}

TEST_F(UnmappedVlanDb, set_up_is_silent_while_its_flag_is_off) {
    ASSERT_EQ(vl_vlandb_init(), 1);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(UnmappedVlanDb, set_up_without_a_usable_key_fails) {
    debug_on({BRI_DBG_VLAN});
    setenv("VSDID", std::to_string(-static_cast<int>(kKeyBase)).c_str(), 1);
    EXPECT_EQ(vl_vlandb_init(), 0);
    ASSERT_EQ(log_lines().size(), 1U);
    expect_line("Get ipc-key failed.\n", kVlanDbLine);
}

TEST_F(UnmappedVlanDb, set_up_without_a_lock_fails_and_keeps_nothing) {
    debug_on({BRI_DBG_VLAN});
    faults::fail("semget", 1, EACCES);
    EXPECT_EQ(vl_vlandb_init(), 0);
    expect_line("Create SEM failed.\n", kVlanDbLine);
    EXPECT_EQ(g_vl_mng.lock, nullptr);
    EXPECT_EQ(g_vl_mng.shm, nullptr);
}

TEST_F(UnmappedVlanDb, set_up_without_a_segment_fails_and_keeps_the_lock) {
    debug_on({BRI_DBG_VLAN});
    faults::fail("shmget", 1, ENOMEM);
    EXPECT_EQ(vl_vlandb_init(), 0);
    expect_line("Create SHM failed.\n", kVlanDbLine);
    EXPECT_NE(g_vl_mng.lock, nullptr);
    EXPECT_EQ(g_vl_mng.shm, nullptr);
    EXPECT_EQ(g_vl_mng.entries, nullptr);
    EXPECT_EQ(g_vl_mng.stat, nullptr);
    EXPECT_EQ(g_vl_mng.proto_state, nullptr);
}

TEST_F(VlanDb, failed_set_up_leaves_no_way_to_the_old_mapping) {
    make(10);
    for (const char *call : {"semget", "shmget", "shmat"}) {
        ASSERT_EQ(vl_vlandb_init(), 1) << call;
        ASSERT_EQ(vl_exist(10, 0), 1) << call;
        faults::fail(call, 1, EACCES);
        EXPECT_EQ(vl_vlandb_init(), 0) << call;
        EXPECT_EQ(vl_exist(10, 0), 0) << call;
        EXPECT_EQ(vl_check_vlanid_valid(10), 0) << call;
    }
}

TEST_F(VlanDb, set_up_again_clears_the_members_before_it_makes_the_lock) {
    debug_on({BRI_DBG_VLAN});
    const vl_mng cleared{};
    vl_mng seen = g_vl_mng;
    on_effect = [&](const std::string &line) {
        if (line.rfind("Create SEM ", 0) == 0 && line.find("semid") == std::string::npos)
            seen = g_vl_mng;
    };
    EXPECT_EQ(vl_vlandb_init(), 1);
    on_effect = nullptr;
    EXPECT_EQ(std::memcmp(&seen, &cleared, sizeof seen), 0);
}

TEST_F(VlanDb, set_up_again_without_a_key_changes_nothing) {
    make(10);
    const vl_mng before = g_vl_mng;
    setenv("VSDID", std::to_string(-static_cast<int>(kKeyBase)).c_str(), 1);
    EXPECT_EQ(vl_vlandb_init(), 0);
    EXPECT_EQ(std::memcmp(&g_vl_mng, &before, sizeof before), 0);
    EXPECT_EQ(vl_exist(10, 0), 1);
}

// Whoever kept one may still use it, and give it back.
TEST_F(VlanDb, set_up_again_leaves_the_earlier_handles_to_their_keepers) {
    make(10);
    const vl_mng before = g_vl_mng;
    ASSERT_EQ(vl_vlandb_init(), 1);
    EXPECT_NE(g_vl_mng.shm, before.shm);
    EXPECT_NE(g_vl_mng.lock, before.lock);
    bridge_shm_dettach(before.shm);
    std::free(before.lock);
    EXPECT_EQ(vl_exist(10, 0), 1);
}

TEST_F(VlanDb, set_up_again_works_where_memory_is_too_short_to_keep_track_of_the_earlier_handles) {
    faults::fail("realloc", 1, ENOMEM);
    const vl_mng before = g_vl_mng;
    EXPECT_EQ(vl_vlandb_init(), 1);
    EXPECT_EQ(faults::injected(), 1);
    std::free(before.shm);
    std::free(before.lock);
}

TEST_F(VlanDb, set_up_again_and_deinit_keep_the_contents) {
    make(10);
    vl_vlandb_deinit();
    EXPECT_EQ(vl_exist(10, 0), 1);
    EXPECT_EQ(vl_vlandb_init(), 1);
    EXPECT_EQ(vl_exist(10, 0), 1);
}

TEST_F(VlanDb, lock_markers_take_no_lock) {
    const int before = faults::calls("semop");
    vl_rdown();
    vl_wdown();
    vl_up();
    bp_rdown();
    bp_wdown();
    bp_up();
    EXPECT_EQ(faults::calls("semop"), before);
}

TEST_F(VlanDb, id_is_valid_within_the_limits_of_the_statistics_only) {
    vl_set_vlan_range(5, 300);
    for (const auto &[vid, valid] : {std::pair{4, 0}, {5, 1}, {300, 1}, {301, 0}, {0, 0}, {-1, 0}, {65541, 0}})
        EXPECT_EQ(vl_check_vlanid_valid(vid), valid) << vid;
}

TEST_F(VlanDb, usual_range_leaves_out_0_and_4095) {
    for (const uint16_t vid : {uint16_t{0}, uint16_t{4095}}) {
        EXPECT_EQ(vl_check_vlanid_valid(vid), 0) << vid;
        EXPECT_EQ(vl_get_raw_vlan_entry(vid), nullptr) << vid;
    }
    EXPECT_EQ(vl_check_vlanid_valid(1), 1);
    EXPECT_EQ(vl_check_vlanid_valid(4094), 1);
}

TEST_F(VlanDb, range_is_stored_in_its_low_16_bits) {
    vl_set_vlan_range(0x10002, 0xABCD0FFE);
    EXPECT_EQ(value_at<uint16_t>(stat(), 0), 2);
    EXPECT_EQ(value_at<uint16_t>(stat(), 2), 0x0FFE);
    uint32_t min = 9;
    uint32_t max = 9;
    vl_get_vlan_range(&min, &max);
    EXPECT_EQ(min, 2U);
    EXPECT_EQ(max, 0x0FFEU);
}

TEST_F(VlanDb, range_is_given_to_the_pointers_that_are_there) {
    uint32_t value = 9;
    vl_get_vlan_range(&value, nullptr);
    EXPECT_EQ(value, 1U);
    vl_get_vlan_range(nullptr, &value);
    EXPECT_EQ(value, 4094U);
    vl_get_vlan_range(nullptr, nullptr);
}

TEST_F(VlanDb, number_of_vlans_stops_at_4095) {
    put_at<int32_t>(stat(), 8, 4094);
    EXPECT_EQ(vl_check_vlan_capacity(), 1);
    vl_increase_vlan_number();
    EXPECT_EQ(vl_get_vlan_number(), 4095);
    EXPECT_EQ(vl_check_vlan_capacity(), 0);
    vl_increase_vlan_number();
    EXPECT_EQ(vl_get_vlan_number(), 4095);
    EXPECT_EQ(value_at<int32_t>(stat(), 8), 4095);
}

TEST_F(VlanDb, each_deletion_is_counted) {
    put_at<int32_t>(stat(), 8, 2);
    put_at<int32_t>(stat(), 20, 70);
    vl_decrease_vlan_number();
    EXPECT_EQ(vl_get_vlan_number(), 1);
    EXPECT_EQ(vl_get_total_del_times(), 71);
}

TEST_F(VlanDb, number_of_vlans_stops_at_0_and_no_deletion_is_counted_there) {
    vl_decrease_vlan_number();
    EXPECT_EQ(vl_get_vlan_number(), 0);
    EXPECT_EQ(vl_get_total_del_times(), 0);
}

TEST_F(VlanDb, number_of_vlans_that_a_peer_made_negative_only_rises) {
    put_at<int32_t>(stat(), 8, -5);
    vl_decrease_vlan_number();
    EXPECT_EQ(vl_get_vlan_number(), -5);
    EXPECT_EQ(vl_check_vlan_capacity(), 1);
    vl_increase_vlan_number();
    EXPECT_EQ(vl_get_vlan_number(), -4);
}

TEST_F(VlanDb, number_of_svis_has_no_bounds) {
    vl_decrease_svi_number();
    EXPECT_EQ(value_at<int32_t>(stat(), 16), -1);
    put_at<int32_t>(stat(), 16, 5000);
    vl_increase_svi_number();
    EXPECT_EQ(value_at<int32_t>(stat(), 16), 5001);
    put_at<int32_t>(stat(), 16, INT32_MAX);
    vl_increase_svi_number();
    EXPECT_EQ(value_at<int32_t>(stat(), 16), INT32_MIN);
}

TEST_F(VlanDb, deletions_wrap) {
    put_at<int32_t>(stat(), 8, 1);
    put_at<int32_t>(stat(), 20, INT32_MAX);
    vl_decrease_vlan_number();
    EXPECT_EQ(vl_get_total_del_times(), INT32_MIN);
}

TEST_F(VlanDb, head_of_the_segment_is_given) {
    uint32_t key = 0;
    uint32_t shmid = 0;
    uint32_t size = 0;
    char name[64];
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(vldb_get_shm_head(&key, &shmid, &size, name), 1);
    EXPECT_EQ(key, kKeyBase + static_cast<unsigned>(vsd()));
    EXPECT_EQ(static_cast<int>(shmid), shmget(static_cast<key_t>(key), 0, 0));
    EXPECT_EQ(size, 328196U);
    EXPECT_STREQ(name, "VLAN-SHM");
}

TEST_F(VlanDb, head_with_a_name_that_never_ends_is_cut) {
    std::memset(g_vl_mng.shm->hdr->name, 'n', 64);
    uint32_t word = 0;
    char name[65];
    std::memset(name, 'x', sizeof name);
    EXPECT_EQ(vldb_get_shm_head(&word, &word, &word, name), 1);
    EXPECT_EQ(name, std::string(63, 'n'));
    EXPECT_EQ(name[64], 'x');
}

TEST_F(VlanDb, head_needs_every_pointer) {
    debug_on({BRI_DBG_VLAN});
    uint32_t word = 7;
    char name[64] = "old";
    EXPECT_EQ(vldb_get_shm_head(nullptr, &word, &word, name), 0);
    EXPECT_EQ(vldb_get_shm_head(&word, nullptr, &word, name), 0);
    EXPECT_EQ(vldb_get_shm_head(&word, &word, nullptr, name), 0);
    EXPECT_EQ(vldb_get_shm_head(&word, &word, &word, nullptr), 0);
    EXPECT_EQ(word, 7U);
    EXPECT_STREQ(name, "old");
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(UnmappedVlanDb, head_without_a_segment_says_so) {
    uint32_t word = 7;
    char name[64] = "old";
    EXPECT_EQ(vldb_get_shm_head(&word, &word, &word, name), 0);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    EXPECT_EQ(vldb_get_shm_head(&word, &word, &word, name), 0);
    const LogLine line = log_line("VLANDB-SHM is not ready.\n");
    EXPECT_EQ(line.category(), kVlanDbLine);
    EXPECT_EQ(word, 7U);
    EXPECT_STREQ(name, "old");
}

std::string head_lines(const void *entries, const void *statistics) {
    char text[100];
    std::snprintf(text, sizeof text, "VLAN-ENTRY head %p\nVLAN-STAT head %p\n", entries, statistics);
    return text;
}

TEST_F(VlanDb, status_shows_segment_and_statistics) {
    put_at<int32_t>(stat(), 4, 4094);
    put_at<int32_t>(stat(), 8, 3);
    put_at<int32_t>(stat(), 12, 1000);
    put_at<int32_t>(stat(), 16, -2);
    put_at<int32_t>(stat(), 20, 17);
    vl_vlandb_show_status();
    const bri_shm_hdr &header = *g_vl_mng.shm->hdr;
    char segment[300];
    std::snprintf(segment, sizeof segment,
                  "shm-name:   VLAN-SHM\nshm-id:     %d\nshm-key:    0x%x\nshm-size:   328196\nshm-addr:   %p\n",
                  static_cast<int>(header.shmid), header.key, g_vl_mng.shm->data);
    EXPECT_EQ(log_text(), "--------------------VLAN-DB---------------------\n" + std::string(segment) +
                              head_lines(data(), stat()) +
                              "min-vlan-id:\t1\nmax-vlan-id:\t4094\nmax-vlan-num:\t4094\ncur-vlan-num:\t3\n"
                              "max-svi-num:\t1000\ncur-svi-num:\t-2\ntotal-del-times:\t17\n"
                              "--------------------END---------------------\n");
    for (const LogLine &line : log_lines()) {
        EXPECT_EQ(line.category(), kShownLine);
    }
}

TEST_F(UnmappedVlanDb, status_without_a_segment_shows_null_heads_only) {
    vl_vlandb_show_status();
    EXPECT_EQ(log_text(), "--------------------VLAN-DB---------------------\n" + head_lines(nullptr, nullptr) +
                              "--------------------END---------------------\n");
}

} // namespace
