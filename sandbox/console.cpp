#include "sandbox/console.h"

#include <event2/buffer.h>

#include <cerrno>
#include <cstdlib>
#include <sys/stat.h>

namespace sandbox {

namespace {

constexpr size_t kLineLimit = size_t{1} << 20; // a command with the largest payload in hexadecimal has room

// Files and the null device never block and cannot be waited for.
bool always_readable(int descriptor) {
    struct stat status {};
    return fstat(descriptor, &status) != 0 || S_ISREG(status.st_mode) ||
           (S_ISCHR(status.st_mode) && isatty(descriptor) == 0);
}

} // namespace

CommandStream::CommandStream(Sandbox &sandbox, Answered answered, Failed failed)
    : sandbox_(sandbox), answered_(std::move(answered)), failed_(std::move(failed)),
      step_(sandbox.loop, [this] { step(); }), limit_(sandbox.loop,
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
        if (failed_(error.what()))
            wake();
        else
            script_.clear();
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
    answered_(answer ? *answer : ended.passed);
}

bool CommandStream::run_next() {
    const std::optional<std::string> line = sandbox_.ending ? std::nullopt : script_.next();
    if (!line)
        return false;
    Outcome outcome = run_command(sandbox_, *line, session_);
    if (const Answer *answer = std::get_if<Answer>(&outcome)) {
        answered_(*answer);
        return true;
    }
    wait_ = std::get<Wait>(std::move(outcome));
    timed_out_ = false;
    limit_.start(wait_->limit);
    return true;
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
        size_t begin = 0;
        for (size_t end = 0; (end = text_.find('\n', begin)) != std::string::npos; begin = end + 1)
            stream_.add_line(text_.substr(begin, end - begin));
        text_.erase(0, begin);
        return true;
    }
    if (length < 0 && errno == EINTR)
        return true;
    if (!text_.empty())
        stream_.add_line(text_); // a last line without a line end
    return false;
}

class Control::Peer : Pinned {
  public:
    Peer(Control &control, evutil_socket_t descriptor)
        : control_(control),
          channel_(bufferevent_socket_new(control.sandbox_.loop.base(), descriptor, BEV_OPT_CLOSE_ON_FREE)),
          stream_(
              control.sandbox_, [this](const Answer &answer) { answered(answer); },
              [this](const std::string &error) { return failed(error); }) {
        const auto on_read = [](bufferevent *, void *self) { static_cast<Peer *>(self)->read_lines(); };
        const auto on_end = [](bufferevent *, short, void *self) { static_cast<Peer *>(self)->leave(); };
        bufferevent_setcb(channel_.get(), on_read, nullptr, on_end, this);
        bufferevent_enable(channel_.get(), EV_READ | EV_WRITE);
        stream_.begin_now();
    }
    // Takes along what is still to be written, as far as the socket has room.
    ~Peer() {
        evbuffer *output = bufferevent_get_output(channel_.get());
        evbuffer_unfreeze(output, 1); // bufferevents write by themselves otherwise
        while (evbuffer_get_length(output) > 0 && evbuffer_write(output, bufferevent_getfd(channel_.get())) > 0) {
        }
    }

  private:
    void read_lines() {
        evbuffer *input = bufferevent_get_input(channel_.get());
        while (char *line = evbuffer_readln(input, nullptr, EVBUFFER_EOL_LF)) {
            take(line);
            std::free(line);
        }
        if (evbuffer_get_length(input) > kLineLimit)
            leave();
    }
    void take(const std::string &line) {
        const size_t blank = line.find(' ');
        const std::string form = line.substr(0, blank);
        if (blank == std::string::npos || (form != "text" && form != "json"))
            return reply("error", "a request is text or json, and a command\n");
        if (line.find("repeat", blank) == line.find_first_not_of(' ', blank))
            return reply("error", "a request is one command; \"ctl\" and scripts repeat\n");
        json_.push_back(form == "json");
        stream_.add_command(line.substr(blank + 1));
    }
    void answered(const Answer &answer) {
        reply("ok", json_.front() ? answer.json().dump() + "\n" : answer.text());
        json_.pop_front();
    }
    bool failed(const std::string &error) {
        reply("error", json_.front() ? Fields{{"error", error}}.dump() + "\n" : escaped(error) + "\n");
        json_.pop_front();
        return true;
    }
    void reply(const std::string &result, const std::string &text) {
        const std::string head = result + " " + std::to_string(text.size()) + "\n";
        bufferevent_write(channel_.get(), head.data(), head.size());
        bufferevent_write(channel_.get(), text.data(), text.size());
    }
    void leave() {
        control_.peers_.remove_if([this](const auto &peer) { return peer.get() == this; });
    }

    Control &control_;
    BufferEvent channel_;
    std::deque<bool> json_; // of each command that has not been answered yet
    CommandStream stream_;
};

void Control::listen() {
    acceptor_.emplace(sandbox_.loop, path_, SOCK_STREAM, Access::kOwner, [this](evutil_socket_t descriptor) {
        peers_.push_back(std::make_shared<Peer>(*this, descriptor));
    });
}

} // namespace sandbox
