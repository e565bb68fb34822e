#include "tests/l2/fixture.h"

namespace {

using namespace test;

class TopologyRequest : public L2Host {
  protected:
    TopologyRequest() { debug_on({BRI_DBG_VLAN}); }

    static void expect_vlan_line(const std::string &text) { expect_line(text, kVlanLine); }
    static void expect_client_line(const std::string &text) { expect_line(text, kClientLine); }

    // Every field and reserved byte set, so that a field that is not copied shows.
    static l2top_port_status record(unsigned n, uint16_t instance) {
        l2top_port_status made;
        std::memset(&made, static_cast<int>(0x40 + n), sizeof made);
        made.ifx = n;
        made.instance = instance;
        return made;
    }
    static l2top_port_status_batch batch(unsigned count, uint16_t instance = 3) {
        l2top_port_status_batch made{};
        made.count = static_cast<uint16_t>(count);
        for (unsigned n = 0; n < count && n < 64; ++n)
            made.records[n] = record(n, instance);
        return made;
    }
    static uint16_t count_of(const Message &message) { return value_at<uint16_t>(message.payload.data(), 0); }
    // Records of a batch on the wire, byte by byte.
    static std::vector<ByteVec> records_of(const Message &message) {
        std::vector<ByteVec> all;
        for (unsigned n = 0; n < count_of(message); ++n) {
            const auto at = message.payload.begin() + 4 + 20 * static_cast<std::ptrdiff_t>(n);
            all.emplace_back(at, at + 20);
        }
        return all;
    }
};

// --- batches

TEST_F(TopologyRequest, a_batch_is_sent_as_long_as_its_count) {
    for (const unsigned count : {0U, 1U, 2U, 63U, 64U}) {
        clear_log();
        const l2top_port_status_batch status = batch(count);
        EXPECT_EQ(bridge_set_port_fwd_status(&status), 0);
        const ByteVec bytes = bytes_of(status);
        const ByteVec used(bytes.begin(), bytes.begin() + 4 + 20 * static_cast<std::ptrdiff_t>(count));
        EXPECT_EQ(sent(), (std::vector<Message>{{L2TOP_EVENT_PORT_STATUS, used}})) << count;
        EXPECT_EQ(log_text(), "Client[unit] set port status, port-number is " + std::to_string(count) + ", msg_len " +
                                  std::to_string(4 + 20 * count) + ".\n");
        expect_vlan_line(log_text());
    }
}

// The caller's record is only as long as its count says.
TEST_F(TopologyRequest, nothing_behind_the_count_is_read) {
    for (const unsigned count : {0U, 1U, 2U}) {
        const l2top_port_status_batch status = batch(count, 0x3FF);
        const ByteVec bytes = bytes_of(status);
        const ByteVec exact(bytes.begin(), bytes.begin() + 4 + 20 * static_cast<std::ptrdiff_t>(count));
        EXPECT_EQ(bridge_set_port_fwd_status(reinterpret_cast<const l2top_port_status_batch *>(exact.data())), 0);
        EXPECT_EQ(sent().size(), count == 0 ? 1U : count + 1) << count;
    }
}

TEST_F(TopologyRequest, an_empty_batch_is_not_expanded) {
    l2top_port_status_batch status{};
    status.records[0].instance = 0x3FF;
    EXPECT_EQ(bridge_set_port_fwd_status(&status), 0);
    EXPECT_EQ(sent(), (std::vector<Message>{{L2TOP_EVENT_PORT_STATUS, {0, 0, 0, 0}}}));
}

TEST_F(TopologyRequest, a_missing_batch_and_too_many_records_are_refused) {
    EXPECT_EQ(bridge_set_port_fwd_status(nullptr), -1);
    expect_vlan_line("Client[unit] set port status failed: invalid arg.\n");
    for (const unsigned count : {65U, 100U, 65535U}) {
        clear_log();
        const l2top_port_status_batch status = batch(count);
        EXPECT_EQ(bridge_set_port_fwd_status(&status), -1);
        expect_vlan_line("Client[unit] set port status failed: invalid num " + std::to_string(count) + ".\n");
    }
    EXPECT_TRUE(sent().empty());
}

TEST_F(TopologyRequest, one_record_for_every_instance_goes_out_in_two_whole_batches) {
    const l2top_port_status_batch status = batch(1, 0x3FF);
    EXPECT_EQ(bridge_set_port_fwd_status(&status), 0);
    const std::vector<Message> messages = sent();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].payload.size(), 1284U);
    EXPECT_EQ(messages[1].payload.size(), 1284U);
    EXPECT_EQ(count_of(messages[0]), 64);
    EXPECT_EQ(count_of(messages[1]), 1);
    for (unsigned n = 0; n < 64; ++n)
        EXPECT_EQ(records_of(messages[0])[n], bytes_of(record(0, static_cast<uint16_t>(n)))) << n;
    EXPECT_EQ(records_of(messages[1])[0], bytes_of(record(0, 64)));
    // What the first batch held is gone from the second.
    EXPECT_EQ(ByteVec(messages[1].payload.begin() + 24, messages[1].payload.end()), ByteVec(1260));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(TopologyRequest, the_first_record_decides_for_all) {
    l2top_port_status_batch status = batch(3, 5);
    status.records[0].instance = 0x3FF;
    EXPECT_EQ(bridge_set_port_fwd_status(&status), 0);
    std::vector<ByteVec> records;
    for (const Message &message : sent()) {
        EXPECT_EQ(message.type, L2TOP_EVENT_PORT_STATUS);
        EXPECT_EQ(message.payload.size(), 1284U);
        for (const auto &bytes : records_of(message))
            records.push_back(bytes);
    }
    ASSERT_EQ(records.size(), 3U * 65);
    for (unsigned n = 0; n < 3; ++n)
        for (unsigned instance = 0; instance < 65; ++instance)
            ASSERT_EQ(records[n * 65 + instance], bytes_of(record(n, static_cast<uint16_t>(instance))));

    status = batch(3, 0x3FF);
    status.records[0].instance = 5; // later records do not decide
    EXPECT_EQ(bridge_set_port_fwd_status(&status), 0);
    const std::vector<Message> messages = sent();
    ASSERT_EQ(messages.size(), 1U);
    EXPECT_EQ(messages[0].payload.size(), 64U);
}

