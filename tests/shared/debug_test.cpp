#include "client/state.h"
#include "tests/support/test.h"

#include <algorithm>

namespace {

using namespace test;

constexpr int kPid = 4321;

// A client record as initialisation hands it over, without a server.
class debug_switches : public Env {
  protected:
    debug_switches() {
        std::strcpy(client.name, "stp");
        client.pid = kPid;
        client.master = Loop::get().master();
        bri_clnt_debug_init(&client);
    }

    // One message whose payload is two words.
    static void send(uint32_t type, uint32_t value, uint32_t len = 8) {
        uint8_t message[16] = {};
        put_at(message, 0, type);
        put_at(message, 4, len);
        put_at(message, 8, uint32_t{0xFFFFFFFF});
        put_at(message, 12, value);
        bri_clnt_on_debug_msg(reinterpret_cast<bri_msg_hdr *>(message));
    }

    static void expect_change_line(const std::string &text) {
        const LogLine line = log_line(text);
        EXPECT_EQ(line.category(), kClientLine) << text << " is missing";
    }
    static void expect_print(const std::vector<std::string> &texts) {
        ASSERT_EQ(log_lines().size(), texts.size());
        for (size_t index = 0; index < texts.size(); ++index) {
            const LogLine &line = log_lines()[index];
            EXPECT_EQ(line.text, texts[index]);
            EXPECT_EQ(line.category(), kShownLine);
        }
    }

    bri_clnt_ctx client{};
};

struct Switch {
    uint32_t type;
    int flag;
    const char *word;
};
constexpr Switch kSwitches[] = {{DEBUG_EVENT_VLAN, BRI_DBG_VLAN, "vlan"},
                                {DEBUG_EVENT_QINQ, BRI_DBG_QINQ, "qinq"},
                                {DEBUG_EVENT_VMAP, BRI_DBG_VMAP, "vmap"},
                                {DEBUG_EVENT_PVLAN, BRI_DBG_PVLAN, "pvlan"}};

TEST_F(debug_switches, each_switch_sets_its_flag_to_one_or_zero) {
    for (const Switch &row : kSwitches) {
        for (const uint32_t value : {5U, 0U, 0x80000000U, 0U}) {
            send(row.type, value);
            for (int flag = 0; flag < BRI_DBG_FLAGS; ++flag)
                EXPECT_EQ(g_bri_clnt_dbg[flag], flag == row.flag && value != 0 ? 1 : 0) << row.word << " " << flag;
        }
    }
    EXPECT_TRUE(log_lines().empty()); // BRI_DBG_MSG is off
}

TEST_F(debug_switches, a_change_is_logged_while_messages_are_switched_on) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
    for (const Switch &row : kSwitches) {
        send(row.type, 1);
        expect_change_line("Client(stp) " + std::string(row.word) + "-debug is ON.\n");
        send(row.type, 0);
        expect_change_line("Client(stp) " + std::string(row.word) + "-debug is OFF.\n");
    }
    EXPECT_EQ(log_lines().size(), 8U);
}

TEST_F(debug_switches, message_debugging_is_announced_only_when_it_is_switched_on) {
    send(DEBUG_EVENT_MSG, 2);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_MSG], 1);
    expect_change_line("Client(stp) msg-debug is ON.\n");
    send(DEBUG_EVENT_MSG, 0);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_MSG], 0);
    EXPECT_EQ(log_lines().size(), 1U);
}

TEST_F(debug_switches, the_mac_filter_is_copied_whole_from_an_unaligned_message) {
    alignas(4) uint8_t bytes[40] = {};
    uint8_t *message = bytes + 1;
    put_at(message, 0, uint32_t{DEBUG_EVENT_MAC});
    put_at(message, 4, uint32_t{24});
    for (size_t index = 0; index < 24; ++index)
        message[8 + index] = static_cast<uint8_t>(0x30 + index);
    g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
    bri_clnt_on_debug_msg(reinterpret_cast<bri_msg_hdr *>(message));
    EXPECT_EQ(std::memcmp(&g_bglib_mac_filter, message + 8, 24), 0);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_MAC], 0x30);
    const auto vid = value_at<uint16_t>(message, 8 + 2);
    const auto ifx = value_at<uint32_t>(message, 8 + 20);
    expect_change_line("Client(stp) mac-debug is ON, filter section: mac(3a3b.3c3d.3e3f), vid(" + std::to_string(vid) +
                       "), ifx(" + std::to_string(ifx) + ").\n");
}

