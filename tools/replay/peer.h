// The process at the other end of a connection, as far as the kernel tells.
#pragma once

#include <sys/types.h>

namespace replay {

// The process that connected; -1 when it cannot be told.
[[nodiscard]] pid_t process_behind(int socket);

// Whether it has read all that was written and has come back to its loop: it waits for descriptors or time. What its
// other threads do is not looked at. Where the kernel does not tell what a process waits for, one that sleeps counts.
[[nodiscard]] bool has_handled_everything(int socket, pid_t process);

} // namespace replay
