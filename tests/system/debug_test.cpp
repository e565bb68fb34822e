// Debugging of running host daemons by commands of the sandbox server: what goes over the socket, and what it does.
#include "tests/system/workstation.h"

#include <bridge/debug.h>
#include <bridge/mac_client.h>

#include <fstream>
#include <sstream>

namespace {

using namespace test;

ByteVec value_payload(uint32_t value) {
    return bytes_of(uint32_t{0}) + bytes_of(value);
}

ByteVec filter_payload(uint8_t enable, uint16_t vid = 0, const ByteVec &mac = ByteVec(6, 0), uint32_t ifx = 0) {
    return ByteVec{enable, 0} + bytes_of(vid) + ByteVec(6, 0) + mac + ByteVec(4, 0) + bytes_of(ifx);
}

struct DebugMessages : Workstation {};

TEST_F(DebugMessages, each_command_is_one_message_to_one_client) {
    const ByteVec mac{0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0xfe};
    const std::vector<std::pair<const char *, Message>> cases = {
        {"vlan on", {DEBUG_EVENT_VLAN, value_payload(1)}},
        {"vlan off", {DEBUG_EVENT_VLAN, value_payload(0)}},
        {"mac on", {DEBUG_EVENT_MAC, filter_payload(1)}},
        {"mac off", {DEBUG_EVENT_MAC, filter_payload(0)}},
        {"qinq on", {DEBUG_EVENT_QINQ, value_payload(1)}},
        {"qinq off", {DEBUG_EVENT_QINQ, value_payload(0)}},
        {"vmap on", {DEBUG_EVENT_VMAP, value_payload(1)}},
        {"vmap off", {DEBUG_EVENT_VMAP, value_payload(0)}},
        {"msg on", {DEBUG_EVENT_MSG, value_payload(1)}},
        {"msg off", {DEBUG_EVENT_MSG, value_payload(0)}},
        {"pvlan on", {DEBUG_EVENT_PVLAN, value_payload(1)}},
        {"pvlan off", {DEBUG_EVENT_PVLAN, value_payload(0)}},
        {"mac filter", {DEBUG_EVENT_MAC, filter_payload(1)}},
        {"mac filter vid 4094", {DEBUG_EVENT_MAC, filter_payload(1, 4094)}},
        {"mac filter mac 001a.2b3c.4dfe", {DEBUG_EVENT_MAC, filter_payload(1, 0, mac)}},
        {"mac filter mac 00:1A:2B:3C:4D:FE", {DEBUG_EVENT_MAC, filter_payload(1, 0, mac)}},
        {"mac filter ifx 0x12345678 vid 5 mac 001a2b3c4dfe", {DEBUG_EVENT_MAC, filter_payload(1, 5, mac, 0x12345678)}},
        {"delay 5", {DEBUG_EVENT_MSG_DELAY, value_payload(5)}},
        {"delay -1", {DEBUG_EVENT_MSG_DELAY, value_payload(0xffffffff)}},
        {"delay 0", {DEBUG_EVENT_MSG_DELAY, value_payload(0)}},
        {"delay 2147483647", {DEBUG_EVENT_MSG_DELAY, value_payload(0x7fffffff)}},
        {"show flags", {DEBUG_EVENT_SHOW_FLAGS, {}}},
        {"show vlan", {DEBUG_EVENT_SHOW_VLAN, {}}},
        {"show mac", {DEBUG_EVENT_SHOW_MAC_STATISTIC, {}}},
        {"show cache", {DEBUG_EVENT_SHOW_CACHE, {}}},
        {"show swport", {DEBUG_EVENT_SHOW_SWPORT, {}}},
        {"show delay", {DEBUG_EVENT_SHOW_DELAY, {}}},
    };
    Process sandbox = start_sandbox();
    Peer first = register_client({}, "first");
    Peer second = register_client({}, "second");
    for (const auto &[words, message] : cases) {
        sandbox.write_line(std::string("debug second ") + words);
        const auto batch = second.read_batch();
        ASSERT_TRUE(batch) << words;
        EXPECT_EQ(batch->messages(), (std::vector<Message>{message})) << words;
    }
    EXPECT_FALSE(first.readable());
}

TEST_F(DebugMessages, client_is_given_by_name_or_number_with_or_without_the_sign) {
    Process sandbox = start_sandbox();
    Peer client = register_client({}, "raw");
    for (const char *who : {"raw", "@raw", "1", "@1"}) {
        sandbox.write_line(std::string("debug ") + who + " show flags");
        const auto batch = client.read_batch();
        ASSERT_TRUE(batch) << who;
        EXPECT_EQ(batch->types(), std::vector<uint32_t>{DEBUG_EVENT_SHOW_FLAGS}) << who;
    }
}

TEST_F(DebugMessages, commands_that_say_nothing_known_are_told_and_send_nothing) {
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"debug", "error: usage: debug CLIENT WHAT WORD..."},
        {"debug raw vlan", "error: usage: debug CLIENT WHAT WORD..."},
        {"debug nobody vlan on", "error: no such client: nobody"},
        {"debug raw vlan yes", "error: on or off, not yes"},
        {"debug raw stp on", "error: vlan|mac|qinq|vmap|msg|pvlan, not stp"},
        {"debug raw vlan on off", "error: debug what? (try help)"},
        {"debug raw show all", "error: flags|vlan|mac|cache|swport|delay, not all"},
        {"debug raw delay long", "error: not a number up to 2147483647: long"},
        {"debug raw delay -", "error: not a number up to 2147483647: "},
        {"debug raw delay 2147483648", "error: not a number up to 2147483647: 2147483648"},
        {"debug raw mac filter vid", "error: mac filter without the value of vid"},
        {"debug raw mac filter vid 65536", "error: not a number up to 65535: 65536"},
        {"debug raw mac filter mac 00:11", "error: not a MAC address: 00:11"},
        {"debug raw mac filter mac 00112233445g", "error: not a MAC address: 00112233445g"},
        {"debug raw mac filter port 1", "error: vid, mac or ifx, not port"},
    };
    Process sandbox = start_sandbox();
    Peer client = register_client({}, "raw");
    for (const auto &[command, error] : cases) {
        sandbox.write_line(command);
        EXPECT_TRUE(sandbox.shows(error)) << command;
    }
    EXPECT_FALSE(client.readable());
}

