#include "tests/client/client_fixture.h"

namespace {

using test::add_to;
using test::has;
using test::set_of_types;

class Handlers : public test::Client {
  protected:
    static int nodes() {
        int count = 0;
        for (const bri_list *link = ctx().handlers.next; link != &ctx().handlers; link = link->next)
            ++count;
        return count;
    }
};

using Order = std::vector<int>;

// Calling handlers ----------------------------------------------------------------------------------------------------

TEST_F(Handlers, get_type_payload_and_length) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    uint8_t payload[] = {1, 2, 3};
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, payload, sizeof payload);
    EXPECT_EQ(events(), (std::vector<test::Event>{{1, VLAN_EVENT_CREATE_INDEX, payload, 3, {1, 2, 3}}}));
    expect_debug_line("[unit] event[VLAN_EVENT_CREATE_INDEX, 387] is handled.\n");
}

TEST_F(Handlers, are_called_in_registration_order_if_their_set_holds_the_type) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX}, handler<2>);
    listen({VLAN_EVENT_DESTROY_INDEX});
    listen({VLAN_EVENT_DESTROY_INDEX}, handler<3>);
    bridge_call_event_handlers(VLAN_EVENT_DESTROY_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{2, 1, 3}));
    EXPECT_EQ(test::times_logged("[unit] event[VLAN_EVENT_DESTROY_INDEX, 388] is handled.\n"), 3);
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{2, 1, 3, 2}));
}

TEST_F(Handlers, get_the_length_cut_to_16_bits) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    test::ByteVec payload(0xFFFF);
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, payload.data(), 0x1FFFF);
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, payload.data(), 0x10000);
    ASSERT_EQ(events().size(), 2U);
    EXPECT_EQ(events()[0].len, 0xFFFF);
    EXPECT_EQ(events()[1].len, 0);
}

TEST_F(Handlers, without_a_context_are_not_called) {
    without_context();
    bridge_call_event_handlers(BRIDGE_EVENT_REG_MSG, nullptr, 0);
    expect_debug_line("Call event-handler failed: client is not init.\n");
    EXPECT_EQ(test::log_lines().size(), 1U);
}

TEST_F(Handlers, of_a_slave_are_not_called_and_nothing_is_logged) {
    backup_ended();
    listen({BRIDGE_EVENT_SWITCHOVER_BEGIN, VLAN_EVENT_CREATE_INDEX});
    test::clear_log();
    state().slave = 7;
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    bridge_call_event_handlers(BRIDGE_EVENT_SWITCHOVER_BEGIN, nullptr, 0);
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(test::log_lines().empty());
}

TEST_F(Handlers, do_not_get_a_type_outside_the_registered_set) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    bridge_call_event_handlers(VLAN_EVENT_DESTROY_INDEX, nullptr, 0);
    EXPECT_TRUE(events().empty());
    expect_debug_line("[unit] dose not care this event[VLAN_EVENT_DESTROY_INDEX, 388].\n");
}

TEST_F(Handlers, do_not_get_a_type_beyond_the_set) {
    backup_ended();
    listen_to_all();
    bridge_call_event_handlers(4096, nullptr, 0);
    bridge_call_event_handlers(0xFFFF, nullptr, 0);
    EXPECT_TRUE(events().empty());
    expect_debug_line("[unit] dose not care this event[BRIDGE_UNKNOWN_TYPE, 4096].\n");
    expect_debug_line("[unit] dose not care this event[BRIDGE_UNKNOWN_TYPE, 65535].\n");
    bridge_call_event_handlers(4095, nullptr, 0);
    EXPECT_EQ(event_types(), (std::vector<uint32_t>{4095}));
}

TEST_F(Handlers, are_chosen_by_the_low_16_bits_and_get_the_type_as_it_stands) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    bridge_call_event_handlers(0x10000 + VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(event_types(), (std::vector<uint32_t>{0x10000 + VLAN_EVENT_CREATE_INDEX}));
}

