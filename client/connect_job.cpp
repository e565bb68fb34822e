// The connect job: from no socket to a registered client, one step at a time, again every second until all hold.
#include "base/log.h"
#include "base/raii.h"
#include "base/refused_jobs.h"
#include "base/runtime.h"
#include "client/state.h"
#include "client/transport.h"

#include <bridge/netlink.h>

#include <qv_thread.h>

#include <utility>

namespace bri::client {

namespace {

// The read job of a whole connection was refused, so that this job was to come again. The flush timer asks for the read
// job before that, and this connection may be gone before it, too.
bool g_retry_beside_read;

void drop_retry_beside_read() {
    if (std::exchange(g_retry_beside_read, false) && g_bridge_client != nullptr)
        qv_thread_cancel_by_arg_func(g_bridge_client->master, g_bridge_client, connect_job);
}

// Both steps run host code. False when it reset the connection: all of this is due again on the next one.
bool introduce(bri_clnt_ctx &ctx) {
    const uint32_t connection = connection_number();
    run_callbacks(ctx.conn_cbs);
    if (connection_number() != connection)
        return false;
    send_full_registration();
    const MutexLock lock(g_bglib_send_lock);
    introduction_ends(ctx);
    ctx.conn_done = 1;
    return true;
}

bool open_kernel_channel(bri_clnt_ctx &ctx) {
    const uint32_t connection = connection_number();
    if (bridge_lib_nlclient_init(&ctx) > 0)
        return connection_number() == connection;
    BRI_LOG(log::kClient, "[%s] reg event failed: netlink init error.\n", ctx.name);
    bridge_lib_nlclient_deinit(&ctx);
    return false;
}

// Host code may have asked for connecting more than once; two read jobs would wait for one batch.
bool await_first_batch(bri_clnt_ctx &ctx) {
    qv_thread_cancel_by_arg_func(ctx.master, &ctx, read_job);
    return bridge_client_thread_event(BRI_CLNT_EVT_READ) == 0;
}

int retry() {
    bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
    return -1;
}

} // namespace

int reconnect() {
    drop_retry_beside_read();
    return bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
}

int connect_job(void *) {
    if (g_bridge_client == nullptr) {
        BRI_LOG(log::kClient, "Bridge client connect failed: client is not init.\n");
        return -1;
    }
    refused_jobs::keep_flush_timer();
    drop_retry_beside_read();
    bri_clnt_ctx &ctx = *g_bridge_client;
    if (ctx.sock <= 0 && bridge_client_socket_create(&ctx) < 0) {
        retry();
        BRI_LOG(log::kClient, "[%s] recreating sock ...\n", ctx.name);
        return 0;
    }
    if (ctx.connected == 0 && bridge_client_socket_connect(&ctx) < 0) {
        retry();
        BRI_LOG(log::kClient, "[%s] sock[%d] reconnecting ...\n", ctx.name, ctx.sock);
        return -1;
    }
    if (ctx.conn_done == 0 && !introduce(ctx))
        return retry();
    if (ctx.nl_ready == 0 && !open_kernel_channel(ctx))
        return retry();
    if (!await_first_batch(ctx)) {
        retry();
        g_retry_beside_read = true;
        BRI_LOG(log::kClient, "[%s] sock[%d] add THREAD_READ failed ...\n", ctx.name, ctx.sock);
        return -1;
    }
    return 0;
}

} // namespace bri::client

namespace bri::runtime {

ReconnectAfterHandlers::ReconnectAfterHandlers() : connection_(client::connection_number()), read_(client::is_read()) {}

ReconnectAfterHandlers::~ReconnectAfterHandlers() {
    if (read_ && client::connection_number() != connection_)
        client::reconnect();
}

} // namespace bri::runtime
