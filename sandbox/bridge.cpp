#include "sandbox/bridge.h"

#include "sandbox/names.h"
#include "sandbox/output.h"

#include <optional>

namespace sandbox {

namespace {

enum class Delivery { kToRegistered, kToAll };

uint32_t submodule(uint32_t type) {
    return type >> 7;
}

Delivery delivery_of(uint32_t type) {
    const uint32_t number = submodule(type);
    return number == BRI_SUBMOD_CLNT_MNG || number == BRI_SUBMOD_DEBUG ? Delivery::kToAll : Delivery::kToRegistered;
}

// The other requests of these submodules come back as the events of the same number, to everybody who wants them.
bool echoed(uint32_t type) {
    const uint32_t number = submodule(type);
    return number == BRI_SUBMOD_MAC || number == BRI_SUBMOD_VLAN;
}

// The pair of events that encloses a submodule's data.
struct DataSync {
    uint32_t submodule;
    uint32_t begin;
    uint32_t end;
};
constexpr DataSync kDataSyncs[] = {
    {BRI_SUBMOD_MAC, MAC_EVENT_SYNC_DATA_BEGIN, MAC_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_VLAN, VLAN_EVENT_SYNC_DATA_BEGIN, VLAN_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_MVLAN, MVLAN_EVENT_SYNC_DATA_BEGIN, MVLAN_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_L2TOP, L2TOP_EVENT_SYNC_DATA_BEGIN, L2TOP_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_VLAN_GROUP, VG_EVENT_SYNC_DATA_BEGIN, VG_EVENT_SYNC_DATA_END},
    {BRI_SUBMOD_PORTMAP, BRI_EVT_PORTMAP_SYNC_BEGIN, BRI_EVT_PORTMAP_SYNC_END},
    {BRI_SUBMOD_L2_IPAM, L2_IPAM_EVENT_SYNC_DATA_BEGIN, L2_IPAM_EVENT_SYNC_DATA_END},
};

std::optional<DataSync> data_sync_of(uint32_t number) {
    for (const DataSync &sync : kDataSyncs)
        if (sync.submodule == number)
            return sync;
    return std::nullopt;
}

Batch single(uint32_t type, Bytes payload = {}) {
    Batch batch;
    batch.add(type, payload);
    return batch;
}

} // namespace

Bridge::Bridge(event_base *base, const std::string &tmpdir, bool slave)
    : server_(base, tmpdir, *this), addresses_([this](uint32_t type, Bytes payload) { announce(type, payload); }),
      vlans_(base, server_, [this](uint32_t type, Bytes payload) { announce(type, payload); }), slave_(slave) {
    server_.on_dropped = [this] { vlans_.prejudge().look_for_lost(); };
    server_.on_connected = [this](Connection &client) {
        say("%s: connected", client.text().c_str());
        on_change();
    };
}

uint64_t Bridge::received(uint32_t type) const {
    const auto found = received_.find(type);
    return found == received_.end() ? 0 : found->second;
}

unsigned Bridge::announce(uint32_t type, Bytes payload, const Target &target) {
    const Batch batch = single(type, payload);
    const bool to_all = delivery_of(type) == Delivery::kToAll;
    unsigned count = 0;
    server_.for_each(target, [&](Connection &client) {
        if (!client.registration.complete() || !(to_all || client.registration.wants(type)))
            return;
        client.send(batch);
        ++count;
    });
    return count;
}

unsigned Bridge::send_raw(Bytes bytes, const Target &target) {
    return server_.for_each(target, [&](Connection &client) { client.send(bytes); });
}

void Bridge::set_role(bool slave) {
    slave_ = slave;
    const uint8_t role = slave ? 1 : 0;
    announce(BRIDGE_EVEVT_SERVER_STAT, {&role, 1});
}

void Bridge::begin_switchover() {
    slave_ = false;
    announce(BRIDGE_EVENT_SWITCHOVER_BEGIN, {});
}

void Bridge::end_switchover() {
    announce(BRIDGE_EVENT_SWITCHOVER_END, {});
}

void Bridge::on_lost(Connection &client, const std::string &why) {
    say("%s: lost, %s", client.text().c_str(), why.c_str());
    vlans_.prejudge().look_for_lost();
    on_change();
}

void Bridge::on_message(Connection &client, uint32_t type, Bytes payload) {
    ++received_[type];
    handle(client, type, payload);
    on_change();
}

void Bridge::handle(Connection &client, uint32_t type, Bytes payload) {
    if (type == BRIDGE_EVENT_REG_MSG)
        return register_client(client, payload);
    say("%s: sent %s, %zu bytes", client.text().c_str(), event_text(type).c_str(), payload.size);
    if (type == BRIDGE_EVENT_ORI_DATA_REQUEST)
        answer_origin_request(client, payload);
    else if (addresses_.take_request(type, payload) || vlans_.take(client, type, payload))
        return;
    else if (echoed(type))
        announce(type, payload);
}

void Bridge::register_client(Connection &client, Bytes payload) {
    if (payload.size != sizeof(bri_reg_msg)) {
        say("%s: registration of %zu bytes ignored", client.text().c_str(), payload.size);
        return;
    }
    const auto message = bri::load_at<bri_reg_msg>(payload, 0);
    if (!client.registration.apply(message)) {
        say("%s: %s, now %u event types", client.text().c_str(), message.op != 0 ? "added events" : "withdrew events",
            client.registration.count());
        return;
    }
    const Registration &known = client.registration;
    say("%s: registered, pid %u, %u event types%s", client.text().c_str(), known.pid(), known.count(),
        known.fresh() ? ", fresh" : "");
    synchronise(client);
}

// The server's role, then its data: there is none yet beyond the shared tables, so begin and end meet.
void Bridge::synchronise(Connection &client) const {
    const uint8_t role = slave_ ? 1 : 0;
    Batch batch;
    batch.add(BRIDGE_EVEVT_SERVER_STAT, {&role, 1});
    batch.add(BRIDGE_EVENT_BKUP_DATA_BEGIN);
    batch.add(BRIDGE_EVENT_BKUP_DATA_END);
    batch.add(BRIDGE_EVENT_SYNC_DATA_END);
    client.send(batch);
}

// A client asks for one submodule's data again; it alone gets the answer.
void Bridge::answer_origin_request(Connection &client, Bytes payload) {
    const auto number = bri::load_at<uint32_t>(payload, 0);
    const std::optional<DataSync> sync = data_sync_of(number);
    if (payload.size < sizeof number || !sync) {
        say("%s: no origin data of submodule %u", client.text().c_str(), number);
        return;
    }
    const auto send = [&client](uint32_t type, Bytes data) {
        if (client.registration.wants(type))
            client.send(single(type, data));
    };
    send(sync->begin, {});
    addresses_.replay(number, send);
    send(sync->end, {});
}

} // namespace sandbox
