#include "sandbox/console.h"

#include "sandbox/programs.h"

#include <cerrno>
#include <sys/stat.h>

namespace sandbox {

namespace {

// Files and the null device never block and cannot be waited for.
bool always_readable(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) != 0 || S_ISREG(status.st_mode) ||
           (S_ISCHR(status.st_mode) && isatty(descriptor) == 0);
}

} // namespace

CommandStream::CommandStream(Sandbox &sandbox, StreamOwner owner)
    : sandbox_(sandbox), owner_(std::move(owner)), step_(sandbox.loop, [this] { step(); }),
      limit_(sandbox.loop,
             [this] {
                 timed_out_ = true;
                 step();
             }),
      changes_(sandbox.trace.changed.subscribe([this] { wake(); })) {}

void CommandStream::add_line(std::string line) {
    script_.add(std::move(line));
    wake();
}

void CommandStream::add_script(const std::string &path) {
    script_.add_file(path);
    wake();
}

void CommandStream::wake() {
    if (!idle())
        step_.start(Microseconds(0));
}

void CommandStream::step() {
    try {
        look_at_wait();
        while (!wait_ && run_next())
            look_at_wait();
    } catch (const std::exception &error) {
        wait_.reset();
        limit_.cancel();
        fail(error.what());
    }
}

void CommandStream::look_at_wait() {
    if (!wait_)
        return;
    std::optional<Answer> answer = wait_->done();
    if (!answer && !timed_out_)
        return;
    const Wait ended = std::move(*wait_);
    wait_.reset();
    limit_.cancel();
    if (!answer && ended.timed_out)
        throw std::runtime_error(ended.timed_out());
    owner_.answered(answer ? *answer : ended.passed);
}

bool CommandStream::run_next() {
    const std::optional<std::string> line = sandbox_.ending ? std::nullopt : script_.next();
    if (!line)
        return false;
    Outcome outcome = run_command(sandbox_, *line, session_);
    if (!outcome.wait) {
        owner_.answered(outcome.answer);
        return true;
    }
    wait_ = std::move(outcome.wait);
    timed_out_ = false;
    limit_.start(wait_->limit);
    return true;
}

void CommandStream::fail(const std::string &error) {
    if (owner_.failed(error))
        wake();
    else
        script_.clear();
}

StandardInput::StandardInput(Loop &loop, CommandStream &stream) : stream_(stream) {
    if (always_readable(STDIN_FILENO)) {
        while (read_some()) {
        }
        return;
    }
    const auto on_readable = [](evutil_socket_t, short, void *argument) {
        auto &self = *static_cast<StandardInput *>(argument);
        if (self.read_some())
            return;
        self.readable_.reset();
        say("end of standard input; the server goes on until it is ended by a signal or \"bridge-sandbox ctl quit\"");
    };
    readable_.reset(event_new(loop.base(), STDIN_FILENO, EV_READ | EV_PERSIST, on_readable, this));
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

} // namespace sandbox
