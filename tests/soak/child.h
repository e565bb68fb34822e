// A child process that is spoken to by lines, without ever waiting for it: what it does not read yet is kept.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace soak {

class Child {
  public:
    // `environment`: NAME=value entries on top of this process's own. Throws std::runtime_error.
    Child(const std::vector<std::string> &command, const std::vector<std::string> &environment,
          std::function<void(const std::string &line)> on_line);
    ~Child(); // killed if it still runs, and reaped
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    void tell(const std::string &line);
    void end_input();
    void signal(int number) const;
    [[nodiscard]] pid_t pid() const { return pid_; }

    // Its output has ended: it has died, or is about to.
    [[nodiscard]] bool ended() const { return output_ < 0; }
    // Waits for its end; its exit status, or 1000 and the number of the signal that killed it.
    int wait();

    // Moves the bytes of all these children for at most that long; calls their on_line.
    static void move_bytes(const std::vector<Child *> &children, int timeout_ms);

  private:
    void write_some();
    void read_some();

    pid_t pid_ = -1;
    int input_ = -1;
    int output_ = -1;
    std::string unwritten_;
    std::string unended_; // the beginning of a line
    std::function<void(const std::string &)> on_line_;
    bool reaped_ = false;
};

} // namespace soak
