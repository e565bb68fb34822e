#include "tests/l2/fixture.h"

namespace {

using namespace test;

class MacRequest : public L2Host {
  protected:
    MacRequest() {
        debug_on({BRI_DBG_MAC});
        plug(7);
    }
    void expect_sent(uint32_t type, const ByteVec &payload) {
        EXPECT_EQ(sent(), (std::vector<Message>{{type, payload}}));
    }
};

// The same with the kernel's double and the channel up.
class MacKernelRequest : public MacRequest {
  protected:
    MacKernelRequest() { EXPECT_EQ(bridge_lib_nlclient_init(&ctx()), 1); }
    ~MacKernelRequest() override { bridge_lib_nlclient_deinit(&ctx()); }

    Kernel kernel;
};

// --- initialisation

TEST_F(MacRequest, init_copies_the_name_and_gives_the_copy) {
    bri_clnt_ctx other{};
    std::strcpy(other.name, "abc");
    std::memset(g_bglib_client_name_mac, 'x', sizeof g_bglib_client_name_mac);
    EXPECT_EQ(mac_client_init(&other), g_bglib_client_name_mac);
    EXPECT_EQ(std::string(g_bglib_client_name_mac, 20), std::string("abc") + std::string(17, '\0'));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MacRequest, init_terminates_a_name_that_fills_its_field) {
    bri_clnt_ctx other{};
    std::memset(other.name, 'n', sizeof other.name);
    mac_client_init(&other);
    EXPECT_EQ(std::string(g_bglib_client_name_mac), std::string(19, 'n'));
}

TEST_F(MacRequest, init_without_a_client_gives_null) {
    EXPECT_EQ(mac_client_init(nullptr), nullptr);
    expect_only_mac_line("Bridge lib mac init failed: client is not ready.\n");
    EXPECT_STREQ(g_bglib_client_name_mac, "unit");
}

// --- VLAN map

TEST_F(MacRequest, vlanmap_delete_on_all_ports_and_on_one) {
    vlanset map{};
    for (unsigned word = 0; word < 128; ++word)
        map.words[word] = 0x01020304 * word;
    Bytes expected(520);
    expected.put(0, uint8_t{1});
    for (unsigned word = 0; word < 128; ++word)
        expected.put(8 + 4 * word, map.words[word]);
    EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(&map, 0, 1), 0);
    expect_only_mac_line("(unit), del dyn addr on vlanmap, ifx(0), force_flush(true).\n");
    expect_sent(MAC_EVENT_DEL_DYN_ON_VLANMAP, expected);
    clear_log();
    EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(&map, 3, 0), 0);
    expect_only_mac_line("(unit), del dyn addr on vlanmap, ifx(3), force_flush(false).\n");
    expect_sent(MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, expected.put(0, uint8_t{0}).put(4, uint32_t{3}));
}

TEST_F(MacRequest, any_force_is_sent_as_1) {
    const vlanset map{};
    for (const uint8_t force : {uint8_t{1}, uint8_t{2}, uint8_t{255}}) {
        EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(&map, 0, force), 0);
        const std::vector<Message> messages = sent();
        ASSERT_EQ(messages.size(), 1U);
        EXPECT_EQ(messages[0].payload[0], 1);
    }
}

TEST_F(MacRequest, vlanmap_delete_without_a_map_is_refused) {
    EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(nullptr, 3, 1), -1);
    expect_only_mac_line("(unit), invalid vlanmap.\n");
    EXPECT_TRUE(sent().empty());
}

// --- learning

TEST_F(MacRequest, learning_is_the_low_8_bits) {
    const struct {
        uint32_t learn;
        uint8_t disable;
        const char *oper;
    } rows[] = {{0, 1, "CLOSE"},    {1, 0, "OPEN"},           {0x100, 1, "CLOSE"},
                {0x101, 0, "OPEN"}, {0xFFFFFF00, 1, "CLOSE"}, {0x80, 0, "OPEN"}};
    for (const auto &row : rows) {
        clear_log();
        EXPECT_EQ(bridge_maddr_set_intf_learn(7, row.learn), 0);
        expect_only_mac_line(std::string("(unit), send BRIDGE_SET_INTF_MAC_LEARN msg success, ifx(7), oper(") +
                             row.oper + ").\n");
        expect_sent(MAC_EVENT_INTF_LEARN, Bytes(8).put(0, uint32_t{7}).put(4, row.disable));
    }
}

