// Shared-memory segments, each starting with a header that names it.
#include "base/log.h"
#include "base/shared_word.h"
#include "base/text.h"

#include <bridge/ipc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/ipc.h>
#include <sys/shm.h>

namespace bri::ipc {

namespace {

constexpr int kMode = 0777;
constexpr size_t kHeader = sizeof(bri_shm_hdr);

// The header's name as text, whatever another process wrote there.
struct Name {
    char text[sizeof bri_shm_hdr::name];
};
Name name_of(const bri_shm_hdr &header) {
    Name name;
    copy_text(name.text, header.name);
    return name;
}

int32_t key_of(const bri_shm_hdr &header) {
    return static_cast<int32_t>(word::load(header.key));
}
int32_t id_of(const bri_shm_hdr &header) {
    return static_cast<int32_t>(word::load(header.shmid));
}
size_t size_of(const bri_shm_hdr &header) {
    return word::load(header.size);
}

bool holds_header(int id) {
    shmid_ds status{};
    if (shmctl(id, IPC_STAT, &status) != 0)
        return false;
    if (status.shm_segsz >= kHeader)
        return true;
    errno = EINVAL;
    return false;
}

bri_shm_hdr *map(int id, int flags) {
    if (!holds_header(id))
        return nullptr;
    void *address = shmat(id, nullptr, flags);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the failure value of shmat
    return address != reinterpret_cast<void *>(-1) ? static_cast<bri_shm_hdr *>(address) : nullptr;
}

// The step that creating and attaching share: get the segment, map it, note its id in the header. A mapping that may
// only be read is left as it is.
bri_shm_hdr *attach_step(int32_t key, size_t size, int get_flags, int attach_flags) {
    const int id = shmget(key, size, get_flags);
    if (id < 0) {
        BRI_LOG(log::kShm, "Get shm failed:[%d] %s.\n", errno, std::strerror(errno));
        return nullptr;
    }
    BRI_LOG(log::kShm, "Get shm-id %d.\n", id);
    bri_shm_hdr *header = map(id, attach_flags);
    if (header == nullptr) {
        BRI_LOG(log::kShm, "Create shm failed:[%d] %s.\n", errno, std::strerror(errno));
        return nullptr;
    }
    if ((attach_flags & SHM_RDONLY) == 0)
        word::store(header->shmid, static_cast<uint32_t>(id));
    return header;
}

// Null when memory is short; the segment stays attached then.
bri_shm_handle *new_handle(bri_shm_hdr *header) {
    auto *handle = static_cast<bri_shm_handle *>(std::malloc(sizeof(bri_shm_handle)));
    if (handle != nullptr)
        *handle = {header, header + 1};
    return handle;
}

// Sizes that the header cannot tell get the answer that the kernel gives for too large a segment.
bri_shm_hdr *create_step(int32_t key, size_t size) {
    if (size > UINT32_MAX - kHeader) {
        BRI_LOG(log::kShm, "Get shm failed:[%d] %s.\n", EINVAL, std::strerror(EINVAL));
        return nullptr;
    }
    return attach_step(key, kHeader + size, IPC_CREAT | kMode, 0);
}

bri_shm_handle *attach(int32_t key, int flags) {
    const bool read_only = (flags & SHM_RDONLY) != 0;
    bri_shm_hdr *header = attach_step(key, 0, 0, flags);
    if (header == nullptr)
        return nullptr;
    bri_shm_handle *handle = new_handle(header);
    if (handle == nullptr)
        BRI_LOG(log::kShm,
                read_only ? "Attach[RL] shm, malloc failed:[%d] %s.\n" : "Attach shm, malloc failed:[%d] %s.\n", errno,
                std::strerror(errno));
    else
        BRI_LOG(log::kShm,
                read_only ? "Attach[RL] shm SUCC:[name:%s, key:%d, size:%zu]."
                          : "Attach shm SUCC:[name:%s, key:%d, size:%zu].",
                name_of(*header).text, key_of(*header), size_of(*header));
    return handle;
}

} // namespace

} // namespace bri::ipc

using namespace bri;
using namespace bri::ipc;

bri_shm_handle *bridge_shm_create(const char *name, int32_t key, size_t size) {
    if (name == nullptr) {
        BRI_LOG(log::kShm, "Create shm, invalid param.\n");
        return nullptr;
    }
    BRI_LOG(log::kShm, "Creating SHM [name:%s, key:%x, size:%zu] ...\n", name, static_cast<uint32_t>(key), size);
    bri_shm_hdr *header = create_step(key, size);
    if (header == nullptr)
        return nullptr;
    bri_shm_handle *handle = new_handle(header);
    if (handle == nullptr) {
        BRI_LOG(log::kShm, "Get shm, malloc failed:[%d] %s.\n", errno, std::strerror(errno));
        return nullptr;
    }
    // Every creator writes the header anew; the data is left as it is.
    word::store(header->key, static_cast<uint32_t>(key));
    word::store(header->size, static_cast<uint32_t>(size));
    copy_text(header->name, name);
    BRI_LOG(log::kShm, "Create shm SUCC:[name:%s, key:%x, shmid:%d, size:%zu].", name, static_cast<uint32_t>(key),
            id_of(*header), size);
    return handle;
}

bri_shm_handle *bridge_shm_attach(int32_t key) {
    return attach(key, 0);
}
bri_shm_handle *bridge_shm_attach_rdonly(int32_t key) {
    return attach(key, SHM_RDONLY);
}

void bridge_shm_dettach(bri_shm_handle *handle) {
    if (handle == nullptr)
        return;
    if (handle->hdr != nullptr) {
        BRI_LOG(log::kShm, "Dettached shm SUCC:[name:%s, key:%d].", name_of(*handle->hdr).text, key_of(*handle->hdr));
        shmdt(handle->hdr);
    }
    std::free(handle);
}

void bridge_shm_destroy(bri_shm_hdr *hdr) {
    if (hdr == nullptr)
        return;
    const int id = id_of(*hdr);
    BRI_LOG(log::kShm, "Destroy shm SUCC:[name:%s, key:%d].", name_of(*hdr).text, key_of(*hdr));
    shmdt(hdr);
    shmctl(id, IPC_RMID, nullptr);
}

void bridge_shm_show(const bri_shm_handle *handle) {
    if (handle == nullptr || handle->hdr == nullptr)
        return;
    const bri_shm_hdr &header = *handle->hdr;
    BRI_LOG(log::kPrint, "shm-name:   %s\n", name_of(header).text);
    BRI_LOG(log::kPrint, "shm-id:     %d\n", id_of(header));
    BRI_LOG(log::kPrint, "shm-key:    0x%x\n", static_cast<uint32_t>(key_of(header)));
    BRI_LOG(log::kPrint, "shm-size:   %zu\n", size_of(header));
    BRI_LOG(log::kPrint, "shm-addr:   %p\n", handle->data);
}
