#include "tests/l2/fixture.h"

namespace {

using namespace test;

using MacCall = int (*)(uint32_t type, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx);
template <int (*Call)(const uint8_t *, uint32_t, uint32_t)>
int without_type(uint32_t, const uint8_t *mac, uint32_t bcast_id, uint32_t ifx) {
    return Call(mac, bcast_id, ifx);
}

enum Rule { kEntryOnPort, kEntryWithIfx, kAnything, kRollback, kBypass };

struct Expected {
    const char *name;
    MacCall call;
    Rule rule;
    uint32_t oper;
    uint32_t type;
    uint8_t flags;
    uint32_t event;
    const char *word;
    const char *refusal;
};

void PrintTo(const Expected &row, std::ostream *out) {
    *out << row.name;
}

constexpr const char *kBadArgs = "(unit), invalid mac addr, bcast_id or ifx.\n";

const Expected kCalls[] = {
    {"add_static", without_type<bridge_maddr_add_static>, kEntryOnPort, 1, 2, 0, MAC_EVENT_NOTIFY_ADDR,
     "add static addr", kBadArgs},
    {"add_secu", without_type<bridge_maddr_add_secu>, kEntryOnPort, 1, 6, 0, MAC_EVENT_NOTIFY_ADDR, "add secu addr",
     kBadArgs},
    {"add_trust", without_type<bridge_maddr_add_trust>, kEntryOnPort, 1, 8, 0, MAC_EVENT_NOTIFY_ADDR, "add trust addr",
     kBadArgs},
    {"add_other", without_type<bridge_maddr_add_other>, kEntryOnPort, 1, 7, 0, MAC_EVENT_NOTIFY_ADDR, "add other addr",
     kBadArgs},
    {"del_static", without_type<bridge_maddr_del_static>, kAnything, 2, 2, 0, MAC_EVENT_NOTIFY_ADDR, "del static addr",
     ""},
    {"del_dyn", without_type<bridge_maddr_del_dyn>, kAnything, 2, 1, 0, MAC_EVENT_NOTIFY_ADDR, "del dyn addr", ""},
    {"force_del_dyn", without_type<bridge_maddr_force_del_dyn>, kAnything, 2, 1, 1, MAC_EVENT_NOTIFY_ADDR,
     "force del dyn addr", ""},
    {"del_secu", without_type<bridge_maddr_del_secu>, kEntryWithIfx, 2, 6, 0, MAC_EVENT_NOTIFY_ADDR, "del secu addr",
     kBadArgs},
    {"del_trust", without_type<bridge_maddr_del_trust>, kEntryWithIfx, 2, 8, 0, MAC_EVENT_NOTIFY_ADDR, "del trust addr",
     kBadArgs},
    {"del_other", without_type<bridge_maddr_del_other>, kEntryWithIfx, 2, 7, 0, MAC_EVENT_NOTIFY_ADDR, "del other addr",
     kBadArgs},
    {"rollback", bridge_maddr_rollback, kRollback, 2, 0, 0, MAC_EVENT_ROLLBACK_ADDR, "rollback static addr",
     "Client[unit], invalid mac in bridge_maddr_rollback.\n"},
    {"bypass", bridge_maddr_bypass, kBypass, 1, 1, 0, MAC_EVENT_BYPASS_ADDR, "bypass dynamic addr",
     "Client[unit], invalid param in bridge_maddr_bypass.\n"},
};

// One list of arguments. Port 7 exists, port 8 does not.
struct Args {
    uint32_t type;
    bool mac;
    uint32_t bcast_id;
    uint32_t ifx;
};

bool accepted(Rule rule, const Args &args) {
    const bool entry = args.mac && (args.bcast_id & 0xFFFF) != 0;
    switch (rule) {
    case kAnything:
        return true;
    case kEntryOnPort:
        return entry && args.ifx == 7;
    case kEntryWithIfx:
        return entry && args.ifx != 0;
    case kRollback:
        return entry && (args.type == 2 || args.type == 3);
    case kBypass:
        return entry && args.type == 1 && args.ifx == 7;
    }
    return false;
}

uint8_t field_of(const Expected &call, const Args &args) {
    unsigned field = 0;
    if (args.mac)
        field |= 0x01;
    if (args.ifx != 0)
        field |= 0x02;
    if (call.rule != kRollback)
        field |= 0x04;
    if ((args.bcast_id & 0xFFFF) != 0)
        field |= 0x08;
    return static_cast<uint8_t>(field);
}

ByteVec payload_of(const Expected &call, const Args &args) {
    Bytes bytes(40);
    bytes.put(4, call.oper)
        .put(8, call.flags)
        .put(11, field_of(call, args))
        .put(18, static_cast<uint16_t>(args.bcast_id))
        .put(20, args.ifx)
        .put(24, call.type);
    if (args.mac)
        bytes.put(12, kMac);
    return bytes;
}

std::string line_of(const Expected &call, const Args &args) {
    char line[200];
    std::snprintf(line, sizeof line, "(unit), %s, field(%u), mac(%s), bcast_id(%u), ifx(%u).\n", call.word,
                  field_of(call, args), args.mac ? "00d0.f812.34ab" : "0000.0000.0000", args.bcast_id & 0xFFFF,
                  args.ifx);
    return line;
}

class MacChange : public L2Host {
  protected:
    MacChange() {
        debug_on({BRI_DBG_MAC});
        plug(7);
    }
    static int run(const Expected &call, const Args &args) {
        clear_log();
        return call.call(args.type, args.mac ? kMac.data() : nullptr, args.bcast_id, args.ifx);
    }
    static const Expected &call(const std::string &name) {
        for (const Expected &row : kCalls)
            if (row.name == name)
                return row;
        throw std::out_of_range(name);
    }
};

// One test per call: every combination of present, absent and odd arguments.
class MacChangeSweep : public MacChange, public ::testing::WithParamInterface<Expected> {};

TEST_P(MacChangeSweep, every_combination_of_arguments) {
    const Expected &call = GetParam();
    const bool typed = call.rule == kRollback || call.rule == kBypass;
    int sends = 0;
    for (const uint32_t type : {1U, 2U, 3U, 0U, 4U, 8U, 0x10001U, 0x10002U, 0xFFFFFF03U}) {
        if (!typed && type != 1)
            continue;
        for (const bool mac : {false, true})
            for (const uint32_t bcast_id : {0U, 10U, 0xFFFFU, 0x10000U, 0x1000AU})
                for (const uint32_t ifx : {0U, 7U, 8U, 64U, 0xFFFFFFFFU}) {
                    const Args args{type, mac, bcast_id, ifx};
                    SCOPED_TRACE(testing::Message()
                                 << "type " << type << " mac " << mac << " bcast " << bcast_id << " ifx " << ifx);
                    const bool taken = accepted(call.rule, args);
                    ASSERT_EQ(run(call, args), taken ? 0 : -1);
                    ASSERT_EQ(log_text(), taken ? line_of(call, args) : call.refusal);
                    const std::vector<Message> messages = sent();
                    ASSERT_EQ(messages.size(), taken ? 1U : 0U);
                    if (!taken)
                        continue;
                    ++sends;
                    EXPECT_EQ(messages[0].type, call.event);
                    EXPECT_EQ(messages[0].payload, payload_of(call, args));
                }
    }
    EXPECT_GT(sends, 0);
}

INSTANTIATE_TEST_SUITE_P(Calls, MacChangeSweep, testing::ValuesIn(kCalls),
                         [](const testing::TestParamInfo<Expected> &row) { return std::string(row.param.name); });

// Whole payloads as they stand, without the help of the sweep's own rules.
TEST_F(MacChange, named_payloads) {
    const auto expect_sent = [this](uint32_t event, uint8_t oper, uint8_t flags, uint8_t field, uint16_t bcast_id,
                                    uint32_t ifx, uint32_t type, bool mac = true) {
        const std::vector<Message> messages = sent();
        ASSERT_EQ(messages.size(), 1U);
        EXPECT_EQ(messages[0].type, event);
        Bytes bytes(40);
        bytes.put<uint32_t>(4, oper).put(8, flags).put(11, field).put(18, bcast_id).put(20, ifx).put(24, type);
        if (mac)
            bytes.put(12, kMac);
        EXPECT_EQ(messages[0].payload, ByteVec(bytes));
    };
    EXPECT_EQ(bridge_maddr_add_static(kMac.data(), 10, 7), 0);
    expect_sent(MAC_EVENT_NOTIFY_ADDR, 1, 0, 0x0F, 10, 7, 2);
    EXPECT_EQ(bridge_maddr_del_dyn(nullptr, 0, 0), 0); // every dynamic address
    expect_sent(MAC_EVENT_NOTIFY_ADDR, 2, 0, 0x04, 0, 0, 1, false);
    EXPECT_EQ(bridge_maddr_force_del_dyn(nullptr, 0, 0), 0);
    expect_sent(MAC_EVENT_NOTIFY_ADDR, 2, 1, 0x04, 0, 0, 1, false);
    EXPECT_EQ(bridge_maddr_del_static(kMac.data(), 10, 0), 0);
    expect_sent(MAC_EVENT_NOTIFY_ADDR, 2, 0, 0x0D, 10, 0, 2);
    EXPECT_EQ(bridge_maddr_del_static(kMac.data(), 10, 7), 0);
    expect_sent(MAC_EVENT_NOTIFY_ADDR, 2, 0, 0x0F, 10, 7, 2);
    EXPECT_EQ(bridge_maddr_del_static(nullptr, 0, 7), 0);
    expect_sent(MAC_EVENT_NOTIFY_ADDR, 2, 0, 0x06, 0, 7, 2, false);
    EXPECT_EQ(bridge_maddr_del_secu(kMac.data(), 10, 8), 0); // the port need not exist
    expect_sent(MAC_EVENT_NOTIFY_ADDR, 2, 0, 0x0F, 10, 8, 6);
    EXPECT_EQ(bridge_maddr_rollback(3, kMac.data(), 10, 0), 0);
    expect_sent(MAC_EVENT_ROLLBACK_ADDR, 2, 0, 0x09, 10, 0, 0);
    EXPECT_EQ(bridge_maddr_rollback(2, kMac.data(), 10, 7), 0);
    expect_sent(MAC_EVENT_ROLLBACK_ADDR, 2, 0, 0x0B, 10, 7, 0);
    EXPECT_EQ(bridge_maddr_bypass(1, kMac.data(), 10, 7), 0);
    expect_sent(MAC_EVENT_BYPASS_ADDR, 1, 0, 0x0F, 10, 7, 1);
}

TEST_F(MacChange, a_failed_send_gives_what_the_send_gave_after_the_line) {
    disconnect();
    for (const Expected &row : kCalls) {
        const Args args{row.rule == kRollback ? 2U : 1U, true, 10, 7};
        EXPECT_EQ(run(row, args), -1) << row.name;
        EXPECT_EQ(log_text(), line_of(row, args)) << row.name;
    }
}

TEST_F(MacChange, lines_are_of_the_mac_client) {
    for (const Expected &row : kCalls) {
        run(row, {row.rule == kRollback ? 2U : 1U, true, 10, 7});
        ASSERT_EQ(log_lines().size(), 1U) << row.name;
        expect_mac_line(log_lines()[0].text);
        run(row, {9, false, 0, 0});
        for (const LogLine &line : std::vector<LogLine>(log_lines()))
            expect_mac_line(line.text);
    }
}

TEST_F(MacChange, without_the_flag_nothing_is_written) {
    g_bri_clnt_dbg[BRI_DBG_MAC] = 0;
    for (const Expected &row : kCalls) {
        EXPECT_EQ(run(row, {row.rule == kRollback ? 2U : 1U, true, 10, 7}), 0) << row.name;
        EXPECT_TRUE(log_lines().empty()) << row.name;
        run(row, {9, false, 0, 0});
        EXPECT_TRUE(log_lines().empty()) << row.name;
    }
}

// The filter sees the entry of a change, and nothing of a refusal.
TEST_F(MacChange, the_filter_selects_entries_and_passes_refusals) {
    const struct {
        uint16_t vid;
        uint8_t last_mac_byte;
        uint32_t ifx;
        bool passes;
    } rows[] = {{0, 0, 0, true},     {10, 0, 0, true}, {11, 0, 0, false}, {0, 0xAB, 0, true},
                {0, 0xAC, 0, false}, {0, 0, 7, true},  {0, 0, 8, false},  {10, 0xAB, 7, true}};
    for (const auto &row : rows) {
        g_bglib_mac_filter = {};
        g_bglib_mac_filter.vid = row.vid;
        g_bglib_mac_filter.ifx = row.ifx;
        if (row.last_mac_byte != 0) {
            std::copy(kMac.begin(), kMac.end(), g_bglib_mac_filter.mac);
            g_bglib_mac_filter.mac[5] = row.last_mac_byte;
        }
        for (const Expected &call : kCalls) {
            EXPECT_EQ(run(call, {call.rule == kRollback ? 2U : 1U, true, 10, 7}), 0);
            EXPECT_EQ(log_lines().size(), row.passes ? 1U : 0U) << call.name << " " << row.vid << " " << row.ifx;
            if (call.rule != kAnything) {
                EXPECT_EQ(run(call, {9, false, 0, 0}), -1);
                EXPECT_EQ(log_text(), call.refusal);
            }
        }
    }
    sent();
}

TEST_F(MacChange, on_a_port_that_went_away_adds_are_refused) {
    plug(9).ifx = 0;
    EXPECT_EQ(run(call("add_static"), {0, true, 10, 9}), -1);
    EXPECT_EQ(run(call("bypass"), {1, true, 10, 9}), -1);
}

} // namespace
