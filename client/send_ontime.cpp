// One message that does not wait: a batch of its own that overtakes what is collected or cached.
#include "base/log.h"
#include "base/raii.h"
#include "client/transport.h"

#include <cstring>

namespace bri::client {

namespace {

Run *make_single(const void *data, uint32_t len, uint32_t type) {
    const bri_batch_hdr header{static_cast<uint32_t>(sizeof(bri_msg_hdr)) + len, 1};
    Run *run = make_run(static_cast<uint32_t>(sizeof header) + header.msg_len);
    if (run != nullptr) {
        std::memcpy(run->bytes(), &header, sizeof header);
        put_message(run->bytes() + sizeof header, data, len, type);
    }
    return run;
}

bool write_rest(const bri_clnt_ctx &ctx, Run &run) {
    uint32_t done = 0;
    write_all(ctx.sock, run.unsent(), run.left(), done);
    run.written += done;
    if (run.left() != 0)
        return false;
    count_batch(run.bytes());
    return true;
}

// A run that is half out goes first, or the message would land inside it.
bool complete_half_written(bri_clnt_ctx &ctx) {
    Run *run = half_written_run(ctx);
    if (run == nullptr)
        return true;
    if (!write_rest(ctx, *run))
        return false;
    drop_run(ctx, *run);
    return true;
}

// The server must see the rest of a message that it has seen the beginning of, though its sender is told that it
// failed.
bool write_now(bri_clnt_ctx &ctx, HeapPtr<Run> &run) {
    const SendLock lock(ctx);
    if (ctx.sock <= 0 || !may_overtake() || !complete_half_written(ctx))
        return false;
    if (write_rest(ctx, *run))
        return true;
    if (run->written != 0) {
        run->given_up = true;
        cache_half_written(ctx, *run.release());
    }
    return false;
}

bool send_ontime(const void *data, uint32_t len, uint32_t type) {
    if (g_bridge_client == nullptr || len > BRI_PAYLOAD_MAX)
        return false;
    HeapPtr<Run> run(make_single(data, len, type));
    return run.ok() && write_now(*g_bridge_client, run);
}

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_client_send_message_ontime(const void *data, uint32_t len, uint32_t type) {
    if (client::send_ontime(data, len, type))
        return 0;
    client::count_refused();
    BRI_LOG(log::kClient, "Client send msg failed!\n");
    return -1;
}
