#include "sandbox/sandbox.h"

#include <algorithm>

namespace sandbox {

namespace {

// What clients ask for: rows of type, size and what is done.
struct Request {
    enum class Size { kExact, kAtLeast, kAny }; // of the payload, by its record

    uint32_t type;
    Size size;
    // Does it. Throws std::invalid_argument with the reason when the switch refuses.
    void (*take)(Bridge &bridge, const Connection &client, Bytes payload);
    bool echoed = false; // also comes back, as it stands, as the event of its number

    [[nodiscard]] bool fits(Bytes payload) const {
        if (size == Size::kAny)
            return true;
        const wire::Record &record = *wire::payload_of(type, wire::Direction::kToServer).record;
        return payload.size() >= record.least() && (size == Size::kAtLeast || payload.size() <= record.size);
    }
};

using enum Request::Size;

vlanset named_vlan(Bytes payload) {
    const auto vid = object_of<vl_evt_vlan_rec>(payload).vid;
    refuse_if(vl_check_vlanid_valid(vid) == 0, "no VLAN id: " + std::to_string(vid));
    return only(vid);
}

void create_vlan(Bridge &bridge, const Connection &, Bytes payload) {
    const auto settled = [&bridge](const vlanset &vlans, const std::string &refusal) {
        bridge.note(count(vlans) == 0
                        ? "vlan create: they exist already"
                        : "vlan create " + vlans_text(vlans) + ": " + (refusal.empty() ? "done" : refusal));
    };
    bridge.vlans.create(named_vlan(payload), BRI_VLAN_STATIC, false, settled);
}
// An answer to the question of the same number; what the field must be for the client to accept.
template <uint32_t Type, auto Field, bool Accepts>
void answer(Bridge &bridge, const Connection &client, Bytes payload) {
    const auto reply = object_of<typename MemberOf<decltype(Field)>::Whole>(payload);
    bridge.prejudge.answer(client, Type, (reply.*Field != 0) == Accepts ? "" : "refused");
}
// A cut record at the end is passed over.
void take_records(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses.apply(records_of<bri_mac_msg>(payload));
}
// What a client could not do goes out of the table again.
void take_host_error(Bridge &bridge, const Connection &, Bytes payload) {
    mvlan_msg request{0, object_of<mvlan_entry>(payload)};
    if (request.entry.type != kMacVlanAdd)
        return;
    request.entry.type = kMacVlanDelete;
    bridge.addresses.apply_host(request);
}
// On the port that the payload names, or on all.
void flush_all(Bridge &bridge, const Connection &, Bytes payload) {
    bridge.addresses.flush(all_vlans(), object_of<uint32_t>(payload));
}
void switch_port_learning(Bridge &bridge, const Connection &, Bytes payload) {
    const auto request = object_of<bri_mac_intf_learn>(payload);
    bridge.addresses.set_port_learning(request.ifx, request.learn_disable == 0);
}

// Zeroes may follow the last record.
void take_states(Bridge &bridge, const Connection &, Bytes payload) {
    const auto batch = object_of<l2top_port_status_batch>(payload);
    refuse_if(batch.count > BRI_L2TOP_BATCH_MAX ||
                  offsetof(l2top_port_status_batch, records) + batch.count * sizeof(l2top_port_status) > payload.size(),
              std::to_string(batch.count) + " states in " + std::to_string(payload.size()) + " bytes");
    bridge.topology.set_states({batch.records, batch.count});
}
void take_protocol(Bridge &bridge, const Connection &, Bytes payload) {
    const auto config = object_of<l2top_proto_config>(payload);
    if (config.enable != 0)
        bridge.topology.start(config.protocol);
    else
        bridge.topology.stop(config.protocol);
}

template <auto Operation>
constexpr auto one_vlan = request<Operation, &vl_dyn_member_req::ifx, &vl_dyn_member_req::vid>;
template <auto Operation>
constexpr auto some_vlans = request<Operation, &vl_port_vlanset_req::ifx, &vl_port_vlanset_req::vlans>;
constexpr auto flush_learned = request<&Addresses::flush, &bri_mac_vlanmap_del::vlans, &bri_mac_vlanmap_del::ifx>;

// A setting is announced by whoever sets it; the others that are echoed are events of their own.
constexpr Request kRequests[] = {
    {VLAN_EVENT_CREATE_INDEX, kExact, create_vlan},
    {VLAN_EVENT_DESTROY_INDEX, kExact,
     [](Bridge &bridge, const Connection &, Bytes payload) { bridge.vlans.remove(named_vlan(payload)); }},
    {VLAN_EVENT_DESTROY_RANGE, kExact, request<&Vlans::remove, &vl_evt_vlanset_rec::vlans>},
    {VLAN_EVENT_CREATE_PREJ, kExact, answer<VLAN_EVENT_CREATE_PREJ, &wire::vlan_reply::result, false>},
    {VLAN_EVENT_CREATE_RANGE_PREJ, kExact, answer<VLAN_EVENT_CREATE_RANGE_PREJ, &vl_vlanset_reply::failure, false>},
    {VLAN_EVENT_MODIFY_INTF_PVID, kExact,
     request<&Ports::set_pvid, &vl_evt_intf_pvid_rec::ifx, &vl_evt_intf_pvid_rec::pvid>},
    {VLAN_EVENT_SET_ADD_DYN_INTF, kExact, one_vlan<&Ports::add_dynamic>},
    {VLAN_EVENT_SET_DEL_DYN_INTF, kExact, one_vlan<&Ports::remove_dynamic>},
    {VLAN_EVENT_DYN_MEM_ADD_RANG, kExact, some_vlans<&Ports::add_dynamic>},
    {VLAN_EVENT_DYN_MEM_DEL_RANG, kExact, some_vlans<&Ports::remove_dynamic>},
    {VLAN_EVENT_SP_ADD_ALLOW_VLAN, kExact, some_vlans<&Ports::allow>},
    {VLAN_EVENT_SP_RMV_ALLOW_VLAN, kExact, some_vlans<&Ports::disallow>},
    // Ports have no sub-interfaces here; what is left of the request is that the port leaves the VLANs.
    {VLAN_EVENT_SP_RMV_SUB_IF_VLAN, kExact, some_vlans<&Ports::remove_members>},
    {MAC_EVENT_NOTIFY_ADDR, kAny, take_records},
    {MAC_EVENT_ROLLBACK_ADDR, kAny, take_records, true},
    {MAC_EVENT_BYPASS_ADDR, kAny, take_records, true},
    {MAC_EVENT_DYN_FLUSH, kAny, flush_all, true},
    {MAC_EVENT_DEL_DYN_ON_VLANMAP, kAtLeast, flush_learned, true},
    {MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, kAtLeast, flush_learned, true},
    {MAC_EVENT_INTF_LEARN, kAtLeast, switch_port_learning},
    {MAC_EVENT_SET_AGETIME_RANGE, kAtLeast,
     request<&Addresses::set_age_range, &bri_mac_age_range::min, &bri_mac_age_range::max, &bri_mac_age_range::step>},
    {MAC_EVENT_SET_AVAILABLE_MAC, kAtLeast,
     request<&Addresses::set_room, &bri_mac_available::static_num, &bri_mac_available::filter_num,
             &bri_mac_available::total_num>},
    {MAC_EVENT_NONDYN_CHECK_BEGIN, kAny, whole_request<&Addresses::begin_check>},
    {MAC_EVENT_NONDYN_CHECK_END, kAny, whole_request<&Addresses::end_check>},
    {MVLAN_EVENT_NOTIFY_ENTRY, kAtLeast, whole_request<&Addresses::apply_host>},
    {MVLAN_EVENT_ERROR, kAtLeast, take_host_error, true},
    {L2TOP_EVENT_INSTANCE_CONFIG, kExact,
     [](Bridge &bridge, const Connection &, Bytes payload) {
         bridge.topology.set_instances(object_of<wire::instance_table>(payload).instances);
     }},
    {L2TOP_EVENT_PORT_STATUS, kExact, take_states},
    {L2TOP_EVENT_PROTO_CONFIG, kExact, take_protocol},
    {RESEARCH_EVENT_SWPORT_PREJUDGE, kExact,
     answer<RESEARCH_EVENT_SWPORT_PREJUDGE, &bri_swport_prejudge_reply::is_allow, true>},
    {RESEARCH_EVENT_FAILED, kAny,
     [](Bridge &bridge, const Connection &client, Bytes) {
         bridge.prejudge.answer(client, RESEARCH_EVENT_SWPORT_PREJUDGE, "could not decide");
     }},
};

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
        announcer.everybody()(type, data);
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
    const auto *const found = std::ranges::find(kRequests, type, &Request::type);
    const Request *row = found != std::end(kRequests) ? found : nullptr;
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
    const auto *const sync = std::ranges::find(kDataSyncs, number, &DataSync::submodule);
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
