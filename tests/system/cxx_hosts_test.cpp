// The daemons of the examples that are written in C++: one keeps a copy of VLANs and ports, one limits addresses.
#include "tests/system/workstation.h"

namespace {

using namespace test;

struct Mirror : Workstation {
    Mirror() {
        for (const char *command :
             {"vlan create 10,20-22", "port add 3 access 10", "port add 4 trunk 1", "port allow 4 20-22"})
            run(sandbox, command);
        EXPECT_TRUE(mirror.shows("mirror: in step: "));
    }
    // The server goes away when the mirror is through with all that happened until now. It would learn of a new VLAN as
    // long as it still looks through the tables.
    void begin_outage() {
        settle(sandbox, "mirror");
        Workstation::begin_outage(sandbox);
    }
    // A mark at which the mirror is in step again.
    void expect_in_step(const std::string &figures) { EXPECT_TRUE(mirror.shows("mirror: in step: " + figures + "\n")); }
    void expect_clean_end() {
        for (Process *process : {&mirror, &sandbox})
            EXPECT_EQ(process->end(), 0) << process->output();
    }

    Process sandbox = start_sandbox();
    Process mirror = start_host("mirror", {}, kVlanMirror);
};

TEST_F(Mirror, prints_what_changed_in_an_outage) {
    begin_outage();
    run(sandbox, "vlan delete 21");
    run(sandbox, "vlan create 30");
    run(sandbox, "port pvid 3 20");
    run(sandbox, "port del 4");
    run(sandbox, "port add 5 access 30");
    end_outage(sandbox);
    EXPECT_TRUE(mirror.shows("mirror: lost VLANs 21\n"
                             "mirror: new VLANs 30\n"
                             "mirror: lost port 4: TRUNK, native VLAN 1, in VLANs 20-22\n"
                             "mirror: changed port 3: ACCESS, native VLAN 20, in VLANs 20\n"
                             "mirror: new port 5: ACCESS, native VLAN 30, in VLANs 30\n"
                             "mirror: in step: 4 VLANs, 2 ports\n"));
    expect_clean_end();
}

TEST_F(Mirror, has_followed_what_it_was_told_when_nothing_happened_meanwhile) {
    for (const char *command : {"vlan create 40", "vlan delete 21-22", "port allow 4 20,40", "port pvid 3 20",
                                "port add 6 access 40", "port del 4"})
        run(sandbox, command);
    run(sandbox, "event VLAN_EVENT_MODIFY_INTF_PVID ifx=9 pvid=1"); // a port that is not there
    begin_outage();
    end_outage(sandbox);
    expect_in_step("3 VLANs, 2 ports");
    for (const char *word : {" lost ", " changed "})
        EXPECT_EQ(mirror.count(word), 0) << mirror.output();
    expect_clean_end();
}

TEST_F(Mirror, refuses_a_command_line_that_it_does_not_understand) {
    for (const std::vector<std::string> &wrong : {std::vector<std::string>{"-x"}, {"-n"}, {"surplus"}}) {
        Process other = start_host("other", wrong, kVlanMirror);
        EXPECT_EQ(other.wait(), 2);
        EXPECT_TRUE(other.shows("usage: vlan_mirror [-n NAME]"));
    }
    expect_clean_end();
}

struct PortGuard : Workstation {
    PortGuard() {
        for (const char *command : {"vlan create 10", "port add 3 access 10", "port add 4 access 10"})
            run(command);
    }
    void run(const std::string &command) { Workstation::run(sandbox, command); }
    void frame_from(unsigned host, unsigned port) {
        run("traffic 02:00:00:00:00:0" + std::to_string(host) + " 10 " + std::to_string(port));
    }
    Process start_guard(const std::vector<std::string> &options = {}, unsigned known = 0) {
        Process guard = start_host("guard", options, kPortGuard);
        EXPECT_TRUE(guard.shows("guard: in step, " + std::to_string(known) + " addresses\n"));
        return guard;
    }
    void expect_clean_end(Process &guard) {
        EXPECT_EQ(guard.end(), 0) << guard.output();
        EXPECT_EQ(sandbox.end(), 0) << sandbox.output();
    }
    static std::string too_many(unsigned host, const char *outcome, unsigned port = 3) {
        return "guard: port " + std::to_string(port) + ": 02:00:00:00:00:0" + std::to_string(host) +
               " in VLAN 10 is one too many, " + outcome + "\n";
    }