TEST_F(Handlers, get_every_type_of_the_set_and_no_other) {
    backup_ended();
    event_set odd{};
    for (unsigned type = 1; type < 4096; type += 2)
        add_to(odd, type);
    bridge_client_reg_event(&odd, handler<1>);
    for (uint32_t type = 0; type < 4200; ++type)
        bridge_call_event_handlers(type, nullptr, 0);
    std::vector<uint32_t> expected;
    for (uint32_t type = 1; type < 4096; type += 2)
        expected.push_back(type);
    EXPECT_EQ(event_types(), expected);
}

TEST_F(Handlers, get_only_client_management_before_the_backup_data_has_ended) {
    listen({BRIDGE_EVENT_SWITCHOVER_BEGIN, 255, 256, VLAN_EVENT_CREATE_INDEX});
    for (const uint32_t sync : {0U, 1U}) {
        state().sync_state = sync;
        bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
        bridge_call_event_handlers(256, nullptr, 0);
        EXPECT_TRUE(events().empty());
    }
    EXPECT_EQ(test::times_logged("[unit] data-sync is not end, ignored[387].\n"), 2);
    expect_debug_line("[unit] data-sync is not end, ignored[256].\n", 2);
    bridge_call_event_handlers(BRIDGE_EVENT_SWITCHOVER_BEGIN, nullptr, 0);
    bridge_call_event_handlers(255, nullptr, 0);
    EXPECT_EQ(event_types(), (std::vector<uint32_t>{BRIDGE_EVENT_SWITCHOVER_BEGIN, 255}));
    backup_ended();
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(event_types(), (std::vector<uint32_t>{BRIDGE_EVENT_SWITCHOVER_BEGIN, 255, VLAN_EVENT_CREATE_INDEX}));
}

// Inside a handler ----------------------------------------------------------------------------------------------------

TEST_F(Handlers, registered_during_a_walk_are_called_in_the_same_walk) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    during = [](int number, uint32_t) {
        if (number == 1)
            listen({VLAN_EVENT_CREATE_INDEX}, handler<2>);
    };
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{1, 2}));
}

TEST_F(Handlers, do_not_get_a_type_that_an_earlier_handler_withdrew_for_them) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX}, handler<2>);
    listen({VLAN_EVENT_CREATE_INDEX}, handler<3>);
    during = [](int number, uint32_t) {
        event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
        if (number == 1)
            bridge_client_unreg_event(&set, handler<2>);
    };
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{1, 3}));
}

TEST_F(Handlers, may_withdraw_themselves) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    listen({VLAN_EVENT_CREATE_INDEX}, handler<2>);
    during = [](int number, uint32_t) {
        event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
        if (number == 1)
            bridge_client_unreg_event(&set, handler<1>);
    };
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{1, 2, 2}));
}

TEST_F(Handlers, may_raise_another_event) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    listen({VLAN_EVENT_CREATE_INDEX}, handler<2>);
    during = [](int number, uint32_t type) {
        if (number == 1 && type == VLAN_EVENT_CREATE_INDEX)
            bridge_call_event_handlers(VLAN_EVENT_DESTROY_INDEX, nullptr, 0);
    };
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(event_types(),
              (std::vector<uint32_t>{VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_INDEX}));
}

TEST_F(Handlers, may_send_and_reset_the_connection) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    listen({VLAN_EVENT_CREATE_INDEX}, handler<2>);
    connect();
    during = [](int number, uint32_t) {
        if (number == 1)
            bridge_client_send_message(nullptr, 0, BRIDGE_EVENT_ORI_DATA_OVER);
        else
            bridge_client_connect_reset();
    };
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{1, 2}));
    EXPECT_EQ(sent(), (std::vector<test::Message>{{BRIDGE_EVENT_ORI_DATA_OVER, {}}}));
    EXPECT_EQ(ctx().sock, 0);
}

// Registration --------------------------------------------------------------------------------------------------------

