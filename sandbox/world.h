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

// What happens in a world: as lines for people, or as JSON, a record a line, which the servers keep when they are
// asked.
enum class Log { kLines, kRecords };

// The lines of a file that have their end; the last of some lines as a text.
std::vector<std::string> read_lines(const std::string &path);
std::string last_of(const std::vector<std::string> &lines, size_t count);

// A script by its path, or one of those that come with the program by its name: "start".
std::string find_script(const std::string &name);

// This process's, but for these entries.
std::vector<std::string> environment_with(const std::vector<std::string> &entries);
// Starts a program: with nothing to read and its output at the end of that file, or with this process's streams. Throws
// std::runtime_error.
pid_t spawn(std::vector<std::string> words, std::vector<std::string> environment, const std::string &output);

// Below a recorded TMPDIR, the one that its clients use.
inline constexpr const char *kRecorded = "/rec";

class World : Pinned {
  public:
    // Makes the directory and sets this process's environment, which its children inherit: TMPDIR, VSDID,
    // QV_THREAD_TIME_SCALE. What daemons and servers say is recorded in that file, if any. Throws std::runtime_error.
    explicit World(double time_scale, Log log = Log::kLines, std::string recording = {});
    ~World();

    // Each waits until what it starts listens. Throws std::runtime_error.
    void start_kernel();
    void start_server();
    // Ends it at once, as a crash does. The tables and the kernel stay.
    void kill_server();

    // Starts a program with the kernel's stand-in preloaded. Its output goes to that file, or where this process's
    // goes.
    pid_t start(const std::vector<std::string> &command, const std::string &output = {});
    // Waits for its end: its exit status, or 128 and the signal that killed it. A signal for this process goes on to
    // the program.
    static int wait(pid_t program);

    // The same when it ends within that time.
    static std::optional<int> ended(pid_t program, std::chrono::milliseconds patience);

    // A command of the server. Throws std::runtime_error when the server has gone.
    ControlClient::Reply run(const std::string &command, bool json = false);

    // What has happened at the servers, oldest first.
    [[nodiscard]] std::vector<std::string> lines(Log log) const;
    [[nodiscard]] const std::string &directory() const { return directory_; }

  private:
    pid_t start_own(std::vector<std::string> arguments, const std::string &output) const;
    [[nodiscard]] std::string log_file(unsigned server, Log log) const;

    // The TMPDIR of the daemons: where they are recorded, if they are.
    [[nodiscard]] std::string front() const { return directory_ + (recording_.empty() ? "" : kRecorded); }

    Log log_;
    std::string recording_;
    unsigned servers_ = 0; // that there have been
    std::string directory_;
    int32_t vsd_;
    pid_t server_ = -1;
    pid_t kernel_ = -1;
    std::optional<ControlClient> control_;
};

} // namespace sandbox
