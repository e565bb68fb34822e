#include "sandbox/bridge.h"

#include "sandbox/parse.h"
#include "sandbox/request.h"

#include <optional>
#include <stdexcept>
#include <utility>

namespace sandbox {

namespace {

// The other requests of these submodules come back as the events of the same number, to everybody who wants them.
bool echoed(uint32_t type) {
    const uint32_t number = type >> 7;
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

void note(Trace &trace, const Connection &client, const std::string &text) {
    trace.note(text, {client.party()});
}

} // namespace

Bridge::Bridge(Loop &loop, const std::string &tmpdir, Trace &trace, Rules &rules, bool slave)
    : trace_(trace), rules_(rules), later_(loop), server_(loop, tmpdir, trace, *this),
      announcer_(loop, server_, trace, rules), synchronisation_(server_, announcer_, slave),
      kernel_(loop, tmpdir, trace, [this](uint32_t type, Bytes data) { take_kernel_news(type, data); }),
      addresses_([this](uint32_t type, Bytes data) { return kernel_.ask(type, data); },
                 [this](uint32_t type, Bytes payload) { announcer_.announce(type, payload); }),
      vlans_(loop, server_, announcer_),
      topology_([this](uint32_t type, Bytes payload) { announcer_.announce(type, payload); }),
      groups_([this](uint32_t type, Bytes payload) { announcer_.announce(type, payload); }) {
    vlans_.on_removed = [this](const vlanset &vlans) { addresses_.vlans_deleted(vlans); };
    vlans_.ports().on_removed = [this](uint32_t ifx) { addresses_.port_deleted(ifx); };
    vlans_.ports().on_down = [this](uint32_t ifx) { addresses_.port_down(ifx); };
    vlans_.ports().on_left = [this](uint32_t ifx, const vlanset &vlans) { addresses_.port_left(ifx, vlans); };
    server_.on_dropped = [this] { vlans_.prejudge().look_for_lost(); };
}

// What hosts tell the kernel is worth a note; the rest are events.
void Bridge::take_kernel_news(uint32_t type, Bytes data) {
    if (type == kHostSaid)
        trace_.note("kernel: got " + event_text(bri::load_at<uint32_t>(data, 0)) + ", " +
                    std::to_string(data.size - sizeof(uint32_t)) + " bytes");
    else
        announcer_.announce(type, data);
}

void Bridge::on_lost(Connection &client, const std::string &why) {
    note(trace_, client, "lost, " + why);
    vlans_.prejudge().look_for_lost();
}

void Bridge::on_message(Connection &client, uint32_t type, Bytes payload) {
    const Verdict verdict = rules_.empty() ? Verdict() : rules_.decide(Kind::kRequest, type, payload, *client.party());
    Record record;
    record.kind = Kind::kRequest;
    record.clients = {client.party()};
    record.type = type;
    record.payload = payload_of(payload);
    record.result = verdict.text();
    trace_.add(std::move(record));
    if (verdict.fault != Fault::kNone && !pass(client, {type, {payload.data, payload.data + payload.size}}, verdict))
        return;
    carry_out(client, type, payload);
    const auto held = held_.find(client.id());
    if (held == held_.end())
        return;
    const std::vector<Message> requests = std::move(held->second);
    held_.erase(held);
    for (const Message &request : requests)
        carry_out(client, request.type, request.bytes());
}

bool Bridge::pass(const Connection &client, const Message &request, const Verdict &verdict) {
    const unsigned id = client.id();
    if (verdict.fault == Fault::kRefuse)
        refuse(client, request.type, request.bytes(), verdict.text());
    else if (verdict.fault == Fault::kReorder)
        held_[id].push_back(request);
    else if (verdict.fault == Fault::kDelay || verdict.fault == Fault::kDuplicate)
        later_.after(verdict.delay, [this, id, request] { carry_out_later(id, request); });
    return verdict.fault == Fault::kDuplicate;
}

// The client may have gone meanwhile.
void Bridge::carry_out_later(unsigned id, const Message &request) {
    server_.for_each(Target("@" + std::to_string(id)), [&](Connection &client) {
        if (client.id() == id)
            carry_out(client, request.type, request.bytes());
    });
}

void Bridge::carry_out(Connection &client, uint32_t type, Bytes payload) {
    if (type == BRIDGE_EVENT_REG_MSG)
        register_client(client, payload);
    else if (type == BRIDGE_EVENT_ORI_DATA_REQUEST)
        answer_origin_request(client, payload);
    else
        apply(client, type, payload);
}

void Bridge::apply(Connection &client, uint32_t type, Bytes payload) {
    const Request *row = find_request(type);
    if (row != nullptr && (payload.size < row->least || payload.size > row->most))
        return refuse(client, type, payload, std::to_string(payload.size) + " bytes");
    try {
        if (row != nullptr)
            row->take(*this, client, payload);
    } catch (const std::invalid_argument &error) {
        return refuse(client, type, payload, error.what());
    }
    if (row != nullptr ? row->echoed : echoed(type))
        announcer_.announce(type, payload);
}

void Bridge::refuse(const Connection &client, uint32_t type, Bytes payload, const std::string &why) {
    Record record;
    record.kind = Kind::kRefusal;
    record.clients = {client.party()};
    record.type = type;
    record.payload = payload_of(payload);
    record.result = why;
    trace_.add(std::move(record));
    const Request *row = find_request(type);
    if (row != nullptr && row->refused != nullptr)
        row->refused(*this, client, payload);
}

void Bridge::register_client(Connection &client, Bytes payload) {
    if (payload.size != sizeof(bri_reg_msg))
        return note(trace_, client, "registration of " + std::to_string(payload.size) + " bytes ignored");
    const auto message = bri::load_at<bri_reg_msg>(payload, 0);
    const bool whole = client.registration.apply(message);
    const Registration &known = client.registration;
    const std::string count = std::to_string(known.count()) + " event types";
    if (!whole)
        return note(trace_, client, (message.op != 0 ? "added events, now " : "withdrew events, now ") + count);
    note(trace_, client,
         "registered, pid " + std::to_string(known.pid()) + ", " + count + (known.fresh() ? ", fresh" : ""));
    synchronisation_.begin(client);
}

// A client asks for one submodule's data again; it alone gets the answer.
void Bridge::answer_origin_request(Connection &client, Bytes payload) {
    const auto number = bri::load_at<uint32_t>(payload, 0);
    const std::optional<DataSync> sync = data_sync_of(number);
    if (payload.size < sizeof number || !sync)
        return note(trace_, client, "no origin data of submodule " + std::to_string(number));
    const auto send = [&](uint32_t type, Bytes data) {
        announcer_.tell(client, {{type, {data.data, data.data + data.size}}});
    };
    send(sync->begin, {});
    addresses_.replay(number, send);
    Topology::replay(number, send);
    Groups::replay(number, send);
    send(sync->end, {});
}

} // namespace sandbox