TEST_F(Handlers, registration_without_a_context_fails) {
    without_context();
    const event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    EXPECT_EQ(bridge_client_reg_event(&set, handler<1>), -1);
    EXPECT_EQ(bridge_client_reg_event(nullptr, nullptr), -1);
    expect_debug_line("Client reg event failed: client is not ready.\n", 2);
    EXPECT_EQ(test::log_lines().size(), 2U);
}

TEST_F(Handlers, registration_refuses_a_null_set_or_handler) {
    const event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    EXPECT_EQ(bridge_client_reg_event(nullptr, handler<1>), -1);
    EXPECT_EQ(bridge_client_reg_event(&set, nullptr), -1);
    expect_debug_line("Client reg event failed: invalid param\n", 2);
    EXPECT_EQ(nodes(), 0);
    EXPECT_FALSE(has(ctx().event_set, VLAN_EVENT_CREATE_INDEX));
}

TEST_F(Handlers, registration_without_memory_fails_and_changes_nothing) {
    const event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    test::faults::fail("calloc", 1, ENOMEM);
    EXPECT_EQ(bridge_client_reg_event(&set, handler<1>), -1);
    EXPECT_EQ(test::faults::injected(), 1);
    expect_debug_line("[unit] reg event failed: no memory.\n");
    EXPECT_EQ(nodes(), 0);
    EXPECT_FALSE(has(ctx().event_set, VLAN_EVENT_CREATE_INDEX));
    EXPECT_EQ(bridge_client_reg_event(&set, handler<1>), 0);
}

TEST_F(Handlers, registration_merges_the_sets_of_one_handler_into_one_node) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    listen({VLAN_EVENT_DESTROY_INDEX});
    EXPECT_EQ(nodes(), 1);
    EXPECT_TRUE(has(ctx().event_set, VLAN_EVENT_CREATE_INDEX));
    EXPECT_TRUE(has(ctx().event_set, VLAN_EVENT_DESTROY_INDEX));
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    bridge_call_event_handlers(VLAN_EVENT_DESTROY_INDEX, nullptr, 0);
    EXPECT_EQ(event_types(), (std::vector<uint32_t>{VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX}));
}

TEST_F(Handlers, registration_needs_no_memory_for_a_known_handler) {
    listen({VLAN_EVENT_CREATE_INDEX});
    test::faults::fail("calloc", 1, ENOMEM);
    listen({VLAN_EVENT_DESTROY_INDEX});
    EXPECT_EQ(test::faults::injected(), 0);
}

TEST_F(Handlers, registration_logs_the_handler) {
    listen({VLAN_EVENT_CREATE_INDEX});
    char text[100];
    std::snprintf(text, sizeof text, "[unit] event-reg add SUCC: handler [%p].\n",
                  reinterpret_cast<void *>(handler<1>));
    expect_debug_line(text);
}

TEST_F(Handlers, registration_keeps_the_union_of_all_sets) {
    listen({0, VLAN_EVENT_CREATE_INDEX});
    listen({VLAN_EVENT_CREATE_INDEX, 4095}, handler<2>);
    const event_set expected = set_of_types({0, VLAN_EVENT_CREATE_INDEX, 4095});
    EXPECT_EQ(test::bytes_of(ctx().event_set), test::bytes_of(expected));
}

TEST_F(Handlers, registration_on_a_connection_sends_the_added_set_alone) {
    listen({VLAN_EVENT_SYNC_DATA_BEGIN});
    connect();
    listen({VLAN_EVENT_CREATE_INDEX, 4095}, handler<2>);
    const auto messages = sent();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].type, BRIDGE_EVENT_REG_MSG);
    test::ByteVec expected(544);
    test::put_at(expected.data(), 12 * 4, uint32_t{1} << 3);   // 387
    test::put_at(expected.data(), 127 * 4, uint32_t{1} << 31); // 4095
    expected[512] = 1;
    EXPECT_EQ(messages[0].payload, expected);
}