TEST_F(MacRequest, learning_of_an_absent_port_is_refused) {
    for (const uint32_t ifx : {0U, 8U, 64U, 0xFFFFFFFFU}) {
        clear_log();
        EXPECT_EQ(bridge_maddr_set_intf_learn(ifx, 1), -1);
        expect_only_mac_line("(unit), invalid ifx.\n");
    }
    EXPECT_TRUE(sent().empty());
}

// --- ageing, budget

TEST_F(MacRequest, ageing_range) {
    EXPECT_EQ(bridge_maddr_set_dyn_life_range(10, 0xFFFFFFFF, 3), 0);
    expect_only_mac_line("(unit), send MAC_EVENT_SET_AGETIME_RANGE msg success, min(10), max(4294967295), step(3).\n");
    expect_sent(MAC_EVENT_SET_AGETIME_RANGE, Bytes(12).put(0, uint32_t{10}).put(4, 0xFFFFFFFFU).put(8, uint32_t{3}));
}

TEST_F(MacRequest, available_addresses_without_the_total_in_the_line) {
    EXPECT_EQ(bridge_maddr_set_available_mac(1, 2, 3), 0);
    expect_only_mac_line("(unit), send MAC_EVENT_SET_AVAILABLE_MAC msg success, static(1), filter(2), total.\n");
    expect_sent(MAC_EVENT_SET_AVAILABLE_MAC, Bytes(12).put(0, uint32_t{1}).put(4, uint32_t{2}).put(8, uint32_t{3}));
}

// --- checks and root-bridge mode: the line comes first, whatever the send does

TEST_F(MacRequest, table_checks_pass_their_word_through) {
    EXPECT_EQ(bridge_maddr_nondyn_check_begin(0xFFFFFFFF), 0);
    expect_only_mac_line("(unit), send MAC_EVENT_NONDYN_CHECK_BEGIN, type(-1).\n");
    expect_sent(MAC_EVENT_NONDYN_CHECK_BEGIN, Bytes(4).put(0, 0xFFFFFFFFU));
    clear_log();
    EXPECT_EQ(bridge_maddr_nondyn_check_end(258), 0);
    expect_only_mac_line("(unit), send MAC_EVENT_NONDYN_CHECK_END, type(258).\n");
    expect_sent(278, Bytes(4).put(0, uint32_t{258}));
}

TEST_F(MacRequest, root_bridge_mode_passes_its_byte_through) {
    for (const uint8_t enable : {uint8_t{0}, uint8_t{1}, uint8_t{77}}) {
        clear_log();
        EXPECT_EQ(bridge_maddr_set_root_bridge_mode(enable), 0);
        expect_only_mac_line(std::string("(unit), send MAC_EVENT_SET_ROOT_BRIDGE_MODE, enable(") +
                             (enable != 0 ? "true" : "false") + ").\n");
        expect_sent(MAC_EVENT_SET_ROOT_BRIDGE_MODE, {enable});
    }
}

