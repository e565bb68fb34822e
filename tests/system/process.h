// A child process with its standard input and its output, both streams of which come as one text.
#pragma once

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace test {

inline constexpr int kPatienceMs = 20000; // bound of every wait; reached only when a test fails

class Process {
  public:
    // `environment`: NAME=value entries on top of this process's own.
    explicit Process(const std::vector<std::string> &command, const std::vector<std::string> &environment = {});
    Process(Process &&other) noexcept;
    Process &operator=(Process &&other) = delete;
    ~Process(); // killed if it still runs, and reaped

    [[nodiscard]] pid_t pid() const { return pid_; }
    void write_line(const std::string &line) const;

    // Waits until the text stands in the output behind what the last such call found.
    [[nodiscard]] testing::AssertionResult shows(const std::string &text, int timeout_ms = kPatienceMs);
    // Takes the output that is there. Without that a process that prints much waits for room.
    void drain();
    // How often the text stands in the output so far.
    [[nodiscard]] int count(const std::string &text);
    [[nodiscard]] const std::string &output() const { return output_; }

    void signal(int number) const;
    // The exit status, or 1000 and the number of the signal that killed it; nothing when it does not end.
    [[nodiscard]] std::optional<int> wait(int timeout_ms = kPatienceMs);
    // Asks it to end; its exit status.
    [[nodiscard]] std::optional<int> end();

  private:
    void read_output(int timeout_ms);

    pid_t pid_ = -1;
    int input_ = -1;
    int output_end_ = -1;
    std::string output_;
    size_t seen_ = 0;
    std::optional<int> status_;
};

} // namespace test
