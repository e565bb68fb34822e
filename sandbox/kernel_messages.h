// What hosts send to the kernel's bridge module: questions about its tables, and messages that nobody answers.
#pragma once

#include "sandbox/addresses.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace sandbox {

// The caller's message type and its data, out of a netlink message to the family.
struct KernelMessage {
    uint32_t type = 0;
    Bytes data;
};
// Nothing when the message is cut or its length word is wrong.
std::optional<KernelMessage> kernel_message(Bytes packet);

struct KernelResult {
    int error = 0;               // a system error number: the message is refused
    std::vector<uint8_t> answer; // to a question: its record, with the result filled in; empty otherwise
};
KernelResult handle(Addresses &addresses, const KernelMessage &message);

} // namespace sandbox
