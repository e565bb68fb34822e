// Where commands come from: a script file or standard input. Each stream runs its lines in order and stands still while
// one of them waits; several streams run side by side.
#pragma once

#include "sandbox/commands.h"
#include "sandbox/loop.h"

#include <deque>
#include <functional>
#include <optional>
#include <string>

namespace sandbox {

class CommandStream {
  public:
    // `failed` is told the text of a command's error; false from it ends the stream.
    using Failed = std::function<bool(const std::string &error)>;
    CommandStream(event_base *base, Commands &commands, Failed failed);

    void add_line(std::string line);
    // Something has changed that a command may be waiting for. Runs nothing before the loop comes round again, so that
    // no command runs inside the handling of a message.
    void wake();

  private:
    void step();
    bool still_waiting();
    void run_next();
    void fail(const std::string &error);

    Commands &commands_;
    Failed failed_;
    std::deque<std::string> lines_;
    StreamState state_;
    std::optional<Wait> wait_;
    bool timed_out_ = false;
    Timer step_;
    Timer limit_;
};

// Standard input's lines, as they come.
class StandardInput {
  public:
    StandardInput(event_base *base, CommandStream &stream);

  private:
    bool read_some(); // false at the end
    void take_lines();

    CommandStream &stream_;
    std::string text_;
    Event readable_;
};

// Throws std::runtime_error when the file cannot be read.
void add_script(CommandStream &stream, const std::string &path);

} // namespace sandbox
