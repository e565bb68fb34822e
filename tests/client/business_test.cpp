#include "tests/client/client_fixture.h"

namespace {

using test::Message;
using test::word;
using test::operator+;

class Business : public test::Client {
  protected:
    static inline int result = 0;
    static inline int calls = 0;
    static inline void *first = nullptr;
    static inline void *second = nullptr;
    static int callback(void *arg1, void *arg2) {
        ++calls;
        first = arg1;
        second = arg2;
        return result;
    }
    static int other_callback(void *, void *) {
        calls += 100;
        return 0;
    }
};

TEST_F(Business, every_slot_calls_its_function_with_both_arguments) {
    int a = 0;
    int b = 0;
    for (uint32_t type = 0; type < 7; ++type) {
        bridge_agent_set_business_callback(type, callback);
        for (uint32_t empty = type + 1; empty < 7; ++empty)
            EXPECT_EQ(state().business[empty], nullptr);
        EXPECT_EQ(bridge_agent_call_business_callback(type, &a, &b), 0);
        EXPECT_EQ(calls, static_cast<int>(type) + 1);
        EXPECT_EQ(first, &a);
        EXPECT_EQ(second, &b);
    }
    expect_debug_line("[unit] call business-callbk process success.\n", 7);
}

TEST_F(Business, a_slot_holds_the_function_set_last) {
    bridge_agent_set_business_callback(0, callback);
    bridge_agent_set_business_callback(0, other_callback);
    EXPECT_EQ(bridge_agent_call_business_callback(0, nullptr, nullptr), 0);
    EXPECT_EQ(calls, 100);
}

TEST_F(Business, a_type_beyond_the_slots_is_refused) {
    for (const uint32_t type : {7U, 0x80000000U, 0xFFFFFFFFU}) {
        bridge_agent_set_business_callback(type, callback);
        EXPECT_EQ(bridge_agent_call_business_callback(type, nullptr, nullptr), -1);
    }
    EXPECT_EQ(calls, 0);
    expect_debug_line("[unit] set business-callbk failed: invalid type 7.\n");
    expect_debug_line("[unit] call business-callbk failed: invalid type 7.\n");
    expect_debug_line("[unit] set business-callbk failed: invalid type -1.\n");
    expect_debug_line("[unit] call business-callbk failed: invalid type -1.\n");
    bridge_agent_set_business_callback(7, nullptr); // the type is looked at first
    expect_debug_line("[unit] set business-callbk failed: invalid type 7.\n", 2);
}

TEST_F(Business, a_null_function_is_refused_and_the_slot_kept) {
    bridge_agent_set_business_callback(3, callback);
    bridge_agent_set_business_callback(3, nullptr);
    expect_debug_line("[unit] set business-callbk failed: callbk NULL.\n");
    EXPECT_EQ(bridge_agent_call_business_callback(3, nullptr, nullptr), 0);
    EXPECT_EQ(calls, 1);
}

TEST_F(Business, an_empty_slot_cannot_be_called) {
    EXPECT_EQ(bridge_agent_call_business_callback(5, nullptr, nullptr), -1);
    expect_debug_line("[unit] call business-callbk is not reg,type 5.\n");
}

TEST_F(Business, only_a_negative_result_is_a_failure) {
    bridge_agent_set_business_callback(1, callback);
    for (const int good : {0, 1, 1000}) {
        result = good;
        EXPECT_EQ(bridge_agent_call_business_callback(1, nullptr, nullptr), 0);
    }
    for (const int bad : {-1, -1000}) {
        result = bad;
        EXPECT_EQ(bridge_agent_call_business_callback(1, nullptr, nullptr), -1);
    }
    expect_debug_line("[unit] call business-callbk process success.\n", 3);
    expect_debug_line("[unit] call business-callbk process failed.\n", 2);
}

// Pre-judgement -------------------------------------------------------------------------------------------------------

TEST_F(Business, registering_a_prejudgement_fills_slot_4_and_adds_its_type_without_a_message) {
    connect();
    bri_clnt_reg_swport_prejudge_callback(callback);
    EXPECT_EQ(state().business[4], callback);
    const event_set expected = test::set_of_types({RESEARCH_EVENT_SWPORT_PREJUDGE});
    EXPECT_EQ(test::bytes_of(ctx().event_set), test::bytes_of(expected));
    bridge_client_send_message(nullptr, 0, BRIDGE_EVENT_ORI_DATA_OVER);
    EXPECT_EQ(sent(), (std::vector<Message>{{BRIDGE_EVENT_ORI_DATA_OVER, {}}}));
}

TEST_F(Business, registering_a_null_prejudgement_changes_nothing) {
    bri_clnt_reg_swport_prejudge_callback(nullptr);
    expect_debug_line("[unit] set business-callbk failed: callbk NULL.\n");
    EXPECT_FALSE(test::has(ctx().event_set, RESEARCH_EVENT_SWPORT_PREJUDGE));
    EXPECT_EQ(state().business[4], nullptr);
}

int fill_reply(void *request, void *reply) {
    auto *bytes = static_cast<uint8_t *>(reply);
    EXPECT_EQ(test::ByteVec(bytes, bytes + 132), word(1) + test::ByteVec(128));
    for (size_t at = 4; at < 132; ++at)
        bytes[at] = static_cast<uint8_t>(at);
    test::put_at(bytes, 0, test::value_at<uint32_t>(request, 0));
    return 0;
}

TEST_F(Business, a_prejudgement_is_answered_with_what_the_callback_filled_in) {
    connect();
    bri_clnt_reg_swport_prejudge_callback(fill_reply);
    uint32_t request = 0x11223344;
    bri_clnt_call_swport_prejudge_callback(&request);
    test::ByteVec expected(132);
    for (size_t at = 4; at < 132; ++at)
        expected[at] = static_cast<uint8_t>(at);
    test::put_at(expected.data(), 0, request);
    EXPECT_EQ(sent(), (std::vector<Message>{{RESEARCH_EVENT_SWPORT_PREJUDGE, expected}}));
    expect_debug_line("SWPORT-IS-ALLOW Callback func SUCC,is_allow 287454020.\n");
}

TEST_F(Business, a_prejudgement_allows_unless_the_callback_says_otherwise) {
    connect();
    bri_clnt_reg_swport_prejudge_callback(callback);
    uint32_t request = 0;
    bri_clnt_call_swport_prejudge_callback(&request);
    EXPECT_EQ(first, &request);
    test::ByteVec expected(132);
    test::put_at(expected.data(), 0, uint32_t{1});
    EXPECT_EQ(sent(), (std::vector<Message>{{RESEARCH_EVENT_SWPORT_PREJUDGE, expected}}));
    expect_debug_line("SWPORT-IS-ALLOW Callback func SUCC,is_allow 1.\n");
}

TEST_F(Business, a_failed_prejudgement_is_answered_with_the_empty_failure_message) {
    connect();
    uint32_t request = 0;
    bri_clnt_call_swport_prejudge_callback(&request); // no callback
    result = -1;
    bri_clnt_reg_swport_prejudge_callback(callback);
    bri_clnt_call_swport_prejudge_callback(&request);
    EXPECT_EQ(sent(), (std::vector<Message>{{RESEARCH_EVENT_FAILED, {}}, {RESEARCH_EVENT_FAILED, {}}}));
    expect_debug_line("SWPORT-IS-ALLOW Callback func failed.\n", 2);
}

TEST_F(Business, a_null_prejudgement_request_does_nothing) {
    connect();
    bri_clnt_reg_swport_prejudge_callback(callback);
    bri_clnt_call_swport_prejudge_callback(nullptr);
    EXPECT_EQ(calls, 0);
    EXPECT_TRUE(sent().empty());
}

// Origin MAC count ----------------------------------------------------------------------------------------------------

int count_macs(void *request, void *total) {
    EXPECT_EQ(request, nullptr);
    EXPECT_EQ(test::value_at<uint32_t>(total, 0), 0U);
    test::put_at(total, 0, 0xFFFFFFF0U);
    return 0;
}

TEST_F(Business, registering_an_origin_mac_callback_fills_slot_6_alone) {
    bri_clnt_reg_ss_origin_mac_callback(callback);
    EXPECT_EQ(state().business[6], callback);
    EXPECT_EQ(test::bytes_of(ctx().event_set), test::bytes_of(event_set{}));
}

TEST_F(Business, an_origin_mac_request_is_answered_with_the_count) {
    connect();
    bri_clnt_reg_ss_origin_mac_callback(count_macs);
    bri_clnt_call_ss_origin_mac_callback();
    EXPECT_EQ(sent(), (std::vector<Message>{{RESEARCH_EVENT_SS_ORIGIN_MAC, word(0xFFFFFFF0)}}));
    expect_debug_line("SS-ORIGIN-MAC Callback func SUCC, total num(4294967280).\n");
}

TEST_F(Business, a_failed_origin_mac_request_is_answered_with_the_empty_failure_message) {
    connect();
    bri_clnt_call_ss_origin_mac_callback();
    result = -5;
    bri_clnt_reg_ss_origin_mac_callback(callback);
    bri_clnt_call_ss_origin_mac_callback();
    EXPECT_EQ(sent(), (std::vector<Message>{{RESEARCH_EVENT_FAILED, {}}, {RESEARCH_EVENT_FAILED, {}}}));
    expect_debug_line("SS-ORIGIN-MAC Callback func failed.\n", 2);
}

// The line of success comes before its answer, the one of failure behind it; a message that fails shows the place.
TEST_F(Business, answers_are_sent_behind_the_line_of_success_and_before_that_of_failure) {
    bridge_client_connect_reset();
    uint32_t request = 0;
    for (const int outcome : {0, -1}) {
        result = outcome;
        bri_clnt_reg_swport_prejudge_callback(callback);
        bri_clnt_reg_ss_origin_mac_callback(callback);
        test::clear_log();
        bri_clnt_call_swport_prejudge_callback(&request);
        bri_clnt_call_ss_origin_mac_callback();
        const std::string called =
            std::string("[unit] call business-callbk process ") + (outcome == 0 ? "success.\n" : "failed.\n");
        const std::string refused = "Client send msg failed!\n";
        EXPECT_EQ(test::log_text(), outcome == 0
                                        ? called + "SWPORT-IS-ALLOW Callback func SUCC,is_allow 1.\n" + refused +
                                              called + "SS-ORIGIN-MAC Callback func SUCC, total num(0).\n" + refused
                                        : called + refused + "SWPORT-IS-ALLOW Callback func failed.\n" + called +
                                              refused + "SS-ORIGIN-MAC Callback func failed.\n");
    }
}

TEST_F(Business, answers_overtake_the_batch) {
    connect();
    bridge_client_send_message(nullptr, 0, VLAN_EVENT_CREATE_INDEX);
    bri_clnt_call_ss_origin_mac_callback();
    bridge_client_send_message(nullptr, 0, BRIDGE_EVENT_ORI_DATA_OVER);
    EXPECT_EQ(sent(),
              (std::vector<Message>{
                  {RESEARCH_EVENT_FAILED, {}}, {VLAN_EVENT_CREATE_INDEX, {}}, {BRIDGE_EVENT_ORI_DATA_OVER, {}}}));
}

// -------------------------------------------------------------------------------------------------------------------

TEST_F(Business, without_a_context_nothing_happens) {
    without_context();
    uint32_t request = 0;
    bridge_agent_set_business_callback(4, callback);
    bri_clnt_reg_swport_prejudge_callback(callback);
    bri_clnt_reg_ss_origin_mac_callback(callback);
    EXPECT_EQ(bridge_agent_call_business_callback(4, nullptr, nullptr), -1);
    bri_clnt_call_swport_prejudge_callback(&request);
    bri_clnt_call_ss_origin_mac_callback();
    EXPECT_EQ(calls, 0);
    for (const bri_business_callback slot : state().business)
        EXPECT_EQ(slot, nullptr);
    expect_debug_line("Set callback failed: client is not init.\n", 3); // one for each setter
    EXPECT_EQ(test::log_lines().size(), 3U);
}

TEST_F(Business, logs_nothing_while_message_debugging_is_off) {
    connect();
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    uint32_t request = 0;
    bridge_agent_set_business_callback(7, callback);
    bridge_agent_set_business_callback(6, nullptr);
    bridge_agent_call_business_callback(7, nullptr, nullptr);
    for (const int outcome : {0, -1}) {
        bri_clnt_call_swport_prejudge_callback(&request);
        bri_clnt_call_ss_origin_mac_callback();
        result = outcome;
        bri_clnt_reg_swport_prejudge_callback(callback);
        bri_clnt_reg_ss_origin_mac_callback(callback);
        bri_clnt_call_swport_prejudge_callback(&request);
        bri_clnt_call_ss_origin_mac_callback();
    }
    EXPECT_TRUE(test::log_lines().empty());
    EXPECT_EQ(sent().size(), 8U);
}

} // namespace
