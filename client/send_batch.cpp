// Messages to the server: collected in one batch, written when it fills, when one is urgent, or by the 50 ms timer.
#include "base/counters.h"
#include "base/list.h"
#include "base/log.h"
#include "base/message.h"
#include "base/refused_jobs.h"
#include "client/state.h"
#include "client/transport.h"

#include <cstring>
#include <sys/socket.h>
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#define BRI_HAVE_SINGLE_THREADED
#endif

namespace bri::client {

uint8_t *g_bglib_sendbuf;
pthread_mutex_t g_bglib_send_lock = PTHREAD_MUTEX_INITIALIZER;

namespace {

bool g_flush_due; // the timer came; whoever holds the send lock flushes

bri_batch_hdr &batch() {
    return *reinterpret_cast<bri_batch_hdr *>(g_bglib_sendbuf);
}

uint32_t batch_size() {
    return static_cast<uint32_t>(sizeof(bri_batch_hdr)) + batch().msg_len;
}

// What lies behind the header stays: every message is written whole.
void clear_batch() {
    batch() = {};
}

bool batch_takes(uint32_t len) {
    return batch().msg_len <= BRI_BATCH_MSG_MAX - sizeof(bri_msg_hdr) - len; // len is at most BRI_PAYLOAD_MAX
}

void append(const void *data, uint32_t len, uint32_t type) {
    uint8_t *const place = g_bglib_sendbuf + batch_size();
    batch().msg_len += static_cast<uint32_t>(sizeof(bri_msg_hdr)) + len;
    batch().msg_cnt += 1;
    put_message(place, data, len, type);
}

// These do not wait for the timer.
bool urgent(uint32_t type) {
    const uint32_t submod = submod_of(type);
    return submod == BRI_SUBMOD_CLNT_MNG || submod == BRI_SUBMOD_L2TOP || type == MAC_EVENT_DYN_FLUSH ||
           type == MVLAN_EVENT_NOTIFY_ENTRY;
}

int refuse() {
    count_refused();
    return -1;
}

// Out of line, like all that an append shall not pay for.
[[gnu::cold, gnu::noinline]] int not_ready() {
    BRI_LOG(log::kClient, "Client send msg failed: Socket is not ready.\n");
    return refuse();
}

[[gnu::cold, gnu::noinline]] int too_large(uint32_t len) {
    BRI_LOG(log::kClient, "Client send msg failed: msg-len[%d] is too large.\n", log::number(len));
    return refuse();
}

[[gnu::cold, gnu::noinline]] int no_buffer() {
    BRI_LOG(log::kClient, "failed to send msg: buff is not ready.\n");
    return refuse();
}

void queue_batch(bri_clnt_ctx &ctx) {
    if (batch().msg_len == 0)
        return;
    BRI_LOG(log::kClient, "[%s] Failed to send cached msg and try to enqueue again.\n", ctx.name);
    cache_msg(ctx, g_bglib_sendbuf, batch_size(), 0);
}

void write_batch(bri_clnt_ctx &ctx) {
    if (batch().msg_len == 0)
        return;
    uint32_t written = 0;
    switch (bridge_writen_dontwait(ctx.sock, g_bglib_sendbuf, batch_size(), &written)) {
    case kWritten:
        count_batch(g_bglib_sendbuf);
        BRI_LOG(log::kClient, "[%s] Msg send SUCC: msg-cnt %d, msg-len %d.\n", ctx.name, log::number(batch().msg_cnt),
                log::number(batch().msg_len));
        break;
    case kWouldBlock:
        if (!cache_msg(ctx, g_bglib_sendbuf, batch_size(), written) && written != 0)
            end_stream(ctx);
        break;
    default:
        BRI_LOG(log::kClient, "[%s] Msg send FAIL: error socket.\n", ctx.name);
    }
}

bool flush_due() {
    return __atomic_load_n(&g_flush_due, __ATOMIC_SEQ_CST);
}

bool try_lock() {
    return pthread_mutex_trylock(&g_bglib_send_lock) == 0;
}

// Does a flush that came due while the lock was held. Looks again behind the release: it may have come in between.
void release_send_lock(bri_clnt_ctx &ctx) {
    do {
        if (flush_due() && __atomic_exchange_n(&g_flush_due, false, __ATOMIC_SEQ_CST))
            flush(ctx, Drain::kByTimer);
        pthread_mutex_unlock(&g_bglib_send_lock);
    } while (flush_due() && try_lock());
}

// Whether the process has one thread, as far as the C library tells.
bool alone() {
#if defined(BRI_HAVE_SINGLE_THREADED)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
}

bool can_write(const bri_clnt_ctx &ctx) {
    return ctx.sock > 0 && word::load(ctx.connected) != 0;
}

[[gnu::noinline]] int send_locked(bri_clnt_ctx &ctx, const void *data, uint32_t len, uint32_t type) {
    const SendLock lock(ctx);
    if (!batch_takes(len))
        flush(ctx);
    if (!batch_takes(len)) // the connection was lost since the first look, and the batch waits for the next one
        return not_ready();
    append(data, len, type);
    if (urgent(type))
        flush(ctx);
    return 0;
}

} // namespace

void count(BatchesOut out) {
    counters::g_senders.batches.add(out.batches);
    counters::g_senders.messages.add(out.messages);
    counters::g_senders.bytes.add(out.bytes);
}

void count_refused() {
    word::add(counters::g_senders.refused, 1U);
    BRI_PROBE(refused);
}

void put_message(uint8_t *at, const void *data, uint32_t len, uint32_t type) {
    const bri_msg_hdr header{type, len};
    std::memcpy(at, &header, sizeof header);
    if (data != nullptr)
        std::memcpy(at + sizeof header, data, len);
    else
        std::memset(at + sizeof header, 0, len);
}

void end_stream(const bri_clnt_ctx &ctx) {
    shutdown(ctx.sock, SHUT_RDWR);
}

// What waits while there is no connection leaves on the next one.
void flush(bri_clnt_ctx &ctx, Drain by) {
    if (g_bglib_sendbuf == nullptr || !can_write(ctx))
        return;
    if (list::empty(ctx.cache) || drain_cache(ctx, by))
        write_batch(ctx);
    else
        queue_batch(ctx);
    clear_batch();
}

SendLock::SendLock(bri_clnt_ctx &ctx) : ctx_(ctx) {
    pthread_mutex_lock(&g_bglib_send_lock);
}

SendLock::~SendLock() {
    release_send_lock(ctx_);
}

void drain_meanwhile(bri_clnt_ctx &ctx) {
    if (word::load(ctx.cache_cnt) == 0 || !try_lock())
        return;
    if (can_write(ctx))
        drain_cache(ctx, Drain::kMeanwhile);
    release_send_lock(ctx);
}

// The loop does not wait for a thread that blocks in a write.
int flush_job(void *) {
    if (g_bridge_client != nullptr) {
        __atomic_store_n(&g_flush_due, true, __ATOMIC_SEQ_CST); // before the look at the lock
        if (try_lock())
            release_send_lock(*g_bridge_client);
    }
    bridge_client_thread_event(BRI_CLNT_EVT_MSG_TIMER);
    refused_jobs::add_all();
    return 0;
}

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_client_send_message(const void *data, uint32_t len, uint32_t type) {
    bri_clnt_ctx *ctx = g_bridge_client;
    if (ctx == nullptr || word::load(ctx->connected) == 0)
        return not_ready();
    if (len > BRI_PAYLOAD_MAX)
        return too_large(len);
    if (g_bglib_sendbuf == nullptr)
        return no_buffer();
    if (alone() && !urgent(type) && batch_takes(len)) { // nothing below starts a thread, or calls anybody
        append(data, len, type);
        return 0;
    }
    return send_locked(*ctx, data, len, type);
}
