// What the kernel's bridge module is told and asked: by hosts in messages of its netlink family, by the server.
#pragma once

#include "sandbox/kernel_tables.h"

#include <bridge/base.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace sandbox {

// A message's type and its data.
struct KernelMessage {
    uint32_t type = 0;
    Bytes data;
};
// Out of a netlink message to the family; nothing when that is cut or its length word is wrong.
std::optional<KernelMessage> kernel_message(Bytes packet);

struct KernelResult {
    int error = 0;               // a system error number: the message is refused
    std::vector<uint8_t> answer; // to a question: its record, with the result filled in; empty otherwise

    // The record that a question is answered with; zeros when there is none.
    template <class Record> [[nodiscard]] Record record() const {
        return bri::load_at<Record>({answer.data(), answer.size()}, 0);
    }
};
template <class Record> KernelResult answer_of(const Record &record) {
    const Bytes bytes = bytes_of(record);
    return {0, {bytes.data, bytes.data + bytes.size}};
}

// What the server alone says, beyond the MAC requests that it passes on; the numbers are no event's.
enum ServerSays : uint32_t {
    kFramesSeen = 0x10000, // a run of bri_mac_entry: address, VLAN and port; answered by FramesSeen
    kForget,               // KernelForget
    kHostRoom,             // uint32_t: entries that the table of hosts' VLANs may hold
    kReadAddresses,        // answered by a run of bri_mac_msg
    kReadHosts,            // answered by a run of mvlan_msg
    kReadFigures,          // answered by KernelFigures
    kSetModule,            // KernelModule: how the module behaves
    kReadModule            // answered by KernelModule
};

// What there is of those VLANs on the port, on all for 0, goes: configured addresses too, and hosts' VLANs if `hosts`.
struct KernelForget {
    uint32_t ifx;
    uint32_t hosts;
    vlanset vlans;
};
// How many of the frames did what, by enum Seen.
struct FramesSeen {
    uint32_t times[static_cast<size_t>(Seen::kFull) + 1];
};
struct KernelFigures {
    uint32_t age; // seconds, as the range allows them
    bri_mac_age_range range;
    bri_mac_available room;
    uint32_t learning;
    uint32_t quiet_ports[BRI_PORT_SLOTS / 32]; // a bit for each
    uint32_t of_type[BRI_MAC_TYPE_TRUST + 1];
    uint32_t addresses;
    uint32_t hosts;
    uint32_t host_room;
};
struct KernelModule {
    uint32_t state; // enum KernelState
    uint32_t error;
    uint32_t delay_ms;
    uint32_t sockets; // these three are the module's own
    uint32_t listeners;
    uint32_t family;
};

enum class Asker : uint8_t { kHost, kServer };
KernelResult handle(KernelTables &tables, Asker asker, const KernelMessage &message);

} // namespace sandbox
