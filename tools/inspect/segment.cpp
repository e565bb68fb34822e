#include "tools/inspect/segment.h"

#include <bridge/port_db.h>
#include <bridge/port_exclusion.h>
#include <bridge/vlan_db.h>
#include <bridge/vlan_group.h>

#include <cerrno>
#include <cstring>
#include <sys/sem.h>

namespace inspect {

const Segment kPortSegment{"SWPORT-SHM", 0x22220001, sizeof(bri_portdb)};
const Segment kVlanSegment{"VLAN-SHM", 0x11110001, sizeof(bri_vlandb)};
const Segment kExclusionSegment{"Port-Function-Mutex", 0x33330001, sizeof(bri_exclusion_table)};
const Segment kGroupSegment{"VLAN-GROUP-SHM", 0x5A5B7C3D, sizeof(bri_vlan_groups)};

const std::vector<const Segment *> &all_segments() {
    static const std::vector<const Segment *> all{&kPortSegment, &kVlanSegment, &kExclusionSegment, &kGroupSegment};
    return all;
}

int32_t key_of(const Segment &segment, int32_t vsd) {
    return static_cast<int32_t>(segment.key_base + static_cast<uint32_t>(vsd));
}

namespace {

std::string hex(uint32_t value) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%x", value);
    return text;
}

[[noreturn]] void fail(const Segment &segment, int32_t vsd, const std::string &what) {
    throw Unreadable("segment " + std::string(segment.name) + " (key " +
                     hex(static_cast<uint32_t>(key_of(segment, vsd))) + ", VSDID " + std::to_string(vsd) + ") " + what);
}

// Key 0 would ask for a new private segment, also without IPC_CREAT.
int find(const Segment &segment, int32_t vsd) {
    const int32_t key = key_of(segment, vsd);
    if (key == IPC_PRIVATE)
        fail(segment, vsd, "cannot exist: the key 0 names nothing");
    const int id = shmget(key, 0, 0);
    if (id < 0)
        fail(segment, vsd,
             errno == ENOENT ? "does not exist" : std::string("cannot be opened: ") + std::strerror(errno));
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
        Mapping mapping(bridge_shm_attach_rdonly(key_of(segment, vsd)));
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
    facts.sem_id = semget(key_of(segment, vsd), 0, 0);
    facts.sem_value = facts.sem_id >= 0 ? semctl(facts.sem_id, 0, GETVAL) : -1;
    facts.sem_last_pid = facts.sem_id >= 0 ? semctl(facts.sem_id, 0, GETPID) : -1;
    return facts;
}

void copy_segment(const Segment &segment, int32_t vsd, bri_shm_hdr &header, void *data, size_t size) {
    const Mapping mapping = map(segment, vsd);
    std::memcpy(&header, mapping->hdr, sizeof header);
    std::memcpy(data, mapping->data, std::min(size, segment.size));
}

std::string safe_text(const char *field, size_t bound) {
    std::string text;
    for (const char *next = field; next != field + bound && *next != '\0'; ++next) {
        const auto byte = static_cast<unsigned char>(*next);
        if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
            text += *next;
        } else {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\x%02x", byte);
            text += escape;
        }
    }
    return text;
}

} // namespace inspect
