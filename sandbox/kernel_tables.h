// The tables of the kernel's bridge module, whoever changes them: the server, hosts through the kernel channel, frames
// and time. Each change is told once it is made, as the events that clients get.
#pragma once

#include "sandbox/batch.h"
#include "sandbox/mac_table.h"
#include "sandbox/mac_vlans.h"

#include <cstdint>
#include <functional>
#include <utility>

namespace sandbox {

// As many events of that type as it takes.
void send_records(uint32_t type, const MacChanges &records, const Announce &send);

class KernelTables {
  public:
    KernelTables(Announce tell, std::function<Microseconds()> now) : tell_(std::move(tell)), now_(std::move(now)) {}

    // Runs fn(table, now, news) and tells what came of it; how many addresses changed.
    template <class Fn> size_t change(Fn &&fn) {
        MacNews news;
        fn(macs_, now_(), news);
        tell(news);
        return news.changes.size();
    }
    // A run of records; a cut one at its end is passed over.
    size_t apply_run(Bytes records);
    void begin_check(bool dynamic, uint32_t type = 0);
    // The addresses that changed since the begin, or were added once more, stay; the others of the kind go.
    void end_check(bool dynamic, uint32_t type = 0);
    MacVlans::Outcome apply(const mvlan_msg &request);
    // Every address there goes, what is configured too, and every host's VLAN if that is wanted.
    void forget(const std::function<bool(uint16_t vid, uint32_t ifx)> &there, bool hosts_too);
    // What goes with the module. Nobody is told: hosts are asked for their data when it comes back.
    void clear();

    [[nodiscard]] MacTable &macs() { return macs_; }
    [[nodiscard]] MacVlans &hosts() { return hosts_; }

  private:
    void tell(const MacNews &news) const;

    Announce tell_;
    std::function<Microseconds()> now_;
    MacTable macs_;
    MacVlans hosts_;
};

} // namespace sandbox
