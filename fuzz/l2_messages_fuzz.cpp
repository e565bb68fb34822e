// Arbitrary messages of the MAC, MAC-based VLAN and layer-2 topology submodules, straight to their entries and through
// the dispatcher, and the topology requests whose length the caller states.
//
// A message is a block of the heap that ends with its payload, one byte off every alignment, as in a batch.
#include "base/message.h"
#include "client/transport.h"
#include "fuzz/host.h"

#include <array>
#include <cstdlib>
#include <sys/socket.h>

namespace {

using namespace fuzz;

constexpr int kServer = 100000; // never opened: send is ours
constexpr size_t kPayloadMax = 700;

bool is_ss() {
    return std::strcmp(g_bglib_client_name_mac, "SS") == 0;
}

// What every handler of an address notification may rely on.
void check_record(const void *data, uint16_t len) {
    require(len == sizeof(bri_mac_msg) && reinterpret_cast<uintptr_t>(data) % alignof(bri_mac_msg) == 0);
    const auto &record = *static_cast<const bri_mac_msg *>(data);
    require(record.oper == BRI_MAC_ADD || record.oper == BRI_MAC_DEL);
    require(!is_ss() || (record.entry.type >= BRI_MAC_TYPE_DYNAMIC && record.entry.type <= BRI_MAC_TYPE_FILTER));
}

bool g_records; // what runs now hands on records

int handled(uint32_t type, void *data, uint16_t len) {
    if (g_records && (type == MAC_EVENT_NOTIFY_ADDR || type == MAC_EVENT_NOTIFY_NONDYN))
        check_record(data, len);
    if (data != nullptr)
        std::memset(data, 0xEE, len); // every byte is the handler's
    return 0;
}

// One message: its entry, its number in the submodule, a payload.
void receive(Input &input) {
    constexpr std::array kSubmodules{BRI_SUBMOD_MAC, BRI_SUBMOD_MVLAN, BRI_SUBMOD_L2TOP};
    const uint8_t way = input.take();
    const auto submodule = static_cast<uint32_t>(kSubmodules[way % kSubmodules.size()]);
    const uint32_t type = submodule << 7 | (input.take() & 0x7FU);
    const uint32_t len = input.take<uint16_t>() % kPayloadMax;
    const Block block(sizeof(bri_msg_hdr) + len, 1);
    const bri_msg_hdr header{type, len};
    std::memcpy(block.data(), &header, sizeof header);
    input.take(block.data() + sizeof header, len);
    auto *message = reinterpret_cast<bri_msg_hdr *>(block.data());
    g_records = true;
    if (way >= 0x80)
        bridge_client_msg_dspch(message);
    else if (submodule == BRI_SUBMOD_MAC)
        mac_client_on_server_msg(message);
    else if (submodule == BRI_SUBMOD_MVLAN)
        bridge_mvlan_lib_dispose_msg(message);
    else
        bri_clnt_on_l2topo_msg(message);
    g_records = false;
}

// A batch as short as its count allows.
void send_port_states(Input &input) {
    const auto count = input.take<uint16_t>() % 70U;
    const size_t records = std::min<size_t>(count, BRI_L2TOP_BATCH_MAX) * sizeof(l2top_port_status);
    const Block block(offsetof(l2top_port_status_batch, records) + records);
    input.take(block.data(), offsetof(l2top_port_status_batch, records) + records);
    auto *batch = reinterpret_cast<l2top_port_status_batch *>(block.data());
    batch->count = static_cast<uint16_t>(count);
    if (input.take() % 2 == 0 && records != 0)
        batch->records[0].instance = BRI_L2TOP_INSTANCE_ALL;
    require(bridge_set_port_fwd_status(batch) == (count <= BRI_L2TOP_BATCH_MAX ? 0 : -1));
}

void send_instances(Input &input) {
    l2top_port_instance_req request;
    input.take(&request, sizeof request);
    require(bridge_set_port_instance_status(&request) == 0);
}

void replay(Input &input) {
    l2top_port_status status;
    input.take(&status, sizeof status);
    swport_clnt_judge_notify_port_status(&status);
    swport_clnt_notify_port_status_flush();
    l2top_clnt_notify_origin_data();
}

void start_as(bri_clnt_ctx &client, Input &input) {
    std::memset(client.name, 0, sizeof client.name);
    if (input.take() % 2 == 0)
        std::strcpy(client.name, "SS");
    else
        input.take(client.name, sizeof client.name); // may fill its field
    mac_client_init(&client);
    client.name[sizeof client.name - 1] = 0;
    l2top_clnt_init(client.name);
    input.take(&g_bglib_mac_filter, input.take() % 2 == 0 ? 0 : sizeof g_bglib_mac_filter);
}

void step(bri_clnt_ctx &client, Input &input) {
    switch (input.take() % 8) {
    case 0:
        start_as(client, input);
        break;
    case 1:
        send_port_states(input);
        break;
    case 2:
        send_instances(input);
        break;
    case 3:
        replay(input);
        break;
    case 4:
        mac_client_show_statistic();
        break;
    default:
        receive(input);
        break;
    }
}

} // namespace

extern "C" {

// The server takes every batch whole; each is held against its own lengths.
ssize_t __wrap_send(int fd, const void *data, size_t size, int) {
    require(fd == kServer && size >= sizeof(bri_batch_hdr));
    const auto header = bri::load_as<bri_batch_hdr>(data);
    require(header.msg_len == size - sizeof header);
    const bri::MutableBytes batch{static_cast<uint8_t *>(const_cast<void *>(data)), size};
    bri::MessageIterator messages(batch.from(sizeof header), header.msg_cnt);
    uint32_t count = 0;
    for (bri::Message message; messages.take(message); ++count)
        read_all(message.payload.data, message.payload.size);
    require(!messages.cut() && count == header.msg_cnt);
    return static_cast<ssize_t>(size);
}

int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    bri_clnt_ctx &client = start_host(handled);
    if (bri::client::g_bglib_sendbuf == nullptr)
        bri::client::g_bglib_sendbuf = static_cast<uint8_t *>(std::calloc(1, BRI_BATCH_BUFFER_SIZE));
    client.sock = kServer;
    client.connected = 1;
    Input input(bytes, size);
    start_as(client, input);
    while (!input.empty())
        step(client, input);
    return 0;
}

} // extern "C"
