#include "tools/inspect/segment.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/sem.h>

namespace inspect {

namespace {

std::string hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", value);
    return text;
}

template <class Failure = Unreadable>
[[noreturn]] void fail(const Segment &segment, int32_t vsd, const std::string &what) {
    throw Failure("segment " + std::string(segment.name) + " (key " +
                  hex(static_cast<uint32_t>(wire::key_of(segment, vsd))) + ", VSDID " + std::to_string(vsd) + ") " +
                  what);
}

// Key 0 would ask for a new private segment, also without IPC_CREAT.
int find(const Segment &segment, int32_t vsd) {
    const int32_t key = wire::key_of(segment, vsd);
    if (key == IPC_PRIVATE)
        fail<Missing>(segment, vsd, "cannot exist: the key 0 names nothing");
    const int id = shmget(key, 0, 0);
    if (id < 0 && errno == ENOENT)
        fail<Missing>(segment, vsd, "does not exist");
    if (id < 0)
        fail(segment, vsd, std::string("cannot be opened: ") + std::strerror(errno));
    return id;
}

shmid_ds status_of(const Segment &segment, int32_t vsd, int id) {
    shmid_ds status{};
    if (shmctl(id, IPC_STAT, &status) != 0)
        fail(segment, vsd, std::string("may not be read: ") + std::strerror(errno));
    return status;
}

struct Detach {
    void operator()(bri_shm_handle *handle) const { bridge_shm_dettach(handle); }
};
using Mapping = std::unique_ptr<bri_shm_handle, Detach>;

// The segment may be removed and made anew between the look at its size and the mapping; what is mapped is the one
// that was looked at when the key still names it afterwards.
Mapping map(const Segment &segment, int32_t vsd) {
    for (int attempt = 0; attempt < 5; ++attempt) {
        const int id = find(segment, vsd);
        const size_t bytes = status_of(segment, vsd, id).shm_segsz;
        const size_t needed = sizeof(bri_shm_hdr) + segment.size;
        if (bytes < needed)
            fail(segment, vsd,
                 "is too small: " + std::to_string(bytes) + " bytes instead of " + std::to_string(needed));
        Mapping mapping(bridge_shm_attach_rdonly(wire::key_of(segment, vsd)));
        if (mapping == nullptr)
            fail(segment, vsd, std::string("cannot be attached: ") + std::strerror(errno));
        if (find(segment, vsd) == id)
            return mapping;
    }
    fail(segment, vsd, "is being replaced all the time");
}

} // namespace

Facts facts_of(const Segment &segment, int32_t vsd) {
    Facts facts{};
    facts.id = find(segment, vsd);
    facts.status = status_of(segment, vsd, facts.id);
    facts.sem_id = semget(wire::key_of(segment, vsd), 0, 0);
    facts.sem_value = facts.sem_id >= 0 ? semctl(facts.sem_id, 0, GETVAL) : -1;
    facts.sem_last_pid = facts.sem_id >= 0 ? semctl(facts.sem_id, 0, GETPID) : -1;
    return facts;
}

void copy_segment(const Segment &segment, int32_t vsd, bri_shm_hdr &header, void *data, size_t size) {
    const Mapping mapping = map(segment, vsd);
    std::memcpy(&header, mapping->hdr, sizeof header);
    std::memcpy(data, mapping->data, std::min(size, segment.size));
}

bool may_be_missing(const Segment &segment, int32_t vsd) {
    if (&segment != &wire::kExclusionSegment)
        return false;
    const auto objects = wire::system_objects(vsd);
    return std::any_of(objects.begin(), objects.end(), [](const wire::SystemObject &object) {
        return !object.semaphore && object.segment != &wire::kExclusionSegment;
    });
}

} // namespace inspect
