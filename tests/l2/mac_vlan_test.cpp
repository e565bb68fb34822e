#include "tests/l2/fixture.h"

namespace {

using namespace test;

class MacVlan : public L2Host {
  protected:
    MacVlan() { debug_on({BRI_DBG_MSG}); }

    static constexpr const char *kSuccess =
        "mac vlan lib send msg: type MVLAN_EVENT_NOTIFY_ENTRY, msg_len 28 success.\n";
    static constexpr const char *kFail = "mac vlan lib send msg: type MVLAN_EVENT_NOTIFY_ENTRY, msg_len 28 fail.\n";
    static inline const ByteVec kExact = ByteVec(6, 0xFF);

    static void expect_client_line(const std::string &text) { expect_line(text, kClientLine); }
    // The lines of this room, without those of the transport below it.
    static std::string lines() {
        std::string all;
        for (const LogLine &line : log_lines())
            if (line.text.rfind("[", 0) != 0)
                all += line.text;
        return all;
    }
    void expect_sent(uint32_t type, const ByteVec &payload) {
        EXPECT_EQ(sent(), (std::vector<Message>{{type, payload}}));
    }
    void kernel_answers(const ByteVec &payload) {
        kernel.on_data = [this, payload](const KernelRequest &request) { kernel.answer(request, payload); };
    }

    Kernel kernel;
};

TEST_F(MacVlan, add) {
    mvlan_clnt_add_dyn_entry(kMac.data(), 0x0102);
    expect_sent(MVLAN_EVENT_NOTIFY_ENTRY,
                Bytes(28).put(12, kMac).put(18, kExact).put(24, uint16_t{0x0102}).put(27, uint8_t{2}));
    expect_client_line("add mac 00d0.f812.34ab mask ffff.ffff.ffff vlan 258 to bridge.\n");
    expect_client_line(kSuccess);
}

TEST_F(MacVlan, add_of_a_host_that_802_1x_let_in) {
    mvlan_clnt_add_dyn_entry_dot1x(kMac.data(), 4094, 0xFFFFFFFE);
    expect_sent(
        MVLAN_EVENT_NOTIFY_ENTRY,
        Bytes(28).put(0, 0xFFFFFFFEU).put(12, kMac).put(18, kExact).put(24, uint16_t{4094}).put(27, uint8_t{2}));
    expect_client_line("add mac 00d0.f812.34ab mask ffff.ffff.ffff vlan 4094 ifx 4294967294 to bridge.\n");
    expect_client_line(kSuccess);
}

TEST_F(MacVlan, delete_carries_no_vlan) {
    mvlan_clnt_del_dyn_entry(kMac.data());
    expect_sent(MVLAN_EVENT_NOTIFY_ENTRY,
                Bytes(28).put(4, uint8_t{2}).put(8, uint32_t{1}).put(12, kMac).put(18, kExact).put(27, uint8_t{2}));
    expect_client_line("del mac vlan dynamic entry with mac 00d0.f812.34ab.\n");
    expect_client_line(kSuccess);
}

TEST_F(MacVlan, the_line_of_a_request_comes_before_that_of_its_send) {
    mvlan_clnt_del_dyn_entry(kMac.data());
    EXPECT_EQ(lines(), "del mac vlan dynamic entry with mac 00d0.f812.34ab.\n"
                       "mac vlan lib send msg: type MVLAN_EVENT_NOTIFY_ENTRY, msg_len 28 success.\n");
}

TEST_F(MacVlan, without_an_address_nothing_happens) {
    uint16_t vlan = 77;
    mvlan_clnt_add_dyn_entry(nullptr, 10);
    mvlan_clnt_add_dyn_entry_dot1x(nullptr, 10, 3);
    mvlan_clnt_del_dyn_entry(nullptr);
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(nullptr, &vlan), -1);
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac.data(), nullptr), -1);
    EXPECT_EQ(vlan, 77);
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(kernel.sockets.empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MacVlan, a_failed_send_shows_in_the_log_only) {
    disconnect();
    mvlan_clnt_add_dyn_entry(kMac.data(), 10);
    expect_client_line(kFail);
    const mvlan_entry entry{};
    mvlan_clnt_send_error_result(&entry);
    expect_client_line("mac vlan lib send msg: type MVLAN_EVENT_ERROR, msg_len 24 fail.\n");
}

// --- error result

TEST_F(MacVlan, an_error_result_is_sent_as_it_stands) {
    mvlan_entry entry;
    for (size_t at = 0; at < sizeof entry; ++at)
        put_at(&entry, at, static_cast<uint8_t>(0x81 + at));
    entry.type = 0xFFFFFFFF;
    entry.vlan = 4000;
    mvlan_clnt_send_error_result(&entry);
    expect_sent(MVLAN_EVENT_ERROR, bytes_of(entry));
    expect_client_line("send_error_result: type -1 mac 898a.8b8c.8d8e mask 8f90.9192.9394 vlan 4000 priority 151, "
                       "flag 152");
    expect_client_line("mac vlan lib send msg: type MVLAN_EVENT_ERROR, msg_len 24 success.\n");
}

TEST_F(MacVlan, no_error_result_is_told) {
    mvlan_clnt_send_error_result(nullptr);
    EXPECT_EQ(log_text(), "send_error_result failed: recv NULL.\n");
    expect_client_line("send_error_result failed: recv NULL.\n");
    EXPECT_TRUE(sent().empty());
}

// --- query

