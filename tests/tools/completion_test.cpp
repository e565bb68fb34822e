// What a shell offers behind the words of a command line.
#include "tests/tools/monitor_fixture.h"

#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace test;

struct Completion : Workstation {
    // The words that complete the last one of the line, between blanks.
    static std::string offered(const std::string &program, const std::string &line) {
        const std::string script = "source \"$1\"; COMP_WORDS=(\"$2\" " + line +
                                   "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _bridge_complete \"$2\"" +
                                   "; echo \" ${COMPREPLY[*]} \"";
        Process shell({"/bin/bash", "-c", script, "bash", BRIDGE_COMPLETION, program});
        EXPECT_EQ(shell.wait(), 0);
        shell.drain();
        return shell.output();
    }

    // Those that begin a line of the help text, alone or behind a letter and a comma.
    static std::vector<std::string> long_options_of(const std::string &name, const std::string &subcommand) {
        Process program({"/bin/sh", "-c", "exec \"$0\" " + subcommand + " --help", name});
        EXPECT_EQ(program.wait(), 0);
        program.drain();
        std::istringstream help(program.output());
        std::vector<std::string> options;
        for (std::string line; std::getline(help, line);) {
            std::string word;
            std::istringstream(line) >> word;
            word.erase(0, word.size() > 3 && word[2] == ',' ? 3 : 0);
            if (word.rfind("--", 0) == 0)
                options.push_back(word);
        }
        return options;
    }

    static ::testing::AssertionResult offers(const std::string &program, const std::string &line,
                                             std::initializer_list<const char *> words) {
        const std::string all = offered(program, line);
        for (const char *word : words)
            if (all.find(" " + std::string(word) + " ") == std::string::npos)
                return ::testing::AssertionFailure() << "no " << word << " in" << all;
        return ::testing::AssertionSuccess();
    }
};

TEST_F(Completion, offers_the_subcommands) {
    EXPECT_TRUE(
        offers(BRIDGE_INSPECT, "''", {"ports", "vlans", "groups", "protocols", "exclusions", "segments", "check"}));
    EXPECT_TRUE(offers(kSandbox, "''", {"clean", "ctl", "kernel", "run"}));
    EXPECT_EQ(offered(BRIDGE_INSPECT, "po"), " ports \n");
}

TEST_F(Completion, offers_the_options_of_the_program_and_its_subcommand) {
    EXPECT_TRUE(offers(BRIDGE_INSPECT, "segments --", {"--json", "--vsd", "--remove", "--yes"}));
    EXPECT_EQ(offered(BRIDGE_INSPECT, "ports --rem"), "  \n");
    EXPECT_TRUE(offers(kSandbox, "run --", {"--script", "--time-scale", "--json"}));
    EXPECT_TRUE(offers(BRIDGE_MONITOR, "vlan --", {"--count", "--for", "--summary", "--time"}));
    EXPECT_TRUE(offers(BRIDGE_TAP, "--", {"--output", "--server", "--listen"}));
    EXPECT_TRUE(offers(BRIDGE_REPLAY, "day.pcapng --", {"--client", "--compare", "--speed", "--step", "--until"}));
}

TEST_F(Completion, offers_every_long_option_that_a_help_text_lists) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> programs{
        {BRIDGE_INSPECT, {"", "ports", "vlans", "segments", "check"}},
        {BRIDGE_MONITOR, {""}},
        {BRIDGE_REPLAY, {""}},
        {BRIDGE_TAP, {""}},
        {kSandbox, {"", "check", "clean", "kernel", "run"}}};
    for (const auto &[program, subcommands] : programs)
        for (const std::string &subcommand : subcommands) {
            const std::string all = offered(program, subcommand + " --");
            const std::vector<std::string> options = long_options_of(program, subcommand);
            EXPECT_GE(options.size(), 1U) << program << " " << subcommand;
            for (const std::string &option : options)
                EXPECT_NE(all.find(" " + option + " "), std::string::npos)
                    << program << " " << subcommand << " " << option;
        }
}

TEST_F(Completion, offers_the_values_of_an_option) {
    EXPECT_EQ(offered(BRIDGE_MONITOR, "--color ''"), " auto always never \n");
    EXPECT_EQ(offered(kSandbox, "--role m"), " master \n");
}

TEST_F(Completion, offers_groups_events_and_filters) {
    EXPECT_TRUE(offers(BRIDGE_MONITOR, "''", {"all", "topology", "VLAN_EVENT_CREATE_INDEX", "port=", "vlan="}));
    EXPECT_EQ(offered(BRIDGE_MONITOR, "mac VLAN_EVENT_REN"), " VLAN_EVENT_RENAME \n");
}

TEST_F(Completion, offers_the_commands_of_a_running_server) {
    EXPECT_EQ(offered(kSandbox, "ctl vl"), "  \n");
    Process server = start_sandbox();
    EXPECT_EQ(offered(kSandbox, "ctl vl"), " vlan \n");
}

} // namespace
