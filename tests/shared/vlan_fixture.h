// The VLAN database of a fresh VSDID, with the full range of VLAN ids, and its bytes by offset.
#pragma once

#include "tests/support/test.h"

namespace test {

constexpr size_t kEntrySize = 80;
constexpr size_t kStatAt = 327600;
constexpr size_t kProtoAt = 328136;
constexpr size_t kVlanDataSize = 328196;

inline std::vector<unsigned> vids_of(const vlanset &set) {
    std::vector<unsigned> vids;
    for (unsigned vid = 0; vid < 4096; ++vid)
        if (has(set, vid))
            vids.push_back(vid);
    return vids;
}

class UnmappedVlanDb : public Env {
  protected:
    ~UnmappedVlanDb() override { debug_off(); }
    static void debug_off() { std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg); }
};

class VlanDb : public UnmappedVlanDb {
  protected:
    VlanDb() {
        if (bridge_portdb_init() != 1 || vl_vlandb_init() != 1)
            throw std::runtime_error("no database");
        vl_set_vlan_range(1, 4094);
    }

    // The data area of the segment, as any other process sees it.
    static uint8_t *data() { return reinterpret_cast<uint8_t *>(g_vl_mng.shm->hdr) + 76; }
    static uint8_t *entry(unsigned vid) { return data() + vid * kEntrySize; }
    static uint8_t *stat() { return data() + kStatAt; }

    // An entry made by the server's own hand.
    static void make(uint16_t vid, uint32_t mode = BRI_VLAN_STATIC) {
        put_at<uint16_t>(entry(vid), 6, vid);
        put_at<uint16_t>(entry(vid), 8, vid);
        put_at<uint32_t>(entry(vid), 12, mode);
    }
    // A port that is there.
    static void plug(int32_t ifx) { swport_get_raw_spcb(ifx)->ifx = static_cast<uint32_t>(ifx); }
};

} // namespace test
