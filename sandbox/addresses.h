// The server's word about addresses: what clients and the operator ask for is checked, done by the kernel's bridge
// module and announced. What is refused is refused for everybody, with the reason of the std::invalid_argument that all
// throw, also when the module's process has gone.
#pragma once

#include "sandbox/kernel_tables.h"
#include "sandbox/loop.h"
#include "sandbox/ports.h"

#include <algorithm>

namespace sandbox {

class Addresses {
  public:
    using Ask = std::function<KernelResult(uint32_t type, Bytes data)>; // the kernel's bridge module
    using Misplaced = std::function<std::string(uint16_t vid, uint32_t ifx)>;

    Addresses(Ask kernel, Announce announce, Misplaced where = misplaced)
        : ask_(std::move(kernel)), announce_(std::move(announce)), misplaced_(std::move(where)) {}

    // Adds and deletes; how many addresses changed. What is configured on a port must be able to be there; what is
    // said to have been learned is not asked. All are looked at, the others done, before one is refused.
    uint32_t apply(const std::vector<bri_mac_msg> &records);
    // Deletes the learned addresses of those VLANs, on one port or, for 0, on all.
    uint32_t flush(const vlanset &vlans, uint32_t ifx) {
        return ask_(kForget, bytes_of(KernelForget{ifx, 0, vlans, 0, 1})).record<uint32_t>();
    }
    // Why no frame with that VLAN and port can come in; empty when one can.
    [[nodiscard]] std::string refusal(const bri_mac_entry &frame) const;
    // Frames came in: address, VLAN and port of each.
    FramesSeen see(const std::vector<bri_mac_entry> &frames) {
        return ask_(kFramesSeen, run_of(frames)).record<FramesSeen>();
    }

    // Settings; the clients are told. The ageing time comes back as the range allows it.
    uint32_t set_age(uint32_t seconds);
    void set_age_range(uint32_t min, uint32_t max, uint32_t step);
    void set_learning(bool on) { set(MAC_EVENT_GLOBAL_LEARN, bytes_of(on ? 0U : 1U)); }
    void set_port_learning(uint32_t ifx, bool on);
    void set_room(Limit configured, Limit filters, Limit total) {
        const Limit room[] = {configured, filters, total}; // a bri_mac_available
        set(MAC_EVENT_SET_AVAILABLE_MAC, bytes_of(room));
    }
    void let_age_elsewhere(bool elsewhere) { ask_(kAgeElsewhere, bytes_of(elsewhere ? 1U : 0U)); }
    void set_host_room(Limit entries) { ask_(kHostRoom, bytes_of(entries)); }

    // A host's VLAN by its address; the VLAN of an add must exist.
    void apply_host(const mvlan_msg &request);

    // What becomes of a port or of VLANs takes addresses along: the learned ones when the link fails, all of them where
    // an address cannot be any more.
    void port_down(uint32_t ifx) { forget({ifx, 0, {}, 1, 1}); }
    void port_left(uint32_t ifx, const vlanset &vlans) { forget({ifx, 0, vlans, 0, 0}); }
    void port_deleted(uint32_t ifx) { forget({ifx, 1, {}, 1, 0}); }
    void vlans_deleted(const vlanset &vlans) { forget({0, 1, vlans, 0, 0}); }

    // A client's check of the addresses that are configured, of one type or, for 0, of all: its begin or its end.
    void begin_check(uint32_t type) { ask_(MAC_EVENT_NONDYN_CHECK_BEGIN, bytes_of(type)); }
    void end_check(uint32_t type) { ask_(MAC_EVENT_NONDYN_CHECK_END, bytes_of(type)); }

    // Every entry of the submodule's table, as an add, for somebody who asks for its data.
    void replay(uint32_t submodule, const Announce &send);
    [[nodiscard]] std::vector<bri_mac_msg> all() { return records_of<bri_mac_msg>(ask_(kReadAddresses, {}).answer); }
    [[nodiscard]] std::optional<bri_mac_entry> find(const bri_mac_entry &key);
    [[nodiscard]] std::vector<mvlan_msg> hosts() { return records_of<mvlan_msg>(ask_(kReadHosts, {}).answer); }
    [[nodiscard]] KernelFigures figures() { return ask_(kReadFigures, {}).record<KernelFigures>(); }

  private:
    void forget(const KernelForget &what);
    void set(uint32_t type, Bytes record);
    void check(const bri_mac_msg &record) const;

    Ask ask_;
    Announce announce_;
    Misplaced misplaced_;
};

// Hosts that send frames: their addresses are learned, stay while they send, and move with them.
class Traffic {
  public:
    struct Source {
        bri_mac_entry frame; // address, VLAN and port
        Microseconds period;
        Timer timer;

        Source(const bri_mac_entry &which, Microseconds each, Loop &loop)
            : frame(which), period(each), timer(loop, [] {}) {}
    };

    Traffic(Loop &loop, Addresses &addresses) : loop_(loop), addresses_(addresses) {}

    // One frame now. Throws std::invalid_argument, as Addresses does, when none can come in there.
    Seen send(const bri_mac_entry &frame);
    // And another one after each period, as long as a port lets it in. The same host elsewhere has gone there.
    Seen start(const bri_mac_entry &frame, Microseconds period);
    // Those with that address; how many there were.
    size_t stop(const uint8_t (&mac)[6]) {
        return sources_.remove_if([&](const Source &source) { return std::ranges::equal(source.frame.mac, mac); });
    }
    size_t stop_all() { return std::exchange(sources_, {}).size(); }

    [[nodiscard]] const std::list<Source> &sources() const { return sources_; }

  private:
    void send_again(Source &source);

    Loop &loop_;
    Addresses &addresses_;
    std::list<Source> sources_;
};

} // namespace sandbox