TEST_F(TopologyRequest, a_full_batch_for_every_instance_is_65_whole_batches) {
    const l2top_port_status_batch status = batch(64, 0x3FF);
    EXPECT_EQ(bridge_set_port_fwd_status(&status), 0);
    const std::vector<Message> messages = sent();
    ASSERT_EQ(messages.size(), 65U); // 64 x 65 records leave no remainder
    for (const Message &message : messages)
        EXPECT_EQ(count_of(message), 64);
    EXPECT_EQ(records_of(messages[64])[63], bytes_of(record(63, 64)));
}

TEST_F(TopologyRequest, a_failed_send_ends_the_expansion) {
    disconnect();
    const l2top_port_status_batch plain = batch(1);
    EXPECT_EQ(bridge_set_port_fwd_status(&plain), -1);
    EXPECT_EQ(log_text(), "Client[unit] set port status, port-number is 1, msg_len 24.\n"
                          "Client[unit] set port status failed: send msg fail.\n");
    expect_vlan_line("Client[unit] set port status failed: send msg fail.\n");
    clear_log();
    const l2top_port_status_batch every = batch(3, 0x3FF);
    EXPECT_EQ(bridge_set_port_fwd_status(&every), -1);
    expect_vlan_line("Client[unit] set port status failed: send msg fail.\n"); // once: the rest is dropped
}

TEST_F(TopologyRequest, a_failed_send_of_the_remainder_is_told) {
    const l2top_port_status_batch every = batch(1, 0x3FF);
    int sends = 0;
    faults::hooks.send = [&](int fd, const void *data, size_t size, int flags) {
        if (++sends == 1)
            ctx().connected = 0; // the connection goes behind the first batch
        return faults::real_send(fd, data, size, flags);
    };
    EXPECT_EQ(bridge_set_port_fwd_status(&every), -1);
    EXPECT_EQ(sends, 1);
    expect_vlan_line("Client[unit] set port status failed: send msg fail.\n");
}

TEST_F(TopologyRequest, without_memory_the_expansion_is_refused) {
    const l2top_port_status_batch every = batch(1, 0x3FF);
    faults::fail("calloc", 1, ENOMEM);
    EXPECT_EQ(bridge_set_port_fwd_status(&every), -1);
    EXPECT_EQ(faults::injected(), 1);
    expect_vlan_line("Client[unit] set port status failed: memory not enough.\n");
    EXPECT_TRUE(sent().empty());
}

// --- one state for a set of instances

