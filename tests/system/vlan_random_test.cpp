// Random changes of ports and VLANs by the server's commands and by hosts' requests, while a host is slow and the
// server dies and comes back: in the end every host knows what the tables hold, from its events alone.
#include "tests/system/picture.h"
#include "tests/system/workstation.h"

#include <array>
#include <cstdlib>
#include <random>

namespace {

using namespace test;

Picture picture_of_tables() {
    Picture picture;
    for (uint16_t vid = BRI_VID_MIN; vid <= BRI_VID_MAX; ++vid) {
        vle entry;
        if (vl_get_vlan_copy(vid, &entry) == 0)
            continue;
        Picture::Vlan &vlan = picture.vlans[vid] = {entry.name, entry.mode, entry.svi_ifx};
        for (int ifx = 1; ifx < static_cast<int>(BRI_PORT_SLOTS); ++ifx)
            if (vl_is_vlan_member(vid, ifx) != 0)
                vlan.members.insert(static_cast<uint32_t>(ifx));
    }
    for (int ifx = 1; ifx < static_cast<int>(BRI_PORT_SLOTS); ++ifx) {
        spcb port;
        if (swport_get_spcb_copy(ifx, &port) != 0)
            picture.ports[port.ifx] = {port.mode, port.default_vid, port.allow_vlan};
    }
    return picture;
}

// The same operations for the same seed, wherever it runs.
class Operations {
  public:
    explicit Operations(unsigned seed) : random_(seed) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

    // A command of the server. Some make no sense at their moment, and are refused.
    std::string command() {
        switch (below(16)) {
        case 0:
        case 1:
        case 2:
            return "vlan create " + list() + (below(3) == 0 ? " dynamic" : "");
        case 3:
            return "vlan delete " + list();
        case 4:
        case 5:
            return "vlan rename " + vid() + " name" + std::to_string(below(100));
        case 6:
        case 7:
            return "vlan mode " + list() + (below(2) == 0 ? " static" : " dynamic");
        case 8:
            return "vlan svi " + vid() + " " + std::to_string(below(2) * (100 + below(100)));
        case 9:
            return "port add " + port() + " " + mode() + " " + vid();
        case 10:
            return "port " + (below(2) == 0 ? "del " + port() : "mode " + port() + " " + mode());
        case 11:
            return "port mode " + port() + " " + mode();
        case 12:
            return "port pvid " + port() + " " + vid();
        case 13:
            return "port allow " + port() + " " + list();
        case 14:
            return "port join " + port() + " " + list();
        default:
            return "port leave " + port() + " " + list();
        }
    }
    // A request of a host.
    std::string request() {
        static constexpr std::array<const char *, 12> words = {"create", "create",   "create", "delete",
                                                               "allow",  "rollback", "native", "disallow",
                                                               "join",   "join-set", "allow",  "leave-set"};
        return words[below(words.size())] + (" " + port()) + " " + list();
    }

  private:
    std::string port() { return std::to_string(1 + below(5)); }
    std::string vid() { return std::to_string(1 + below(40)); }
    std::string list() {
        const unsigned first = 1 + below(40);
        return std::to_string(first) + "-" + std::to_string(first + below(5));
    }
    std::string mode() {
        static constexpr std::array<const char *, 8> modes = {"access", "access", "access", "trunk",
                                                              "hybrid", "uplink", "tunnel", "route"};
        return modes[below(modes.size())];
    }

    std::mt19937 random_;
};

struct RandomVlans : Workstation {
    RandomVlans() {
        const char *given = std::getenv("BRIDGE_TEST_SEED");
        seed = given != nullptr ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : 8;
        std::printf("BRIDGE_TEST_SEED=%u\n", seed);
    }

    // Reads what all have printed, so that nobody waits for room.
    void drain(Process &sandbox) {
        sandbox.drain();
        for (Process &host : hosts)
            host.drain();
    }
    void run_commands(Process &sandbox, Operations &operations, unsigned number) {
        for (unsigned i = 0; i < number; ++i, drain(sandbox))
            sandbox.write_line(operations.command());
    }
    void run_mixed(Process &sandbox, Operations &operations, unsigned number) {
        for (unsigned i = 0; i < number; ++i, drain(sandbox)) {
            const unsigned who = operations.below(6);
            if (who < hosts.size())
                hosts[who].write_line(operations.request());
            else
                sandbox.write_line(operations.command());
        }
    }
    // Returns when the server has done everything that it was told and asked. A creation of its own waits behind those
    // that clients have asked for.
    void settle(Process &sandbox) {
        for (const Process &host : hosts)
            host.write_line("mark");
        for (size_t i = 0; i < hosts.size(); ++i)
            sandbox.write_line("wait-event VLAN_EVENT_DEFAULT_INTF 60");
        sandbox.write_line("vlan create 100");
        sandbox.write_line("print settled");
        EXPECT_TRUE(sandbox.shows("settled\n", patience));
        EXPECT_EQ(sandbox.count("waited in vain"), 0) << sandbox.output();
    }
    static std::string last_picture(const Process &host) {
        const std::string &output = host.output();
        const size_t end = output.rfind("end of picture\n");
        const size_t begin = output.rfind(": picture\n", end);
        return end == std::string::npos ? "" : output.substr(begin + 10, end - begin - 10);
    }

    static constexpr int patience = 60000;
    unsigned seed;
    std::vector<Process> hosts;
};

TEST_F(RandomVlans, every_host_s_events_add_up_to_the_tables) {
    Operations operations(seed);
    Process first = start_sandbox();
    ASSERT_TRUE(bridge_portdb_init() == 1 && vl_vlandb_init() == 1);
    for (const char *port : {"1 trunk", "2 access", "3 hybrid", "4 route", "5 uplink"})
        first.write_line("port add " + std::string(port) + " 1");
    hosts.push_back(start_host("judge", {"-r", "7"}, kPictureHost)); // refuses the multiples of 7
    hosts.push_back(start_host("plain", {}, kPictureHost));
    hosts.push_back(start_host("slow", {"-s", "2000"}, kPictureHost));
    for (Process &host : hosts)
        ASSERT_TRUE(host.shows(": replayed\n", patience));
    run_mixed(first, operations, 200);
    settle(first);
    EXPECT_GT(first.count("(judge) refused"), 0);
    first.signal(SIGKILL); // the slow host still has events to read
    EXPECT_EQ(first.wait(), 1000 + SIGKILL);

    // The next server lets nobody in before the tables have changed once more.
    Process second = start_sandbox({"--script", write_file("script", "stall\n")});
    run_commands(second, operations, 100);
    second.write_line("resume");
    for (Process &host : hosts)
        ASSERT_TRUE(host.shows(": replayed\n", patience));
    second.write_line("stall @slow");
    run_mixed(second, operations, 100);
    second.write_line("resume @slow");
    run_mixed(second, operations, 100);
    settle(second);
    second.write_line("event VLAN_EVENT_INTF_STATE");
    for (Process &host : hosts)
        EXPECT_TRUE(host.shows("end of picture\n", patience));
    const Picture tables = picture_of_tables();
    EXPECT_GT(tables.vlans.size(), 5U); // not too little to differ in
    EXPECT_GT(tables.ports.size(), 1U);
    for (Process &host : hosts) {
        EXPECT_EQ(last_picture(host), tables.text());
        EXPECT_EQ(host.end(), 0) << host.output();
    }
    EXPECT_EQ(second.end(), 0);
}

} // namespace
