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

// Runs in one write. The first one finds out whether the socket takes anything, and a full one costs little then.
constexpr size_t kAtFirst = 16;
constexpr size_t kMost = 64;

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

ssize_t write_oldest(bri_clnt_ctx &ctx, size_t most) {
    iovec parts[kMost];
    uint8_t copies[kCopies];
    size_t count = 0;
    uint8_t *begin = copies; // of the copies that are no part yet
    uint8_t *end = copies;
    const auto add_copies = [&] {
        if (begin != end)
            parts[count++] = {begin, static_cast<size_t>(end - begin)};
        begin = end;
    };
    for (bri_list *link = ctx.cache.next; link != &ctx.cache && most != 0; link = link->next, --most) {
        Run &run = *reinterpret_cast<Run *>(link);
        const size_t size = run.left();
        if (size <= kSmall && size <= static_cast<size_t>(copies + kCopies - end)) {
            std::memcpy(end, run.unsent(), size);
            end += size;
            continue;
        }
        add_copies();
        parts[count++] = {run.unsent(), size};
    }
    add_copies();
    return write_parts(ctx.sock, parts, count);
}

// Takes the runs off that `sent` bytes complete. What went out of the next one, which is now the oldest.
uint32_t account(bri_clnt_ctx &ctx, size_t sent) {
    BatchesOut out;
    for (Run *run = list::first<Run>(ctx.cache); sent != 0; run = list::first<Run>(ctx.cache)) {
        if (sent < run->left()) {
            run->written += static_cast<uint32_t>(sent);
            break;
        }
        sent -= run->left();
        out.add(run->bytes());
        drop_run(ctx, *run);
    }
    count(out);
    return static_cast<uint32_t>(sent);
}

} // namespace

bool drain_cache(bri_clnt_ctx &ctx) {
    for (size_t most = kAtFirst; !list::empty(ctx.cache); most = kMost) {
        const ssize_t sent = write_oldest(ctx, most);
        const WriteResult result = sent > 0 ? kWouldBlock : failed_write();
        const uint32_t cut = sent > 0 ? account(ctx, static_cast<size_t>(sent)) : 0;
        if (sent > 0 && cut == 0) // none was cut: whether the next one would go only a write of it can tell
            continue;
        BRI_LOG(log::kClient, "[%s] Socket send FAIL, ret %s, written_len %d, left_len.\n", ctx.name,
                bri_strerror(-result), log::number(cut));
        return false;
    }
    return true;
}

} // namespace bri::client
