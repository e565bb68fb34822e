#include "client/origin_data.h"
#include "tests/client/client_fixture.h"

namespace {

using test::Message;
using test::word;
using Types = std::vector<uint32_t>;

const Types kReplay{BRIDGE_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END,
                    L2TOP_EVENT_SYNC_DATA_BEGIN,  L2TOP_EVENT_SYNC_DATA_END,  BRIDGE_EVENT_SYNC_DATA_END};
const Types kVlanReplay{VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END};
const Types kL2Replay{L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_SYNC_DATA_END};

class OriginData : public test::Client {
  protected:
    explicit OriginData(const char *name = "unit") : Client(name) {
        listen({BRIDGE_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END,
                L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_SYNC_DATA_END, BRIDGE_EVENT_SYNC_DATA_END});
        connect();
        test::clear_log();
    }
    // The submodules that the server was asked for since the last call.
    Types asked() {
        Types submods;
        for (const Message &message : sent()) {
            EXPECT_EQ(message.type, BRIDGE_EVENT_ORI_DATA_REQUEST);
            EXPECT_EQ(message.payload.size(), 4U);
            submods.push_back(test::value_at<uint32_t>(message.payload.data(), 0));
        }
        return submods;
    }
    static void deferred_run() { bri::client::run_requested_oridata(); }
};

// Replay --------------------------------------------------------------------------------------------------------------

TEST_F(OriginData, replay_of_all_goes_through_the_submodules_in_order) {
    backup_ended();
    bridge_client_notify_all_oridata();
    EXPECT_EQ(event_types(), kReplay);
    for (const test::Event &event : events()) {
        EXPECT_EQ(event.data, nullptr);
        EXPECT_EQ(event.len, 0);
    }
    EXPECT_EQ(asked(), (Types{2}));
    EXPECT_EQ(ctx().data_synced, 1);
    EXPECT_EQ(state().oridata_state, 0U);
    expect_debug_line("[unit] notifying request-oridata ...\n");
    EXPECT_EQ(test::log_lines().front().text, "[unit] notifying request-oridata ...\n");
}

TEST_F(OriginData, replay_of_all_asks_for_the_mac_data_between_vlan_and_topology) {
    backup_ended();
    during = [](int, uint32_t type) { bridge_client_send_message(nullptr, 0, type); };
    bridge_client_notify_all_oridata();
    Types types;
    for (const Message &message : sent())
        types.push_back(message.type);
    EXPECT_EQ(types, (Types{BRIDGE_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END,
                            BRIDGE_EVENT_ORI_DATA_REQUEST, L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_SYNC_DATA_END,
                            BRIDGE_EVENT_SYNC_DATA_END}));
}

TEST_F(OriginData, data_is_synced_only_behind_the_last_event) {
    backup_ended();
    during = [](int, uint32_t) { EXPECT_EQ(ctx().data_synced, 0); };
    bridge_client_notify_all_oridata();
    EXPECT_EQ(ctx().data_synced, 1);
}

TEST_F(OriginData, replay_of_vlan_and_topology_is_done_here) {
    backup_ended();
    bridge_client_notify_submod_oridata(3);
    EXPECT_EQ(event_types(), kVlanReplay);
    events().clear();
    bridge_client_notify_submod_oridata(5);
    EXPECT_EQ(event_types(), kL2Replay);
    EXPECT_TRUE(asked().empty());
    EXPECT_EQ(ctx().data_synced, 0);
}

// Each replay has at least one event of its own, also of empty tables: the set of VLANs, the instance table.
TEST_F(OriginData, replay_raises_the_data_between_begin_and_end) {
    listen({VLAN_EVENT_CREATE_RANGE, L2TOP_EVENT_INSTANCE_CONFIG});
    backup_ended();
    bridge_client_notify_submod_oridata(3);
    EXPECT_EQ(event_types(), (Types{VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_SYNC_DATA_END}));
    events().clear();
    bridge_client_notify_submod_oridata(5);
    EXPECT_EQ(event_types(),
              (Types{L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_INSTANCE_CONFIG, L2TOP_EVENT_SYNC_DATA_END}));
    events().clear();
    bridge_client_notify_all_oridata();
    EXPECT_EQ(event_types(), (Types{BRIDGE_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_CREATE_RANGE,
                                    VLAN_EVENT_SYNC_DATA_END, L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_INSTANCE_CONFIG,
                                    L2TOP_EVENT_SYNC_DATA_END, BRIDGE_EVENT_SYNC_DATA_END}));
}

TEST_F(OriginData, other_submodules_are_asked_of_the_server) {
    backup_ended();
    const std::vector<std::pair<uint32_t, std::string>> submods{
        {0, "ERROR_BRI_SUBMOD"},  {1, "BRI_SUBMOD_CLNT_MNG"},      {2, "BRI_SUBMOD_MAC"},   {4, "ERROR_BRI_SUBMOD"},
        {6, "BRI_SUBMOD_QINQ"},   {8, "ERROR_BRI_SUBMOD"},         {19, "BRI_SUBMOD_BCFG"}, {20, "ERROR_BRI_SUBMOD"},
        {35, "ERROR_BRI_SUBMOD"}, {0xFFFFFFFF, "ERROR_BRI_SUBMOD"}};
    for (const auto &[submod, name] : submods) {
        test::clear_log();
        bridge_client_notify_submod_oridata(submod);
        EXPECT_EQ(asked(), (Types{submod}));
        expect_debug_line("[unit] request [" + name + "]data from server.\n");
    }
    EXPECT_TRUE(events().empty());
}

TEST_F(OriginData, other_submodules_are_asked_before_the_line) {
    ctx().connected = 0; // the refusal shows the place of the message
    bridge_client_notify_submod_oridata(2);
    EXPECT_EQ(test::log_text(), "Client send msg failed: Socket is not ready.\n"
                                "[unit] request [BRI_SUBMOD_MAC]data from server.\n");
}

// Requests ------------------------------------------------------------------------------------------------------------

TEST_F(OriginData, request_for_all_runs_at_once_when_the_backup_data_is_there) {
    backup_ended();
    bridge_client_request_oridata();
    EXPECT_EQ(event_types(), kReplay);
    EXPECT_EQ(asked(), (Types{2}));
    EXPECT_EQ(state().oridata_state, 2U);
    EXPECT_EQ(state().oridata_req_set, 0U);
    EXPECT_EQ(test::log_lines().front().text, "[unit] request oridata ...\n");
    expect_debug_line("[unit] request oridata ...\n");
    EXPECT_FALSE(test::logged("[unit] request oridata, but oridata is not ready.\n"));
}

TEST_F(OriginData, request_during_a_replay_shows_as_requested) {
    backup_ended();
    during = [](int, uint32_t) { EXPECT_EQ(state().oridata_state, 1U); };
    bridge_client_request_oridata();
    bridge_client_request_submod_oridata(3);
    EXPECT_EQ(event_types().size(), 8U);
}

TEST_F(OriginData, request_for_all_is_kept_before_the_backup_data_or_of_a_slave) {
    for (const auto &[sync, slave] : {std::pair{0, 0}, {1, 0}, {2, 1}, {1, 1}}) {
        state() = bri::client::State{};
        state().sync_state = static_cast<uint32_t>(sync);
        state().slave = static_cast<uint8_t>(slave);
        bridge_client_request_oridata();
        EXPECT_EQ(state().oridata_state, 1U);
        EXPECT_EQ(state().oridata_req_set, uint32_t{1} << 20);
    }
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(asked().empty());
    expect_debug_line("[unit] request oridata, but oridata is not ready.\n", 4);
}

TEST_F(OriginData, request_for_one_submodule_runs_at_once_when_the_backup_data_is_there) {
    backup_ended();
    bridge_client_request_submod_oridata(3);
    EXPECT_EQ(event_types(), kVlanReplay);
    EXPECT_EQ(state().oridata_state, 2U);
    EXPECT_EQ(state().oridata_req_set, 0U);
    bridge_client_request_submod_oridata(2);
    EXPECT_EQ(asked(), (Types{2}));
    expect_debug_line("[unit] request [BRI_SUBMOD_VLAN] oridata ...\n");
    expect_debug_line("[unit] request [BRI_SUBMOD_MAC] oridata ...\n");
    bridge_client_request_submod_oridata(8);
    expect_debug_line("[unit] request [ERROR_BRI_SUBMOD] oridata ...\n");
}

TEST_F(OriginData, request_for_one_submodule_is_kept_by_its_bit_modulo_32) {
    uint32_t expected = 0;
    for (const uint32_t submod : {0U, 3U, 31U, 32U + 5, 0xFFFFFFC2U}) {
        state().oridata_state = 0;
        bridge_client_request_submod_oridata(submod);
        expected |= uint32_t{1} << (submod % 32);
        EXPECT_EQ(state().oridata_req_set, expected);
        EXPECT_EQ(state().oridata_state, 1U);
    }
    backup_ended();
    state().slave = 1;
    bridge_client_request_submod_oridata(7);
    EXPECT_EQ(state().oridata_req_set, expected | 1U << 7);
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(asked().empty());
    for (const test::LogLine &line : test::log_lines())
        EXPECT_EQ(line.text.find("not ready"), std::string::npos);
}

// Deferred run --------------------------------------------------------------------------------------------------------

TEST_F(OriginData, deferred_run_without_a_request_replays_all) {
    backup_ended();
    deferred_run();
    EXPECT_EQ(event_types(), kReplay);
    EXPECT_EQ(asked(), (Types{2}));
    EXPECT_EQ(state().oridata_req_set, 0U);
    EXPECT_EQ(state().oridata_state, 2U);
}

TEST_F(OriginData, deferred_run_of_all_covers_the_single_requests) {
    bridge_client_request_submod_oridata(7);
    bridge_client_request_oridata();
    backup_ended();
    deferred_run();
    EXPECT_EQ(event_types(), kReplay);
    EXPECT_EQ(asked(), (Types{2}));
    EXPECT_EQ(state().oridata_req_set, 0U);
}

TEST_F(OriginData, deferred_run_of_single_requests_goes_in_rising_order) {
    for (const uint32_t submod : {19U, 5U, 0U, 3U, 2U})
        bridge_client_request_submod_oridata(submod);
    backup_ended();
    during = [](int, uint32_t type) { bridge_client_send_message(nullptr, 0, type); };
    deferred_run();
    std::vector<std::pair<uint32_t, uint32_t>> stream; // type, and the submodule asked for
    for (const Message &message : sent())
        stream.emplace_back(message.type,
                            message.payload.empty() ? 99 : test::value_at<uint32_t>(message.payload.data(), 0));
    EXPECT_EQ(stream, (std::vector<std::pair<uint32_t, uint32_t>>{{BRIDGE_EVENT_ORI_DATA_REQUEST, 0},
                                                                  {BRIDGE_EVENT_ORI_DATA_REQUEST, 2},
                                                                  {VLAN_EVENT_SYNC_DATA_BEGIN, 99},
                                                                  {VLAN_EVENT_SYNC_DATA_END, 99},
                                                                  {L2TOP_EVENT_SYNC_DATA_BEGIN, 99},
                                                                  {L2TOP_EVENT_SYNC_DATA_END, 99},
                                                                  {BRIDGE_EVENT_ORI_DATA_REQUEST, 19}}));
    EXPECT_EQ(state().oridata_req_set, 0U);
    EXPECT_EQ(state().oridata_state, 2U);
    EXPECT_EQ(ctx().data_synced, 0);
}

TEST_F(OriginData, deferred_run_forgets_the_bits_above_20) {
    bridge_client_request_submod_oridata(21);
    bridge_client_request_submod_oridata(31);
    backup_ended();
    deferred_run();
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(asked().empty());
    EXPECT_EQ(state().oridata_req_set, 0U);
    EXPECT_EQ(state().oridata_state, 2U);
}

TEST_F(OriginData, request_before_the_backup_data_runs_when_it_ends_and_once) {
    bridge_client_request_submod_oridata(3);
    deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    EXPECT_TRUE(events().empty());
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types(), kVlanReplay);
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types(), kVlanReplay);
    bridge_client_request_submod_oridata(5); // a new cycle runs at once and ends it
    EXPECT_EQ(event_types(), (Types{VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END, L2TOP_EVENT_SYNC_DATA_BEGIN,
                                    L2TOP_EVENT_SYNC_DATA_END}));
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types().size(), 4U);
}