TEST_F(MacRequest, failed_sends_are_told_and_give_minus_1) {
    disconnect();
    const vlanset map{};
    EXPECT_EQ(bridge_maddr_set_intf_learn(7, 1), -1);
    expect_mac_line("(unit), send BRIDGE_SET_INTF_MAC_LEARN msg failed.\n");
    EXPECT_EQ(bridge_maddr_set_dyn_life_range(1, 2, 3), -1);
    expect_mac_line("(unit), send MAC_EVENT_SET_AGETIME_RANGE msg failed.\n");
    EXPECT_EQ(bridge_maddr_set_available_mac(1, 2, 3), -1);
    expect_mac_line("(unit), send MAC_EVENT_SET_AVAILABLE_MAC msg failed.\n");
    EXPECT_EQ(log_lines().size(), 3U);
    clear_log();
    EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(&map, 0, 0), -1);
    EXPECT_EQ(bridge_maddr_nondyn_check_begin(1), -1);
    EXPECT_EQ(bridge_maddr_nondyn_check_end(1), -1);
    EXPECT_EQ(bridge_maddr_set_root_bridge_mode(1), -1);
    EXPECT_EQ(log_text(), "(unit), del dyn addr on vlanmap, ifx(0), force_flush(false).\n"
                          "(unit), send MAC_EVENT_NONDYN_CHECK_BEGIN, type(1).\n"
                          "(unit), send MAC_EVENT_NONDYN_CHECK_END, type(1).\n"
                          "(unit), send MAC_EVENT_SET_ROOT_BRIDGE_MODE, enable(true).\n");
}

// The transport's own line shows when the send was tried.
TEST_F(MacRequest, lines_come_before_the_send_or_tell_its_outcome) {
    debug_on({BRI_DBG_MSG});
    disconnect();
    const vlanset map{};
    const std::string not_sent = "Client send msg failed: Socket is not ready.\n";
    const struct {
        int result;
        std::string before;
        std::string after;
    } rows[] = {
        {bridge_maddr_add_static(kMac.data(), 10, 7),
         "(unit), add static addr, field(15), mac(00d0.f812.34ab), bcast_id(10), ifx(7).\n", ""},
        {bridge_maddr_rollback(2, kMac.data(), 10, 0),
         "(unit), rollback static addr, field(9), mac(00d0.f812.34ab), bcast_id(10), ifx(0).\n", ""},
        {bridge_maddr_del_dyn_on_vlanmap(&map, 0, 0), "(unit), del dyn addr on vlanmap, ifx(0), force_flush(false).\n",
         ""},
        {bridge_maddr_nondyn_check_begin(1), "(unit), send MAC_EVENT_NONDYN_CHECK_BEGIN, type(1).\n", ""},
        {bridge_maddr_nondyn_check_end(1), "(unit), send MAC_EVENT_NONDYN_CHECK_END, type(1).\n", ""},
        {bridge_maddr_set_root_bridge_mode(0), "(unit), send MAC_EVENT_SET_ROOT_BRIDGE_MODE, enable(false).\n", ""},
        {bridge_maddr_set_intf_learn(7, 1), "", "(unit), send BRIDGE_SET_INTF_MAC_LEARN msg failed.\n"},
        {bridge_maddr_set_dyn_life_range(1, 2, 3), "", "(unit), send MAC_EVENT_SET_AGETIME_RANGE msg failed.\n"},
        {bridge_maddr_set_available_mac(1, 2, 3), "", "(unit), send MAC_EVENT_SET_AVAILABLE_MAC msg failed.\n"},
    };
    std::string expected;
    for (const auto &row : rows) {
        EXPECT_EQ(row.result, -1);
        expected += row.before + not_sent + row.after;
    }
    EXPECT_EQ(log_text(), expected);
}

// --- one-way messages to the kernel

TEST_F(MacKernelRequest, check_begin_and_end_carry_no_data) {
    EXPECT_EQ(bridge_maddr_dynmac_check_begin(), 0);
    expect_only_mac_line("(unit), send MAC_EVENT_DYN_CHECK_BEGIN to kernel success.\n");
    clear_log();
    EXPECT_EQ(bridge_maddr_dynmac_check_end(), 0);
    expect_only_mac_line("(unit), send MAC_EVENT_DYN_CHECK_END to kernel success.\n");
    const std::vector<KernelRequest> requests = kernel.data_requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].type(), MAC_EVENT_DYN_CHECK_BEGIN);
    EXPECT_EQ(requests[0].data_length(), 0U);
    EXPECT_EQ(requests[1].type(), MAC_EVENT_DYN_CHECK_END);
    EXPECT_EQ(requests[1].data_length(), 0U);
    EXPECT_TRUE(sent().empty());
}

