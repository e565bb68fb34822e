#include "sandbox/control.h"

#include <event2/buffer.h>

#include <cstdlib>
#include <sys/socket.h>

namespace sandbox {

namespace {

constexpr size_t kLineLimit = size_t{1} << 20; // a command with the largest payload in hexadecimal has room

} // namespace

class Control::Peer : Pinned {
  public:
    Peer(Control &control, evutil_socket_t descriptor)
        : control_(control),
          channel_(bufferevent_socket_new(control.sandbox_.loop.base(), descriptor, BEV_OPT_CLOSE_ON_FREE)),
          stream_(control.sandbox_, {[this](const Answer &answer) { answered(answer); },
                                     [this](const std::string &error) {
                                         failed(error);
                                         return true;
                                     }}) {
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
    void failed(const std::string &error) {
        reply("error", json_.front() ? Fields{{"error", error}}.dump() + "\n" : escaped(error) + "\n");
        json_.pop_front();
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

Control::Control(Sandbox &sandbox, const std::string &tmpdir)
    : sandbox_(sandbox), path_(socket_path(tmpdir, ".control")) {}

void Control::listen() {
    acceptor_.emplace(sandbox_.loop, path_, SOCK_STREAM, Access::kOwner, [this](evutil_socket_t descriptor) {
        peers_.push_back(std::make_shared<Peer>(*this, descriptor));
    });
}

} // namespace sandbox
