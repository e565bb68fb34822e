// The shared segments, looked at and never touched: found by key, mapped read-only, copied, let go.
#pragma once

#include <bridge/ipc.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/shm.h>
#include <vector>

namespace inspect {

struct Segment {
    const char *name;
    uint32_t key_base; // the VSDID is added
    size_t size;       // bytes of the data area
};

extern const Segment kPortSegment;
extern const Segment kVlanSegment; // carries the protocol registry too
extern const Segment kExclusionSegment;
extern const Segment kGroupSegment;
const std::vector<const Segment *> &all_segments();

// The number that key and VSDID make.
[[nodiscard]] int32_t key_of(const Segment &segment, int32_t vsd);

// A segment that is missing, or that is there and cannot be read; what() is one line for people.
struct Unreadable : std::runtime_error {
    using std::runtime_error::runtime_error;
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

// A text field of shared memory: within its bound, and without anything that a terminal would obey.
[[nodiscard]] std::string safe_text(const char *field, size_t bound);

} // namespace inspect
