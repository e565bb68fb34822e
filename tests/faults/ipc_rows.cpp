// Locks, named semaphores, segments.
#include "tests/faults/rows.h"

#include <cstdlib>
#include <semaphore.h>
#include <sys/sem.h>
#include <sys/shm.h>

namespace test {

namespace {

constexpr uint32_t kBase = 0x33330001;
constexpr size_t kSize = 100;

int32_t g_key;
bri_sem_lock *g_lock;
bri_shm_handle *g_handle;

std::string semaphore_name() {
    return "/bri.faults." + std::to_string(getpid());
}
char g_name[64];

void no_lock(SweptHost &host) {
    const faults::Pause pause;
    g_key = host.key(kBase);
    g_lock = nullptr;
    const int set = semget(g_key, 0, 0);
    if (set >= 0)
        semctl(set, 0, IPC_RMID);
}
void a_lock(SweptHost &host) {
    g_key = host.key(kBase);
    free(bridge_lock_create(g_key));
    g_lock = nullptr;
}
void own_lock(SweptHost &host) {
    g_key = host.key(kBase);
    g_lock = bridge_lock_create(g_key);
}
void held_lock(SweptHost &host) {
    own_lock(host);
    bridge_wr_lock(g_lock);
}
void free_lock(SweptHost &) {
    free(g_lock);
}

// By the semaphore's value, since locking has no result.
Got changed_to(int value, void (*change)(bri_sem_lock *)) {
    change(g_lock);
    const faults::Pause pause;
    return semctl(g_lock->semid, 0, GETVAL) == value ? Got::kSuccess : Got::kFailure;
}

// The name lives until the host ends, and its value is above 0.
void named(SweptHost &host) {
    std::strcpy(g_name, semaphore_name().c_str());
    host.at_end = [] { sem_unlink(g_name); };
    bridge_plock_creat(g_name);
    bridge_psem_up(g_name);
}

void key_of(SweptHost &host) {
    g_key = host.key(kBase);
    g_handle = nullptr;
}
void a_segment(SweptHost &host) {
    key_of(host);
    bridge_shm_dettach(bridge_shm_create("unit", g_key, kSize));
}
void own_segment(SweptHost &host) {
    key_of(host);
    g_handle = bridge_shm_create("unit", g_key, kSize);
}
void detach(SweptHost &) {
    bridge_shm_dettach(g_handle);
}
void free_handle(SweptHost &) {
    free(g_handle);
}

const Effects kSegment{{"shmget", Got::kFailure},
                       {"shmctl", Got::kFailure},
                       {"shmat", Got::kFailure},
                       {"malloc", Got::kFailure, 0, 0, true}};
const Effects kLock{{"calloc", Got::kFailure}, {"semget", Got::kFailure}};
const Effects kLockMade{{"calloc", Got::kFailure}, {"semget", Got::kFailure}, {"semctl", Got::kSuccess}};
const Effects kOperated{{"semop", Got::kFailure}};

} // namespace

std::vector<Row> ipc_rows() {
    return {
        {"bridge_lock_create", Level::kBare, [](SweptHost &) { return made(g_lock = bridge_lock_create(g_key)); },
         kLockMade, 0, no_lock, free_lock},
        {"bridge_lock_create, one being there", Level::kBare,
         [](SweptHost &) { return made(g_lock = bridge_lock_create(g_key)); }, kLockMade, 0, a_lock, free_lock},
        {"bridge_lock_get", Level::kBare, [](SweptHost &) { return made(g_lock = bridge_lock_get(g_key)); }, kLock, 0,
         a_lock, free_lock},
        {"bridge_rd_lock", Level::kBare, [](SweptHost &) { return changed_to(0, bridge_rd_lock); }, kOperated, 0,
         own_lock, free_lock},
        {"bridge_wr_lock", Level::kBare, [](SweptHost &) { return changed_to(0, bridge_wr_lock); }, kOperated, 0,
         own_lock, free_lock},
        {"bridge_unlock", Level::kBare, [](SweptHost &) { return changed_to(1, bridge_unlock); }, kOperated, 0,
         held_lock, free_lock},
        {"bridge_plock_creat",
         Level::kBare,
         [](SweptHost &) { return one(bridge_plock_creat(g_name)); },
         {{"sem_open", Got::kFailure}, {"sem_close", Got::kSuccess}},
         0,
         named},
        {"bridge_close_plock",
         Level::kBare,
         [](SweptHost &) { return zero(bridge_close_plock(g_name)); },
         {{"sem_open", Got::kSuccess}, {"sem_close", Got::kFailure}},
         0,
         named},
        {"bridge_get_plock_value",
         Level::kBare,
         [](SweptHost &) {
             int value = 0;
             return one(bridge_get_plock_value(g_name, &value));
         },
         {{"sem_open", Got::kFailure}, {"sem_getvalue", Got::kFailure}},
         0,
         named},
        {"bridge_psem_up",
         Level::kBare,
         [](SweptHost &) { return zero(bridge_psem_up(g_name)); },
         {{"sem_open", Got::kFailure}, {"sem_post", Got::kFailure}},
         0,
         named},
        {"bridge_psem_down",
         Level::kBare,
         [](SweptHost &) { return zero(bridge_psem_down(g_name)); },
         {{"sem_open", Got::kFailure}, {"sem_wait", Got::kFailure}, {"sem_wait", Got::kSuccess, EINTR}},
         0,
         named},
        {"bridge_shm_create", Level::kBare,
         [](SweptHost &) { return made(g_handle = bridge_shm_create("unit", g_key, kSize)); }, kSegment, 0, key_of,
         detach},
        {"bridge_shm_attach", Level::kBare, [](SweptHost &) { return made(g_handle = bridge_shm_attach(g_key)); },
         kSegment, 0, a_segment, detach},
        {"bridge_shm_attach_rdonly", Level::kBare,
         [](SweptHost &) { return made(g_handle = bridge_shm_attach_rdonly(g_key)); }, kSegment, 0, a_segment, detach},
        {"bridge_shm_dettach",
         Level::kBare,
         [](SweptHost &) {
             bridge_shm_dettach(g_handle);
             return done();
         },
         {{"shmdt", Got::kSuccess, 0, 0, true}},
         0,
         own_segment},
        {"bridge_shm_destroy",
         Level::kBare,
         [](SweptHost &) {
             bridge_shm_destroy(g_handle->hdr);
             return done();
         },
         {{"shmdt", Got::kSuccess, 0, 0, true}, {"shmctl", Got::kSuccess}},
         0,
         own_segment,
         free_handle},
    };
}

} // namespace test
