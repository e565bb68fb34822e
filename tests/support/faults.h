// The one seam for system calls and allocation. Every call listed in tests/CMakeLists.txt goes through here: a test
// can count calls, let the n-th one fail, or put a function in a call's place.
//
// The doubles themselves (log sink, event loop) run under Pause, so that what they allocate is neither counted nor
// failed.
#pragma once

#include <cerrno>
#include <functional>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>

namespace test::faults {

inline thread_local int paused = 0;

class Pause {
  public:
    Pause() { ++paused; }
    ~Pause() { --paused; }
    Pause(const Pause &) = delete;
    Pause &operator=(const Pause &) = delete;
};

// The nth call of that name from now (1: the next) and the `times - 1` after it fail with errno = error: -1, null or
// whatever the call's failure is. Arming again replaces.
void fail(const std::string &call, int nth, int error, int times = 1);

// Calls of that name since the last clear(), failed ones included.
int calls(const std::string &call);
// Calls that were made to fail since the last clear().
int injected();

// Blocks on the heap that the library, and whatever else is linked into the program, has taken and not given back. Only
// a difference means something.
int live_blocks();

// Forgets counters, failures, hooks and redirections. The fixtures call it.
void clear();

// A path that open, fopen, access, mkdir and chmod see as another one.
void redirect(const std::string &path, const std::string &instead);

// Hooks in a call's place; when unset the real call runs. real_* reach it from inside a hook.
struct Hooks {
    std::function<int(int domain, int type, int protocol)> socket;
    std::function<int(int fd, const sockaddr *address, socklen_t length)> bind;
    std::function<int(int fd, const sockaddr *address, socklen_t length)> connect;
    std::function<int(int fd, int level, int name, const void *value, socklen_t length)> setsockopt;
    std::function<ssize_t(int fd, const void *data, size_t size, int flags)> send;
    std::function<ssize_t(int fd, const msghdr *message, int flags)> sendmsg;
    std::function<ssize_t(int fd, void *data, size_t size, int flags)> recv;
    std::function<ssize_t(int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t length)>
        sendto;
    std::function<ssize_t(int fd, void *data, size_t size, int flags, sockaddr *from, socklen_t *length)> recvfrom;
    std::function<ssize_t(int fd, void *data, size_t size)> read;
    std::function<ssize_t(int fd, const void *data, size_t size)> write;
    std::function<int(int fd)> close;
    std::function<void *(size_t size)> malloc;
    std::function<pid_t()> getpid;
};
extern Hooks hooks;

int real_socket(int domain, int type, int protocol);
int real_bind(int fd, const sockaddr *address, socklen_t length);
int real_connect(int fd, const sockaddr *address, socklen_t length);
int real_setsockopt(int fd, int level, int name, const void *value, socklen_t length);
ssize_t real_send(int fd, const void *data, size_t size, int flags);
ssize_t real_sendmsg(int fd, const msghdr *message, int flags);
ssize_t real_recv(int fd, void *data, size_t size, int flags);
ssize_t real_sendto(int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t length);
ssize_t real_recvfrom(int fd, void *data, size_t size, int flags, sockaddr *from, socklen_t *length);
ssize_t real_read(int fd, void *data, size_t size);
ssize_t real_write(int fd, const void *data, size_t size);
int real_close(int fd);

} // namespace test::faults
