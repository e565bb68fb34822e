// What a person, a cable or a crash does to the bridge while the server does not look.
#include "tests/frames/frames.h"

#include <fstream>
#include <sstream>

namespace {

using namespace test;

// How many notices the kernel has dropped, as nobody took them.
unsigned long dropped() {
    std::ifstream in("/proc/net/netlink");
    unsigned long sum = 0;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string field[8]; // address, family, port id, groups, memory, memory, dump, locks
        unsigned long drops = 0;
        for (std::string &word : field)
            fields >> word;
        sum += fields >> drops ? drops : 0;
    }
    return sum;
}

std::string vlans_and_entries() {
    return output_of("bridge -compressvlans vlan show; bridge fdb show br br0 | grep static | sort");
}

TEST_F(FramesOfAnybody, reach_the_members_of_their_vlan_alone) {
    begin();
    EXPECT_NE(output_of("id -u; cat /proc/self/uid_map"), output_of("cat /proc/1/uid_map"));
    EXPECT_EQ(passes(1, 2), 0);
    say("port pvid 2 20");
    EXPECT_TRUE(is_stopped(1, 2));
    EXPECT_EQ(passes(2, 3), 20);
}

TEST_F(FramesOfAnybody, are_known_as_the_bridge_knows_them_after_more_notices_than_there_is_room_for) {
    begin();
    say("mac add 02:00:00:00:00:99 10 2 static");
    Process mirror = start_host("mirror", {}, kVlanMirror);
    EXPECT_TRUE(mirror.shows("in step: 3 VLANs, 3 ports"));
    server->signal(SIGSTOP);
    {
        std::ofstream batch(tmpdir() + "/batch");
        batch << "fdb del 02:00:00:00:00:99 dev p2 master vlan 10\n";
        for (int i = 0; i < 1500; ++i)
            batch << "fdb add " << text_of({2, 0, 1, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)})
                  << " dev p3 master static vlan 10\n";
        batch << "vlan add dev p3 vid 30-31\nvlan add dev p2 vid 20 pvid untagged\nvlan del dev p2 vid 10\n";
    }
    EXPECT_TRUE(shell("bridge -batch " + tmpdir() + "/batch"));
    EXPECT_TRUE(shell("ip link set p1 down"));
    EXPECT_GT(dropped(), 0U);
    const std::string picture = vlans_and_entries();
    server->signal(SIGCONT);
    say("wait port 1 link is down");
    say("wait port 2 pvid is 20");
    say("wait vlan 31 members has 3");
    say("wait mac 02:00:00:00:00:99 10 gone");
    say("wait addresses count is 1500");
    settle(*server, "mirror");
    EXPECT_TRUE(prints("bridge vlan show dev br0", "31"));
    EXPECT_EQ(vlans_and_entries().substr(0, picture.find("br0")), picture.substr(0, picture.find("br0")));
    EXPECT_EQ(output_of("bridge fdb show br br0 | grep -c 02:00:01:00:"), "1500\n");
    say("port up 1");
    say("port pvid 2 10"); // it drives the bridge
    EXPECT_EQ(passes(1, 2), 0);
    EXPECT_EQ(mirror.end(), 0);
}

TEST_F(Frames, of_a_dead_server_are_taken_over_as_a_person_has_changed_them) {
    begin();
    say("vlan svi 10 900");
    EXPECT_TRUE(prints("ip -d link show br0.10", "id 10"));
    say("mac add 02:00:00:00:00:99 10 2 static");
    Process mirror = start_host("mirror", {}, kVlanMirror);
    EXPECT_TRUE(mirror.shows("in step: 3 VLANs, 3 ports"));
    kill_it();
    for (const char *line :
         {"bridge fdb del 02:00:00:00:00:99 dev p2 master vlan 10", "bridge vlan add dev p3 vid 30-31",
          "bridge vlan add dev p2 vid 20 pvid untagged", "bridge vlan del dev p2 vid 10",
          "bridge fdb add 02:00:00:00:00:77 dev p3 master static vlan 10", "bridge link set dev p1 learning off",
          "ip link set p1 down", "ip link del br0.10", "ip link set br0 type bridge ageing_time 2000",
          "ip link set p2 down", "ip link set p2 name lan2", "ip link set lan2 up"})
        EXPECT_TRUE(shell(line)) << line;
    start();
    for (const char *value :
         {"port 1 link is down", "port 2 pvid is 20", "port 2 link is up", "vlan 31 members has 3", "vlan 10 svi is 0",
          "mac 02:00:00:00:00:77 10 type is static", "mac 02:00:00:00:00:99 10 gone", "addresses quiet has 1",
          "addresses age is 20", "port 4 gone"})
        say(std::string("wait ") + value);
    EXPECT_TRUE(mirror.shows("new VLANs 30-31"));
    EXPECT_TRUE(mirror.shows("changed port 2: ACCESS, native VLAN 20, in VLANs 20"));
    EXPECT_TRUE(mirror.shows("in step: 5 VLANs, 3 ports"));
    EXPECT_EQ(passes(2, 3), 20);
    say("port pvid 2 10"); // it drives the bridge again
    EXPECT_EQ(passes(2, 3), 0);
    EXPECT_EQ(mirror.end(), 0);
    EXPECT_EQ(server->end(), 0);
    EXPECT_EQ(output_of("ip link show master br0"), ""); // as it was before the first server, lan2 too
    start();
}

