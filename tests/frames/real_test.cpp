// Real frames through a bridge that the sandbox server drives.
#include "tests/frames/frames.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <thread>

namespace {

using namespace test;

TEST_F(Frames, reach_the_members_of_their_vlan_alone) {
    begin();
    EXPECT_EQ(passes(1, 2), 0);
    say("port pvid 2 20");
    EXPECT_TRUE(is_stopped(1, 2));
    EXPECT_EQ(passes(2, 3), 20);
    say("vlan delete 20");
    EXPECT_TRUE(is_stopped(2, 3));
}

TEST_F(Frames, leave_a_trunk_tagged_but_for_its_native_vlan) {
    begin();
    EXPECT_EQ(passes(1, 3), 0);
    EXPECT_EQ(passes(3, 1, 10), 0);
    EXPECT_TRUE(is_stopped(3, 1, 20));
    say("port pvid 3 20");
    EXPECT_EQ(passes(1, 3), 10);
    EXPECT_TRUE(is_stopped(3, 1)); // they are of VLAN 20 now
}

TEST_F(Frames, pass_where_a_daemon_has_its_port_join) {
    begin();
    say("port pvid 1 30");
    Process follow = start_host("follow", {"-i", "3"}, BRIDGE_VLAN_FOLLOW);
    say("wait client follow registered");
    say("vlan create 30");
    say("wait vlan 30 members has 3");
    EXPECT_EQ(passes(1, 3), 30);
    EXPECT_EQ(follow.end(), 0);
}

TEST_F(Frames, are_stopped_by_a_port_that_does_not_forward) {
    begin();
    EXPECT_EQ(passes(1, 2), 0);
    say("stp state 2 0 4");
    EXPECT_TRUE(is_stopped(1, 2));
    say("stp state 2 0 3");
    EXPECT_EQ(passes(1, 2), 0);
}

TEST_F(Frames, are_stopped_in_the_vlans_of_one_instance) {
    begin();
    say("port mode 2 trunk");
    say("port allow 2 10,20");
    say("stp instance 2 vlans 20");
    say("stp state 2 2 4");
    EXPECT_EQ(passes(3, 2, 10), 0);
    EXPECT_TRUE(is_stopped(3, 2, 20));
    say("stp instance 0 vlans 20");
    EXPECT_EQ(passes(3, 2, 20), 20);
}

TEST_F(Frames, do_not_pass_a_blocking_port_whose_link_comes_back) {
    begin();
    say("stp state 2 all 4");
    host(2).set_link(false);
    say("wait port 2 link is down");
    host(2).set_link(true);
    say("wait port 2 link is up");
    EXPECT_TRUE(prints("bridge link show dev p2", "state listening"));
    EXPECT_TRUE(is_stopped(1, 2));
}

TEST_F(Frames, tell_the_switch_where_a_host_is_and_goes) {
    begin();
    const Peer watcher = register_client({MAC_EVENT_NOTIFY_ADDR, MAC_EVENT_DYN_MOVE}, "watcher");
    EXPECT_EQ(passes(1, 2), 0);
    say("wait mac " + text_of(address(1)) + " 10 ifx is 1");
    EXPECT_EQ(passes(3, 2, 0, kEverybody, address(1)), 0);
    say("wait mac " + text_of(address(1)) + " 10 ifx is 3");
    say("wait event MAC_EVENT_DYN_MOVE to watcher");
    say("mac age 1");
    say("wait mac " + text_of(address(1)) + " 10 gone within 60");
    say("wait event MAC_EVENT_NOTIFY_ADDR oper=del to watcher");
}

TEST_F(Frames, of_a_host_too_many_are_kept_from_it_by_port_guard) {
    begin();
    Process guard = start_host("guard", {"-l", "1"}, kPortGuard);
    say("wait client guard registered");
    EXPECT_TRUE(guard.shows("in step"));
    EXPECT_EQ(passes(1, 2), 0);
    say("wait mac " + text_of(address(1)) + " 10 exists");
    host(1).send(kEverybody, address(1, 7), ++number);
    EXPECT_TRUE(guard.shows(text_of(address(1, 7)) + " in VLAN 10 is one too many, filtered"));
    say("wait mac " + text_of(address(1, 7)) + " 10 type is filter");
    EXPECT_TRUE(is_stopped(2, 1, 0, address(1, 7)));
    EXPECT_EQ(passes(2, 1, 0, address(1)), 0);
    EXPECT_EQ(guard.end(), 0);
}

TEST_F(Frames, of_new_hosts_are_not_learned_where_port_guard_has_closed_the_port) {
    begin();
    Process guard = start_host("guard", {"-l", "1", "-o"}, kPortGuard);
    say("wait client guard registered");
    EXPECT_TRUE(guard.shows("in step"));
    EXPECT_EQ(passes(1, 2), 0);
    EXPECT_TRUE(guard.shows("learning off"));
    EXPECT_TRUE(prints("bridge -d link show dev p1", "learning off"));
    host(1).send(kEverybody, address(1, 7), ++number);
    EXPECT_TRUE(host(2).receives(number, kSoon));
    EXPECT_EQ(entry(address(1, 7)), "");
    EXPECT_NE(entry(address(1)), "");
    EXPECT_EQ(guard.end(), 0);
}

TEST_F(Frames, to_addresses_that_are_configured_go_where_they_are) {
    begin();
    say("mac add 02:00:00:00:00:99 10 2 static");
    EXPECT_NE(entry({2, 0, 0, 0, 0, 0x99}).find("dev p2"), std::string::npos);
    EXPECT_EQ(passes(1, 2, 0, {2, 0, 0, 0, 0, 0x99}), 0);
    EXPECT_TRUE(is_stopped(1, 3, 0, {2, 0, 0, 0, 0, 0x99}));
    EXPECT_EQ(passes(3, 1, 0, kEverybody, {2, 0, 0, 0, 0, 0x99}), 0);
    EXPECT_TRUE(is_stopped(1, 3, 0, {2, 0, 0, 0, 0, 0x99})); // it does not move
    say("mac delete 02:00:00:00:00:99 10");
    EXPECT_EQ(entry({2, 0, 0, 0, 0, 0x99}), "");
}

TEST_F(Frames, are_forgotten_with_the_link_and_by_a_flush) {
    begin();
    EXPECT_EQ(passes(1, 2), 0);
    EXPECT_EQ(passes(2, 1), 0);
    say("wait addresses count is 2");
    host(1).set_link(false);
    say("wait port 1 link is down");
    say("wait mac " + text_of(address(1)) + " 10 gone");
    say("mac flush");
    EXPECT_EQ(entry(address(2)), "");
    say("port down 2");
    EXPECT_TRUE(prints("ip link show p2", "state DOWN"));
}

TEST_F(Frames, follow_what_a_person_does_with_bridge_and_ip) {
    begin();
    EXPECT_TRUE(shell("bridge vlan add dev p3 vid 30-31"));
    say("wait vlan 31 members has 3");
    EXPECT_EQ(output_of("bridge vlan show dev p3 | grep -c '3[01]'"), "2\n");
    EXPECT_TRUE(shell("bridge vlan del dev br0 vid 31 self"));
    say("wait vlan 31 gone");
    EXPECT_TRUE(shell("bridge link set dev p1 learning off"));
    say("wait addresses quiet has 1");
    EXPECT_TRUE(shell("bridge fdb add 02:00:00:00:00:77 dev p2 master static vlan 10"));
    say("wait mac 02:00:00:00:00:77 10 type is static");
    EXPECT_TRUE(shell("bridge vlan set dev p3 vid 20 state blocking"));
    say("wait stp 3 0 state is 4");
    EXPECT_TRUE(shell("ip link set br0 type bridge ageing_time 2000"));
    say("wait addresses age is 20");
    EXPECT_TRUE(shell("ip link add link br0 name lobby type vlan id 10"));
    say("wait vlan 10 svi > 0");
    EXPECT_TRUE(shell("ip link del lobby"));
    say("wait vlan 10 svi is 0");
    EXPECT_TRUE(shell("ip link set p2 nomaster"));
    say("wait port 2 gone");
    EXPECT_TRUE(shell("ip link set p2 master br0"));
    say("wait port 2 exists");
}

TEST_F(Frames, of_the_machine_itself_have_a_device_by_vlan) {
    begin();
    say("vlan svi 10 900");
    EXPECT_TRUE(prints("ip -d link show br0.10", "id 10"));
    say("vlan svi 10 0");
    EXPECT_EQ(output_of("ip link show type vlan"), "");
}

TEST_F(Frames, are_carried_at_the_end_as_they_were_before) {
    const auto picture = [] {
        return output_of(
            "bridge -c vlan show; bridge -d link show | grep -o 'learning [a-z]*'; bridge fdb show | sort; ip -d "
            "link show br0 | grep -o 'ageing_time [0-9]*\\|vlan_filtering [01]\\|vlan_default_pvid [0-9]*'");
    };
    EXPECT_EQ(server->end(), 0);
    for (const char *line : {"ip link set p1 up master br0", "bridge vlan add dev p1 vid 40-50", "ip link set p2 up",
                             "bridge fdb add 02:00:00:00:00:77 dev p1 master static vlan 40"})
        EXPECT_TRUE(shell(line));
    const std::string before = picture();
    start();
    say("port show");
    for (const char *command :
         {"port add 2 access 10 dev p2", "vlan create 10", "port allow 1 41,60", "vlan svi 10 900",
          "mac add 02:00:00:00:00:99 10 2 static", "mac add 02:00:00:00:00:98 10 2 filter",
          "mac delete 02:00:00:00:00:77 40", "mac age 7", "mac learning off", "vlan delete 45"})
        say(command);
    EXPECT_NE(picture(), before);
    EXPECT_EQ(server->end(), 0);
    EXPECT_EQ(picture(), before);
    EXPECT_EQ(output_of("ip link show master br0 | grep -c p2"), "0\n");
    start();
}

// Every frame that one host sends is counted at the other.
TEST_F(Frames, are_not_lost_when_the_server_is_killed_and_comes_back) {
    begin();
    say("mac add 02:00:00:00:00:99 10 2 static");
    EXPECT_EQ(passes(1, 2), 0);
    const std::string vlans = output_of("bridge vlan show");
    constexpr uint32_t kFirst = 1000000;
    std::atomic<bool> through = false;
    std::atomic<uint32_t> sent = 0;
    uint32_t received = 0;
    std::thread sender([&] {
        for (; !through; usleep(2000))
            host(1).send({2, 0, 0, 0, 0, 0x99}, address(1), kFirst + sent++);
    });
    std::thread receiver([&] {
        while (host(2).receives(kFirst + received, 1000))
            ++received;
    });
    usleep(200000);
    kill_it();
    usleep(200000);
    start();
    say("wait port 1 link is up");
    say("wait mac 02:00:00:00:00:99 10 exists");
    usleep(200000);
    through = true;
    sender.join();
    receiver.join();
    EXPECT_EQ(received, sent);
    EXPECT_GT(sent, 100U);
    EXPECT_EQ(output_of("bridge vlan show"), vlans);
    RecordProperty("frames", std::to_string(sent));
    say("port pvid 2 20"); // it drives the bridge again
    EXPECT_TRUE(is_stopped(1, 2));
}

} // namespace
