// The other end of the control socket.
#pragma once

#include "base/raii.h"

#include <string>

namespace sandbox {

class ControlClient {
  public:
    // Of the server whose TMPDIR that is. Throws std::runtime_error.
    explicit ControlClient(const std::string &tmpdir);

    struct Reply {
        bool ok;
        std::string text; // the lines, or the JSON object on one
    };
    // Waits for the answer. Throws std::runtime_error when the server has gone.
    Reply run(const std::string &command, bool json = false);

  private:
    void read_more();

    bri::Fd fd_;
    std::string input_;
};

} // namespace sandbox
