#include "wire/segments.h"

#include "wire/value.h"

#include <bridge/bridge.h>

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <sys/sem.h>
#include <sys/shm.h>

namespace wire {

const Segment kPortSegment{"SWPORT-SHM", 0x22220001, sizeof(bri_portdb), record_of<bri_portdb>};
const Segment kVlanSegment{"VLAN-SHM", 0x11110001, sizeof(bri_vlandb), record_of<bri_vlandb>};
const Segment kExclusionSegment{"Port-Function-Mutex", 0x33330001, sizeof(bri_exclusion_table),
                                record_of<bri_exclusion_table>};
const Segment kGroupSegment{"VLAN-GROUP-SHM", 0x5A5B7C3D, sizeof(bri_vlan_groups), record_of<bri_vlan_groups>};

const std::vector<const Segment *> &all_segments() {
    static const std::vector<const Segment *> all{&kPortSegment, &kVlanSegment, &kExclusionSegment, &kGroupSegment};
    return all;
}

int32_t key_of(const Segment &segment, int32_t vsd) {
    return static_cast<int32_t>(segment.key_base + static_cast<uint32_t>(vsd));
}

int32_t vsd_of_environment() {
    const char *text = std::getenv("VSDID");
    if (text == nullptr)
        return 0;
    int32_t vsd = -1;
    const char *end = text + std::strlen(text);
    const auto [stopped, error] = std::from_chars(text, end, vsd);
    if (error != std::errc{} || stopped != end || vsd < 0 || *text == '-')
        throw std::invalid_argument("VSDID=" + printable(text) +
                                    " is no number of a virtual switch device (0 or more)");
    return vsd;
}

std::string text_of(const SystemObject &object) {
    return std::string(object.semaphore ? "semaphore" : "segment") + " of " + object.segment->name;
}

// Key 0 would ask for a new private object, also without IPC_CREAT.
std::vector<SystemObject> system_objects(int32_t vsd) {
    std::vector<SystemObject> objects;
    for (const Segment *segment : all_segments()) {
        const int32_t key = key_of(*segment, vsd);
        const int shm = key != IPC_PRIVATE ? shmget(key, 0, 0) : -1;
        const int sem = key != IPC_PRIVATE ? semget(key, 0, 0) : -1;
        if (shm >= 0)
            objects.push_back({segment, false, shm});
        if (sem >= 0)
            objects.push_back({segment, true, sem});
    }
    return objects;
}

bool remove(const SystemObject &object) {
    const int result = object.semaphore ? semctl(object.id, 0, IPC_RMID) : shmctl(object.id, IPC_RMID, nullptr);
    return result == 0 || errno == EINVAL || errno == EIDRM;
}

} // namespace wire