TEST_F(DebugMessages, help_tells_them) {
    Process sandbox = start_sandbox();
    sandbox.write_line("help");
    EXPECT_TRUE(sandbox.shows("\n  debug "));
    EXPECT_TRUE(sandbox.shows("vlan|mac|qinq|vmap|msg|pvlan on|off; mac filter [vid N] [mac ADDRESS] [ifx N];\n"));
    EXPECT_TRUE(sandbox.shows("delay SECONDS, -1 for none; show flags|vlan|mac|cache|swport|delay.\n"));
}

// A host "alpha" whose log lines go to a file, apart from what it prints.
class DebuggedHost : public Workstation {
  protected:
    DebuggedHost()
        : log_path_(tmpdir() + "/log"), sandbox_(start_sandbox()),
          host_({"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>\"$HOST_LOG\"", kPortWatch, "-n", "alpha", "-p", "0", "-e",
                 "132", "-e", "261", "-e", "407"},
                environment()) {
        EXPECT_TRUE(host_.shows("alpha: state: registered, master, data synchronised\n"));
    }
    ~DebuggedHost() override {
        EXPECT_EQ(host_.end(), 0);
        EXPECT_EQ(sandbox_.end(), 0);
    }

    [[nodiscard]] std::vector<std::string> environment() const {
        std::vector<std::string> words = host_environment();
        words.push_back("HOST_LOG=" + log_path_);
        return words;
    }
    void tell(const std::string &command) const { sandbox_.write_line(command); }
    void debug(const std::string &words) const { tell("debug alpha " + words); }
    // Sends an event and waits until the host has handled it, and so everything before it.
    void pass_event(uint8_t number) {
        tell("event 407 " + hex({number}));
        EXPECT_TRUE(host_.shows("(407), 1 bytes: " + hex({number}) + "\n"));
    }
    [[nodiscard]] std::string log() const {
        std::ostringstream text;
        text << std::ifstream(log_path_, std::ios::binary).rdbuf();
        return text.str();
    }
    // The host handles what was sent in order, so that behind an event every line has been written.
    testing::AssertionResult logged(const std::string &line) {
        pass_event(++marker_);
        const std::string text = log();
        return (text.find(line + "\n") != std::string::npos ? testing::AssertionSuccess() : testing::AssertionFailure())
               << "\"" << line << "\" in:\n"
               << text;
    }

    std::string log_path_;
    Process sandbox_;
    Process host_;
    uint8_t marker_ = 0;
};

