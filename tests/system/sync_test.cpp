// Clients that are held on their way to being synchronised, and roles of single ones.
#include "tests/system/workstation.h"

namespace {

using namespace test;

struct SandboxSync : Workstation {};

TEST_F(SandboxSync, held_client_is_told_one_step_at_a_time) {
    Process sandbox = start_sandbox();
    run(sandbox, "sync hold");
    Peer client = connect_client();
    client.send({{BRIDGE_EVENT_REG_MSG, registration({}, 1, "raw")}});
    EXPECT_EQ(next(client),
              (std::vector<Message>{{BRIDGE_EVEVT_SERVER_STAT, {0}}, {BRIDGE_EVENT_BKUP_DATA_BEGIN, {}}}));
    EXPECT_FALSE(client.readable());
    run(sandbox, "sync next");
    EXPECT_EQ(next(client), (std::vector<Message>{{BRIDGE_EVENT_BKUP_DATA_END, {}}}));
    run(sandbox, "wait client raw sync is ended");
    EXPECT_FALSE(client.readable());
    run(sandbox, "sync next");
    EXPECT_EQ(next(client), (std::vector<Message>{{BRIDGE_EVENT_SYNC_DATA_END, {}}}));
    EXPECT_EQ(sandbox.count("error:"), 0);
}

TEST_F(SandboxSync, go_tells_what_is_left_and_holds_nobody_any_more) {
    Process sandbox = start_sandbox();
    run(sandbox, "sync hold @held");
    Peer held = connect_client();
    held.send({{BRIDGE_EVENT_REG_MSG, registration({}, 1, "held")}});
    EXPECT_EQ(next(held).size(), 2U);
    Peer free = register_client({}, "free");
    run(sandbox, "sync go");
    EXPECT_EQ(next(held), (std::vector<Message>{{BRIDGE_EVENT_BKUP_DATA_END, {}}}));
    EXPECT_EQ(next(held), (std::vector<Message>{{BRIDGE_EVENT_SYNC_DATA_END, {}}}));
    EXPECT_FALSE(free.readable());
    Peer again = register_client({}, "held");
}

TEST_F(SandboxSync, role_of_one_client_stays_with_its_name) {
    Process sandbox = start_sandbox();
    Peer one = register_client({}, "one");
    Peer other = register_client({}, "other");
    run(sandbox, "role @one slave");
    EXPECT_EQ(next(one), (std::vector<Message>{{BRIDGE_EVEVT_SERVER_STAT, {1}}}));
    EXPECT_FALSE(other.readable());
    Peer back = connect_client();
    back.send({{BRIDGE_EVENT_REG_MSG, registration({}, 1, "one")}});
    EXPECT_EQ(next(back), synchronisation(1));
    run(sandbox, "role master");
    EXPECT_EQ(next(other), (std::vector<Message>{{BRIDGE_EVEVT_SERVER_STAT, {0}}}));
    Peer last = connect_client();
    last.send({{BRIDGE_EVENT_REG_MSG, registration({}, 1, "one")}});
    EXPECT_EQ(next(last), synchronisation(0));
}

} // namespace
