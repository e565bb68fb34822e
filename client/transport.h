// What the files of the server connection offer each other: bytes on a descriptor, the send batch, the message cache
// and the socket. Nothing outside client/ needs this.
//
// g_bglib_send_lock guards the send batch, the message cache, every write to the server socket and every change of
// `sock`. No callback, handler or other host code runs while it is held; log lines are written under it, since the
// syslog library calls nothing of ours.
#pragma once

#include "base/bytes.h"
#include "base/probes.h"
#include "base/shared_word.h"

#include <bridge/client.h>

#include <cstdint>
#include <cstdlib>
#include <pthread.h>

namespace bri::client {

// --- bytes on a descriptor (stream.cpp)

// Results of bridge_writen_dontwait: the magnitudes of BRI_ERR_SOCKET and BRI_ERR_WOULD_BLOCK.
enum WriteResult { kWritten = 0, kSocketError = 5, kWouldBlock = 6 };

// What errno says of a write without waiting that moved nothing.
[[nodiscard]] WriteResult failed_write();

// A read waits this long for a byte, so that a server that stalls inside a batch cannot hold the host for ever.
inline constexpr uint32_t kReceiveSeconds = 2;

// The time of one batch, which may come byte by byte: 10 seconds from its first byte to its last. The clock costs no
// system call, and is looked at again only when an attempt did not bring all that was asked for.
class BatchClock {
  public:
    // A byte has come. The first one counts.
    void byte_came();
    // Until `fd` may be read again. False when the time is over.
    [[nodiscard]] bool wait(int fd) const;

  private:
    bool running_ = false;
    uint32_t begun_ = 0; // milliseconds
};

// bridge_readn for the bytes of a batch, which also tells how many came when it fails; a batch whose time is over fails
// with ETIMEDOUT.
int read_part(int fd, void *buf, uint32_t n, uint32_t &done, BatchClock &clock);

// bridge_writen that also tells how much went out when it fails.
int write_all(int fd, const void *bytes, uint32_t n, uint32_t &done);

// --- runs that wait to be written (message_cache.cpp); all under the send lock

// One byte run: a whole batch, so that it can go out again from its first byte on another connection.
struct Run {
    bri_list link;
    uint32_t size;
    uint32_t written; // of this connection
    bool given_up;    // its sender was told that it failed: it only completes what this connection has seen of it
    // `size` bytes follow

    [[nodiscard]] uint8_t *bytes() { return reinterpret_cast<uint8_t *>(this + 1); }
    [[nodiscard]] uint8_t *unsent() { return bytes() + written; }
    [[nodiscard]] uint32_t left() const { return size - written; }
};

// A run goes out or is given up (introduction.cpp).
void run_leaves(const Run &run);

// A run with room for `size` bytes, not linked yet; null when memory is short. free() releases it.
Run *make_run(uint32_t size);
// Appends a copy of n bytes, of which the first `written` are out already. False without memory, or when the cache is
// full; a run that the server has seen the beginning of is kept beyond the limit.
bool cache_msg(bri_clnt_ctx &ctx, const void *bytes, uint32_t n, uint32_t written);
// Puts a run that is half written before everything else; the limit does not hold it up.
void cache_half_written(bri_clnt_ctx &ctx, Run &run);
void drop_run(bri_clnt_ctx &ctx, Run &run);
// Many of them, oldest first: each is released, with so many others left, and then the cache begins with what is left.
inline void release_run(Run &run, [[maybe_unused]] uint32_t others) {
    run_leaves(run);
    BRI_PROBE(cache_out, others);
    std::free(&run);
}
void cache_begins_at(bri_clnt_ctx &ctx, bri_list &oldest, uint32_t runs);
// The oldest run when part of it is out, else null.
Run *half_written_run(bri_clnt_ctx &ctx);
// After a lost connection: every run starts anew.
void rewind_cache(bri_clnt_ctx &ctx);

// What tries whether the socket takes runs again: the flush timer, every 50 ms, or what happens as often as it likes.
enum class Drain { kByTimer, kMeanwhile };

// Writes the runs that wait, oldest first, without blocking (drain.cpp). False when one would not go out whole.
bool drain_cache(bri_clnt_ctx &ctx, Drain by);

// --- send batch (send_batch.cpp)

extern uint8_t *g_bglib_sendbuf; // BRI_BATCH_BUFFER_SIZE bytes; what lies behind the messages means nothing
extern pthread_mutex_t g_bglib_send_lock;

// Holds the send lock for a sender, who may block in a write. A flush that comes due meanwhile does not wait for the
// lock: the holder does it before the lock is free again.
class SendLock {
  public:
    explicit SendLock(bri_clnt_ctx &ctx);
    ~SendLock();
    SendLock(const SendLock &) = delete;
    SendLock &operator=(const SendLock &) = delete;

  private:
    bri_clnt_ctx &ctx_;
};

// Writes what waits, oldest first, without blocking. The send lock is held.
void flush(bri_clnt_ctx &ctx, Drain by = Drain::kMeanwhile);

// Between two flushes, on the loop's thread: writes the runs that wait, and leaves the batch to fill. Does nothing
// while another thread holds the lock.
void drain_meanwhile(bri_clnt_ctx &ctx);

// Batches that went out whole, to be counted together.
struct BatchesOut {
    uint32_t batches = 0;
    uint32_t messages = 0;
    uint32_t bytes = 0; // of 64 runs at most

    void add(const uint8_t *batch) { // its header stands there
        const auto header = load_as<bri_batch_hdr>(batch);
        const uint32_t size = header.msg_len + static_cast<uint32_t>(sizeof header);
        ++batches;
        messages += header.msg_cnt;
        bytes += size;
        BRI_PROBE(batch_out, header.msg_cnt, size);
    }
};
void count(BatchesOut out);

// One of them.
inline void count_batch(const uint8_t *bytes) {
    BatchesOut out;
    out.add(bytes);
    count(out);
}

// A send gives -1. Any thread.
void count_refused();

// Writes one message, header and payload, at any address; without data its payload is zeros.
void put_message(uint8_t *at, const void *data, uint32_t len, uint32_t type);

// Ends the stream to the server after a run was cut for good: the peer sees its end, our read job the same and
// reconnects. The send lock is held.
void end_stream(const bri_clnt_ctx &ctx);

// --- introduction (introduction.cpp); all under the send lock

// From connecting until the registration is on the wire, a message that overtakes the batch may come from the thread
// that connects alone: to the server everybody else's belongs behind the registration.
void introduction_begins();
// The registration was handed over: it is on the wire, or among the runs that wait.
void introduction_ends(const bri_clnt_ctx &ctx);
// Whether the calling thread may write past what waits.
[[nodiscard]] bool may_overtake();

// --- socket (socket.cpp)

// Changes whenever the connection is reset, so that a job can tell that host code did it meanwhile.
[[nodiscard]] uint32_t connection_number();

// Adds RECONNECT behind a connection that was lost or reset (connect_job.cpp); exactly one is due then.
int reconnect();

// bridge_client_connect_reset; a connection that stood counts as `cause`.
void reset_connection(uint64_t &cause);

// Whether this connection's read job was asked for (thread_events.cpp). Before that a connect job is still to come.
[[nodiscard]] bool is_read();

} // namespace bri::client
