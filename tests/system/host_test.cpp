// Real host daemons against the sandbox server: port_watch, linked against the shared library.
#include "tests/system/workstation.h"

namespace {

using namespace test;

struct Host : Workstation {
    // A host that has registered and been synchronised, without requests of its own.
    Process start_ready_host(const std::string &name, std::vector<std::string> options = {}) const {
        options.insert(options.end(), {"-p", "0"});
        Process host = start_host(name, options);
        EXPECT_TRUE(host.shows(name + ": state: registered, master, data synchronised"));
        return host;
    }
    // Tells the server until the host has seen everything that was sent before.
    static void expect_event(Process &sandbox, Process &host, const std::string &event, const std::string &shown) {
        sandbox.write_line("event " + event);
        EXPECT_TRUE(host.shows(shown));
    }
    // "0a0b" as port_watch shows it, with a blank behind each byte.
    static std::string spaced(const std::string &digits) {
        std::string text;
        for (size_t i = 0; i < digits.size(); i += 2)
            text += digits.substr(i, 2) + " ";
        return text;
    }
    static std::string port_1() { return spaced(hex_of(uint32_t{1})); }
    static void expect_clean_end(std::initializer_list<Process *> processes) {
        for (Process *process : processes)
            EXPECT_EQ(process->end(), 0) << process->output();
    }
};

TEST_F(Host, connects_registers_and_is_synchronised) {
    Process sandbox = start_sandbox();
    Process host = start_host("alpha", {"-p", "0"});
    EXPECT_TRUE(host.shows("alpha: connected\n"));
    EXPECT_TRUE(host.shows("alpha: event BRIDGE_EVENT_BKUP_DATA_END(132), 0 bytes\n"));
    EXPECT_TRUE(host.shows("alpha: event BRIDGE_EVENT_SYNC_DATA_END(134), 0 bytes\n"));
    EXPECT_TRUE(host.shows("alpha: state: registered, master, data synchronised\n"));
    EXPECT_TRUE(
        sandbox.shows("client 1 (alpha): registered, pid " + std::to_string(host.pid()) + ", 9 event types, fresh\n"));
    EXPECT_EQ(host.count("alpha: connected\n"), 1);
    expect_clean_end({&host, &sandbox});
    EXPECT_TRUE(host.shows("alpha: ended\n"));
}

TEST_F(Host, refuses_a_command_line_that_it_does_not_understand) {
    const std::vector<std::vector<std::string>> cases = {{"-x"}, {"-n"},       {"-e", "4096"}, {"-e", "one"},
                                                         {"-p"}, {"-p", "-1"}, {"-t", ""},     {"surplus"}};
    for (const auto &options : cases) {
        Process host = start_host("alpha", options);
        EXPECT_EQ(host.wait(), 2);
        EXPECT_TRUE(host.shows("usage: port_watch [-n NAME]"));
    }
}

TEST_F(Host, connects_to_a_server_that_starts_later) {
    Process host = start_host("early", {"-p", "0"});
    EXPECT_TRUE(host.shows("early: state: not connected, master\n"));
    Process sandbox = start_sandbox();
    EXPECT_TRUE(host.shows("early: state: registered, master, data synchronised\n"));
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, event_reaches_the_hosts_that_registered_it_and_no_other) {
    Process sandbox = start_sandbox();
    Process both = start_ready_host("both", {"-e", "407", "-e", "410"});
    Process one = start_ready_host("one", {"-e", "410"});
    sandbox.write_line("event 407 00000003 00000002");
    expect_event(sandbox, both, "410 0a", "both: event VLAN_EVENT_MODIFY_INTF_ALLOWVL(410), 1 bytes: 0a\n");
    EXPECT_TRUE(one.shows("one: event VLAN_EVENT_MODIFY_INTF_ALLOWVL(410), 1 bytes: 0a\n"));
    EXPECT_EQ(both.count("event VLAN_EVENT_MODIFY_INTF_MODE(407), 8 bytes: 00 00 00 03 00 00 00 02\n"), 1);
    EXPECT_EQ(one.count("(407)"), 0);
    expect_clean_end({&both, &one, &sandbox});
}

TEST_F(Host, request_comes_back_to_every_host_as_the_event_of_its_number) {
    Process sandbox = start_sandbox();
    sandbox.write_line("port add 1 access 1");
    Process listener = start_ready_host("listener");
    Process sender = start_host("sender", {"-p", "20"});
    const std::string port_1_vlan_2 = "(409), 8 bytes: " + port_1() + spaced(hex_of(uint16_t{2})) + "00 00\n";
    EXPECT_TRUE(sender.shows("sender: request VLAN_EVENT_MODIFY_INTF_PVID(409), port 1, VLAN 2\n"));
    EXPECT_TRUE(sender.shows("sender: event VLAN_EVENT_MODIFY_INTF_PVID" + port_1_vlan_2));
    EXPECT_TRUE(listener.shows("listener: event VLAN_EVENT_MODIFY_INTF_PVID" + port_1_vlan_2));
    EXPECT_TRUE(sandbox.shows("client 2 (sender): sent VLAN_EVENT_MODIFY_INTF_PVID(409), 8 bytes"));
    expect_clean_end({&sender, &listener, &sandbox});
}

TEST_F(Host, survives_the_server_killed_and_registers_again_with_the_next) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha", {"-e", "387", "-e", "407"});
    sandbox.signal(SIGKILL);
    EXPECT_EQ(sandbox.wait(), 1000 + SIGKILL);
    EXPECT_TRUE(host.shows("alpha: state: not connected"));
    Process next = start_sandbox();
    EXPECT_TRUE(
        next.shows("client 1 (alpha): registered, pid " + std::to_string(host.pid()) + ", 3 event types, fresh\n"));
    EXPECT_TRUE(host.shows("alpha: state: registered"));
    expect_event(next, host, "407 05", "alpha: event VLAN_EVENT_MODIFY_INTF_MODE(407), 1 bytes: 05\n");
    expect_clean_end({&host, &next});
}