    Process sandbox = start_sandbox();
};

TEST_F(PortGuard, filters_what_comes_beyond_the_limit_of_each_port) {
    Process guard = start_guard();
    for (const unsigned host : {1U, 2U, 3U})
        frame_from(host, 3);
    EXPECT_TRUE(guard.shows(too_many(3, "filtered")));
    frame_from(4, 4);
    frame_from(5, 4);
    frame_from(6, 4);
    EXPECT_TRUE(guard.shows(too_many(6, "filtered", 4)));
    for (const char *address : {"02:00:00:00:00:03", "02:00:00:00:00:06"}) {
        const std::string filtered = std::string("mac ") + address + " 10 type is filter";
        sandbox.write_line("wait " + filtered);
        EXPECT_TRUE(sandbox.shows(filtered + "\n"));
    }
    expect_clean_end(guard);
}

TEST_F(PortGuard, lets_a_filtered_address_back_when_another_has_gone) {
    Process guard = start_guard();
    for (const unsigned host : {1U, 2U, 3U})
        frame_from(host, 3);
    EXPECT_TRUE(guard.shows(too_many(3, "filtered")));
    run("mac delete 02:00:00:00:00:01");
    EXPECT_TRUE(guard.shows("guard: port 3: 02:00:00:00:00:03 in VLAN 10 may come back\n"));
    expect_clean_end(guard);
}

TEST_F(PortGuard, counts_an_address_where_it_has_moved) {
    Process guard = start_guard();
    frame_from(1, 3);
    frame_from(2, 3);
    frame_from(1, 4);
    frame_from(3, 3); // in the place of the one that left
    frame_from(4, 3);
    EXPECT_TRUE(guard.shows(too_many(4, "filtered")));
    EXPECT_EQ(guard.count("one too many"), 1);
    expect_clean_end(guard);
}

TEST_F(PortGuard, switches_learning_off_at_the_limit_and_on_below) {
    Process guard = start_guard({"-o", "-l", "1"});
    frame_from(1, 3);
    EXPECT_TRUE(guard.shows("guard: port 3: 1 addresses, learning off\n"));
    run("mac delete 02:00:00:00:00:01");
    EXPECT_TRUE(guard.shows("guard: port 3: 0 addresses, learning on\n"));
    expect_clean_end(guard);
}

TEST_F(PortGuard, knows_what_was_learned_before_it_came) {
    for (const unsigned host : {1U, 2U, 3U})
        frame_from(host, 3);
    Process guard = start_guard({}, 2);
    EXPECT_EQ(guard.count(too_many(3, "filtered")), 1);
    expect_clean_end(guard);
}

TEST_F(PortGuard, forgets_what_has_gone_in_an_outage) {
    Process guard = start_guard();
    frame_from(1, 3);
    frame_from(2, 3);
    begin_outage(sandbox);
    run("mac delete 02:00:00:00:00:01");
    run("mac delete 02:00:00:00:00:02");
    end_outage(sandbox);
    EXPECT_TRUE(guard.shows("guard: in step, 0 addresses\n"));
    for (const unsigned host : {3U, 4U, 5U})
        frame_from(host, 3);
    EXPECT_TRUE(guard.shows(too_many(5, "filtered")));
    EXPECT_EQ(guard.count("one too many"), 1);
    expect_clean_end(guard);
}

TEST_F(PortGuard, refuses_a_command_line_that_it_does_not_understand) {
    for (const std::vector<std::string> &wrong :
         {std::vector<std::string>{"-x"}, {"-n"}, {"-l", "0"}, {"-l", "many"}, {"surplus"}}) {
        Process other = start_host("other", wrong, kPortGuard);
        EXPECT_EQ(other.wait(), 2);
        EXPECT_TRUE(other.shows("usage: port_guard [-n NAME]"));
    }
    EXPECT_EQ(sandbox.end(), 0);
}

} // namespace
