// A daemon's copy of what the switch holds, built from what the layer tells and from nothing else.
#pragma once

#include "tests/host/switch_model.h"

#include <bridge/host.h>

#include <functional>

namespace test {

// One a process, as the layer; both live as long as it.
class Mirror {
  public:
    // Starts the layer. `in_step` is called whenever it says that a submodule is.
    Mirror(qv_thread_master *master, std::function<void(uint32_t submod)> in_step);
    Mirror(const Mirror &) = delete;
    Mirror &operator=(const Mirror &) = delete;

    [[nodiscard]] bool started() const { return started_; }
    [[nodiscard]] const Contents &seen() const { return seen_; }
    // What was told against the rules; empty while all is well.
    [[nodiscard]] const std::string &fault() const { return fault_; }

  private:
    struct Row;
    static const Row kRows[];

    void on_silence(const char *why);
    void on_begin(uint32_t submod);
    void on_end(uint32_t submod, bool complete);
    void on_vanished(const bridge_host_vanished &what);
    void on_address(const bri_mac_msg &record);
    void on_members(const vl_evt_intf_vlanset_rec &record, bool are);
    void on_port(uint32_t ifx, uint32_t mode, uint16_t pvid);
    void on_mode(const vl_evt_intf_mode_rec &record);
    void remove_vlan(uint16_t vid);
    void remove_port(uint32_t ifx);

    std::function<void(uint32_t submod)> in_step_;
    Contents seen_;
    std::set<uint32_t> open_; // submodules between begin and end
    std::string fault_;
    bool started_ = false;
};

} // namespace test
