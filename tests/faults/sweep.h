// The fault sweep: every call that an operation makes, and that can fail, fails in turn. Each failure has a process of
// its own, since the library's state lives as long as one. There the operation fails several times in the same way and
// must give its documented result each time, leaving no block of memory, no descriptor and no mapping behind; then,
// with nothing failing, it must work.
#pragma once

#include "tests/faults/swept_host.h"

#include <functional>
#include <string>
#include <vector>

namespace test {

// What an attempt gave, by the operation's own convention for results.
enum class Got { kSuccess, kFailure, kElse };

// For operations without a result.
inline Got done() {
    return Got::kSuccess;
}
inline Got zero(int result) {
    return result == 0 ? Got::kSuccess : result == -1 ? Got::kFailure : Got::kElse;
}
inline Got one(int result) {
    return result == 1 ? Got::kSuccess : result == 0 ? Got::kFailure : Got::kElse;
}
inline Got whole(int result, int size) {
    return result == size ? Got::kSuccess : result < 0 ? Got::kFailure : Got::kElse;
}
inline Got made(const void *result) {
    return result != nullptr ? Got::kSuccess : Got::kFailure;
}

// What the operation gives when a call fails. The entry that says most about the failure counts.
struct Effect {
    const char *call;
    Got result;
    int error = 0;              // 0: whatever it fails with
    int nth = 0;                // of the calls of that name in one attempt; 0: each
    bool keeps_mapping = false; // documented: a segment stays attached for good
    bool optional = false;      // made by the C library, where that is linked statically
    bool keeps_handles = false; // documented: the heap records of a table's set-up stay for good
};
using Effects = std::vector<Effect>;

struct Row {
    const char *operation; // exported name, or in words the job of the loop
    Level level;
    std::function<Got(SweptHost &)> attempt;
    Effects effects; // exactly the calls that the attempt makes
    int sends = 0;   // the message that reaches the server when it works, also later when the socket was only full
    std::function<void(SweptHost &)> before = {}; // each attempt: what it needs
    std::function<void(SweptHost &)> after = {};  // each attempt: gives back what it got
};

// Sweeps the rows and prints the count of injected failures per operation. Fails the running test for each deviation.
void sweep(const std::vector<Row> &rows);

// The formats of the lines that an attempt writes with all debug flags off, but for prints and the one notice.
std::string unasked_lines(const Row &row);

// Calls of each kind that an attempt makes, "malloc 2, send 1"; empty for none.
std::string calls_of(const Row &row);

} // namespace test
