// What bridge-monitor shows of a server's events, and how it ends.
#include "tests/tools/monitor_fixture.h"

namespace {

using namespace test;

struct MonitorText : Monitor {};
struct MonitorJson : Monitor {};
struct MonitorChoice : Monitor {};
struct MonitorEnd : Monitor {};

bool has(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

TEST_F(MonitorText, shows_an_event_by_its_fields) {
    Process server = start_sandbox();
    Process program = follow(server, {"vlan"});
    run(server, "vlan create 10");
    EXPECT_TRUE(program.shows("\nVLAN_EVENT_CREATE_INDEX vid=10 version="));
    EXPECT_TRUE(program.shows(" name=VLAN0010 occasion=none mode=static\n"));
    EXPECT_EQ(output_of(program).substr(0, 12), "[connected]\n");
}

TEST_F(MonitorText, tells_the_counters_on_standard_error_at_the_end) {
    Process server = start_sandbox();
    Process program = follow(server, {"VLAN_EVENT_CREATE_INDEX"});
    run(server, "vlan create 10");
    EXPECT_TRUE(program.shows("vid=10"));
    EXPECT_FALSE(has(output_of(program), "counters"));
    EXPECT_TRUE(has(errors(), "counters:\n  connections                         1\n")) << errors();
    EXPECT_TRUE(has(errors(), "  events_handed_on                    1\n")) << errors();
    EXPECT_FALSE(has(errors(), "reset_by_peer")) << errors();
}

TEST_F(MonitorText, begins_a_line_with_the_time_when_asked) {
    Process server = start_sandbox();
    Process program = follow(server, {"vlan", "-t"});
    run(server, "vlan create 10");
    EXPECT_TRUE(program.shows("VLAN_EVENT_CREATE_INDEX"));
    const std::string text = output_of(program);
    const size_t at = text.find("VLAN_EVENT_CREATE_INDEX");
    ASSERT_GE(at, 16U) << text;
    const std::string time = text.substr(at - 16, 16);
    for (size_t i = 0; i < time.size(); ++i)
        EXPECT_TRUE(std::string("dd:dd:dd.dddddd ")[i] == 'd' ? std::isdigit(static_cast<unsigned char>(time[i])) != 0
                                                              : time[i] == std::string("dd:dd:dd.dddddd ")[i])
            << time;
}

TEST_F(MonitorText, has_colours_only_when_they_are_wanted) {
    Process server = start_sandbox();
    Process plain = follow(server, {"VLAN_EVENT_CREATE_INDEX", "--count", "1"});
    run(server, "vlan create 10");
    EXPECT_EQ(plain.wait(), 0);
    plain.drain();
    EXPECT_FALSE(has(plain.output(), "\033["));
    run(server, "wait clients registered is 0");
    Process coloured = follow(server, {"VLAN_EVENT_CREATE_INDEX", "--count", "1", "--color", "always"});
    run(server, "vlan create 11");
    EXPECT_EQ(coloured.wait(), 0);
    coloured.drain();
    EXPECT_TRUE(has(coloured.output(), "\033[1;36mVLAN_EVENT_CREATE_INDEX\033[0m vid=1")) << coloured.output();
}

TEST_F(MonitorText, tells_when_the_server_goes_and_comes_back) {
    Process server = start_sandbox();
    Process program = follow(server, {"vlan"}, {"QV_THREAD_TIME_SCALE=10"});
    server.signal(SIGKILL);
    EXPECT_TRUE(program.shows("[not connected: waiting for the server]\n"));
    EXPECT_EQ(server.wait(), 1000 + SIGKILL);
    Process again = start_sandbox();
    EXPECT_TRUE(program.shows("[connected]\n"));
    EXPECT_EQ(program.end(), 0);
    EXPECT_TRUE(has(errors(), "  connections                         2\n")) << errors();
    EXPECT_TRUE(has(errors(), "  reset_by_peer                       1\n")) << errors();
}

TEST_F(MonitorText, says_that_the_kernels_module_is_missing) {
    Process server = start_sandbox();
    Process program({BRIDGE_MONITOR, "vlan"}); // without what stands for the module
    EXPECT_TRUE(program.shows("[connected, but no events: waiting for the kernel's bridge module]\n"));
    EXPECT_EQ(program.end(), 0);
}

TEST_F(MonitorText, tells_that_it_is_slave_and_counts_what_it_is_not_told) {
    Process server = start_sandbox({"--role", "slave"});
    Process program = follow_as_slave(server, {"vlan"});
    run(server, "vlan create 10");
    EXPECT_TRUE(program.shows("[slave: no events]\n"));
    run(server, "role master");
    run(server, "vlan create 11");
    EXPECT_TRUE(program.shows("vid=11"));
    EXPECT_TRUE(program.shows("[master]\n"));
    EXPECT_FALSE(has(output_of(program), "vid=10"));
    EXPECT_TRUE(has(errors(), "  dropped_slave ")) << errors();
}

TEST_F(MonitorText, counts_alone_in_a_summary) {
    Process server = start_sandbox();
    Process program = follow(server, {"VLAN_EVENT_CREATE_INDEX", "VLAN_EVENT_RENAME", "--summary", "--count", "3"});
    run(server, "vlan create 10");
    run(server, "vlan create 11");
    run(server, "vlan rename 10 ten");
    EXPECT_EQ(program.wait(), 0);
    program.drain();
    EXPECT_EQ(program.output(), "  VLAN_EVENT_CREATE_INDEX             2\n"
                                "  VLAN_EVENT_RENAME                   1\n"
                                "  events                              3\n");
}

TEST_F(MonitorJson, gives_an_object_a_line_and_the_counters_last) {
    Process server = start_sandbox();
    Process program = follow(server, {"VLAN_EVENT_CREATE_INDEX", "--json", "--count", "1"});
    run(server, "vlan create 10");
    EXPECT_EQ(program.wait(), 0);
    program.drain();
    const auto all = objects(program.output());
    ASSERT_EQ(all.size(), 3U) << program.output();
    EXPECT_EQ(all[0]["connection"], "up");
    EXPECT_GT(all[1]["time"], 1.5e9);
    EXPECT_EQ(all[1]["event"], "VLAN_EVENT_CREATE_INDEX");
    EXPECT_EQ(all[1]["type"], 387);
    EXPECT_EQ(all[1]["fields"]["vid"], 10);
    EXPECT_EQ(all[1]["fields"]["name"], "VLAN0010");
    EXPECT_EQ(all[2]["events"]["VLAN_EVENT_CREATE_INDEX"], 1);
    EXPECT_EQ(all[2]["counters"]["connections"], 1);
    EXPECT_EQ(all[2]["counters"]["dropped_slave"], 0);
    EXPECT_EQ(all[2]["counters"].size(), sizeof(bri_counters) / sizeof(uint64_t));
    EXPECT_EQ(errors(), "");
}

TEST_F(MonitorJson, tells_connection_and_role) {
    Process server = start_sandbox({"--role", "slave"});
    Process program = follow_as_slave(server, {"vlan", "--json"}, {"QV_THREAD_TIME_SCALE=10"});
    run(server, "vlan create 10");
    EXPECT_TRUE(program.shows(R"("role":"slave"})"));
    server.signal(SIGKILL);
    EXPECT_TRUE(program.shows(R"("connection":"down"})"));
    const auto all = objects(output_of(program));
    EXPECT_GE(all.back()["counters"]["dropped_slave"], 1);
    EXPECT_TRUE(all.back()["events"].empty());
}

TEST_F(MonitorChoice, a_group_is_the_events_of_its_submodule) {
    Process server = start_sandbox();
    Process program = follow(server, {"mac", "--origin"});
    run(server, "vlan create 10");
    run(server, "port add 4 access 10");
    run(server, "traffic 02:00:00:00:00:05 10 4");
    EXPECT_TRUE(
        program.shows("MAC_EVENT_NOTIFY_ADDR oper=add flags=0 field=mac|ifx|type|bcast_id mac=02:00:00:00:00:05"));
    EXPECT_FALSE(has(output_of(program), "VLAN_EVENT_CREATE_INDEX"));
}

TEST_F(MonitorChoice, a_range_goes_by_numbers_and_names) {
    Process server = start_sandbox();
    Process program = follow(server, {"387-VLAN_EVENT_DESTROY_INDEX"});
    run(server, "vlan create 10");
    run(server, "vlan rename 10 ten");
    run(server, "vlan delete 10");
    EXPECT_TRUE(program.shows("VLAN_EVENT_DESTROY_INDEX"));
    const std::string text = output_of(program);
    EXPECT_TRUE(has(text, "VLAN_EVENT_CREATE_INDEX"));
    EXPECT_FALSE(has(text, "VLAN_EVENT_RENAME"));
}

TEST_F(MonitorChoice, a_group_does_not_ask_to_be_asked) {
    Process server = start_sandbox();
    Process program = follow(server, {});
    run(server, "vlan patience 60000");
    run(server, "vlan create 10"); // answered at once, as nobody has a say
    EXPECT_TRUE(program.shows("vid=10"));
    EXPECT_EQ(program.end(), 0);
}

TEST_F(MonitorChoice, a_question_that_is_named_is_asked_and_warned_about) {
    Process server = start_sandbox();
    Process program = follow(server, {"VLAN_EVENT_CREATE_PREJ", "--count", "1"});
    run(server, "vlan patience 100");
    run(server, "fails vlan create 10");
    EXPECT_EQ(program.wait(), 0);
    EXPECT_TRUE(has(errors(), "VLAN_EVENT_CREATE_PREJ: the server waits for an answer that a monitor does not give"))
        << errors();
}

TEST_F(MonitorChoice, filters_show_what_is_about_the_port) {
    Process server = start_sandbox();
    Process program = follow(server, {"vlan", "port=3-4"});
    run(server, "port add 5 access 1");
    run(server, "vlan create 10");
    run(server, "port add 3 access 1");
    EXPECT_TRUE(program.shows("VLAN_EVENT_CREATE_INTF ifx=3"));
    const std::string text = output_of(program);
    EXPECT_FALSE(has(text, "ifx=5")) << text;
    EXPECT_FALSE(has(text, "vid=10"));    // of no port
    EXPECT_FALSE(has(text, "SYNC_DATA")); // without a record
}

TEST_F(MonitorChoice, a_vlan_is_also_one_of_a_set) {
    Process server = start_sandbox();
    run(server, "vlan create 10,20-22");
    Process program = follow(server, {"vlan", "vlan=21,30"});
    run(server, "vlan create 40");
    run(server, "vlan create 30");
    EXPECT_TRUE(program.shows("VLAN_EVENT_CREATE_RANGE vlans=10,20-22 origin_data=1"));
    EXPECT_TRUE(program.shows("VLAN_EVENT_CREATE_INDEX vid=30"));
    EXPECT_FALSE(has(output_of(program), "vid=40"));
}

TEST_F(MonitorChoice, a_set_without_the_vlan_does_not_match) {
    Process server = start_sandbox();
    run(server, "vlan create 10,20-22");
    Process program = follow(server, {"vlan", "vlan=30"});
    EXPECT_FALSE(has(output_of(program), "VLAN_EVENT_CREATE_RANGE"));
}

TEST_F(MonitorChoice, origin_data_is_asked_for_on_every_connection_when_wanted) {
    Process server = start_sandbox();
    run(server, "vlan create 10");
    Process program = follow(server, {"VLAN_EVENT_CREATE_RANGE", "--origin"}, {"QV_THREAD_TIME_SCALE=10"});
    EXPECT_TRUE(program.shows("VLAN_EVENT_CREATE_RANGE vlans=10 origin_data=1"));
    server.signal(SIGKILL);
    EXPECT_EQ(server.wait(), 1000 + SIGKILL);
    Process again = start_sandbox();
    EXPECT_TRUE(program.shows("VLAN_EVENT_CREATE_RANGE vlans=10 origin_data=1"));
    EXPECT_EQ(program.end(), 0);
    EXPECT_EQ(program.count("VLAN_EVENT_CREATE_RANGE"), 2);
}

TEST_F(MonitorChoice, all_filters_must_hold) {
    Process server = start_sandbox();
    Process program = follow(server, {"mac", "mac=02:00:00:00:00:05", "port=5"});
    run(server, "vlan create 10");
    run(server, "port add 4 access 10");
    run(server, "port add 5 access 10");
    run(server, "traffic 02:00:00:00:00:06 10 5");
    run(server, "traffic 02:00:00:00:00:05 10 4");
    run(server, "traffic 02:00:00:00:00:05 10 5");
    EXPECT_TRUE(program.shows("mac=02:00:00:00:00:05 bcast_id=10 ifx=5"));
    const std::string text = output_of(program);
    EXPECT_FALSE(has(text, "mac=02:00:00:00:00:06"));
    EXPECT_FALSE(has(text, "ifx=4"));
}

TEST_F(MonitorEnd, the_count_and_the_time_end_it) {
    Process server = start_sandbox();
    Process counted = follow(server, {"VLAN_EVENT_CREATE_INDEX", "--count", "2"});
    run(server, "vlan create 10");
    run(server, "vlan create 11");
    EXPECT_EQ(counted.wait(), 0);
    EXPECT_EQ(counted.count("vid="), 2);
    Process timed = start({"--for", "300ms"});
    EXPECT_EQ(timed.wait(), 0);
}

TEST_F(MonitorEnd, sigterm_is_an_end_like_any_other) {
    Process server = start_sandbox();
    Process program = follow(server, {"vlan"});
    static_cast<void>(output_of(program, SIGTERM));
    EXPECT_TRUE(has(errors(), "counters:\n"));
}

TEST_F(MonitorEnd, without_a_server_it_fails) {
    EXPECT_EQ(status_of({"--for", "0.3"}), 1);
    EXPECT_TRUE(has(errors(), "bridge-monitor: there was no server\n")) << errors();
    EXPECT_TRUE(has(errors(), "  connect_failed ")) << errors();
}

TEST_F(MonitorEnd, output_that_cannot_be_written_is_a_failure) {
    Process server = start_sandbox();
    Process program({"/bin/sh", "-c", "exec \"$0\" vlan >/dev/full", BRIDGE_MONITOR}, host_environment());
    EXPECT_EQ(program.wait(), 1);
    EXPECT_TRUE(program.shows("bridge-monitor: standard output does not take any more\n"));
}

TEST_F(MonitorEnd, bad_usage_is_named) {
    const std::vector<std::pair<std::string, std::string>> cases{{"vlans", "no such event: vlans"},
                                                                 {"5000", "no client can register for event 5000"},
                                                                 {"0", "for event 0"},
                                                                 {"390-387", "ends before it begins"},
                                                                 {"color=3", "no such filter: color=3"},
                                                                 {"vlan=4095", "4095"},
                                                                 {"port=", "is no number"},
                                                                 {"mac=1", "1"},
                                                                 {"--fly", "--fly"},
                                                                 {"--count=0", "count"},
                                                                 {"--for=5days", "days"},
                                                                 {"--color=sometimes", "sometimes"}};
    for (const auto &[word, text] : cases) {
        EXPECT_EQ(status_of({word}), 64) << word;
        EXPECT_TRUE(has(errors(), text)) << word << ": " << errors();
    }
}

TEST_F(MonitorEnd, lists_the_words_that_it_knows) {
    Process program = start({"--list"});
    EXPECT_EQ(program.wait(), 0);
    program.drain();
    EXPECT_TRUE(has(program.output(), "\ntopology  "));
    EXPECT_TRUE(has(program.output(), "\n  VLAN_EVENT_CREATE_INDEX  387\n"));
    EXPECT_FALSE(has(program.output(), "BRIDGE_EVENT_REG_MSG")); // never comes
}

} // namespace