TEST_F(OriginData, request_of_a_slave_runs_at_the_end_of_the_switchover) {
    deliver(BRIDGE_EVEVT_SERVER_STAT, {1});
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    bridge_client_request_submod_oridata(5);
    EXPECT_TRUE(events().empty());
    deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
    deliver(BRIDGE_EVENT_SWITCHOVER_END);
    EXPECT_EQ(event_types(), kL2Replay);
    EXPECT_EQ(state().oridata_state, 2U);
}

// What docs/timeline.md tells a host to do.
class AskingOriginData : public OriginData {
  protected:
    AskingOriginData() {
        listen({BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SWITCHOVER_END});
        during = [](int, uint32_t type) {
            if (type == BRIDGE_EVENT_BKUP_DATA_END || type == BRIDGE_EVENT_SWITCHOVER_END)
                bridge_client_request_oridata();
        };
    }
    static void server_speaks(uint8_t role) {
        deliver(BRIDGE_EVEVT_SERVER_STAT, {role});
        deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
        deliver(BRIDGE_EVENT_BKUP_DATA_END);
    }
    static Types behind(uint32_t type) {
        Types types{type};
        types.insert(types.end(), kReplay.begin(), kReplay.end());
        return types;
    }
    static Types seen() {
        Types types = event_types();
        events().clear();
        return types;
    }
};

