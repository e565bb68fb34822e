#include "sandbox/bridge.h"

#include <algorithm>

namespace sandbox {

namespace {

// The other requests of these submodules come back as the events of the same number, to everybody who wants them.
bool is_echoed(const Request *row, uint32_t type) {
    return row != nullptr ? row->echoed : type >> 7 == BRI_SUBMOD_MAC || type >> 7 == BRI_SUBMOD_VLAN;
}

// The pair of events that encloses a submodule's data.
constexpr struct DataSync {
    uint32_t submodule;
    uint32_t begin;
    uint32_t end;
} kDataSyncs[] = {
    {BRI_SUBMOD_MAC, MAC_EVENT_SYNC_DATA_BEGIN, MAC_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_VLAN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_MVLAN, MVLAN_EVENT_SYNC_DATA_BEGIN, MVLAN_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_L2TOP, L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_VLAN_GROUP, VG_EVENT_SYNC_DATA_BEGIN, VG_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_PORTMAP, BRI_EVT_PORTMAP_SYNC_BEGIN, BRI_EVT_PORTMAP_SYNC_END},
    {BRI_SUBMOD_L2_IPAM, L2_IPAM_EVENT_SYNC_DATA_BEGIN, L2_IPAM_EVENT_SYNC_DATA_END},
};

} // namespace

bool Request::fits(Bytes payload) const {
    if (size == Size::kAny)
        return true;
    const wire::Record &record = *wire::payload_of(type, wire::Direction::kToServer).record;
    return payload.size() >= record.least() && (size == Size::kAtLeast || payload.size() <= record.size);
}

Bridge::Bridge(Loop &loop, const std::string &tmpdir, Trace &trace, Rules &rules, bool slave)
    : trace_(trace), rules_(rules),
      detour_(loop,
              [this](unsigned id, const Message &message) {
                  server.with(id, [&](Connection &client) { carry_out(client, message.type, message.payload); });
              }),
      server(loop, tmpdir, trace, *this), announcer(loop, server, trace, rules),
      synchronisation(server, announcer, slave),
      kernel(loop, tmpdir, trace, [this](uint32_t type, Bytes data) { take_kernel_news(type, data); }),
      addresses([this](uint32_t type, Bytes data) { return kernel.ask(type, data); }, announcer.everybody()),
      ports(announcer.everybody()), supers(announcer.everybody()), prejudge(loop, server, announcer),
      vlans(announcer.everybody(), ports, supers, prejudge), topology(announcer.everybody()),
      groups(announcer.everybody()) {
    vlans.on_removed = [this](const vlanset &gone) { addresses.vlans_deleted(gone); };
    ports.on_removed = [this](uint32_t ifx) { addresses.port_deleted(ifx); };
    ports.on_down = [this](uint32_t ifx) { addresses.port_down(ifx); };
    ports.on_left = [this](uint32_t ifx, const vlanset &left) { addresses.port_left(ifx, left); };
    server.on_dropped = [this] { prejudge.look_for_lost(); };
}

// What hosts tell the kernel is worth a note; the rest are events.
void Bridge::take_kernel_news(uint32_t type, Bytes data) {
    if (type == kHostSaid)
        trace_.note("kernel: got " + event_text(object_of<uint32_t>(data)) + ", " +
                    std::to_string(data.size() - sizeof(bri_msg_hdr)) + " bytes");
    else
        announcer.announce(type, data);
}

void Bridge::on_lost(Connection &client, const std::string &why) {
    trace_.note("lost, " + why, {client.party()});
    prejudge.look_for_lost();
}

void Bridge::on_message(Connection &client, uint32_t type, Bytes payload) {
    const Verdict verdict = rules_.empty() ? Verdict() : rules_.decide(Kind::kRequest, type, payload, *client.party());
    trace_.message(Kind::kRequest, {client.party()}, type, payload, verdict.text());
    if (verdict.fault == Fault::kRefuse)
        return refuse(client, type, payload, verdict.text());
    if (verdict.fault != Fault::kNone && !detour_.pass(client.id(), {type, buffer_of(payload)}, verdict))
        return;
    carry_out(client, type, payload);
    detour_.release(client.id());
}

void Bridge::carry_out(Connection &client, uint32_t type, Bytes payload) {
    if (type == BRIDGE_EVENT_REG_MSG)
        return register_client(client, payload);
    if (type == BRIDGE_EVENT_ORI_DATA_REQUEST)
        return answer_origin_request(client, payload);
    const Request *row = find_request(type);
    try {
        refuse_if(row != nullptr && !row->fits(payload), std::to_string(payload.size()) + " bytes");
        if (row != nullptr)
            row->take(*this, client, payload);
    } catch (const std::invalid_argument &error) {
        return refuse(client, type, payload, error.what());
    }
    if (is_echoed(row, type))
        announcer.announce(type, payload);
}

void Bridge::refuse(const Connection &client, uint32_t type, Bytes payload, const std::string &why) {
    trace_.message(Kind::kRefusal, {client.party()}, type, payload, why);
}

void Bridge::register_client(Connection &client, Bytes payload) {
    if (payload.size() != sizeof(bri_reg_msg))
        return trace_.note("registration of " + std::to_string(payload.size()) + " bytes ignored", {client.party()});
    const auto message = object_of<bri_reg_msg>(payload);
    const bool whole = client.take_registration(message);
    const Registration &known = client.registration;
    const std::string count = std::to_string(bri_event_set_count(&known.types)) + " event types";
    if (!whole)
        return trace_.note((message.op != 0 ? "added events, now " : "withdrew events, now ") + count,
                           {client.party()});
    trace_.note("registered, pid " + std::to_string(known.pid) + ", " + count + (known.fresh ? ", fresh" : ""),
                {client.party()});
    synchronisation.begin(client);
}

// A client asks for one submodule's data again; it alone gets the answer.
void Bridge::answer_origin_request(Connection &client, Bytes payload) {
    const auto number = object_of<uint32_t>(payload);
    const auto *const sync = std::find_if(std::begin(kDataSyncs), std::end(kDataSyncs),
                                          [&](const DataSync &row) { return row.submodule == number; });
    if (payload.size() < sizeof number || sync == std::end(kDataSyncs))
        return trace_.note("no origin data of submodule " + std::to_string(number), {client.party()});
    const auto send = [&](uint32_t type, Bytes data) { announcer.tell(client, {{type, buffer_of(data)}}); };
    send(sync->begin, {});
    try {
        addresses.replay(number, send);
    } catch (const std::invalid_argument &error) { // the kernel's process has gone
        refuse(client, BRIDGE_EVENT_ORI_DATA_REQUEST, payload, error.what());
    }
    Topology::replay(number, send);
    Groups::replay(number, send);
    send(sync->end, {});
}

} // namespace sandbox
