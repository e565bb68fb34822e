// Recordings played to daemons: the same lines, or where it is another daemon.
#include "tests/tools/replay_fixture.h"

namespace {

using namespace test;

struct ReplayTour : Replay {};
struct ReplayChoice : Replay {};

const std::vector<std::string> kFollow{"vlan_follow", "-i", "3"};
const std::vector<std::string> kWatch{"port_watch", "-p", "0"};
const std::vector<std::string> kTable{"mac_table", "-m", "02:00:00:00:00:01", "-v", "10", "-i", "5"};

// Lines that a daemon prints by its own timer stand where that finds them.
std::string without_states(const std::string &output) {
    std::string rest;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);)
        if (line.find(": state: ") == std::string::npos)
            rest += line + '\n';
    return rest;
}

// Ports, VLANs, addresses, a slave that takes over and a server that comes back, with three daemons. The same lines
// come out of it, as fast as it was and faster.
TEST_F(ReplayTour, each_daemon_prints_the_same_lines_again) {
    std::string followed;
    std::string watched;
    std::string listed;
    {
        Process server = start_recorded_server({"--script", BRIDGE_SCRIPTS "/demo.switch"});
        run(server, "wait port 8 exists");
        Process follow = start_daemon(kFollow);
        Process watch = start_daemon(kWatch);
        run(server, "wait clients registered is 2");
        settle(server, "vlan_follow");
        settle(server, "port_watch");
        run(server, "vlan create 10");
        run(server, "wait vlan 10 members has 3");
        run(server, "traffic 02:00:00:00:00:05 10 4");
        Process table = start_daemon(kTable);
        EXPECT_TRUE(table.shows("in the kernel's table: 02:00:00:00:00:01"));
        run(server, "mark link");
        run(server, "port down 4");
        run(server, "wait event MAC_EVENT_NOTIFY_ADDR oper=del to mac_table since link");
        run(server, "port up 4");
        run(server, "port mode 4 access");
        settle(server, "port_watch");
        run(server, "role slave");
        run(server, "vlan create 20");
        EXPECT_TRUE(watch.shows("registered, slave"));
        run(server, "switchover");
        run(server, "wait vlan 20 members has 3");
        EXPECT_TRUE(watch.shows("registered, master"));
        run(server, "restart 0.3");
        EXPECT_TRUE(watch.shows("not connected"));
        run(server, "wait clients registered is 3");
        EXPECT_TRUE(watch.shows("registered, master"));
        settle(server, "mac_table");
        run(server, "vlan create 30");
        run(server, "wait vlan 30 members has 3");
        followed = end_of(follow);
        watched = end_of(watch);
        listed = end_of(table);
        EXPECT_EQ(server.end(), 0);
    }
    EXPECT_TRUE(has(followed, "in VLAN 30"));
    EXPECT_TRUE(has(listed, "  entry 02:00:00:00:00:05, VLAN 10, port 4, dynamic"));
    const auto check = [&](const Words &daemon, const char *speed, const std::string &printed) {
        const Played played = play({file(), "--client", daemon[0], "--speed", speed, "--compare"}, daemon);
        const auto comparable = daemon == kTable ? by_channel : without_states;
        EXPECT_EQ(comparable(played.daemon), comparable(printed)) << daemon[0] << " at " << speed << '\n'
                                                                  << played.lines;
        EXPECT_EQ(played.status, 0) << played.lines;
        EXPECT_TRUE(has(played.lines, ", 0 differences\n"));
    };
    check(kFollow, "1", followed);
    check(kFollow, "max", followed);
    check(kTable, "1", listed);
    check(kTable, "max", listed);
    check(kWatch, "1", watched);
    check(kWatch, "max", watched);
}

// A daemon that follows port 3, from its start to its end.
class ReplayOne : public Replay {
  protected:
    void SetUp() override {
        Process server = start_recorded_server();
        run(server, "port add 3 trunk 1");
        Process follow = start_daemon(kFollow);
        run(server, "wait client vlan_follow registered");
        settle(server, "vlan_follow");
        for (const char *vlan : {"10", "11"}) {
            run(server, std::string("vlan create ") + vlan);
            run(server, std::string("wait vlan ") + vlan + " members has 3");
        }
        end_of(follow);
        EXPECT_EQ(server.end(), 0);
    }
    [[nodiscard]] size_t packet_of(const std::string &event) const {
        for (const recording::Packet &packet : recording::read_file(file()).packets)
            if (packet.head.kind == recording::Kind::kBatch)
                for (const wire::Message &message : wire::split(packet.body).messages)
                    if (wire::event_name(message.type) == event)
                        return packet.number;
        return 0;
    }
};
TEST_F(ReplayOne, compare_finds_nothing_at_the_same_daemon_and_what_another_one_does) {
    const Played same = play({file(), "--speed", "max", "--compare"}, kFollow);
    EXPECT_EQ(same.status, 0) << same.lines;
    const Played other = play({file(), "--speed", "max", "--compare", "--patience", "1"}, {"vlan_follow", "-i", "4"});
    EXPECT_EQ(other.status, 1) << other.lines;
    const std::string where = "packet " + std::to_string(packet_of("VLAN_EVENT_SET_ADD_DYN_INTF"));
    EXPECT_TRUE(has(other.lines, where + ": the daemon does not send VLAN_EVENT_SET_ADD_DYN_INTF\n"));
    EXPECT_TRUE(has(other.lines, "differs: " + where + ": not sent: VLAN_EVENT_SET_ADD_DYN_INTF ifx=3 vid=10\n"));
    EXPECT_TRUE(has(other.lines, ", 2 differences\n"));
}

