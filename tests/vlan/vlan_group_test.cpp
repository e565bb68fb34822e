#include "tests/vlan/vlan_group_fixture.h"

#include <cerrno>
#include <cstdlib>
#include <sys/sem.h>
#include <sys/shm.h>

namespace {

using namespace test;

constexpr unsigned kKeyBase = 0x5A5B7C3D;

TEST_F(UnmappedVlanGroups, set_up_maps_a_segment_of_the_exact_size_under_the_key_of_the_device) {
    ASSERT_EQ(vlan_group_shm_init(), 1);
    const auto key = static_cast<key_t>(1515945021U + static_cast<unsigned>(vsd()));
    const int id = shmget(key, 0, 0);
    ASSERT_GE(id, 0);
    shmid_ds status{};
    ASSERT_EQ(shmctl(id, IPC_STAT, &status), 0);
    EXPECT_EQ(status.shm_segsz, 76U + 67080U);
    EXPECT_GE(semget(key, 1, 0), 0);
    EXPECT_STREQ(vlan_group_mng.shm->hdr->name, "VLAN-GROUP-SHM");
    EXPECT_EQ(vlan_group_mng.shm->hdr->size, 67080U);
    EXPECT_EQ(vlan_group_mng.shm->hdr->key, static_cast<uint32_t>(key));
}

TEST_F(UnmappedVlanGroups, manager_holds_segment_lock_and_table_in_the_order_of_the_interface) {
    ASSERT_EQ(vlan_group_shm_init(), 1);
    EXPECT_NE(vlan_group_mng.lock, nullptr);
    EXPECT_EQ(static_cast<void *>(vlan_group_mng.entries), vlan_group_mng.shm->data);
    EXPECT_EQ(vlan_group_base_entry(), vlan_group_mng.entries);
    const void *members[] = {vlan_group_mng.shm, vlan_group_mng.lock, vlan_group_mng.entries};
    static_assert(sizeof members == sizeof vlan_group_mng);
    EXPECT_EQ(std::memcmp(&vlan_group_mng, members, sizeof members), 0);
}

TEST_F(UnmappedVlanGroups, set_up_without_a_usable_key_fails) {
    debug_on({BRI_DBG_MSG});
    setenv("VSDID", std::to_string(-static_cast<int>(kKeyBase)).c_str(), 1);
    EXPECT_EQ(vlan_group_shm_init(), 0);
    expect_failure_line("vlan-group Get ipc-key failed.\n");
}

TEST_F(UnmappedVlanGroups, set_up_without_a_lock_fails) {
    debug_on({BRI_DBG_MSG});
    faults::fail("semget", 1, EACCES);
    EXPECT_EQ(vlan_group_shm_init(), 0);
    expect_failure_line("vlan-group create sysv sem failed.\n");
}

TEST_F(UnmappedVlanGroups, set_up_without_a_segment_fails) {
    debug_on({BRI_DBG_MSG});
    faults::fail("shmget", 1, EACCES);
    EXPECT_EQ(vlan_group_shm_init(), 0);
    expect_failure_line("vlan-group create sysv shm failed.\n");
    EXPECT_EQ(vlan_group_base_entry(), nullptr);
}

TEST_F(UnmappedVlanGroups, failed_set_up_keeps_no_handle) {
    const int before = faults::live_blocks();
    for (const char *call : {"calloc", "semget", "shmget", "shmat", "malloc"}) {
        faults::fail(call, 1, EACCES);
        EXPECT_EQ(vlan_group_shm_init(), 0) << call;
        EXPECT_EQ(faults::live_blocks(), before) << call;
    }
}

TEST_F(UnmappedVlanGroups, failed_set_up_is_silent_while_the_flag_is_off) {
    debug_on({BRI_DBG_VLAN}); // the flag of the tables, not of the groups
    for (const char *call : {"semget", "shmget"}) {
        faults::fail(call, 1, EACCES);
        EXPECT_EQ(vlan_group_shm_init(), 0) << call;
    }
    setenv("VSDID", std::to_string(-static_cast<int>(kKeyBase)).c_str(), 1);
    EXPECT_EQ(vlan_group_shm_init(), 0);
    EXPECT_EQ(log_text().find("vlan-group"), std::string::npos);
}

TEST_F(VlanGroups, failed_set_up_leaves_no_way_to_the_old_mapping) {
    vlan_group_creat_entry(7);
    for (const char *call : {"semget", "shmget", "shmat"}) {
        ASSERT_EQ(vlan_group_shm_init(), 1) << call;
        ASSERT_EQ(vlan_group_check_exist(7), 1) << call;
        faults::fail(call, 1, EACCES);
        EXPECT_EQ(vlan_group_shm_init(), 0) << call;
        EXPECT_EQ(vlan_group_check_exist(7), 0) << call;
        EXPECT_EQ(vlan_group_base_entry(), nullptr) << call;
    }
}

TEST_F(VlanGroups, set_up_again_without_a_key_changes_nothing) {
    const vlan_group_manager before = vlan_group_mng;
    setenv("VSDID", std::to_string(-static_cast<int>(kKeyBase)).c_str(), 1);
    EXPECT_EQ(vlan_group_shm_init(), 0);
    EXPECT_EQ(std::memcmp(&vlan_group_mng, &before, sizeof before), 0);
}

// Whoever kept one may still use it, and give it back.
TEST_F(VlanGroups, set_up_again_leaves_the_earlier_handles_to_their_keepers) {
    vlan_group_creat_entry(7);
    const vlan_group_manager before = vlan_group_mng;
    ASSERT_EQ(vlan_group_shm_init(), 1);
    EXPECT_NE(vlan_group_mng.shm, before.shm);
    EXPECT_NE(vlan_group_mng.lock, before.lock);
    bridge_shm_dettach(before.shm);
    std::free(before.lock);
    EXPECT_EQ(vlan_group_check_exist(7), 1);
}

TEST_F(VlanGroups, lock_operations_take_no_lock) {
    const int before = faults::calls("semop");
    vlan_group_wr_lock();
    vlan_group_read_lock();
    vlan_group_unlock();
    EXPECT_EQ(faults::calls("semop"), before);
}

TEST_F(UnmappedVlanGroups, every_operation_fails_before_the_table_is_mapped) {
    vlanset set{};
    uint8_t byte = 7;
    uint16_t word = 7;
    vlan_group_entry entry{};
    EXPECT_EQ(vlan_group_base_entry(), nullptr);
    EXPECT_EQ(vlan_group_get_entry(1), nullptr);
    EXPECT_EQ(vlan_group_check_exist(1), 0);
    EXPECT_EQ(vg_clnt_check_exist(1), 0);
    EXPECT_EQ(vlan_group_creat_entry(1), 0);
    vlan_group_free_entry(1);
    EXPECT_EQ(vlan_group_set_default_vlan(1, 5), 0);
    EXPECT_EQ(vlan_group_get_default_vlan(1, &word), 0);
    EXPECT_EQ(vlan_group_set_vlan_assign_mode(1, 5), 0);
    EXPECT_EQ(vlan_group_get_vlan_assign_mode(1, &byte), 0);
    EXPECT_EQ(vlan_group_get_member_vlan_cnt(1, &byte), 0);
    EXPECT_EQ(vlan_group_set_member_vlan(1, &set, &set, &set, &byte, &byte), 0);
    EXPECT_EQ(vlan_group_get_entry_copy(1, &entry), 0);
    EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(1, 5), 0);
    EXPECT_EQ(vlan_group_get_member_vlan_bitmap(1, &set), -1);
    EXPECT_EQ(vg_clnt_get_vlan_list(1, &set), 0);
    EXPECT_EQ(vg_clnt_get_default_vid(1), 0);
    EXPECT_EQ(vg_clnt_get_assign_mode(1), 0);
    EXPECT_EQ(vg_clnt_is_member_of_any_group(5, &byte), 0);
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(word, 7);
}

