// The one place that adds the client's jobs to the host's loop.
#include "base/log.h"
#include "client/state.h"

#include <qv_thread.h>

namespace bri::client {

namespace {

constexpr long kReconnectSeconds = 1;
constexpr timeval kFlushPeriod{0, kFlushPeriodUsec};

void log_ready(const bri_clnt_ctx &ctx, bri_clnt_thread_evt kind) {
    if (kind == BRI_CLNT_EVT_CONNECT)
        BRI_LOG(log::kClient, "[%s] ready to add qv-thread for CONNECT.\n", ctx.name);
    else if (kind == BRI_CLNT_EVT_RECONNECT)
        BRI_LOG(log::kClient, "[%s] ready to add qv-thread for RECONNECT.\n", ctx.name);
}

void log_refused(const bri_clnt_ctx &ctx, bri_clnt_thread_evt kind) {
    switch (kind) {
    case BRI_CLNT_EVT_CONNECT:
        BRI_LOG(log::kClient, "[%s] failed to add qv-thread for CONNECT.\n", ctx.name);
        break;
    case BRI_CLNT_EVT_READ:
        BRI_LOG(log::kClient, "[%s] failed to add qv-thread for READ.\n", ctx.name);
        break;
    case BRI_CLNT_EVT_RECONNECT:
        BRI_LOG(log::kClient, "[%s] failed to add re-thread for RECONNECT.\n", ctx.name);
        break;
    case BRI_CLNT_EVT_MSG_TIMER:
        BRI_LOG(log::kClient, "[%s] failed to add re-thread for MSG timer.\n", ctx.name);
        break;
    }
}

qv_thread *add_job(bri_clnt_ctx &ctx, bri_clnt_thread_evt kind) {
    switch (kind) {
    case BRI_CLNT_EVT_CONNECT:
        return qv_thread_add_event_withname(ctx.master, connect_job, &ctx, "bri-conn");
    case BRI_CLNT_EVT_READ:
        return qv_thread_add_read_withname(ctx.master, read_job, &ctx, ctx.sock, "bri-read");
    case BRI_CLNT_EVT_RECONNECT:
        return qv_thread_add_timer_withname(ctx.master, connect_job, &ctx, kReconnectSeconds, "bri-reconn");
    case BRI_CLNT_EVT_MSG_TIMER:
        return qv_thread_add_timer_timeval_withname(ctx.master, flush_job, &ctx, &kFlushPeriod, "bri-msg-timer");
    }
    return nullptr;
}

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_client_thread_event(int kind) {
    bri_clnt_ctx *ctx = g_bridge_client;
    if (ctx == nullptr) {
        BRI_LOG(log::kClient, "Bridge client thread-event failed: client is not init.\n");
        return -1;
    }
    if (kind < BRI_CLNT_EVT_CONNECT || kind > BRI_CLNT_EVT_MSG_TIMER)
        return 0;
    const auto known = static_cast<bri_clnt_thread_evt>(kind);
    log_ready(*ctx, known);
    if (add_job(*ctx, known) != nullptr)
        return 0;
    log_refused(*ctx, known);
    return -1;
}
