// typed_cost FORM EVENTS: gives a daemon of the host layer that many events of two kinds and prints what it made of
// them. FORM is how the daemon is written, c or cpp; both do the same. What one costs beside the other is counted
// outside.
#include "wire/segments.h"

#include <bridge/host.hpp>

#include <qv_thread.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>

namespace {

struct Sums {
    uint64_t native = 0;
    uint64_t vlans = 0;
};

// Feeds both kinds to whoever has registered, as the library's routes do.
void feed(unsigned events) {
    bri_msg_hdr synchronised{.type = BRIDGE_EVENT_BKUP_DATA_END, .len = 0};
    bridge_client_msg_dspch(&synchronised);
    vl_evt_intf_pvid_rec pvid{.ifx = 3, .pvid = 0, .reserved = 0};
    static vl_evt_vlanset_rec set{};
    for (uint32_t vid = 1; vid < 200; vid += 7)
        bri_vlanset_add(&set.vlans, vid);
    for (unsigned i = 0; i < events; ++i) {
        pvid.pvid = static_cast<uint16_t>(i);
        bridge_call_event_handlers(VLAN_EVENT_MODIFY_INTF_PVID, &pvid, sizeof pvid);
        bridge_call_event_handlers(VLAN_EVENT_DESTROY_RANGE, &set, sizeof set);
    }
}

void on_pvid(const void *record, uint16_t, void *context) {
    const auto *e = static_cast<const vl_evt_intf_pvid_rec *>(record);
    static_cast<Sums *>(context)->native += e->pvid;
}
void on_vlans(const void *record, uint16_t, void *context) {
    const auto *e = static_cast<const vl_evt_vlanset_rec *>(record);
    auto *sums = static_cast<Sums *>(context);
    for (uint32_t vid = bri_vlanset_next(&e->vlans, 0); vid != 0; vid = bri_vlanset_next(&e->vlans, vid))
        sums->vlans += vid;
}

bool run_c(qv_thread_master *loop, unsigned events, Sums &sums) {
    const bridge_host_handler rows[] = {
        {VLAN_EVENT_MODIFY_INTF_PVID, sizeof(vl_evt_intf_pvid_rec), on_pvid, &sums},
        {VLAN_EVENT_DESTROY_RANGE, sizeof(vl_evt_vlanset_rec), on_vlans, &sums},
    };
    bridge_host_config config{};
    config.size = sizeof config;
    config.name = "cost";
    config.master = loop;
    config.handlers = rows;
    config.handler_count = std::size(rows);
    if (bridge_host_start(&config) != 0)
        return false;
    feed(events);
    return true;
}

bool run_cpp(qv_thread_master *loop, unsigned events, Sums &sums) {
    bridge::host daemon{
        {.name = "cost", .loop = loop},
        bridge::on<bridge::event::port_pvid>([&](const bridge::port_pvid &e) { sums.native += e.pvid; }),
        bridge::on<bridge::event::vlans_deleted>([&](const bridge::vlans_deleted &e) {
            for (const uint32_t vid : bridge::in(e.vlans))
                sums.vlans += vid;
        })};
    if (daemon.start() != bridge::error::ok)
        return false;
    feed(events);
    return true;
}

} // namespace

int main(int argc, char **argv) {
    const std::string form = argc == 3 ? argv[1] : "";
    if (form != "c" && form != "cpp")
        return 2;
    const int vsd = getpid();
    setenv("VSDID", std::to_string(vsd).c_str(), 1);
    qv_thread_master *loop = qv_thread_master_create(); // never runs: there is no server
    Sums sums;
    const auto events = static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10));
    const bool good = form == "c" ? run_c(loop, events, sums) : run_cpp(loop, events, sums);
    for (const wire::SystemObject &object : wire::system_objects(vsd))
        static_cast<void>(wire::remove(object));
    qv_thread_master_destroy(loop);
    std::printf("%llu %llu\n", static_cast<unsigned long long>(sums.native),
                static_cast<unsigned long long>(sums.vlans));
    return good ? 0 : 1;
}
