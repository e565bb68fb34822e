// The persistent channel: its socket, the read job and the reconnect timer.
#include "shared/netlink_channel.h"

#include "base/apart.h"
#include "base/log.h"
#include "base/refused_jobs.h"
#include "base/runtime.h"
#include "base/shared_word.h"
#include "base/text.h"

#include <bridge/client.h>
#include <bridge/netlink.h>

#include <qv_thread.h>

#include <unistd.h>
#include <utility>

namespace bri::netlink {

namespace {

constexpr uint32_t kNotifyGroups = 0x8000; // the generic netlink controller's notices
constexpr long kReconnectSeconds = 1;

// All of it belongs to the loop's thread. Socket and family are shared words all the same: a host that sends from
// another thread, against the rule, fails or meets the next socket, and no more.
struct Channel {
    int fd = -1;                        // not above 0: closed
    int32_t family = -1;                // not above 0: unknown
    char name[20] = {};                 // client name of the last initialisation
    qv_thread_master *master = nullptr; // loop of the pending read job
    void *client = nullptr;             // the record it was added for; only ever compared
    bool reconnecting = false;          // a reconnect timer is pending
};
Channel g_channel;

int read_job(void *arg);
int reconnect_job(void *arg);
void read_again();
void reconnect_again();

// The first job carries the client record, the later ones null, and the loop matches the argument.
void cancel_read_job() {
    refused_jobs::note(read_again, true); // nor is one wanted any more
    if (g_channel.master == nullptr)
        return;
    qv_thread_cancel_by_arg_func(g_channel.master, g_channel.client, read_job);
    qv_thread_cancel_by_arg_func(g_channel.master, nullptr, read_job);
}

// Never a second one: the host may have brought the channel up anew in the middle of a read.
[[nodiscard]] bool add_read_job(void *arg) {
    if (g_channel.fd <= 0 || g_channel.master == nullptr)
        return false;
    cancel_read_job();
    return qv_thread_add_read_withname(g_channel.master, read_job, arg, g_channel.fd, "bri-ef-read") != nullptr;
}

// Waits for the next message.
[[nodiscard]] bool read_on() {
    return refused_jobs::note(read_again, add_read_job(nullptr));
}

void read_again() {
    if (g_channel.fd > 0)
        static_cast<void>(read_on());
}

void add_reconnect_timer() {
    if (g_channel.reconnecting || g_bridge_client == nullptr || g_bridge_client->master == nullptr)
        return;
    const qv_thread *timer = qv_thread_add_timer_withname(g_bridge_client->master, reconnect_job, nullptr,
                                                          kReconnectSeconds, "bri-ef-reconn");
    g_channel.reconnecting = refused_jobs::note(reconnect_again, timer != nullptr);
}

// Unless the channel has come up in another way.
void reconnect_again() {
    if (g_bridge_client != nullptr && g_bridge_client->nl_ready == 0)
        add_reconnect_timer();
}

// Asks the host to send its kernel data: the kernel side starts empty.
void raise_kernel_data_request() {
    bridge_call_event_handlers(BRIDGE_EVENT_KERNEL_DATA_REQ, nullptr, 0);
}

int read_job(void *) {
    refused_jobs::keep_flush_timer();
    const runtime::ReconnectAfterHandlers guard;
    BRI_APART static ReplyBuffer buffer;
    bool gone = false;
    if (uint8_t *payload = receive_payload(g_channel.fd, g_channel.family, buffer, &gone))
        bridge_lib_nlmsg_dispch(payload);
    // A channel that was restarted is read again once the reconnect timer has brought it up.
    return gone || read_on() ? 0 : -1;
}

int reconnect_job(void *) {
    refused_jobs::keep_flush_timer();
    const runtime::ReconnectAfterHandlers guard;
    g_channel.reconnecting = false;
    if (bridge_lib_nlclient_init(g_bridge_client) != 0)
        raise_kernel_data_request(); // a second time: the initialisation has raised it already
    else
        add_reconnect_timer();
    return 0;
}

[[nodiscard]] bool open_channel() {
    if (g_channel.fd > 0)
        return true;
    word::store(g_channel.fd, open_socket(kNotifyGroups));
    return g_channel.fd > 0;
}

[[nodiscard]] bool find_family() {
    if (g_channel.family > 0)
        return true;
    const int32_t family = resolve_family(g_channel.fd);
    word::store(g_channel.family, family > 0 ? family : -1);
    return family > 0;
}

[[nodiscard]] bool bring_up(bri_clnt_ctx &client) {
    copy_text(g_channel.name, client.name);
    if (!open_channel()) {
        BRI_LOG(log::kClient, "[%s] create socket[AF_NETLINK] failed.\n", name());
        return false;
    }
    if (!find_family()) {
        BRI_LOG(log::kClient, "[%s] get socket[AF_NETLINK] family failed.\n", name());
        return false;
    }
    cancel_read_job(); // that of the client before
    g_channel.master = client.master;
    g_channel.client = &client;
    return add_read_job(&client);
}

} // namespace

const char *name() {
    return g_channel.name;
}

void restart() {
    bridge_lib_nlclient_deinit(g_bridge_client);
    add_reconnect_timer();
}

} // namespace bri::netlink

using namespace bri;
using namespace bri::netlink;

int bridge_lib_nlclient_init(bri_clnt_ctx *client) {
    if (client == nullptr) {
        BRI_LOG(bri::log::kClient, "Bridge lib nlclient init failed: client is not ready.\n");
        return 0;
    }
    if (!netlink::bring_up(*client))
        return 0;
    client->nl_ready = 1;
    netlink::raise_kernel_data_request();
    return 1;
}

void bridge_lib_nlclient_deinit(bri_clnt_ctx *client) {
    netlink::Channel &channel = netlink::g_channel;
    if (channel.fd > 0) {
        netlink::cancel_read_job();
        close(channel.fd);
        bri::word::store(channel.fd, -1);
    }
    bri::word::store(channel.family, -1);
    if (client != nullptr)
        client->nl_ready = 0;
}

int bridge_lib_send_netlink(const uint8_t *data, uint32_t len, int32_t type) {
    if (!netlink::data_fits(data, len)) {
        BRI_LOG(bri::log::kClient, "[%s] send to netlink error.\n", netlink::name());
        return -1;
    }
    const netlink::DataPayload payload(data, len, type);
    if (!payload.ok())
        return -1;
    BRI_LOG(bri::log::kClient, "[%s] send to netlink, type(%d), len(%d).\n", netlink::name(), type,
            static_cast<int>(len));
    if (netlink::send_data(bri::word::load(netlink::g_channel.fd), bri::word::load(netlink::g_channel.family), payload))
        return 0;
    BRI_LOG(bri::log::kClient, "[%s] send to netlink error.\n", netlink::name());
    return -1;
}
