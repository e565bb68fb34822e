#include "sandbox/control_client.h"

#include "sandbox/local_socket.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <sys/socket.h>

namespace sandbox {

ControlClient::ControlClient(const std::string &tmpdir) : fd_(connect_to(socket_path(tmpdir, ".control"))) {}

ControlClient::Reply ControlClient::run(const std::string &command, bool json) {
    const std::string line = (json ? "json " : "text ") + command + "\n";
    for (size_t sent = 0; sent < line.size();) {
        const ssize_t length = send(fd_.get(), line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
        if (length < 0 && errno != EINTR)
            throw std::runtime_error(std::string("the server has gone: ") + std::strerror(errno));
        sent += length > 0 ? static_cast<size_t>(length) : 0;
    }
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
