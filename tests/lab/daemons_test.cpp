// Daemons, the server and the kernel's module together, with no double between them.
#include "tests/support/kernel_module.h"
#include "tests/system/workstation.h"

#include <csignal>
#include <optional>

namespace {

using namespace test;

struct Daemons : Workstation {
    void SetUp() override {
        ASSERT_TRUE(module_loaded()) << "only in a lab machine, see docs/target-lab.md";
        EXPECT_TRUE(tell_module("mac add 02:00:00:00:00:05 10 3 2"));
        EXPECT_TRUE(tell_module("mac add 02:00:00:00:00:06 10 4 1"));
        server.emplace(start_sandbox());
        run(*server, "vlan create 10");
        run(*server, "port add 3 access 10");
        table.emplace(std::vector<std::string>{kMacTable, "-n", "table", "-v", "10", "-i", "3"});
        watch.emplace(std::vector<std::string>{kPortWatch, "-n", "watch"});
    }
    void TearDown() override {
        if (!server)
            return;
        for (auto *process : {&watch, &table, &server}) {
            EXPECT_EQ((*process)->end(), 0) << (*process)->output();
        }
        EXPECT_TRUE(module_loaded() || load_module());
        EXPECT_TRUE(tell_module("clear"));
    }
    [[nodiscard]] testing::AssertionResult table_shows_the_kernels() {
        for (const char *line : {"all addresses", "  entry 02:00:00:00:00:05, VLAN 10, port 3, static",
                                 "  entry 02:00:00:00:00:06, VLAN 10, port 4, dynamic", "  2 entries"})
            if (const auto shown = table->shows(std::string("table: ") + line + "\n"); !shown)
                return shown;
        return testing::AssertionSuccess();
    }

    std::optional<Process> server, table, watch;
};

TEST_F(Daemons, walk_the_kernels_own_table) {
    EXPECT_TRUE(table_shows_the_kernels());
    EXPECT_TRUE(table->shows("table: addresses of port 3\n"));
    EXPECT_TRUE(table->shows("table:   1 entries\n"));
}

TEST_F(Daemons, follow_the_server_that_is_killed_and_comes_back) {
    EXPECT_TRUE(table_shows_the_kernels());
    run(*server, "wait-clients 2");
    server->signal(SIGKILL);
    EXPECT_EQ(server->wait(), 1000 + SIGKILL);
    server.emplace(start_sandbox());
    run(*server, "wait-clients 2");
    EXPECT_EQ(table->count("all addresses"), 1); // the kernel was there all the time
}

TEST_F(Daemons, read_the_table_again_when_the_module_comes_back) {
    EXPECT_TRUE(table_shows_the_kernels());
    ASSERT_TRUE(unload_module());
    ASSERT_TRUE(load_module());
    EXPECT_TRUE(tell_module("mac add 02:00:00:00:00:05 10 3 2"));
    EXPECT_TRUE(tell_module("mac add 02:00:00:00:00:06 10 4 1"));
    EXPECT_TRUE(table_shows_the_kernels());
}

} // namespace