TEST_F(Frames, are_stopped_by_a_port_that_a_person_closed_while_the_server_was_dead) {
    begin();
    kill_it();
    EXPECT_TRUE(shell("bridge link set dev p2 state 1"));
    start();
    say("wait stp 2 0 state is 1");
    EXPECT_TRUE(is_stopped(1, 2));
}

TEST_F(Frames, do_not_pass_a_blocking_port_whose_link_has_failed_unseen) {
    begin();
    say("stp state 2 all 4");
    const auto flap = [&] {
        host(2).set_link(false);
        EXPECT_TRUE(prints("bridge link show dev p2", "state disabled"));
        host(2).set_link(true);
        EXPECT_TRUE(prints("bridge link show dev p2", "state forwarding"));
    };
    server->signal(SIGSTOP);
    flap();
    server->signal(SIGCONT);
    EXPECT_TRUE(prints("bridge link show dev p2", "state listening"));
    say("wait stp 2 0 state is 4");
    kill_it();
    flap();
    start();
    EXPECT_TRUE(prints("bridge link show dev p2", "state listening"));
    say("wait stp 2 0 state is 4");
    EXPECT_TRUE(is_stopped(1, 2));
}

TEST_F(Frames, follow_a_device_under_another_name_to_the_end) {
    EXPECT_EQ(server->end(), 0);
    for (const char *line : {"ip link set p1 up master br0", "bridge vlan add dev p1 vid 40-50"})
        EXPECT_TRUE(shell(line));
    start();
    say("port allow 1 41");
    for (const char *line : {"ip link set p1 down", "ip link set p1 name lan1", "ip link set lan1 up"})
        EXPECT_TRUE(shell(line)) << line;
    EXPECT_EQ(output_of("bridge -compressvlans vlan show dev lan1 | grep -c 40-50"), "0\n");
    say("port allow 1 42");
    EXPECT_TRUE(prints("bridge vlan show dev lan1", "42"));
    EXPECT_EQ(server->end(), 0);
    EXPECT_TRUE(prints("bridge -compressvlans vlan show dev lan1", "40-50"));
    start();
}

TEST_F(Frames, are_followed_while_the_module_is_away) {
    begin();
    say("kernel down");
    EXPECT_TRUE(shell("ip link set br0 type bridge ageing_time 2000")); // which only the module could take
    EXPECT_TRUE(shell("ip link set p2 down"));
    say("wait port 2 link is down");
    say("kernel up");
    say("port pvid 1 20");
    EXPECT_TRUE(prints("bridge vlan show dev p1", "20 PVID"));
}

TEST_F(Frames, of_a_bridge_that_has_gone_are_nobodys) {
    begin();
    EXPECT_TRUE(shell("ip link del br0"));
    EXPECT_TRUE(server->shows("bridge br0: it has gone"));
    for (const char *command : {"wait port 1 gone", "vlan create 30", "port add 1 access 30", "port pvid 1 10"})
        say(command);
    EXPECT_TRUE(shell("ip link set p1 down"));
    say("wait port 1 pvid is 10");
}

TEST_F(Frames, do_not_get_a_port_by_a_command_that_is_refused) {
    for (const char *words : {"9999 access 10", "1 access 5000", "1 acess 10"})
        EXPECT_FALSE(shell(std::string("'") + kSandbox + "' ctl port add " + words + " dev p1 >/dev/null")) << words;
    EXPECT_EQ(output_of("ip link show master br0"), "");
    say("wait port 1 gone");
}

} // namespace