TEST_F(Host, does_not_spin_while_server_and_kernel_are_away) {
    constexpr int patient_jobs = 100; // per second: 20 flushes, 10 looks at the state, two reconnections, with a margin
    Process sandbox = start_sandbox();
    setenv("QV_THREAD_TRACE", "1", 1); // every job that the host runs is a line
    Process host = start_ready_host("alpha");
    sandbox.signal(SIGKILL);
    EXPECT_TRUE(host.shows("alpha: state: not connected"));
    const int before = host.count("qv-thread: run ");
    EXPECT_TRUE(host.shows("run bri-reconn"));
    EXPECT_TRUE(host.shows("run bri-ef-reconn"));
    EXPECT_LT(host.count("qv-thread: run ") - before, patient_jobs);
    expect_clean_end({&host});
}

TEST_F(Host, survives_a_server_killed_in_the_middle_of_a_batch) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha", {"-e", "407"});
    const ByteVec batch =
        batch_of({{VLAN_EVENT_MODIFY_INTF_MODE, {1, 2, 3, 4}}, {VLAN_EVENT_MODIFY_INTF_MODE, {5, 6, 7, 8}}});
    sandbox.write_line("raw " + hex(ByteVec(batch.begin(), batch.begin() + 25)));
    EXPECT_TRUE(sandbox.shows("raw: to 1 clients"));
    sandbox.signal(SIGKILL);
    EXPECT_TRUE(host.shows("alpha: state: not connected"));
    EXPECT_EQ(host.count("(407)"), 0); // a batch counts whole or not at all
    Process next = start_sandbox();
    EXPECT_TRUE(host.shows("alpha: state: registered"));
    expect_event(next, host, "407 09", "alpha: event VLAN_EVENT_MODIFY_INTF_MODE(407), 1 bytes: 09\n");
    expect_clean_end({&host, &next});
}