TEST_F(debug_switches, the_mac_filter_with_enable_zero_switches_mac_debugging_off) {
    uint8_t message[32] = {};
    put_at(message, 0, uint32_t{DEBUG_EVENT_MAC});
    put_at(message, 4, uint32_t{24});
    debug_on({BRI_DBG_MAC});
    bri_clnt_on_debug_msg(reinterpret_cast<bri_msg_hdr *>(message));
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_MAC], 0);
    EXPECT_TRUE(log_lines().empty()); // BRI_DBG_MSG is off
    debug_on({BRI_DBG_MAC, BRI_DBG_MSG});
    bri_clnt_on_debug_msg(reinterpret_cast<bri_msg_hdr *>(message));
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_MAC], 0);
    expect_change_line("Client(stp) mac-debug is OFF, filter section: mac(0000.0000.0000), vid(0), ifx(0).\n");
}

TEST_F(debug_switches, a_payload_too_short_for_its_code_changes_nothing) {
    for (const uint32_t type : {DEBUG_EVENT_VLAN, DEBUG_EVENT_MSG, DEBUG_EVENT_QINQ, DEBUG_EVENT_VMAP,
                                DEBUG_EVENT_MSG_DELAY, DEBUG_EVENT_PVLAN})
        send(type, 1, 7);
    send(DEBUG_EVENT_MAC, 1, 7);
    for (int flag = 0; flag < BRI_DBG_FLAGS; ++flag)
        EXPECT_EQ(g_bri_clnt_dbg[flag], 0) << flag;
    EXPECT_TRUE(Loop::get().pending.empty());
    EXPECT_TRUE(log_lines().empty());
    g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
    send(DEBUG_EVENT_VLAN, 1, 0);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 0);
    EXPECT_EQ(log_lines().size(), 1U);
    expect_change_line("[stp] debug-msg[881] is too short, len[0], discarded.\n");
}

TEST_F(debug_switches, a_mac_filter_of_23_bytes_is_dropped) {
    uint8_t message[31] = {};
    put_at(message, 0, uint32_t{DEBUG_EVENT_MAC});
    put_at(message, 4, uint32_t{23});
    message[8] = 1;
    bri_clnt_on_debug_msg(reinterpret_cast<bri_msg_hdr *>(message));
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_MAC], 0);
    EXPECT_EQ(g_bglib_mac_filter.enable, 0);
}

TEST_F(debug_switches, other_codes_do_nothing) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 1;
    const ByteVec before(g_bri_clnt_dbg, g_bri_clnt_dbg + BRI_DBG_FLAGS);
    const std::vector<uint32_t> used{DEBUG_EVENT_VLAN,       DEBUG_EVENT_MAC,
                                     DEBUG_EVENT_MSG,        DEBUG_EVENT_QINQ,
                                     DEBUG_EVENT_VMAP,       DEBUG_EVENT_MSG_DELAY,
                                     DEBUG_EVENT_PVLAN,      DEBUG_EVENT_SHOW_FLAGS,
                                     DEBUG_EVENT_SHOW_VLAN,  DEBUG_EVENT_SHOW_MAC_STATISTIC,
                                     DEBUG_EVENT_SHOW_CACHE, DEBUG_EVENT_SHOW_SWPORT,
                                     DEBUG_EVENT_SHOW_DELAY};
    for (uint32_t type = 0x860; type < 0x8B0; ++type)
        if (std::count(used.begin(), used.end(), type) == 0)
            send(type, 1);
    EXPECT_EQ(ByteVec(g_bri_clnt_dbg, g_bri_clnt_dbg + BRI_DBG_FLAGS), before);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(debug_switches, show_flags_names_the_flags_that_are_on) {
    send(DEBUG_EVENT_SHOW_FLAGS, 0, 0);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN, BRI_DBG_MAC, BRI_DBG_MSG, BRI_DBG_QINQ, BRI_DBG_VMAP, BRI_DBG_PVLAN});
    send(DEBUG_EVENT_SHOW_FLAGS, 0, 0);
    expect_print({"  bridge client pid 4321 vlan debugging is on\n", "  bridge client pid 4321 mac debugging is on\n",
                  "  bridge client pid 4321 msg debugging is on\n"});
}

