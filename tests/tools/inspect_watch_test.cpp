#include "tests/tools/inspect_fixture.h"

namespace {

using namespace test;

class InspectWatch : public Inspect {
  protected:
    static constexpr const char *kSoon = "--interval=0.02";
    // A line for people without its time of day.
    static std::string without_clock(const std::string &line) {
        EXPECT_GT(line.size(), 9U) << line;
        EXPECT_EQ(line[2], ':');
        EXPECT_EQ(line[5], ':');
        return line.size() > 9 ? line.substr(9) : "";
    }
};

TEST_F(InspectWatch, changes_are_lines_of_json) {
    make_groups();
    Running watch({"groups", "--json", "--watch", kSoon});
    EXPECT_TRUE(Json::parse(watch.line()).at("rows").empty());
    vlan_group_creat_entry(9);
    const Json added = Json::parse(watch.line());
    EXPECT_EQ(added.at("change"), "added");
    EXPECT_EQ(added.at("row"),
              Json::parse(R"({"group":9,"id":9,"assign_mode":0,"member_count":0,"default_vid":0,"members":[]})"));
    vlan_group_set_default_vlan(9, 77);
    const Json changed = Json::parse(watch.line());
    EXPECT_EQ(changed.at("change"), "changed");
    EXPECT_EQ(changed.at("row").at("default_vid"), 77);
    EXPECT_EQ(changed.at("was"), Json::parse(R"({"default_vid":0})"));
    vlan_group_free_entry(9);
    const Json removed = Json::parse(watch.line());
    EXPECT_EQ(removed.at("change"), "removed");
    EXPECT_EQ(removed.at("row").at("group"), 9);
}

TEST_F(InspectWatch, changes_are_lines_for_people) {
    make_groups();
    Running watch({"groups", "--watch", kSoon});
    EXPECT_EQ(watch.line(), "no groups");
    vlan_group_creat_entry(9);
    EXPECT_EQ(without_clock(watch.line()), "+ 9 assign_mode=0 default_vid=0 member_count=0 members=-");
    vlan_group_set_default_vlan(9, 77);
    EXPECT_EQ(without_clock(watch.line()), "~ 9: default_vid 0 -> 77");
    vlan_group_free_entry(9);
    EXPECT_EQ(without_clock(watch.line()), "- 9");
}

TEST_F(InspectWatch, summary_and_hex_fields_are_followed) {
    make_vlans();
    Running vlans({"vlans", "--watch", kSoon});
    for (int line = 0; line < 8; ++line)
        (void)vlans.line(); // seven of the summary, "no vlans"
    vl_set_vlan_range(1, 100);
    EXPECT_EQ(without_clock(vlans.line()), "~ vlans: max_vid 4094 -> 100");

    uint32_t conflict = 0;
    ASSERT_EQ(bridge_set_excflag(7, BRI_SECURE, 0, &conflict), 0);
    Running exclusions({"exclusions", "--watch", kSoon});
    (void)exclusions.line();
    (void)exclusions.line();
    bridge_set_excflag(7, 0x100, 0, &conflict);
    EXPECT_EQ(without_clock(exclusions.line()), "~ 7: flags secure -> secure|0x100");
}

TEST_F(InspectWatch, watch_ends_after_the_looks_that_were_asked_for) {
    make_groups();
    EXPECT_EQ(run({"groups", "--watch", kSoon, "--looks", "3"}).out, "no groups\n");
    EXPECT_EQ(run({"groups", "--watch", kSoon, "--looks", "3"}).status, 0);
}

TEST_F(InspectWatch, segment_that_is_made_anew_is_followed) {
    make_groups();
    vlan_group_creat_entry(9);
    Running watch({"groups", "--json", "--watch", kSoon});
    ASSERT_EQ(Json::parse(watch.line()).at("rows").size(), 1U);
    watch.pause();
    bridge_shm_destroy(vlan_group_mng.shm->hdr);
    make_groups();
    watch.resume();
    EXPECT_EQ(Json::parse(watch.line()).at("change"), "removed");
    vlan_group_creat_entry(10);
    EXPECT_EQ(Json::parse(watch.line()).at("change"), "added");
}

TEST_F(InspectWatch, segment_that_goes_ends_the_watch) {
    make_groups();
    vlan_group_creat_entry(9);
    Running watch({"groups", "--json", "--watch", kSoon});
    (void)watch.line();
    bri_shm_handle *shm = vlan_group_mng.shm;
    bridge_shm_destroy(shm->hdr);
    shm->hdr = nullptr;
    bridge_shm_dettach(shm);
    std::free(vlan_group_mng.lock);
    vlan_group_mng = {};
    EXPECT_EQ(watch.line(), "");
}

} // namespace