TEST_F(VlanGroups, created_group_has_no_non_zero_byte_but_its_id) {
    for (const uint8_t id : {uint8_t{1}, uint8_t{77}, uint8_t{128}}) {
        std::memset(bytes(id), 0xEE, 520);
        EXPECT_EQ(vlan_group_creat_entry(id), 1);
        EXPECT_EQ(bytes(id)[0], id);
        EXPECT_EQ(std::count(bytes(id) + 1, bytes(id) + 520, 0), 519);
    }
}

TEST_F(VlanGroups, creating_touches_no_neighbour) {
    std::memset(bytes(6), 0xEE, 520 * 3);
    vlan_group_creat_entry(7);
    EXPECT_EQ(std::count(bytes(6), bytes(7), 0xEE), 520);
    EXPECT_EQ(std::count(bytes(8), bytes(9), 0xEE), 520);
}

TEST_F(VlanGroups, creating_a_group_that_exists_keeps_it) {
    vlan_group_creat_entry(7);
    vlan_group_set_default_vlan(7, 99);
    EXPECT_EQ(vlan_group_creat_entry(7), 1);
    EXPECT_EQ(vg_clnt_get_default_vid(7), 99);
}

TEST_F(VlanGroups, creating_overwrites_an_entry_that_holds_another_id) {
    bytes(7)[0] = 9;
    put_at<uint16_t>(bytes(7), 4, 99);
    EXPECT_EQ(vlan_group_creat_entry(7), 1);
    EXPECT_EQ(bytes(7)[0], 7);
    EXPECT_EQ(vg_clnt_get_default_vid(7), 0);
}