TEST_F(MacKernelRequest, notify_sends_the_records_as_they_stand) {
    std::vector<bri_mac_msg> records(204);
    for (size_t byte = 0; byte < records.size() * 40; ++byte)
        reinterpret_cast<uint8_t *>(records.data())[byte] = static_cast<uint8_t>(byte * 7);
    for (const uint32_t count : {0U, 1U, 2U, 204U}) {
        clear_log();
        EXPECT_EQ(bridge_maddr_notify(records.data(), count), 0) << count;
        expect_only_mac_line("(unit), send nlmsg to kernel success : msg_num(" + std::to_string(count) + "), msg_len(" +
                             std::to_string(count * 40) + ").\n");
        const KernelRequest &request = kernel.requests.back();
        EXPECT_EQ(request.type(), MAC_EVENT_SS_NOTIFY_ADDR);
        ASSERT_EQ(request.data_length(), count * 40);
        if (count != 0) {
            EXPECT_EQ(std::memcmp(request.data().data(), records.data(), count * size_t{40}), 0);
        }
    }
}

TEST_F(MacKernelRequest, notify_refuses_more_than_204_records) {
    const std::vector<bri_mac_msg> records(205);
    const struct {
        uint32_t count;
        const char *length;
    } rows[] = {{205, "8200"}, {0x06666667, "2147483647"}, {0x66666667, "2147483647"}, {0xFFFFFFFF, "2147483647"}};
    char pointer[32];
    std::snprintf(pointer, sizeof pointer, "%p", static_cast<const void *>(records.data()));
    for (const auto &row : rows) {
        clear_log();
        EXPECT_EQ(bridge_maddr_notify(records.data(), row.count), -1);
        expect_only_mac_line(std::string("(unit), param invalid in bridge_maddr_notify, msgp(") + pointer +
                             "), msg_len(" + row.length + ").\n");
    }
    EXPECT_TRUE(kernel.data_requests().empty());
}

TEST_F(MacKernelRequest, notify_without_records_is_refused) {
    EXPECT_EQ(bridge_maddr_notify(nullptr, 2), -1);
    char line[120];
    std::snprintf(line, sizeof line, "(unit), param invalid in bridge_maddr_notify, msgp(%p), msg_len(80).\n",
                  static_cast<void *>(nullptr));
    expect_only_mac_line(line);
}

TEST_F(MacKernelRequest, failed_sends_to_the_kernel_are_told_and_give_minus_1) {
    bridge_lib_nlclient_deinit(&ctx());
    const bri_mac_msg record{};
    EXPECT_EQ(bridge_maddr_dynmac_check_begin(), -1);
    EXPECT_EQ(bridge_maddr_dynmac_check_end(), -1);
    EXPECT_EQ(bridge_maddr_notify(&record, 1), -1);
    EXPECT_EQ(log_text(), "(unit), send MAC_EVENT_DYN_CHECK_BEGIN to kernel failed.\n"
                          "(unit), send MAC_EVENT_DYN_CHECK_END to kernel failed.\n"
                          "(unit), send nlmsg to kernel failed.\n");
}

// --- total

TEST_F(MacRequest, available_total_is_read_locally) {
    uint32_t total = 0;
    EXPECT_EQ(bridge_maddr_get_available_total(&total), 0);
    EXPECT_EQ(total, 1024U);
    expect_only_mac_line("(unit), get avail total SUCC, 1024.\n");
    clear_log();
    EXPECT_EQ(bridge_maddr_get_available_total(nullptr), -1);
    expect_only_mac_line("(unit), invalid total_num.\n");
    EXPECT_TRUE(sent().empty());
}

// --- the gate

