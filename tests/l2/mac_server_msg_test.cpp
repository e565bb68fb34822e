#include "tests/l2/fixture.h"

namespace {

using namespace test;

// Handlers for every MAC event.
class MacServerMsg : public L2Host {
  protected:
    MacServerMsg() {
        debug_on({BRI_DBG_MAC});
        event_set set{};
        for (unsigned type = 256; type < 384; ++type)
            add_to(set, type);
        watch(set);
        events().clear();
    }
    static void receive(uint32_t type, const ByteVec &payload = {}) {
        deliver(mac_client_on_server_msg, type, payload);
    }
    static ByteVec record(uint32_t oper, uint32_t type, uint32_t ifx = 7, uint16_t bcast_id = 10) {
        return Bytes(40)
            .put(4, oper)
            .put(11, uint8_t{0x0F})
            .put(12, kMac)
            .put(18, bcast_id)
            .put(20, ifx)
            .put(24, type)
            .put(28, ByteVec(12, 0xEE)); // the server's own
    }
    static ByteVec with_type(ByteVec bytes, uint32_t type) {
        put_at(bytes.data(), 24, type);
        return bytes;
    }
    static std::vector<HostEvent> one_by_one(uint32_t type, const std::vector<ByteVec> &records) {
        std::vector<HostEvent> all;
        for (const auto &bytes : records)
            all.push_back({type, bytes, 40, true});
        return all;
    }
};

TEST_F(MacServerMsg, every_type_is_passed_on_unpacked_kept_or_ignored) {
    const std::vector<uint32_t> whole{MAC_EVENT_SYNC_DATA_BEGIN,
                                      MAC_EVENT_SYNC_DATA_END,
                                      MAC_EVENT_SET_AGETIME,
                                      MAC_EVENT_DYN_FLUSH,
                                      MAC_EVENT_DYN_MOVE,
                                      MAC_EVENT_DEL_DYN_ON_VLANMAP,
                                      MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP,
                                      MAC_EVENT_INTF_LEARN,
                                      MAC_EVENT_GLOBAL_LEARN,
                                      MAC_EVENT_ROLLBACK_ADDR,
                                      MAC_EVENT_BYPASS_ADDR};
    const std::vector<uint32_t> unpacked{MAC_EVENT_NOTIFY_ADDR, MAC_EVENT_NOTIFY_NONDYN};
    const ByteVec payload = record(1, 2) + record(2, 1);
    const auto is_one_of = [](const std::vector<uint32_t> &types, uint32_t type) {
        return std::find(types.begin(), types.end(), type) != types.end();
    };
    for (uint32_t type = 256; type < 384; ++type) {
        events().clear();
        receive(type, payload);
        if (is_one_of(whole, type)) {
            ASSERT_EQ(events().size(), 1U) << type;
            EXPECT_EQ(events()[0].type, type);
            EXPECT_EQ(events()[0].payload, payload) << type;
        } else if (is_one_of(unpacked, type)) {
            EXPECT_EQ(events(), one_by_one(type, {record(1, 2), record(2, 1)})) << type;
        } else {
            EXPECT_TRUE(events().empty()) << type;
        }
        EXPECT_EQ(mac_client_get_available_total() == 1024, type != MAC_EVENT_SET_AVAILABLE_MAC)
            << type; // kept from that one alone
        mac_client_set_available_total(1024);
    }
}

TEST_F(MacServerMsg, no_message_is_ignored) {
    mac_client_on_server_msg(nullptr);
    EXPECT_TRUE(events().empty());
}

TEST_F(MacServerMsg, passes_an_empty_payload_on) {
    receive(MAC_EVENT_DYN_FLUSH);
    ASSERT_EQ(events().size(), 1U);
    EXPECT_EQ(events()[0].len, 0);
}

TEST_F(MacServerMsg, unpacks_nothing_from_an_empty_notification) {
    receive(MAC_EVENT_NOTIFY_ADDR);
    EXPECT_TRUE(events().empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MacServerMsg, a_record_is_logged_before_it_is_handed_on) {
    std::string at_handler;
    during = [&](uint32_t) { at_handler = log_text(); };
    receive(MAC_EVENT_NOTIFY_ADDR, record(1, 2));
    EXPECT_EQ(at_handler, "(unit), notify addr : oper(ADD), field(15), type(STATIC), mac(00d0.f812.34ab), "
                          "bcast_id(10), ifx(7)\n");
    expect_mac_line(at_handler);
    during = nullptr;
}

TEST_F(MacServerMsg, names_operations_and_types) {
    const char *types[] = {"UNKOWEN", "DYNAMIC", "STATIC", "FILTER", "LOCAL",
                           "COPY",    "SECU",    "OTHER",  "TRUST",  "UNKOWEN"};
    for (uint32_t type = 0; type < 10; ++type) {
        clear_log();
        receive(MAC_EVENT_NOTIFY_NONDYN, record(2, type, 0xFFFFFFFF, 0xFFFF));
        expect_only_mac_line(std::string("(unit), notify addr : oper(DEL), field(15), type(") + types[type] +
                             "), mac(00d0.f812.34ab), bcast_id(65535), ifx(-1)\n");
    }
    clear_log();
    receive(MAC_EVENT_NOTIFY_NONDYN, record(1, 0xFFFFFFFF));
    EXPECT_NE(log_text().find("type(UNKOWEN)"), std::string::npos);
}

TEST_F(MacServerMsg, any_other_operation_stops_the_whole_message) {
    for (const uint32_t oper : {0U, 3U, 0x01000000U, 0x02000000U, 0xFFFFFFFFU}) {
        events().clear();
        clear_log();
        receive(MAC_EVENT_NOTIFY_ADDR, record(1, 2) + record(oper, 2) + record(1, 2));
        EXPECT_EQ(events(), one_by_one(MAC_EVENT_NOTIFY_ADDR, {record(1, 2)})) << oper;
        EXPECT_EQ(times_logged("(unit), notify addr : drop null msg\n"), 1) << oper;
        EXPECT_EQ(log_lines().size(), 2U) << oper;
    }
    expect_mac_line("(unit), notify addr : drop null msg\n");
}

// The payload lies at the very end of a heap block, so a read past it is seen by the sanitizer.
TEST_F(MacServerMsg, a_shorter_piece_at_the_end_is_completed_with_zeros) {
    for (size_t piece = 1; piece < 40; ++piece) {
        events().clear();
        ByteVec payload = record(1, 2) + record(2, 1);
        payload.resize(40 + piece);
        receive(MAC_EVENT_NOTIFY_ADDR, payload);
        ByteVec completed(payload.begin() + 40, payload.end());
        completed.resize(40);
        const uint32_t oper = value_at<uint32_t>(completed.data(), 4);
        const std::vector<ByteVec> first{record(1, 2)};
        const std::vector<ByteVec> both{record(1, 2), completed};
        EXPECT_EQ(events(), one_by_one(MAC_EVENT_NOTIFY_ADDR, oper == 2 ? both : first)) << piece;
    }
}

TEST_F(MacServerMsg, a_piece_alone_is_a_record) {
    receive(MAC_EVENT_NOTIFY_ADDR, {0, 0, 0, 0, 0, 0, 0});
    EXPECT_TRUE(events().empty());
    expect_only_mac_line("(unit), notify addr : drop null msg\n");
    ByteVec piece = record(1, 2);
    piece.resize(8);
    receive(MAC_EVENT_NOTIFY_ADDR, piece);
    piece.resize(40);
    EXPECT_EQ(events(), one_by_one(MAC_EVENT_NOTIFY_ADDR, {piece}));
}

TEST_F(MacServerMsg, the_client_ss_sees_reduced_types) {
    start_as("SS");
    const uint32_t seen_as[] = {2, 1, 2, 3, 0 /* skipped */, 2, 2, 2, 2, 2};
    for (uint32_t type = 0; type < 10; ++type) {
        events().clear();
        clear_log();
        const ByteVec sent_record = record(1, type);
        receive(MAC_EVENT_NOTIFY_ADDR, sent_record);
        if (type == 4) {
            EXPECT_TRUE(events().empty());
            EXPECT_TRUE(log_lines().empty());
            continue;
        }
        EXPECT_EQ(events(), one_by_one(MAC_EVENT_NOTIFY_ADDR, {with_type(sent_record, seen_as[type])})) << type;
        EXPECT_NE(log_text().find(std::string("type(") +
                                  (seen_as[type] == 1   ? "DYNAMIC"
                                   : seen_as[type] == 2 ? "STATIC"
                                                        : "FILTER") +
                                  ")"),
                  std::string::npos);
    }
}

// The handlers get an aligned copy; what they do to it does not reach the message.
TEST_F(MacServerMsg, the_message_of_ss_is_rewritten_too) {
    start_as("SS");
    const ByteVec payload = record(1, 4) + record(1, 6) + record(1, 1) + record(2, 9) + record(0, 8);
    const ByteVec kept = record(1, 4) + record(1, 2) + record(1, 1) + record(2, 2) + record(0, 8);
    for (size_t shift = 0; shift < 4; ++shift) {
        ByteVec bytes(shift + sizeof(bri_msg_hdr));
        put_at(bytes.data(), shift, uint32_t{MAC_EVENT_NOTIFY_ADDR});
        put_at(bytes.data(), shift + 4, static_cast<uint32_t>(payload.size()));
        bytes.insert(bytes.end(), payload.begin(), payload.end());
        mac_client_on_server_msg(reinterpret_cast<bri_msg_hdr *>(bytes.data() + shift));
        EXPECT_EQ(ByteVec(bytes.end() - static_cast<std::ptrdiff_t>(payload.size()), bytes.end()), kept);
    }
}

// The piece lies at the very end of a heap block: writing behind it is seen by the sanitizer, and by the bytes there.
TEST_F(MacServerMsg, a_shorter_piece_of_ss_is_rewritten_as_far_as_it_goes) {
    start_as("SS");
    for (size_t piece = 8; piece < 40; ++piece) {
        ByteVec bytes(sizeof(bri_msg_hdr));
        put_at(bytes.data(), 0, uint32_t{MAC_EVENT_NOTIFY_ADDR});
        put_at(bytes.data(), 4, static_cast<uint32_t>(piece));
        const ByteVec whole = record(1, 0x09090909);
        bytes.insert(bytes.end(), whole.begin(), whole.end());
        mac_client_on_server_msg(reinterpret_cast<bri_msg_hdr *>(bytes.data()));
        ByteVec expected = with_type(whole, BRI_MAC_TYPE_STATIC);
        std::copy(whole.begin() + static_cast<std::ptrdiff_t>(piece), whole.end(),
                  expected.begin() + static_cast<std::ptrdiff_t>(piece));
        EXPECT_EQ(ByteVec(bytes.begin() + 8, bytes.end()), expected) << piece;
    }
}

TEST_F(MacServerMsg, the_message_of_another_client_stays_as_it_came) {
    ByteVec bytes(sizeof(bri_msg_hdr));
    put_at(bytes.data(), 0, uint32_t{MAC_EVENT_NOTIFY_ADDR});
    put_at(bytes.data(), 4, uint32_t{40});
    const ByteVec whole = record(1, BRI_MAC_TYPE_SECU);
    bytes.insert(bytes.end(), whole.begin(), whole.end());
    mac_client_on_server_msg(reinterpret_cast<bri_msg_hdr *>(bytes.data()));
    EXPECT_EQ(ByteVec(bytes.begin() + 8, bytes.end()), whole);
}

TEST_F(MacServerMsg, a_skipped_record_does_not_end_the_walk) {
    start_as("SS");
    receive(MAC_EVENT_NOTIFY_ADDR, record(1, 4) + record(1, 6) + record(1, 1));
    EXPECT_EQ(events(), one_by_one(MAC_EVENT_NOTIFY_ADDR, {record(1, 2), record(1, 1)}));
}

TEST_F(MacServerMsg, a_bad_operation_ends_the_walk_of_ss_too) {
    start_as("SS");
    receive(MAC_EVENT_NOTIFY_ADDR, record(0, 4) + record(1, 1));
    EXPECT_TRUE(events().empty());
}

TEST_F(MacServerMsg, only_the_exact_name_ss_reduces) {
    for (const char *name : {"unit", "S", "SSS", "ss", "SS ", ""}) {
        start_as(name);
        events().clear();
        receive(MAC_EVENT_NOTIFY_ADDR, record(1, 4) + record(1, 6) + record(1, 1));
        EXPECT_EQ(events(), one_by_one(MAC_EVENT_NOTIFY_ADDR, {record(1, 4), record(1, 6), record(1, 1)})) << name;
    }
}

TEST_F(MacServerMsg, the_filter_selects_the_lines_of_records) {
    g_bglib_mac_filter.ifx = 8;
    receive(MAC_EVENT_NOTIFY_ADDR, record(1, 2, 7) + record(1, 2, 8) + record(0, 2, 7));
    EXPECT_EQ(log_lines().size(), 1U);
    EXPECT_NE(log_text().find("ifx(8)"), std::string::npos);
    clear_log();
    receive(MAC_EVENT_NOTIFY_ADDR, record(0, 2, 8));
    expect_only_mac_line("(unit), notify addr : drop null msg\n");
    EXPECT_EQ(events().size(), 2U); // what is not logged is handed on all the same
}

TEST_F(MacServerMsg, a_handler_may_change_its_record) {
    static int calls;
    calls = 0;
    const event_set set = set_of_types({MAC_EVENT_NOTIFY_ADDR});
    const bri_event_handler spoil = [](uint32_t, void *data, uint16_t len) {
        std::memset(data, 0, len);
        ++calls;
        return 0;
    };
    ASSERT_EQ(bridge_client_reg_event(&set, spoil), 0);
    receive(MAC_EVENT_NOTIFY_ADDR, record(1, 2) + record(1, 3));
    EXPECT_EQ(calls, 2);
    EXPECT_EQ(events(), one_by_one(MAC_EVENT_NOTIFY_ADDR, {record(1, 2), record(1, 3)}));
}

// --- the available total

TEST_F(MacServerMsg, the_server_announces_the_total) {
    EXPECT_EQ(mac_client_get_available_total(), 1024U);
    receive(MAC_EVENT_SET_AVAILABLE_MAC, Bytes(12).put(0, uint32_t{10}).put(4, uint32_t{20}).put(8, uint32_t{30}));
    EXPECT_EQ(mac_client_get_available_total(), 30U);
    expect_only_mac_line("(unit), set_available_total(30).\n");
    EXPECT_TRUE(events().empty());
    uint32_t total = 0;
    EXPECT_EQ(bridge_maddr_get_available_total(&total), 0);
    EXPECT_EQ(total, 30U);
}

TEST_F(MacServerMsg, an_announcement_that_is_too_short_is_dropped_with_a_line) {
    for (size_t size = 0; size < 12; ++size) {
        clear_log();
        receive(MAC_EVENT_SET_AVAILABLE_MAC, ByteVec(size, 5));
        expect_only_mac_line("(unit), msg type(MAC_EVENT_SET_AVAILABLE_MAC) is too short, len(" + std::to_string(size) +
                             "), Drop.\n");
    }
    EXPECT_EQ(mac_client_get_available_total(), 1024U);
    receive(MAC_EVENT_SET_AVAILABLE_MAC, Bytes(20).put(8, uint32_t{31})); // a longer one will do
    EXPECT_EQ(mac_client_get_available_total(), 31U);
}

TEST_F(MacServerMsg, set_stores_and_logs) {
    mac_client_set_available_total(0xFFFFFFFF);
    EXPECT_EQ(mac_client_get_available_total(), 0xFFFFFFFFU);
    expect_only_mac_line("(unit), set_available_total(-1).\n");
}

TEST_F(MacServerMsg, without_the_flag_nothing_is_written) {
    g_bri_clnt_dbg[BRI_DBG_MAC] = 0;
    receive(MAC_EVENT_NOTIFY_ADDR, record(1, 2) + record(0, 2));
    receive(MAC_EVENT_SET_AVAILABLE_MAC, ByteVec(12, 1));
    EXPECT_TRUE(log_lines().empty());
    EXPECT_EQ(events().size(), 1U);
}

// --- statistics

TEST_F(MacServerMsg, statistics_are_eleven_lines_of_zeros_whatever_was_notified) {
    receive(MAC_EVENT_NOTIFY_ADDR, record(1, 2) + record(1, 1));
    clear_log();
    g_bri_clnt_dbg[BRI_DBG_MAC] = 0; // the print is not gated
    mac_client_show_statistic();
    const std::vector<std::string> expected{"------------- MAC CLIENT ADDR COUNT -------------\n",
                                            "CLIENT NAME: unit\n",
                                            "DYNAMIC:     0\n",
                                            "STATIC :     0\n",
                                            "FILTER :     0\n",
                                            "LOCAL  :     0\n",
                                            "SECU   :     0\n",
                                            "OTHER  :     0\n",
                                            "TRUST  :     0\n",
                                            "COPY   :     0\n",
                                            "TOTAL  :     0\n"};
    ASSERT_EQ(log_lines().size(), expected.size());
    for (size_t n = 0; n < expected.size(); ++n) {
        const LogLine &line = log_lines()[n];
        EXPECT_EQ(line.text, expected[n]);
        EXPECT_EQ(line.category(), kShownLine);
    }
}

} // namespace
