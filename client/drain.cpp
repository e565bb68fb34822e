// The runs that wait for the socket: written together, accounted for one by one.
#include "base/list.h"
#include "base/log.h"
#include "client/transport.h"

#include <bridge/services.h>

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>

namespace bri::client {

namespace {

constexpr size_t kMost = 64; // runs in one write

// In the first write, which finds out whether the socket takes anything: a full one costs little then. The timer comes
// seldom and may lose more.
constexpr size_t at_first(Drain by) {
    return by == Drain::kByTimer ? kMost : 16;
}

// A smaller run is copied to the others before it: to the kernel each part costs more than its bytes.
constexpr size_t kSmall = 256;
constexpr size_t kCopies = 4096;

ssize_t write_parts(int fd, iovec *parts, size_t count) {
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    errno = 0; // a result of 0 says nothing of its own
    return sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
}

// By steps, of which the last one may overlap: a call would take longer than the bytes of a small run.
inline void copy_small(uint8_t *to, const uint8_t *from, size_t size) {
    constexpr size_t kStep = 16; // only the rest of a run that was cut is shorter
    if (size < kStep) {
        std::memcpy(to, from, size);
        return;
    }
    const size_t last = size - kStep;
    for (size_t at = 0; at < last; at += kStep)
        std::memcpy(to + at, from + at, kStep);
    std::memcpy(to + last, from + last, kStep);
}

// What a write took, and the first run that was not offered to it.
struct Written {
    ssize_t bytes;
    const bri_list *behind;
};

Written write_oldest(bri_clnt_ctx &ctx, size_t most) {
    iovec parts[kMost];
    uint8_t copies[kCopies];
    size_t count = 0;
    uint8_t *begin = copies; // of the copies that are no part yet
    uint8_t *end = copies;
    const uint8_t *const full = copies + kCopies - kSmall;
    const auto add_copies = [&] {
        if (begin != end)
            parts[count++] = {begin, static_cast<size_t>(end - begin)};
        begin = end;
    };
    bri_list *link = ctx.cache.next;
    for (; link != &ctx.cache && most != 0; link = link->next, --most) {
        Run &run = *reinterpret_cast<Run *>(link);
        const size_t size = run.left();
        if (size <= kSmall && end <= full) [[likely]] {
            copy_small(end, run.unsent(), size);
            end += size;
            continue;
        }
        add_copies();
        parts[count++] = {run.unsent(), size};
    }
    add_copies();
    return {write_parts(ctx.sock, parts, count), link};
}

// Brings a run that the next write takes near, while another one is released: when it is written, each would be waited
// for, since only a run tells where the next one is.
inline void fetch(const bri_clnt_ctx &ctx, const bri_list *&ahead) {
    constexpr size_t kLine = 64; // of a processor's cache, mostly; a hint
    if (ahead == &ctx.cache)
        return;
    __builtin_prefetch(reinterpret_cast<const uint8_t *>(ahead) + kLine);
    ahead = ahead->next;
}

// Takes the runs off that `sent` bytes complete. What went out of the next one, which is now the oldest.
uint32_t account(bri_clnt_ctx &ctx, size_t sent, const bri_list *ahead) {
    BatchesOut out;
    bri_list *link = ctx.cache.next;
    while (sent != 0) {
        Run &run = *reinterpret_cast<Run *>(link);
        if (sent < run.left()) {
            run.written += static_cast<uint32_t>(sent);
            break;
        }
        sent -= run.left();
        out.add(run.bytes());
        link = link->next;
        fetch(ctx, ahead);
        release_run(run, ctx.cache_cnt - out.batches);
    }
    cache_begins_at(ctx, *link, ctx.cache_cnt - out.batches);
    count(out);
    return static_cast<uint32_t>(sent);
}

} // namespace

bool drain_cache(bri_clnt_ctx &ctx, Drain by) {
    for (size_t most = at_first(by); !list::empty(ctx.cache); most = kMost) {
        const auto [sent, behind] = write_oldest(ctx, most);
        const WriteResult result = sent > 0 ? kWouldBlock : failed_write();
        const uint32_t cut = sent > 0 ? account(ctx, static_cast<size_t>(sent), behind) : 0;
        if (sent > 0 && cut == 0) // none was cut: whether the next one would go only a write of it can tell
            continue;
        BRI_LOG(log::kClient, "[%s] Socket send FAIL, ret %s, written_len %d, left_len.\n", ctx.name,
                bri_strerror(-result), log::number(cut));
        return false;
    }
    return true;
}

} // namespace bri::client