TEST_F(TopologyRequest, an_instance_request_becomes_one_record_for_each_bit) {
    l2top_port_instance_req request{};
    request.flag = 0x7A;
    request.ifx = 0x01020304;
    request.state = 0x05060708;
    request.param = 0x090A0B0C;
    request.reserved[0] = 0xEE;
    request.instances[0] = 1U | 1U << 31;
    request.instances[1] = 1U << 1;
    request.instances[2] = 0xFFFFFFFF; // only its lowest bit is an instance
    EXPECT_EQ(bridge_set_port_instance_status(&request), 0);
    Bytes expected(4 + 4 * 20);
    expected.put(0, uint16_t{4});
    const uint16_t instances[] = {0, 31, 33, 64};
    for (size_t n = 0; n < 4; ++n)
        expected.put(4 + 20 * n, request.ifx)
            .put(8 + 20 * n, instances[n])
            .put(12 + 20 * n, request.state)
            .put(16 + 20 * n, request.param)
            .put(20 + 20 * n, request.flag);
    EXPECT_EQ(sent(), (std::vector<Message>{{L2TOP_EVENT_PORT_STATUS, expected}}));
    EXPECT_EQ(log_text(), "Client[unit] set port status, port-number is 4, msg_len 84.\n");
}

TEST_F(TopologyRequest, every_instance_takes_two_batches) {
    l2top_port_instance_req request{};
    for (uint32_t &word : request.instances)
        word = 0xFFFFFFFF;
    EXPECT_EQ(bridge_set_port_instance_status(&request), 0);
    const std::vector<Message> messages = sent();
    ASSERT_EQ(messages.size(), 2U);
    EXPECT_EQ(messages[0].payload.size(), 1284U);
    EXPECT_EQ(messages[1].payload.size(), 24U);
    EXPECT_EQ(value_at<uint16_t>(messages[1].payload.data(), 8), 64);
}

