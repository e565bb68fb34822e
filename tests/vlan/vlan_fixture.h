// What the VLAN tests stand on: a host with mapped tables, and VLANs and ports as the server makes them.
#pragma once

#include "tests/support/host.h"

#include <initializer_list>

namespace test {

class VlanTest : public Host {
  protected:
    // Maps the databases, with the usual range of ids.
    static void map_tables() {
        ASSERT_STREQ(vl_clnt_manage_init(g_bridge_client), "unit");
        vl_set_vlan_range(1, 4094);
    }

    static void listen(std::initializer_list<unsigned> types, bri_event_handler handler) {
        const event_set set = set_of_types(types);
        ASSERT_EQ(bridge_client_reg_event(&set, handler), 0);
    }
    // Every type of the VLAN submodule, those that are never passed on included.
    static void watch_all() {
        for (unsigned type = 385; type <= 511; ++type)
            watch({type});
        watch({DEBUG_EVENT_VLAN});
    }

    // A port as the server writes it.
    static spcb &add_port(int32_t ifx, uint32_t mode, uint16_t pvid = 1) {
        spcb &port = *swport_get_raw_spcb(ifx);
        std::memset(&port, 0, sizeof port);
        port.ifx = static_cast<uint32_t>(ifx);
        port.mode = mode;
        port.default_vid = pvid;
        return port;
    }

    // A VLAN as the server makes it, known to this process in its present version unless `missed`.
    static vle &add_vlan(uint16_t vid, uint32_t mode = BRI_VLAN_STATIC, std::initializer_list<int> members = {},
                         bool missed = false) {
        vl_initial_vlan_entry(vid, mode);
        vle &entry = *vl_get_vlan_entry(vid);
        for (const int ifx : members)
            vl_add_static_member(ifx, vid);
        if (!missed)
            g_vlan_private_version[vid] = entry.version;
        return entry;
    }
};

// The tables mapped before the test begins.
class MappedVlanTest : public VlanTest {
  protected:
    void SetUp() override { map_tables(); }
};

// One message as it lies in a batch, at an odd address.
class RawMessage {
  public:
    RawMessage(uint32_t type, size_t len) : bytes_(1 + sizeof(bri_msg_hdr) + len) {
        put_at(header(), 0, type);
        put_at(header(), 4, static_cast<uint32_t>(len));
    }
    template <class T> RawMessage &with(size_t offset, T value) {
        put_at(payload(), offset, value);
        return *this;
    }
    uint8_t *payload() { return bytes_.data() + 1 + sizeof(bri_msg_hdr); }
    bri_msg_hdr *header() { return reinterpret_cast<bri_msg_hdr *>(bytes_.data() + 1); }
    int deliver() { return vl_clnt_on_server_msg(header()); }

  private:
    ByteVec bytes_;
};

// `count` times a character; out of line, because inlined g++ 12 takes sums of such strings for overflows.
[[gnu::noinline]] inline std::string repeat(char character, size_t count) {
    return std::string(count, character);
}

inline void expect_event(const HostEvent &event, uint32_t type, const ByteVec &payload) {
    EXPECT_EQ(event.type, type);
    EXPECT_EQ(event.payload, payload);
}

inline void expect_vlan_log(const std::string &text) {
    const LogLine line = log_line(text);
    EXPECT_EQ(line.category(), kVlanLine) << text;
}

} // namespace test
