// The System V objects of a virtual switch device: four segments and the semaphore of the same key beside each.
#pragma once

#include "wire/record.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace wire {

struct Segment {
    const char *name;
    uint32_t key_base;         // the VSDID is added
    size_t size;               // bytes of the data area, behind the header
    const Record &(*record)(); // of the data area
};

extern const Segment kPortSegment;
extern const Segment kVlanSegment; // carries the protocol registry too
extern const Segment kExclusionSegment;
extern const Segment kGroupSegment;
[[nodiscard]] const std::vector<const Segment *> &all_segments();

// The number that key and VSDID make; 0 names nothing.
[[nodiscard]] int32_t key_of(const Segment &segment, int32_t vsd);

// The VSDID of the environment, 0 when it is unset: decimal digits, as the library reads them too. Throws
// std::invalid_argument with a line for people for anything else, which the library would take for another number.
[[nodiscard]] int32_t vsd_of_environment();

// One object that stands, under the name of its segment.
struct SystemObject {
    const Segment *segment;
    bool semaphore; // else the segment itself
    int id;
};
[[nodiscard]] std::string text_of(const SystemObject &object); // "segment of VLAN-SHM", "semaphore of VLAN-SHM"

// Those of the device that stand now.
[[nodiscard]] std::vector<SystemObject> system_objects(int32_t vsd);

// Removes one; who has it attached keeps what it has. False with errno when that is refused; an object that has gone
// meanwhile is removed.
[[nodiscard]] bool remove(const SystemObject &object);

} // namespace wire
