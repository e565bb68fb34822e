// Batches from the server: read whole, split, handed on message by message.
#include "base/counters.h"
#include "base/log.h"
#include "base/refused_jobs.h"
#include "base/runtime.h"
#include "client/handing_on.h"
#include "client/transport.h"
#include "shared/delay_list.h"
#include "vlan/messages.h"

#include <cerrno>
#include <cstring>

uint8_t *g_bglib_recvbuf;

namespace bri::client {

namespace {

constexpr uint32_t kHeaderSize = sizeof(bri_batch_hdr);

uint32_t g_received; // bytes that the last batch brought, whole or not: behind them the receive buffer is zero
// NOLINTNEXTLINE(cppcoreguidelines-interfaces-global-init): an address, which the linker knows
uint64_t *g_loss_cause = &counters::g_loop.reset_error; // what the last failed read counts as

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

// A batch on its way into the receive buffer.
struct Arrival {
    int fd;
    uint32_t came = 0; // bytes
    BatchClock clock{};
};

inline int read_into_buffer(Arrival &batch, uint32_t n) {
    uint32_t done = 0;
    errno = 0; // the end of the stream is no error and would show an old one
    const int got = read_part(batch.fd, g_bglib_recvbuf + batch.came, n, done, batch.clock);
    batch.came += done;
    if (got != static_cast<int>(n))
        note_failed_read(got);
    return got;
}

bool read_header(Arrival &batch) {
    const int got = read_into_buffer(batch, kHeaderSize);
    if (got == static_cast<int>(kHeaderSize))
        return true;
    BRI_LOG(log::kClient, "[%s] failed to receive batch-msg header, received %d, errno = %d, %s\n", name(), got, errno,
            strerror(errno));
    return false;
}

bool read_body(Arrival &batch, uint32_t length) {
    if (length > BRI_BATCH_MSG_MAX) {
        BRI_LOG(log::kClient, "[%s] excess max batch-msg length, max length %d, received %d.\n", name(),
                log::number(BRI_BATCH_MSG_MAX), log::number(length));
        g_loss_cause = &counters::g_loop.reset_bad_frame;
        return false;
    }
    const int got = read_into_buffer(batch, length);
    if (got == static_cast<int>(length))
        return true;
    BRI_LOG(log::kClient, "[%s] failed to recv batch-msg, require length %d, recv %d, errno= %d, %s\n", name(),
            log::number(length), got, errno, strerror(errno));
    return false;
}

bool read_batch(Arrival &batch) {
    if (!read_header(batch))
        return false;
    const uint32_t length = reinterpret_cast<const bri_batch_hdr *>(g_bglib_recvbuf)->msg_len;
    return length == 0 || read_body(batch, length);
}

// Of an earlier batch nothing is left behind what came; what was overwritten needs no clearing.
void clear_behind(uint32_t came) {
    if (g_received > came)
        std::memset(g_bglib_recvbuf + came, 0, g_received - came);
    g_received = came;
}

// Whether messages are logged or held back: one look for all, since hardly ever any is.
bool watched() {
    return (log::kClient.switch_byte() | log::kVlan.switch_byte() | delay::interval()) != 0;
}

// What subsystems hand to the handlers unread, with nothing but a line in between.
constexpr bool is_handed_on(uint32_t type) {
    switch (submod_of(type)) {
    case BRI_SUBMOD_L2TOP:
    case BRI_SUBMOD_MVLAN:
    case BRI_SUBMOD_VLAN_GROUP:
        return true;
    case BRI_SUBMOD_VLAN:
        return !vlan::is_versioned(type) && !vlan::is_internal(type);
    default:
        return false;
    }
}

constexpr event_set handed_on() {
    event_set set{};
    for (uint32_t type = 0; type < bits::kSetBits; ++type)
        if (is_handed_on(type))
            set.words[bits::word_of(type)] |= bits::mask_of(type);
    return set;
}
constexpr event_set kHandedOn = handed_on();

// Announces a message; true when it is delayed.
[[gnu::noinline]] bool hold_back(const Message &message) {
    BRI_LOG(log::kClient, "A msg Start...\n");
    BRI_LOG(log::kClient, "[%s] recv msg: type[%s, %d], len[%d].\n", name(), bri_msg_type_name(message.type()),
            log::number(message.type()), log::number(message.header.len));
    if (!delay::take(message))
        return false;
    BRI_LOG(log::kClient, "Msg received is delayed to process.\n");
    return true;
}

// The way of every message.
[[gnu::noinline]] void take_by_routes(const Message &message) {
    if (!watched() || !hold_back(message))
        runtime::dispatch(message);
}

[[gnu::cold, gnu::noinline]] void end_lines() {
    BRI_LOG_ALWAYS(log::kClient, "\n");
    BRI_LOG_ALWAYS(log::kClient, "\n");
}

// Most are events for the handlers, which nobody else looks at.
inline void take_message(const bri_clnt_ctx &ctx, const Message &message) {
    const uint32_t type = message.type();
    const bool usual = !watched() & (type < bits::kSetBits); // one condition: the usual road is laid out straight on
    if (usual && bits::test(kHandedOn.words, type)) [[likely]]
        call_handlers(ctx, type, message);
    else
        take_by_routes(message);
    if (log::kClient.on()) [[unlikely]]
        end_lines();
}

// False when host code reset the connection on the way: the rest of the batch belongs to the lost one.
bool take_messages(const bri_clnt_ctx &ctx, MessageIterator &next) {
    const uint32_t connection = connection_number();
    // Taken before it is handed on: a handler may write to its payload, and to whatever lies behind it.
    for (Message message; next.take(message);) {
        take_message(ctx, message);
        if (connection_number() != connection) [[unlikely]]
            return false;
    }
    return true;
}

bool take_batch(const bri_batch_hdr &batch) {
    const uint32_t count = batch.msg_cnt;
    MessageIterator next({g_bglib_recvbuf + kHeaderSize, batch.msg_len}, count);
    const bool kept = take_messages(*g_bridge_client, next);
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
    if (!take_batch(*batch))
        return reconnect();
    drain_meanwhile(*g_bridge_client); // a server that writes may have read, too
    return bridge_client_thread_event(BRI_CLNT_EVT_READ);
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
    Arrival arrival{fd};
    const bool whole = read_batch(arrival);
    clear_behind(arrival.came);
    if (!whole)
        return -1;
    auto *batch = reinterpret_cast<bri_batch_hdr *>(g_bglib_recvbuf);
    ++counters::g_loop.batches_in;
    counters::g_loop.bytes_in += g_received;
    BRI_PROBE(batch_in, batch->msg_cnt, g_received);
    *out = batch;
    return 0;
}
