// Where commands come from: scripts, standard input, the control socket. Each is a stream that runs its lines in order
// and stands still while one of them waits; several streams run side by side.
#pragma once

#include "sandbox/sandbox.h"

namespace sandbox {

class CommandStream {
  public:
    // What becomes of each command is told; false of `failed` ends the stream.
    using Answered = std::function<void(const Answer &)>;
    using Failed = std::function<bool(const std::string &error)>;
    CommandStream(Sandbox &sandbox, Answered answered, Failed failed);

    void add_line(std::string line);
    // One command that is answered or fails once, also when it is none.
    void add_command(const std::string &line) { add_line(split(line).empty() ? "print" : line); }
    // What has happened so far does not count for its waits.
    void begin_now() { session_.begin = sandbox_.trace.last(); }
    void add_script(const std::string &path);
    // Something has changed that a command may be waiting for. Runs nothing before the loop comes round again, so that
    // no command runs inside the handling of a message.
    void wake();
    [[nodiscard]] bool idle() const { return !wait_ && script_.empty(); }

  private:
    void step();
    void look_at_wait();
    bool run_next();

    Sandbox &sandbox_;
    Answered answered_;
    Failed failed_;
    Script script_;
    Session session_;
    std::optional<Wait> wait_;
    bool timed_out_ = false;
    Timer step_;
    Timer limit_;
    Trace::Subscription changes_;
};

// Standard input's lines, as they come.
class StandardInput {
  public:
    StandardInput(Loop &loop, CommandStream &stream);

  private:
    bool read_some(); // false at the end

    CommandStream &stream_;
    std::string text_;
    Event readable_;
};

// The control socket: commands from other processes, one answer each.
//
// A request is a line: "text" or "json", a blank, the command. Its answer is a line "ok" or "error", a blank and a
// number of bytes, and then as many bytes: the answer's lines, or its JSON object; of an error the reason as one line,
// or as {"error": ...}. A connection's commands run in order, and share what a stream of commands remembers.
class Control {
  public:
    // At TMPDIR/bridge/.control, for this user alone. Throws std::runtime_error.
    Control(Sandbox &sandbox, const std::string &tmpdir) : sandbox_(sandbox), path_(socket_path(tmpdir, ".control")) {}

    void listen();

  private:
    class Peer;

    Sandbox &sandbox_;
    std::string path_;
    std::optional<Acceptor> acceptor_;
    std::list<std::shared_ptr<Peer>> peers_;
};

} // namespace sandbox