TEST_F(Handlers, registration_succeeds_though_the_server_cannot_be_told) {
    connect();
    test::faults::fail("send", 1, EPIPE, 100);
    listen({VLAN_EVENT_CREATE_INDEX});
    EXPECT_TRUE(has(ctx().event_set, VLAN_EVENT_CREATE_INDEX));
}

TEST_F(Handlers, registration_and_withdrawal_without_a_connection_send_nothing) {
    connect();
    ctx().connected = 0;
    listen({VLAN_EVENT_CREATE_INDEX});
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    EXPECT_EQ(bridge_client_unreg_event(&set, handler<1>), 0);
    ctx().connected = 1;
    bridge_client_send_message(nullptr, 0, BRIDGE_EVENT_ORI_DATA_OVER); // flushes what waits
    EXPECT_EQ(sent(), (std::vector<test::Message>{{BRIDGE_EVENT_ORI_DATA_OVER, {}}}));
    EXPECT_FALSE(test::logged("Client send msg failed: Socket is not ready.\n"));
}

TEST_F(Handlers, full_registration_carries_set_pid_name_and_freshness) {
    listen({0, VLAN_EVENT_CREATE_INDEX});
    connect();
    ctx().fresh = 1;
    bri::client::send_full_registration();
    test::ByteVec expected(544);
    test::put_at(expected.data(), 0, uint32_t{1});
    test::put_at(expected.data(), 12 * 4, uint32_t{1} << 3);
    expected[512] = 1;
    test::put_at(expected.data(), 516, static_cast<uint32_t>(getpid()));
    std::memcpy(expected.data() + 520, "unit", 4);
    expected[540] = 1;
    EXPECT_EQ(sent(), (std::vector<test::Message>{{BRIDGE_EVENT_REG_MSG, expected}}));
    EXPECT_EQ(ctx().fresh, 0);
    expect_debug_line("[unit] send reg-evt SUCC, Client name(unit), pid(" + std::to_string(getpid()) + ").\n");

    bri::client::send_full_registration();
    expected[540] = 0;
    EXPECT_EQ(sent(), (std::vector<test::Message>{{BRIDGE_EVENT_REG_MSG, expected}}));
}

TEST_F(Handlers, full_registration_tells_when_it_cannot_be_sent) {
    ctx().connected = 0;
    bri::client::send_full_registration();
    expect_debug_line("[unit] send reg-evt failed: send msg error.\n");
    EXPECT_EQ(ctx().fresh, 0);
    without_context();
    bri::client::send_full_registration();
    expect_debug_line("Bridge client send reg-evt failed: client is not init.\n");
}

// Withdrawal ----------------------------------------------------------------------------------------------------------

TEST_F(Handlers, withdrawal_without_a_context_fails) {
    without_context();
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    EXPECT_EQ(bridge_client_unreg_event(&set, handler<1>), -1);
    expect_debug_line("Client unreg event failed: client is not ready.\n");
    EXPECT_TRUE(has(set, VLAN_EVENT_CREATE_INDEX));
}

TEST_F(Handlers, withdrawal_refuses_a_null_set_or_handler) {
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    EXPECT_EQ(bridge_client_unreg_event(nullptr, handler<1>), -1);
    EXPECT_EQ(bridge_client_unreg_event(&set, nullptr), -1);
    expect_debug_line("Client unreg event failed: invalid set or handler.\n", 2);
    EXPECT_TRUE(has(set, VLAN_EVENT_CREATE_INDEX));
}