TEST_F(Host, comes_back_after_a_drop_and_a_restart) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha");
    sandbox.write_line("drop");
    EXPECT_TRUE(host.shows("alpha: state: not connected"));
    EXPECT_TRUE(sandbox.shows("client 2 (alpha): registered"));
    EXPECT_TRUE(host.shows("alpha: state: registered"));
    sandbox.write_line("restart 0.1");
    EXPECT_TRUE(host.shows("alpha: state: not connected"));
    EXPECT_TRUE(sandbox.shows("client 3 (alpha): registered"));
    EXPECT_TRUE(host.shows("alpha: state: registered"));
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, batch_header_that_announces_too_much_makes_it_reconnect) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha", {"-e", "407"});
    sandbox.write_line("raw " + hex(batch_of({}, BRI_BATCH_MSG_MAX + 1, 1)));
    EXPECT_TRUE(sandbox.shows("client 1 (alpha): lost, closed by the client"));
    EXPECT_TRUE(sandbox.shows("client 2 (alpha): registered"));
    expect_event(sandbox, host, "407 05", "(407), 1 bytes: 05\n");
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, message_that_runs_past_its_batch_ends_that_batch_only) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha", {"-e", "407"});
    ByteVec batch = batch_of(
        {{VLAN_EVENT_MODIFY_INTF_MODE, {1}}, {VLAN_EVENT_MODIFY_INTF_MODE, {2}}, {VLAN_EVENT_MODIFY_INTF_MODE, {3}}});
    put_at<uint32_t>(batch.data(), 8 + 9 + 4, 0xfffffff8); // the second message's length
    sandbox.write_line("raw " + hex(batch));
    expect_event(sandbox, host, "407 04", "(407), 1 bytes: 04\n");
    EXPECT_EQ(host.count("(407), 1 bytes: 01\n"), 1);
    EXPECT_EQ(host.count("(407)"), 2);
    EXPECT_EQ(sandbox.count("lost"), 0);
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, unknown_and_broken_messages_do_no_harm) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha", {"-e", "407"});
    for (const unsigned type : {0U, 128U, 130U, 140U, 300U, 900U, 1200U, 2400U, 4096U, 65536U, 0xffffffffU})
        sandbox.write_line("raw " + hex(batch_of({{type, ByteVec(64, 0xee)}})));
    sandbox.write_line("raw " + hex(batch_of({{BRIDGE_EVEVT_SERVER_STAT, {}}}))); // no role in it
    sandbox.write_line("raw " + hex(batch_of({}, 0, 7)));
    sandbox.write_line("raw " + hex(batch_of({})));
    expect_event(sandbox, host, "407 05", "(407), 1 bytes: 05\n");
    EXPECT_EQ(sandbox.count("lost"), 0);
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, requests_made_during_a_stall_arrive_complete_and_in_order) {
    Process sandbox = start_sandbox();
    Process host = start_host("alpha", {"-p", "5", "-t", "392", "-e", "392"});
    EXPECT_TRUE(host.shows("VLAN 3\n"));
    sandbox.write_line("stall");
    EXPECT_TRUE(sandbox.shows("stall: 1 clients"));
    EXPECT_TRUE(host.shows("VLAN 30\n"));
    sandbox.write_line("resume");
    // Each comes back as an event that shows it, some of them already before the stall.
    const auto event = [](unsigned vid) {
        return "(392), 8 bytes: " + port_1() + spaced(hex_of(static_cast<uint16_t>(vid))) + "00 00\n";
    };
    EXPECT_TRUE(host.shows(event(30)));
    for (size_t vid = 1, at = 0; vid <= 30; ++vid) {
        at = host.output().find(event(static_cast<unsigned>(vid)), at);
        ASSERT_NE(at, std::string::npos) << vid;
        EXPECT_EQ(host.count(event(static_cast<unsigned>(vid))), 1);
    }
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, slave_gets_no_events_until_a_switch_over_makes_it_master) {
    Process sandbox = start_sandbox({"--role", "slave"});
    Process host = start_host("standby", {"-p", "0", "-e", "138", "-e", "139", "-e", "407", "-e", "132"});
    EXPECT_TRUE(host.shows("standby: state: registered, slave, data synchronised\n"));
    sandbox.write_line("event 407 01");
    EXPECT_TRUE(sandbox.shows("to 1 clients"));
    sandbox.write_line("switchover");
    EXPECT_TRUE(host.shows("standby: event BRIDGE_EVENT_SWITCHOVER_BEGIN(138), 0 bytes\n"));
    EXPECT_TRUE(host.shows("standby: event BRIDGE_EVENT_SWITCHOVER_END(139), 0 bytes\n"));
    EXPECT_TRUE(host.shows("standby: state: registered, master, data synchronised\n"));
    expect_event(sandbox, host, "407 02", "(407), 1 bytes: 02\n");
    EXPECT_EQ(host.count("(407), 1 bytes: 01\n"), 0);
    EXPECT_EQ(host.count("(132)"), 0);
    sandbox.write_line("role slave");
    EXPECT_TRUE(host.shows("standby: state: registered, slave"));
    sandbox.write_line("role master");
    EXPECT_TRUE(host.shows("standby: state: registered, master"));
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, kernel_that_goes_and_comes_back_is_found_again) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha", {"-e", "137", "-e", "407"});
    EXPECT_EQ(host.count("event BRIDGE_EVENT_KERNEL_DATA_REQ(137)"), 1);
    sandbox.write_line("kernel");
    EXPECT_TRUE(sandbox.shows("kernel: up, 1 sockets, 1 listen"));
    sandbox.write_line("kernel down");
    expect_event(sandbox, host, "407 01", "(407)"); // the server's events go on
    sandbox.write_line("kernel up");
    EXPECT_TRUE(host.shows("(137)"));
    EXPECT_TRUE(host.shows("(137)")); // raised twice after a reconnection
    expect_clean_end({&host, &sandbox});
}

