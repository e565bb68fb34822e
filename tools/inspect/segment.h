// The shared segments, looked at and never touched: found by key, mapped read-only, copied, let go.
#pragma once

#include "wire/segments.h"

#include <bridge/ipc.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/shm.h>

namespace inspect {

using wire::Segment;

// A segment that is there and cannot be read; what() is one line for people.
struct Unreadable : std::runtime_error {
    using std::runtime_error::runtime_error;
};
// One that is not there.
struct Missing : Unreadable {
    using Unreadable::Unreadable;
};

// What the kernel tells of a segment and of the semaphore of the same key.
struct Facts {
    int id;
    shmid_ds status;
    int sem_id;       // -1: there is none
    int sem_value;    // 1 free, 0 held
    int sem_last_pid; // the last process that changed it
};
[[nodiscard]] Facts facts_of(const Segment &segment, int32_t vsd);

// Processes make the exclusion segment when they first need it: that it alone is missing is no fault.
[[nodiscard]] bool may_be_missing(const Segment &segment, int32_t vsd);

// A copy of header and data.
template <class T> struct Snapshot {
    bri_shm_hdr header;
    T data;
};

// Copies the first `size` bytes of the data area to `data`.
void copy_segment(const Segment &segment, int32_t vsd, bri_shm_hdr &header, void *data, size_t size);

template <class T> [[nodiscard]] std::unique_ptr<const Snapshot<T>> look(const Segment &segment, int32_t vsd) {
    auto snapshot = std::make_unique<Snapshot<T>>();
    copy_segment(segment, vsd, snapshot->header, &snapshot->data, sizeof snapshot->data);
    return snapshot;
}

} // namespace inspect
