// The commands of standard input and of scripts: one table of rows, each with its words and its help.
#pragma once

#include "sandbox/bridge.h"
#include "sandbox/kernel.h"
#include "sandbox/loop.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace sandbox {

// Something a command waits for before the next command of its stream may run.
struct Wait {
    std::function<bool()> done;
    Milliseconds limit;
    std::string timed_out; // the error when the limit passes; empty when passing it is what was asked for
};

// What one stream of commands remembers.
struct StreamState {
    std::map<uint32_t, uint64_t> awaited; // messages of a type that its wait-event commands have used up
};

class Commands {
  public:
    Commands(Bridge &bridge, Kernel &kernel, std::function<void()> quit);

    // Runs one line; an empty one or a comment does nothing. Throws std::exception with the reason when it fails.
    std::optional<Wait> run(const std::string &line, StreamState &stream);

  private:
    using Words = std::vector<std::string>;
    using Result = std::optional<Wait>;
    struct Row;
    static const Row kRows[];

    Result role(const Words &words, StreamState &stream);
    Result switchover(const Words &words, StreamState &stream);
    Result event(const Words &words, StreamState &stream);
    Result raw(const Words &words, StreamState &stream);
    Result stall(const Words &words, StreamState &stream);
    Result resume(const Words &words, StreamState &stream);
    Result drop(const Words &words, StreamState &stream);
    Result restart(const Words &words, StreamState &stream);
    Result clients(const Words &words, StreamState &stream);
    Result kernel(const Words &words, StreamState &stream);
    Result debug(const Words &words, StreamState &stream);
    Result mac(const Words &words, StreamState &stream);
    Result mvlan(const Words &words, StreamState &stream);
    Result sleep(const Words &words, StreamState &stream);
    Result wait_clients(const Words &words, StreamState &stream);
    Result wait_event(const Words &words, StreamState &stream);
    Result port(const Words &words, StreamState &stream);
    Result vlan(const Words &words, StreamState &stream);
    Result create_vlans(const Words &words);
    Result print(const Words &words, StreamState &stream);
    Result help(const Words &words, StreamState &stream);
    Result quit(const Words &words, StreamState &stream);

    Bridge &bridge_;
    Kernel &kernel_;
    std::function<void()> quit_;
};

} // namespace sandbox
