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

// Creates or joins the lock, then the segment, and puts them in place of the handles of an earlier set-up. A host may
// have kept those: neither they nor their mapping are given up for as long as the process lives. Without a key nothing
// changes. Loop's thread.
[[nodiscard]] Result open(const Spec &spec, Handles &handles);

// The same for a manager {lock, shm, addresses ...}, whose other members become zero.
template <class Manager> [[nodiscard]] Result map(const Spec &spec, Manager &manager) {
    Handles handles{manager.lock, manager.shm};
    const Result result = open(spec, handles);
    if (result == Result::kNoKey)
        return result;
    manager = {};
    manager.lock = handles.lock;
    manager.shm = handles.shm;
    return result;
}

// Whether it is mapped, with the words that the port and the VLAN database have for a failure.
[[nodiscard]] bool mapped(Result result, const log::Category &category);

// Key, id, size and name (64 bytes) of a mapped segment's header.
void read_head(const bri_shm_hdr &header, uint32_t &key, uint32_t &shmid, uint32_t &size, char *name);

} // namespace bri::table