TEST_F(AskingOriginData, at_the_end_of_the_backup_data_gets_one_replay_on_every_connection) {
    for (int connection = 0; connection < 3; ++connection) {
        server_speaks(0);
        EXPECT_EQ(seen(), behind(BRIDGE_EVENT_BKUP_DATA_END)) << connection;
    }
}

TEST_F(AskingOriginData, at_the_end_of_a_switchover_gets_one_replay_at_each) {
    server_speaks(1);
    EXPECT_EQ(seen(), Types{});
    for (int switchover = 0; switchover < 2; ++switchover) {
        deliver(BRIDGE_EVENT_SWITCHOVER_BEGIN);
        EXPECT_EQ(seen(), Types{}); // 138 is not in the set
        deliver(BRIDGE_EVENT_SWITCHOVER_END);
        EXPECT_EQ(seen(), behind(BRIDGE_EVENT_SWITCHOVER_END)) << switchover;
        deliver(BRIDGE_EVEVT_SERVER_STAT, {1});
    }
}

TEST_F(OriginData, is_replayed_once_when_nobody_asks) {
    for (int connection = 0; connection < 3; ++connection) {
        deliver(BRIDGE_EVENT_BKUP_DATA_BEGIN);
        deliver(BRIDGE_EVENT_BKUP_DATA_END);
        EXPECT_EQ(event_types(), kReplay) << connection; // nothing is added by the later ones
    }
}

