#include "tools/replay/peer.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <linux/sockios.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace replay {

namespace {

// The calls in which a loop waits; not every machine has all of them.
constexpr long kWaits[] = {
    SYS_epoll_pwait,  SYS_pselect6, SYS_ppoll,
#ifdef SYS_epoll_wait
    SYS_epoll_wait,
#endif
#ifdef SYS_epoll_pwait2
    SYS_epoll_pwait2,
#endif
#ifdef SYS_select
    SYS_select,
#endif
#ifdef SYS_poll
    SYS_poll,
#endif
};

std::string proc_file(pid_t process, const char *name) {
    return "/proc/" + std::to_string(process) + '/' + name;
}

// "PID (NAME) STATE ...", where the name may hold anything.
bool sleeps(pid_t process) {
    std::ifstream file(proc_file(process, "stat"));
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const size_t behind_name = text.rfind(')');
    return behind_name != std::string::npos && text.compare(behind_name, 4, ") S ") == 0;
}

bool is_in_its_loop(pid_t process) {
    std::ifstream file(proc_file(process, "syscall"));
    std::string word; // a number, or "running"
    if (!(file >> word))
        return sleeps(process);
    return std::ranges::any_of(kWaits, [&](long call) { return word == std::to_string(call); });
}

} // namespace

pid_t process_behind(int socket) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 ? peer.pid : -1;
}

bool has_handled_everything(int socket, pid_t process) {
    int unread = 0;
    return ioctl(socket, SIOCOUTQ, &unread) == 0 && unread == 0 && is_in_its_loop(process);
}

} // namespace replay
