// Resynchronisation: one begin and one end, whatever the server and the library say on the way.
#include "tests/host/layer_fixture.h"

using namespace test;

namespace {

// Follows VLANs and addresses, and sweeps the addresses.
class HostResync : public Layer {
  protected:
    HostResync() {
        config.mac_capacity = 16;
        follow(VLAN_EVENT_CREATE_RANGE, sizeof(vl_evt_vlanset_rec));
        follow(MAC_EVENT_NOTIFY_ADDR, sizeof(bri_mac_msg));
    }
    // In step, with these addresses known.
    void in_step_with(const std::vector<bri_mac_msg> &addresses) {
        start_synchronised();
        answer_addresses(addresses);
        ASSERT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 1);
        told.clear();
    }
    // How often the server was asked for the addresses since the last call.
    long questions() {
        const std::vector<uint32_t> types = types_sent();
        return std::count(types.begin(), types.end(), BRIDGE_EVENT_ORI_DATA_REQUEST);
    }
    static constexpr int kAnswerTicks = 25; // answer_ms in ticks, both as they are without a wish
    const Told kVlanRound{"begin 3", "event 389", "end 3"};
};

TEST_F(HostResync, begins_at_the_end_of_the_backup_data) {
    ASSERT_EQ(start_layer(), 0);
    connect();
    set_role(false);
    deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    EXPECT_EQ(told, (Told{"up", "master"}));
    told.clear();
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(told, kVlanRound);
    EXPECT_EQ(questions(), 1);
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_VLAN), 1);
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
}

TEST_F(HostResync, tells_nothing_of_the_empty_pairs_of_the_servers_end) {
    start_synchronised(); // its end came while the addresses were asked for
    deliver(BRIDGE_EVENT_SYNC_DATA_END);
    EXPECT_EQ(told, Told{});
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
}

TEST_F(HostResync, runs_from_the_answers_begin_to_its_end) {
    start_synchronised();
    answer_addresses({address(1), address(2)});
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "event 261", "end 2"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 1);
}

TEST_F(HostResync, takes_an_empty_answer_for_what_it_says) {
    in_step_with({address(1)});
    ASSERT_EQ(bridge_host_resync(), 0);
    told.clear();
    answer_addresses({});
    EXPECT_EQ(told, (Told{"begin 2", "vanished 00:00:00:00:00:01 10 3", "end 2"}));
}

TEST_F(HostResync, tells_nothing_of_an_empty_pair_that_was_not_asked_for) {
    in_step_with({address(1)});
    answer_addresses({});
    EXPECT_EQ(told, Told{});
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 1);
}

TEST_F(HostResync, tells_of_data_that_the_daemon_asked_for_by_itself) {
    in_step_with({address(1)});
    answer_addresses({address(2)});
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "vanished 00:00:00:00:00:01 10 3", "end 2"}));
    told.clear();
    bridge_client_request_submod_oridata(BRI_SUBMOD_VLAN);
    EXPECT_EQ(told, kVlanRound);
}

TEST_F(HostResync, ends_once_when_each_marker_comes_twice) {
    start_synchronised();
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(1)));
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(2)));
    deliver(MAC_EVENT_SYNC_DATA_END);
    deliver(MAC_EVENT_SYNC_DATA_END);
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "event 261", "end 2"})); // neither address vanished
}

TEST_F(HostResync, asks_again_when_the_end_is_missing) {
    start_synchronised();
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(1)));
    tick(kAnswerTicks - 1);
    EXPECT_EQ(questions(), 0);
    tick();
    EXPECT_EQ(questions(), 1);
    told.clear();
    answer_addresses({address(2)});
    EXPECT_EQ(told, (Told{"event 261", "vanished 00:00:00:00:00:01 10 3", "end 2"}));
}

TEST_F(HostResync, does_not_take_an_answer_without_its_begin) {
    in_step_with({address(1)});
    bridge_host_resync();
    told.clear();
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(2)));
    deliver(MAC_EVENT_SYNC_DATA_END);
    EXPECT_EQ(told, Told{"event 261"});
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
}

TEST_F(HostResync, says_after_three_questions_that_there_is_no_answer) {
    start_synchronised();
    tick(2 * kAnswerTicks);
    EXPECT_EQ(questions(), 2); // besides the first
    EXPECT_EQ(told, Told{});
    tick(kAnswerTicks);
    EXPECT_EQ(told, (Told{"begin 2", "cut 2"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
}

TEST_F(HostResync, goes_on_asking_a_silent_server_now_and_then) {
    start_synchronised();
    tick(3 * kAnswerTicks);
    EXPECT_EQ(questions(), 3);
    tick(8 * kAnswerTicks - 1);
    EXPECT_EQ(questions(), 0);
    tick();
    EXPECT_EQ(questions(), 1);
    told.clear();
    answer_addresses({});
    EXPECT_EQ(told, (Told{"begin 2", "end 2"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 1);
}

TEST_F(HostResync, makes_one_of_questions_that_overlap) {
    start_synchronised();
    ASSERT_EQ(bridge_host_resync(), 0); // the first answer is on its way
    told.clear();
    answer_addresses({address(1), address(2)});
    answer_addresses({address(2), address(3)});
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "event 261", "event 261", "event 261",
                          "vanished 00:00:00:00:00:01 10 3", "end 2"}));
}

TEST_F(HostResync, is_cut_by_a_lost_connection) {
    start_synchronised();
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(1)));
    lose_connection();
    tick();
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "cut 2", "down"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_VLAN), 0);
}

