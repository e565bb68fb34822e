// vlan_mirror: a host daemon with a copy of its own of VLANs, ports and their memberships. It follows the server's
// events; each time that it has been told everything anew, as after an outage, it prints in what the copy has changed
// thereby.
#include <bridge/host.hpp>

#include <cstdio>
#include <map>
#include <unistd.h>

extern "C" {
#include "layer.h"
}

namespace {

const char *name = "vlan_mirror";

struct Port {
    uint32_t mode = BRI_PORT_ROUTE;
    uint32_t pvid = 0;
    bridge::vlans member_of;
    bool operator==(const Port &) const = default;
};

struct Picture {
    bridge::vlans vlans;
    std::map<uint32_t, Port> ports; // by ifx; routed ones are left out
};

void print_vlans(const char *what, const bridge::vlans &vlans) {
    if (!vlans.empty())
        std::printf("%s: %s VLANs %s\n", name, what, vlans.text().c_str());
}

void print_port(const char *what, uint32_t ifx, const Port &port) {
    std::printf("%s: %s port %u: %s, native VLAN %u, in VLANs %s\n", name, what, ifx, swport_vlan_mode_name(port.mode),
                port.pvid, port.member_of.empty() ? "none" : port.member_of.text().c_str());
}

void print_difference(const Picture &before, const Picture &now) {
    print_vlans("lost", before.vlans - now.vlans);
    print_vlans("new", now.vlans - before.vlans);
    for (const auto &[ifx, port] : before.ports)
        if (!now.ports.contains(ifx))
            print_port("lost", ifx, port);
    for (const auto &[ifx, port] : now.ports) {
        const auto old = before.ports.find(ifx);
        if (old == before.ports.end() || old->second != port)
            print_port(old == before.ports.end() ? "new" : "changed", ifx, port);
    }
    std::printf("%s: in step: %u VLANs, %zu ports\n", name, now.vlans.size(), now.ports.size());
}

class Mirror {
  public:
    void begin() {
        if (in_step_)
            before_ = now_;
        in_step_ = false;
    }
    void end(bool complete) {
        if (!complete) // it goes on with the next one
            return;
        in_step_ = true;
        print_difference(before_, now_);
    }

    void add(const vlanset &vlans) { now_.vlans |= vlans; }
    // Nothing is a member of a VLAN that has gone.
    void remove(const vlanset &vlans) {
        now_.vlans -= vlans;
        for (auto &[ifx, port] : now_.ports)
            port.member_of -= vlans;
    }

    // A port that is told anew has its memberships told behind it.
    void add(const bridge::port_created &e) { now_.ports[e.ifx] = {e.mode, e.pvid, {}}; }
    void remove_port(uint32_t ifx) { now_.ports.erase(ifx); }
    void set_mode(const bridge::port_mode_set &e) {
        if (e.mode == BRI_PORT_ROUTE)
            remove_port(e.ifx);
        else
            now_.ports[e.ifx].mode = e.mode;
    }
    void set_pvid(const bridge::port_pvid &e) {
        if (Port *port = find(e.ifx))
            port->pvid = e.pvid;
    }
    void join(uint32_t ifx, const vlanset &vlans) {
        if (Port *port = find(ifx))
            port->member_of |= vlans;
    }
    void leave(uint32_t ifx, const vlanset &vlans) {
        if (Port *port = find(ifx))
            port->member_of -= vlans;
    }

  private:
    Port *find(uint32_t ifx) {
        const auto port = now_.ports.find(ifx);
        return port == now_.ports.end() ? nullptr : &port->second;
    }

    Picture now_;
    Picture before_; // when it was in step the last time
    bool in_step_ = true;
};

int serve() {
    namespace event = bridge::event;
    Mirror mirror;
    bridge::host daemon{
        {.name = name, .loop = host_loop, .sweep_vlans = true, .sweep_ports = true},
        bridge::on<event::vlan_created>([&](const bridge::vlan_created &e) { mirror.add(bridge::vlans{e.vid}); }),
        bridge::on<event::vlans_created>([&](const bridge::vlans_created &e) { mirror.add(e.vlans); }),
        bridge::on<event::vlan_deleted>([&](const bridge::vlan_deleted &e) { mirror.remove(bridge::vlans{e.vid}); }),
        bridge::on<event::vlans_deleted>([&](const bridge::vlans_deleted &e) { mirror.remove(e.vlans); }),
        bridge::on<event::port_created>([&](const bridge::port_created &e) { mirror.add(e); }),
        bridge::on<event::port_deleted>([&](const bridge::port_deleted &e) { mirror.remove_port(e.ifx); }),
        bridge::on<event::port_mode_set>([&](const bridge::port_mode_set &e) { mirror.set_mode(e); }),
        bridge::on<event::port_pvid>([&](const bridge::port_pvid &e) { mirror.set_pvid(e); }),
        bridge::on<event::port_joined>([&](const bridge::port_joined &e) { mirror.join(e.ifx, bridge::vlans{e.vid}); }),
        bridge::on<event::port_joined_set>([&](const bridge::port_joined_set &e) { mirror.join(e.ifx, e.vlans); }),
        bridge::on<event::port_left>([&](const bridge::port_left &e) { mirror.leave(e.ifx, bridge::vlans{e.vid}); }),
        bridge::on<event::port_left_set>([&](const bridge::port_left_set &e) { mirror.leave(e.ifx, e.vlans); }),
        bridge::on_vanished([&](const bridge::vanished &what) {
            if (what.kind == BRIDGE_HOST_VLAN)
                mirror.remove(bridge::vlans{what.vid});
            else
                mirror.remove_port(what.ifx);
        }),
        bridge::on_resync_begin([&](bri_submod submodule) {
            if (submodule == BRI_SUBMOD_VLAN)
                mirror.begin();
        }),
        bridge::on_resync_end([&](bri_submod submodule, bool complete) {
            if (submodule == BRI_SUBMOD_VLAN)
                mirror.end(complete);
        })};
    host_at_end = layer_stop;
    return daemon.start() == bridge::error::ok ? host_run() : 1;
}

} // namespace

int main(int argc, char **argv) {
    int option = 0;
    while ((option = getopt(argc, argv, "n:")) == 'n')
        name = optarg;
    if (option != -1 || optind != argc) {
        std::fprintf(stderr, "usage: vlan_mirror [-n NAME]\n"
                             "  -n NAME  name told to the server (vlan_mirror)\n"
                             "TMPDIR names the directory of the server, VSDID the switch device.\n");
        return 2;
    }
    return host_make_loop() ? serve() : 1;
}
