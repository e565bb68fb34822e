// MAC-based VLAN entries: requests to the server, the query to the kernel, and the server's messages.
#include "base/bytes.h"
#include "base/log.h"
#include "base/mac_text.h"
#include "base/runtime.h"
#include "client/event_names.h"
#include "l2/messages.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/mac_vlan.h>
#include <bridge/netlink.h>

#include <cstring>

namespace bri::mvlan {

namespace {

enum EntryType : uint32_t { kAdd = 0, kDelete = 1, kQuery = 2 };
constexpr uint8_t kOpDelete = 2;
constexpr uint8_t kDynamic = 2;

[[nodiscard]] const char *event_name(uint32_t event) {
    return client::find_name(client::kMacVlanEventNames, event, "UNKNOW MSG TYPE");
}

// A dynamic entry of one host address; a query carries no mask.
[[nodiscard]] mvlan_msg request(EntryType type, const uint8_t *mac, uint16_t vlan, uint32_t ifx) {
    mvlan_msg message{};
    message.ifx = ifx;
    message.entry.op_flag = type == kDelete ? kOpDelete : uint8_t{0};
    message.entry.type = type;
    std::memcpy(message.entry.mac, mac, sizeof message.entry.mac);
    if (type != kQuery)
        std::memset(message.entry.mask, 0xFF, sizeof message.entry.mask);
    message.entry.vlan = vlan;
    message.entry.flag = kDynamic;
    return message;
}

void send(const void *data, uint32_t len, bri_event event) {
    const int result = bridge_client_send_message(data, len, event);
    if (result == 0)
        BRI_LOG(log::kClient, "mac vlan lib send msg: type %s, msg_len %d success.\n", event_name(event),
                static_cast<int>(len));
    else
        BRI_LOG(log::kClient, "mac vlan lib send msg: type %s, msg_len %d fail.\n", event_name(event),
                static_cast<int>(len));
}

void send(const mvlan_msg &message) {
    send(&message, sizeof message, MVLAN_EVENT_NOTIFY_ENTRY);
}

} // namespace

} // namespace bri::mvlan

using namespace bri;
using namespace bri::mvlan;

void mvlan_clnt_add_dyn_entry(const uint8_t *mac, uint16_t vlan) {
    if (mac == nullptr)
        return;
    const mvlan_msg message = request(kAdd, mac, vlan, 0);
    BRI_LOG(log::kClient, "add mac " BRI_MAC_FMT " mask " BRI_MAC_FMT " vlan %d to bridge.\n", BRI_MAC_ARGS(mac),
            BRI_MAC_ARGS(message.entry.mask), vlan);
    send(message);
}

void mvlan_clnt_add_dyn_entry_dot1x(const uint8_t *mac, uint16_t vlan, uint32_t ifx) {
    if (mac == nullptr)
        return;
    const mvlan_msg message = request(kAdd, mac, vlan, ifx);
    BRI_LOG(log::kClient, "add mac " BRI_MAC_FMT " mask " BRI_MAC_FMT " vlan %d ifx %u to bridge.\n", BRI_MAC_ARGS(mac),
            BRI_MAC_ARGS(message.entry.mask), vlan, ifx);
    send(message);
}

void mvlan_clnt_del_dyn_entry(const uint8_t *mac) {
    if (mac == nullptr)
        return;
    BRI_LOG(log::kClient, "del mac vlan dynamic entry with mac " BRI_MAC_FMT ".\n", BRI_MAC_ARGS(mac));
    send(request(kDelete, mac, 0, 0));
}

int mvlan_clnt_get_dyn_entry(const uint8_t *mac, uint16_t *vlan) {
    if (mac == nullptr || vlan == nullptr)
        return -1;
    const mvlan_msg message = request(kQuery, mac, 0, 0);
    BRI_LOG(log::kClient, "get mac vlan dynamic entry with mac " BRI_MAC_FMT ".\n", BRI_MAC_ARGS(mac));
    const void *answer = bridge_lib_query_netlink(&message, sizeof message, MVLAN_EVENT_NOTIFY_ENTRY);
    if (answer == nullptr) {
        BRI_LOG(bri::log::kMvlanQuery, "System is busy now, please try again later.\n");
        return -1;
    }
    // Written for every answered query, whatever it carries.
    BRI_LOG(log::kClient, "get mac vlan dynamic entry with mac " BRI_MAC_FMT " fail.\n", BRI_MAC_ARGS(mac));
    *vlan = bri::load_as<mvlan_msg>(answer).entry.vlan;
    return *vlan != 0 ? 0 : -1;
}

void mvlan_clnt_send_error_result(const mvlan_entry *entry) {
    if (entry == nullptr) {
        BRI_LOG(log::kClient, "send_error_result failed: recv NULL.\n");
        return;
    }
    BRI_LOG(log::kClient,
            "send_error_result: type %d mac " BRI_MAC_FMT " mask " BRI_MAC_FMT " vlan %d priority %d, flag %d",
            static_cast<int>(entry->type), BRI_MAC_ARGS(entry->mac), BRI_MAC_ARGS(entry->mask), entry->vlan,
            entry->priority, entry->flag);
    send(entry, sizeof *entry, MVLAN_EVENT_ERROR);
}

void mvlan::on_message(const Message &message) {
    BRI_LOG(log::kClient, "mvlan lib recv msg: mvlan event %s, msg len %d.\n", event_name(message.type()),
            log::number(message.header.len));
    runtime::hand_on(message);
}

void bridge_mvlan_lib_dispose_msg(bri_msg_hdr *msg) {
    if (msg != nullptr)
        mvlan::on_message(message_at(msg));
}
