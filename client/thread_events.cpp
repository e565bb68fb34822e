// The one place that adds the client's jobs to the host's loop.
#include "base/log.h"
#include "client/state.h"

#include <qv_thread.h>

#include <array>

namespace bri::client {

namespace {

constexpr long kReconnectSeconds = 1;
constexpr timeval kFlushPeriod{0, kFlushPeriodUsec};

// How the log speaks of each kind.
struct Words {
    bri_clnt_thread_evt kind;
    const char *what;
    bool announced; // has a line before the job is added
    const char *refused;
};
constexpr std::array kWords{Words{BRI_CLNT_EVT_CONNECT, "CONNECT", true, "qv-thread"},
                            Words{BRI_CLNT_EVT_READ, "READ", false, "qv-thread"},
                            Words{BRI_CLNT_EVT_RECONNECT, "RECONNECT", true, "re-thread"},
                            Words{BRI_CLNT_EVT_MSG_TIMER, "MSG timer", false, "re-thread"}};

constexpr bool in_order() {
    for (size_t kind = 0; kind < kWords.size(); ++kind)
        if (kWords[kind].kind != kind)
            return false;
    return true;
}
static_assert(in_order());

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
    if (kind < 0 || kind >= static_cast<int>(kWords.size()))
        return 0;
    const Words &words = kWords[static_cast<size_t>(kind)];
    if (words.announced)
        BRI_LOG(log::kClient, "[%s] ready to add qv-thread for %s.\n", ctx->name, words.what);
    if (add_job(*ctx, words.kind) != nullptr)
        return 0;
    BRI_LOG(log::kClient, "[%s] failed to add %s for %s.\n", ctx->name, words.refused, words.what);
    return -1;
}
