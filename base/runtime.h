// What the client runtime does for the rooms beside it. Declared here, below all of them, so that none of them includes
// a header of the runtime, which itself knows them all by its routes.
#pragma once

#include "base/message.h"

namespace bri::runtime {

// Period of the batch flush, in microseconds; the debug part shows it.
inline constexpr int kFlushPeriodUsec = 50000;

// Brings a message to its subsystem (client/dispatch.cpp): the delay list does it later.
void dispatch(const Message &message);

// Calls the host's handlers with a message as it came (client/handlers.cpp).
void hand_on(const Message &message);

// One replay of origin data, whether of VLANs, of the topology, of one submodule or of all. A handler may ask for one
// inside another: how deep they lie inside each other is bounded, so that one that always asks again ends, and so does
// the stack. Event-loop thread; client/replay_level.cpp.
class ReplayLevel {
  public:
    static constexpr unsigned kMost = 8;

    ReplayLevel();
    ~ReplayLevel();
    ReplayLevel(const ReplayLevel &) = delete;
    ReplayLevel &operator=(const ReplayLevel &) = delete;

    // False, with a debug line, when as many replays run already: nothing is replayed then.
    [[nodiscard]] bool ok() const { return entered_; }

  private:
    bool entered_;
};

// In a job of the library that calls handlers (client/connect_job.cpp): when one of them resets the connection, a
// reconnect follows behind the job. One that is still due, since the connection was not up yet, is left to bring up the
// next one. The jobs that read and connect do it themselves.
class ReconnectAfterHandlers {
  public:
    ReconnectAfterHandlers();
    ~ReconnectAfterHandlers();
    ReconnectAfterHandlers(const ReconnectAfterHandlers &) = delete;
    ReconnectAfterHandlers &operator=(const ReconnectAfterHandlers &) = delete;

  private:
    uint32_t connection_;
    bool read_; // its batches were awaited
};

} // namespace bri::runtime
