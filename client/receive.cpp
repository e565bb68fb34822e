// Batches from the server: read whole, split, handed on message by message.
#include "base/counters.h"
#include "base/log.h"
#include "base/refused_jobs.h"
#include "base/runtime.h"
#include "client/state.h"
#include "client/transport.h"
#include "shared/delay_list.h"

#include <cerrno>
#include <cstring>

uint8_t *g_bglib_recvbuf;

namespace bri::client {

namespace {

constexpr uint32_t kHeaderSize = sizeof(bri_batch_hdr);

uint32_t g_received; // bytes of the receive buffer that may differ from zero
// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): an address, which the linker knows
uint64_t *g_loss_cause = &counters::g_loop.reset_error; // what the last failed read counts as

void clear_buffer() {
    std::memset(g_bglib_recvbuf, 0, g_received);
    g_received = 0;
}

// A read that gives fewer bytes than it should has met the end of the stream, or a peer that is gone. Out of line,
// since the reads that succeed shall not pay for it.
[[gnu::cold, gnu::noinline]] void note_failed_read(int got) {
    bri_counters &counted = counters::g_loop;
    if ((got >= 0 && errno == 0) || errno == ECONNRESET)
        g_loss_cause = &counted.reset_by_peer;
    else if (errno == EAGAIN || errno == ETIMEDOUT)
        g_loss_cause = &counted.reset_timeout;
    else
        g_loss_cause = &counted.reset_error;
}

inline int read_into_buffer(int fd, uint32_t n, BatchClock &clock) {
    uint8_t *place = g_bglib_recvbuf + g_received;
    g_received += n; // before the read: it may fail behind some bytes
    errno = 0;       // the end of the stream is no error and would show an old one
    const int got = read_part(fd, place, n, clock);
    if (got != static_cast<int>(n))
        note_failed_read(got);
    return got;
}

bool read_header(int fd, BatchClock &clock) {
    const int got = read_into_buffer(fd, kHeaderSize, clock);
    if (got == static_cast<int>(kHeaderSize))
        return true;
    BRI_LOG(log::kClient, "[%s] failed to receive batch-msg header, received %d, errno = %d, %s\n", name(), got, errno,
            strerror(errno));
    return false;
}

bool read_body(int fd, uint32_t length, BatchClock &clock) {
    if (length > BRI_BATCH_MSG_MAX) {
        BRI_LOG(log::kClient, "[%s] excess max batch-msg length, max length %d, received %d.\n", name(),
                log::number(BRI_BATCH_MSG_MAX), log::number(length));
        g_loss_cause = &counters::g_loop.reset_bad_frame;
        return false;
    }
    const int got = read_into_buffer(fd, length, clock);
    if (got == static_cast<int>(length))
        return true;
    BRI_LOG(log::kClient, "[%s] failed to recv batch-msg, require length %d, recv %d, errno= %d, %s\n", name(),
            log::number(length), got, errno, strerror(errno));
    return false;
}

void take_message(const Message &message) {
    BRI_LOG(log::kClient, "A msg Start...\n");
    BRI_LOG(log::kClient, "[%s] recv msg: type[%s, %d], len[%d].\n", name(), bri_msg_type_name(message.type()),
            log::number(message.type()), log::number(message.header.len));
    if (delay::take(message))
        BRI_LOG(log::kClient, "Msg received is delayed to process.\n");
    else
        runtime::dispatch(message);
    BRI_LOG(log::kClient, "\n");
    BRI_LOG(log::kClient, "\n");
}

// False when host code reset the connection on the way: the rest of the batch belongs to the lost one.
bool take_messages(MessageIterator &next) {
    const uint32_t connection = connection_number();
    while (next.ok()) {
        const Message message = next.message();
        next.next(); // a handler may write to its payload, and to whatever lies behind it
        take_message(message);
        if (connection_number() != connection)
            return false;
    }
    return true;
}

bool take_batch(const bri_batch_hdr &batch) {
    const uint32_t count = batch.msg_cnt;
    MessageIterator next({g_bglib_recvbuf + kHeaderSize, batch.msg_len}, count);
    const bool kept = take_messages(next);
    counters::g_loop.messages_in += count - next.left();
    if (kept && next.cut()) {
        counters::drop<counters::Drop::kShort>(0);
        BRI_LOG(log::kClient, "[%s] batch-msg ends inside a msg, rest discarded.\n", name());
    }
    return kept;
}

int lose_connection() {
    reset_connection(*g_loss_cause);
    reconnect();
    return -1;
}

} // namespace

int read_job(void *) {
    refused_jobs::keep_flush_timer();
    bri_batch_hdr *batch = nullptr;
    if (g_bridge_client == nullptr || g_bridge_client->sock <= 0 ||
        bridge_client_read_msg(g_bridge_client->sock, &batch) != 0)
        return lose_connection();
    BRI_LOG(log::kClient, "[%s] batch-msg received: msg-cnt %d, msg-len %d.\n", name(), log::number(batch->msg_cnt),
            log::number(batch->msg_len));
    return take_batch(*batch) ? bridge_client_thread_event(BRI_CLNT_EVT_READ) : reconnect();
}

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_client_read_msg(int fd, struct bri_batch_hdr **out) {
    if (g_bglib_recvbuf == nullptr) {
        BRI_LOG(log::kClient, "[%s] failed to receive msg: buff is not ready.\n", name());
        return -1;
    }
    if (out == nullptr)
        return -1;
    clear_buffer();
    auto *batch = reinterpret_cast<bri_batch_hdr *>(g_bglib_recvbuf);
    BatchClock clock;
    if (!read_header(fd, clock) || (batch->msg_len != 0 && !read_body(fd, batch->msg_len, clock)))
        return -1;
    ++counters::g_loop.batches_in;
    counters::g_loop.bytes_in += g_received;
    BRI_PROBE(batch_in, batch->msg_cnt, g_received);
    *out = batch;
    return 0;
}
