#include "sandbox/netlink_reply.h"

#include <cstring>

namespace sandbox {

namespace {

constexpr char kFamilyName[] = "EF_BRIDGE";

NetlinkReply about_family(uint8_t command, uint16_t id) {
    return NetlinkReply(GENL_ID_CTRL, command)
        .attribute(CTRL_ATTR_FAMILY_NAME, kFamilyName, sizeof kFamilyName)
        .attribute(CTRL_ATTR_FAMILY_ID, &id, sizeof id);
}

} // namespace

NetlinkReply::NetlinkReply(uint16_t type, uint8_t command) : bytes_(kNetlinkHeaders) {
    const nlmsghdr head{0, type, 0, 0, 0};
    const genlmsghdr generic{command, 1, 0};
    std::memcpy(bytes_.data(), &head, sizeof head);
    std::memcpy(bytes_.data() + sizeof head, &generic, sizeof generic);
    finish();
}

NetlinkReply &NetlinkReply::attribute(uint16_t type, const void *data, size_t size) {
    const nlattr head{static_cast<uint16_t>(sizeof(nlattr) + size), type};
    const size_t at = bytes_.size();
    bytes_.resize(at + NLA_ALIGN(head.nla_len));
    std::memcpy(bytes_.data() + at, &head, sizeof head);
    std::memcpy(bytes_.data() + at + sizeof head, data, size);
    finish();
    return *this;
}

void NetlinkReply::finish() {
    const auto length = static_cast<uint32_t>(bytes_.size());
    std::memcpy(bytes_.data() + offsetof(nlmsghdr, nlmsg_len), &length, sizeof length);
}

NetlinkReply family_answer(uint16_t id) {
    return about_family(CTRL_CMD_NEWFAMILY, id);
}

NetlinkReply family_gone(uint16_t id) {
    return about_family(CTRL_CMD_DELFAMILY, id);
}

bool asks_for_family(Bytes packet) {
    return packet.holds(kNetlinkHeaders + sizeof(nlattr), sizeof kFamilyName) &&
           std::memcmp(packet.data + kNetlinkHeaders + sizeof(nlattr), kFamilyName, sizeof kFamilyName) == 0;
}

std::vector<uint8_t> error_answer(int error, Bytes request) {
    const nlmsghdr cause = bri::load_at<nlmsghdr>(request, 0);
    const nlmsghdr head{sizeof(nlmsghdr) + sizeof error + sizeof cause, NLMSG_ERROR, 0, 0, 0};
    const int word = -error;
    std::vector<uint8_t> bytes(head.nlmsg_len);
    std::memcpy(bytes.data(), &head, sizeof head);
    std::memcpy(bytes.data() + sizeof head, &word, sizeof word);
    std::memcpy(bytes.data() + sizeof head + sizeof word, &cause, sizeof cause);
    return bytes;
}

} // namespace sandbox
