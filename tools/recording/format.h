// Recordings of the bridge service: pcapng with link type USER0 (147), times in nanoseconds. Three interfaces: the
// server's socket, the tables in shared memory, the kernel channel. The comment of the section header is one line of
// JSON about what was recorded:
//
//     {"byte_order": "little"|"big", "word_size": 4|8, "library": "1.0.0", "vsdid": 0,
//      "tables": [{"name": "SWPORT-SHM", "size": bytes of its data area}, ...]}   by their numbers, all that there are
//
// Each packet begins with a head of 16 bytes:
//
//     offset  bytes
//          0      1  version, 1
//          1      1  direction: 0 to the server or kernel, 1 to the client
//          2      1  byte order of the bytes behind the head: 0 little, 1 big
//          3      1  kind, see below
//          4      4  number of the client, big-endian; 0 when it is not known, and for tables
//          8      1  number of the table; of other kinds 0
//          9      1  flags of a table's change: 1 a start value; of other kinds 0
//         10      2  reserved, zero
//         12      4  offset in the table's data area (behind the segment's header), big-endian; of other kinds 0
//
//     kind  behind the head
//        0  a batch as it went over the stream, header and messages; where the stream does not keep to batches, or ends
//           in one, what there is
//        1  new bytes of a table, at the offset; at most kMostTableBytes
//        2  a message of the kernel channel, from its netlink header on
//        3  one byte: see Change
//
// The packet that follows a table's change was sent when the change had been made. A table begins with start values,
// one at least and possibly without bytes; what they leave out is zero. Tables that stand when the recording begins
// have theirs in front of all other packets, one that is made later before the first packet behind it.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace recording {

inline constexpr uint16_t kLinkType = 147;
inline constexpr uint8_t kVersion = 1;
inline constexpr size_t kHeadSize = 16;
inline constexpr size_t kMostTableBytes = 4096;
inline constexpr uint8_t kStartValue = 1; // flag of a table's change

enum class Interface : uint32_t { kServer, kTables, kKernel };
inline constexpr const char *kInterfaceNames[] = {"server", "tables", "kernel"};

enum class Way : uint8_t { kToServer, kToClient };
enum class Kind : uint8_t { kBatch, kTable, kKernel, kConnection };
enum class Table : uint8_t { kPorts, kVlans, kExclusions, kGroups }; // in the order of wire::all_segments()
enum class Change : uint8_t { kOpened, kClosedByClient, kClosedByServer };

struct Head {
    Way way = Way::kToServer;
    bool big_endian = false;
    Kind kind = Kind::kBatch;
    uint32_t client = 0;
    Table table = Table::kPorts;
    uint8_t flags = 0;
    uint32_t offset = 0;
};

[[nodiscard]] inline std::array<uint8_t, kHeadSize> bytes_of_head(const Head &head) {
    const auto byte_of = [](uint32_t word, unsigned shift) { return static_cast<uint8_t>(word >> shift); };
    return {kVersion,
            static_cast<uint8_t>(head.way),
            static_cast<uint8_t>(head.big_endian ? 1 : 0),
            static_cast<uint8_t>(head.kind),
            byte_of(head.client, 24),
            byte_of(head.client, 16),
            byte_of(head.client, 8),
            byte_of(head.client, 0),
            static_cast<uint8_t>(head.table),
            head.flags,
            0,
            0,
            byte_of(head.offset, 24),
            byte_of(head.offset, 16),
            byte_of(head.offset, 8),
            byte_of(head.offset, 0)};
}

} // namespace recording
