// A host whose kernel is the double.
#pragma once

#include "tests/support/host.h"
#include "tests/support/kernel.h"

namespace test {

class KernelHost : public Host {
  protected:
    KernelHost() {
        debug_on({BRI_DBG_MSG});
        before_ = open_descriptors();
    }
    ~KernelHost() override { bridge_lib_nlclient_deinit(&ctx()); }

    // The channel up, the log and the events empty.
    void up() {
        ASSERT_EQ(bridge_lib_nlclient_init(&ctx()), 1);
        events().clear();
        clear_log();
    }
    [[nodiscard]] int fd() { return kernel.persistent() != nullptr ? kernel.persistent()->fd : -1; }
    static std::vector<uint32_t> event_types() {
        std::vector<uint32_t> all;
        for (const HostEvent &event : events())
            all.push_back(event.type);
        return all;
    }
    static Loop &loop() { return Loop::get(); }
    static int read_jobs() { return loop().count("bri-ef-read"); }
    static int timers() { return loop().count("bri-ef-reconn"); }
    // Descriptors opened since the start, the kernel's own ends not counted.
    [[nodiscard]] int extra_descriptors() const { return open_descriptors() - before_ - kernel.open_sockets(); }

    static void expect_msg_line(const std::string &text) { expect_line(text, kClientLine); }

    Kernel kernel;

  private:
    int before_;
};

} // namespace test
