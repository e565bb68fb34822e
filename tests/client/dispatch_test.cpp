#include "tests/client/client_fixture.h"

#include <set>

namespace {

using test::Message;
using test::operator+;
using test::word;
using Types = std::vector<uint32_t>;

class Dispatch : public test::Client {
  protected:
    // All management and replayed types reach handler 1.
    Dispatch() { listen_to_all(); }
};

// Role and synchronisation
// ---------------------------------------------------------------------------------------------

TEST_F(Dispatch, backup_begin_is_recorded_and_delivered) {
    deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    EXPECT_EQ(state().sync_state, 1U);
    expect_debug_line("[unit] receive data-sync BEGIN.");
    EXPECT_EQ(events(), (std::vector<test::Event>{{1, BRIDGE_EVENT_BKUP_DATA_BEGIN, nullptr, 0, {}}}));
}

TEST_F(Dispatch, backup_begin_again_holds_events_back_again) {
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    EXPECT_EQ(state().sync_state, 1U);
    events().clear();
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_TRUE(events().empty());
}

TEST_F(Dispatch, backup_end_is_recorded_and_delivered) {
    state().oridata_state = 2;
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(state().sync_state, 2U);
    expect_debug_line("[unit] receive data-sync END.");
    EXPECT_EQ(events(), (std::vector<test::Event>{{1, BRIDGE_EVENT_BKUP_DATA_END, nullptr, 0, {}}}));
    EXPECT_EQ(state().switchover_state, 0U);
}

TEST_F(Dispatch, backup_end_runs_the_origin_data_once) {
    connect();
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(state().oridata_state, 2U);
    EXPECT_EQ(event_types().front(), BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types().back(), BRIDGE_EVENT_SYNC_DATA_END);
    EXPECT_EQ(sent(), (std::vector<Message>{{BRIDGE_EVENT_ORI_DATA_REQUEST, word(2)}}));
    events().clear();
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_BKUP_DATA_END}));
    EXPECT_TRUE(sent().empty());
}

TEST_F(Dispatch, backup_end_of_a_slave_is_only_recorded) {
    connect();
    state().slave = 1;
    state().switchover_state = 1;
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(state().sync_state, 2U);
    expect_debug_line("[unit] receive data-sync END.");
    expect_debug_line("[unit] Slave ignor data-sync END notification.");
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(state().oridata_state, 0U);
    EXPECT_EQ(state().switchover_state, 1U);
    EXPECT_TRUE(sent().empty());
}

TEST_F(Dispatch, server_stat_sets_the_role) {
    deliver(BRIDGE_EVEVT_SERVER_STAT, {1, 0, 0, 0});
    EXPECT_EQ(state().slave, 1);
    expect_debug_line("[unit] receive serv-stat: [SLAVE].\n");
    deliver(BRIDGE_EVEVT_SERVER_STAT, {0xFF});
    EXPECT_EQ(state().slave, 0xFF);
    EXPECT_EQ(test::times_logged("[unit] receive serv-stat: [SLAVE].\n"), 2);
    deliver(BRIDGE_EVEVT_SERVER_STAT, {0, 1});
    EXPECT_EQ(state().slave, 0);
    expect_debug_line("[unit] receive serv-stat: [MASTER].\n");
    EXPECT_TRUE(events().empty());
}

TEST_F(Dispatch, server_stat_without_its_byte_is_dropped) {
    state().slave = 1;
    deliver(BRIDGE_EVEVT_SERVER_STAT);
    EXPECT_EQ(state().slave, 1);
    expect_debug_line("[unit] msg is too short: type[BRIDGE_EVEVT_SERVER_STAT, 136], len[0], discarded.\n");
}

TEST_F(Dispatch, server_stat_called_directly_takes_the_payload) {
    const uint8_t role = 3;
    bri_clnt_on_serv_stat_msg(&role);
    EXPECT_EQ(state().slave, 3);
    bri_clnt_on_serv_stat_msg(nullptr);
    EXPECT_EQ(state().slave, 3);
}

TEST_F(Dispatch, a_slave_gets_no_event_until_a_switchover_begins) {
    backup_ended();
    deliver(BRIDGE_EVEVT_SERVER_STAT, {1});
    deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    deliver(BRIDGE_EVENT_SYNC_DATA_END);
    bridge_call_event_handlers(BRIDGE_EVENT_SWITCHOVER_BEGIN, nullptr, 0);
    EXPECT_TRUE(events().empty());
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_SWITCHOVER_BEGIN}));
}

