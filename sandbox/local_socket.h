// Listening sockets below TMPDIR/bridge, open to every user of the machine.
#pragma once

#include "base/raii.h"

#include <string>

namespace sandbox {

// The path of a socket of that name. Throws std::runtime_error when it is longer than the clients take.
std::string socket_path(const std::string &tmpdir, const std::string &name);

enum class Access { kEverybody, kOwner };

// A listening socket of that type at the path, in the place of one whose process has died. Its directory is made for
// everybody, as /tmp is. Nothing but a socket is removed or has its mode changed. Throws std::runtime_error when a
// process still listens there, something else is in the way, or the system refuses.
int listen_at(const std::string &path, int type, Access access = Access::kEverybody);

// Connected, of type SOCK_STREAM. Throws std::runtime_error.
int connect_to(const std::string &path);

// Removes what stands there when it is a socket.
void remove_socket(const std::string &path);

} // namespace sandbox
