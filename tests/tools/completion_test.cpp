// What a shell offers behind the words of a command line.
#include "tests/tools/monitor_fixture.h"

#include <filesystem>

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