TEST_F(MacVlan, query_gives_the_vlan_of_the_answer) {
    kernel_answers(Bytes(28).put(24, uint16_t{0x0A0B}));
    uint16_t vlan = 0;
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac.data(), &vlan), 0);
    EXPECT_EQ(vlan, 0x0A0B);
    const std::vector<KernelRequest> requests = kernel.data_requests();
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].type(), MVLAN_EVENT_NOTIFY_ENTRY);
    EXPECT_EQ(requests[0].data(), ByteVec(Bytes(28).put(8, uint32_t{2}).put(12, kMac).put(27, uint8_t{2})));
    expect_client_line("get mac vlan dynamic entry with mac 00d0.f812.34ab.\n");
    expect_client_line("get mac vlan dynamic entry with mac 00d0.f812.34ab fail.\n"); // also when it did not
    EXPECT_EQ(lines(), "get mac vlan dynamic entry with mac 00d0.f812.34ab.\n"
                       "get mac vlan dynamic entry with mac 00d0.f812.34ab fail.\n");
    EXPECT_EQ(log_lines()[1].format.rfind("[%s] Query netlink, ", 0), 0U); // asked between the two
    EXPECT_TRUE(sent().empty());
}

TEST_F(MacVlan, query_without_an_entry_stores_0) {
    for (const size_t size : {size_t{28}, size_t{24}, size_t{25}, size_t{0}}) {
        clear_log();
        ByteVec answer(size);
        if (size == 25)
            answer[24] = 0; // half a VLAN
        kernel_answers(answer);
        uint16_t vlan = 77;
        EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac.data(), &vlan), -1) << size;
        EXPECT_EQ(vlan, 0) << size;
        expect_client_line("get mac vlan dynamic entry with mac 00d0.f812.34ab fail.\n");
    }
}

TEST_F(MacVlan, a_short_answer_does_not_show_the_one_before) {
    kernel_answers(Bytes(28).put(24, uint16_t{10}));
    uint16_t vlan = 0;
    ASSERT_EQ(mvlan_clnt_get_dyn_entry(kMac.data(), &vlan), 0);
    kernel_answers(ByteVec(20, 0xEE));
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac.data(), &vlan), -1);
    EXPECT_EQ(vlan, 0);
}

TEST_F(MacVlan, without_an_answer_the_notice_is_always_written) {
    for (const uint8_t flag : {uint8_t{1}, uint8_t{0}}) {
        g_bri_clnt_dbg[BRI_DBG_MSG] = flag;
        clear_log();
        uint16_t vlan = 77;
        EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac.data(), &vlan), -1);
        EXPECT_EQ(vlan, 77);
        const LogLine line = log_line("System is busy now, please try again later.\n");
        EXPECT_EQ(line.category(), kMvlanNotice);
        EXPECT_FALSE(logged("get mac vlan dynamic entry with mac 00d0.f812.34ab fail.\n"));
    }
    EXPECT_EQ(log_lines().size(), 1U); // with the flag off nothing else
}

// --- the server's messages

TEST_F(MacVlan, every_message_reaches_the_handlers) {
    const char *names[] = {"UNKNOW MSG TYPE",
                           "MVLAN_EVENT_SYNC_DATA_BEGIN",
                           "MVLAN_EVENT_SYNC_DATA_END",
                           "MVLAN_EVENT_NOTIFY_ENTRY",
                           "UNKNOW MSG TYPE",
                           "MVLAN_EVENT_ERROR",
                           "UNKNOW MSG TYPE"};
    watch({512, 513, 514, 515, 516, 517, 518});
    for (uint32_t type = 512; type <= 518; ++type) {
        events().clear();
        clear_log();
        const ByteVec payload(28, static_cast<uint8_t>(type));
        deliver(bridge_mvlan_lib_dispose_msg, type, payload);
        ASSERT_EQ(events().size(), 1U) << type;
        EXPECT_EQ(events()[0].type, type);
        EXPECT_EQ(events()[0].payload, payload);
        expect_client_line(std::string("mvlan lib recv msg: mvlan event ") + names[type - 512] + ", msg len 28.\n");
    }
}

TEST_F(MacVlan, a_message_is_logged_before_it_reaches_the_handlers) {
    watch({MVLAN_EVENT_NOTIFY_ENTRY});
    clear_log();
    std::string at_handler;
    during = [&](uint32_t) { at_handler = log_text(); };
    deliver(bridge_mvlan_lib_dispose_msg, MVLAN_EVENT_NOTIFY_ENTRY, {1, 2, 3});
    during = nullptr;
    EXPECT_EQ(at_handler, "mvlan lib recv msg: mvlan event MVLAN_EVENT_NOTIFY_ENTRY, msg len 3.\n");
}

TEST_F(MacVlan, no_message_is_ignored) {
    bridge_mvlan_lib_dispose_msg(nullptr);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(MacVlan, without_the_flag_nothing_is_written) {
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    debug_on({BRI_DBG_VLAN, BRI_DBG_MAC});
    kernel_answers(Bytes(28).put(24, uint16_t{10}));
    uint16_t vlan = 0;
    const mvlan_entry entry{};
    mvlan_clnt_add_dyn_entry(kMac.data(), 10);
    mvlan_clnt_add_dyn_entry_dot1x(kMac.data(), 10, 3);
    mvlan_clnt_del_dyn_entry(kMac.data());
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac.data(), &vlan), 0);
    mvlan_clnt_send_error_result(&entry);
    mvlan_clnt_send_error_result(nullptr);
    deliver(bridge_mvlan_lib_dispose_msg, MVLAN_EVENT_NOTIFY_ENTRY, {});
    EXPECT_EQ(sent().size(), 4U);
    EXPECT_TRUE(log_lines().empty());
}

} // namespace
