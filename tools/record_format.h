// Recordings of the bridge service: pcapng with link type USER0 (147). Each packet begins with a head of 16 bytes, then
// come the bytes as they went over the interface.
//
//     offset  bytes
//          0      1  version, 1
//          1      1  direction: 0 to the server or kernel, 1 to the client
//          2      1  byte order of the bytes behind the head: 0 little, 1 big
//          3      1  kind: 0 a batch, 1 a change of a table, 2 a message of the kernel channel
//          4      4  number of the client, big-endian
//          8      8  reserved, zero
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace recording {

inline constexpr uint16_t kLinkType = 147;
inline constexpr uint8_t kVersion = 1;
inline constexpr size_t kHeadSize = 16;

enum class Way : uint8_t { kToServer, kToClient };
enum class Kind : uint8_t { kBatch, kTable, kKernel };

struct Head {
    Way way = Way::kToServer;
    bool big_endian = false;
    Kind kind = Kind::kBatch;
    uint32_t client = 0;
};

[[nodiscard]] inline std::array<uint8_t, kHeadSize> bytes_of_head(const Head &head) {
    return {kVersion,
            static_cast<uint8_t>(head.way),
            static_cast<uint8_t>(head.big_endian ? 1 : 0),
            static_cast<uint8_t>(head.kind),
            static_cast<uint8_t>(head.client >> 24),
            static_cast<uint8_t>(head.client >> 16),
            static_cast<uint8_t>(head.client >> 8),
            static_cast<uint8_t>(head.client)};
}

} // namespace recording
