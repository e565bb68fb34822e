// Reads recordings, whatever the bytes are.
#pragma once

#include "tools/recording/format.h"
#include "wire/bytes.h"

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace recording {

using Time = std::chrono::nanoseconds;

struct Packet {
    size_t number; // as analysers count: from 1, over all packets of the file
    Time time;     // by the recording machine's clock
    Head head;
    wire::Bytes body; // in the recording's bytes

    [[nodiscard]] wire::Order order() const { return head.big_endian ? wire::Order::kBig : wire::Order::kLittle; }
};

struct Recording {
    wire::Buffer bytes;
    std::vector<Packet> packets; // point into `bytes`
};

// The first `most` packets; what stands behind them is not looked at. Throws std::runtime_error with a line for people
// when the bytes are no recording, end inside a packet or are damaged. `name` stands for the file in that line.
[[nodiscard]] Recording read(wire::Buffer bytes, std::string_view name, size_t most = SIZE_MAX);
// The same from a file.
[[nodiscard]] Recording read_file(const std::string &path, size_t most = SIZE_MAX);

} // namespace recording
