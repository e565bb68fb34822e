#include "shared/table.h"

#include "base/shared_word.h"
#include "base/text.h"
#include "base/vsd.h"

#include <cstdlib>

namespace bri::table {

Result open(const Spec &spec, Opened &opened) {
    opened = {};
    const int32_t key = ipc_key(spec.key_base);
    if (key == 0)
        return Result::kNoKey;
    opened.lock = bridge_lock_create(key);
    if (opened.lock == nullptr)
        return Result::kNoLock;
    opened.shm = bridge_shm_create(spec.name, key, spec.size);
    return opened.shm != nullptr ? Result::kOk : Result::kNoSegment;
}

void free_handles(const Opened &earlier) {
    std::free(earlier.lock);
    std::free(earlier.shm);
}

bool open_database(const Spec &spec, Opened &opened, const log::Category &category) {
    switch (open(spec, opened)) {
    case Result::kOk:
        return true;
    case Result::kNoKey:
        BRI_LOG(category, "Get ipc-key failed.\n");
        break;
    case Result::kNoLock:
        BRI_LOG(category, "Create SEM failed.\n");
        break;
    case Result::kNoSegment:
        BRI_LOG(category, "Create SHM failed.\n");
        break;
    }
    return false;
}

void read_head(const bri_shm_hdr &header, uint32_t &key, uint32_t &shmid, uint32_t &size, char *name) {
    key = word::load(header.key);
    shmid = word::load(header.shmid);
    size = word::load(header.size);
    copy_text(name, sizeof header.name, header.name);
}

} // namespace bri::table
