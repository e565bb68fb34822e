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

// Up to kMost runs as the parts of one write. A small one is copied to the others before it: to the kernel each part
// costs more than its bytes.
class Parts {
  public:
    void add(Run &run) {
        const size_t size = run.left();
        if (size > kSmall || size > sizeof copies_ - copied_) {
            parts_[count_++] = {run.unsent(), size};
            return;
        }
        uint8_t *copy = copies_ + copied_;
        std::memcpy(copy, run.unsent(), size);
        copied_ += size;
        if (count_ != 0 && ends_at(parts_[count_ - 1], copy))
            parts_[count_ - 1].iov_len += size;
        else
            parts_[count_++] = {copy, size};
    }

    ssize_t write_to(int fd) {
        msghdr message{};
        message.msg_iov = parts_;
        message.msg_iovlen = count_;
        errno = 0; // a result of 0 says nothing of its own
        return sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
    }

  private:
    static constexpr size_t kSmall = 256;

    static bool ends_at(const iovec &part, const uint8_t *place) {
        return static_cast<uint8_t *>(part.iov_base) + part.iov_len == place;
    }

    iovec parts_[kMost];
    size_t count_ = 0;
    uint8_t copies_[4096];
    size_t copied_ = 0;
};

ssize_t write_oldest(bri_clnt_ctx &ctx, size_t most) {
    Parts parts;
    for (bri_list *link = ctx.cache.next; link != &ctx.cache && most != 0; link = link->next, --most)
        parts.add(*reinterpret_cast<Run *>(link));
    return parts.write_to(ctx.sock);
}

// Takes the runs off that `sent` bytes complete. What went out of the next one, which is now the oldest.
uint32_t account(bri_clnt_ctx &ctx, size_t sent) {
    for (Run *run = list::first<Run>(ctx.cache); sent != 0; run = list::first<Run>(ctx.cache)) {
        if (sent < run->left()) {
            run->written += static_cast<uint32_t>(sent);
            break;
        }
        sent -= run->left();
        count_batch(run->bytes());
        drop_run(ctx, *run);
    }
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