// All of this room's lines that are about no entry: a filter that matches nothing lets them pass.
TEST_F(MacKernelRequest, the_filter_passes_what_is_about_no_entry) {
    g_bglib_mac_filter.vid = 4000;
    g_bglib_mac_filter.ifx = 60;
    const vlanset map{};
    const bri_mac_msg record{};
    uint32_t total = 0;
    bridge_maddr_del_dyn_on_vlanmap(&map, 7, 0);
    bridge_maddr_set_intf_learn(7, 1);
    bridge_maddr_set_dyn_life_range(1, 2, 3);
    bridge_maddr_set_available_mac(1, 2, 3);
    bridge_maddr_nondyn_check_begin(1);
    bridge_maddr_nondyn_check_end(1);
    bridge_maddr_set_root_bridge_mode(1);
    bridge_maddr_dynmac_check_begin();
    bridge_maddr_dynmac_check_end();
    bridge_maddr_notify(nullptr, 0);
    bridge_maddr_notify(&record, 1);
    bridge_maddr_get_available_total(&total);
    EXPECT_EQ(log_lines().size(), 12U);
}

TEST_F(MacKernelRequest, the_filter_passes_refusals_and_failures) {
    g_bglib_mac_filter.vid = 4000;
    g_bglib_mac_filter.ifx = 60;
    const bri_mac_msg record{};
    mac_client_init(nullptr);
    bridge_maddr_del_dyn_on_vlanmap(nullptr, 7, 0);
    bridge_maddr_set_intf_learn(8, 1);
    bridge_maddr_get_available_total(nullptr);
    mac_client_set_available_total(1024);
    EXPECT_EQ(log_lines().size(), 5U);
    clear_log();
    disconnect();
    bridge_lib_nlclient_deinit(&ctx());
    bridge_maddr_set_intf_learn(7, 1);
    bridge_maddr_set_dyn_life_range(1, 2, 3);
    bridge_maddr_set_available_mac(1, 2, 3);
    bridge_maddr_dynmac_check_begin();
    bridge_maddr_dynmac_check_end();
    bridge_maddr_notify(&record, 1);
    EXPECT_EQ(log_lines().size(), 6U);
}

TEST_F(MacKernelRequest, without_the_flag_nothing_is_written) {
    g_bri_clnt_dbg[BRI_DBG_MAC] = 0;
    const vlanset map{};
    uint32_t total = 0;
    for (int round = 0; round < 2; ++round) {
        mac_client_init(nullptr);
        bridge_maddr_del_dyn_on_vlanmap(&map, 7, 0);
        bridge_maddr_del_dyn_on_vlanmap(nullptr, 7, 0);
        bridge_maddr_set_intf_learn(7, 1);
        bridge_maddr_set_intf_learn(0, 1);
        bridge_maddr_set_dyn_life_range(1, 2, 3);
        bridge_maddr_set_available_mac(1, 2, 3);
        bridge_maddr_nondyn_check_begin(1);
        bridge_maddr_nondyn_check_end(1);
        bridge_maddr_set_root_bridge_mode(1);
        bridge_maddr_dynmac_check_begin();
        bridge_maddr_dynmac_check_end();
        bridge_maddr_notify(nullptr, 0);
        bridge_maddr_get_available_total(&total);
        bridge_maddr_get_available_total(nullptr);
        disconnect(); // the second round fails
        bridge_lib_nlclient_deinit(&ctx());
    }
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MacRequest, before_any_start_every_call_fails_with_its_error_value) {
    g_bridge_client = nullptr;
    const vlanset map{};
    EXPECT_EQ(bridge_maddr_del_dyn(nullptr, 0, 0), -1);
    EXPECT_EQ(bridge_maddr_del_dyn_on_vlanmap(&map, 7, 0), -1);
    EXPECT_EQ(bridge_maddr_set_intf_learn(7, 1), -1);
    EXPECT_EQ(bridge_maddr_set_dyn_life_range(1, 2, 3), -1);
    EXPECT_EQ(bridge_maddr_nondyn_check_begin(1), -1);
    EXPECT_EQ(bridge_maddr_dynmac_check_begin(), -1);
}

} // namespace
