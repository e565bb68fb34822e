#include "tests/system/process.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace test {

namespace {

using Clock = std::chrono::steady_clock;

class Deadline {
  public:
    explicit Deadline(int timeout_ms) : end_(Clock::now() + std::chrono::milliseconds(timeout_ms)) {}
    [[nodiscard]] int left_ms() const {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end_ - Clock::now()).count();
        return left > 0 ? static_cast<int>(left) : 0;
    }

  private:
    Clock::time_point end_;
};

std::vector<char *> pointers(std::vector<std::string> &texts) {
    std::vector<char *> result;
    for (std::string &text : texts)
        result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

std::vector<std::string> environment_with(const std::vector<std::string> &entries) {
    std::vector<std::string> all = entries; // before the inherited ones: the first of a name counts
    for (char **entry = environ; *entry != nullptr; ++entry)
        all.emplace_back(*entry);
    return all;
}

} // namespace

Process::Process(const std::vector<std::string> &command, const std::vector<std::string> &environment) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDERR_FILENO);
    std::vector<std::string> words = command;
    std::vector<std::string> entries = environment_with(environment);
    const int failed =
        posix_spawn(&pid_, words[0].c_str(), &actions, nullptr, pointers(words).data(), pointers(entries).data());
    posix_spawn_file_actions_destroy(&actions);
    close(in[0]);
    close(out[1]);
    input_ = in[1];
    output_end_ = out[0];
    if (failed != 0)
        throw std::runtime_error("cannot start " + words[0]);
}

Process::Process(Process &&other) noexcept
    : pid_(std::exchange(other.pid_, -1)), input_(std::exchange(other.input_, -1)),
      output_end_(std::exchange(other.output_end_, -1)), output_(std::move(other.output_)), seen_(other.seen_),
      status_(other.status_) {}

Process::~Process() {
    if (pid_ > 0 && !status_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    for (const int fd : {input_, output_end_})
        if (fd >= 0)
            close(fd);
}

void Process::write_line(const std::string &line) const {
    const std::string text = line + "\n";
    EXPECT_EQ(write(input_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

void Process::read_output(int timeout_ms) {
    pollfd descriptor{output_end_, POLLIN, 0};
    if (poll(&descriptor, 1, timeout_ms) <= 0)
        return;
    char piece[4096];
    const ssize_t length = read(output_end_, piece, sizeof piece);
    if (length > 0)
        output_.append(piece, static_cast<size_t>(length));
    else
        poll(nullptr, 0, timeout_ms < 10 ? timeout_ms : 10); // ended: nothing more will come
}

testing::AssertionResult Process::shows(const std::string &text, int timeout_ms) {
    const Deadline deadline(timeout_ms);
    for (;;) {
        const size_t found = output_.find(text, seen_);
        if (found != std::string::npos) {
            seen_ = found + text.size();
            return testing::AssertionSuccess();
        }
        if (deadline.left_ms() == 0)
            return testing::AssertionFailure() << "no \"" << text << "\" in:\n" << output_;
        read_output(deadline.left_ms());
    }
}

void Process::drain() {
    for (size_t before = output_.size() + 1; before != output_.size();) {
        before = output_.size();
        read_output(0);
    }
}

int Process::count(const std::string &text) {
    drain();
    int times = 0;
    for (size_t at = 0; (at = output_.find(text, at)) != std::string::npos; at += text.size())
        ++times;
    return times;
}

void Process::signal(int number) const {
    EXPECT_EQ(kill(pid_, number), 0);
}

std::optional<int> Process::wait(int timeout_ms) {
    const Deadline deadline(timeout_ms);
    while (!status_) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_)
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
        else if (deadline.left_ms() == 0)
            return std::nullopt;
        read_output(status_ ? 0 : 5); // keeps the pipe from filling up
    }
    return status_;
}

std::optional<int> Process::end() {
    signal(SIGTERM);
    return wait();
}

} // namespace test
