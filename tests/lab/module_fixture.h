// A host whose kernel is the machine's own, with the bridge module in it.
#pragma once

#include "tests/support/host.h"
#include "tests/support/kernel_module.h"

#include <ctime>

namespace test {

class ModuleHost : public Host {
  protected:
    void SetUp() override {
        ASSERT_TRUE(module_loaded()) << "only in a lab machine, see docs/target-lab.md";
        debug_on({BRI_DBG_MSG});
        before_ = open_descriptors();
    }
    void TearDown() override {
        bridge_lib_nlclient_deinit(&ctx());
        EXPECT_EQ(open_descriptors(), before_);
        EXPECT_TRUE(module_loaded() || load_module());
        EXPECT_TRUE(tell_module("state up"));
        EXPECT_TRUE(tell_module("clear"));
    }

    static Loop &loop() { return Loop::get(); }
    static void tell(const std::string &command) { ASSERT_TRUE(tell_module(command)) << command; }
    static void up() {
        ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
        clear_log();
    }
    // Runs the read job until nothing is left on the channel.
    static int read_all() {
        int messages = 0;
        while (loop().run_readable(100) != 0)
            ++messages;
        return messages;
    }
    static int look_up(const uint8_t (&mac)[6], uint32_t vlan, bri_mac_entry &entry) {
        entry = {};
        return bridge_maddr_find_single(mac, vlan, &entry);
    }
    static time_t now() {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return time.tv_sec;
    }

  private:
    int before_ = 0;
};

} // namespace test
