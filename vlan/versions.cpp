// Private versions: the newest create or delete of each VLAN that this process has accepted. The checks of what
// arrives, and the re-search that a look-up runs.
#include "base/apart.h"
#include "base/bits.h"
#include "base/bytes.h"
#include "base/log.h"
#include "base/shared_word.h"
#include "base/text.h"
#include "shared/vlan_table.h"

#include <bridge/client.h>
#include <bridge/events.h>
#include <bridge/vlan_client.h>
#include <bridge/vlan_db.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

BRI_APART uint16_t g_vlan_private_version[BRI_VLAN_ENTRIES];

namespace bri::vlan {

namespace {

// The table ends at 4094, whatever range the database publishes.
bool has_version(uint16_t vid) {
    return vid < BRI_VLAN_ENTRIES && vl_check_vlanid_valid(vid) != 0;
}

// Versions are compared as signed numbers, not as serial numbers: one that wraps past 32767 counts as older.
bool older(uint16_t version, uint16_t than) {
    return static_cast<int16_t>(version) < static_cast<int16_t>(than);
}

using SingleCheck = int (*)(uint16_t vid, uint16_t version);

// Runs the single check on every VLAN of a vl_evt_vlanset_rec and takes the dropped ones out of its bitmap; 1 when one
// was accepted. Works on bytes: the record may lie unaligned in the receive buffer.
int check_range(uint8_t *record, SingleCheck check) {
    vlanset left;
    std::memcpy(&left, record, sizeof left);
    int accepted = 0;
    bits::for_each(left.words, BRI_VID_MIN, BRI_VID_MAX, [&](unsigned vid) {
        const uint8_t *version = record + offsetof(vl_evt_vlanset_rec, versions) + sizeof(uint16_t) * vid;
        if (check(static_cast<uint16_t>(vid), load_as<uint16_t>(version)) != 0)
            accepted = 1;
        else
            bits::clear(left.words, vid);
    });
    std::memcpy(record, &left, sizeof left);
    return accepted;
}

// What a host that missed a create is told: the VLAN is there, after its older incarnation went away if it saw one.
void notify_missed(uint16_t vid, const vle &entry, bool seen_before) {
    vl_evt_vlan_rec rec{};
    rec.vid = vid;
    rec.mode = word::load(entry.mode);
    copy_text(rec.name, entry.name);
    if (seen_before) {
        rec.occasion = BRI_VLAN_OCCASION_RECREATE;
        bridge_call_event_handlers(VLAN_EVENT_DESTROY_INDEX, &rec, sizeof rec);
    }
    rec.occasion = 0;
    bridge_call_event_handlers(VLAN_EVENT_CREATE_INDEX, &rec, sizeof rec);
}

// One re-search, while it may call handlers. What they look up is searched in its turn, but neither a VLAN that is
// being searched, however fast its version rises meanwhile, nor deeper than a few levels: a later look-up tells the
// rest.
class Search {
  public:
    explicit Search(uint16_t vid)
        : entered_(g_running < kMost && std::find(g_vids, g_vids + g_running, vid) == g_vids + g_running) {
        if (entered_)
            g_vids[g_running++] = vid;
    }
    ~Search() {
        if (entered_)
            --g_running;
    }
    Search(const Search &) = delete;
    Search &operator=(const Search &) = delete;

    [[nodiscard]] bool ok() const { return entered_; }

  private:
    static constexpr unsigned kMost = 8;
    static uint16_t g_vids[kMost]; // those being searched, the outermost first
    static unsigned g_running;
    bool entered_;
};
uint16_t Search::g_vids[kMost];
unsigned Search::g_running;

// Apart from catch_up, which every look-up runs and which hardly ever comes here.
[[gnu::noinline]] void reconcile(uint16_t vid, const vle &entry, uint16_t latest) {
    const Search search(vid);
    if (!search.ok())
        return;
    const uint16_t known = g_vlan_private_version[vid];
    if (!older(known, latest)) {
        BRI_LOG(log::kVlan, "VLAN-Search: VLAN[%d] private version[%d] is biger than latest[%d], ERROR.\n", vid,
                static_cast<int16_t>(known), static_cast<int16_t>(latest));
        g_vlan_private_version[vid] = latest;
        return;
    }
    BRI_LOG(log::kVlan, "VLAN-Search: VLAN[%d] private version[%d] is smaller than latest[%d].\n", vid,
            static_cast<int16_t>(known), static_cast<int16_t>(latest));
    vl_version_update(vid, latest);
    notify_missed(vid, entry, known != 0);
}

// The re-search of a VLAN that was found: one compare when nothing was missed. A handler may change or remove the
// entry.
void catch_up(uint16_t vid, const vle &entry) {
    const uint16_t latest = word::load(entry.version);
    if (g_vlan_private_version[vid] != latest)
        reconcile(vid, entry, latest);
}

} // namespace

} // namespace bri::vlan

using namespace bri;
using namespace bri::vlan;

uint16_t vl_get_vlan_private_version(uint16_t vid) {
    return vlan::has_version(vid) ? g_vlan_private_version[vid] : 0;
}

void vl_version_update(uint16_t vid, uint16_t version) {
    if (!vlan::has_version(vid))
        return;
    BRI_LOG(log::kVlan, "Updata vlan-private version from:%u to:%u.\n", g_vlan_private_version[vid], version);
    g_vlan_private_version[vid] = version;
}

int vl_version_check_on_create_notify(uint16_t vid, uint16_t version) {
    if (vlan::older(vl_get_vlan_private_version(vid), version)) {
        vl_version_update(vid, version);
        return 1;
    }
    BRI_LOG(log::kVlan, "VLAN-Create msg is LATE, Drop.\n");
    return 0;
}

int vl_version_check_on_destroy_notify(uint16_t vid, uint16_t version) {
    const uint16_t known = vl_get_vlan_private_version(vid);
    if (vlan::older(version, known)) {
        BRI_LOG(log::kVlan, "VLAN-Delete msg is LATE, Drop.\n");
        return 0;
    }
    if (vlan::older(known, version)) {
        BRI_LOG(log::kVlan, "VLAN-Delete msg is befor VLAN-Create msg, ERROR.\n");
        vl_version_update(vid, version);
    }
    return 1;
}

int vl_version_check_on_range_create_notify(struct vl_evt_vlanset_rec *rec) {
    return rec == nullptr ? 0 : vlan::check_range(reinterpret_cast<uint8_t *>(rec), vl_version_check_on_create_notify);
}

int vl_version_check_on_range_destroy_notify(struct vl_evt_vlanset_rec *rec) {
    return rec == nullptr ? 0 : vlan::check_range(reinterpret_cast<uint8_t *>(rec), vl_version_check_on_destroy_notify);
}

void vl_version_check_on_reserch(uint16_t vid) {
    const vle *entry = vlan_db::Table::live(vid);
    if (entry != nullptr)
        vlan::catch_up(vid, *entry);
}

void vl_clnt_get_vle_from_vid(uint16_t vid, struct vle **out) {
    if (out == nullptr)
        return;
    vle *entry = vlan_db::Table::writable(vid);
    *out = entry;
    if (entry != nullptr)
        vlan::catch_up(vid, *entry);
}
