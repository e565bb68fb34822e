#include "tests/support/faults.h"

#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <semaphore.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>

namespace test::faults {

Hooks hooks;

namespace {

constexpr std::array kCalls{"malloc",    "calloc",   "realloc",  "socket",       "bind",     "connect", "setsockopt",
                            "send",      "sendmsg",  "recv",     "sendto",       "recvfrom", "read",    "write",
                            "close",     "open",     "mkdir",    "chmod",        "access",   "fopen",   "shmget",
                            "shmat",     "shmdt",    "shmctl",   "semget",       "semctl",   "semop",   "sem_open",
                            "sem_close", "sem_post", "sem_wait", "sem_getvalue", "sysinfo",  "getpid"};

struct Arm {
    std::atomic<int> calls{0};
    std::atomic<int> first{0}; // absolute number of the first failing call, 0 for none
    std::atomic<int> times{0};
    std::atomic<int> error{0};
};
std::array<Arm, kCalls.size()> arms;
std::atomic<int> failed{0};
std::atomic<int> blocks{0};

template <class T> T *count_block(T *block) {
    if (block != nullptr)
        ++blocks;
    return block;
}

Arm &arm_of(const std::string &call) {
    for (size_t index = 0; index < kCalls.size(); ++index)
        if (call == kCalls[index])
            return arms[index];
    std::fprintf(stderr, "faults: no such call: %s\n", call.c_str());
    std::abort();
}

template <size_t N> constexpr size_t index_of(const char (&call)[N]) {
    for (size_t index = 0; index < kCalls.size(); ++index)
        if (std::string_view(kCalls[index]) == call)
            return index;
    return kCalls.size();
}

// Counts one call; true when it has to fail.
bool hit(Arm &arm) {
    if (paused != 0)
        return false;
    const int number = ++arm.calls;
    const int first = arm.first;
    if (first == 0 || number < first || number >= first + arm.times)
        return false;
    ++failed;
    errno = arm.error;
    return true;
}

std::map<std::string, std::string> &redirections() {
    static std::map<std::string, std::string> map;
    return map;
}

const char *where(const char *path) {
    if (path == nullptr || redirections().empty())
        return path;
    const Pause pause;
    const auto found = redirections().find(path);
    return found == redirections().end() ? path : found->second.c_str();
}

} // namespace

void fail(const std::string &call, int nth, int error, int times) {
    Arm &arm = arm_of(call);
    arm.error = error;
    arm.times = times;
    arm.first = arm.calls + nth;
}

int calls(const std::string &call) {
    return arm_of(call).calls;
}
int injected() {
    return failed;
}
int live_blocks() {
    return blocks;
}

void clear() {
    for (Arm &arm : arms) {
        arm.calls = 0;
        arm.first = 0;
    }
    failed = 0;
    hooks = Hooks{};
    redirections().clear();
}

void redirect(const std::string &path, const std::string &instead) {
    redirections()[path] = instead;
}

} // namespace test::faults

namespace faults = test::faults;

#define HIT(name)    faults::hit(faults::arms[faults::index_of(#name)])
#define HOOKED(name) (faults::hooks.name && faults::paused == 0)

// A call with a hook: fail if armed, else the hook, else the real call.
#define WRAP_HOOKED(result, name, parameters, arguments)                                                               \
    extern "C" result __real_##name parameters;                                                                        \
    extern "C" result __wrap_##name parameters;                                                                        \
    result __wrap_##name parameters {                                                                                  \
        if (HIT(name))                                                                                                 \
            return static_cast<result>(-1);                                                                            \
        if (HOOKED(name))                                                                                              \
            return faults::hooks.name arguments;                                                                       \
        return __real_##name arguments;                                                                                \
    }                                                                                                                  \
    result faults::real_##name parameters {                                                                            \
        return __real_##name arguments;                                                                                \
    }

#define WRAP(result, name, failure, parameters, arguments)                                                             \
    extern "C" result __real_##name parameters;                                                                        \
    extern "C" result __wrap_##name parameters;                                                                        \
    result __wrap_##name parameters {                                                                                  \
        if (HIT(name))                                                                                                 \
            return failure;                                                                                            \
        return __real_##name arguments;                                                                                \
    }

WRAP_HOOKED(int, socket, (int domain, int type, int protocol), (domain, type, protocol))
WRAP_HOOKED(int, bind, (int fd, const sockaddr *address, socklen_t length), (fd, address, length))
WRAP_HOOKED(int, connect, (int fd, const sockaddr *address, socklen_t length), (fd, address, length))
WRAP_HOOKED(int, setsockopt, (int fd, int level, int name, const void *value, socklen_t length),
            (fd, level, name, value, length))
WRAP_HOOKED(ssize_t, send, (int fd, const void *data, size_t size, int flags), (fd, data, size, flags))
WRAP_HOOKED(ssize_t, sendmsg, (int fd, const msghdr *message, int flags), (fd, message, flags))
WRAP_HOOKED(ssize_t, recv, (int fd, void *data, size_t size, int flags), (fd, data, size, flags))
WRAP_HOOKED(ssize_t, sendto, (int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t length),
            (fd, data, size, flags, to, length))
WRAP_HOOKED(ssize_t, recvfrom, (int fd, void *data, size_t size, int flags, sockaddr *from, socklen_t *length),
            (fd, data, size, flags, from, length))
