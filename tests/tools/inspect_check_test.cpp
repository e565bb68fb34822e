#include "tests/tools/inspect_fixture.h"

namespace {

using namespace test;

class InspectCheck : public Inspect {
  protected:
    InspectCheck() {
        make_all();
        plug(1);
        plug(2);
        vl_initial_vlan_entry(10, BRI_VLAN_STATIC);
        vl_initial_vlan_entry(20, BRI_VLAN_SUPER);
        vl_initial_vlan_entry(21, BRI_VLAN_SUPER);
        vl_get_vlan_entry(21)->manage_vid = 20;
        vl_add_static_member(1, 10);
        vl_set_svi(10, 100);
        vlan_group_creat_entry(9);
        set_members(9, 0x30);
    }
    static void set_members(uint8_t id, uint32_t word) {
        vlanset set{};
        set.words[0] = word;
        vlanset ignored{};
        uint8_t count = 0;
        vlan_group_set_member_vlan(id, &set, &ignored, &ignored, &count, &count);
    }
    static vle &vlan(unsigned vid) { return g_vl_mng.entries[vid]; }
    static vlan_group_entry &group(unsigned id) { return vlan_group_mng.entries[id]; }
};

TEST_F(InspectCheck, sound_tables_have_no_findings) {
    const Ran ran = run({"check"});
    EXPECT_EQ(ran.status, 0);
    EXPECT_EQ(ran.out, "no findings\n");
    EXPECT_EQ(ran.err, "");
    EXPECT_TRUE(run({"check", "--json"}).json().at("rows").empty());
}

TEST_F(InspectCheck, findings_are_shown_with_their_table) {
    vlan(10).vid = 11;
    const Ran ran = run({"check"});
    EXPECT_EQ(ran.status, 1);
    EXPECT_EQ(ran.out, "FINDING                  TABLE\nVLAN 10 holds the id 11  vlans\n");
}

// What is broken, and the one finding that tells it.
TEST_F(InspectCheck, each_broken_invariant_is_one_finding) {
    const struct {
        void (*breaks)();
        void (*mends)();
        const char *table;
        const char *finding;
    } rows[] = {
        {[] { vlan(10).vid = 11; }, [] { vlan(10).vid = 10; }, "vlans", "VLAN 10 holds the id 11"},
        {[] { vl_increase_vlan_number(); }, [] { vl_decrease_vlan_number(); }, "vlans",
         "3 VLANs exist, but the statistics count 4"},
        {[] { vl_increase_svi_number(); }, [] { vl_decrease_svi_number(); }, "vlans",
         "1 VLANs have an SVI, but the statistics count 2"},
        {[] { vl_set_svi(20, 100); }, [] { vl_set_svi(20, 0); }, "vlans", "SVI 100 belongs to several VLANs: 10,20"},
        {[] {
             vl_add_static_member(3, 10);
             vl_add_static_member(63, 10);
         },
         [] {
             vl_del_static_member(3, 10);
             vl_del_static_member(63, 10);
         },
         "vlans", "VLAN 10 has absent ports as members: 3,63"},
        {[] { vl_add_static_member(0, 10); }, [] { vl_del_static_member(0, 10); }, "vlans",
         "VLAN 10 has the member 0, which no port can be"},
        {[] { vlan(10).version = 0; }, [] { vlan(10).version = 1; }, "vlans", "VLAN 10 has the version 0"},
        {[] { vlan(10).mode = 3; }, [] { vlan(10).mode = 1; }, "vlans", "VLAN 10 has the unknown mode 3"},
        {[] { std::memset(vlan(10).name, 'n', 36); }, [] { std::memset(vlan(10).name, 0, 36); }, "vlans",
         "VLAN 10 has a name without an end"},
        {[] { vlan(10).manage_vid = 20; }, [] { vlan(10).manage_vid = 10; }, "vlans",
         "VLAN 10 belongs to VLAN 20 without being a sub-VLAN"},
        {[] { vlan(21).manage_vid = 60000; }, [] { vlan(21).manage_vid = 20; }, "vlans",
         "VLAN 21 belongs to VLAN 60000, which does not exist"},
        {[] { vlan(21).manage_vid = 10; }, [] { vlan(21).manage_vid = 20; }, "vlans",
         "VLAN 21 belongs to VLAN 10, which is no super VLAN"},
        {[] { vl_set_vlan_range(1, 20); }, [] { vl_set_vlan_range(1, 4094); }, "vlans",
         "VLAN 21 exists outside the limits 1..20"},
        {[] { vl_set_vlan_range(0, 4094); }, [] { vl_set_vlan_range(1, 4094); }, "vlans",
         "the limits 0..4094 do not lie within 1..4094"},
        {[] { g_vl_mng.proto_state->state = 1U << 20; }, [] { g_vl_mng.proto_state->state = 0; }, "protocols",
         "protocol 20 is enabled, but there is none of that number"},
        {[] { swport_get_raw_spcb(2)->ifx = 7; }, [] { swport_get_raw_spcb(2)->ifx = 2; }, "ports",
         "port 2 holds the interface index 7"},
        {[] { swport_get_raw_spcb(2)->mode = 8; }, [] { swport_get_raw_spcb(2)->mode = 0; }, "ports",
         "port 2 has the unknown mode 8"},
        {[] { swport_get_raw_spcb(2)->default_vid = 4095; }, [] { swport_get_raw_spcb(2)->default_vid = 0; }, "ports",
         "port 2 has the native VLAN 4095"},
        {[] { group(9).id = 8; }, [] { group(9).id = 9; }, "groups", "group 9 holds the id 8"},
        {[] { group(9).member_count = 3; }, [] { group(9).member_count = 2; }, "groups",
         "group 9 has 2 members, but counts 3 (modulo 256)"},
        {[] { group(9).default_vid = 5000; }, [] { group(9).default_vid = 0; }, "groups",
         "group 9 has the default VLAN 5000"},
        {[] {
             group(9).members.words[0] |= 1;
             group(9).member_count = 3;
         },
         [] {
             group(9).members.words[0] &= ~1U;
             group(9).member_count = 2;
         },
         "groups", "group 9 has a member outside 1..4094"},
        {[] { group(12).members.words[5] = 1; }, [] { group(12).members.words[5] = 0; }, "groups",
         "group 12 is free, but its entry is not clear"},
        {[] { group(0).id = 1; }, [] { group(0).id = 0; }, "groups", "group 0 is in use"},
        {[] { g_vl_mng.shm->hdr->size = 5; }, [] { g_vl_mng.shm->hdr->size = 328196; }, "segments",
         "VLAN-SHM announces 5 bytes of data instead of 328196"},
        {[] { g_vl_mng.shm->hdr->name[0] = 'X'; }, [] { g_vl_mng.shm->hdr->name[0] = 'V'; }, "segments",
         "VLAN-SHM is headed \"XLAN-SHM\""},
    };
    for (const auto &row : rows) {
        row.breaks();
        const Ran ran = run({"check", "--json"});
        row.mends();
        EXPECT_EQ(ran.status, 1) << row.finding;
        EXPECT_EQ(ran.json().at("rows"), (Json::array({{{"finding", row.finding}, {"table", row.table}}})));
    }
    EXPECT_EQ(run({"check"}).status, 0);
}

TEST_F(InspectCheck, entry_0_in_use_is_a_finding) {
    vlan(0).vid = 5;
    vlan(0).version = 1;
    vlan(0).mode = 1;
    swport_get_raw_spcb(1)[-1].ifx = 7;
    const std::string out = run({"check"}).out;
    for (const char *text : {"VLAN 0 holds the id 5", "VLAN 0 exists outside the limits 1..4094", "port 0 is in use"})
        EXPECT_NE(out.find(text), std::string::npos) << text << "\n" << out;
}

TEST_F(InspectCheck, group_of_more_than_255_members_counts_modulo_256) {
    vlanset set{};
    std::memset(&set.words[1], 0xFF, 9 * 4);
    vlanset ignored{};
    uint8_t count = 0;
    vlan_group_set_member_vlan(9, &set, &ignored, &ignored, &count, &count);
    ASSERT_EQ(group(9).member_count, 288 - 256);
    EXPECT_EQ(run({"check"}).status, 0);
}

TEST_F(InspectCheck, version_that_steps_back_is_found_while_watching) {
    vlan(10).version = 0xFFFF;
    swport_get_raw_spcb(1)->version = 7;
    Running watch({"check", "--json", "--watch", "--interval", "0.02"});
    ASSERT_TRUE(Json::parse(watch.line()).at("rows").empty());
    vlan(10).version = 1; // a version that wraps steps forward
    vlan(20).version = 0x7000;
    vlan(21).version = 0xFFFF;
    const Json step = Json::parse(watch.line());
    EXPECT_EQ(step.at("change"), "added");
    EXPECT_EQ(step.at("row").at("finding"), "VLAN 21 stepped back from version 1 to 65535");
    EXPECT_EQ(Json::parse(watch.line()).at("change"), "removed");
    swport_get_raw_spcb(1)->version = 6;
    EXPECT_EQ(Json::parse(watch.line()).at("row").at("finding"), "port 1 stepped back from version 7 to 6");
}

} // namespace