TEST_F(DebuggedHost, messaging_lines_appear_and_vanish) {
    EXPECT_EQ(log(), "");
    debug("msg on");
    EXPECT_TRUE(logged("debug BRIDGE/LIB_DEBUG: Client(alpha) msg-debug is ON."));
    EXPECT_TRUE(logged("debug BRIDGE/LIB_DEBUG: [alpha] event[VLAN_EVENT_MODIFY_INTF_MODE, 407] is handled."));
    debug("msg off");
    pass_event(100);
    const std::string before = log();
    pass_event(101);
    EXPECT_EQ(log(), before);
    EXPECT_EQ(before.find("msg-debug is OFF"), std::string::npos);
}

TEST_F(DebuggedHost, vlan_lines_appear_and_vanish_without_the_messaging_ones) {
    debug("vlan on");
    EXPECT_TRUE(logged("debug VLIB/DEBUG: Ready to notify event, type(VLAN_EVENT_MODIFY_INTF_MODE), event(407)."));
    EXPECT_EQ(log().find("LIB_DEBUG"), std::string::npos);
    debug("vlan off");
    pass_event(100);
    const std::string before = log();
    pass_event(101);
    EXPECT_EQ(log(), before);
}

TEST_F(DebuggedHost, every_switch_tells_its_change_while_messaging_lines_are_on) {
    debug("msg on");
    for (const char *name : {"vlan", "qinq", "vmap", "pvlan"}) {
        debug(std::string(name) + " on");
        EXPECT_TRUE(logged(std::string("debug BRIDGE/LIB_DEBUG: Client(alpha) ") + name + "-debug is ON."));
        debug(std::string(name) + " off");
        EXPECT_TRUE(logged(std::string("debug BRIDGE/LIB_DEBUG: Client(alpha) ") + name + "-debug is OFF."));
    }
    debug("mac filter vid 7 mac 0011.2233.4455 ifx 9");
    EXPECT_TRUE(logged("debug BRIDGE/LIB_DEBUG: Client(alpha) mac-debug is ON, filter section: "
                       "mac(0011.2233.4455), vid(7), ifx(9)."));
    debug("mac off");
    EXPECT_TRUE(logged("debug BRIDGE/LIB_DEBUG: Client(alpha) mac-debug is OFF, filter section: "
                       "mac(0000.0000.0000), vid(0), ifx(0)."));
    debug("delay 0");
    EXPECT_TRUE(logged("debug BRIDGE/LIB_DEBUG: Client(alpha) msg-delay 0 second."));
}

struct DebuggedMac : DebuggedHost {
    static bri_mac_msg record(uint8_t last, uint16_t vid, uint32_t ifx) {
        bri_mac_msg message{};
        message.oper = BRI_MAC_ADD;
        message.entry.field = 15;
        message.entry.mac[5] = last;
        message.entry.bcast_id = vid;
        message.entry.ifx = ifx;
        message.entry.type = BRI_MAC_TYPE_STATIC;
        return message;
    }
    // Three addresses, as one notification.
    void notify() {
        tell("event MAC_EVENT_NOTIFY_ADDR " +
             hex(bytes_of(record(1, 10, 3)) + bytes_of(record(2, 10, 4)) + bytes_of(record(3, 11, 4))));
        pass_event(++marker_);
    }
    // The last digit of each address whose line has been written since the last call.
    std::string lines_of() {
        const std::string text = log();
        std::string digits;
        const std::string line = "debug MAC/CLIENT_DEBUG: (alpha), notify addr : oper(ADD), field(15), type(STATIC), "
                                 "mac(0000.0000.000";
        for (size_t at = read_; (at = text.find(line, at)) != std::string::npos; at += line.size())
            digits += text[at + line.size()];
        read_ = text.size();
        return digits;
    }
    size_t read_ = 0;
};

TEST_F(DebuggedMac, address_lines_pass_the_filter) {
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"mac off", ""},
        {"mac on", "123"},
        {"mac filter vid 10", "12"},
        {"mac filter ifx 4", "23"},
        {"mac filter vid 10 ifx 4", "2"},
        {"mac filter mac 0000.0000.0003", "3"},
        {"mac filter mac 0000.0000.0003 vid 10", ""},
        {"mac filter", "123"},
        {"mac off", ""},
    };
    for (const auto &[words, lines] : cases) {
        debug(words);
        notify();
        EXPECT_EQ(lines_of(), lines) << words;
    }
}

