// System V semaphore locks: sets of one semaphore whose value 1 means free and 0 held.
#include "base/log.h"
#include "base/raii.h"

#include <bridge/ipc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/sem.h>

namespace bri::ipc {

namespace {

constexpr int kMode = 0777;

// The C library leaves this union to its callers. It is passed as it stands wherever a command takes an argument:
// where unions travel by reference, a plain number in its place would be taken for an address.
union SemArgument {
    int value;
    semid_ds *status;
    unsigned short *all;
};

bri_sem_lock *new_lock() {
    return static_cast<bri_sem_lock *>(std::calloc(1, sizeof(bri_sem_lock)));
}

// Nobody looks whether it worked: who cannot set a semaphore cannot do anything else about it either.
void set_free(int semid) {
    SemArgument argument{};
    argument.value = 1;
    semctl(semid, 0, SETVAL, argument);
}

bool used_before(int semid) {
    semid_ds status{};
    SemArgument argument{};
    argument.status = &status;
    semctl(semid, 0, IPC_STAT, argument);
    return status.sem_otime != 0;
}

// A count of 0 joins a set of any size and never makes one, also not for the private key.
int join(int32_t key) {
    return semget(key, 0, 0);
}

// A set that was used before is forced free: its holder may have died in a way that the kernel could not undo, and the
// process that comes up again must get in. A set that was never used is left alone, since its creator may be just about
// to set it.
int create_or_join(int32_t key) {
    int semid = semget(key, 1, IPC_CREAT | IPC_EXCL | kMode);
    if (semid >= 0) {
        set_free(semid);
        return semid;
    }
    if (errno != EEXIST)
        return -1;
    semid = join(key);
    if (semid >= 0 && used_before(semid))
        set_free(semid);
    return semid;
}

// SEM_UNDO makes the kernel give the lock back when the holder dies. A failure is not retried, EINTR included: the
// caller goes on as if it held the lock.
void change(bri_sem_lock *lock, short by) {
    if (lock == nullptr)
        return;
    sembuf operation{0, by, SEM_UNDO};
    if (semop(lock->semid, &operation, 1) != 0)
        BRI_LOG(log::kSem, "lock sem failed:[%d] %s.\n", errno, std::strerror(errno)); // taking and releasing alike
}

} // namespace

} // namespace bri::ipc

using namespace bri;
using namespace bri::ipc;

bri_sem_lock *bridge_lock_create(int32_t key) {
    BRI_LOG(log::kSem, "Create SEM [key:%x]...\n", static_cast<uint32_t>(key));
    HeapPtr<bri_sem_lock> lock(new_lock());
    if (!lock.ok()) {
        BRI_LOG(log::kSem, "Create sem , malloc failed:[%d] %s.\n", errno, std::strerror(errno));
        return nullptr;
    }
    const int semid = create_or_join(key);
    if (semid < 0) {
        BRI_LOG(log::kSem, "Create sem failed:[%d] %s.\n", errno, std::strerror(errno));
        return nullptr;
    }
    lock->semid = semid;
    BRI_LOG(log::kSem, "Create SEM [key:%x, semid %d]...\n", static_cast<uint32_t>(key), semid);
    return lock.release();
}

bri_sem_lock *bridge_lock_get(int32_t key) {
    HeapPtr<bri_sem_lock> lock(new_lock());
    if (!lock.ok()) {
        BRI_LOG(log::kSem, "Get sem , malloc failed:[%d] %s.\n", errno, std::strerror(errno));
        return nullptr;
    }
    const int semid = join(key);
    if (semid < 0) {
        BRI_LOG(log::kSem, "Get sem failed:[%d] %s.\n", errno, std::strerror(errno));
        return nullptr;
    }
    lock->semid = semid;
    return lock.release();
}

// Readers and writers exclude each other alike; the two names mark the caller's intent.
void bridge_rd_lock(bri_sem_lock *lock) {
    change(lock, -1);
}
void bridge_wr_lock(bri_sem_lock *lock) {
    change(lock, -1);
}
void bridge_unlock(bri_sem_lock *lock) {
    change(lock, 1);
}
