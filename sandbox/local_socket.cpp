#include "sandbox/local_socket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/un.h>

namespace sandbox {

namespace {

// Clients build the path in a buffer of this size and cut what does not fit.
constexpr size_t kClientPathBuffer = 64;

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

// The mode of a file of that kind, whatever the umask is; another user's stays as it is. No link is followed.
void set_mode(const std::string &path, mode_t kind, mode_t mode) {
    const Fd file(open(path.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (file.ok() && fstat(file.get(), &status) == 0 && (status.st_mode & S_IFMT) == kind)
        static_cast<void>(chmod(("/proc/self/fd/" + std::to_string(file.get())).c_str(), mode));
}

void make_directory(const std::string &directory) {
    constexpr mode_t like_tmp = 01777;
    if (mkdir(directory.c_str(), 0777) != 0 && errno != EEXIST)
        fail_with("cannot make " + directory);
    set_mode(directory, S_IFDIR, like_tmp);
}

bool process_listens(const sockaddr *address, socklen_t length, int type) {
    const Fd probe(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return connect(probe.get(), address, length) == 0 || errno == EAGAIN;
}

void remove_socket(const std::string &path) {
    struct stat status {};
    if (lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode))
        unlink(path.c_str());
}

int listen_at(const std::string &path, int type, Access access) {
    make_directory(path.substr(0, path.rfind('/')));
    const sockaddr_un unix_address = address_of(path);
    const auto *address = reinterpret_cast<const sockaddr *>(&unix_address);
    fail_if(process_listens(address, sizeof unix_address, type), "a server is already listening at " + path);
    remove_socket(path);
    Fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const mode_t before = umask(access == Access::kOwner ? 0177 : 0);
    const bool bound = fd.ok() && bind(fd.get(), address, sizeof unix_address) == 0;
    const int error = errno;
    umask(before);
    errno = error;
    if (!bound || listen(fd.get(), SOMAXCONN) != 0)
        fail_with("cannot listen at " + path);
    return fd.release();
}

} // namespace

void fail_with(const std::string &what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

std::string socket_path(const std::string &tmpdir, const std::string &name) {
    std::string path = tmpdir + "/bridge/" + name;
    fail_if(path.size() >= kClientPathBuffer, "TMPDIR is too long for the clients: " + tmpdir);
    return path;
}

Acceptor::Acceptor(Loop &loop, std::string path, int type, Access access, Accept accept, std::function<void()> failed)
    : path_(std::move(path)), accept_(std::move(accept)), failed_(std::move(failed)) {
    const auto on_accept = [](evconnlistener *, evutil_socket_t descriptor, sockaddr *, int, void *self) {
        static_cast<Acceptor *>(self)->accept_(descriptor);
    };
    const auto on_error = [](evconnlistener *, void *self) { static_cast<Acceptor *>(self)->failed_(); };
    const unsigned options = LEV_OPT_CLOSE_ON_FREE | LEV_OPT_CLOSE_ON_EXEC;
    listener_.reset(evconnlistener_new(loop.base(), on_accept, this, options, 0, listen_at(path_, type, access)));
    evconnlistener_set_error_cb(listener_.get(), on_error);
}

Acceptor::~Acceptor() {
    listener_.reset();
    remove_socket(path_);
}

int connect_to(const std::string &path, int type) {
    const sockaddr_un address = address_of(path);
    Fd fd(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (!fd.ok() || connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        fail_with("no server at " + path);
    return fd.release();
}

bool send_all(int fd, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t length = send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (length < 0 && errno != EINTR)
            return false;
        bytes.remove_prefix(length > 0 ? static_cast<size_t>(length) : 0);
    }
    return true;
}

ControlClient::ControlClient(const std::string &tmpdir) : fd_(connect_to(socket_path(tmpdir, ".control"))) {}

ControlClient::Reply ControlClient::run(const std::string &command, bool json) {
    const std::string line = (json ? "json " : "text ") + command + "\n";
    if (!send_all(fd_.get(), line))
        fail_with("the server has gone");
    size_t end = 0;
    while ((end = input_.find('\n')) == std::string::npos)
        read_more();
    const size_t blank = input_.find(' ');
    const size_t size = std::stoul(input_.substr(blank + 1));
    while (input_.size() < end + 1 + size)
        read_more();
    Reply reply{input_.substr(0, blank) == "ok", input_.substr(end + 1, size)};
    input_.erase(0, end + 1 + size);
    return reply;
}

void ControlClient::read_more() {
    char piece[65536];
    const ssize_t length = recv(fd_.get(), piece, sizeof piece, 0);
    if (length <= 0) // also when a signal ends this process
        throw std::runtime_error(length < 0 && errno == EINTR ? "interrupted" : "the server has gone");
    input_.append(piece, static_cast<size_t>(length));
}

} // namespace sandbox