TEST_F(VlanGroups, freeing_clears_the_whole_entry) {
    std::memset(bytes(6), 0xEE, 520 * 3);
    vlan_group_free_entry(7);
    EXPECT_EQ(std::count(bytes(7), bytes(8), 0), 520);
    EXPECT_EQ(std::count(bytes(6), bytes(7), 0xEE), 520);
    EXPECT_EQ(std::count(bytes(8), bytes(9), 0xEE), 520);
    EXPECT_EQ(vlan_group_check_exist(7), 0);
}

TEST_F(VlanGroups, entry_is_in_use_while_its_first_byte_is_not_zero) {
    std::memset(bytes(7) + 1, 0xEE, 519);
    EXPECT_EQ(vlan_group_get_entry(7), nullptr);
    EXPECT_EQ(vlan_group_check_exist(7), 0);
    EXPECT_EQ(vg_clnt_check_exist(7), 0);
    bytes(7)[0] = 200;
    EXPECT_EQ(reinterpret_cast<uint8_t *>(vlan_group_get_entry(7)), bytes(7));
    EXPECT_EQ(vlan_group_check_exist(7), 1);
    EXPECT_EQ(vg_clnt_check_exist(7), 1);
}

TEST_F(VlanGroups, id_0_is_never_a_group) {
    EXPECT_EQ(vlan_group_creat_entry(0), 1); // the entry holds 0 already
    EXPECT_EQ(vlan_group_check_exist(0), 0);
    EXPECT_EQ(std::count(bytes(0), bytes(1), 0), 520);
}

TEST_F(VlanGroups, ids_above_128_have_no_entry) {
    std::memset(bytes(0), 0xEE, kTableSize);
    const ByteVec before(bytes(0), bytes(0) + kTableSize);
    for (unsigned number = 129; number <= 255; ++number) {
        const auto id = static_cast<uint8_t>(number);
        vlanset set{};
        uint8_t byte = 7;
        uint16_t word = 7;
        vlan_group_entry entry{};
        EXPECT_EQ(vlan_group_get_entry(id), nullptr);
        EXPECT_EQ(vlan_group_check_exist(id), 0);
        EXPECT_EQ(vg_clnt_check_exist(id), 0);
        EXPECT_EQ(vlan_group_creat_entry(id), 0);
        vlan_group_free_entry(id);
        EXPECT_EQ(vlan_group_set_default_vlan(id, 5), 0);
        EXPECT_EQ(vlan_group_get_default_vlan(id, &word), 0);
        EXPECT_EQ(vlan_group_set_vlan_assign_mode(id, 5), 0);
        EXPECT_EQ(vlan_group_get_vlan_assign_mode(id, &byte), 0);
        EXPECT_EQ(vlan_group_get_member_vlan_cnt(id, &byte), 0);
        EXPECT_EQ(vlan_group_set_member_vlan(id, &set, &set, &set, &byte, &byte), 0);
        EXPECT_EQ(vlan_group_get_entry_copy(id, &entry), 0);
        EXPECT_EQ(vlan_group_check_vlan_is_member_vlan(id, 5), 0);
        EXPECT_EQ(vlan_group_get_member_vlan_bitmap(id, &set), -1);
        EXPECT_EQ(vg_clnt_get_vlan_list(id, &set), 0);
        EXPECT_EQ(vg_clnt_get_default_vid(id), 0);
        EXPECT_EQ(vg_clnt_get_assign_mode(id), 0);
        EXPECT_EQ(byte, 7);
        EXPECT_EQ(word, 7);
    }
    EXPECT_EQ(ByteVec(bytes(0), bytes(0) + kTableSize), before);
}

