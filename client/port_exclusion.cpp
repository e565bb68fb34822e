// Port exclusion flags: one table for the whole machine, set up on first use.
#include "base/bits.h"
#include "base/log.h"
#include "base/shared_word.h"
#include "shared/table.h"

#include <bridge/ipc.h>
#include <bridge/port_exclusion.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace bri::client {

namespace {

constexpr table::Spec kTable{0x33330001, "Port-Function-Mutex", sizeof(bri_exclusion_table)};

constexpr std::string_view kNames[] = {"BRI_DOT1Q_TUNNEL", "BRI_MAC_COPY", "BRI_SECURE",     "BRI_DOT1X",
                                       "BRI_MIR_DEST",     "BRI_HOST",     "BRI_PROMISCUOUS"}; // bit n: text n
static_assert(uint32_t{1} << (std::size(kNames) - 1) == BRI_PROMISCUOUS, "one text an id");

// Texts of the ids in a flag word, each followed by a blank.
struct Texts {
    char text[128];
};

constexpr size_t longest_texts() {
    size_t length = 0;
    for (const std::string_view name : kNames)
        length += name.size() + 1;
    return length;
}
static_assert(longest_texts() < sizeof(Texts), "all texts fit");

Texts texts_of(uint32_t flags) {
    Texts texts{};
    char *end = texts.text;
    for (unsigned bit = 0; bit < std::size(kNames); ++bit)
        if ((flags & bits::mask_of(bit)) != 0) {
            end += kNames[bit].copy(end, kNames[bit].size());
            *end++ = ' ';
        }
    return texts;
}

struct Table {
    bri_sem_lock *lock;
    bri_shm_handle *shm;
    uint32_t *flags; // null until the set-up succeeded
};
Table g_table;

bool set_up() {
    switch (table::map(kTable, g_table)) {
    case table::Result::kOk:
        g_table.flags = static_cast<bri_exclusion_table *>(g_table.shm->data)->flags;
        return true;
    case table::Result::kNoKey:
        BRI_LOG(log::kShm, "Get ipc-key failed.\n");
        break;
    case table::Result::kNoLock:
        BRI_LOG(log::kShm, "bridge_init_funcmem fail to create lock for function mutex.\n");
        break;
    case table::Result::kNoSegment:
        BRI_LOG(log::kShm, "bridge_init_funcmem fail to create shared memory.");
        std::free(std::exchange(g_table.lock, nullptr)); // the next call starts anew
        break;
    }
    return false;
}

// A set-up that failed is tried again by the next call.
bool ready() {
    return g_table.flags != nullptr || set_up();
}

constexpr bool in_table(uint32_t ifx) {
    return ifx <= BRI_EXCLUSION_IFX_MAX;
}

void log_refusal(uint32_t ifx, uint32_t id, uint32_t conflict) {
    BRI_LOG(log::kShm, "[pid %d] bridge_set_excflag:ifx %d, id %d(%s), get exclu id [%s].\n", getpid(),
            static_cast<int>(ifx), static_cast<int>(id), texts_of(id).text, texts_of(conflict).text);
}

} // namespace

} // namespace bri::client

using namespace bri;
using namespace bri::client;

int bridge_set_excflag(uint32_t ifx, uint32_t id, uint32_t mask, uint32_t *conflict) {
    if (!in_table(ifx) || conflict == nullptr) {
        BRI_LOG(log::kShm, "bridge_set_excflag parameters error.\n");
        return -1;
    }
    if (!ready()) {
        BRI_LOG(log::kShm, "bridge_set_excflag init share memory fail.\n");
        return -1;
    }
    // The lock's read and write forms are the same. It alone would not do: a process that joins the table while another
    // one is inside sets the lock free, so the word itself is tested and set in one step.
    bridge_rd_lock(g_table.lock);
    *conflict = word::set_bits_unless(g_table.flags[ifx], id, mask);
    bridge_unlock(g_table.lock);
    if (*conflict != 0) {
        log_refusal(ifx, id, *conflict);
        return -1;
    }
    BRI_LOG(log::kShm, "[pid %d] bridge_set_excflag: ifx %d, id %d(%s) success.\n", getpid(), static_cast<int>(ifx),
            static_cast<int>(id), texts_of(id).text);
    return 0;
}

int bridge_unset_excflag(uint32_t ifx, uint32_t id) {
    if (!in_table(ifx)) {
        BRI_LOG(log::kShm, "Incorrect interface index!\n");
        return -1;
    }
    if (!ready()) {
        BRI_LOG(log::kShm, "bridge_unset_excflag share memory not init.\n");
        return -1;
    }
    bridge_rd_lock(g_table.lock);
    word::clear_bits(g_table.flags[ifx], id);
    bridge_unlock(g_table.lock);
    BRI_LOG(log::kShm, "[pid %d] bridge_unset_excflag: ifx %d, id %d(%s) success.\n", getpid(), static_cast<int>(ifx),
            static_cast<int>(id), texts_of(id).text);
    return 0;
}

int bridge_coxmng_get_status(uint32_t ifx, char *buf, uint32_t size) {
    if (!ready()) {
        BRI_LOG(log::kShm, "bridge_coxmng_get_status share memory init failed.\n");
        return 0;
    }
    const uint32_t flags = in_table(ifx) ? word::load(g_table.flags[ifx]) : 0;
    if (flags == 0)
        return 0;
    if (buf != nullptr)
        std::snprintf(buf, size, "%-4d %-36s", static_cast<int>(ifx), texts_of(flags).text);
    return 1;
}