TEST_F(debug_switches, show_delay_prints_the_interval_and_the_number_waiting) {
    send(DEBUG_EVENT_SHOW_DELAY, 0, 0);
    expect_print({" Bridge client pid 4321 event-delay is not set.\n"});
    clear_log();
    send(DEBUG_EVENT_MSG_DELAY, 9);
    g_bri_msg_delay_num = 3;
    send(DEBUG_EVENT_SHOW_DELAY, 0, 0);
    expect_print({" Bridge client[pid 4321] event-delay timer: 9 second.\n", " Delay-event number: 3.\n"});
    g_bri_msg_delay_num = 0;
    clear_log();
    send(DEBUG_EVENT_MSG_DELAY, 0xFFFFFFFF); // off, but set
    send(DEBUG_EVENT_SHOW_DELAY, 0, 0);
    expect_print({" Bridge client[pid 4321] event-delay timer: -1 second.\n", " Delay-event number: 0.\n"});
}

TEST_F(debug_switches, show_cache_prints_the_counters_of_the_client_record) {
    client.cache_cnt = 7;
    client.cache_max = 0xFFFFFFFE;
    client.cache_drop = 0xFFFFFFFF;
    send(DEBUG_EVENT_SHOW_CACHE, 0, 0);
    expect_print({" Bridge client[pid 4321] cache-msg-flush timer: 50000 usecs\n", " Cache-msg number: 7\n",
                  " Cache-msg limit: 4294967294\n", " Cache-msg drop: 4294967295\n", " Notify-data-sync-end: NO\n"});
    client.data_synced = 1;
    clear_log();
    send(DEBUG_EVENT_SHOW_CACHE, 0, 0);
    EXPECT_EQ(log_lines().back().text, " Notify-data-sync-end: YES\n");
}

TEST_F(debug_switches, show_codes_call_the_other_prints) {
    send(DEBUG_EVENT_SHOW_VLAN, 0, 0);
    EXPECT_NE(log_text().find("VLAN Name       Version"), std::string::npos);
    clear_log();
    send(DEBUG_EVENT_SHOW_MAC_STATISTIC, 0, 0);
    EXPECT_NE(log_text().find("MAC CLIENT ADDR COUNT"), std::string::npos);
    clear_log();
    send(DEBUG_EVENT_SHOW_SWPORT, 0, 0);
    EXPECT_NE(log_text().find("Interface  Mode      Pvid VLAN lists"), std::string::npos);
}

TEST_F(debug_switches, all_sets_the_listed_flags_and_keeps_the_delay) {
    send(DEBUG_EVENT_MSG_DELAY, 0x01020304);
    bri_clnt_debug_all();
    const std::vector<int> set{0, 1, 2, 3, 4, 7, 11, 13, 15, 16, 17, 24, 25};
    for (int flag = 0; flag < BRI_DBG_FLAGS; ++flag) {
        if (flag >= 20 && flag <= 23)
            continue;
        EXPECT_EQ(g_bri_clnt_dbg[flag], std::count(set.begin(), set.end(), flag)) << flag;
    }
    EXPECT_EQ(value_at<uint32_t>(g_bri_clnt_dbg, BRI_DBG_DELAY), 0x01020304U);
}

TEST_F(debug_switches, initialisation_clears_every_byte) {
    std::memset(g_bri_clnt_dbg, 0xFF, BRI_DBG_FLAGS);
    bri_clnt_debug_init(&client);
    for (int flag = 0; flag < BRI_DBG_FLAGS; ++flag)
        EXPECT_EQ(g_bri_clnt_dbg[flag], 0) << flag;
}

TEST_F(debug_switches, a_null_client_initialises_nothing) {
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 1;
    bri_clnt_debug_init(nullptr);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 1);
    send(DEBUG_EVENT_VLAN, 0); // the earlier client still stands
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 0);
}

TEST_F(debug_switches, the_marker_file_of_the_client_switches_everything_on) {
    faults::redirect("/data/bridge_client_stp", write_file("marker", ""));
    bri_clnt_debug_init(&client);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 1);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_PVLAN], 1);
    std::strcpy(client.name, "other");
    bri_clnt_debug_init(&client);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 0);
}

TEST_F(debug_switches, a_marker_path_is_cut_to_63_characters) {
    const std::string name(100, 'n');
    faults::redirect(("/data/bridge_client_" + name).substr(0, 63), write_file("marker", ""));
    bri_clnt_debug_name_parse(name.c_str());
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 1);
}

