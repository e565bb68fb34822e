// Messages of the kernel channel by what they say.
#pragma once

#include "wire/bytes.h"
#include "wire/event.h"

namespace wire {

struct KernelMessage {
    enum class What : uint8_t {
        kOther,       // cut, or of no use to a host
        kFamilyAsked, // a host looks for the module's family
        kFamily,      // the answer: the module is there
        kFamilyGone,  // the controller's notice that it is not
        kRequest,     // a host's, with `type` and `data`
        kAnswer,      // with `data`
        kError        // a refusal, with `error`
    };

    What what = What::kOther;
    uint32_t type = 0;
    Bytes data = {};   // in the order that the message has; what is there of it
    int32_t error = 0; // a system error number
};

// `direction` is kToKernel or kFromKernel.
[[nodiscard]] KernelMessage read_kernel_message(Bytes bytes, Direction direction, Order order = Order::kNative);

} // namespace wire