TEST_F(Dispatch, switchover_begin_makes_this_process_master) {
    state().slave = 1;
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    EXPECT_EQ(state().slave, 0);
    EXPECT_EQ(state().switchover_state, 1U);
    expect_debug_line("[unit] receive switch-over BEGIN, change to master.\n");
    EXPECT_EQ(events(), (std::vector<test::Event>{
                            {1, BRIDGE_EVENT_SWITCHOVER_BEGIN, nullptr, 0, {}}})); // before the backup data, too
}

TEST_F(Dispatch, switchover_end_after_the_backup_data_is_delivered_and_runs_the_origin_data) {
    connect();
    state().sync_state = 2;
    state().switchover_state = 1;
    deliver(BRIDGE_EVENT_SWITCHOVER_END);
    EXPECT_EQ(state().switchover_state, 2U);
    expect_debug_line("[unit] receive switch-over END.\n");
    EXPECT_EQ(event_types().front(), BRIDGE_EVENT_SWITCHOVER_END);
    EXPECT_EQ(event_types().back(), BRIDGE_EVENT_SYNC_DATA_END);
    EXPECT_EQ(state().oridata_state, 2U);
    EXPECT_EQ(sent(), (std::vector<Message>{{BRIDGE_EVENT_ORI_DATA_REQUEST, word(2)}}));
}

TEST_F(Dispatch, switchover_end_with_sent_origin_data_only_delivers) {
    state().sync_state = 2;
    state().oridata_state = 2;
    deliver(BRIDGE_EVENT_SWITCHOVER_END); // also without a begin
    EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_SWITCHOVER_END}));
    EXPECT_EQ(state().switchover_state, 2U);
}

TEST_F(Dispatch, switchover_end_before_the_backup_data_is_completed_by_its_end) {
    for (const uint32_t sync : {0U, 1U}) {
        state() = bri::client::State{};
        state().sync_state = sync;
        state().oridata_state = 2;
        events().clear();
        deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
        deliver(BRIDGE_EVENT_SWITCHOVER_END);
        EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_SWITCHOVER_BEGIN}));
        EXPECT_EQ(state().switchover_state, 1U);
        deliver(BRIDGE_EVENT_BKUP_DATA_END);
        EXPECT_EQ(event_types(),
                  (Types{BRIDGE_EVENT_SWITCHOVER_BEGIN, BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SWITCHOVER_END}));
        EXPECT_EQ(state().switchover_state, 2U);
        deliver(BRIDGE_EVENT_BKUP_DATA_END);
        EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_SWITCHOVER_BEGIN, BRIDGE_EVENT_BKUP_DATA_END,
                                        BRIDGE_EVENT_SWITCHOVER_END, BRIDGE_EVENT_BKUP_DATA_END}));
    }
    expect_debug_line("[unit] Switch-over END, but oridata is not ready.\n", 2);
}

TEST_F(Dispatch, backup_end_delivers_the_switchover_end_behind_the_origin_data) {
    state().switchover_state = 1;
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types().front(), BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types().back(), BRIDGE_EVENT_SWITCHOVER_END);
    EXPECT_EQ(event_types()[event_types().size() - 2], BRIDGE_EVENT_SYNC_DATA_END);
}

TEST_F(Dispatch, switchover_end_of_a_slave_is_completed_without_handlers) {
    connect();
    state().slave = 1;
    state().sync_state = 2;
    deliver(BRIDGE_EVENT_SWITCHOVER_END);
    EXPECT_EQ(state().switchover_state, 2U);
    EXPECT_EQ(state().oridata_state, 2U);
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(sent(), (std::vector<Message>{{BRIDGE_EVENT_ORI_DATA_REQUEST, word(2)}}));
}

