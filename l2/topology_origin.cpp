// Events of the layer-2 topology: the server's, and the origin data that is read back from the shared tables.
#include "base/log.h"
#include "base/runtime.h"
#include "l2/messages.h"
#include "l2/replay.h"
#include "l2/topology.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/protocol_registry.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_query.h>

namespace bri::l2top {

namespace {

using log::kClient;
using log::kVlan;

// Present only while origin data is generated.
l2top_port_status_batch *g_status_batch;

void notify_batch(l2top_port_status_batch &batch, uint32_t length) {
    bridge_call_event_handlers(L2TOP_EVENT_PORT_STATUS, &batch, length);
}

[[nodiscard]] bool notify_whole(l2top_port_status_batch &batch) {
    notify_batch(batch, sizeof batch);
    return true;
}

void notify_instance_table() {
    if (uint16_t *table = swport_get_stp_instance_table())
        bridge_call_event_handlers(L2TOP_EVENT_INSTANCE_CONFIG, table, kTableBytes);
    else
        BRI_LOG(kVlan, "Sync instance-config-table: table not ready.\n");
}

// Instances of the VLANs that exist. Asking whether one does may raise VLAN events first.
[[nodiscard]] bool instances_in_use(InstanceSet &instances) {
    const uint16_t *table = swport_get_stp_instance_table();
    if (table == nullptr) {
        BRI_LOG(kClient, "[%s] get instance set fail: table not ready.\n", name());
        return false;
    }
    instances = {};
    for (unsigned vid = BRI_VID_MIN, instance = 0; vid <= BRI_VID_MAX; ++vid)
        if (vl_clnt_exist(static_cast<uint16_t>(vid), 0) != 0 && instance_of(table, vid, instance))
            bits::set(instances.words, instance);
    return true;
}

void notify_port(spcb *port, void *arg) {
    const auto &instances = *static_cast<const InstanceSet *>(arg);
    l2top_port_status record{};
    record.ifx = word::load(port->ifx);
    bits::for_each(instances.words, 0, InstanceSet::kLast, [&](unsigned instance) {
        record.instance = static_cast<uint16_t>(instance);
        record.state = word::load(port->fwd_state[instance]);
        swport_clnt_judge_notify_port_status(&record);
    });
}

void notify_ports(InstanceSet &instances) {
    if (g_status_batch != nullptr) // a handler asked for origin data in the middle of it
        return;
    const HeapPtr<l2top_port_status_batch> batch(make_batch());
    if (!batch.ok()) {
        BRI_LOG(kVlan, "Client[%s] notify port-status failed:no memory.\n", name());
        return;
    }
    g_status_batch = batch.get();
    vl_clnt_swport_walk_throught(notify_port, &instances);
    swport_clnt_notify_port_status_flush();
    g_status_batch = nullptr;
}

} // namespace

void replay() {
    bri_clnt_notify_proto_status();
    notify_instance_table();
    InstanceSet instances;
    if (instances_in_use(instances))
        notify_ports(instances);
}

} // namespace bri::l2top

using namespace bri;
using namespace bri::l2top;

void l2top::on_message(const Message &message) {
    runtime::hand_on(message);
}

int bri_clnt_on_l2topo_msg(bri_msg_hdr *msg) {
    if (msg == nullptr)
        return -1;
    l2top::on_message(message_at(msg));
    return 0;
}

void l2top_clnt_notify_origin_data() {
    const runtime::ReplayLevel level;
    if (level.ok())
        l2top::replay();
}

void bri_clnt_notify_proto_status() {
    constexpr unsigned kFirstProtocol = 1; // 0 is no protocol
    const uint32_t running = bridge_proto_get_state_all();
    bri::bits::for_each(&running, kFirstProtocol, BRI_PROT_MAX - 1, [](unsigned proto) {
        l2top_proto_config config{};
        config.protocol = proto;
        config.enable = 1;
        bridge_call_event_handlers(L2TOP_EVENT_PROTO_CONFIG, &config, sizeof config);
    });
}

void swport_clnt_judge_notify_port_status(const l2top_port_status *record) {
    if (g_status_batch == nullptr) {
        BRI_LOG(kVlan, "Client[%s] judge to notify port-status failed:buf is null.\n", name());
        return;
    }
    if (record != nullptr)
        static_cast<void>(append(*g_status_batch, *record, notify_whole));
}

void swport_clnt_notify_port_status_flush() {
    if (g_status_batch == nullptr) {
        BRI_LOG(kVlan, "Client[%s] flush port status failed, buf is null.\n", name());
        return;
    }
    if (g_status_batch->count == 0) {
        BRI_LOG(kVlan, "Client[%s] flush port status failed, no msg left.\n", name());
        return;
    }
    l2top_port_status_batch left = std::exchange(*g_status_batch, {});
    notify_batch(left, used_bytes(left.count));
}
