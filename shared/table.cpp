#include "shared/table.h"

#include "base/shared_word.h"
#include "base/text.h"
#include "base/vsd.h"

#include <cstdlib>

namespace bri::table {

namespace {

// Never read: what they point to is still somebody's, and this is how a leak checker sees that.
Handles *g_earlier;
size_t g_earlier_count;

} // namespace

int32_t key_of(const Spec &spec) {
    return ipc_key(spec.key_base);
}

void keep(const Handles &earlier) {
    if (earlier.lock == nullptr && earlier.shm == nullptr)
        return;
    auto *more = static_cast<Handles *>(std::realloc(g_earlier, (g_earlier_count + 1) * sizeof *g_earlier));
    if (more == nullptr) // without memory they stay all the same, only that nobody knows where
        return;
    g_earlier = more;
    g_earlier[g_earlier_count++] = earlier;
}

Result open(const Spec &spec, int32_t key, Handles &handles) {
    handles.lock = bridge_lock_create(key);
    if (handles.lock == nullptr)
        return Result::kNoLock;
    handles.shm = bridge_shm_create(spec.name, key, spec.size);
    return handles.shm != nullptr ? Result::kOk : Result::kNoSegment;
}

bool mapped(Result result, const log::Category &category) {
    switch (result) {
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