TEST_F(HostResync, comes_again_on_the_next_connection) {
    in_step_with({address(1)});
    lose_connection();
    tick();
    connect();
    told.clear();
    synchronise();
    EXPECT_EQ(told, kVlanRound);
    EXPECT_EQ(questions(), 1);
    told.clear();
    answer_addresses({address(2)});
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "vanished 00:00:00:00:00:01 10 3", "end 2"}));
}

TEST_F(HostResync, notices_a_connection_that_went_and_came_between_two_ticks) {
    in_step_with({address(1)});
    lose_connection();
    connect();
    EXPECT_EQ(told, (Told{"down", "up"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
}

TEST_F(HostResync, does_not_wait_for_ever_for_the_end_of_the_backup_data) {
    in_step_with({address(1)});
    lose_connection();
    connect();
    told.clear();
    tick(kAnswerTicks - 1);
    EXPECT_EQ(told, Told{});
    tick();
    EXPECT_EQ(told, kVlanRound);
}

TEST_F(HostResync, is_cut_when_the_backup_data_begins_anew) {
    start_synchronised();
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    EXPECT_EQ(told, (Told{"begin 2", "cut 2"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_VLAN), 0);
    told.clear();
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(told, kVlanRound);
}

TEST_F(HostResync, is_cut_when_the_process_becomes_slave) {
    start_synchronised();
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    set_role(true);
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_VLAN), 0); // before the tick has seen it
    tick();
    EXPECT_EQ(told, (Told{"begin 2", "cut 2", "slave"}));
}

TEST_F(HostResync, follows_a_slave_that_has_become_master_by_itself) {
    in_step_with({address(1)});
    set_role(true);
    tick();
    set_role(false);
    told.clear();
    tick();
    EXPECT_EQ(told, (Told{"master", "begin 3", "event 389", "end 3"}));
}

TEST_F(HostResync, follows_the_first_event_of_a_slave_that_has_become_master) {
    in_step_with({address(1)});
    set_role(true);
    tick();
    set_role(false);
    told.clear();
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(2)));
    EXPECT_EQ(told, (Told{"master", "event 261", "begin 3", "event 389", "end 3"}));
}

TEST_F(HostResync, follows_a_slave_time_that_nobody_saw_when_it_cost_an_event) {
    in_step_with({address(1)});
    set_role(true);
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(2)));
    set_role(false);
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
    tick();
    EXPECT_EQ(told, kVlanRound);
    EXPECT_EQ(questions(), 1);
    answer_addresses({address(1), address(2)});
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 1);
}

TEST_F(HostResync, does_not_follow_a_slave_time_that_cost_nothing) {
    in_step_with({address(1)});
    set_role(true);
    set_role(false);
    tick();
    EXPECT_EQ(told, Told{});
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 1);
}

TEST_F(HostResync, comes_at_the_end_of_a_switchover) {
    in_step_with({address(1)});
    set_role(true);
    tick();
    told.clear();
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    EXPECT_EQ(told, Told{"master"});
    told.clear();
    deliver(BRIDGE_EVENT_SWITCHOVER_END);
    EXPECT_EQ(told, kVlanRound);
    EXPECT_EQ(questions(), 1);
}

TEST_F(HostResync, comes_once_when_the_backup_data_ends_a_switchover) {
    start_synchronised();
    deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    deliver(BRIDGE_EVENT_SWITCHOVER_END); // is not told before the data is there
    told.clear();
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(told, kVlanRound);
}

TEST_F(HostResync, comes_again_when_a_switchover_begins_in_its_middle) {
    start_synchronised();
    deliver(MAC_EVENT_SYNC_DATA_BEGIN);
    deliver(MAC_EVENT_NOTIFY_ADDR, bytes_of(address(1)));
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    deliver(MAC_EVENT_SYNC_DATA_END);
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
    deliver(BRIDGE_EVENT_SWITCHOVER_END);
    told.clear();
    answer_addresses({address(2)});
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "vanished 00:00:00:00:00:01 10 3", "end 2"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 1);
}

TEST_F(HostResync, comes_also_when_a_switchover_does_not_end) {
    in_step_with({});
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    told.clear();
    tick(kAnswerTicks);
    EXPECT_EQ(told, kVlanRound);
}

