// The rows of the sweep, a table for each family of operations.
#pragma once

#include "tests/faults/sweep.h"

namespace test {

std::vector<Row> client_rows();
std::vector<Row> service_rows();
std::vector<Row> ipc_rows();
std::vector<Row> table_rows();
std::vector<Row> kernel_rows();
std::vector<Row> request_rows();
// Operations that make no call that could fail.
std::vector<Row> quiet_rows();

// What the operations are called with.
inline constexpr int32_t kPort = SweptHost::kPort;
inline constexpr uint16_t kVlan = SweptHost::kVlan;
inline constexpr uint8_t kMac[6] = {0x00, 0xD0, 0xF8, 0x00, 0x00, 0x01};
inline int agree(void *, void *) {
    return 0;
}

// What becomes of a message that waits in the batch when the socket fails is not the sender's business.
inline const Effects kBatched{{"send", Got::kSuccess}};
// One that is written at once is tried again until the socket takes it or breaks.
inline const Effects kWrittenAtOnce{{"malloc", Got::kFailure},
                                    {"send", Got::kFailure},
                                    {"send", Got::kSuccess, EAGAIN},
                                    {"send", Got::kSuccess, EINTR}};
// The same for an operation without a result.
inline const Effects kAnswered{{"malloc", Got::kSuccess}, {"send", Got::kSuccess}};

} // namespace test
