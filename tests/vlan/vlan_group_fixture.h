// The group table of a fresh VSDID, and its bytes by offset.
#pragma once

#include "tests/support/test.h"

#include <algorithm>

namespace test {

class UnmappedVlanGroups : public Env {
  protected:
    ~UnmappedVlanGroups() override { std::memset(g_bri_clnt_dbg, 0, sizeof g_bri_clnt_dbg); }

    // This one and no other line of the group table.
    static void expect_failure_line(const std::string &text) {
        EXPECT_EQ(std::count_if(log_lines().begin(), log_lines().end(),
                                [](const LogLine &line) { return line.text.rfind("vlan-group", 0) == 0; }),
                  1);
        const LogLine line = log_line(text);
        EXPECT_EQ(line.category(), kClientLine);
    }
};

class VlanGroups : public UnmappedVlanGroups {
  protected:
    static constexpr size_t kTableSize = 67080;

    VlanGroups() {
        if (vlan_group_shm_init() != 1)
            throw std::runtime_error("no group table");
    }

    // Entry `id` as any other process sees it.
    static uint8_t *bytes(unsigned id) { return reinterpret_cast<uint8_t *>(vlan_group_mng.shm->hdr) + 76 + id * 520; }

    static bool member_bit(unsigned id, unsigned vid) {
        return (value_at<uint32_t>(bytes(id), 8 + vid / 32 * 4) >> vid % 32 & 1) != 0;
    }
    static void put_member(unsigned id, unsigned vid) {
        const size_t at = 8 + vid / 32 * 4;
        put_at<uint32_t>(bytes(id), at, value_at<uint32_t>(bytes(id), at) | 1U << vid % 32);
    }
};

} // namespace test
