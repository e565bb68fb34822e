#include "tools/recording/tables.h"

#include "wire/segments.h"

#include <bridge/ipc.h>

#include <algorithm>
#include <sys/shm.h>

namespace recording {

Tables::Tables(int32_t vsd) : vsd_(vsd) {
    for (size_t number = 0; number < wire::all_segments().size(); ++number)
        copies_.push_back({static_cast<Table>(number), nullptr, {}});
}

Tables::~Tables() {
    for (const Copy &copy : copies_)
        if (copy.segment != nullptr)
            shmdt(copy.segment);
}

// Not one that is smaller than its kind: clients leave it alone too.
bool Tables::attach(Copy &copy) const {
    const wire::Segment &kind = *wire::all_segments()[static_cast<size_t>(copy.number)];
    const int32_t key = wire::key_of(kind, vsd_);
    const int id = key != IPC_PRIVATE ? shmget(key, sizeof(bri_shm_hdr) + kind.size, 0) : -1;
    const void *address = id >= 0 ? shmat(id, nullptr, SHM_RDONLY) : nullptr;
    if (address == nullptr || address == reinterpret_cast<void *>(-1))
        return false;
    copy.segment = static_cast<const uint8_t *>(address);
    copy.bytes.assign(kind.size, 0);
    return true;
}

void Tables::look(Writer &writer) {
    for (Copy &copy : copies_)
        if (copy.segment != nullptr) {
            compare(copy, writer, 0);
        } else if (attach(copy)) {
            writer.add({.kind = Kind::kTable, .table = copy.number, .flags = kStartValue}, {});
            compare(copy, writer, kStartValue);
        }
}

// Others write meanwhile, so each piece is compared as it is written down.
void Tables::compare(Copy &copy, Writer &writer, uint8_t flags) {
    uint8_t now[kMostTableBytes];
    for (size_t at = 0; at < copy.bytes.size(); at += sizeof now) {
        const size_t size = std::min(sizeof now, copy.bytes.size() - at);
        uint8_t *before = copy.bytes.data() + at;
        const uint8_t *live = copy.segment + sizeof(bri_shm_hdr) + at;
        if (std::memcmp(live, before, size) == 0)
            continue;
        std::memcpy(now, live, size);
        const auto first = static_cast<size_t>(std::mismatch(now, now + size, before).first - now);
        size_t end = size;
        while (end > first && now[end - 1] == before[end - 1])
            --end;
        std::memcpy(before, now, size);
        if (first < end)
            writer.add({.kind = Kind::kTable,
                        .table = copy.number,
                        .flags = flags,
                        .offset = static_cast<uint32_t>(at + first)},
                       {now + first, end - first});
    }
}

} // namespace recording
