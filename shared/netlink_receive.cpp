#include "base/log.h"
#include "shared/netlink_channel.h"
#include "shared/netlink_frame.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

namespace bri::netlink {

namespace {

constexpr uint8_t kFamilyDeleted = CTRL_CMD_DELFAMILY;
static_assert(kFamilyDeleted == 2 && NLMSG_ERROR == 2);

// The notice counts whichever family it names: the controller reports a family that comes back under a new id this way
// too, and a restart is cheap.
[[nodiscard]] bool means_gone(const Message &head) {
    return (head.type() == GENL_ID_CTRL && head.command() == kFamilyDeleted) || head.type() == NLMSG_ERROR ||
           head.length() > kReplyMax;
}

// A message too short to have a head is taken off the socket, or it would be met again and again. errno stays that of
// the peek: it tells a silent kernel from one that failed.
void drop_headless(int fd, ssize_t peeked) {
    const int error = errno;
    BRI_LOG(log::kClient, "[%s] Get msg head failed. rep_len %d.\n", name(), static_cast<int>(peeked));
    uint8_t byte = 0;
    if (peeked >= 0)
        static_cast<void>(recv(fd, &byte, sizeof byte, MSG_DONTWAIT));
    errno = error;
}

void report_gone(const Message &head, bool *gone) {
    BRI_LOG(log::kClient, "[%s] EF-bridge disconn msg received.\n", name());
    restart();
    if (gone != nullptr)
        *gone = true;
    // The word is printed as it stands: error messages carry it negative, and strerror names it so.
    BRI_LOG(log::kClient, "[%s] Get msg head failed. error %d, %s.\n", name(), head.error(), strerror(head.error()));
}

// One call takes one message off the socket, whatever length it announces; the peek has shown that one is there.
[[nodiscard]] uint8_t *read_whole(int fd, int32_t family, size_t length, ReplyBuffer &buffer) {
    const ssize_t received = recv(fd, buffer.bytes, length, MSG_DONTWAIT);
    const Message message({buffer.bytes, received > 0 ? static_cast<size_t>(received) : 0});
    if (message.whole() && message.type() == family)
        return buffer.bytes + kPayloadOffset;
    const Message cut({buffer.bytes, sizeof buffer.bytes}); // the line names what came of a header that was cut
    BRI_LOG(log::kClient, "[%s] Get whole msg failed. rep_len %d nlmsg_len %d nlmsg_type %d family_id %d.\n", name(),
            static_cast<int>(received), static_cast<int>(cut.length()), cut.type(), family);
    return nullptr;
}

} // namespace

uint8_t *receive_payload(int fd, int32_t family, ReplyBuffer &buffer, bool *gone) {
    std::memset(buffer.bytes, 0, sizeof buffer.bytes);
    uint8_t peek[kFrameMax];
    const ssize_t peeked = recvfrom(fd, peek, sizeof peek, MSG_PEEK, nullptr, nullptr);
    if (peeked < static_cast<ssize_t>(kAttrOffset)) {
        drop_headless(fd, peeked);
        return nullptr;
    }
    const Message head({peek, static_cast<size_t>(peeked)});
    if (means_gone(head)) {
        report_gone(head, gone);
        return nullptr;
    }
    return read_whole(fd, family, head.length(), buffer);
}

} // namespace bri::netlink
