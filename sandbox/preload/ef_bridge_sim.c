/* libef_bridge_sim.so: preloaded into a host daemon, it connects the daemon's generic-netlink sockets to the kernel's
 * double in bridge-sandbox. A sequenced-packet socket keeps what matters of netlink: message boundaries, peeking,
 * time-outs and polling. In a world of "bridge-sandbox run" the names of POSIX semaphores are the world's own, so that
 * two worlds share none and what is left can be found. Everything else goes to the system as it is.
 */
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <semaphore.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#define SIM_API __attribute__((visibility("default")))

/* The system's own. */
#define SYSTEM(call) ((__typeof__(call) *)dlsym(RTLD_NEXT, #call))

/* The address of the kernel's double; false without TMPDIR or with one that is too long. */
static bool kernel_address(struct sockaddr_un *address) {
    const char *directory = getenv("TMPDIR");
    memset(address, 0, sizeof *address);
    address->sun_family = AF_UNIX;
    const int length = directory == NULL ? -1
                                         : snprintf(address->sun_path, sizeof address->sun_path,
                                                    "%s/bridge/.kernel_socket", directory);
    return length > 0 && (size_t)length < sizeof address->sun_path;
}

static bool is_simulated(int fd) {
    struct sockaddr_un kernel;
    struct sockaddr_un peer;
    socklen_t length = sizeof peer;
    memset(&peer, 0, sizeof peer);
    return kernel_address(&kernel) && getpeername(fd, (struct sockaddr *)&peer, &length) == 0 &&
           peer.sun_family == AF_UNIX && strcmp(peer.sun_path, kernel.sun_path) == 0;
}

/* What socket() gives on a kernel without generic netlink when the double is not there. */
static int refuse(int fd) {
    if (fd >= 0)
        close(fd);
    errno = EPROTONOSUPPORT;
    return -1;
}

SIM_API int socket(int domain, int type, int protocol) {
    struct sockaddr_un kernel;
    if (domain != AF_NETLINK || protocol != NETLINK_GENERIC)
        return SYSTEM(socket)(domain, type, protocol);
    const int fd = SYSTEM(socket)(AF_UNIX, SOCK_SEQPACKET | (type & (SOCK_CLOEXEC | SOCK_NONBLOCK)), 0);
    if (fd < 0 || !kernel_address(&kernel) || connect(fd, (struct sockaddr *)&kernel, sizeof kernel) != 0)
        return refuse(fd);
    return fd;
}

/* The double learns the address, with its groups, from the first packet. */
SIM_API int bind(int fd, const struct sockaddr *address, socklen_t length) {
    if (address == NULL || address->sa_family != AF_NETLINK || !is_simulated(fd))
        return SYSTEM(bind)(fd, address, length);
    return send(fd, address, length, MSG_NOSIGNAL) == (ssize_t)length ? 0 : -1;
}

/* A kernel never ends a netlink socket. When the double has gone, every read gives the notice that the family has. */
static ssize_t family_gone(void *buffer, size_t size) {
    const struct {
        struct nlmsghdr head;
        struct genlmsghdr generic;
        struct nlattr none;
    } notice = {.head = {.nlmsg_len = sizeof notice, .nlmsg_type = GENL_ID_CTRL},
                .generic = {.cmd = CTRL_CMD_DELFAMILY, .version = 1},
                .none = {.nla_len = sizeof notice.none}};
    const size_t length = size < sizeof notice ? size : sizeof notice;
    memcpy(buffer, &notice, length);
    return (ssize_t)length;
}

SIM_API ssize_t recvfrom(int fd, void *buffer, size_t size, int flags, struct sockaddr *restrict from,
                         socklen_t *restrict length) {
    const ssize_t result = SYSTEM(recvfrom)(fd, buffer, size, flags, from, length);
    const bool ended = result == 0 || (result < 0 && errno == ECONNRESET);
    return ended && size != 0 && is_simulated(fd) ? family_gone(buffer, size) : result;
}

SIM_API ssize_t recv(int fd, void *buffer, size_t size, int flags) {
    return recvfrom(fd, buffer, size, flags, NULL, NULL);
}

/* "/name" as "/WORLD.name"; as it is outside of a world, and when it would be too long. */
static const char *semaphore_name(const char *name, char *buffer, size_t size) {
    const char *world = getenv("BRIDGE_WORLD");
    if (world == NULL || world[0] == '\0' || name == NULL)
        return name;
    const int length = snprintf(buffer, size, "/%s.%s", world, name[0] == '/' ? name + 1 : name);
    return length > 0 && (size_t)length < size ? buffer : name;
}

SIM_API sem_t *sem_open(const char *name, int flags, ...) {
    char own[256];
    name = semaphore_name(name, own, sizeof own);
    if ((flags & O_CREAT) == 0)
        return SYSTEM(sem_open)(name, flags);
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = va_arg(arguments, mode_t);
    const unsigned value = va_arg(arguments, unsigned);
    va_end(arguments);
    return SYSTEM(sem_open)(name, flags, mode, value);
}

SIM_API int sem_unlink(const char *name) {
    char own[256];
    return SYSTEM(sem_unlink)(semaphore_name(name, own, sizeof own));
}