TEST_F(Dispatch, sync_end_raises_every_submodules_begin_and_end) {
    backup_ended();
    static uint8_t synced_meanwhile;
    synced_meanwhile = 0;
    during = [](int, uint32_t) { synced_meanwhile |= ctx().data_synced; };
    deliver(BRIDGE_EVENT_SYNC_DATA_END, {1, 2, 3});
    EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END,
                                    MAC_EVENT_SYNC_DATA_BEGIN, MAC_EVENT_SYNC_DATA_END, L2TOP_EVENT_SYNC_DATA_BEGIN,
                                    L2TOP_EVENT_SYNC_DATA_END, BRIDGE_EVENT_SYNC_DATA_END}));
    for (const test::Event &event : events()) {
        EXPECT_EQ(event.data, nullptr);
        EXPECT_EQ(event.len, 0);
    }
    EXPECT_EQ(synced_meanwhile, 0);
    EXPECT_EQ(ctx().data_synced, 1);
}

TEST_F(Dispatch, sync_end_before_the_backup_data_raises_client_management_alone) {
    deliver(BRIDGE_EVENT_SYNC_DATA_END);
    EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_SYNC_DATA_BEGIN, BRIDGE_EVENT_SYNC_DATA_END}));
    EXPECT_EQ(ctx().data_synced, 1);
}

// Origin data asked for by the server ---------------------------------------------------------------------------------

std::vector<int> g_callbacks_run;
void first_callback() {
    g_callbacks_run.push_back(1);
}
void second_callback() {
    g_callbacks_run.push_back(2);
    bridge_client_send_message(nullptr, 0, VLAN_EVENT_CREATE_INDEX);
}

TEST_F(Dispatch, oridata_request_runs_the_callbacks_in_order_and_ends_with_the_over_message) {
    connect();
    bridge_agent_set_oridata_callback(second_callback);
    bridge_agent_set_oridata_callback(first_callback);
    bridge_agent_set_oridata_callback(second_callback);
    test::clear_log();
    deliver(BRIDGE_EVENT_ORI_DATA_REQUEST, word(2));
    EXPECT_EQ(g_callbacks_run, (std::vector<int>{2, 1, 2}));
    EXPECT_EQ(sent(),
              (std::vector<Message>{
                  {VLAN_EVENT_CREATE_INDEX, {}}, {VLAN_EVENT_CREATE_INDEX, {}}, {BRIDGE_EVENT_ORI_DATA_OVER, {}}}));
    expect_debug_line("[unit] send oridata ...\n");
    expect_debug_line("[unit] send oridata OVER.\n");
    EXPECT_EQ(test::log_lines().front().text, "[unit] send oridata ...\n");
    EXPECT_EQ(test::log_lines().back().text, "[unit] send oridata OVER.\n");
    EXPECT_TRUE(events().empty());
}

TEST_F(Dispatch, oridata_request_tells_when_the_over_message_cannot_be_sent) {
    ctx().connected = 0;
    bridge_agent_set_oridata_callback(first_callback);
    deliver(BRIDGE_EVENT_ORI_DATA_REQUEST);
    EXPECT_EQ(g_callbacks_run, (std::vector<int>{1}));
    expect_debug_line("[unit] send data-finish-evt failed: send msg error.\n");
    EXPECT_FALSE(test::logged("[unit] send oridata OVER.\n"));
}

// What is dropped -----------------------------------------------------------------------------------------------------

TEST_F(Dispatch, other_management_messages_are_discarded) {
    backup_ended();
    const std::set<uint32_t> handled{BRIDGE_EVENT_BKUP_DATA_BEGIN, BRIDGE_EVENT_BKUP_DATA_END,
                                     BRIDGE_EVENT_SYNC_DATA_END,   BRIDGE_EVENT_ORI_DATA_REQUEST,
                                     BRIDGE_EVEVT_SERVER_STAT,     BRIDGE_EVENT_SWITCHOVER_BEGIN,
                                     BRIDGE_EVENT_SWITCHOVER_END};
    int discarded = 0;
    for (uint32_t type = 128; type < 256; ++type) {
        if (handled.contains(type))
            continue;
        test::clear_log();
        deliver(type, {1});
        expect_debug_line("Error mng-msg type(" + std::string(bri_msg_type_name(type)) + "), discarded.\n");
        EXPECT_EQ(test::log_lines().size(), 1U);
        ++discarded;
    }
    EXPECT_EQ(discarded, 121);
    EXPECT_TRUE(events().empty());
}

