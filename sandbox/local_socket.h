// Listening sockets below TMPDIR/bridge, open to every user of the machine.
#pragma once

#include "base/raii.h"

#include <string>

namespace sandbox {

// The path of a socket of that name. Throws std::runtime_error when it is longer than the clients take.
std::string socket_path(const std::string &tmpdir, const std::string &name);

// A listening socket of that type at the path, in the place of one whose process has died. Throws std::runtime_error
// when a process still listens there or the system refuses.
int listen_at(const std::string &path, int type);

} // namespace sandbox
