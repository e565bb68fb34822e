// The parts of the file format that recordings have.
#pragma once

#include <cstdint>

namespace recording {

enum BlockType : uint32_t { kSection = 0x0A0D0D0A, kInterface = 1, kPacket = 6 };
enum Option : uint16_t { kEnd = 0, kComment = 1, kInterfaceName = 2, kUserProgram = 4, kTimeResolution = 9 };
inline constexpr uint32_t kByteOrderMagic = 0x1A2B3C4D;
inline constexpr uint8_t kNanoseconds = 9; // digits behind the second

} // namespace recording
