// What clients ask for about spanning trees and bridge protocols.
#include "sandbox/bridge.h"
#include "sandbox/request.h"

#include <bridge/events.h>

#include <array>
#include <stdexcept>

namespace sandbox {

namespace {

using Instances = std::array<uint16_t, 4096>;

constexpr size_t kBatchHead = offsetof(l2top_port_status_batch, records);

// Zeroes may follow the last record.
void take_states(Bridge &bridge, const Connection &, Bytes payload) {
    l2top_port_status_batch batch{};
    std::memcpy(&batch, payload.data, payload.size);
    if (batch.count > BRI_L2TOP_BATCH_MAX || kBatchHead + batch.count * sizeof(l2top_port_status) > payload.size)
        throw std::invalid_argument(std::to_string(batch.count) + " states in " + std::to_string(payload.size) +
                                    " bytes");
    bridge.topology().set_states({batch.records, batch.count});
}

void take_instances(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.topology().set_instances(load<Instances>(payload));
}

void take_protocol(Bridge &bridge, const Connection &, Bytes payload) {
    const auto config = load<l2top_proto_config>(payload);
    if (config.enable != 0)
        bridge.topology().start(config.protocol);
    else
        bridge.topology().stop(config.protocol);
}

constexpr Request kTopologyRequests[] = {
    {L2TOP_EVENT_INSTANCE_CONFIG, sizeof(Instances), sizeof(Instances), take_instances},
    {L2TOP_EVENT_PORT_STATUS, kBatchHead, sizeof(l2top_port_status_batch), take_states},
    {L2TOP_EVENT_PROTO_CONFIG, sizeof(l2top_proto_config), sizeof(l2top_proto_config), take_protocol},
};

} // namespace

Requests topology_requests() {
    return kTopologyRequests;
}

} // namespace sandbox
