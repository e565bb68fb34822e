// The control socket: commands from other processes, one answer each.
//
// A request is a line: "text" or "json", a blank, the command. Its answer is a line "ok" or "error", a blank and a
// number of bytes, and then as many bytes: the answer's lines, or its JSON object; of an error the reason as one line,
// or as
// {"error": ...}. A connection's commands run in order, and share what a stream of commands remembers.
#pragma once

#include "sandbox/console.h"

namespace sandbox {

class Control {
  public:
    // At TMPDIR/bridge/.control, for this user alone. Throws std::runtime_error.
    Control(Sandbox &sandbox, const std::string &tmpdir);

    void listen();

  private:
    class Peer;

    Sandbox &sandbox_;
    std::string path_;
    std::optional<Acceptor> acceptor_;
    std::list<std::shared_ptr<Peer>> peers_;
};

} // namespace sandbox