struct DelayedHost : DebuggedHost {
    void send_three() const {
        for (const char *number : {"01", "02", "03"})
            tell(std::string("event 407 ") + number);
    }
    testing::AssertionResult shows_three() {
        for (const char *number : {"01", "02", "03"})
            if (const auto shown = host_.shows(std::string("(407), 1 bytes: ") + number + "\n"); !shown)
                return shown;
        return testing::AssertionSuccess();
    }
};

TEST_F(DelayedHost, holds_events_back_until_the_delay_is_switched_off) {
    debug("show delay");
    const std::string pid = std::to_string(host_.pid());
    EXPECT_TRUE(host_.shows(" Bridge client pid " + pid + " event-delay is not set.\n"));
    debug("delay 3600");
    send_three();
    debug("show delay"); // itself not held back
    EXPECT_TRUE(host_.shows(" Bridge client[pid " + pid + "] event-delay timer: 3600 second.\n"));
    EXPECT_TRUE(host_.shows(" Delay-event number: 3.\n"));
    EXPECT_EQ(host_.count("(407)"), 0);
    debug("delay 0");
    EXPECT_TRUE(shows_three());
    debug("show delay");
    EXPECT_TRUE(host_.shows("event-delay is not set.\n"));
    EXPECT_EQ(host_.count("(407)"), 3);
}

TEST_F(DelayedHost, timer_releases_events_in_order) {
    debug("delay 3600");
    send_three();
    debug("show delay");
    EXPECT_TRUE(host_.shows(" Delay-event number: 3.\n"));
    debug("delay 1");
    EXPECT_TRUE(shows_three());
    EXPECT_EQ(host_.count("(407)"), 3);
}

TEST_F(DelayedHost, holds_the_role_back_too) {
    debug("delay 3600");
    tell("role slave");
    debug("show delay");
    EXPECT_TRUE(host_.shows(" Delay-event number: 1.\n"));
    EXPECT_EQ(host_.count("slave"), 0);
    debug("delay 0");
    EXPECT_TRUE(host_.shows("alpha: state: registered, slave"));
}

TEST_F(DelayedHost, message_256_releases_all_of_them) {
    debug("delay 3600");
    for (unsigned number = 0; number < 256; ++number)
        tell("event 407 " + hex({static_cast<uint8_t>(number)}));
    for (unsigned number = 0; number < 256; ++number)
        ASSERT_TRUE(host_.shows("(407), 1 bytes: " + hex({static_cast<uint8_t>(number)}) + "\n"));
    debug("show delay");
    EXPECT_TRUE(host_.shows(" Delay-event number: 0.\n"));
}

TEST_F(DebuggedHost, prints_reach_the_output_that_is_shown_and_not_the_log) {
    const std::string pid = std::to_string(host_.pid());
    debug("show flags"); // nothing is on
    debug("show vlan");
    EXPECT_TRUE(host_.shows("\nVLAN Name       Version Status    Svi_ifx Up_num Proxy Ports\n"));
    debug("show mac");
    EXPECT_TRUE(host_.shows("------------- MAC CLIENT ADDR COUNT -------------\nCLIENT NAME: alpha\n"));
    EXPECT_TRUE(host_.shows("TOTAL  :     0\n"));
    debug("show cache");
    EXPECT_TRUE(host_.shows(" Bridge client[pid " + pid + "] cache-msg-flush timer: 50000 usecs\n"));
    EXPECT_TRUE(host_.shows(" Cache-msg number: 0\n"));
    EXPECT_TRUE(host_.shows(" Cache-msg limit: "));
    EXPECT_TRUE(host_.shows(" Cache-msg drop: 0\n"));
    EXPECT_TRUE(host_.shows(" Notify-data-sync-end: YES\n"));
    debug("show swport");
    EXPECT_TRUE(host_.shows("Interface  Mode      Pvid VLAN lists\n"));
    EXPECT_EQ(host_.count("debugging is on"), 0);
    EXPECT_EQ(log(), "");
}

TEST_F(DebuggedHost, prints_the_switches_that_are_on) {
    const std::string pid = std::to_string(host_.pid());
    for (const char *name : {"vlan", "mac", "msg"})
        debug(std::string(name) + " on");
    debug("show flags");
    for (const char *name : {"vlan", "mac", "msg"})
        EXPECT_TRUE(host_.shows("  bridge client pid " + pid + " " + name + " debugging is on\n"));
    debug("vlan off");
    debug("show flags");
    EXPECT_TRUE(host_.shows("mac debugging is on\n"));
    EXPECT_EQ(host_.count("vlan debugging is on"), 1);
    EXPECT_EQ(host_.count("mac debugging is on"), 2);
}

} // namespace