// Offset, and how a caller reads and writes what stands there.
TEST_F(VlanGroups, fields_lie_where_the_layout_says) {
    vlan_group_creat_entry(9);
    EXPECT_EQ(vlan_group_set_vlan_assign_mode(9, 0xAB), 1);
    EXPECT_EQ(bytes(9)[1], 0xAB);
    EXPECT_EQ(vlan_group_set_default_vlan(9, 0x1234), 1);
    EXPECT_EQ(value_at<uint16_t>(bytes(9), 4), 0x1234);
    bytes(9)[1] = 0x55;
    bytes(9)[2] = 0x66;
    bytes(9)[3] = 0x77;
    put_at<uint16_t>(bytes(9), 4, 0x4321);
    put_at<uint16_t>(bytes(9), 6, 0x8888);
    uint8_t byte = 0;
    uint16_t word = 0;
    EXPECT_EQ(vlan_group_get_vlan_assign_mode(9, &byte), 1);
    EXPECT_EQ(byte, 0x55);
    EXPECT_EQ(vg_clnt_get_assign_mode(9), 0x55);
    EXPECT_EQ(vlan_group_get_member_vlan_cnt(9, &byte), 1);
    EXPECT_EQ(byte, 0x66);
    EXPECT_EQ(vlan_group_get_default_vlan(9, &word), 1);
    EXPECT_EQ(word, 0x4321);
    EXPECT_EQ(vg_clnt_get_default_vid(9), 0x4321);
    EXPECT_EQ(bytes(9)[0], 9);
}

TEST_F(VlanGroups, fields_of_a_free_entry_are_neither_read_nor_written) {
    std::memset(bytes(9) + 1, 0xEE, 519);
    uint8_t byte = 7;
    uint16_t word = 7;
    EXPECT_EQ(vlan_group_set_default_vlan(9, 5), 0);
    EXPECT_EQ(vlan_group_get_default_vlan(9, &word), 0);
    EXPECT_EQ(vlan_group_set_vlan_assign_mode(9, 5), 0);
    EXPECT_EQ(vlan_group_get_vlan_assign_mode(9, &byte), 0);
    EXPECT_EQ(vlan_group_get_member_vlan_cnt(9, &byte), 0);
    EXPECT_EQ(vg_clnt_get_default_vid(9), 0);
    EXPECT_EQ(vg_clnt_get_assign_mode(9), 0);
    EXPECT_EQ(byte, 7);
    EXPECT_EQ(word, 7);
    EXPECT_EQ(std::count(bytes(9) + 1, bytes(10), 0xEE), 519);
}

TEST_F(VlanGroups, null_out_pointers_give_0) {
    vlan_group_creat_entry(9);
    EXPECT_EQ(vlan_group_get_default_vlan(9, nullptr), 0);
    EXPECT_EQ(vlan_group_get_vlan_assign_mode(9, nullptr), 0);
    EXPECT_EQ(vlan_group_get_member_vlan_cnt(9, nullptr), 0);
    EXPECT_EQ(vlan_group_get_entry_copy(9, nullptr), 0);
}

TEST_F(VlanGroups, copy_is_the_whole_entry) {
    for (unsigned offset = 0; offset < 520; ++offset)
        bytes(9)[offset] = static_cast<uint8_t>(offset + 1);
    vlan_group_entry copy{};
    EXPECT_EQ(vlan_group_get_entry_copy(9, &copy), 1);
    EXPECT_EQ(std::memcmp(&copy, bytes(9), 520), 0);
    bytes(9)[0] = 0;
    EXPECT_EQ(vlan_group_get_entry_copy(9, &copy), 0);
}

} // namespace
