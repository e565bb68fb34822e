#include "tests/soak/child.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace soak {

namespace {

constexpr short kEnded = POLLHUP | POLLERR;

// In the child between fork and exec. It must not outlive the driver, however that ends.
[[noreturn]] void become(std::vector<std::string> command, const std::vector<std::string> &environment, int in,
                         int out) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(in, STDIN_FILENO);
    dup2(out, STDOUT_FILENO);
    for (std::string entry : environment)
        putenv(strdup(entry.c_str()));
    std::vector<char *> words;
    for (std::string &word : command)
        words.push_back(word.data());
    words.push_back(nullptr);
    execv(words[0], words.data());
    _exit(127);
}

void close_end(int &fd) {
    if (fd >= 0)
        close(fd);
    fd = -1;
}

} // namespace

Child::Child(const std::vector<std::string> &command, const std::vector<std::string> &environment,
             std::function<void(const std::string &)> on_line)
    : on_line_(std::move(on_line)) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
        throw std::runtime_error("no pipe");
    pid_ = fork();
    if (pid_ == 0)
        become(command, environment, in[0], out[1]);
    close(in[0]);
    close(out[1]);
    input_ = in[1];
    output_ = out[0];
    if (pid_ < 0)
        throw std::runtime_error("no process");
    fcntl(input_, F_SETFL, O_NONBLOCK);
    fcntl(output_, F_SETFL, O_NONBLOCK);
}

Child::~Child() {
    if (pid_ > 0 && !reaped_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    close_end(input_);
    close_end(output_);
}

void Child::tell(const std::string &line) {
    unwritten_ += line + "\n";
    write_some();
}

void Child::end_input() {
    close_end(input_);
}

void Child::signal(int number) const {
    if (!reaped_)
        kill(pid_, number);
}

int Child::wait() {
    int status = 0;
    while (!ended())
        move_bytes({this}, 100);
    waitpid(pid_, &status, 0);
    reaped_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

void Child::write_some() {
    while (input_ >= 0 && !unwritten_.empty()) {
        const ssize_t written = write(input_, unwritten_.data(), unwritten_.size());
        if (written <= 0)
            return;
        unwritten_.erase(0, static_cast<size_t>(written));
    }
}

void Child::read_some() {
    char piece[65536];
    const ssize_t length = read(output_, piece, sizeof piece);
    if (length < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    if (length <= 0)
        return close_end(output_);
    unended_.append(piece, static_cast<size_t>(length));
    size_t begin = 0;
    for (size_t end = 0; (end = unended_.find('\n', begin)) != std::string::npos; begin = end + 1)
        on_line_(unended_.substr(begin, end - begin));
    unended_.erase(0, begin);
}

void Child::move_bytes(const std::vector<Child *> &children, int timeout_ms) {
    std::vector<pollfd> ends;
    for (const Child *child : children) {
        ends.push_back({child->output_, POLLIN, 0});
        ends.push_back({child->unwritten_.empty() ? -1 : child->input_, POLLOUT, 0});
    }
    if (poll(ends.data(), ends.size(), timeout_ms) <= 0)
        return;
    for (size_t i = 0; i < children.size(); ++i) {
        if ((ends[2 * i].revents & (POLLIN | kEnded)) != 0)
            children[i]->read_some();
        if ((ends[2 * i + 1].revents & POLLOUT) != 0)
            children[i]->write_some();
    }
}

} // namespace soak
