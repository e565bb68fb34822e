#include "shared/netlink_frame.h"

#include <cstring>
#include <unistd.h>

namespace bri::netlink {

namespace {

// Both for the controller's get-family command and for data requests.
constexpr uint8_t kCommand = CTRL_CMD_GETFAMILY;
constexpr uint8_t kVersion = 1;
// nla_len counts one byte more than header and payload. The byte lies in the padding; the kernel side knows it.
constexpr size_t kAttrExtra = 1;

static_assert(CTRL_CMD_GETFAMILY == 3 && CTRL_ATTR_FAMILY_ID == 1 && CTRL_ATTR_FAMILY_NAME == 2 && GENL_ID_CTRL == 16);
static_assert(padded(sizeof(nlattr) + sizeof(DataHeader) + kDataMax + kAttrExtra) == sizeof(nlattr) + kPayloadArea);

[[nodiscard]] bool is_text(Bytes bytes, const char *text) {
    const size_t length = std::strlen(text);
    return bytes.size >= length && std::memcmp(bytes.data, text, length) == 0 &&
           (bytes.size == length || bytes.data[length] == 0);
}

} // namespace

bool Request::build(uint16_t message_type, uint16_t attr_type, Bytes payload) {
    size_ = 0;
    if (payload.size > kPayloadArea - kAttrExtra)
        return false;
    const size_t attr_length = sizeof(nlattr) + payload.size + kAttrExtra;
    const size_t size = kAttrOffset + padded(attr_length);
    const nlmsghdr header{static_cast<uint32_t>(size), message_type, NLM_F_REQUEST, 0, static_cast<uint32_t>(getpid())};
    const genlmsghdr generic{kCommand, kVersion, 0};
    const nlattr attr{static_cast<uint16_t>(attr_length), attr_type};
    std::memcpy(bytes_, &header, sizeof header);
    std::memcpy(bytes_ + sizeof header, &generic, sizeof generic);
    std::memcpy(bytes_ + kAttrOffset, &attr, sizeof attr);
    if (payload.size != 0)
        std::memcpy(bytes_ + kPayloadOffset, payload.data, payload.size);
    std::memset(bytes_ + kPayloadOffset + payload.size, 0, size - kPayloadOffset - payload.size);
    size_ = size;
    return true;
}

bool build_resolution(Request &request, const char *name) {
    return request.build(GENL_ID_CTRL, CTRL_ATTR_FAMILY_NAME,
                         {reinterpret_cast<const uint8_t *>(name), std::strlen(name) + 1});
}

uint16_t family_id_in(Bytes answer, const char *name) {
    const Message message(answer);
    if (message.type() == NLMSG_ERROR || !message.whole())
        return 0;
    AttrIterator attr = message.attributes();
    if (!attr.ok() || !is_text(attr.payload(), name))
        return 0;
    attr.next();
    if (!attr.ok() || attr.type() != CTRL_ATTR_FAMILY_ID)
        return 0;
    return load_at<uint16_t>(attr.payload(), 0);
}

} // namespace bri::netlink
