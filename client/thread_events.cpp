// The one place that adds the client's jobs to the host's loop, and that knows which ones it refused.
#include "base/counters.h"
#include "base/log.h"
#include "base/refused_jobs.h"
#include "base/runtime.h"
#include "client/state.h"
#include "client/transport.h"

#include <qv_thread.h>

#include <algorithm>
#include <utility>

namespace bri::client {

namespace {

constexpr long kReconnectSeconds = 1;
constexpr timeval kFlushPeriod{0, runtime::kFlushPeriodUsec};

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

bool g_timer_refused;
uint32_t g_connection_to_read = UINT32_MAX; // the one that the last read job was asked for; none before

// A connection that is read needs its read job; before that, and behind a loss, a connect job is what is missing.
template <bri_clnt_thread_evt Kind> void add_again() {
    if (is_read() == (Kind == BRI_CLNT_EVT_READ))
        bridge_client_thread_event(Kind);
}

bool note_kind(bri_clnt_thread_evt kind, bool taken) {
    switch (kind) {
    case BRI_CLNT_EVT_CONNECT:
        return refused_jobs::note(add_again<BRI_CLNT_EVT_CONNECT>, taken);
    case BRI_CLNT_EVT_READ:
        g_connection_to_read = connection_number();
        return refused_jobs::note(add_again<BRI_CLNT_EVT_READ>, taken);
    case BRI_CLNT_EVT_RECONNECT:
        return refused_jobs::note(add_again<BRI_CLNT_EVT_RECONNECT>, taken);
    case BRI_CLNT_EVT_MSG_TIMER:
        g_timer_refused = !taken;
        if (!taken)
            ++counters::g_loop.jobs_refused;
    }
    return taken;
}

} // namespace

bool is_read() {
    return g_connection_to_read == connection_number();
}

} // namespace bri::client

namespace bri::refused_jobs {

namespace {

constexpr size_t kMost = 8; // more than the library has such jobs
Add g_refused[kMost];
size_t g_count;

} // namespace

bool note(Add add, bool taken) {
    if (taken && g_count == 0) [[likely]]
        return true;
    if (!taken)
        ++counters::g_loop.jobs_refused;
    Add *const end = g_refused + g_count;
    Add *const found = std::find(g_refused, end, add);
    if (taken && found != end)
        *found = g_refused[--g_count];
    else if (!taken && found == end && g_count < kMost)
        g_refused[g_count++] = add;
    return taken;
}

void keep_flush_timer() {
    if (client::g_timer_refused)
        bridge_client_thread_event(BRI_CLNT_EVT_MSG_TIMER);
}

void add_all() {
    Add due[kMost];
    const size_t count = std::exchange(g_count, 0);
    std::copy_n(g_refused, count, due);
    std::for_each_n(due, count, [](Add add) { add(); });
}

} // namespace bri::refused_jobs

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
    if (note_kind(known, add_job(*ctx, known) != nullptr))
        return 0;
    log_refused(*ctx, known);
    return -1;
}
