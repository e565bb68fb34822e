// POSIX named semaphores, addressed by name alone.
//
// Handles stay open, and no table of them is kept: the C library maps a name once a process and hands the same mapping
// out again, so that a call on a known name costs no memory and no descriptor, only one more count of users. That count
// is looked at by a close alone, and every close here pairs with an open of the same call.
#include "base/log.h"

#include <bridge/ipc.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <semaphore.h>

namespace bri::ipc {

namespace {

constexpr mode_t kMode = 0644;

sem_t *open_existing(const char *name) {
    return name != nullptr ? sem_open(name, 0) : SEM_FAILED;
}

void log_open_failure(const char *name) {
    if (name != nullptr)
        BRI_LOG(log::kSem, "sem_open %s error [%d] %s\n", name, errno, std::strerror(errno));
}

} // namespace

} // namespace bri::ipc

using namespace bri;
using namespace bri::ipc;

int bridge_plock_creat(const char *name) {
    if (name == nullptr)
        return 0;
    sem_t *sem = sem_open(name, O_CREAT | O_RDWR, kMode, 1U);
    if (sem == SEM_FAILED) {
        log_open_failure(name);
        return 0;
    }
    sem_close(sem);
    return 1;
}

int bridge_close_plock(const char *name) {
    sem_t *sem = open_existing(name);
    if (sem == SEM_FAILED)
        return 0;
    const int result = sem_close(sem);
    if (result != 0)
        BRI_LOG(log::kSem, "sem_close %s error [%d] %s\n", name, errno, std::strerror(errno));
    return result;
}

int bridge_get_plock_value(const char *name, int *value) {
    if (value == nullptr)
        return 0;
    sem_t *sem = open_existing(name);
    return sem != SEM_FAILED && sem_getvalue(sem, value) == 0 ? 1 : 0;
}

int bridge_psem_up(const char *name) {
    sem_t *sem = open_existing(name);
    if (sem == SEM_FAILED) {
        log_open_failure(name);
        return -1;
    }
    const int result = sem_post(sem);
    if (result != 0)
        BRI_LOG(log::kSem, "sem_post %s error [%d] %s\n", name, errno, std::strerror(errno));
    return result;
}

int bridge_psem_down(const char *name) {
    sem_t *sem = open_existing(name);
    if (sem == SEM_FAILED) {
        log_open_failure(name);
        return -1;
    }
    if (sem_wait(sem) == 0)
        return 0;
    const int error = errno;
    BRI_LOG(log::kSem, "sem_wait %s error [%d] %s\n", name, error, std::strerror(error));
    // One signal is waited out; a second one ends the wait.
    return error == EINTR ? sem_wait(sem) : -1;
}
