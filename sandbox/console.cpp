#include "sandbox/console.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace sandbox {

namespace {

// Files and the null device never block and cannot be waited for.
bool always_readable(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) != 0 || S_ISREG(status.st_mode) ||
           (S_ISCHR(status.st_mode) && isatty(descriptor) == 0);
}

} // namespace

CommandStream::CommandStream(event_base *base, Commands &commands, Failed failed)
    : commands_(commands), failed_(std::move(failed)), step_(base, [this] { step(); }), limit_(base, [this] {
          timed_out_ = true;
          step();
      }) {}

void CommandStream::add_line(std::string line) {
    lines_.push_back(std::move(line));
    wake();
}

void CommandStream::wake() {
    if (wait_ || !lines_.empty())
        step_.start(Milliseconds(0));
}

void CommandStream::step() {
    if (wait_ && still_waiting())
        return;
    while (!wait_ && !lines_.empty())
        run_next();
}

bool CommandStream::still_waiting() {
    const bool done = wait_->done();
    if (!done && !timed_out_)
        return true;
    const std::string error = done ? "" : wait_->timed_out;
    limit_.cancel();
    wait_.reset();
    if (!error.empty())
        fail(error);
    return false;
}

void CommandStream::run_next() {
    const std::string line = lines_.front();
    lines_.pop_front();
    try {
        wait_ = commands_.run(line, state_);
    } catch (const std::exception &error) {
        return fail(error.what());
    }
    if (!wait_)
        return;
    timed_out_ = false;
    limit_.start(wait_->limit);
    step_.start(Milliseconds(0));
}

void CommandStream::fail(const std::string &error) {
    if (!failed_(error))
        lines_.clear();
}

StandardInput::StandardInput(event_base *base, CommandStream &stream) : stream_(stream) {
    if (always_readable(STDIN_FILENO)) {
        while (read_some()) {
        }
        return;
    }
    const auto on_readable = [](evutil_socket_t, short, void *argument) {
        auto &self = *static_cast<StandardInput *>(argument);
        if (!self.read_some())
            self.readable_.reset();
    };
    readable_.reset(event_new(base, STDIN_FILENO, EV_READ | EV_PERSIST, on_readable, this));
    event_add(readable_.get(), nullptr);
}

bool StandardInput::read_some() {
    char piece[4096];
    const ssize_t length = read(STDIN_FILENO, piece, sizeof piece);
    if (length > 0) {
        text_.append(piece, static_cast<size_t>(length));
        take_lines();
        return true;
    }
    if (length < 0 && errno == EINTR)
        return true;
    if (!text_.empty())
        stream_.add_line(text_); // a last line without a line end
    return false;
}

void StandardInput::take_lines() {
    size_t begin = 0;
    for (size_t end = 0; (end = text_.find('\n', begin)) != std::string::npos; begin = end + 1)
        stream_.add_line(text_.substr(begin, end - begin));
    text_.erase(0, begin);
}

void add_script(CommandStream &stream, const std::string &path) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error("cannot read " + path + ": " + std::strerror(errno));
    for (std::string line; std::getline(file, line);)
        stream.add_line(line);
}

} // namespace sandbox
