// Where scripts about daemons are played: a private world, with commands for its processes beside those of the server.
#pragma once

#include "sandbox/world.h"

namespace sandbox {

struct StageOptions {
    double time_scale = 1;
    Log log = Log::kLines;
    std::vector<std::string> command = {}; // what "daemon start" starts by itself; may be empty
    std::string recording = {};            // a file for what it and the server say; empty: none
    std::string daemon_output = {};        // a file in the world's directory; empty: where this program's goes
};

class Stage {
  public:
    // A kernel and a server run.
    explicit Stage(StageOptions options);

    // Runs "server kill|start", "daemon start [COMMAND...]", "daemon end|wait" or a command of the server, and gives
    // the server's answer. Throws std::runtime_error with the reason when it fails.
    std::string run(const std::string &line);

    // The newest one that was neither told to end nor waited for. Throws std::runtime_error when there is none.
    [[nodiscard]] pid_t daemon() const;

    void start_daemon(const std::vector<std::string> &command);
    // Tells it to end: its status; nothing, and it is killed, when it does not.
    std::optional<int> end_daemon();
    int wait_for_daemon();
    // The status of one that has ended by itself.
    std::optional<int> daemon_ended();

    World world;

  private:
    StageOptions options_;
    std::vector<pid_t> daemons_;
};

} // namespace sandbox
