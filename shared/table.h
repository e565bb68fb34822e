// Set-up of a table in shared memory: one key names its lock and its segment. What a failure is called and what the
// table's manager keeps is the owner's.
#pragma once

#include "base/log.h"

#include <bridge/ipc.h>

#include <cstddef>
#include <cstdint>

namespace bri::table {

struct Spec {
    uint32_t key_base; // VSDID is added
    const char *name;  // of the segment
    size_t size;       // bytes of the data area
};

struct Handles {
    bri_sem_lock *lock; // set also when only the segment failed
    bri_shm_handle *shm;
};

enum class Result { kOk, kNoKey, kNoLock, kNoSegment };

// Key of the table's lock and segment; 0 when it has no usable one.
[[nodiscard]] int32_t key_of(const Spec &spec);

// Holds on to the handles of an earlier set-up. A host may have kept them: neither they nor their mapping are given up
// for as long as the process lives. Loop's thread.
void keep(const Handles &earlier);

// Creates or joins the lock, then the segment.
[[nodiscard]] Result open(const Spec &spec, int32_t key, Handles &handles);

// Sets the table of a manager {lock, shm, addresses ...} up, anew when it was before: it is cleared first, and the
// addresses are left to the owner. Without a key nothing changes.
template <class Manager> [[nodiscard]] Result map(const Spec &spec, Manager &manager) {
    const int32_t key = key_of(spec);
    if (key == 0)
        return Result::kNoKey;
    keep({manager.lock, manager.shm});
    manager = {};
    Handles handles{};
    const Result result = open(spec, key, handles);
    manager.lock = handles.lock;
    manager.shm = handles.shm;
    return result;
}

// Whether it is mapped, with the words that the port and the VLAN database have for a failure.
[[nodiscard]] bool mapped(Result result, const log::Category &category);

// Key, id, size and name (64 bytes) of a mapped segment's header.
void read_head(const bri_shm_hdr &header, uint32_t &key, uint32_t &shmid, uint32_t &size, char *name);

} // namespace bri::table
