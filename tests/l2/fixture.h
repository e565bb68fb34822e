// A host with the shared databases mapped and a server that takes what is sent.
#pragma once

#include "tests/support/host.h"
#include "tests/support/kernel.h"

namespace test {

class L2Host : public Host {
  protected:
    L2Host() {
        if (bridge_portdb_init() != 1 || vl_vlandb_init() != 1)
            throw std::runtime_error("no database");
        vl_set_vlan_range(1, 4094);
        connect_server();
        start_as("unit");
    }

    // Gives the process this client name, as start-up does.
    static void start_as(const char *name) {
        std::memset(ctx().name, 0, sizeof ctx().name);
        std::strcpy(ctx().name, name);
        mac_client_init(&ctx());
        l2top_clnt_init(name);
    }
    // What the server does when a port comes.
    static spcb &plug(int32_t ifx) {
        spcb &port = *swport_get_raw_spcb(ifx);
        port.ifx = static_cast<uint32_t>(ifx);
        port.mode = BRI_PORT_ACCESS;
        return port;
    }
    // From now on the server takes nothing.
    static void disconnect() { ctx().connected = 0; }

    static void expect_mac_line(const std::string &text) { expect_line(text, kMacLine); }
    static void expect_only_mac_line(const std::string &text) {
        EXPECT_EQ(log_text(), text);
        expect_mac_line(text);
    }
};

inline const ByteVec kMac{0x00, 0xD0, 0xF8, 0x12, 0x34, 0xAB};

} // namespace test
