// VLAN groups and super VLANs in their tables, and what is announced about them.
#include "sandbox/vlans.h"
#include "tests/support/test.h"
#include "wire/own.h"

#include <bridge/events.h>
#include <bridge/vlan_group.h>

#include <stdexcept>
#include <utility>
#include <vector>

namespace {

using namespace sandbox;

using Types = std::vector<uint32_t>;

struct Announced : test::Env {
    Types announced() { return std::exchange(types, {}); }
    template <class Record> [[nodiscard]] Record last_record() const {
        EXPECT_EQ(last.size(), sizeof(Record));
        return object_of<Record>(last);
    }
    template <class Fn> static std::string reason_of(Fn &&fn) {
        try {
            fn();
        } catch (const std::invalid_argument &error) {
            return error.what();
        }
        return "";
    }

    Types types;
    std::vector<uint8_t> last;
    Announce tell = [this](uint32_t type, Bytes payload) {
        types.push_back(type);
        last = {payload.begin(), payload.end()};
    };
};

struct GroupsTest : Announced {
    GroupsTest() {
        Vlans::open(); // which tells the VLAN ids
        Groups::open();
    }
    Groups groups{tell};
};

TEST_F(GroupsTest, group_comes_is_filled_and_goes) {
    groups.create(128);
    EXPECT_EQ(last_record<wire::group_policy>().exists, 1);
    groups.set_vlans(128, parse_vlans("10-12"));
    groups.set_vlans(128, parse_vlans("11-13"));
    EXPECT_EQ(vlans_text(last_record<vlan_group_entry>().members), "11-13");
    groups.set_default(128, 11);
    groups.set_assign_mode(128, 2);
    EXPECT_EQ(last_record<vlan_group_entry>().assign_mode, 2);
    uint8_t found = 0;
    EXPECT_EQ(vg_clnt_is_member_of_any_group(13, &found), 1);
    EXPECT_EQ(found, 128);
    EXPECT_EQ(vg_clnt_get_default_vid(128), 11);
    EXPECT_EQ(Groups::show().text(), "  group 128 vlans 11-13 default 11 mode 2\ngroups: 1\n");
    groups.remove(128);
    EXPECT_EQ(last_record<wire::group_policy>().exists, 0);
    EXPECT_EQ(vg_clnt_check_exist(128), 0);
    EXPECT_EQ(announced(), (Types{VG_EVENT_POLICY_ENTRY, VG_EVENT_MEM_VLAN, VG_EVENT_MEM_VLAN, VG_EVENT_DEFAULT_VLAN,
                                  VG_EVENT_VLAN_MODE, VG_EVENT_POLICY_ENTRY}));
}

TEST_F(GroupsTest, what_cannot_be_is_refused) {
    EXPECT_EQ(reason_of([&] { groups.create(0); }), "no group number: 0");
    EXPECT_EQ(reason_of([&] { groups.create(129); }), "no group number: 129");
    EXPECT_EQ(reason_of([&] { groups.create(257); }), "no group number: 257");
    EXPECT_EQ(reason_of([&] { groups.set_default(1, 10); }), "no group 1");
    EXPECT_EQ(reason_of([&] { groups.remove(1); }), "no group 1");
    EXPECT_TRUE(announced().empty());
    groups.create(1);
    EXPECT_EQ(reason_of([&] { groups.create(1); }), "there is a group 1 already");
}

TEST_F(GroupsTest, replay_tells_all_of_every_group) {
    groups.create(1);
    groups.create(2);
    announced();
    Groups::replay(BRI_SUBMOD_VLAN, tell);
    EXPECT_TRUE(announced().empty());
    Groups::replay(BRI_SUBMOD_VLAN_GROUP, tell);
    EXPECT_EQ(announced().size(), 8U);
    EXPECT_EQ(last_record<vlan_group_entry>().id, 2);
}

struct SuperVlansTest : Announced {
    SuperVlansTest() {
        Vlans::open();
        for (const uint16_t vid : {uint16_t{10}, uint16_t{11}, uint16_t{12}, uint16_t{20}})
            vl_initial_vlan_entry(vid, BRI_VLAN_STATIC);
    }
    SuperVlans supers{tell};
};

TEST_F(SuperVlansTest, sub_vlans_belong_to_their_super_vlan_until_they_are_taken_away) {
    supers.create(only(10));
    EXPECT_EQ(vl_is_supervlan(10), 1);
    EXPECT_EQ(announced(), (Types{VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_SUPER_CREATE}));
    supers.add(10, parse_vlans("11-12"));
    EXPECT_EQ(vl_is_subvlan(11), 1);
    EXPECT_EQ(vl_get_manage_vid(12), 10);
    EXPECT_EQ(last_record<wire::super_subs>().vid, 10);
    EXPECT_EQ(vlans_text(last_record<wire::super_subs>().subs), "11-12");
    EXPECT_EQ(SuperVlans::show().text(), "  super vlan 10 subs 11-12\n");
    supers.take(10, only(11));
    EXPECT_EQ(vl_get_manage_vid(11), 11);
    EXPECT_EQ(vl_exist(11, BRI_VLAN_STATIC), 1);
    EXPECT_EQ(announced().back(), uint32_t{VLAN_EVENT_SUPER_DEL_RANGE_SUB});
    supers.remove(only(10));
    EXPECT_EQ(vl_exist(10, BRI_VLAN_STATIC), 1);
    EXPECT_EQ(vl_exist(12, BRI_VLAN_STATIC), 1);
    EXPECT_EQ(announced(), (Types{VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_SUPER_RANG_DEL_SUB,
                                  VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_SUPER_DELETE}));
}

TEST_F(SuperVlansTest, several_come_and_go_in_one_event) {
    supers.create(parse_vlans("10-11"));
    EXPECT_EQ(announced().back(), uint32_t{VLAN_EVENT_SUPER_CREATE_RANGE});
    EXPECT_EQ(vlans_text(last_record<vl_evt_vlanset_rec>().vlans), "10-11");
    supers.add(10, only(12));
    announced();
    supers.remove(parse_vlans("10-11"));
    EXPECT_EQ(announced(),
              (Types{VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_SUPER_RANG_DEL_SUB, VLAN_EVENT_MODIFY_VLAN_MODE,
                     VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_SUPER_DELETE_RANGE}));
}

TEST_F(SuperVlansTest, what_cannot_be_is_refused_whole) {
    EXPECT_EQ(reason_of([&] { supers.create(only(30)); }), "no VLAN 30");
    EXPECT_EQ(reason_of([&] { supers.add(10, only(11)); }), "VLAN 10 is no super VLAN");
    supers.create(only(10));
    supers.create(only(20));
    supers.add(10, only(12));
    announced();
    EXPECT_EQ(reason_of([&] { supers.create(only(10)); }), "VLAN 10 is a super VLAN");
    EXPECT_EQ(reason_of([&] { supers.add(10, parse_vlans("11,20")); }), "VLAN 20 is a super VLAN");
    EXPECT_EQ(reason_of([&] { supers.add(20, parse_vlans("11-12")); }), "VLAN 12 belongs to VLAN 10");
    EXPECT_EQ(reason_of([&] { supers.add(20, parse_vlans("11,30")); }), "no VLAN 30");
    EXPECT_EQ(reason_of([&] { supers.take(10, parse_vlans("11-12")); }), "VLAN 11 does not belong to VLAN 10");
    EXPECT_EQ(vl_is_subvlan(11), 0);
    EXPECT_TRUE(announced().empty());
    supers.add(10, only(12)); // it is already
    EXPECT_TRUE(announced().empty());
}

TEST_F(SuperVlansTest, vlan_that_goes_leaves_no_sub_vlan_of_it) {
    supers.create(only(10));
    supers.add(10, parse_vlans("11-12"));
    supers.dissolve(parse_vlans("10-11"));
    for (const uint16_t vid : {uint16_t{10}, uint16_t{11}, uint16_t{12}}) {
        EXPECT_EQ(vl_exist(vid, BRI_VLAN_STATIC), 1);
        EXPECT_EQ(vl_get_manage_vid(vid), vid);
    }
}

TEST_F(SuperVlansTest, vlan_answers_arp_or_not) {
    supers.set_proxy(10, false);
    EXPECT_EQ(vl_get_vlan_entry(10)->proxy, 0);
    EXPECT_EQ(last_record<wire::vlan_arproxy>().proxy, 0U);
    supers.set_proxy(10, true);
    EXPECT_EQ(vl_get_vlan_entry(10)->proxy, 1);
    EXPECT_EQ(announced(), (Types{VLAN_EVENT_ARPROXY, VLAN_EVENT_ARPROXY}));
    EXPECT_EQ(reason_of([&] { supers.set_proxy(30, true); }), "no VLAN 30");
}

} // namespace