class SilentOriginData : public OriginData {
  protected:
    SilentOriginData() : OriginData("SS") {}
};

TEST_F(SilentOriginData, is_replayed_only_on_request) {
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(asked().empty());
    EXPECT_EQ(state().oridata_state, 2U);
}

TEST_F(SilentOriginData, is_replayed_on_request) {
    bridge_client_request_oridata();
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types(), kReplay);
    EXPECT_EQ(asked(), (Types{2}));
}

TEST_F(SilentOriginData, of_one_submodule_is_replayed_on_request) {
    bridge_client_request_submod_oridata(3);
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types(), kVlanReplay);
}

class NearlySilentOriginData : public OriginData {
  protected:
    NearlySilentOriginData() : OriginData("SSH") {}
};

TEST_F(NearlySilentOriginData, is_replayed_unasked) {
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    EXPECT_EQ(event_types(), kReplay);
}

// Data state and name -------------------------------------------------------------------------------------------------

TEST_F(OriginData, data_state_is_one_bit_per_submodule_modulo_32) {
    uint32_t &word = bri::client::g_submod_data_state;
    EXPECT_EQ(word, 0U);
    for (uint32_t submod = 0; submod < 100; ++submod) {
        bridge_submod_set_data_state(submod, 1 + submod);
        EXPECT_EQ(word, uint32_t{1} << (submod % 32));
        bridge_submod_set_data_state(submod ^ 1, 0);
        EXPECT_EQ(word, uint32_t{1} << (submod % 32));
        bridge_submod_set_data_state(submod, 0);
        EXPECT_EQ(word, 0U);
    }
    bridge_submod_set_data_state(3, 1);
    bridge_submod_set_data_state(5, 0xFFFFFFFF);
    EXPECT_EQ(word, 0x28U);
}

TEST_F(OriginData, lines_carry_the_dispatchers_copy_of_the_name_cut_to_19_characters) {
    bridge_dspch_client_init("12345678901234567890123");
    bridge_client_request_oridata();
    expect_debug_line("[1234567890123456789] request oridata ...\n");
    bridge_dspch_client_init(nullptr);
    bridge_client_request_oridata();
    expect_debug_line("[1234567890123456789] request oridata ...\n", 2);
    bridge_dspch_client_init("ab");
    bridge_client_request_oridata();
    expect_debug_line("[ab] request oridata ...\n");
}

TEST_F(OriginData, without_a_context_nothing_happens) {
    without_context();
    backup_ended();
    bridge_client_request_oridata();
    bridge_client_request_submod_oridata(3);
    bridge_client_notify_all_oridata();
    bridge_client_notify_submod_oridata(2);
    deferred_run();
    EXPECT_EQ(state().oridata_state, 0U);
    EXPECT_EQ(state().oridata_req_set, 0U);
    EXPECT_TRUE(test::log_lines().empty());
    EXPECT_TRUE(events().empty());
}

TEST_F(OriginData, logs_nothing_while_message_debugging_is_off) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    bridge_client_request_oridata();
    bridge_client_request_submod_oridata(3);
    deliver(BRIDGE_EVENT_BKUP_DATA_END);
    bridge_client_request_oridata();
    bridge_client_request_submod_oridata(2);
    EXPECT_TRUE(test::log_lines().empty());
    EXPECT_EQ(asked(), (Types{2, 2, 2}));
}

} // namespace