TEST_F(HostResync, of_a_slave_waits_until_it_is_master) {
    ASSERT_EQ(start_layer(), 0);
    connect();
    set_role(true);
    backup();
    tick(2 * kAnswerTicks);
    EXPECT_EQ(told, (Told{"up", "slave"}));
    EXPECT_EQ(bridge_host_resync(), BRI_ERR_WOULD_BLOCK);
    set_role(false);
    tick();
    EXPECT_EQ(told, (Told{"up", "slave", "master", "begin 3", "event 389", "end 3"}));
}

TEST_F(HostResync, asked_for_without_a_connection_comes_with_the_next) {
    in_step_with({});
    lose_connection();
    EXPECT_EQ(bridge_host_resync(), BRI_ERR_WOULD_BLOCK);
    EXPECT_EQ(told, Told{});
}

TEST_F(HostResync, asked_for_inside_another_comes_behind_it) {
    during = [](const std::string &line) {
        const int result = line == "begin 3" ? bridge_host_resync() : 0;
        EXPECT_EQ(result, 0);
    };
    ASSERT_EQ(start_layer(), 0);
    connect();
    set_role(false);
    backup();
    EXPECT_EQ(told, (Told{"up", "master", "begin 3", "event 389", "end 3"}));
    during = nullptr;
    told.clear();
    tick();
    EXPECT_EQ(told, kVlanRound);
    told.clear();
    tick();
    EXPECT_EQ(told, Told{});
}

TEST_F(HostResync, asks_for_the_addresses_when_the_kernels_table_is_a_new_one) {
    in_step_with({address(1)});
    const auto raise = [] { bridge_call_event_handlers(BRIDGE_EVENT_KERNEL_DATA_REQ, nullptr, 0); };
    raise();
    raise(); // it comes twice
    EXPECT_EQ(questions(), 1);
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_MAC), 0);
    answer_addresses({});
    EXPECT_EQ(told, (Told{"begin 2", "vanished 00:00:00:00:00:01 10 3", "end 2"}));
}

TEST_F(HostResync, asks_by_itself_for_what_the_replay_leaves_out) {
    follow(VG_EVENT_POLICY_ENTRY);
    start_layer();
    connect();
    sent();
    synchronise();
    EXPECT_EQ(questions(), 2);
    told.clear();
    deliver(VG_EVENT_SYNC_DATA_BEGIN);
    deliver(VG_EVENT_SYNC_DATA_END);
    EXPECT_EQ(told, (Told{"begin 8", "end 8"}));
}

TEST_F(HostResync, survives_a_replay_that_did_not_come_to_its_end) {
    start_synchronised();
    bridge_call_event_handlers(BRIDGE_EVENT_SYNC_DATA_BEGIN, nullptr, 0); // no end follows
    tick();
    answer_addresses({address(1)});
    EXPECT_EQ(told, (Told{"begin 2", "event 261", "end 2"}));
}

TEST_F(HostResync, of_vlans_is_not_begun_by_a_look_up_between_empty_markers) {
    range();
    start_synchronised();
    vl_initial_vlan_entry(10, BRI_VLAN_STATIC);
    follow(VLAN_EVENT_SYNC_DATA_BEGIN);
    static const auto look_up = [](uint32_t type, void *, uint16_t) {
        if (type == VLAN_EVENT_SYNC_DATA_BEGIN)
            vl_clnt_exist(10, 0); // raises its create
        return 0;
    };
    const event_set set = set_of_types({VLAN_EVENT_SYNC_DATA_BEGIN});
    bridge_client_reg_event(&set, look_up);
    deliver(BRIDGE_EVENT_SYNC_DATA_END);
    EXPECT_EQ(told, Told{});
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_VLAN), 1);
}

TEST_F(HostResync, is_not_complete_without_the_tables) {
    faults::fail("shmget", 1, ENOSPC, 100);
    ASSERT_EQ(start_layer(), 0);
    connect();
    faults::fail("shmget", 1, ENOSPC, 100);
    synchronise();
    EXPECT_GT(faults::injected(), 0);
    EXPECT_EQ(told, (Told{"up", "master", "begin 3", "event 389", "cut 3"}));
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_VLAN), 0);
}

TEST_F(HostResync, maps_the_tables_that_could_not_be_had_at_the_start) {
    faults::fail("shmget", 1, ENOSPC, 100);
    ASSERT_EQ(start_layer(), 0);
    EXPECT_EQ(g_vl_mng.entries, nullptr);
    connect();
    synchronise();
    EXPECT_NE(g_vl_mng.entries, nullptr);
    EXPECT_EQ(bridge_host_in_step(BRI_SUBMOD_VLAN), 1);
}

TEST_F(HostResync, ends_also_when_a_callback_stops_the_layer) {
    during = [](const std::string &line) {
        if (line == "begin 3")
            bridge_host_stop([](const bridge_host_left *, void *) {});
    };
    ASSERT_EQ(start_layer(), 0);
    connect();
    synchronise();
    EXPECT_EQ(told, (Told{"up", "master", "begin 3", "cut 3"}));
    loop().run("host-stop");
}

} // namespace