TEST_F(debug_switches, no_name_has_no_marker_file) {
    bri_clnt_debug_name_parse(nullptr);
    EXPECT_EQ(faults::calls("access"), 1); // that of the fixture's client
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 0);
}

TEST_F(debug_switches, initialisation_keeps_the_mac_filter) {
    g_bglib_mac_filter.vid = 12;
    bri_clnt_debug_init(&client);
    EXPECT_EQ(g_bglib_mac_filter.vid, 12);
}

TEST_F(debug_switches, a_start_that_fails_before_it_has_a_client_leaves_the_earlier_one) {
    faults::fail("calloc", 1, ENOMEM);
    ASSERT_EQ(bridge_agent_init("stp", Loop::get().master()), -1);
    send(DEBUG_EVENT_VLAN, 1);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 1);
}

class debug_before_init : public Env {};

TEST_F(debug_before_init, messages_do_nothing) {
    uint32_t message[4] = {DEBUG_EVENT_VLAN, 8, 0, 1};
    bri_clnt_on_debug_msg(reinterpret_cast<bri_msg_hdr *>(message));
    bri_clnt_on_debug_msg(nullptr);
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 0);
}

TEST_F(debug_before_init, messages_do_nothing_after_a_start_that_failed) {
    faults::fail("socket", 1, EMFILE);
    ASSERT_EQ(bridge_agent_init("stp", Loop::get().master()), -1);
    uint32_t message[4] = {DEBUG_EVENT_VLAN, 8, 0, 1};
    bri_clnt_on_debug_msg(reinterpret_cast<bri_msg_hdr *>(message));
    EXPECT_EQ(g_bri_clnt_dbg[BRI_DBG_VLAN], 0);
}

class mac_filter : public Env {
  protected:
    static bri_mac_entry entry() {
        bri_mac_entry made{};
        made.bcast_id = 10;
        made.ifx = 7;
        std::memcpy(made.mac, "\x02\x00\x00\x00\x00\x01", 6);
        return made;
    }
};

TEST_F(mac_filter, an_empty_filter_passes_everything) {
    const bri_mac_entry made = entry();
    EXPECT_EQ(bri_clnt_match_mac_dbg_filter(&made), 1);
    EXPECT_EQ(bri_clnt_match_mac_dbg_filter(nullptr), 1);
}

TEST_F(mac_filter, any_byte_of_the_address_makes_it_a_set_field) {
    const bri_mac_entry made = entry();
    for (uint8_t &byte : g_bglib_mac_filter.mac) {
        byte = 0x55;
        EXPECT_EQ(bri_clnt_match_mac_dbg_filter(&made), 0);
        byte = 0;
    }
    g_bglib_mac_filter.reserved1 = 0xFF;
    std::memset(g_bglib_mac_filter.reserved2, 0xFF, sizeof g_bglib_mac_filter.reserved2);
    std::memset(g_bglib_mac_filter.reserved3, 0xFF, sizeof g_bglib_mac_filter.reserved3);
    EXPECT_EQ(bri_clnt_match_mac_dbg_filter(&made), 1); // bytes beside the fields mean nothing
}

TEST_F(mac_filter, the_enable_byte_does_not_decide_what_passes) {
    const bri_mac_entry made = entry();
    for (const uint8_t enable : {uint8_t{0}, uint8_t{1}}) {
        g_bglib_mac_filter.enable = enable;
        EXPECT_EQ(bri_clnt_match_mac_dbg_filter(&made), 1);
    }
}

TEST_F(mac_filter, each_set_field_must_agree) {
    const bri_mac_entry made = entry();
    for (const bool vid_fits : {true, false})
        for (const bool mac_fits : {true, false})
            for (const bool ifx_fits : {true, false}) {
                g_bglib_mac_filter = {};
                g_bglib_mac_filter.vid = vid_fits ? 10 : 11;
                std::memcpy(g_bglib_mac_filter.mac, made.mac, 6);
                g_bglib_mac_filter.mac[5] = mac_fits ? 1 : 2;
                g_bglib_mac_filter.ifx = ifx_fits ? 7 : 8;
                EXPECT_EQ(bri_clnt_match_mac_dbg_filter(&made), vid_fits && mac_fits && ifx_fits ? 1 : 0);
                EXPECT_EQ(bri_clnt_match_mac_dbg_filter(nullptr), 1);
            }
}

} // namespace
