// A handler may ask for a replay of origin data inside a replay. How deep they lie inside each other is bounded, so
// that a handler that always asks again ends, and so does the stack.
#pragma once

namespace bri::client {

// One replay, whether of VLANs, of the topology, of one submodule or of all; on the event-loop thread.
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

} // namespace bri::client
