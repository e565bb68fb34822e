// Five faults, each found with the command of docs/troubleshooting.md, which prints what stands there.
#include "tests/tools/monitor_fixture.h"

#include <algorithm>
#include <regex>

namespace {

using namespace test;

class Troubleshooting : public Monitor {
  protected:
    // The lines that stand in the document below "    $ COMMAND".
    [[nodiscard]] static Words documented(const std::string &command) {
        std::ifstream file(BRIDGE_DOCS "/troubleshooting.md");
        Words lines;
        bool inside = false;
        for (std::string line; std::getline(file, line);) {
            const bool is_code = line.starts_with("    ");
            if (inside && (!is_code || line.starts_with("    $ ")))
                break;
            if (inside)
                lines.push_back(line.substr(4));
            inside = inside || line == "    $ " + command;
        }
        EXPECT_FALSE(lines.empty()) << command;
        return lines;
    }

    // Figures and the blanks in front of them may be others.
    static std::string shape(const std::string &line) {
        return std::regex_replace(std::regex_replace(line, std::regex("[0-9]+$"), "N"), std::regex(" +"), " ");
    }
    static void expect_documented(const std::string &command, const std::string &printed) {
        Words lines;
        std::istringstream text(printed);
        for (std::string line; std::getline(text, line);)
            lines.push_back(shape(line));
        for (const std::string &line : documented(command))
            EXPECT_NE(std::ranges::find(lines, shape(line)), lines.end()) << line << " is not in\n" << printed;
    }

    [[nodiscard]] static Process start_planted(const Words &options) {
        Words command{BRIDGE_PLANTED_DAEMON};
        command.insert(command.end(), options.begin(), options.end());
        return Process(command, host_environment());
    }
    // A monitor's lines and its counters, when it is told to end.
    [[nodiscard]] std::string all_of(Process &monitor) const {
        const std::string lines = output_of(monitor);
        return lines + errors();
    }
};

TEST_F(Troubleshooting, a_daemon_that_forgot_to_register_is_found_in_a_recording) {
    if (Process({"/bin/sh", "-c", "command -v tshark"}).wait() != 0)
        GTEST_SKIP() << "NOT TESTED: no tshark on this machine";
    Process server = start_sandbox({"--record", tmpdir() + "/day.pcapng"});
    Process daemon = start_planted({"-e", "392"});
    run(server, "wait client my_daemon registered");
    run(server, "vlan create 10");
    run(server, "vlan rename 10 office");
    EXPECT_TRUE(daemon.shows("event 392,"));
    EXPECT_FALSE(daemon.count("event 387,") > 0);
    EXPECT_EQ(daemon.end(), 0);
    EXPECT_EQ(server.end(), 0);
    const std::string command = "tshark -X lua_script:bridge.lua -r day.pcapng -Y bridge.clnt_mng.event_set "
                                "-T fields -e bridge.clnt_mng.name -e bridge.clnt_mng.event_set";
    Process analyser(
        {"/bin/sh", "-c",
         "cd " + tmpdir() + " && cp '" BRIDGE_DISSECTOR_DIR "/bridge.lua' . && " + command + " 2>/dev/null"},
        {"HOME=" + tmpdir()});
    EXPECT_EQ(analyser.wait(60000), 0);
    analyser.drain();
    expect_documented(command, analyser.output());
}

TEST_F(Troubleshooting, a_slave_is_found_by_a_monitor) {
    Process server = start_sandbox({"--role", "slave"});
    Process daemon = start_planted({"-e", "387"});
    Process monitor = follow_as_slave(server, {"vlan", "--for", "60"});
    run(server, "wait clients registered is 2");
    run(server, "vlan create 10");
    EXPECT_TRUE(monitor.shows("[slave"));
    EXPECT_EQ(daemon.count("event"), 0);
    expect_documented("bridge-monitor vlan --for 5 # slave", all_of(monitor));
}

TEST_F(Troubleshooting, a_stale_version_is_found_by_a_monitors_counters) {
    Process server = start_sandbox();
    Process daemon = start_planted({"-e", "387", "-e", "388"});
    Process monitor = follow(server, {"--summary", "vlan"});
    run(server, "wait clients registered is 2");
    run(server, "reorder event VLAN_EVENT_CREATE_INDEX vid=10 @my_daemon once");
    run(server, "reorder event VLAN_EVENT_CREATE_INDEX vid=10 @bridge-monitor once");
    run(server, "vlan create 10");
    run(server, "vlan delete 10");
    EXPECT_TRUE(daemon.shows("event 388,"));
    run(server, "mark next");
    run(server, "vlan create 11");
    EXPECT_TRUE(daemon.shows("event 387,"));
    EXPECT_EQ(daemon.count("event 387,"), 1) << "that of VLAN 11";
    run(server, "wait event VLAN_EVENT_CREATE_INDEX vid=11 to bridge-monitor since next");
    expect_documented("bridge-monitor --summary vlan", all_of(monitor));
}

TEST_F(Troubleshooting, a_full_cache_is_found_by_the_daemons_own_counters) {
    Process server = start_sandbox();
    Process daemon = start_planted({"-f"});
    run(server, "wait client my_daemon registered");
    run(server, "stall @my_daemon");
    std::string printed;
    for (int i = 0; i < 100 && printed.find("runs_dropped") == std::string::npos; ++i) {
        usleep(200000);
        daemon.signal(SIGUSR1);
        EXPECT_TRUE(daemon.shows("that is all"));
        printed = daemon.output().substr(daemon.output().rfind("counters:\n"));
    }
    expect_documented("kill -USR1 \"$(pidof my_daemon)\"", printed);
    run(server, "drop");
}

TEST_F(Troubleshooting, a_missing_kernel_module_is_found_by_a_monitor) {
    Process server = start_sandbox();
    run(server, "kernel down");
    Process daemon = start_planted({"-e", "387"});
    Process monitor = start({"vlan", "--for", "60"});
    run(server, "wait clients registered is 2");
    run(server, "vlan create 10");
    EXPECT_TRUE(monitor.shows("kernel"));
    EXPECT_EQ(daemon.count("event"), 0);
    expect_documented("bridge-monitor vlan --for 5 # no module", all_of(monitor));
}

} // namespace
