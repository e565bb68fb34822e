// Claims on ports by functions that exclude each other, as commands set, refuse and show them.
#include "sandbox/sandbox.h"
#include "tests/support/test.h"

#include <bridge/port_exclusion.h>

#include <stdexcept>

namespace {

using namespace sandbox;

struct ClaimsTest : test::Env {
    ClaimsTest() {
        Vlans::open();
        sandbox.bridge.ports.add(3, BRI_PORT_ACCESS, 1);
    }
    // The answer's lines, or why it was refused.
    std::string run(const std::string &line) {
        try {
            return std::get<Answer>(run_command(sandbox, line, session)).text();
        } catch (const std::invalid_argument &error) {
            return error.what();
        }
    }

    Options options{.tmpdir = "/nowhere"};
    Sandbox sandbox{options};
    Session session;
};

TEST_F(ClaimsTest, claim_stands_until_it_is_given_back) {
    EXPECT_EQ(run("exclude set 3 dot1x|host"), "exclude set 3 dot1x|host: done\n");
    EXPECT_EQ(run("exclude show"), "  interface 3 dot1x|host\n");
    run("exclude clear 3 dot1x");
    EXPECT_EQ(run("exclude show"), "  interface 3 host\n");
}

TEST_F(ClaimsTest, claim_is_refused_beside_what_it_names_and_changes_nothing) {
    run("exclude set 3 secure");
    EXPECT_EQ(run("exclude set 3 dot1x against secure|host"), "secure is in the way");
    EXPECT_EQ(run("exclude show"), "  interface 3 secure\n");
    run("exclude set 4 dot1x against secure"); // another interface
    EXPECT_EQ(run("exclude show"), "  interface 3 secure\n  interface 4 dot1x\n");
}

TEST_F(ClaimsTest, attributes_are_claims_on_ports_that_are_there) {
    run("exclude attribute 3 0x40");
    EXPECT_EQ(run("exclude attribute 3 0x80 against 0x40"), "0x40 is in the way");
    EXPECT_EQ(run("exclude show"), "  port 3 attributes 0x40\n");
    EXPECT_EQ(run("exclude attribute 5 0x40"), "no port 5");
    run("exclude no-attribute 3 0x40");
    EXPECT_EQ(run("exclude show"), "exclude show: done\n");
}

TEST_F(ClaimsTest, interface_and_words_are_checked) {
    EXPECT_EQ(run("exclude set 1000000 dot1x"), "no interface 1000000");
    EXPECT_EQ(run("exclude clear 1000000 dot1x"), "no interface 1000000");
    EXPECT_NE(run("exclude set 3 colour").find("\"colour\""), std::string::npos);
    EXPECT_EQ(run("exclude set 3 dot1x beside secure"), "usage: exclude set IFX FLAGS [against FLAGS]");
}

} // namespace
