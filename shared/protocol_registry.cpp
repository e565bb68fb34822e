// Bridge-protocol state registry, at the end of the VLAN segment.
#include "base/bits.h"
#include "base/log.h"

#include <bridge/protocol_registry.h>
#include <bridge/vlan_db.h>

#include <cstddef>
#include <iterator>

namespace bri::protocols {

namespace {

constexpr const char *kUnknown = "BRI_PROT_UNKOWN";

// Number 13 is a protocol, but has no name of its own.
constexpr const char *kNames[] = {
    "BRI_PROT_MIN",   "BRI_PROT_MSTP",  "BRI_PROT_GVRP", "BRI_PROT_LLDP", "BRI_PROT_ERPS",
    "BRI_PROT_RERP",  "BRI_PROT_REUP",  "BRI_PROT_RLDP", "BRI_PROT_TPP",  "BRI_PROT_CDP",
    "BRI_PROT_DHCP4", "BRI_PROT_DHCP6", "BRI_PROT_TILL", kUnknown,        "BRI_PROT_MAX",
};
static_assert(std::size(kNames) == BRI_PROT_MAX + 1, "one name a number");
static_assert(std::size(bri_proto_registry{}.prejudge) == BRI_PROT_MAX, "one mask a protocol");

// Number 0 is never shown and never stands in anyone's way.
constexpr unsigned kFirst = 1;
constexpr unsigned kLast = BRI_PROT_MAX - 1;

// The registry of the mapped database, or null.
bri_proto_registry *registry() {
    return g_vl_mng.stat != nullptr ? g_vl_mng.proto_state : nullptr;
}

// The same for an operation on one protocol: null also when there is no such protocol.
bri_proto_registry *registry_for(uint32_t proto) {
    return proto < BRI_PROT_MAX ? registry() : nullptr;
}

// The lowest enabled protocol that stands in the way of `proto`, or 0.
uint32_t conflict_of(const bri_proto_registry &protocols, uint32_t proto) {
    const uint32_t others = word::load(protocols.prejudge[proto]) & word::load(protocols.state) & ~bits::mask_of(proto);
    uint32_t found = 0;
    bits::for_each(&others, kFirst, kLast, [&](unsigned other) {
        found = other;
        return false;
    });
    return found;
}

void show_states(const bri_proto_registry &protocols) {
    BRI_LOG(log::kPrint, "Protocol         Status\n");
    BRI_LOG(log::kPrint, "---------------- ------\n");
    bits::for_each(&protocols.state, kFirst, kLast,
                   [](unsigned proto) { BRI_LOG(log::kPrint, "%-16s ON\n", kNames[proto]); });
}

void show_masks(const bri_proto_registry &protocols) {
    BRI_LOG(log::kPrint, "\nProtocol         Conflict\n");
    BRI_LOG(log::kPrint, "---------------- --------\n");
    for (unsigned proto = kFirst; proto <= kLast; ++proto) {
        const uint32_t mask = word::load(protocols.prejudge[proto]);
        if (mask == 0)
            continue;
        BRI_LOG(log::kPrint, "%-16s ", kNames[proto]);
        bits::for_each(&mask, kFirst, kLast, [](unsigned other) { BRI_LOG(log::kPrint, "%s ", kNames[other]); });
        BRI_LOG(log::kPrint, "\n");
    }
}

} // namespace

} // namespace bri::protocols

using namespace bri;
using namespace bri::protocols;

// Markers around each access; by design they take no lock.
void bp_rdown() {}
void bp_wdown() {}
void bp_up() {}

const char *bridge_proto_get_name(uint32_t proto) {
    return proto < std::size(kNames) ? kNames[proto] : kUnknown;
}

int bridge_proto_state_set(uint32_t proto, uint32_t *conflict) {
    bri_proto_registry *protocols = registry_for(proto);
    if (protocols == nullptr || conflict == nullptr)
        return 0;
    BRI_LOG(log::kVlanDb, "Set bri-protocol state: %s.\n", bridge_proto_get_name(proto));
    *conflict = conflict_of(*protocols, proto);
    if (*conflict != 0)
        return 0;
    word::set_bits(protocols->state, bits::mask_of(proto));
    return 1;
}

// The number's range is the caller's business: its lowest five bits name the bit.
void bridge_proto_state_unset(uint32_t proto) {
    bri_proto_registry *protocols = registry();
    if (protocols == nullptr)
        return;
    BRI_LOG(log::kVlanDb, "Unset bri-protocol state: %s.\n", bridge_proto_get_name(proto));
    word::clear_bits(protocols->state, bits::mask_of(proto));
}

int bridge_proto_state_get(uint32_t proto) {
    const bri_proto_registry *protocols = registry_for(proto);
    if (protocols == nullptr)
        return 0;
    BRI_LOG(log::kVlanDb, "Get bri-protocol state: %s.\n", bridge_proto_get_name(proto));
    return bits::test(&protocols->state, proto) ? 1 : 0;
}

uint32_t bridge_proto_get_state_all() {
    const bri_proto_registry *protocols = registry();
    return protocols != nullptr ? word::load(protocols->state) : 0;
}

int bridge_proto_set_prejudge(uint32_t proto, uint32_t mask) {
    bri_proto_registry *protocols = registry_for(proto);
    if (protocols == nullptr)
        return 0;
    BRI_LOG(log::kVlanDb, "Set bri-protocol prejudge: protocol %d, set %x\n", static_cast<int>(proto), mask);
    word::store(protocols->prejudge[proto], mask);
    return 1;
}

void bridge_proto_state_show() {
    const bri_proto_registry *protocols = registry();
    if (protocols == nullptr)
        return;
    show_states(*protocols);
    show_masks(*protocols);
}
