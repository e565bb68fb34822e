// host_cost bare|layer|unaligned EVENTS: hands that many events of a port's native VLAN to a host's one handler, which
// is the library's own or a row of the host layer, in an aligned or an unaligned message. host_cost.sh counts the
// instructions between two numbers of events. "host_cost memory ADDRESSES" prints what the layer takes of the heap for
// one row, the sweep of VLANs and ports, and room for so many addresses.
#include "bench/host.h"

#include <bridge/host.h>

#include <cstdio>
#include <cstring>
#include <malloc.h>

namespace {

uint64_t g_handled;

int on_event(uint32_t, void *data, uint16_t len) {
    vl_evt_intf_pvid_rec record;
    if (len < sizeof record)
        return 0;
    std::memcpy(&record, data, sizeof record);
    g_handled += record.pvid;
    return 0;
}

void on_record(const void *record, uint16_t, void *) {
    g_handled += static_cast<const vl_evt_intf_pvid_rec *>(record)->pvid;
}

bool start_layer(uint32_t mac_capacity, uint32_t flags) {
    static const bridge_host_handler rows[] = {
        {VLAN_EVENT_MODIFY_INTF_PVID, sizeof(vl_evt_intf_pvid_rec), on_record, nullptr}};
    bridge_host_config config{};
    config.size = sizeof config;
    config.handlers = rows;
    config.handler_count = 1;
    config.flags = flags;
    config.mac_capacity = mac_capacity;
    g_bridge_client->connected = 0; // so that the registration is not sent
    const bool started = bridge_host_start(&config) == 0;
    g_bridge_client->connected = 1;
    return started;
}

int run_events(bool layer, size_t offset, unsigned long count) {
    event_set set{};
    set.words[VLAN_EVENT_MODIFY_INTF_PVID >> 5] = 1U << (VLAN_EVENT_MODIFY_INTF_PVID & 31U);
    if (layer ? !start_layer(0, 0) : !bench::handle(set, on_event))
        return EXIT_FAILURE;
    alignas(8) static uint8_t bytes[64];
    const bri_msg_hdr header{VLAN_EVENT_MODIFY_INTF_PVID, sizeof(vl_evt_intf_pvid_rec)};
    const vl_evt_intf_pvid_rec record{3, 1, 0};
    std::memcpy(bytes + offset, &header, sizeof header);
    std::memcpy(bytes + offset + sizeof header, &record, sizeof record);
    for (unsigned long i = 0; i < count; ++i)
        bridge_client_msg_dspch(reinterpret_cast<bri_msg_hdr *>(bytes + offset));
    return g_handled == count ? EXIT_SUCCESS : EXIT_FAILURE;
}

int print_memory(uint32_t addresses) {
    const struct mallinfo2 before = mallinfo2();
    if (!start_layer(addresses, BRIDGE_HOST_SWEEP_VLANS | BRIDGE_HOST_SWEEP_PORTS))
        return EXIT_FAILURE;
    const struct mallinfo2 after = mallinfo2();
    std::printf("%zu\n", after.uordblks + after.hblkhd - before.uordblks - before.hblkhd);
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 3 || !bench::connect_to_pair())
        return EXIT_FAILURE;
    const std::string what = argv[1];
    const unsigned long number = std::strtoul(argv[2], nullptr, 10);
    if (what == "memory")
        return print_memory(static_cast<uint32_t>(number));
    return run_events(what != "bare", what == "unaligned" ? 1 : 0, number);
}
