// Hosts and the kernel's bridge module of the sandbox: the example mac_table, and the library's own calls.
#include "base/list.h"
#include "tests/system/workstation.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <poll.h>

namespace {

using namespace test;

size_t descriptors_of(const Process &process) {
    const std::filesystem::directory_iterator all("/proc/" + std::to_string(process.pid()) + "/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

struct MacHost : Workstation {
    MacHost() {
        for (const char *command : {"vlan create 10-11,40", "port add 4 access 10", "mac add 02:00:00:00:00:05 10 3",
                                    "mac add 02:00:00:00:00:05 11 3 filter", "mac add 02:00:00:00:00:01 10 3",
                                    "mac add 02:00:00:00:00:07 10 4 security"})
            run(command);
    }
    void run(const std::string &command) { Workstation::run(sandbox, command); }
    // A mac_table that would add 02:00:00:00:00:77 in VLAN 10 on port 3.
    [[nodiscard]] Process start_table() const {
        return start_host("table", {"-m", "02:00:00:00:00:77", "-v", "10", "-i", "3"}, kMacTable);
    }
    // One that has printed the table, knows that it has no such port and has been told what was there before it.
    [[nodiscard]] Process start_watching_table() {
        Process host = start_table();
        EXPECT_TRUE(host.shows("table: addresses of port 3\n"));
        EXPECT_TRUE(host.shows(" entries\n"));
        EXPECT_TRUE(has_shown(host, "table: could not ask for the address: no port 3")); // in either order
        EXPECT_TRUE(has_shown(host, "table: added 02:00:00:00:00:07, VLAN 10, port 4, security\n"));
        Workstation::run(sandbox, "port add 3 access 10");
        return host;
    }
    // Waits until the text stands anywhere in the output.
    static bool has_shown(Process &host, const std::string &text) {
        for (int waited = 0; waited < kPatienceMs && host.count(text) == 0; waited += 10)
            poll(nullptr, 0, 10);
        return host.count(text) != 0;
    }
    // What `kernel` shows, once the server has met the end of sockets that have just been closed.
    void expect_kernel(const std::string &line) {
        for (int waited = 0; sandbox.count("kernel: " + line + "\n") == 0; waited += 10) {
            ASSERT_LT(waited, kPatienceMs) << sandbox.output();
            run("kernel");
            poll(nullptr, 0, 10);
        }
    }
    // Walks that the host has begun once more have a descriptor until they end.
    static void expect_descriptors(const Process &host, size_t count) {
        for (int waited = 0; waited < kPatienceMs && descriptors_of(host) != count; waited += 10)
            poll(nullptr, 0, 10);
        EXPECT_EQ(descriptors_of(host), count);
    }
    // Makes the host look its address up.
    void announce_its_address() {
        run("mac delete 02:00:00:00:00:77");
        run("mac add 02:00:00:00:00:77 10 3 static");
    }
    static testing::AssertionResult shows_all(Process &host, std::initializer_list<const char *> lines) {
        for (const char *line : lines)
            if (const auto shown = host.shows(std::string("table: ") + line + "\n"); !shown)
                return shown;
        return testing::AssertionSuccess();
    }
    static void expect_clean_end(std::initializer_list<Process *> processes) {
        for (Process *process : processes)
            EXPECT_EQ(process->end(), 0) << process->output();
    }

    Process sandbox = start_sandbox();
};

TEST_F(MacHost, walks_the_kernels_table_by_address_and_by_port) {
    Process host = start_table();
    EXPECT_TRUE(shows_all(host, {"all addresses", "  entry 02:00:00:00:00:01, VLAN 10, port 3, dynamic",
                                 "  entry 02:00:00:00:00:05, VLAN 10, port 3, dynamic",
                                 "  entry 02:00:00:00:00:05, VLAN 11, port 3, filter",
                                 "  entry 02:00:00:00:00:07, VLAN 10, port 4, security", "  4 entries",
                                 "addresses of port 3", "  entry 02:00:00:00:00:01, VLAN 10, port 3, dynamic",
                                 "  entry 02:00:00:00:00:05, VLAN 10, port 3, dynamic",
                                 "  entry 02:00:00:00:00:05, VLAN 11, port 3, filter", "  3 entries"}));
    EXPECT_EQ(host.count("  entry "), 7);
    expect_clean_end({&host, &sandbox});
}

TEST_F(MacHost, walks_a_table_of_many_addresses_to_its_end) {
    run("mac fill 500 20 4");
    Process host = start_table();
    EXPECT_TRUE(shows_all(host, {"  entry 06:00:00:00:01:f3, VLAN 20, port 4, dynamic", "  504 entries"}));
    EXPECT_EQ(host.count("  entry 06:"), 500);
    expect_clean_end({&host, &sandbox});
}

TEST_F(MacHost, adds_a_static_address_sees_its_announcement_and_finds_it_in_the_kernel) {
    run("port add 3 access 10");
    Process host = start_table();
    EXPECT_TRUE(shows_all(host, {"asked for the address", "added 02:00:00:00:00:77, VLAN 10, port 3, static",
                                 "that is the address we asked for",
                                 "in the kernel's table: 02:00:00:00:00:77, VLAN 10, port 3, static"}));
    run("mac show");
    EXPECT_EQ(sandbox.count("  02:00:00:00:00:77 VLAN 10 port 3 static\n"), 1);
    expect_clean_end({&host, &sandbox});
}

TEST_F(MacHost, is_told_the_addresses_that_were_there_before_it) {
    Process host = start_table();
    EXPECT_TRUE(shows_all(host, {"added 02:00:00:00:00:01, VLAN 10, port 3, dynamic",
                                 "added 02:00:00:00:00:05, VLAN 10, port 3, dynamic",
                                 "added 02:00:00:00:00:05, VLAN 11, port 3, filter",
                                 "added 02:00:00:00:00:07, VLAN 10, port 4, security"}));
    expect_clean_end({&host, &sandbox});
}

TEST_F(MacHost, sees_every_change_of_the_table_as_one_record) {
    Process host = start_watching_table();
    run("mac fill 300 20 4");
    run("mac delete * 20");
    run("mac add 02:00:00:00:00:05 10 4");
    EXPECT_TRUE(host.shows("table: added 02:00:00:00:00:05, VLAN 10, port 4, dynamic\n"));
    EXPECT_EQ(host.count("table: added 06:"), 300);
    EXPECT_EQ(host.count("table: deleted 06:"), 300);
    EXPECT_EQ(host.count("table: added 06:00:00:00:01:2b, VLAN 20, port 4, dynamic\n"), 1);
    EXPECT_EQ(host.count("table: deleted 06:00:00:00:01:2b, VLAN 20, port 4, dynamic\n"), 1);
    expect_clean_end({&host, &sandbox});
}

TEST_F(MacHost, is_told_what_becomes_of_a_host_on_the_network) {
    Process host = start_watching_table(); // port 3 is there from now on
    run("traffic 02:00:00:00:00:99 10 3");
    EXPECT_TRUE(host.shows("table: added 02:00:00:00:00:99, VLAN 10, port 3, dynamic\n"));
    run("traffic 02:00:00:00:00:99 10 3"); // known
    run("traffic 02:00:00:00:00:99 10 4");
    EXPECT_TRUE(host.shows("table: added 02:00:00:00:00:99, VLAN 10, port 4, dynamic\n"));
    run("port del 4");
    EXPECT_TRUE(host.shows("table: deleted 02:00:00:00:00:99, VLAN 10, port 4, dynamic\n"));
    EXPECT_EQ(host.count(":99, VLAN 10"), 3);
    EXPECT_EQ(host.count("deleted 02:00:00:00:00:07, VLAN 10, port 4, security\n"), 1); // configured on it
    run("vlan delete 11");
    EXPECT_TRUE(host.shows("table: deleted 02:00:00:00:00:05, VLAN 11, port 3, filter\n"));
    expect_clean_end({&host, &sandbox});
}

TEST_F(MacHost, is_told_when_an_address_has_aged) {
    Process host = start_watching_table();
    run("mac age 1"); // two of its addresses are learned ones
    EXPECT_TRUE(has_shown(host, "table: deleted 02:00:00:00:00:01, VLAN 10, port 3, dynamic\n"));
    EXPECT_TRUE(has_shown(host, "table: deleted 02:00:00:00:00:05, VLAN 10, port 3, dynamic\n"));
    run("mac show");
    EXPECT_EQ(sandbox.count("\nmac: 2 addresses\n"), 1);
    expect_clean_end({&host, &sandbox});
}

struct MacHostFault : MacHost, testing::WithParamInterface<const char *> {};

// An answer that means that the kernel has gone: the look-up fails, and the host opens its channel anew every second
// until its questions are answered again.
TEST_P(MacHostFault, fails_the_look_up_and_is_overcome) {
    Process host = start_watching_table();
    const size_t before = descriptors_of(host);
    run(GetParam());
    announce_its_address();
    EXPECT_TRUE(shows_all(host, {"not in the kernel's table", "all addresses"}));
    EXPECT_TRUE(host.shows("table:   the kernel does not tell: "));
    run("kernel up"); // between two walks, or in the middle of one
    EXPECT_TRUE(shows_all(host, {"all addresses", "  5 entries", "addresses of port 3", "  4 entries"}));
    announce_its_address();
    EXPECT_TRUE(shows_all(host, {"in the kernel's table: 02:00:00:00:00:77, VLAN 10, port 3, static"}));
    expect_descriptors(host, before);
    expect_kernel("up, 1 sockets, 1 listen, family 35, 5 addresses");
    expect_clean_end({&host, &sandbox});
}

INSTANTIATE_TEST_SUITE_P(Answers, MacHostFault, testing::Values("kernel error", "kernel error 2", "kernel long"),
                         [](const auto &instance) {
                             std::string name = instance.param;
                             std::replace(name.begin(), name.end(), ' ', '_');
                             return name;
                         });

TEST_F(MacHost, finds_the_family_again_under_its_new_id) {
    Process host = start_watching_table();
    const size_t before = descriptors_of(host);
    run("kernel down");
    announce_its_address(); // the server's events go on
    EXPECT_TRUE(shows_all(host, {"that is the address we asked for", "not in the kernel's table"}));
    EXPECT_LE(descriptors_of(host), before); // a channel that finds no family is kept for the next try
    run("kernel up");
    for (int walk = 0; walk < 2; ++walk) // by address and by port
        EXPECT_TRUE(shows_all(host, {"  entry 02:00:00:00:00:77, VLAN 10, port 3, static", "  1 entries"}));
    expect_descriptors(host, before);
    expect_kernel("up, 1 sockets, 1 listen, family 36, 1 addresses");
    expect_clean_end({&host, &sandbox});
}

struct MacHostSlow : MacHost {};

TEST_F(MacHostSlow, silent_kernel_holds_a_look_up_for_its_time_out_only) {
    using Seconds = std::chrono::duration<double>;
    Process host = start_watching_table();
    const size_t before = descriptors_of(host);
    run("kernel silent");
    const auto begin = std::chrono::steady_clock::now();
    announce_its_address();
    EXPECT_TRUE(shows_all(host, {"not in the kernel's table"}));
    const double seconds = Seconds(std::chrono::steady_clock::now() - begin).count();
    EXPECT_GT(seconds, 9.5);
    EXPECT_LT(seconds, 19.5);
    run("kernel up");
    announce_its_address();
    EXPECT_TRUE(shows_all(host, {"in the kernel's table: 02:00:00:00:00:77, VLAN 10, port 3, static"}));
    EXPECT_EQ(host.count("all addresses"), 1); // the channel itself has not suffered
    EXPECT_EQ(descriptors_of(host), before);
    expect_clean_end({&host, &sandbox});
}

// The library in this process, its netlink sockets connected as the preloaded library does.
struct MacCalls : MacHost {
    MacCalls() {
        faults::hooks.socket = [this](int domain, int type, int protocol) {
            if (domain != AF_NETLINK)
                return faults::real_socket(domain, type, protocol);
            const int fd = faults::real_socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
            const sockaddr_un address = kernel_address();
            EXPECT_EQ(faults::real_connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
            return fd;
        };
        faults::hooks.bind = [](int fd, const sockaddr *address, socklen_t length) {
            return faults::real_send(fd, address, length, MSG_NOSIGNAL) == static_cast<ssize_t>(length) ? 0 : -1;
        };
    }
    ~MacCalls() override { faults::clear(); }

    static constexpr uint8_t kMac[6] = {2, 0, 0, 0, 0, 5};
    static constexpr uint8_t kOther[6] = {2, 0, 0, 0, 0, 9};
};

TEST_F(MacCalls, look_ups_are_answered_and_leave_no_descriptor) {
    run("port add 3 trunk 1");
    run("port allow 3 10-11");
    run("mac add 02:00:00:00:00:05 11 3 static");
    const int before = open_descriptors();
    bri_mac_entry out{};
    EXPECT_EQ(bridge_maddr_find_single(kMac, 11, &out), 0);
    EXPECT_EQ(out.ifx, 3U);
    EXPECT_EQ(out.type, uint32_t{BRI_MAC_TYPE_STATIC});
    EXPECT_EQ(bridge_maddr_find_single(kMac, 12, &out), -1);
    EXPECT_EQ(bridge_maddr_find_static_on_ifx(3), 0);
    EXPECT_EQ(bridge_maddr_find_static_on_ifx(4), -1);
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(MacCalls, learned_address_is_looked_up_until_its_port_is_flushed) {
    run("port add 3 access 10");
    run("traffic 02:00:00:00:00:09 10 3");
    bri_mac_entry out{};
    EXPECT_EQ(bridge_maddr_find_single(kOther, 10, &out), 0);
    EXPECT_EQ(out.type, uint32_t{BRI_MAC_TYPE_DYNAMIC});
    run("mac flush 10 3");
    EXPECT_EQ(bridge_maddr_find_single(kOther, 10, &out), -1);
}

TEST_F(MacCalls, look_up_takes_as_long_as_the_kernel_is_told_to) {
    run("kernel delay 200");
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(bridge_maddr_find_single(kMac, 10, nullptr), 0);
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(taken.count(), 0.4); // the family's answer, then this one
    EXPECT_LT(taken.count(), 5);
}

TEST_F(MacCalls, vlan_of_a_host_is_looked_up) {
    uint16_t vlan = 1;
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac, &vlan), -1);
    EXPECT_EQ(vlan, 0);
    run("mvlan add 02:00:00:00:00:05 40");
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac, &vlan), 0);
    EXPECT_EQ(vlan, 40);
    run("mvlan delete 02:00:00:00:00:05");
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac, &vlan), -1);
    EXPECT_EQ(vlan, 0);
    EXPECT_EQ(times_logged("System is busy now, please try again later.\n"), 0);
    run("kernel error");
    EXPECT_EQ(mvlan_clnt_get_dyn_entry(kMac, &vlan), -1);
    EXPECT_EQ(times_logged("System is busy now, please try again later.\n"), 1);
}

