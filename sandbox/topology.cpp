#include "sandbox/topology.h"

#include "sandbox/parse.h"
#include "wire/json.h"
#include "wire/text.h"

#include <algorithm>
#include <array>
#include <set>

namespace sandbox {

namespace {

constexpr uint32_t kProtocolsKnown = std::size(bri_proto_registry{}.prejudge);

// As many events as it takes.
void send_states(const std::vector<l2top_port_status> &records, const Announce &send) {
    for (size_t at = 0; at < records.size(); at += BRI_L2TOP_BATCH_MAX) {
        l2top_port_status_batch batch{};
        batch.count = static_cast<uint16_t>(std::min<size_t>(BRI_L2TOP_BATCH_MAX, records.size() - at));
        std::copy_n(&records[at], batch.count, batch.records);
        send(L2TOP_EVENT_PORT_STATUS,
             bytes_of(batch).first(offsetof(l2top_port_status_batch, records) + batch.count * sizeof batch.records[0]));
    }
}

std::string refusal_of(const l2top_port_status &record) {
    if (record.instance >= BRI_STP_INSTANCES && record.instance != BRI_L2TOP_INSTANCE_ALL)
        return "no instance " + std::to_string(record.instance);
    if (record.state > UINT16_MAX)
        return "no state " + std::to_string(record.state);
    return there_is_port(record.ifx) ? "" : "no port " + std::to_string(record.ifx);
}

void check_protocol(uint32_t protocol) {
    refuse_if(protocol >= kProtocolsKnown, "no protocol " + std::to_string(protocol));
}

std::string protocol_name(uint32_t protocol) {
    const wire::Json json = wire::json_of(l2top_proto_config{protocol, 1, {}})["protocol"];
    return json.is_string() ? json.get<std::string>() : json.dump();
}

std::string protocols_text(uint32_t mask) {
    return wire::json_of(bri_proto_registry{mask, {}})["state"].get<std::string>();
}

void announce_config(const Announce &announce, uint32_t protocol, bool on) {
    announce(L2TOP_EVENT_PROTO_CONFIG, bytes_of(l2top_proto_config{protocol, on ? uint8_t{1} : uint8_t{0}, {}}));
}

// What stands in the table, whole.
std::array<uint16_t, 4096> instances_now() {
    std::array<uint16_t, 4096> copy{};
    const uint16_t *table = swport_get_stp_instance_table();
    for (size_t vid = 0; table != nullptr && vid < copy.size(); ++vid)
        copy[vid] = load(table[vid]);
    return copy;
}

// Those that a VLAN that exists is in.
std::set<uint16_t> instances_in_use() {
    std::set<uint16_t> found;
    for_each_vlan(those_of(all_vlans(), there_is_vlan), [&](uint16_t vid) {
        if (const uint16_t instance = swport_get_stp_instance(vid); instance < BRI_STP_INSTANCES)
            found.insert(instance);
    });
    return found;
}

} // namespace

void Topology::set_states(std::span<const l2top_port_status> records) {
    std::string refusal;
    std::vector<l2top_port_status> done;
    for (const l2top_port_status &record : records) {
        const std::string reason = refusal_of(record);
        if (!reason.empty()) {
            refusal = refusal.empty() ? reason : refusal;
            continue;
        }
        const bool all = record.instance == BRI_L2TOP_INSTANCE_ALL; // it stands for one record of each
        const uint16_t end = all ? BRI_STP_INSTANCES : static_cast<uint16_t>(record.instance + 1);
        for (uint16_t instance = all ? 0 : record.instance; instance < end; ++instance) {
            store(port_at(record.ifx).fwd_state[instance], static_cast<uint16_t>(record.state));
            done.push_back(record);
            done.back().instance = instance;
        }
    }
    send_states(done, announce_);
    refuse_for(refusal);
}

void Topology::set_instances(std::span<const uint16_t> instances) {
    for_each_vlan(all_vlans(), [&](uint16_t vid) {
        if (instances[vid] >= BRI_STP_INSTANCES)
            throw std::invalid_argument("no instance " + std::to_string(instances[vid]) + " for VLAN " +
                                        std::to_string(vid));
    });
    swport_set_instance_table(instances.data());
    announce_(L2TOP_EVENT_INSTANCE_CONFIG, bytes_of(instances_now()));
}

void Topology::move_vlans(uint16_t instance, const vlanset &vlans) {
    auto table = instances_now();
    for_each_vlan(vlans, [&](uint16_t vid) { table[vid] = instance; });
    set_instances(table);
}

void Topology::start(uint32_t protocol) {
    check_protocol(protocol);
    uint32_t conflict = 0;
    if (bridge_proto_state_set(protocol, &conflict) == 0)
        throw std::invalid_argument(protocol_name(conflict) + " is in the way");
    announce_config(announce_, protocol, true);
}

void Topology::stop(uint32_t protocol) {
    check_protocol(protocol);
    bridge_proto_state_unset(protocol);
    announce_config(announce_, protocol, false);
}

// Nobody is told: who starts a protocol looks into the registry.
void Topology::set_conflicts(uint32_t protocol, uint32_t mask) {
    check_protocol(protocol);
    bridge_proto_set_prejudge(protocol, mask);
}

void Topology::replay(uint32_t submodule, const Announce &send) {
    if (submodule != BRI_SUBMOD_L2TOP)
        return;
    for (uint32_t protocol = 0; protocol < kProtocolsKnown; ++protocol)
        if (bridge_proto_state_get(protocol) != 0)
            announce_config(send, protocol, true);
    send(L2TOP_EVENT_INSTANCE_CONFIG, bytes_of(instances_now()));
    std::vector<l2top_port_status> states;
    const std::set<uint16_t> instances = instances_in_use();
    for_each_port([&](uint32_t ifx) {
        for (const uint16_t instance : instances)
            states.push_back({ifx, instance, {}, load(port_at(ifx).fwd_state[instance]), 0, 0, {}});
    });
    send_states(states, send);
}

// Also the states that somebody has set in instances that no VLAN is in.
Answer Topology::show() {
    Answer answer{"instances", "states"};
    for (uint16_t instance = 0; instance < BRI_STP_INSTANCES; ++instance) {
        const vlanset vlans =
            those_of(all_vlans(), [&](uint16_t vid) { return swport_get_stp_instance(vid) == instance; });
        if (instance == 0 || count(vlans) != 0)
            answer.row("instances", "  instance {instance} vlans {vlans}",
                       {{"instance", instance}, {"vlans", vlans_text(vlans)}});
    }
    const std::set<uint16_t> used = instances_in_use();
    for_each_port([&](uint32_t ifx) {
        for (uint16_t instance = 0; instance < BRI_STP_INSTANCES; ++instance) {
            const uint16_t state = load(port_at(ifx).fwd_state[instance]);
            if (state != 0 || used.count(instance) != 0)
                answer.row("states", "  port {ifx} instance {instance} state {state}",
                           {{"ifx", ifx}, {"instance", instance}, {"state", state}});
        }
    });
    return answer;
}

Answer Topology::show_protocols() {
    Answer answer{"conflicts"};
    answer.say("protocols: {state}", {{"state", protocols_text(bridge_proto_get_state_all())}});
    for (uint32_t protocol = 0; protocol < kProtocolsKnown; ++protocol)
        if (const uint32_t mask = load(g_vl_mng.proto_state->prejudge[protocol]); mask != 0)
            answer.row("conflicts", "  {protocol} not beside {prejudge}",
                       {{"protocol", protocol_name(protocol)}, {"prejudge", protocols_text(mask)}});
    return answer;
}

uint32_t parse_protocol(const std::string &text) {
    return wire::parse_text_as<l2top_proto_config>("protocol=" + text).protocol;
}

uint32_t parse_protocols(const std::string &text) {
    return wire::parse_text_as<bri_proto_registry>("state=" + text).state;
}

} // namespace sandbox