TEST_F(Dispatch, messages_of_submodules_without_an_entry_are_logged_and_dropped) {
    backup_ended();
    const std::set<uint32_t> routed{1, 2, 3, 4, 5, 8, 17, 18};
    for (uint32_t submod = 0; submod < 64; ++submod) {
        const uint32_t type = submod << 7 | 9;
        const std::string text =
            "[unit] error msg, module[" + std::to_string(submod) + "], type[" + std::to_string(type) + "].\n";
        if (routed.contains(submod)) {
            deliver(type, test::ByteVec(8708));
            EXPECT_FALSE(test::logged(text)) << submod;
        } else {
            deliver(type, {1, 2, 3});
            expect_debug_line(text);
        }
    }
}

TEST_F(Dispatch, a_type_beyond_the_submodules_is_not_taken_for_its_low_bits) {
    deliver(0x10000 + BRIDGE_EVENT_SWITCHOVER_BEGIN);
    expect_debug_line("[unit] error msg, module[513], type[65674].\n");
    deliver(0xFFFFFFFF);
    expect_debug_line("[unit] error msg, module[33554431], type[-1].\n");
    EXPECT_EQ(state().switchover_state, 0U);
}

TEST_F(Dispatch, a_null_message_does_nothing) {
    test::clear_log();
    bridge_client_msg_dspch(nullptr);
    EXPECT_TRUE(test::log_lines().empty());
}

// The other subsystems ------------------------------------------------------------------------------------------------

TEST_F(Dispatch, events_of_the_other_subsystems_reach_the_handlers_with_their_payload) {
    backup_ended();
    for (const uint32_t type : {MAC_EVENT_INTF_LEARN, VLAN_EVENT_DEFAULT_INTF, MVLAN_EVENT_NOTIFY_ENTRY,
                                L2TOP_EVENT_SYNC_DATA_BEGIN, VG_EVENT_POLICY_ENTRY}) {
        events().clear();
        deliver(type, {7, 8, 9});
        ASSERT_EQ(event_types(), (Types{type}));
        EXPECT_EQ(events()[0].bytes, (test::ByteVec{7, 8, 9}));
    }
}

TEST_F(Dispatch, debug_messages_reach_the_debug_entry) {
    ASSERT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 0);
    deliver(DEBUG_EVENT_VLAN, word(0) + word(5));
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 1);
}

// Research ------------------------------------------------------------------------------------------------------------

const void *g_request;
uint32_t g_first_word;
int count_request(void *request, void *) {
    g_request = request;
    std::memcpy(&g_first_word, request, sizeof g_first_word);
    return 0;
}
int count_origin_macs(void *request, void *total) {
    EXPECT_EQ(request, nullptr);
    const uint32_t value = 0x01020304;
    std::memcpy(total, &value, sizeof value);
    return 0;
}

TEST_F(Dispatch, a_prejudgement_reaches_its_callback_with_the_payload) {
    connect();
    bri_clnt_reg_swport_prejudge_callback(count_request);
    test::ByteVec message = word(RESEARCH_EVENT_SWPORT_PREJUDGE) + word(8) + word(0xABCD) + word(1);
    test::clear_log();
    bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(message.data()));
    EXPECT_EQ(g_request, message.data() + 8);
    EXPECT_EQ(g_first_word, 0xABCDU);
    ASSERT_EQ(sent().size(), 1U);
    expect_debug_line("A msg over.\n");
    expect_debug_line("\n", 2);
    const size_t lines = test::log_lines().size();
    EXPECT_EQ(test::log_lines()[lines - 3].text, "A msg over.\n");
}

// As a callback that failed, so that the server does not wait.
TEST_F(Dispatch, a_prejudgement_without_a_whole_word_is_refused_unasked) {
    connect();
    bri_clnt_reg_swport_prejudge_callback(count_request);
    for (uint32_t size = 0; size < sizeof(uint32_t); ++size) {
        test::clear_log();
        deliver(RESEARCH_EVENT_SWPORT_PREJUDGE, test::ByteVec(size));
        EXPECT_EQ(test::log_text(), "SWPORT-IS-ALLOW Callback func failed.\nA msg over.\n\n\n") << size;
        EXPECT_EQ(sent(), (std::vector<Message>{{RESEARCH_EVENT_FAILED, {}}})) << size;
    }
    EXPECT_EQ(g_request, nullptr);
    deliver(RESEARCH_EVENT_SWPORT_PREJUDGE, test::ByteVec(sizeof(uint32_t)));
    EXPECT_NE(g_request, nullptr);
}

