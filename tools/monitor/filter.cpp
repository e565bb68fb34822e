#include "tools/monitor/filter.h"

#include "wire/draft.h"
#include "wire/value.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace monitor {

namespace {

constexpr std::string_view kPortFields[] = {"ifx"};
constexpr std::string_view kVlanFields[] = {"vid", "pvid", "bcast_id", "vlan", "default_vid"};
constexpr unsigned kMostPort = 65535; // routed interfaces have numbers behind the ports'
constexpr size_t kMacBytes = 6;

// The name of a field behind the name of the record that it came in with.
std::string_view own_name(const wire::Field &field) {
    const std::string_view name = field.name;
    return name.substr(name.rfind('.') + 1);
}

template <size_t kCount> bool is_one_of(const std::string_view (&names)[kCount], const wire::Field &field) {
    return std::ranges::find(names, own_name(field)) != std::end(names);
}

wire::Ids ids_in_field(const wire::Field &field, wire::Bytes record) {
    if (field.is_set())
        return wire::ids_of(field, record, wire::Order::kNative);
    return {wire::load(record, field.offset, field.width, wire::Order::kNative)};
}

} // namespace

void Filter::add(std::string_view condition) {
    const size_t equals = condition.find('=');
    const std::string_view name = condition.substr(0, equals);
    const std::string_view value = equals < condition.size() ? condition.substr(equals + 1) : "";
    if (name == "port")
        conditions_.push_back({Kind::kPort, wire::parse_ids(value, 1, kMostPort), {}});
    else if (name == "vlan")
        conditions_.push_back({Kind::kVlan, wire::parse_ids(value, BRI_VID_MIN, BRI_VID_MAX), {}});
    else if (name == "mac") {
        const wire::Field field{"mac", 0, kMacBytes, 1, wire::Kind::kMac, {}, nullptr, false};
        wire::Buffer mac(kMacBytes);
        wire::parse_value(field, value, mac, wire::Order::kNative);
        conditions_.push_back({Kind::kMac, {}, mac});
    } else
        throw std::invalid_argument("no such filter: " + wire::printable(condition) + " (port=, vlan= and mac= are)");
}

bool Filter::is_about(Kind kind, const wire::Field &field) {
    switch (kind) {
    case Kind::kPort:
        return field.kind == wire::Kind::kPortSet || is_one_of(kPortFields, field);
    case Kind::kVlan:
        return field.kind == wire::Kind::kVlanSet || is_one_of(kVlanFields, field);
    case Kind::kMac:
        break;
    }
    return field.kind == wire::Kind::kMac;
}

bool Filter::holds(const Condition &condition, const wire::Field &field, wire::Bytes record) {
    if (condition.kind == Kind::kMac)
        return std::ranges::equal(record.subspan(field.offset, field.width), condition.mac);
    const wire::Ids ids = ids_in_field(field, record);
    return std::ranges::any_of(ids, [&](unsigned id) { return std::ranges::binary_search(condition.ids, id); });
}

bool Filter::holds_in(const Condition &condition, const wire::Record &record, wire::Bytes bytes) {
    const wire::View view(record, bytes);
    return std::ranges::any_of(record.fields, [&](const wire::Field &field) {
        if (!view.has(field))
            return false;
        if (field.record != nullptr)
            return std::ranges::any_of(view.records(field),
                                       [&](wire::Bytes inner) { return holds_in(condition, *field.record, inner); });
        return is_about(condition.kind, field) && holds(condition, field, bytes);
    });
}

bool Filter::all_hold(const wire::Record &record, wire::Bytes bytes) const {
    return std::ranges::all_of(conditions_,
                               [&](const Condition &condition) { return holds_in(condition, record, bytes); });
}

bool Filter::matches(const wire::Payload &payload, wire::Bytes bytes) const {
    if (conditions_.empty())
        return true;
    const wire::Record &record = wire::record_in(payload);
    if (payload.shape != wire::Shape::kRun)
        return all_hold(record, bytes);
    return std::ranges::any_of(wire::pieces_of(bytes, record.size),
                               [&](wire::Bytes piece) { return all_hold(record, piece); });
}

} // namespace monitor
