// Requests of a topology protocol: port states, the instance table, protocol configuration.
#include "base/log.h"
#include "base/text.h"
#include "l2/topology.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/protocol_registry.h>

namespace bri::l2top {

namespace {

using log::kClient;
using log::kVlan;

char g_name[20];

constexpr bool kSent = true;

[[nodiscard]] bool send_batch(const l2top_port_status_batch &batch, uint32_t length) {
    if (bridge_client_send_message(&batch, length, L2TOP_EVENT_PORT_STATUS) >= 0)
        return kSent;
    BRI_LOG(kVlan, "Client[%s] set port status failed: send msg fail.\n", g_name);
    return false;
}

[[nodiscard]] bool send_whole(const l2top_port_status_batch &batch) {
    return send_batch(batch, sizeof batch);
}

[[nodiscard]] int refuse_no_memory() {
    BRI_LOG(kVlan, "Client[%s] set port status failed: memory not enough.\n", g_name);
    return -1;
}

// One record for every instance in place of each; whole batches go out whatever they hold.
[[nodiscard]] bool send_expanded(const l2top_port_status_batch &batch, l2top_port_status_batch &expanded) {
    for (unsigned index = 0; index < batch.count; ++index) {
        l2top_port_status record = batch.records[index];
        for (record.instance = 0; record.instance <= InstanceSet::kLast; ++record.instance)
            if (!append(expanded, record, send_whole))
                return false;
    }
    return expanded.count == 0 || send_whole(expanded);
}

[[nodiscard]] int set_status_everywhere(const l2top_port_status_batch &batch) {
    const HeapPtr<l2top_port_status_batch> expanded(make_batch());
    if (!expanded.ok())
        return refuse_no_memory();
    return send_expanded(batch, *expanded) ? 0 : -1;
}

[[nodiscard]] l2top_port_status record_of(const l2top_port_instance_req &request, unsigned instance) {
    l2top_port_status record{};
    record.ifx = request.ifx;
    record.instance = static_cast<uint16_t>(instance);
    record.state = request.state;
    record.param = request.param;
    record.flag = request.flag;
    return record;
}

// Claims the protocol; 0, the protocol in the way, or -1 when there is no registry to claim it in.
[[nodiscard]] int claim(uint32_t proto) {
    uint32_t conflict = 0;
    if (bridge_proto_state_set(proto, &conflict) != 0)
        return 0;
    if (conflict == 0)
        return -1;
    BRI_LOG(kClient, "[%s] set protocol[%d] failed, conflict protocol[%d].\n", g_name, static_cast<int>(proto),
            static_cast<int>(conflict));
    return static_cast<int>(conflict);
}

[[nodiscard]] int send_protocol(uint32_t proto, bool enable) {
    l2top_proto_config config{};
    config.protocol = proto;
    config.enable = enable ? 1 : 0;
    if (bridge_client_send_message(&config, sizeof config, L2TOP_EVENT_PROTO_CONFIG) >= 0) {
        BRI_LOG(kClient, "[%s] send conf-bri-proto msg success.\n", g_name);
        return 0;
    }
    BRI_LOG(kClient, "[%s] send conf-bri-proto msg failed.\n", g_name);
    return -1;
}

} // namespace

const char *name() {
    return g_name;
}

} // namespace bri::l2top

using namespace bri;
using namespace bri::l2top;

void l2top_clnt_init(const char *name) {
    if (name != nullptr)
        bri::copy_text(g_name, name);
}

int bridge_set_port_fwd_status(const l2top_port_status_batch *batch) {
    if (batch == nullptr) {
        BRI_LOG(kVlan, "Client[%s] set port status failed: invalid arg.\n", g_name);
        return -1;
    }
    if (batch->count > BRI_L2TOP_BATCH_MAX) {
        BRI_LOG(kVlan, "Client[%s] set port status failed: invalid num %d.\n", g_name, batch->count);
        return -1;
    }
    // Only the first record is asked whether every record stands for every instance.
    if (batch->count != 0 && batch->records[0].instance == BRI_L2TOP_INSTANCE_ALL)
        return set_status_everywhere(*batch);
    const uint32_t length = used_bytes(batch->count);
    BRI_LOG(kVlan, "Client[%s] set port status, port-number is %d, msg_len %d.\n", g_name, batch->count,
            static_cast<int>(length));
    return send_batch(*batch, length) ? 0 : -1;
}

int bridge_set_port_instance_status(const l2top_port_instance_req *request) {
    if (request == nullptr) {
        BRI_LOG(kVlan, "Client[%s] set port status failed: invalid arg.\n", g_name);
        return -1;
    }
    const bri::HeapPtr<l2top_port_status_batch> batch(make_batch());
    if (!batch.ok())
        return refuse_no_memory();
    const auto hand_over = [](const l2top_port_status_batch &full) {
        static_cast<void>(bridge_set_port_fwd_status(&full)); // what it gives does not count
        return true;
    };
    bri::bits::for_each(request->instances, 0, InstanceSet::kLast, [&](unsigned instance) {
        static_cast<void>(append(*batch, record_of(*request, instance), hand_over));
    });
    if (batch->count != 0)
        static_cast<void>(hand_over(*batch));
    return 0;
}

int bridge_set_instance_configtable(const uint16_t *table) {
    if (table == nullptr) {
        BRI_LOG(kVlan, "[%s] set instance failed: configtable is NULL.\r\n", g_name);
        return -1;
    }
    return bridge_client_send_message(table, kTableBytes, L2TOP_EVENT_INSTANCE_CONFIG);
}

int bridge_config_bri_protocol(uint32_t proto, uint32_t enable) {
    if (proto >= BRI_PROT_MAX) {
        BRI_LOG(kClient, "[%s] conf bridge protocol status failed: Invalid proto-type.\n", g_name);
        return -1;
    }
    const bool on = (enable & 0xFF) != 0;
    if ((bridge_proto_state_get(proto) != 0) == on)
        return 0;
    if (const int refused = on ? claim(proto) : 0; refused != 0)
        return refused;
    const int result = send_protocol(proto, on);
    // The claim goes when the protocol stops, or when the server could not be told that it runs.
    if (on ? result != 0 : result == 0)
        bridge_proto_state_unset(proto);
    return result;
}

int bridge_set_bri_proto_prejudge(uint32_t proto, uint32_t mask) {
    return bridge_proto_set_prejudge(proto, mask);
}

int bridge_set_port_errdisable() {
    BRI_LOG(kVlan, "ERR-DISABLE, NOT SUPORT any more! Turn to LSM...\n");
    return 0;
}
