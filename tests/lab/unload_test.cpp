// The bridge module goes and comes back while hosts use it.
#include "tests/lab/module_fixture.h"
#include "tests/support/children.h"

#include <poll.h>

namespace {

using namespace test;

class ModuleUnload : public ModuleHost {
  protected:
    struct Watch {
        uint32_t begun; // hosts
        bool stop;
    };
    // A host that looks addresses up, hands the kernel some and follows the channel, until it is to stop: then its
    // channel must be up again, and a look-up must find what is there.
    static int busy_host(Watch &watch) {
        if (bridge_lib_nlclient_init(&ctx()) != 1)
            return 1;
        __atomic_add_fetch(&watch.begun, 1U, __ATOMIC_RELAXED);
        while (!__atomic_load_n(&watch.stop, __ATOMIC_RELAXED)) {
            bri_mac_entry entry;
            static_cast<void>(look_up({6, 0, 0, 0, 0, 1}, 10, entry));
            static_cast<void>(bridge_maddr_dynmac_check_begin());
            loop().run_readable();
            loop().run("bri-ef-reconn");
        }
        return settled() ? 0 : 2;
    }
    static bool settled() {
        for (int tries = 0; tries < 100; ++tries) {
            loop().run_readable(10);
            loop().run("bri-ef-reconn");
            bri_mac_entry entry;
            if (ctx().nl_ready == 1 && look_up({6, 0, 0, 0, 0, 1}, 10, entry) == 0)
                return true;
        }
        return false;
    }
};

TEST_F(ModuleUnload, closes_the_channel_and_the_timer_brings_it_up_again) {
    watch({BRIDGE_EVENT_KERNEL_DATA_REQ});
    up();
    events().clear();
    ASSERT_TRUE(unload_module());
    EXPECT_EQ(read_all(), 1);
    EXPECT_TRUE(logged("[unit] EF-bridge disconn msg received.\n"));
    EXPECT_EQ(ctx().nl_ready, 0);
    ASSERT_EQ(loop().count("bri-ef-reconn"), 1);
    loop().run("bri-ef-reconn");
    EXPECT_EQ(ctx().nl_ready, 0);
    ASSERT_TRUE(load_module());
    ASSERT_EQ(loop().count("bri-ef-reconn"), 1);
    loop().run("bri-ef-reconn");
    EXPECT_EQ(ctx().nl_ready, 1);
    EXPECT_EQ(loop().count("bri-ef-reconn"), 0);
    EXPECT_EQ(events().size(), 2U); // the timer asks for the kernel's data once more
}

TEST_F(ModuleUnload, module_that_is_back_has_an_empty_table) {
    tell("mac fill 10 10 3");
    ASSERT_TRUE(unload_module());
    ASSERT_TRUE(load_module());
    EXPECT_EQ(module_figure("addresses"), 0);
}

TEST_F(ModuleUnload, question_finds_the_module_that_has_come_back_under_another_number) {
    up();
    ASSERT_TRUE(unload_module());
    bri_mac_entry entry;
    EXPECT_EQ(look_up({6, 0, 0, 0, 0, 0}, 10, entry), -1);
    ASSERT_TRUE(load_module());
    tell("mac fill 1 10 3");
    EXPECT_EQ(look_up({6, 0, 0, 0, 0, 0}, 10, entry), 0);
    EXPECT_EQ(read_all(), 1);
}

using ModuleUnloadSlow = ModuleUnload;

TEST_F(ModuleUnloadSlow, hosts_at_work_outlive_ten_times_of_it) {
    constexpr uint32_t kHosts = 3;
    SharedBlock<Watch> watch;
    std::vector<pid_t> hosts;
    for (uint32_t i = 0; i < kHosts; ++i)
        hosts.push_back(start_child([&] { return busy_host(*watch); }));
    for (int waited = 0; __atomic_load_n(&watch->begun, __ATOMIC_RELAXED) < kHosts; ++waited) {
        ASSERT_LT(waited, 2000);
        poll(nullptr, 0, 10);
    }
    for (int times = 0; times < 10; ++times) {
        poll(nullptr, 0, 50);
        ASSERT_TRUE(unload_module());
        poll(nullptr, 0, 20);
        ASSERT_TRUE(load_module());
        ASSERT_TRUE(tell_module("mac fill 4 10 3"));
    }
    __atomic_store_n(&watch->stop, true, __ATOMIC_RELAXED);
    for (const pid_t host : hosts)
        EXPECT_EQ(wait_for(host), 0);
}

} // namespace