TEST_F(Host, sixty_four_hosts_at_once_are_served_and_come_back) {
    constexpr int hosts = 64;
    const std::string script = write_file("script", "wait-clients 64 100\nprint all are here\nevent 407 01\n");
    Process sandbox = start_sandbox({"--script", script});
    std::vector<Process> crowd;
    for (int i = 0; i < hosts; ++i)
        crowd.push_back(start_host("host" + std::to_string(i), {"-p", "0", "-e", "407"}));
    ASSERT_TRUE(sandbox.shows("\nall are here\n", 100000));
    for (Process &host : crowd)
        EXPECT_TRUE(host.shows("(407), 1 bytes: 01\n"));
    sandbox.signal(SIGKILL);
    EXPECT_EQ(sandbox.wait(), 1000 + SIGKILL);
    Process next = start_sandbox({"--script", script});
    ASSERT_TRUE(next.shows("\nall are here\n", 100000));
    for (Process &host : crowd) {
        EXPECT_TRUE(host.shows("(407), 1 bytes: 01\n"));
        host.signal(SIGTERM);
    }
    for (Process &host : crowd)
        EXPECT_EQ(host.wait(), 0) << host.output();
    expect_clean_end({&next});
}

struct HostSlow : Host {};

TEST_F(HostSlow, gives_up_a_server_that_stalls_inside_a_batch) {
    Process sandbox = start_sandbox();
    Process host = start_ready_host("alpha", {"-e", "407"});
    const ByteVec batch = batch_of({{VLAN_EVENT_MODIFY_INTF_MODE, {1, 2, 3, 4}}});
    sandbox.write_line("raw " + hex(ByteVec(batch.begin(), batch.end() - 1)));
    EXPECT_TRUE(sandbox.shows("client 1 (alpha): lost, closed by the client"));
    EXPECT_TRUE(sandbox.shows("client 2 (alpha): registered"));
    EXPECT_EQ(host.count("(407)"), 0);
    expect_event(sandbox, host, "407 05", "(407), 1 bytes: 05\n");
    expect_clean_end({&host, &sandbox});
}

} // namespace
