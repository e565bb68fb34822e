#include "wire/kernel_message.h"

#include "wire/own.h"

#include <algorithm>
#include <cstddef>
#include <linux/genetlink.h>
#include <linux/netlink.h>

namespace wire {

namespace {

using What = KernelMessage::What;

constexpr size_t kError = offsetof(ef_bridge_answer, cmd); // stands where others have the command

uint32_t load_type(Bytes bytes, Order order) {
    return load(bytes, offsetof(ef_bridge_answer, nlmsg_type), sizeof ef_bridge_answer::nlmsg_type, order);
}

KernelMessage request(Bytes bytes, Order order) {
    if (bytes.size() < sizeof(ef_bridge_request))
        return {};
    const uint32_t type = load(bytes, offsetof(ef_bridge_request, type), sizeof type, order);
    const size_t length = load(bytes, offsetof(ef_bridge_request, len), sizeof(uint32_t), order);
    const Bytes data = bytes.subspan(sizeof(ef_bridge_request));
    return {What::kRequest, type, data.first(std::min(length, data.size())), 0};
}

KernelMessage from_controller(Bytes bytes) {
    switch (bytes[offsetof(ef_bridge_answer, cmd)]) {
    case CTRL_CMD_NEWFAMILY:
        return {What::kFamily};
    case CTRL_CMD_DELFAMILY:
        return {What::kFamilyGone};
    default:
        return {};
    }
}

KernelMessage answer(Bytes bytes, Order order) {
    if (bytes.size() < sizeof(ef_bridge_answer))
        return {};
    const size_t attribute = load(bytes, offsetof(ef_bridge_answer, nla_len), sizeof(uint16_t), order);
    const size_t length = attribute < sizeof(nlattr) ? 0 : attribute - sizeof(nlattr);
    const Bytes data = bytes.subspan(sizeof(ef_bridge_answer));
    return {What::kAnswer, 0, data.first(std::min(length, data.size())), 0};
}

} // namespace

KernelMessage read_kernel_message(Bytes bytes, Direction direction, Order order) {
    if (bytes.size() < sizeof(nlmsghdr) + sizeof(genlmsghdr))
        return {};
    const uint32_t type = load_type(bytes, order);
    if (direction == Direction::kToKernel)
        return type == GENL_ID_CTRL ? KernelMessage{What::kFamilyAsked} : request(bytes, order);
    if (type == NLMSG_ERROR)
        return {What::kError, 0, {}, -static_cast<int32_t>(load(bytes, kError, sizeof(int32_t), order))};
    return type == GENL_ID_CTRL ? from_controller(bytes) : answer(bytes, order);
}

} // namespace wire