TEST_F(TopologyRequest, no_instance_sends_nothing) {
    l2top_port_instance_req request{};
    request.instances[2] = 0xFFFFFFFE;
    EXPECT_EQ(bridge_set_port_instance_status(&request), 0);
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(TopologyRequest, an_instance_request_does_not_look_at_its_sends) {
    disconnect();
    l2top_port_instance_req request{};
    request.instances[0] = 1;
    EXPECT_EQ(bridge_set_port_instance_status(&request), 0);
    EXPECT_TRUE(logged("Client[unit] set port status failed: send msg fail.\n"));
}

TEST_F(TopologyRequest, an_instance_request_is_refused_without_argument_or_memory) {
    EXPECT_EQ(bridge_set_port_instance_status(nullptr), -1);
    expect_vlan_line("Client[unit] set port status failed: invalid arg.\n");
    l2top_port_instance_req request{};
    request.instances[0] = 1;
    faults::fail("calloc", 1, ENOMEM);
    EXPECT_EQ(bridge_set_port_instance_status(&request), -1);
    expect_vlan_line("Client[unit] set port status failed: memory not enough.\n");
    EXPECT_TRUE(sent().empty());
}

// --- instance table

TEST_F(TopologyRequest, the_instance_table_is_sent_whole) {
    std::vector<uint16_t> table(4096);
    for (size_t vid = 0; vid < table.size(); ++vid)
        table[vid] = static_cast<uint16_t>(vid * 17);
    EXPECT_EQ(bridge_set_instance_configtable(table.data()), 0);
    const auto *bytes = reinterpret_cast<const uint8_t *>(table.data());
    EXPECT_EQ(sent(), (std::vector<Message>{{L2TOP_EVENT_INSTANCE_CONFIG, {bytes, bytes + 8192}}}));
    disconnect();
    EXPECT_EQ(bridge_set_instance_configtable(table.data()), -1);
    EXPECT_TRUE(log_lines().empty());
    EXPECT_EQ(bridge_set_instance_configtable(nullptr), -1);
    expect_vlan_line("[unit] set instance failed: configtable is NULL.\r\n");
}

// --- protocols

class TopologyProtocol : public TopologyRequest {
  protected:
    TopologyProtocol() {
        g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
        debug_on({BRI_DBG_MSG});
    }
    void expect_config(uint32_t proto, uint8_t enable) {
        EXPECT_EQ(sent(), (std::vector<Message>{{L2TOP_EVENT_PROTO_CONFIG, Bytes(8).put(0, proto).put(4, enable)}}));
    }
    static constexpr const char *kSent = "[unit] send conf-bri-proto msg success.\n";
    static constexpr const char *kNotSent = "[unit] send conf-bri-proto msg failed.\n";
};

TEST_F(TopologyProtocol, enabling_claims_and_tells_the_server) {
    for (uint32_t proto = 0; proto < 14; ++proto) {
        clear_log();
        EXPECT_EQ(bridge_config_bri_protocol(proto, 1), 0) << proto;
        EXPECT_EQ(bridge_proto_state_get(proto), 1) << proto;
        expect_config(proto, 1);
        expect_client_line(kSent);
    }
}

TEST_F(TopologyProtocol, disabling_tells_the_server_and_releases) {
    ASSERT_EQ(bridge_config_bri_protocol(4, 1), 0);
    sent();
    clear_log();
    EXPECT_EQ(bridge_config_bri_protocol(4, 0), 0);
    EXPECT_EQ(bridge_proto_state_get(4), 0);
    expect_config(4, 0);
    expect_client_line(kSent);
}

TEST_F(TopologyProtocol, what_holds_already_sends_nothing) {
    ASSERT_EQ(bridge_config_bri_protocol(4, 1), 0);
    sent();
    clear_log();
    EXPECT_EQ(bridge_config_bri_protocol(4, 1), 0);
    EXPECT_EQ(bridge_config_bri_protocol(4, 0xFF), 0);
    EXPECT_EQ(bridge_config_bri_protocol(5, 0), 0);
    EXPECT_EQ(bridge_config_bri_protocol(5, 0x100), 0); // only the low 8 bits count
    EXPECT_TRUE(sent().empty());
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(TopologyProtocol, any_enable_value_but_0_is_sent_as_1) {
    uint32_t proto = 1;
    for (const uint32_t enable : {1U, 2U, 0x80U, 0xFFU, 0x1FFU}) {
        EXPECT_EQ(bridge_config_bri_protocol(proto, enable), 0);
        expect_config(proto, 1);
        ++proto;
    }
}

TEST_F(TopologyProtocol, an_unknown_protocol_is_refused) {
    for (const uint32_t proto : {14U, 15U, 32U, 0xFFFFFFFFU}) {
        clear_log();
        EXPECT_EQ(bridge_config_bri_protocol(proto, 1), -1);
        EXPECT_EQ(log_text(), "[unit] conf bridge protocol status failed: Invalid proto-type.\n");
        expect_client_line(log_text());
    }
    EXPECT_TRUE(sent().empty());
}

TEST_F(TopologyProtocol, a_conflict_gives_the_protocol_in_the_way) {
    ASSERT_EQ(bridge_config_bri_protocol(3, 1), 0);
    sent();
    clear_log();
    EXPECT_EQ(bridge_set_bri_proto_prejudge(4, 1U << 3 | 1U << 9), 1);
    EXPECT_EQ(bridge_config_bri_protocol(4, 1), 3);
    EXPECT_EQ(log_text(), "[unit] set protocol[4] failed, conflict protocol[3].\n");
    expect_client_line(log_text());
    EXPECT_EQ(bridge_proto_state_get(4), 0);
    EXPECT_TRUE(sent().empty());
    ASSERT_EQ(bridge_config_bri_protocol(3, 0), 0);
    EXPECT_EQ(bridge_config_bri_protocol(4, 1), 0);
}

TEST_F(TopologyProtocol, prejudge_passes_both_words_on) {
    EXPECT_EQ(bridge_set_bri_proto_prejudge(13, 6), 1);
    EXPECT_EQ(bridge_set_bri_proto_prejudge(14, 6), 0);
}

TEST_F(TopologyProtocol, a_failed_send_releases_the_claim_but_not_a_running_protocol) {
    ASSERT_EQ(bridge_config_bri_protocol(5, 1), 0);
    disconnect();
    clear_log();
    EXPECT_EQ(bridge_config_bri_protocol(4, 1), -1);
    expect_client_line(kNotSent);
    EXPECT_EQ(bridge_proto_state_get(4), 0);
    clear_log();
    EXPECT_EQ(bridge_config_bri_protocol(5, 0), -1);
    expect_client_line(kNotSent);
    EXPECT_EQ(bridge_proto_state_get(5), 1);
}

// Claimed before the server hears of it, released only after.
TEST_F(TopologyProtocol, the_registry_holds_the_protocol_while_the_server_is_told) {
    std::vector<int> held;
    faults::hooks.send = [&](int fd, const void *data, size_t size, int flags) {
        held.push_back(bridge_proto_state_get(4));
        return faults::real_send(fd, data, size, flags);
    };
    EXPECT_EQ(bridge_config_bri_protocol(4, 1), 0);
    EXPECT_EQ(bridge_config_bri_protocol(4, 0), 0);
    EXPECT_EQ(held, (std::vector<int>{1, 1}));
    EXPECT_EQ(bridge_proto_state_get(4), 0);
}

// --- without databases, and without flags

class TopologyUnmapped : public Host {};

TEST_F(TopologyUnmapped, a_claim_without_a_registry_fails) {
    connect_server();
    EXPECT_EQ(bridge_config_bri_protocol(4, 1), -1);
    EXPECT_EQ(bridge_config_bri_protocol(4, 0), 0); // it does not run
    EXPECT_EQ(bridge_set_bri_proto_prejudge(4, 6), 0);
    EXPECT_TRUE(sent().empty());
}

TEST_F(TopologyRequest, errdisable_only_says_that_it_is_gone) {
    EXPECT_EQ(bridge_set_port_errdisable(), 0);
    EXPECT_EQ(log_text(), "ERR-DISABLE, NOT SUPORT any more! Turn to LSM...\n");
    expect_vlan_line(log_text());
}

TEST_F(TopologyRequest, the_name_is_cut_to_19_characters) {
    l2top_clnt_init("abcdefghijklmnopqrstuvwxyz");
    bridge_set_port_fwd_status(nullptr);
    EXPECT_EQ(log_text(), "Client[abcdefghijklmnopqrs] set port status failed: invalid arg.\n");
    l2top_clnt_init(nullptr);
    l2top_clnt_init("ab");
    clear_log();
    bridge_set_port_fwd_status(nullptr);
    EXPECT_EQ(log_text(), "Client[ab] set port status failed: invalid arg.\n");
}

TEST_F(TopologyRequest, each_line_needs_its_own_flag) {
    const l2top_port_status_batch plain = batch(1);
    const l2top_port_status_batch many = batch(65);
    const l2top_port_status_batch every = batch(1, 0x3FF);
    const l2top_port_instance_req wanted{};
    ASSERT_EQ(bridge_set_bri_proto_prejudge(4, 1U << 2), 1);
    const auto of_category = [](const LogCategory &category, const char *start) {
        return std::count_if(log_lines().begin(), log_lines().end(), [&](const LogLine &line) {
            return line.category() == category && line.text.rfind(start, 0) == 0;
        });
    };
    const auto all = [&] {
        bridge_set_port_fwd_status(&plain);
        bridge_set_port_fwd_status(&many);
        bridge_set_port_fwd_status(nullptr);
        bridge_set_port_instance_status(nullptr);
        bridge_set_instance_configtable(nullptr);
        bridge_set_port_errdisable();
        faults::fail("calloc", 1, ENOMEM);
        bridge_set_port_fwd_status(&every);
        faults::fail("calloc", 1, ENOMEM);
        bridge_set_port_instance_status(&wanted);
        bridge_config_bri_protocol(14, 1);
        bridge_config_bri_protocol(2, 1);
        bridge_config_bri_protocol(4, 1); // 2 is in the way
        bridge_config_bri_protocol(2, 0);
        ctx().connected = 0;
        bridge_set_port_fwd_status(&plain);
        bridge_config_bri_protocol(2, 1);
        ctx().connected = 1;
    };
    std::memset(g_bri_clnt_dbg, 1, sizeof g_bri_clnt_dbg);
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    clear_log();
    all();
    for (const LogLine &line : log_lines())
        EXPECT_EQ(line.category(), kClientLine) << line.text;
    EXPECT_EQ(of_category(kClientLine, "[unit] conf bridge protocol status failed"), 1);
    EXPECT_EQ(of_category(kClientLine, "[unit] set protocol[4] failed, conflict protocol[2]."), 1);
    EXPECT_EQ(of_category(kClientLine, "[unit] send conf-bri-proto msg "), 3);
    clear_log();
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 1;
    g_bri_clnt_dbg[BRI_DBG_MSG] = 0;
    all();
    EXPECT_EQ(of_category(kVlanLine, ""), 10);
    for (const LogLine &line : log_lines())
        EXPECT_NE(line.category(), kClientLine) << line.text;
}

} // namespace
