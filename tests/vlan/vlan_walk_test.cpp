// The walk over a VLAN's member ports, with its undo.
#include "tests/vlan/vlan_fixture.h"

#include <map>

namespace {

using namespace test;

std::string steps; // "a3 " for an action on port 3, "r3 " for a rollback
std::map<int32_t, int> verdicts;
int default_verdict = 0;

int action(int32_t ifx, void *arg) {
    EXPECT_STREQ(static_cast<const char *>(arg), "action");
    steps += "a" + std::to_string(ifx) + " ";
    const auto found = verdicts.find(ifx);
    return found != verdicts.end() ? found->second : default_verdict;
}

int rollback(int32_t ifx, void *arg) {
    EXPECT_STREQ(static_cast<const char *>(arg), "rollback");
    steps += "r" + std::to_string(ifx) + " ";
    return 3;
}

class MemberWalk : public MappedVlanTest {
  protected:
    void SetUp() override {
        MappedVlanTest::SetUp();
        add_vlan(10, BRI_VLAN_STATIC, {0, 1, 2, 3, 4, 5, 32, 63});
        for (const int ifx : {1, 2, 3, 4, 5, 32, 63})
            add_port(ifx, BRI_PORT_TRUNK);
    }
    static std::string walk(vl_member_fn undo = rollback) {
        static char action_arg[] = "action";
        static char rollback_arg[] = "rollback";
        steps.clear();
        vl_clnt_member_walk_through(10, action, action_arg, undo, rollback_arg);
        return steps;
    }
};

TEST_F(MemberWalk, visits_every_member_but_0_rising) {
    EXPECT_EQ(walk(), "a1 a2 a3 a4 a5 a32 a63 ");
}

TEST_F(MemberWalk, visits_members_that_are_not_present_too) {
    swport_get_raw_spcb(2)->ifx = 0;
    EXPECT_EQ(walk(), "a1 a2 a3 a4 a5 a32 a63 ");
}

TEST_F(MemberWalk, result_1_stops) {
    verdicts[3] = 1;
    EXPECT_EQ(walk(), "a1 a2 a3 ");
}

TEST_F(MemberWalk, result_2_undoes_this_port_and_stops) {
    verdicts[3] = 2;
    EXPECT_EQ(walk(), "a1 a2 a3 r3 ");
}

TEST_F(MemberWalk, result_3_undoes_the_ports_before_nearest_first_and_stops) {
    verdicts[5] = 3;
    EXPECT_EQ(walk(), "a1 a2 a3 a4 a5 r4 r3 r2 r1 ");
}

TEST_F(MemberWalk, result_3_at_the_first_port_undoes_nothing) {
    verdicts[1] = 3;
    EXPECT_EQ(walk(), "a1 ");
}

TEST_F(MemberWalk, undo_leaves_out_absent_ports_and_those_that_are_no_members) {
    swport_get_raw_spcb(3)->ifx = 0;
    vl_del_static_member(2, 10);
    verdicts[5] = 3;
    EXPECT_EQ(walk(), "a1 a3 a4 a5 r4 r1 ");
}

TEST_F(MemberWalk, undo_asks_the_vlan_that_the_entry_names) {
    add_vlan(11, BRI_VLAN_STATIC, {2, 4});
    vl_get_vlan_entry(10)->vid = 11; // a foreign writer's mistake
    verdicts[5] = 3;
    EXPECT_EQ(walk(), "a1 a2 a3 a4 a5 r4 r2 ");
}

int leave_vlan(int32_t ifx, void *) {
    steps += "r" + std::to_string(ifx) + " ";
    vl_del_static_member(ifx - 1, 10);
    return 0;
}

TEST_F(MemberWalk, undo_asks_for_membership_as_it_is_then) {
    verdicts[5] = 3;
    EXPECT_EQ(walk(leave_vlan), "a1 a2 a3 a4 a5 r4 r2 ");
}

TEST_F(MemberWalk, every_other_result_goes_on) {
    for (const int verdict : {4, -1, 100, INT32_MIN}) {
        default_verdict = verdict;
        EXPECT_EQ(walk(), "a1 a2 a3 a4 a5 a32 a63 ") << verdict;
    }
}

TEST_F(MemberWalk, without_a_rollback_every_result_but_0_stops) {
    for (const int verdict : {1, 2, 3, 4, -1}) {
        verdicts[3] = verdict;
        EXPECT_EQ(walk(nullptr), "a1 a2 a3 ") << verdict;
    }
}

int remove_vlan_and_undo(int32_t ifx, void *) {
    steps += "a" + std::to_string(ifx) + " ";
    if (ifx == 3)
        vl_clear_vlan_entry(10);
    return ifx == 3 ? 3 : 0;
}

TEST_F(MemberWalk, undo_of_a_vlan_that_is_gone_does_nothing) {
    steps.clear();
    vl_clnt_member_walk_through(10, remove_vlan_and_undo, nullptr, rollback, nullptr);
    EXPECT_EQ(steps, "a1 a2 a3 ");
}

int leave_all(int32_t ifx, void *) {
    steps += "a" + std::to_string(ifx) + " ";
    for (int other = 1; other < 64; ++other)
        vl_del_static_member(other, 10);
    return 0;
}

TEST_F(MemberWalk, goes_over_the_members_it_found_at_its_start) {
    steps.clear();
    vl_clnt_member_walk_through(10, leave_all, nullptr, nullptr, nullptr);
    EXPECT_EQ(steps, "a1 a2 a3 a4 a5 a32 a63 ");
}

TEST_F(MemberWalk, null_action_and_missing_vlan_are_logged) {
    vl_clnt_member_walk_through(10, nullptr, nullptr, rollback, nullptr);
    vl_clnt_member_walk_through(11, action, nullptr, rollback, nullptr);
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    vl_clnt_member_walk_through(10, nullptr, nullptr, rollback, nullptr);
    vl_clnt_member_walk_through(11, action, nullptr, rollback, nullptr);
    EXPECT_EQ(log_text(), "Input parameter error, handler is NULL.\n"
                          "Input parameter error, vlan(11) does not exist.\n");
    for (const LogLine &line : log_lines())
        expect_vlan_log(line.text);
    EXPECT_EQ(steps, "");
}

} // namespace
