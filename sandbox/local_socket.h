// Local sockets below TMPDIR/bridge: those that this program listens at, and the other end of the control socket.
#pragma once

#include "sandbox/loop.h"
#include "sandbox/message.h"

#include <string>
#include <sys/socket.h>

namespace sandbox {

// Throws std::runtime_error with that and what errno says.
[[noreturn]] void fail_with(const std::string &what);

// The path of a socket of that name. Throws std::runtime_error when it is longer than the clients take.
std::string socket_path(const std::string &tmpdir, const std::string &name);

enum class Access { kEverybody, kOwner };

// Listens at a path, with a socket of that type, in the place of one whose process has died, and removes it at its end.
// Its directory is made for everybody, as /tmp is. Nothing but a socket is removed or has its mode changed.
class Acceptor : Pinned {
  public:
    // `accept` gets each connection; `failed` is told when one cannot be taken. Throws std::runtime_error when a
    // process still listens there, something else is in the way, or the system refuses.
    using Accept = std::function<void(evutil_socket_t descriptor)>;
    Acceptor(
        Loop &loop, std::string path, int type, Access access, Accept accept, std::function<void()> failed = [] {});
    ~Acceptor();

    // Those who come wait meanwhile.
    void hold() { evconnlistener_disable(listener_.get()); }
    void go_on() { evconnlistener_enable(listener_.get()); }

  private:
    std::string path_;
    Accept accept_;
    std::function<void()> failed_;
    Listener listener_;
};

// Connected. Throws std::runtime_error.
int connect_to(const std::string &path, int type = SOCK_STREAM);
// False when the other end does not take it, with errno.
bool send_all(int fd, std::string_view bytes);

class ControlClient {
  public:
    // Of the server whose TMPDIR that is. Throws std::runtime_error.
    explicit ControlClient(const std::string &tmpdir);

    struct Reply {
        bool ok;
        std::string text; // the lines, or the JSON object on one
    };
    // Waits for the answer. Throws std::runtime_error when the server has gone.
    Reply run(const std::string &command, bool json = false);

  private:
    void read_more();

    Fd fd_;
    std::string input_;
};

} // namespace sandbox
