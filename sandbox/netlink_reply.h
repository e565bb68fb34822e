// Messages as the kernel sends them.
#pragma once

#include "sandbox/batch.h"

#include <cstddef>
#include <cstdint>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <vector>

namespace sandbox {

inline constexpr size_t kNetlinkHeaders = sizeof(nlmsghdr) + sizeof(genlmsghdr);

// One generic netlink message under construction.
class NetlinkReply {
  public:
    NetlinkReply(uint16_t type, uint8_t command);
    NetlinkReply &attribute(uint16_t type, const void *data, size_t size);
    [[nodiscard]] Bytes bytes() const { return {bytes_.data(), bytes_.size()}; }

  private:
    void finish();

    std::vector<uint8_t> bytes_;
};

// The controller's answer for the family, and its notice that the family has gone.
NetlinkReply family_answer(uint16_t id);
NetlinkReply family_gone(uint16_t id);
// Whether a message to the controller asks for the family.
bool asks_for_family(Bytes packet);

// The error word, then the head of the request that caused it.
std::vector<uint8_t> error_answer(int error, Bytes request);

} // namespace sandbox
