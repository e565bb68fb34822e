// What the files of the kernel channel offer each other.
#pragma once

#include "base/bytes.h"
#include "base/raii.h"

#include <cstddef>
#include <cstdint>

namespace bri::netlink {

inline constexpr char kFamilyName[] = "EF_BRIDGE";
inline constexpr size_t kReplyMax = 10248; // a longer message means that the kernel side has gone

// Client name of log lines, from the last initialisation; empty before.
[[nodiscard]] const char *name();

// Closes the channel because its kernel side has gone, and starts the reconnect timer unless it is running.
void restart();

// netlink_socket.cpp

// A bound socket with a receive time-out where the kernel grants one, or -1.
[[nodiscard]] int open_socket(uint32_t groups);
// The id of the kernel's family, 0 when it has none or does not answer.
[[nodiscard]] uint16_t resolve_family(int fd);

// Whether `len` bytes at `data` can be sent at all.
[[nodiscard]] bool data_fits(const void *data, uint32_t len);

// Message type, length and a copy of the data. On the heap: the frame already takes 20 kB of the host's stack.
class DataPayload {
  public:
    // The data fits.
    DataPayload(const void *data, uint32_t len, int32_t type);
    [[nodiscard]] bool ok() const { return bytes_.ok(); }
    [[nodiscard]] Bytes bytes() const { return {bytes_.get(), size_}; }

  private:
    size_t size_;
    HeapPtr<uint8_t> bytes_;
};
[[nodiscard]] bool send_data(int fd, int32_t family, const DataPayload &payload);

// netlink_receive.cpp

struct ReplyBuffer {
    alignas(uint64_t) uint8_t bytes[kReplyMax]; // hosts read records in it
};

// Reads one message of the family into the buffer, which is cleared whole: who got the last payload may have written
// anywhere behind it. Its attribute payload, or null. `gone` (may be null) tells that the channel was restarted.
[[nodiscard]] uint8_t *receive_payload(int fd, int32_t family, ReplyBuffer &buffer, bool *gone);

} // namespace bri::netlink
