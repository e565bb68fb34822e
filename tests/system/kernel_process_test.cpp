// The kernel's bridge module in a process of its own: it outlives the server->
#include "tests/support/children.h"
#include "tests/system/workstation.h"

#include <csignal>
#include <filesystem>
#include <optional>
#include <poll.h>

namespace {

using namespace test;

struct KernelProcess : Workstation {
    [[nodiscard]] static Process start_kernel() {
        Process process({kSandbox, "kernel"});
        EXPECT_TRUE(process.shows("listening at "));
        return process;
    }
    void kill_server() {
        server->signal(SIGKILL);
        EXPECT_EQ(server->wait(), 1000 + SIGKILL);
    }
    void restart_server() { server.emplace(start_sandbox()); }
    // Whether the answer to the command has that text.
    [[nodiscard]] testing::AssertionResult answers(const std::string &command, const std::string &text) {
        server->write_line(command);
        return server->shows(text);
    }
    void run(const std::string &command) { Workstation::run(*server, command); }
    [[nodiscard]] bool has_socket(const char *name) const {
        return std::filesystem::exists(tmpdir() + "/bridge/" + name);
    }
    [[nodiscard]] Process start_table() const {
        return start_host("table", {"-m", "02:00:00:00:00:77", "-v", "10", "-i", "9"}, kMacTable); // no such port
    }

    std::optional<Process> kernel{start_kernel()};
    std::optional<Process> server{start_sandbox()};
};

TEST_F(KernelProcess, addresses_and_settings_outlive_a_killed_server) {
    run("vlan create 10");
    run("mac fill 300 10 3");
    run("mvlan add 02:00:00:00:00:09 10");
    run("mac age 4000");
    run("mac learning off");
    kill_server();
    restart_server();
    EXPECT_TRUE(answers("mac count", "mac: 300 addresses, age 4000 s"));
    EXPECT_TRUE(server->shows("learning off"));
    EXPECT_TRUE(answers("mvlan show", "02:00:00:00:00:09 mask ff:ff:ff:ff:ff:ff VLAN 10"));
    EXPECT_EQ(server->end(), 0);
    EXPECT_EQ(kernel->end(), 0);
    EXPECT_FALSE(has_socket(".kernel_socket"));
    EXPECT_FALSE(has_socket(".kernel_control"));
}

TEST_F(KernelProcess, walk_in_progress_meets_every_address_though_the_server_is_killed) {
    const std::string many = in_lab_machine() ? "2000" : "8000"; // it takes seconds
    run("mac fill " + many + " 10 3");
    Process host = start_table();
    EXPECT_TRUE(host.shows("  entry 06:00:00:00:00:40, VLAN 10"));
    kill_server();
    EXPECT_EQ(host.count("  " + many + " entries"), 0); // the walk went on
    EXPECT_TRUE(host.shows("table:   " + many + " entries\n"));
    EXPECT_EQ(std::to_string(host.count("  entry 06:")), many);
    restart_server();
    run("wait-clients 1");
    EXPECT_EQ(host.end(), 0);
}

TEST_F(KernelProcess, addresses_age_while_there_is_no_server) {
    run("mac age 1");
    run("mac add 02:00:00:00:00:05 10 3");
    kill_server();
    poll(nullptr, 0, 1200);
    restart_server();
    EXPECT_TRUE(answers("mac count", "mac: 0 addresses")); // the kernel's time goes on
}

TEST_F(KernelProcess, states_are_set_from_the_server) {
    Process host = start_table();
    EXPECT_TRUE(host.shows("  0 entries"));
    run("kernel down");
    EXPECT_TRUE(answers("kernel", "kernel: down"));
    run("kernel up");
    EXPECT_TRUE(host.shows("all addresses"));
    run("kernel error 16");
    run("kernel delay 5");
    EXPECT_TRUE(answers("kernel", "kernel: error"));
    EXPECT_TRUE(server->shows("kernel: answers after 5 ms"));
    EXPECT_EQ(host.end(), 0);
}

TEST_F(KernelProcess, server_finds_the_kernel_again) {
    run("mac add 02:00:00:00:00:05 10 3");
    kernel->signal(SIGKILL);
    EXPECT_EQ(kernel->wait(), 1000 + SIGKILL);
    EXPECT_TRUE(server->shows("kernel: its process has gone"));
    server->write_line("mac show");
    EXPECT_TRUE(server->shows("error: the kernel's process has gone"));
    run("port add 3 access 10"); // goes on without it
    kernel.emplace(start_kernel());
    EXPECT_TRUE(server->shows("kernel: its process is back"));
    EXPECT_TRUE(answers("mac show", "mac: 0 addresses"));
    EXPECT_EQ(server->end(), 0);
}

TEST_F(KernelProcess, client_that_asks_for_addresses_without_it_gets_none) {
    kernel->signal(SIGKILL);
    EXPECT_EQ(kernel->wait(), 1000 + SIGKILL);
    EXPECT_TRUE(server->shows("kernel: its process has gone"));
    Peer client = register_client({MAC_EVENT_SYNC_DATA_BEGIN, MAC_EVENT_SYNC_DATA_END}, "raw");
    client.send({{BRIDGE_EVENT_ORI_DATA_REQUEST, bytes_of(uint32_t{BRI_SUBMOD_MAC})}});
    EXPECT_EQ(next(client), (std::vector<Message>{{MAC_EVENT_SYNC_DATA_BEGIN, {}}}));
    EXPECT_EQ(next(client), (std::vector<Message>{{MAC_EVENT_SYNC_DATA_END, {}}}));
    EXPECT_EQ(server->end(), 0);
}

TEST_F(KernelProcess, second_one_is_refused) {
    Process second({kSandbox, "kernel"});
    EXPECT_TRUE(second.shows("a server is already listening at "));
    EXPECT_EQ(second.wait(), 1);
}

TEST_F(KernelProcess, hung_one_is_given_up) {
    kernel->signal(SIGSTOP);
    server->write_line("mac show");
    EXPECT_TRUE(server->shows("error: the kernel's process has gone"));
    kernel->signal(SIGCONT);
    EXPECT_TRUE(server->shows("kernel: its process is back"));
    EXPECT_TRUE(answers("mac show", "mac: 0 addresses"));
}

} // namespace
