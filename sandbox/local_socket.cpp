#include "sandbox/local_socket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace sandbox {

namespace {

// Clients build the path in a buffer of this size and cut what does not fit.
constexpr size_t kClientPathBuffer = 64;

[[noreturn]] void fail(const std::string &what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

void make_directory(const std::string &directory) {
    if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
        fail("cannot make " + directory);
    chmod(directory.c_str(), 0777); // whatever the umask is; another user's directory stays as it is
}

bool process_listens(const sockaddr *address, socklen_t length, int type) {
    const bri::Fd probe(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return connect(probe.get(), address, length) == 0 || errno == EAGAIN;
}

} // namespace

std::string socket_path(const std::string &tmpdir, const std::string &name) {
    std::string path = tmpdir + "/bridge/" + name;
    if (path.size() >= kClientPathBuffer)
        throw std::runtime_error("TMPDIR is too long for the clients: " + tmpdir);
    return path;
}

int listen_at(const std::string &path, int type) {
    make_directory(path.substr(0, path.rfind('/')));
    sockaddr_un unix_address{};
    unix_address.sun_family = AF_UNIX;
    path.copy(unix_address.sun_path, sizeof unix_address.sun_path - 1);
    const auto *address = reinterpret_cast<const sockaddr *>(&unix_address);
    if (process_listens(address, sizeof unix_address, type))
        throw std::runtime_error("a server is already listening at " + path);
    unlink(path.c_str());
    bri::Fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.ok() || bind(fd.get(), address, sizeof unix_address) != 0 || listen(fd.get(), SOMAXCONN) != 0)
        fail("cannot listen at " + path);
    chmod(path.c_str(), 0777);
    return fd.release();
}

} // namespace sandbox