TEST_F(Handlers, withdrawal_clears_the_types_and_keeps_the_node) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    EXPECT_EQ(bridge_client_unreg_event(&set, handler<1>), 0);
    expect_debug_line("[unit] event-unreg SUCC.\n");
    EXPECT_EQ(nodes(), 1);
    EXPECT_EQ(test::bytes_of(ctx().event_set), test::bytes_of(event_set{}));
    const event_set unchanged = set_of_types({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    EXPECT_EQ(test::bytes_of(set), test::bytes_of(unchanged));
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_TRUE(events().empty());
}

TEST_F(Handlers, withdrawal_takes_out_of_the_callers_set_what_another_handler_still_wants) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_RANGE});
    listen({VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_DESTROY_RANGE}, handler<2>);
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    EXPECT_EQ(bridge_client_unreg_event(&set, handler<1>), 0);
    const event_set remaining = set_of_types({VLAN_EVENT_CREATE_INDEX});
    EXPECT_EQ(test::bytes_of(set), test::bytes_of(remaining));
    const event_set wanted =
        set_of_types({VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_DESTROY_RANGE});
    EXPECT_EQ(test::bytes_of(ctx().event_set), test::bytes_of(wanted));
    bridge_call_event_handlers(VLAN_EVENT_DESTROY_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{2}));
}

TEST_F(Handlers, withdrawal_of_an_unknown_handler_takes_no_type_from_the_others) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DEFAULT_INTF});
    EXPECT_EQ(bridge_client_unreg_event(&set, handler<2>), 0);
    EXPECT_FALSE(has(set, VLAN_EVENT_CREATE_INDEX));
    EXPECT_TRUE(has(set, VLAN_EVENT_DEFAULT_INTF));
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{1}));
}

TEST_F(Handlers, withdrawal_on_a_connection_sends_only_what_no_handler_wants) {
    listen({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX});
    listen({VLAN_EVENT_DESTROY_INDEX}, handler<2>);
    connect();
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_DEFAULT_INTF});
    EXPECT_EQ(bridge_client_unreg_event(&set, handler<1>), 0);
    test::ByteVec expected(544);
    test::put_at(expected.data(), 12 * 4, uint32_t{1} << 3 | uint32_t{1} << 16); // 387, 400
    EXPECT_EQ(sent(), (std::vector<test::Message>{{BRIDGE_EVENT_REG_MSG, expected}}));
    EXPECT_TRUE(has(ctx().event_set, VLAN_EVENT_DESTROY_INDEX));
}

TEST_F(Handlers, withdrawal_is_sent_though_nothing_remains_of_it) {
    listen({VLAN_EVENT_DESTROY_INDEX});
    listen({VLAN_EVENT_DESTROY_INDEX}, handler<2>);
    connect();
    event_set set = set_of_types({VLAN_EVENT_DESTROY_INDEX});
    EXPECT_EQ(bridge_client_unreg_event(&set, handler<1>), 0);
    EXPECT_EQ(sent(), (std::vector<test::Message>{{BRIDGE_EVENT_REG_MSG, test::ByteVec(544)}}));
}

TEST_F(Handlers, a_withdrawn_type_can_be_registered_again) {
    backup_ended();
    listen({VLAN_EVENT_CREATE_INDEX});
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    bridge_client_unreg_event(&set, handler<1>);
    listen({VLAN_EVENT_CREATE_INDEX});
    EXPECT_EQ(nodes(), 1);
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_EQ(handlers_called(), (Order{1}));
}

TEST_F(Handlers, log_nothing_while_message_debugging_is_off) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    listen({VLAN_EVENT_CREATE_INDEX});
    bridge_client_reg_event(nullptr, nullptr);
    bridge_call_event_handlers(VLAN_EVENT_DESTROY_INDEX, nullptr, 0);
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    backup_ended();
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    event_set set = set_of_types({VLAN_EVENT_CREATE_INDEX});
    bridge_client_unreg_event(&set, handler<1>);
    bridge_client_unreg_event(nullptr, nullptr);
    test::faults::fail("calloc", 1, ENOMEM);
    bridge_client_reg_event(&set, handler<2>);
    without_context();
    bridge_client_reg_event(nullptr, nullptr);
    bridge_client_unreg_event(nullptr, nullptr);
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, nullptr, 0);
    EXPECT_TRUE(test::log_lines().empty());
    EXPECT_EQ(events().size(), 1U);
}

} // namespace
