// The server's word about addresses: what clients and the operator ask for is checked, done by the kernel's bridge
// module and announced. What is refused is refused for everybody, with the reason of the std::invalid_argument that all
// throw, also when the module's process has gone.
#pragma once

#include "sandbox/batch.h"
#include "sandbox/kernel_messages.h"

#include <bridge/mac_client.h>
#include <bridge/mac_vlan.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace sandbox {

// Why an address cannot be there, empty when it can: the port and the VLAN exist, and the port is a member. With one of
// them 0 only the other one counts.
using Misplaced = std::function<std::string(uint16_t vid, uint32_t ifx)>;
std::string misplaced(uint16_t vid, uint32_t ifx); // by the tables

class Addresses {
  public:
    using Ask = std::function<KernelResult(uint32_t type, Bytes data)>; // the kernel's bridge module

    Addresses(Ask kernel, Announce announce, Misplaced where = misplaced)
        : kernel_(std::move(kernel)), announce_(std::move(announce)), misplaced_(std::move(where)) {}

    // Adds and deletes; how many addresses changed. What is configured on a port must be able to be there; what is
    // said to have been learned is not asked. All are looked at, the others done, before one is refused.
    uint32_t apply(const std::vector<bri_mac_msg> &records);
    // Deletes the learned addresses of those VLANs, on one port or, for 0, on all.
    uint32_t flush(const vlanset &vlans, uint32_t ifx);
    // Why no frame with that VLAN and port can come in; empty when one can.
    [[nodiscard]] std::string refusal(const bri_mac_entry &frame) const;
    // Frames came in: address, VLAN and port of each.
    FramesSeen see(const std::vector<bri_mac_entry> &frames);

    // Settings; the clients are told. The ageing time comes back as the range allows it.
    uint32_t set_age(uint32_t seconds);
    void set_age_range(const bri_mac_age_range &range);
    void set_learning(bool on);
    void set_port_learning(uint32_t ifx, bool on);
    void set_room(const bri_mac_available &room);
    void set_host_room(uint32_t entries);

    // A host's VLAN by its address; the VLAN of an add must exist.
    void apply(const mvlan_msg &request);

    // What becomes of a port or of VLANs takes addresses along: the learned ones when the link fails, all of them where
    // an address cannot be any more.
    void port_down(uint32_t ifx);
    void port_left(uint32_t ifx, const vlanset &vlans);
    void port_deleted(uint32_t ifx);
    void vlans_deleted(const vlanset &vlans);

    // A client's check of the addresses that are configured, of one type or, for 0, of all: its begin or its end.
    void check_configured(bool begins, uint32_t type);

    // Every entry of the submodule's table, as an add, for somebody who asks for its data.
    void replay(uint32_t submodule, const Announce &send);
    [[nodiscard]] std::vector<bri_mac_msg> all();
    [[nodiscard]] std::optional<bri_mac_entry> find(const bri_mac_entry &key);
    [[nodiscard]] std::vector<mvlan_msg> hosts();
    [[nodiscard]] KernelFigures figures();

  private:
    KernelResult ask(uint32_t type, Bytes data = {});
    void tell(uint32_t type, Bytes data);
    uint32_t ask_count(uint32_t type, Bytes data) { return ask(type, data).record<uint32_t>(); }
    template <class Record> void set(uint32_t type, const Record &record);
    void check(const bri_mac_msg &record) const;
    [[nodiscard]] std::string misplaced_host(const mvlan_msg &request) const;

    Ask kernel_;
    Announce announce_;
    Misplaced misplaced_;
};

} // namespace sandbox
