// The other requests of the MAC client: small records to the server and one-way messages to the kernel.
#include "base/text.h"
#include "l2/mac_log.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/netlink.h>
#include <bridge/port_db.h>

char g_bglib_client_name_mac[20];

namespace bri::mac {

namespace {

const char *const kName = g_bglib_client_name_mac;

// The kernel takes a run of records up to this length.
constexpr uint32_t kNotifyBytesMax = 8192;

template <class Payload> [[nodiscard]] int send(const Payload &payload, bri_event event) {
    return bridge_client_send_message(&payload, sizeof payload, event);
}

// What a call that only knows success and failure returns.
[[nodiscard]] int outcome(int sent) {
    return sent < 0 ? -1 : 0;
}

[[nodiscard]] const char *truth(bool value) {
    return value ? "true" : "false";
}

} // namespace

} // namespace bri::mac

using namespace bri;
using namespace bri::mac;

char *mac_client_init(bri_clnt_ctx *client) {
    if (client == nullptr) {
        BRI_MAC_LOG(nullptr, "Bridge lib mac init failed: client is not ready.\n");
        return nullptr;
    }
    bri::copy_text(g_bglib_client_name_mac, client->name);
    return g_bglib_client_name_mac;
}

int bridge_maddr_del_dyn_on_vlanmap(const vlanset *vlanmap, uint32_t ifx, uint8_t force_flush) {
    if (vlanmap == nullptr) {
        BRI_MAC_LOG(nullptr, "(%s), invalid vlanmap.\n", kName);
        return -1;
    }
    const bool force = force_flush != 0;
    bri_mac_vlanmap_del payload{};
    payload.force_flush = force ? 1 : 0;
    payload.ifx = ifx;
    payload.vlans = *vlanmap;
    BRI_MAC_LOG(nullptr, "(%s), del dyn addr on vlanmap, ifx(%u), force_flush(%s).\n", kName, ifx, truth(force));
    return send(payload, ifx != 0 ? MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP : MAC_EVENT_DEL_DYN_ON_VLANMAP);
}

int bridge_maddr_set_intf_learn(uint32_t ifx, uint32_t learn) {
    if (swport_check_exist(static_cast<int32_t>(ifx)) == 0) {
        BRI_MAC_LOG(nullptr, "(%s), invalid ifx.\n", kName);
        return -1;
    }
    const bool on = (learn & 0xFF) != 0;
    bri_mac_intf_learn payload{};
    payload.ifx = ifx;
    payload.learn_disable = on ? 0 : 1;
    const int result = outcome(send(payload, MAC_EVENT_INTF_LEARN));
    if (result == 0)
        BRI_MAC_LOG(nullptr, "(%s), send BRIDGE_SET_INTF_MAC_LEARN msg success, ifx(%u), oper(%s).\n", kName, ifx,
                    on ? "OPEN" : "CLOSE");
    else
        BRI_MAC_LOG(nullptr, "(%s), send BRIDGE_SET_INTF_MAC_LEARN msg failed.\n", kName);
    return result;
}

int bridge_maddr_set_dyn_life_range(uint32_t min, uint32_t max, uint32_t step) {
    const bri_mac_age_range payload{min, max, step};
    const int result = outcome(send(payload, MAC_EVENT_SET_AGETIME_RANGE));
    if (result == 0)
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_SET_AGETIME_RANGE msg success, min(%u), max(%u), step(%u).\n", kName,
                    min, max, step);
    else
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_SET_AGETIME_RANGE msg failed.\n", kName);
    return result;
}

int bridge_maddr_set_available_mac(uint32_t static_num, uint32_t filter_num, uint32_t total_num) {
    const bri_mac_available payload{static_num, filter_num, total_num};
    const int result = outcome(send(payload, MAC_EVENT_SET_AVAILABLE_MAC));
    if (result == 0) // the line names the total without its value
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_SET_AVAILABLE_MAC msg success, static(%u), filter(%u), total.\n",
                    kName, static_num, filter_num);
    else
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_SET_AVAILABLE_MAC msg failed.\n", kName);
    return result;
}

int bridge_maddr_nondyn_check_begin(uint32_t type) {
    BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_NONDYN_CHECK_BEGIN, type(%d).\n", kName, static_cast<int>(type));
    return send(type, MAC_EVENT_NONDYN_CHECK_BEGIN);
}

int bridge_maddr_nondyn_check_end(uint32_t type) {
    BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_NONDYN_CHECK_END, type(%d).\n", kName, static_cast<int>(type));
    return send(type, MAC_EVENT_NONDYN_CHECK_END);
}

int bridge_maddr_set_root_bridge_mode(uint8_t enable) {
    BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_SET_ROOT_BRIDGE_MODE, enable(%s).\n", kName, truth(enable != 0));
    return send(enable, MAC_EVENT_SET_ROOT_BRIDGE_MODE);
}

int bridge_maddr_dynmac_check_begin() {
    const int result = outcome(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_BEGIN));
    if (result == 0)
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_DYN_CHECK_BEGIN to kernel success.\n", kName);
    else
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_DYN_CHECK_BEGIN to kernel failed.\n", kName);
    return result;
}

int bridge_maddr_dynmac_check_end() {
    const int result = outcome(bridge_lib_send_netlink(nullptr, 0, MAC_EVENT_DYN_CHECK_END));
    if (result == 0)
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_DYN_CHECK_END to kernel success.\n", kName);
    else
        BRI_MAC_LOG(nullptr, "(%s), send MAC_EVENT_DYN_CHECK_END to kernel failed.\n", kName);
    return result;
}

int bridge_maddr_notify(const bri_mac_msg *records, uint32_t count) {
    constexpr uint32_t kRecordsMax = kNotifyBytesMax / sizeof(bri_mac_msg);
    const uint64_t length = uint64_t{count} * sizeof(bri_mac_msg); // does not wrap
    if (records == nullptr || count > kRecordsMax) {
        BRI_MAC_LOG(nullptr, "(%s), param invalid in bridge_maddr_notify, msgp(%p), msg_len(%d).\n", kName,
                    static_cast<const void *>(records), static_cast<int>(length < INT32_MAX ? length : INT32_MAX));
        return -1;
    }
    const int result = outcome(bridge_lib_send_netlink(reinterpret_cast<const uint8_t *>(records),
                                                       static_cast<uint32_t>(length), MAC_EVENT_SS_NOTIFY_ADDR));
    if (result == 0)
        BRI_MAC_LOG(nullptr, "(%s), send nlmsg to kernel success : msg_num(%d), msg_len(%d).\n", kName,
                    static_cast<int>(count), static_cast<int>(length));
    else
        BRI_MAC_LOG(nullptr, "(%s), send nlmsg to kernel failed.\n", kName);
    return result;
}

int bridge_maddr_get_available_total(uint32_t *total) {
    if (total == nullptr) {
        BRI_MAC_LOG(nullptr, "(%s), invalid total_num.\n", kName);
        return -1;
    }
    *total = mac_client_get_available_total();
    BRI_MAC_LOG(nullptr, "(%s), get avail total SUCC, %u.\n", kName, *total);
    return 0;
}
