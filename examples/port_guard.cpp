// port_guard: a host daemon that limits how many addresses each port may learn. It counts the learned addresses by the
// server's announcements. What comes beyond the limit is filtered until one of the others has gone; with -o the port
// learns nothing more instead, and what it has learned too much meanwhile is deleted. Filters outlast the daemon.
#include <bridge/host.hpp>

#include <array>
#include <cstdio>
#include <map>
#include <set>
#include <unistd.h>

extern "C" {
#include "layer.h"
}

namespace {

constexpr uint32_t kMostAddresses = 4096;

struct {
    const char *name = "port_guard";
    size_t limit = 2;
    bool learning_off = false;
} options;

struct Address {
    bridge::mac_address mac;
    uint16_t vid;
    auto operator<=>(const Address &) const = default;
};

// Of a deletion only the fields count that are present: without an address it means all of a VLAN or port.
bool means(const bri_mac_entry &entry, const Address &address, uint32_t ifx) {
    const auto is = [&](bri_mac_field field, bool same) { return (entry.field & field) == 0 || same; };
    return is(BRI_MAC_FIELD_MAC, bridge::mac_address(entry.mac) == address.mac) &&
           is(BRI_MAC_FIELD_BCAST_ID, entry.bcast_id == address.vid) && is(BRI_MAC_FIELD_IFX, entry.ifx == ifx);
}

class Guard {
  public:
    void on_change(const bridge::mac_changed &e) {
        const Address address{bridge::mac_address(e.entry.mac), e.entry.bcast_id};
        if (e.oper == BRI_MAC_DEL)
            forget_if([&](const Address &known, uint32_t ifx) { return means(e.entry, known, ifx); });
        else if (e.entry.type == BRI_MAC_TYPE_DYNAMIC && e.entry.ifx <= BRI_IFX_MAX)
            learned(address, e.entry.ifx);
        else
            forget(address); // it is something else now
    }
    void forget(const Address &address) {
        forget_if([&](const Address &known, uint32_t) { return known == address; });
    }
    void on_step() const { std::printf("%s: in step, %zu addresses\n", options.name, ports_.size()); }

  private:
    void learned(const Address &address, uint32_t ifx) {
        const auto known = ports_.find(address);
        if (known != ports_.end() && known->second == ifx)
            return;
        forget(address); // it has moved
        if (counts_[ifx] >= options.limit)
            return refuse(address, ifx);
        ports_[address] = ifx;
        ++counts_[ifx];
        balance(ifx);
    }

    void forget_if(auto &&which) {
        bridge::ports changed;
        std::erase_if(ports_, [&](const auto &entry) {
            const auto &[address, ifx] = entry;
            if (!which(address, ifx))
                return false;
            --counts_[ifx];
            changed.add(ifx);
            return true;
        });
        for (const uint32_t ifx : changed)
            balance(ifx);
    }

    void refuse(const Address &address, uint32_t ifx) {
        if (options.learning_off)
            bridge_maddr_del_dyn(address.mac.data(), address.vid, ifx);
        else if (bridge::filter_add(address.mac, address.vid) == bridge::error::ok)
            filtered_[ifx].insert(address);
        std::printf("%s: port %u: %s in VLAN %u is one too many, %s\n", options.name, ifx, address.mac.text().c_str(),
                    address.vid, options.learning_off ? "deleted" : "filtered");
    }

    // What the number of its addresses means for a port.
    void balance(uint32_t ifx) {
        const bool full = counts_[ifx] >= options.limit;
        if (options.learning_off)
            set_learning(ifx, !full);
        else if (!full && !filtered_[ifx].empty())
            release(filtered_[ifx].extract(filtered_[ifx].begin()).value(), ifx);
    }
    void set_learning(uint32_t ifx, bool on) {
        if (on != closed_.contains(ifx) || bridge_maddr_set_intf_learn(ifx, on ? 1 : 0) != 0)
            return;
        on ? closed_.remove(ifx) : closed_.add(ifx);
        std::printf("%s: port %u: %zu addresses, learning %s\n", options.name, ifx, counts_[ifx], on ? "on" : "off");
    }
    static void release(const Address &address, uint32_t ifx) {
        bridge::filter_del(address.mac, address.vid);
        std::printf("%s: port %u: %s in VLAN %u may come back\n", options.name, ifx, address.mac.text().c_str(),
                    address.vid);
    }

    std::map<Address, uint32_t> ports_; // of the learned addresses
    std::array<size_t, BRI_IFX_MAX + 1> counts_{};
    std::array<std::set<Address>, BRI_IFX_MAX + 1> filtered_;
    bridge::ports closed_; // asked not to learn
};

int serve() {
    Guard guard;
    bridge::host daemon{
        {.name = options.name, .loop = host_loop, .refuse_as_slave = true, .mac_capacity = kMostAddresses},
        bridge::on<bridge::event::mac_changed>([&](const bridge::mac_changed &e) { guard.on_change(e); }),
        bridge::on_vanished([&](const bridge::vanished &what) {
            guard.forget({bridge::mac_address(what.address.mac), what.vid});
        }),
        bridge::on_resync_end([&](bri_submod, bool complete) {
            if (complete)
                guard.on_step();
        })};
    host_at_end = layer_stop;
    return daemon.start() == bridge::error::ok ? host_run() : 1;
}

int usage() {
    std::fprintf(stderr, "usage: port_guard [-n NAME] [-l LIMIT] [-o]\n"
                         "  -n NAME   name told to the server (port_guard)\n"
                         "  -l LIMIT  addresses that each port may learn (2)\n"
                         "  -o        learn no more at the limit, instead of filtering what comes\n"
                         "TMPDIR names the directory of the server, VSDID the switch device.\n");
    return 2;
}

} // namespace

int main(int argc, char **argv) {
    for (int option = 0; (option = getopt(argc, argv, "n:l:o")) != -1;) {
        const long limit = option == 'l' ? host_number(optarg, 1, kMostAddresses) : 1;
        if (option == '?' || limit < 0)
            return usage();
        if (option == 'n')
            options.name = optarg;
        else if (option == 'l')
            options.limit = static_cast<size_t>(limit);
        else
            options.learning_off = true;
    }
    return optind != argc ? usage() : host_make_loop() ? serve() : 1;
}
