// A private world for one command: an own TMPDIR and VSDID, a server, the kernel's bridge module and the daemon.
// Nothing of it is left when it is destroyed.
#pragma once

#include "sandbox/local_socket.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace sandbox {

// Signals that end this process interrupt what it waits for, so that its world can be cleared away.
void end_on_signals();
bool is_told_to_end();

// How the servers of a world tell what happens: as lines for people, or as JSON, a record a line.
enum class Log { kLines, kRecords };

class World {
  public:
    // Makes the directory and sets this process's environment, which its children inherit: TMPDIR, VSDID,
    // QV_THREAD_TIME_SCALE. Throws std::runtime_error.
    World(double time_scale, Log log);
    ~World();
    World(const World &) = delete;
    World &operator=(const World &) = delete;

    // Each waits until what it starts listens. Throws std::runtime_error.
    void start_kernel();
    void start_server();
    // Ends it at once, as a crash does. The tables and the kernel stay.
    void kill_server();

    // Starts a program with the kernel's stand-in preloaded.
    pid_t start(const std::vector<std::string> &command);
    // Waits for its end: its exit status, or 128 and the signal that killed it. A signal for this process goes on to
    // the program.
    static int wait(pid_t program);

    // The same when it ends within that time.
    static std::optional<int> ended(pid_t program, std::chrono::milliseconds patience);

    // A command of the server. Throws std::runtime_error when the server has gone.
    ControlClient::Reply run(const std::string &command, bool json = false);

    // What the servers have told, oldest first.
    [[nodiscard]] std::vector<std::string> lines() const;
    [[nodiscard]] std::string last_lines(size_t count) const;
    [[nodiscard]] const std::string &directory() const { return directory_; }

  private:
    pid_t start_own(const std::vector<std::string> &arguments, const std::string &output) const;

    Log log_;
    std::vector<std::string> logs_; // a file for each server
    std::string directory_;
    int32_t vsd_;
    pid_t server_ = -1;
    pid_t kernel_ = -1;
    std::optional<ControlClient> control_;
};

} // namespace sandbox
