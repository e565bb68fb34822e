// bridge-sandbox run, ctl and the server's options, as a person or a test uses them.
#include "tests/system/workstation.h"

#include <algorithm>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <semaphore.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <sys/un.h>

namespace {

using namespace test;
namespace fs = std::filesystem;

// A request about port 1.
ByteVec pvid(uint16_t vid) {
    vl_evt_intf_pvid_rec record{};
    record.ifx = 1;
    record.pvid = vid;
    return bytes_of(record);
}

struct SandboxCtl : Workstation {
    // Runs ctl to its end: its status and what it printed.
    static std::pair<int, std::string> ctl(std::vector<std::string> words) {
        words.insert(words.begin(), {kSandbox, "ctl"});
        Process program(words);
        const int status = program.wait().value_or(-1);
        program.drain();
        return {status, program.output()};
    }
};

TEST_F(SandboxCtl, answers_once_with_text_or_json_and_status) {
    Process sandbox = start_sandbox();
    EXPECT_EQ(ctl({"vlan", "create", "10"}), std::pair(0, std::string("vlan create 10: done\n")));
    EXPECT_EQ(ctl({"--json", "clients"}), std::pair(0, std::string("{\"clients\":[],\"count\":0}\n")));
    EXPECT_EQ(ctl({"vlan", "delete", "77"}), std::pair(1, std::string("error: no VLAN 77\n")));
    EXPECT_EQ(ctl({"--json", "fly"}), std::pair(1, std::string("{\"error\":\"no such command: fly (try help)\"}\n")));
    EXPECT_EQ(ctl({"quit"}), std::pair(0, std::string("quit: done\n")));
    EXPECT_EQ(sandbox.wait(), 0);
    EXPECT_EQ(ctl({"clients"}).first, 1);
}

TEST_F(SandboxCtl, repeats_a_command_and_the_lines_of_its_input) {
    Process sandbox = start_sandbox();
    EXPECT_EQ(ctl({"repeat", "2", "print", "again"}), std::pair(0, std::string("again\nagain\n")));
    const std::string lines = write_file("lines", "repeat 2\nrepeat 2 print a\nprint b\nend\nprint c\n");
    Process input({"/bin/sh", "-c", "exec \"$0\" ctl - <" + lines, kSandbox});
    EXPECT_EQ(input.wait(), 0);
    input.drain();
    EXPECT_EQ(input.output(), "a\na\nb\na\na\nb\nc\n");
    const auto [status, text] = ctl({"repeat", "2"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(text.find("a repetition has no end"), std::string::npos) << text;
}

TEST_F(SandboxCtl, bad_usage_ends_with_64_and_names_the_word) {
    for (const std::vector<std::string> &words : std::vector<std::vector<std::string>>{
             {kSandbox, "--frob"}, {kSandbox, "frob"}, {kSandbox, "ctl", "--frob"}, {kSandbox, "run", "--frob", "x"}}) {
        Process program(words);
        EXPECT_EQ(program.wait(), 64) << words[1];
        EXPECT_TRUE(program.shows("frob"));
    }
    Process nothing({kSandbox, "ctl"});
    EXPECT_EQ(nothing.wait(), 64);
}

TEST_F(SandboxCtl, socket_is_the_owners_and_the_folder_is_like_tmp) {
    Process sandbox = start_sandbox();
    struct stat status {};
    ASSERT_EQ(stat((tmpdir() + "/bridge/.control").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    ASSERT_EQ(stat((tmpdir() + "/bridge").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 01777U);
    EXPECT_EQ(sandbox.end(), 0);
    EXPECT_TRUE(fs::is_empty(tmpdir() + "/bridge"));
}

TEST_F(SandboxCtl, what_is_no_socket_stays_where_it_is) {
    fs::create_directory(tmpdir() + "/bridge");
    write_file("precious", "data");
    fs::create_symlink(tmpdir() + "/precious", socket_path());
    fs::permissions(tmpdir() + "/precious", fs::perms::owner_all);
    Process sandbox({kSandbox});
    EXPECT_EQ(sandbox.wait(), 1);
    EXPECT_TRUE(sandbox.shows("cannot listen at"));
    EXPECT_TRUE(fs::is_symlink(socket_path()));
    EXPECT_EQ(fs::status(tmpdir() + "/precious").permissions(), fs::perms::owner_all);
}

TEST_F(SandboxCtl, waits_for_a_request_with_its_fields_and_sender) {
    Process sandbox = start_sandbox();
    Peer client = register_client({}, "raw");
    Process wait({kSandbox, "ctl", "wait", "request", "VLAN_EVENT_MODIFY_INTF_PVID", "pvid=7", "from", "raw"});
    Process never({kSandbox, "ctl", "never", "request", "VLAN_EVENT_RENAME", "for", "5"});
    EXPECT_EQ(ctl({"expect", "request", "VLAN_EVENT_RENAME", "then", "vlan", "5", "exists", "within", "0.1"}).first, 1);
    client.send({{409, pvid(6)}, {409, pvid(7)}});
    EXPECT_EQ(wait.wait(), 0);
    EXPECT_TRUE(wait.shows("ifx=1 pvid=7"));
    client.send({{392, {}}});
    EXPECT_EQ(never.wait(), 1);
    EXPECT_TRUE(never.shows("it happened"));
}

TEST_F(SandboxCtl, expects_an_order_and_sees_what_came_in_another) {
    Process sandbox = start_sandbox();
    Peer client = register_client({}, "raw");
    EXPECT_EQ(ctl({"mark", "begin"}).first, 0);
    client.send({{392, {}}, {393, {}}});
    EXPECT_TRUE(sandbox.shows("VLAN_EVENT_MODIFY_VLAN_MODE"));
    EXPECT_EQ(ctl({"expect", "request", "392", "then", "request", "393", "since", "begin"}).first, 0);
    EXPECT_EQ(ctl({"expect", "request", "393", "then", "request", "392", "since", "begin", "within", "0.1"}).first, 1);
}

TEST_F(SandboxCtl, trace_file_has_both_directions_in_fields) {
    Process sandbox = start_sandbox({"--quiet", "--trace", tmpdir() + "/trace"});
    Peer client = register_client({409}, "raw");
    client.send({{409, pvid(6)}});
    EXPECT_EQ(ctl({"port", "add", "1", "trunk", "3"}).first, 0);
    std::ifstream file(tmpdir() + "/trace");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    EXPECT_NE(
        text.find(
            R"("kind":"request","clients":["raw"],"type":"VLAN_EVENT_MODIFY_INTF_PVID","fields":{"ifx":1,"pvid":6})"),
        std::string::npos)
        << text;
    EXPECT_NE(
        text.find(
            R"("kind":"event","clients":["raw"],"type":"VLAN_EVENT_MODIFY_INTF_PVID","fields":{"ifx":1,"pvid":3})"),
        std::string::npos)
        << text;
    EXPECT_EQ(sandbox.count("event"), 0);
}

TEST_F(SandboxCtl, rules_refuse_drop_delay_duplicate_and_reorder) {
    Process sandbox = start_sandbox();
    Peer client = register_client({400, 401, 402}, "raw");
    for (const char *rule : {"drop 400 once", "duplicate 401 once"})
        run(sandbox, rule);
    run(sandbox, "event 400 01");
    run(sandbox, "event 401 02");
    EXPECT_EQ(next(client), (std::vector<Message>{{401, {2}}}));
    EXPECT_EQ(next(client), (std::vector<Message>{{401, {2}}}));
    run(sandbox, "reorder 400 once");
    run(sandbox, "event 400 03");
    sandbox.write_line("event 401 04");
    EXPECT_TRUE(sandbox.shows("(401), 1 bytes, to client 1 (raw)"));
    EXPECT_TRUE(sandbox.shows("(400), 1 bytes, to client 1 (raw)"));
    EXPECT_EQ(next(client), (std::vector<Message>{{401, {4}}}));
    EXPECT_EQ(next(client), (std::vector<Message>{{400, {3}}}));
    run(sandbox, "delay 400 by 0.05 once");
    run(sandbox, "event 400 05\nevent 401 06"); // both at once, however busy the machine is
    EXPECT_EQ(next(client), (std::vector<Message>{{401, {6}}}));
    EXPECT_EQ(next(client), (std::vector<Message>{{400, {5}}}));
    vl_evt_vlan_rec vlan{};
    vlan.vid = 9;
    run(sandbox, "refuse VLAN_EVENT_CREATE_INDEX vid=9 @raw");
    client.send({{387, bytes_of(vlan)}});
    EXPECT_TRUE(sandbox.shows("VLAN_EVENT_CREATE_INDEX(387) ignored, refused by rule 5"));
    EXPECT_EQ(ctl({"wait", "vlan", "9", "gone"}).first, 0);
}

TEST_F(SandboxCtl, banner_tells_of_tables_that_are_there_and_fresh_removes_them) {
    {
        Process sandbox = start_sandbox();
        EXPECT_TRUE(sandbox.shows(", VSDID " + std::to_string(vsd())));
        EXPECT_EQ(ctl({"vlan", "create", "10"}).first, 0);
        EXPECT_EQ(sandbox.count("were there already"), 0);
        EXPECT_EQ(sandbox.end(), 0);
    }
    {
        Process sandbox = start_sandbox();
        EXPECT_TRUE(sandbox.shows("the tables of VSDID " + std::to_string(vsd()) + " were there already"));
        EXPECT_EQ(ctl({"wait", "vlan", "10", "exists"}).first, 0);
        EXPECT_EQ(sandbox.end(), 0);
    }
    Process sandbox = start_sandbox({"--fresh"});
    EXPECT_EQ(ctl({"wait", "vlan", "10", "gone"}).first, 0);
}

TEST_F(SandboxCtl, vsdid_that_is_no_number_is_refused) {
    for (const char *value : {"abc", "1x", "-1"}) {
        Process sandbox({kSandbox}, {std::string("VSDID=") + value});
        EXPECT_EQ(sandbox.wait(), 64) << value;
        EXPECT_TRUE(sandbox.shows("VSDID")) << value;
    }
}

TEST_F(SandboxCtl, script_that_is_a_directory_is_refused) {
    Process sandbox({kSandbox, "--script", tmpdir()});
    EXPECT_EQ(sandbox.wait(), 1);
    EXPECT_TRUE(sandbox.shows("it is a directory"));
}

TEST_F(SandboxCtl, event_may_be_given_by_its_fields) {
    Process sandbox = start_sandbox();
    Peer client = register_client({409}, "raw");
    EXPECT_EQ(ctl({"event", "VLAN_EVENT_MODIFY_INTF_PVID", "pvid=7", "ifx=1"}).first, 0);
    EXPECT_EQ(next(client), (std::vector<Message>{{409, pvid(7)}}));
    EXPECT_NE(ctl({"event", "409", "colour=7"}).second.find("colour"), std::string::npos);
    EXPECT_NE(ctl({"trace", "1"}).second.find("to client 1 (raw): ifx=1 pvid=7\nrecords: 1\n"), std::string::npos);
}

TEST_F(SandboxCtl, end_of_standard_input_is_said_and_ends_nothing) {
    Process sandbox({"/bin/sh", "-c", "true | \"$0\"", kSandbox});
    EXPECT_TRUE(sandbox.shows("end of standard input; the server goes on"));
    EXPECT_EQ(ctl({"quit"}).first, 0);
    EXPECT_EQ(sandbox.wait(), 0);
}

// As a person ends it at a terminal.
TEST_F(SandboxCtl, control_d_at_a_terminal_is_the_end_of_standard_input) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal) | unlockpt(terminal), 0);
    Process sandbox({"/bin/sh", "-c", std::string("exec \"$0\" <") + ptsname(terminal), kSandbox});
    ASSERT_EQ(write(terminal, "print typed\n", 12), 12);
    EXPECT_TRUE(sandbox.shows("typed\n"));
    EXPECT_EQ(sandbox.count("end of standard input"), 0);
    ASSERT_EQ(write(terminal, "\4", 1), 1);
    EXPECT_TRUE(sandbox.shows("end of standard input; the server goes on"));
    EXPECT_EQ(ctl({"quit"}).first, 0);
    EXPECT_EQ(sandbox.wait(), 0);
    close(terminal);
}

TEST_F(SandboxCtl, seed_that_is_no_number_is_bad_usage) {
    for (const char *seed : {"-1", "x"}) {
        Process program({kSandbox, "--seed", seed});
        EXPECT_EQ(program.wait(), 64) << seed;
    }
}

TEST_F(SandboxCtl, closed_standard_input_is_none) {
    Process sandbox({"/bin/sh", "-c", "exec \"$0\" <&-", kSandbox});
    EXPECT_TRUE(sandbox.shows("listening at"));
    EXPECT_EQ(ctl({"clients"}).first, 0);
    EXPECT_EQ(sandbox.count("warn"), 0);
    EXPECT_EQ(sandbox.end(), 0);
}

struct SandboxRun : Workstation {
    // Runs it to its end: its status and what was printed.
    static std::pair<int, std::string> sandbox_run(std::vector<std::string> words) {
        words.insert(words.begin(), {kSandbox, "run"});
        Process program(words, {"ASAN_OPTIONS=verify_asan_link_order=0"});
        const int status = program.wait().value_or(-1);
        program.drain();
        return {status, program.output()};
    }
};

TEST_F(SandboxRun, has_the_commands_status_and_leaves_nothing) {
    const auto [status, text] =
        sandbox_run({"--", "/bin/sh", "-c", "echo $TMPDIR; test -S $TMPDIR/bridge/.control && exit 3"});
    EXPECT_EQ(status, 3);
    EXPECT_NE(text.find("status 3; what happened last:\nlistening at "), std::string::npos) << text;
    EXPECT_FALSE(fs::exists(text.substr(0, text.find('\n'))));
}

// A process that has ended, be it that nobody has asked for its status yet.
bool has_ended(const std::string &pid) {
    std::ifstream file("/proc/" + pid + "/stat");
    std::string text;
    std::getline(file, text);
    return text.find(") Z ") != std::string::npos || text.empty();
}

TEST_F(SandboxRun, killed_one_leaves_no_process_no_directory_and_no_table) {
    Process program({kSandbox, "run", "--", "/bin/sh", "-c",
                     "echo in $TMPDIR number $VSDID; echo parent $PPID; cat /proc/$PPID/task/$PPID/children; "
                     "\"$0\" ctl vlan create 10; echo ready; exec sleep 1000",
                     kSandbox},
                    {"ASAN_OPTIONS=verify_asan_link_order=0"});
    ASSERT_TRUE(program.shows("ready\n")) << program.output();
    std::istringstream said(program.output());
    std::string word;
    std::string directory;
    std::string number;
    said >> word >> directory >> word >> number >> word >> word;
    std::set<std::string> children;
    while (said >> word && word != "vlan")
        children.insert(word);
    EXPECT_GE(children.size(), 3U); // the kernel's, the server's, the command
    program.signal(SIGKILL);
    EXPECT_EQ(program.wait(), 1000 + SIGKILL);
    const auto is_gone = [&] {
        return std::all_of(children.begin(), children.end(), has_ended) && !fs::exists(directory);
    };
    for (int waited = 0; waited < kPatienceMs && !is_gone(); waited += 10)
        poll(nullptr, 0, 10);
    EXPECT_TRUE(is_gone()) << program.output();
    Process cleaner({kSandbox, "clean"}, {"VSDID=" + number});
    EXPECT_TRUE(cleaner.shows("VSDID " + number + ": 0 objects removed\n"));
    EXPECT_EQ(cleaner.wait(), 0);
}

TEST_F(SandboxRun, command_that_cannot_be_started_is_told) {
    const auto [status, text] = sandbox_run({"--", "/no/such/program"});
    EXPECT_EQ(status, 1);
    EXPECT_EQ(text, "bridge-sandbox: cannot start /no/such/program: No such file or directory\n");
}

TEST_F(SandboxRun, control_characters_of_the_command_line_are_shown_as_such) {
    for (const std::vector<std::string> &words : {std::vector<std::string>{kSandbox, "\x1b[31m"},
                                                  {kSandbox, "run", "--script", "/x\x1b[31m"},
                                                  {kSandbox, "ctl", "--\x1b[31m"}}) {
        Process program(words);
        EXPECT_NE(program.wait(), 0);
        EXPECT_TRUE(program.shows("\\x1b[31m")) << program.output();
        EXPECT_EQ(program.count("\x1b"), 0);
    }
}

TEST_F(SandboxRun, command_has_the_usual_signals) {
    EXPECT_EQ(sandbox_run({"--", "/bin/sh", "-c", "grep -q 'SigIgn:.*[13579bdf]...$' /proc/self/status"}).first, 1);
}

TEST_F(SandboxRun, time_scale_is_a_number_from_1_to_1000) {
    for (const char *scale : {"0.5", "1001", "nan", "inf", "x", "-1"})
        EXPECT_EQ(sandbox_run({"--time-scale", scale, "--", "/bin/true"}).first, 64) << scale;
    EXPECT_EQ(sandbox_run({"--time-scale", "1000", "--", "/bin/true"}).first, 0);
}

TEST_F(SandboxRun, group_address_sends_nothing) {
    const std::string script = write_file("script", "traffic 01:00:00:00:00:aa 10 3\n");
    const auto [status, text] = sandbox_run({"--script", script});
    EXPECT_NE(status, 0);
    EXPECT_NE(text.find("traffic 01:00:00:00:00:aa 10 3: a group address is nobody's"), std::string::npos) << text;
}

TEST_F(SandboxRun, commands_of_the_world_find_its_server) {
    EXPECT_EQ(sandbox_run({"--", kSandbox, "ctl", "vlan", "create", "10"}),
              std::pair(0, std::string("vlan create 10: done\n")));
}

TEST_F(SandboxRun, script_decides_also_over_a_killed_server) {
    const std::string script = write_file("script", "wait client watch registered\n"
                                                    "vlan create 10\n"
                                                    "server kill\n"
                                                    "server start\n"
                                                    "wait client watch registered  # it came back\n"
                                                    "wait vlan 10 exists\n"
                                                    "daemon end\n");
    const auto [status, text] =
        sandbox_run({"--time-scale", "20", "--script", script, "--", kPortWatch, "-n", "watch", "-p", "0"});
    EXPECT_EQ(status, 0) << text;
    EXPECT_NE(text.find("vlan create 10: done\nclient watch registered\n"), std::string::npos) << text;
}

TEST_F(SandboxRun, script_that_waits_in_vain_fails) {
    const std::string script = write_file("script", "wait vlan 11 exists within 0.05\n");
    const auto [status, text] = sandbox_run({"--script", script, "--", kPortWatch, "-p", "0"});
    EXPECT_EQ(status, 1);
    EXPECT_NE(text.find("waited in vain for vlan 11 exists: it does not exist"), std::string::npos) << text;
}

TEST_F(SandboxRun, script_starts_daemons_of_its_own) {
    const std::string script = write_file("script", "daemon start vlan_guard -n one\n"
                                                    "daemon start vlan_guard -n two\n"
                                                    "wait clients registered is 2\n"
                                                    "daemon end\n"
                                                    "wait client two gone\n"
                                                    "wait client one registered\n"
                                                    "daemon end\n"
                                                    "wait client one gone\n"
                                                    "daemon end\n");
    const auto [status, text] = sandbox_run({"--script", script});
    EXPECT_EQ(status, 1);
    EXPECT_NE(text.find("client one registered\n"), std::string::npos) << text;
    EXPECT_NE(text.find("daemon end: no daemon runs"), std::string::npos) << text;
}

TEST_F(SandboxRun, script_may_be_a_scenario_that_comes_with_the_program) {
    const auto [status, text] = sandbox_run({"--time-scale", "20", "--script", "rollback"});
    EXPECT_EQ(status, 0) << text;
    EXPECT_NE(text.find("vlan 26 gone"), std::string::npos) << text;
    EXPECT_EQ(sandbox_run({"--script", "no-such-scenario"}).first, 1);
    EXPECT_EQ(sandbox_run({}).first, 64);
}

TEST_F(SandboxRun, daemon_that_does_not_end_fails_the_script) {
    const std::string script = write_file("script", "wait client deaf registered\ndaemon end\n");
    const auto [status, text] = sandbox_run(
        {"--script", script, "--", "/bin/sh", "-c", "trap '' TERM; \"$0\" -n deaf -p 0; sleep 60", kPortWatch});
    EXPECT_EQ(status, 1);
    EXPECT_NE(text.find("the daemon does not end"), std::string::npos) << text;
}

TEST_F(SandboxRun, last_that_happened_may_be_records) {
    const std::string script = write_file("script", "vlan create 10\nserver kill\nserver start\nvlan delete 10\n"
                                                    "wait client watch registered\nvlan delete 11\n");
    const auto [status, text] =
        sandbox_run({"--json", "--time-scale", "20", "--script", script, "--", kPortWatch, "-n", "watch", "-p", "0"});
    EXPECT_EQ(status, 1);
    const size_t last = text.find("what happened last:\n{\"number\":1,");
    EXPECT_NE(last, std::string::npos) << text;
    EXPECT_NE(text.find("\"kind\":\"event\",\"clients\":[\"watch\"]", last), std::string::npos) << text;
}

TEST_F(SandboxRun, ends_its_world_when_it_is_told_to_end) {
    Process program({kSandbox, "run", "--", "/bin/sh", "-c", "echo $TMPDIR; exec sleep 60"});
    ASSERT_TRUE(program.shows("/tmp/bri."));
    ASSERT_TRUE(program.shows("\n"));
    program.signal(SIGTERM);
    EXPECT_EQ(program.wait(), 128 + SIGTERM);
    EXPECT_FALSE(fs::exists(program.output().substr(0, program.output().find('\n'))));
}

constexpr const char *kSemaphore = "/bri-test-left-behind";

// What the next test runs in a world: a program that leaves a semaphore behind.
TEST(DISABLED_InWorld, leaves_a_semaphore) {
    sem_t *semaphore = sem_open(kSemaphore, O_CREAT | O_EXCL, 0600, 1U);
    ASSERT_NE(semaphore, SEM_FAILED);
    EXPECT_EQ(sem_open(kSemaphore, O_CREAT | O_EXCL, 0600, 1U), SEM_FAILED);
    EXPECT_EQ(sem_close(semaphore), 0);
}

TEST_F(SandboxRun, semaphores_are_the_worlds_own_and_are_removed) {
    const std::string self = fs::read_symlink("/proc/self/exe");
    const std::vector<std::string> words = {"--", self, "--gtest_also_run_disabled_tests",
                                            "--gtest_filter=DISABLED_InWorld.leaves_a_semaphore"};
    for (int twice = 0; twice < 2; ++twice) {
        const auto [status, text] = sandbox_run(words);
        EXPECT_EQ(status, 0) << text;
    }
    EXPECT_EQ(sem_open(kSemaphore, 0), SEM_FAILED);
}

} // namespace