// Its address is that of the message, whatever that is; nobody in between reads it as a record or moves it.
TEST_F(Dispatch, a_prejudgement_reaches_its_callback_at_any_alignment) {
    connect();
    bri_clnt_reg_swport_prejudge_callback(count_request);
    for (size_t offset = 0; offset < sizeof(uint64_t); ++offset) {
        test::ByteVec place = test::ByteVec(offset) + word(RESEARCH_EVENT_SWPORT_PREJUDGE) + word(6) + word(0xABCD);
        place.resize(place.size() + 2);
        bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(place.data() + offset));
        EXPECT_EQ(g_request, place.data() + offset + sizeof(bri_msg_hdr)) << offset;
        EXPECT_EQ(std::exchange(g_first_word, 0), 0xABCDU) << offset;
    }
}

TEST_F(Dispatch, an_origin_mac_request_reaches_its_callback) {
    connect();
    bri_clnt_reg_ss_origin_mac_callback(count_origin_macs);
    deliver(RESEARCH_EVENT_SS_ORIGIN_MAC);
    EXPECT_EQ(sent(), (std::vector<Message>{{RESEARCH_EVENT_SS_ORIGIN_MAC, word(0x01020304)}}));
    expect_debug_line("A msg over.\n");
    expect_debug_line("\n", 2);
}

TEST_F(Dispatch, other_research_messages_are_logged) {
    for (const uint32_t type : {2304U, 2305U, 2308U, 2310U, 2312U, 2431U})
        deliver(type, word(1));
    expect_debug_line("Failed to parse research-msg from BRIDGE, type BRIDGE_UNKNOWN_TYPE.\n", 6);
    EXPECT_FALSE(test::logged("A msg over.\n"));
}

// Before initialisation, and in silence
// --------------------------------------------------------------------------------

TEST_F(Dispatch, without_a_context_nothing_is_delivered_or_sent) {
    without_context();
    test::clear_log();
    deliver(BRIDGE_EVENT_ORI_DATA_REQUEST);
    expect_debug_line("Bridge client send data-finish-evt failed: client is not init.\n");
    deliver(BRIDGE_EVENT_SYNC_DATA_END);
    expect_debug_line("Call event-handler failed: client is not init.\n", 8);
    for (const uint32_t type : {BRIDGE_EVENT_BKUP_DATA_BEGIN, BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SWITCHOVER_BEGIN,
                                BRIDGE_EVENT_SWITCHOVER_END, RESEARCH_EVENT_SWPORT_PREJUDGE,
                                RESEARCH_EVENT_SS_ORIGIN_MAC, BRIDGE_EVENT_REG_MSG, BRI_EVT_CFG_PORTMAP})
        deliver(type, word(1));
    deliver(BRIDGE_EVEVT_SERVER_STAT, {1});
    EXPECT_TRUE(events().empty());
    EXPECT_EQ(state().sync_state, 2U);
    EXPECT_EQ(state().slave, 1);
}

TEST_F(Dispatch, logs_nothing_while_message_debugging_is_off) {
    connect();
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    test::clear_log();
    bri_clnt_reg_ss_origin_mac_callback(count_origin_macs);
    for (const uint32_t type :
         Types{BRIDGE_EVENT_BKUP_DATA_BEGIN, BRIDGE_EVENT_ORI_DATA_REQUEST, BRIDGE_EVENT_SWITCHOVER_BEGIN,
               BRIDGE_EVENT_SWITCHOVER_END, BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SWITCHOVER_END,
               BRIDGE_EVENT_SYNC_DATA_END, BRIDGE_EVENT_KERNEL_DATA_REQ, BRI_EVT_CFG_PORTMAP,
               RESEARCH_EVENT_SWPORT_PREJUDGE, 2310, RESEARCH_EVENT_SS_ORIGIN_MAC, BRIDGE_EVEVT_SERVER_STAT})
        deliver(type);
    deliver(BRIDGE_EVEVT_SERVER_STAT, {1});
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    without_context();
    deliver(BRIDGE_EVENT_ORI_DATA_REQUEST);
    EXPECT_TRUE(test::log_lines().empty());
}

} // namespace
