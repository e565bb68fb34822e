// Batches from the server: read whole, split, handed on message by message.
#include "base/bytes.h"
#include "base/log.h"
#include "base/refused_jobs.h"
#include "client/state.h"
#include "client/transport.h"

#include <bridge/debug.h>

#include <cerrno>
#include <cstring>

uint8_t *g_bglib_recvbuf;

namespace bri::client {

namespace {

constexpr uint32_t kHeaderSize = sizeof(bri_batch_hdr);

uint32_t g_received; // bytes of the receive buffer that may differ from zero

void clear_buffer() {
    std::memset(g_bglib_recvbuf, 0, g_received);
    g_received = 0;
}

int read_into_buffer(int fd, uint32_t n) {
    uint8_t *place = g_bglib_recvbuf + g_received;
    g_received += n; // before the read: it may fail behind some bytes
    errno = 0;       // the end of the stream is no error and would show an old one
    return bridge_readn(fd, place, n);
}

bool read_header(int fd) {
    const int got = read_into_buffer(fd, kHeaderSize);
    if (got == static_cast<int>(kHeaderSize))
        return true;
    BRI_LOG(log::kClient, "[%s] failed to receive batch-msg header, received %d, errno = %d, %s\n", name(), got, errno,
            strerror(errno));
    return false;
}

bool read_body(int fd, uint32_t length) {
    if (length > BRI_BATCH_MSG_MAX) {
        BRI_LOG(log::kClient, "[%s] excess max batch-msg length, max length %d, received %d.\n", name(),
                log::number(BRI_BATCH_MSG_MAX), log::number(length));
        return false;
    }
    const int got = read_into_buffer(fd, length);
    if (got == static_cast<int>(length))
        return true;
    BRI_LOG(log::kClient, "[%s] failed to recv batch-msg, require length %d, recv %d, errno= %d, %s\n", name(),
            log::number(length), got, errno, strerror(errno));
    return false;
}

// The message lies unaligned in the receive buffer; who takes it copies what it reads.
void take_message(const uint8_t *message, bri_msg_hdr header) {
    BRI_LOG(log::kClient, "A msg Start...\n");
    BRI_LOG(log::kClient, "[%s] recv msg: type[%s, %d], len[%d].\n", name(), bri_msg_type_name(header.type),
            log::number(header.type), log::number(header.len));
    auto *handed_on = reinterpret_cast<bri_msg_hdr *>(const_cast<uint8_t *>(message));
    if (bri_clnt_msg_delay_process(handed_on) != 0)
        BRI_LOG(log::kClient, "Msg received is delayed to process.\n");
    else
        bridge_client_msg_dspch(handed_on);
    BRI_LOG(log::kClient, "\n");
    BRI_LOG(log::kClient, "\n");
}

// False when host code reset the connection on the way: the rest of the batch belongs to the lost one.
bool take_batch(const bri_batch_hdr &batch) {
    const uint32_t connection = connection_number();
    MessageIterator next({g_bglib_recvbuf + kHeaderSize, batch.msg_len}, batch.msg_cnt);
    while (next.ok()) {
        const MessageIterator message = next;
        next.next(); // a handler may write to its payload, and the length of the message is none of that
        take_message(message.message(), message.header());
        if (connection_number() != connection)
            return false;
    }
    if (next.cut())
        BRI_LOG(log::kClient, "[%s] batch-msg ends inside a msg, rest discarded.\n", name());
    return true;
}

int lose_connection() {
    bridge_client_connect_reset();
    bridge_client_thread_event(BRI_CLNT_EVT_RECONNECT);
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
    return bridge_client_thread_event(take_batch(*batch) ? BRI_CLNT_EVT_READ : BRI_CLNT_EVT_RECONNECT);
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
    if (!read_header(fd) || (batch->msg_len != 0 && !read_body(fd, batch->msg_len)))
        return -1;
    *out = batch;
    return 0;
}
