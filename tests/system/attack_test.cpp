// A sandbox server that many connect to, or that runs out of descriptors, serves those who are there.
#include "tests/system/workstation.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace test;

struct Attack : Workstation {
    // A connection that is not waited for; -1 when the queue of those that wait is full.
    int try_to_connect() const {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socket_path().copy(address.sun_path, sizeof address.sun_path - 1);
        if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
            return fd;
        close(fd);
        return -1;
    }
    // As many as that, each gone at once.
    void storm(unsigned connects) const {
        for (unsigned i = 0; i < connects; ++i)
            if (const int fd = try_to_connect(); fd >= 0)
                close(fd);
    }
    static unsigned long ticks_of(pid_t pid) {
        std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
        std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        std::istringstream fields(text.substr(text.rfind(')') + 2));
        std::string word;
        for (int i = 0; i < 11; ++i) // from the state to the counts of page faults
            fields >> word;
        unsigned long user = 0;
        unsigned long system = 0;
        fields >> user >> system;
        return user + system;
    }
};

// Sixteen in 5 ms: what is written to the others meanwhile is in time.
TEST_F(Attack, storm_of_connects_is_let_in_bit_by_bit) {
    Process sandbox = start_sandbox();
    Peer client = register_client({VLAN_EVENT_CREATE_INDEX}, "good");
    const auto start = std::chrono::steady_clock::now();
    storm(2000);
    sandbox.write_line("event VLAN_EVENT_CREATE_INDEX 01");
    ASSERT_EQ(next(client), (std::vector<Message>{{VLAN_EVENT_CREATE_INDEX, {1}}}));
    EXPECT_TRUE(sandbox.shows("to 1 clients"));
    const auto passed = std::chrono::steady_clock::now() - start;
    const auto pauses = std::chrono::duration_cast<std::chrono::milliseconds>(passed).count() / 5;
    EXPECT_LE(sandbox.count(": connected\n"), 16 * (pauses + 2));
    EXPECT_EQ(sandbox.end(), 0);
}

TEST_F(Attack, shortage_of_descriptors_is_said_once_and_costs_no_time) {
    Process sandbox = start_sandbox();
    const rlimit few{32, 32};
    ASSERT_EQ(prlimit(sandbox.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
    std::vector<int> others;
    for (int i = 0; i < 40; ++i)
        others.push_back(try_to_connect());
    EXPECT_TRUE(sandbox.shows("new clients wait: Too many open files"));
    const unsigned long before = ticks_of(sandbox.pid());
    std::this_thread::sleep_for(std::chrono::seconds(2));
    EXPECT_LE(ticks_of(sandbox.pid()) - before, 10U); // of 200
    EXPECT_EQ(sandbox.count("new clients wait"), 1);
    for (const int fd : others)
        if (fd >= 0)
            close(fd);
    Peer client = register_client({}, "late");
    EXPECT_EQ(sandbox.end(), 0);
}

TEST_F(Attack, unread_bytes_of_all_clients_have_a_bound) {
    Process sandbox = start_sandbox({"--quiet"});
    std::vector<Peer> deaf;
    for (int i = 0; i < 5; ++i)
        deaf.push_back(register_client({VLAN_EVENT_CREATE_INDEX}, "deaf" + std::to_string(i)));
    sandbox.write_line("stall @deaf0"); // behind by the most: nothing of it leaves
    const std::string event = "event VLAN_EVENT_CREATE_INDEX " + std::string(2 * size_t{10240}, '0');
    for (int i = 0; i < 5400; ++i) {
        sandbox.write_line(event);
        if (i % 100 == 0)
            sandbox.drain();
    }
    sandbox.write_line("clients");
    EXPECT_TRUE(sandbox.shows("clients: 4"));
    EXPECT_EQ(sandbox.count("deaf0"), 0);
    EXPECT_EQ(sandbox.end(), 0);
}

} // namespace
