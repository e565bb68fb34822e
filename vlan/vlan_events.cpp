// Start of the VLAN client and the road of a VLAN message: version check, then the host's handlers.
#include "base/bytes.h"
#include "base/counters.h"
#include "base/log.h"
#include "base/runtime.h"
#include "base/text.h"
#include "vlan/client_name.h"
#include "vlan/messages.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/port_db.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>

#include <cstddef>
#include <iterator>

namespace bri::vlan {

namespace {

char g_name[sizeof(bri_clnt_ctx::name)];

// Payloads may lie unaligned, so the single events are read by value and the range checks work on bytes.
uint16_t vid_of(const uint8_t *payload) {
    return load_as<uint16_t>(payload + offsetof(vl_evt_vlan_rec, vid));
}
uint16_t version_of(const uint8_t *payload) {
    return load_as<uint16_t>(payload + offsetof(vl_evt_vlan_rec, version));
}

int accepts_create(uint8_t *payload) {
    return vl_version_check_on_create_notify(vid_of(payload), version_of(payload));
}
int accepts_destroy(uint8_t *payload) {
    return vl_version_check_on_destroy_notify(vid_of(payload), version_of(payload));
}
int accepts_range_create(uint8_t *payload) {
    return vl_version_check_on_range_create_notify(reinterpret_cast<vl_evt_vlanset_rec *>(payload));
}
int accepts_range_destroy(uint8_t *payload) {
    return vl_version_check_on_range_destroy_notify(reinterpret_cast<vl_evt_vlanset_rec *>(payload));
}

struct VersionedEvent {
    uint32_t type;
    uint32_t least_len; // bytes of the payload that the check reads or changes
    int (*accepts)(uint8_t *payload);
};
constexpr uint32_t kSingleLen = offsetof(vl_evt_vlan_rec, name);
constexpr VersionedEvent kVersioned[] = {
    {VLAN_EVENT_CREATE_INDEX, kSingleLen, accepts_create},
    {VLAN_EVENT_DESTROY_INDEX, kSingleLen, accepts_destroy},
    {VLAN_EVENT_CREATE_RANGE, sizeof(vl_evt_vlanset_rec), accepts_range_create},
    {VLAN_EVENT_DESTROY_RANGE, sizeof(vl_evt_vlanset_rec), accepts_range_destroy},
};
static_assert(kSingleLen == 4 && sizeof(vl_evt_vlanset_rec) == 8708);

static_assert(std::size(kVersioned) == kVersionedTypes);
constexpr bool by_type() {
    for (uint32_t row = 0; row < std::size(kVersioned); ++row)
        if (kVersioned[row].type != kFirstVersioned + row)
            return false;
    return true;
}
static_assert(by_type(), "one row per type, without a gap");

// Null for a type without a version.
const VersionedEvent *versioned(uint32_t type) {
    return is_versioned(type) ? &kVersioned[type - kFirstVersioned] : nullptr;
}

// Whether a message with a version is new.
bool is_fresh(const VersionedEvent &event, const Message &message) {
    if (message.payload.size < event.least_len) {
        counters::drop<counters::Drop::kShort>(message.type());
        BRI_LOG(log::kVlan, "VLAN msg type(%s) is too short, len(%u), Drop.\n", bri_msg_type_name(event.type),
                message.header.len);
        return false;
    }
    const bool fresh = event.accepts(message.payload.data) != 0;
    if (!fresh)
        counters::drop<counters::Drop::kStale>(message.type());
    return fresh;
}

// Apart from the road of every message, which saves no registers for it.
[[gnu::cold, gnu::noinline]] void log_ready(uint32_t type) {
    BRI_LOG(log::kVlan, "Ready to notify event, type(%s), event(%d).\n", bri_msg_type_name(type),
            static_cast<int>(type));
}

} // namespace

const char *client_name() {
    return g_name;
}

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

void vlan::on_message(const Message &message) {
    if (const VersionedEvent *event = versioned(message.type()); event != nullptr && !is_fresh(*event, message))
        return;
    if (log::kVlan.on())
        log_ready(message.type());
    if (!is_internal(message.type()))
        runtime::hand_on(message);
    else
        BRI_LOG(log::kVlan, "The event(%d) needn't notify.\n", static_cast<int>(message.type()));
}

char *vl_clnt_manage_init(struct bri_clnt_ctx *client) {
    if (client == nullptr)
        return nullptr;
    if (bridge_portdb_init() == 0) {
        BRI_LOG(log::kVlan, "Init bridge portdb failed.\n");
        return nullptr;
    }
    if (vl_vlandb_init() == 0) {
        BRI_LOG(log::kVlan, "Bridge module, vlandb-init failed.\n");
        return nullptr;
    }
    copy_text(vlan::g_name, client->name);
    return vlan::g_name;
}

int vl_clnt_on_server_msg(struct bri_msg_hdr *msg) {
    if (msg == nullptr)
        return -1;
    vlan::on_message(message_at(msg));
    return 0;
}