TEST_F(MacCalls, addresses_told_to_the_kernel_and_a_check_change_its_table) {
    bri_clnt_ctx client{};
    client.master = Loop::get().master();
    bri::list::init(client.handlers);
    g_bridge_client = &client;
    const int before = open_descriptors();
    ASSERT_EQ(bridge_lib_nlclient_init(&client), 1);
    bri_mac_msg records[2] = {};
    for (bri_mac_msg &record : records) {
        record.oper = BRI_MAC_ADD;
        record.entry.field = 0x0F;
        record.entry.bcast_id = 10;
        record.entry.ifx = 3;
        record.entry.type = BRI_MAC_TYPE_DYNAMIC;
    }
    std::memcpy(records[0].entry.mac, kOther, sizeof kOther);
    std::memcpy(records[1].entry.mac, kMac, sizeof kMac);
    EXPECT_EQ(bridge_maddr_notify(records, 2), 0);
    EXPECT_TRUE(sandbox.shows("kernel: got MAC_EVENT_SS_NOTIFY_ADDR(274), 80 bytes"));
    EXPECT_EQ(bridge_maddr_find_single(kOther, 10, nullptr), 0);
    EXPECT_EQ(bridge_maddr_dynmac_check_begin(), 0);
    EXPECT_EQ(bridge_maddr_notify(records, 1), 0);
    EXPECT_EQ(bridge_maddr_dynmac_check_end(), 0);
    EXPECT_TRUE(sandbox.shows("kernel: got MAC_EVENT_DYN_CHECK_END(276), 0 bytes"));
    EXPECT_EQ(bridge_maddr_find_single(kOther, 10, nullptr), 0);
    EXPECT_EQ(bridge_maddr_find_single(kMac, 10, nullptr), -1); // not told again
    EXPECT_EQ(bridge_maddr_find_single(kMac, 11, nullptr), 0);  // not dynamic
    bridge_lib_nlclient_deinit(&client);
    g_bridge_client = nullptr;
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
