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

struct Opened {
    bri_sem_lock *lock; // set also when only the segment failed
    bri_shm_handle *shm;
};

enum class Result { kOk, kNoKey, kNoLock, kNoSegment };

// Creates or joins the lock, then the segment.
[[nodiscard]] Result open(const Spec &spec, Opened &opened);

// Frees the handles of an earlier set-up. Its mapping stays: addresses in it are still in use.
void free_handles(const Opened &earlier);

// The same as open() with the words that the port and the VLAN database have for a failure. True when both are there.
[[nodiscard]] bool open_database(const Spec &spec, Opened &opened, const log::Category &category);

// Key, id, size and name (64 bytes) of a mapped segment's header.
void read_head(const bri_shm_hdr &header, uint32_t &key, uint32_t &shmid, uint32_t &size, char *name);

} // namespace bri::table