TEST_F(ReplayOne, until_stops_there_with_the_world_as_it_is) {
    const std::string packet = std::to_string(packet_of("VLAN_EVENT_CREATE_INDEX"));
    Process program = start_replay({file(), "--until", packet, "--speed", "max", "--compare"}, kFollow);
    EXPECT_TRUE(program.shows("asked for port 3 in VLAN 10\n"));
    for (int i = 0; i < kPatienceMs / 10 && !has(lines(), "Enter ends it\n"); ++i)
        usleep(10000);
    std::istringstream text(lines().substr(lines().find("TMPDIR=")));
    std::string world;
    std::string device;
    text >> world >> device;
    EXPECT_TRUE(has(lines(), "stopped behind packet " + packet + ": "));
    Process inspector({BRIDGE_INSPECT, "vlans", "--json", "--vsd", device.substr(6, device.find(',') - 6)});
    EXPECT_EQ(inspector.wait(), 0);
    inspector.drain();
    EXPECT_TRUE(has(inspector.output(), "VLAN0010"));
    EXPECT_FALSE(has(inspector.output(), "VLAN0011"));
    program.write_line("");
    EXPECT_EQ(program.wait(), 0);
    EXPECT_TRUE(has(lines(), ", 0 differences\n"));
    EXPECT_FALSE(std::filesystem::exists(world.substr(7)));
}

TEST_F(ReplayOne, step_waits_for_enter_before_each_packet) {
    Process program = start_replay({file(), "--step", "--speed", "max"}, kFollow);
    while (!has(lines(), "VLAN_EVENT_CREATE_INDEX vid=10")) {
        EXPECT_FALSE(has(program.output(), "asked for port"));
        program.write_line("");
        usleep(20000);
    }
    program.write_line("");
    EXPECT_TRUE(program.shows("asked for port 3 in VLAN 10\n"));
    EXPECT_TRUE(has(lines(), ": Enter plays it\n"));
    for (int i = 0; i < 20; ++i)
        program.write_line("");
    EXPECT_EQ(program.wait(), 0);
}

TEST_F(ReplayOne, a_daemon_that_ends_early_is_told) {
    const Played played = play({file(), "--speed", "max", "--patience", "1"}, {"false"});
    EXPECT_EQ(played.status, 2);
    EXPECT_TRUE(has(played.lines, "the daemon ended with status 1 in front of packet "));
    EXPECT_EQ(play({file()}, {"no_such_daemon"}).status, 2);
    EXPECT_TRUE(has(lines(), "bridge-replay: cannot start no_such_daemon: No such file or directory\n"));
}

TEST_F(ReplayOne, what_cannot_be_played_is_told_in_one_line) {
    const auto line_of = [this](const Words &options) {
        const Played played = play(options, kFollow);
        EXPECT_EQ(played.status, 2);
        EXPECT_EQ(played.daemon, "");
        return played.lines;
    };
    EXPECT_EQ(line_of({file(), "--client", "stpd"}),
              "bridge-replay: no client stpd in the recording, but 1 vlan_follow\n");
    const std::string cut = tmpdir() + "/cut.pcapng";
    std::filesystem::copy_file(file(), cut);
    std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 2);
    EXPECT_TRUE(has(line_of({cut}), "bridge-replay: " + cut + " is cut behind packet "));
    EXPECT_EQ(line_of({BRIDGE_COMPLETION}),
              std::string("bridge-replay: ") + BRIDGE_COMPLETION + " is no recording of the bridge service\n");
    EXPECT_EQ(play({file(), "--speed", "fast"}, kFollow).status, 64);
}

TEST_F(ReplayChoice, of_several_clients_one_is_chosen) {
    {
        Process server = start_recorded_server();
        Process follow = start_daemon(kFollow);
        run(server, "wait client vlan_follow registered");
        Process watch = start_daemon(kWatch);
        run(server, "wait clients registered is 2");
        settle(server, "port_watch");
        end_of(watch);
        end_of(follow);
        EXPECT_EQ(server.end(), 0);
    }
    EXPECT_EQ(play({file()}, kFollow).status, 2);
    EXPECT_EQ(lines(), "bridge-replay: the recording has several clients, choose one with --client: 1 vlan_follow, "
                       "2 port_watch\n");
    EXPECT_EQ(play({file(), "--client", "vlan_follow", "--compare"}, kFollow).status, 0) << lines();
    EXPECT_EQ(play({file(), "--client", "2", "--compare"}, kWatch).status, 0) << lines();
}

} // namespace
