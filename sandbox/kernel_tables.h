// The tables of the kernel's bridge module, whoever changes them: the server, hosts through the kernel channel, frames
// and time; and what the module is told and asked.
#pragma once

#include "sandbox/mac_table.h"
#include "sandbox/vlan_sets.h"

#include <bridge/mac_vlan.h>

namespace sandbox {

enum MacVlanOper : uint32_t { kMacVlanAdd = 0, kMacVlanDelete = 1, kMacVlanQuery = 2 };

// The VLANs that the module puts hosts in by their address, in the order in which they came.
class MacVlans {
  public:
    uint32_t room = UINT32_MAX; // entries

    // Takes an add or a delete; an entry is known by its address and mask. A system error number: ENOSPC, ENOENT for
    // one to delete that is not there, EINVAL for anything else.
    int apply(const mvlan_msg &request);
    // The entries that are wanted go, and come back from here.
    std::vector<mvlan_msg> remove_if(const std::function<bool(const mvlan_msg &)> &wanted);
    void clear() { entries_.clear(); }

    // The entry for a host address: of several whose mask covers it, the one with the longest mask; null without one.
    [[nodiscard]] const mvlan_msg *find(const uint8_t (&mac)[6]) const;
    [[nodiscard]] const std::vector<mvlan_msg> &entries() const { return entries_; }

  private:
    std::vector<mvlan_msg> entries_;
};

// As many events of that type as it takes.
void send_records(uint32_t type, const MacChanges &records, const Announce &send);

// Each change is told once it is made, as the events that clients get.
struct KernelTables {
    // Runs fn(table, now, news) and tells what came of it; how many addresses changed.
    template <class Fn> uint32_t change(Fn &&fn) {
        MacNews news;
        fn(macs, now(), news);
        send_records(MAC_EVENT_NOTIFY_ADDR, news.changes, tell);
        send_records(MAC_EVENT_DYN_MOVE, news.moved, tell);
        send_records(MAC_EVENT_EXCEED_ADDR_CAPA, news.exceeded, tell);
        return static_cast<uint32_t>(news.changes.size());
    }

    Announce tell;
    std::function<Microseconds()> now;
    MacTable macs{};
    MacVlans hosts{};
};

struct KernelResult {
    int error = 0;      // a system error number: the message is refused
    Buffer answer = {}; // to a question: its record, with the result filled in; empty otherwise

    // The record that a question is answered with; zeros when there is none.
    template <class Record> [[nodiscard]] Record record() const { return object_of<Record>(answer); }
};
template <class Record> KernelResult answer_of(const Record &record) {
    return {0, buffer_of(bytes_of(record))};
}

// What the server alone says, beyond the MAC requests that it passes on; the numbers are no event's.
enum ServerSays : uint32_t {
    kFramesSeen = 0x10000, // a run of bri_mac_entry: address, VLAN and port; answered by FramesSeen
    kForget,               // KernelForget; answered by the number of addresses, uint32_t
    kHostRoom,             // uint32_t: entries that the table of hosts' VLANs may hold
    kReadAddresses,        // answered by a run of bri_mac_msg
    kReadHosts,            // answered by a run of mvlan_msg
    kReadFigures,          // answered by KernelFigures
    kSetModule,            // KernelModule: how the module behaves
    kAgeElsewhere,         // uint32_t: what was learned does not go by itself, unless 0
    kReadModule            // answered by KernelModule
};

// What there is of those VLANs on the port, on all for 0, goes: configured addresses too, and hosts' VLANs if `hosts`.
struct KernelForget {
    uint32_t ifx;
    uint32_t hosts;
    vlanset vlans;
    uint32_t everywhere; // whatever `vlans` says
    uint32_t learned;    // no configured addresses
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
    bri_port_set quiet_ports;
    uint32_t of_type[BRI_MAC_TYPE_TRUST + 1];
    uint32_t addresses;
};
struct KernelModule {
    uint32_t state; // enum KernelState
    uint32_t error;
    uint32_t delay_ms;
    uint32_t sockets; // these three are the module's own
    uint32_t listeners;
    uint32_t family;
};

// Does what a host or the server says, or answers it.
enum class Asker : uint8_t { kHost, kServer };
KernelResult handle(KernelTables &tables, Asker asker, uint32_t type, Bytes data);

} // namespace sandbox