WRAP_HOOKED(ssize_t, read, (int fd, void *data, size_t size), (fd, data, size))
WRAP_HOOKED(ssize_t, write, (int fd, const void *data, size_t size), (fd, data, size))
WRAP_HOOKED(int, close, (int fd), (fd))

WRAP(int, mkdir, -1, (const char *path, mode_t mode), (faults::where(path), mode))
WRAP(int, chmod, -1, (const char *path, mode_t mode), (faults::where(path), mode))
WRAP(int, access, -1, (const char *path, int mode), (faults::where(path), mode))
WRAP(int, shmget, -1, (key_t key, size_t size, int flags), (key, size, flags))
WRAP(void *, shmat, reinterpret_cast<void *>(-1), (int id, const void *at, int flags), (id, at, flags))
WRAP(int, shmdt, -1, (const void *at), (at))
WRAP(int, shmctl, -1, (int id, int command, shmid_ds *buffer), (id, command, buffer))
WRAP(int, semget, -1, (key_t key, int count, int flags), (key, count, flags))
WRAP(int, semop, -1, (int id, sembuf *operations, size_t count), (id, operations, count))
WRAP(int, sem_close, -1, (sem_t * sem), (sem))
WRAP(int, sem_post, -1, (sem_t * sem), (sem))
WRAP(int, sem_wait, -1, (sem_t * sem), (sem))
WRAP(int, sem_getvalue, -1, (sem_t * sem, int *value), (sem, value))
WRAP(int, sysinfo, -1, (struct sysinfo * info), (info))

extern "C" {

void *__real_malloc(size_t size);
void *__wrap_malloc(size_t size);
void *__wrap_malloc(size_t size) {
    if (HIT(malloc))
        return nullptr;
    return faults::count_block(HOOKED(malloc) ? faults::hooks.malloc(size) : __real_malloc(size));
}

void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size) {
    return HIT(calloc) ? nullptr : faults::count_block(__real_calloc(count, size));
}

void *__real_realloc(void *old, size_t size);
void *__wrap_realloc(void *old, size_t size);
void *__wrap_realloc(void *old, size_t size) {
    if (HIT(realloc))
        return nullptr;
    void *block = __real_realloc(old, size);
    return old == nullptr ? faults::count_block(block) : block;
}

void __real_free(void *block);
void __wrap_free(void *block);
void __wrap_free(void *block) {
    if (block != nullptr)
        --faults::blocks;
    __real_free(block);
}

pid_t __real_getpid(void);
pid_t __wrap_getpid(void);
pid_t __wrap_getpid(void) {
    HIT(getpid);
    if (HOOKED(getpid))
        return faults::hooks.getpid();
    return __real_getpid();
}

// What the C library does inside is its own, also where it is linked statically.
FILE *__real_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode);
FILE *__wrap_fopen(const char *path, const char *mode) {
    if (HIT(fopen))
        return nullptr;
    const faults::Pause pause;
    return __real_fopen(faults::where(path), mode);
}

int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...) {
    if (HIT(open))
        return -1;
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return __real_open(faults::where(path), flags, mode);
}

sem_t *__real_sem_open(const char *name, int flags, ...);
sem_t *__wrap_sem_open(const char *name, int flags, ...);
sem_t *__wrap_sem_open(const char *name, int flags, ...) {
    if (HIT(sem_open))
        return SEM_FAILED;
    mode_t mode = 0;
    unsigned value = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        value = va_arg(arguments, unsigned);
        va_end(arguments);
    }
    const faults::Pause pause;
    return __real_sem_open(name, flags, mode, value);
}

// Always called with the union where a command takes an argument; the time of the last operation is restored where the
// emulator reports it as 0 (see sem_time()).
union test_semun {
    int value;
    semid_ds *status;
    unsigned short *array;
};
int __real_semctl(int id, int number, int command, ...);
#if defined(__powerpc__) && !defined(__powerpc64__)
// qemu-user stores the time of the last operation in the upper half of the kernel's 64 bits, which the 32-bit call
// drops. The call for 64-bit times shows both.
int __semctl64(int id, int number, int command, ...);
static time_t last_operation(int id) {
    struct {
        ipc_perm permissions;
        int64_t operation;
        int64_t change;
        unsigned long count;
        unsigned long reserved[2];
    } status{};
    union {
        int value;
        void *status;
    } argument{};
    argument.status = &status;
    if (__semctl64(id, 0, IPC_STAT, argument) != 0)
        return 0;
    return static_cast<time_t>(status.operation != 0 && static_cast<int32_t>(status.operation) == 0
                                   ? status.operation >> 32
                                   : status.operation);
}
#endif
int __wrap_semctl(int id, int number, int command, ...);
int __wrap_semctl(int id, int number, int command, ...) {
    if (HIT(semctl))
        return -1;
    if (command != SETVAL && command != IPC_STAT && command != SETALL && command != GETALL && command != IPC_SET)
        return __real_semctl(id, number, command);
    va_list arguments;
    va_start(arguments, command);
    test_semun argument = va_arg(arguments, test_semun);
    va_end(arguments);
    const int result = __real_semctl(id, number, command, argument);
#if defined(__powerpc__) && !defined(__powerpc64__)
    if (command == IPC_STAT && result == 0 && argument.status->sem_otime == 0)
        argument.status->sem_otime = last_operation(id);
#endif
    return result;
}

} // extern "C"
