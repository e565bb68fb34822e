#include "tests/tools/inspect_fixture.h"

#include <sys/sem.h>
#include <sys/shm.h>

namespace {

using namespace test;

class InspectTables : public Inspect {};

// One VLAN with everything set, and one without.
void fill_vlans() {
    vl_initial_vlan_entry(1, BRI_VLAN_STATIC);
    vl_initial_vlan_entry(10, BRI_VLAN_SUPER);
    vle &entry = *vl_get_vlan_entry(10);
    entry = {1, 7, 1, 0, 21, 10, 10, 3, BRI_VLAN_SUPER, 40, 2, 123456, "office", 0x11, 0x12, {0, 0}};
    for (const int32_t ifx : {1, 2, 3, 4, 63})
        vl_add_static_member(ifx, 10);
    g_vl_mng.entries[1].create_time = 100;
}

TEST_F(InspectTables, vlans_are_shown_as_a_table) {
    make_vlans();
    fill_vlans();
    vl_increase_svi_number();
    const Ran ran = run({"vlans"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out, "min_vid: 1\nmax_vid: 4094\nmax_vlan_num: 0\ncur_vlan_num: 2\nmax_svi_num: 0\ncur_svi_num: 1\n"
                       "total_del_times: 0\n"
                       "VLAN  NAME      MODE    MANAGE  MEMBERS  UP  SVI  USERS  OPERATOR  VERSION  CREATED-AT\n"
                       "1     VLAN0001  static  1       -        0   0    0      0         1        100\n"
                       "10    office    super   10      1-4,63   2   40   3      1         21       123456\n");
    EXPECT_EQ(ran.err, "");
}

TEST_F(InspectTables, vlans_are_shown_as_json) {
    make_vlans();
    fill_vlans();
    const Json json = run({"vlans", "--json"}).json();
    EXPECT_EQ(json.at("table"), "vlans");
    EXPECT_EQ(json.at("vsd"), vsd());
    EXPECT_EQ(json.at("summary"), Json::parse(R"({"min_vid":1,"max_vid":4094,"max_vlan_num":0,"cur_vlan_num":2,
                                                  "max_svi_num":0,"cur_svi_num":0,"total_del_times":0})"));
    ASSERT_EQ(json.at("rows").size(), 2U);
    EXPECT_EQ(json.at("rows").at(1), Json::parse(R"({"vlan":10,"proxy":1,"vswpt_num":7,"created_by_cli":1,"version":21,
        "vid":10,"manage_vid":10,"ref":3,"mode":"super","svi_ifx":40,"up_mem":2,"create_time":123456,"name":"office",
        "svi_state_a":17,"svi_state_b":18,"members":[1,2,3,4,63]})"));
}

TEST_F(InspectTables, vlan_modes_have_names) {
    make_vlans();
    const std::pair<uint32_t, Json> modes[] = {{1, "static"}, {2, "dynamic"}, {4, "super"}, {9, 9}};
    uint16_t vid = 1;
    for (const auto &[mode, name] : modes)
        vl_initial_vlan_entry(vid++, mode);
    const Json rows = run({"vlans", "--json"}).json().at("rows");
    ASSERT_EQ(rows.size(), 4U);
    for (size_t index = 0; index < 4; ++index)
        EXPECT_EQ(rows[index].at("mode"), modes[index].second);
}

std::vector<int> column(const Json &json, const char *field) {
    std::vector<int> values;
    for (const Json &row : json.at("rows"))
        values.push_back(row.at(field));
    return values;
}

TEST_F(InspectTables, vlans_are_chosen_by_id_and_by_port) {
    make_vlans();
    for (const uint16_t vid : {uint16_t{1}, uint16_t{2}, uint16_t{3}, uint16_t{40}, uint16_t{4094}})
        vl_initial_vlan_entry(vid, 1);
    vl_add_static_member(5, 2);
    vl_add_static_member(33, 40);
    EXPECT_EQ(column(run({"vlans", "--json", "--vlan", "2-3,40"}).json(), "vlan"), (std::vector{2, 3, 40}));
    EXPECT_EQ(column(run({"vlans", "--json", "--vlan", "4094"}).json(), "vlan"), (std::vector{4094}));
    EXPECT_EQ(column(run({"vlans", "--json", "--port", "5,33"}).json(), "vlan"), (std::vector{2, 40}));
    EXPECT_EQ(column(run({"--json", "vlans", "--port", "33", "--vlan", "1-100"}).json(), "vlan"), (std::vector{40}));
    EXPECT_TRUE(column(run({"vlans", "--json", "--vlan", "7"}).json(), "vlan").empty());
}

void fill_ports() {
    spcb &port = *swport_get_raw_spcb(2);
    port.ifx = 2;
    port.mode = BRI_PORT_TRUNK;
    port.default_mode = BRI_PORT_ACCESS;
    port.default_vid = 10;
    port.version = 5;
    port.attr_exclude = 0x140;
    port.fwd_state[0] = 3;
    port.fwd_state[64] = 1;
    for (unsigned vid = 20; vid <= 22; ++vid)
        swport_tag_vlan_add(2, static_cast<uint16_t>(vid));
    port.allow_vlan.words[0] = 1U << 10;
    port.allow_vlan.words[127] = 1U << 30;
    swport_get_stp_instance_table()[20] = 4;
}

TEST_F(InspectTables, ports_are_shown_as_a_table) {
    make_ports();
    make_vlans();
    fill_ports();
    vl_initial_vlan_entry(10, 1);
    vl_add_static_member(2, 10);
    const Ran ran = run({"ports"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out, "stp_instance: 20:4\n"
                       "PORT  MODE   DEFAULT  NATIVE  VERSION  EXCLUSION  MEMBER-OF  TAGGED  ALLOWED  FORWARDING\n"
                       "2     trunk  access   10      5        0x140      10         20-22   10,4094  0:3,64:1\n");
}

TEST_F(InspectTables, ports_are_shown_as_json_also_without_the_vlans) {
    make_ports();
    fill_ports();
    plug(63).mode = 99;
    const Json json = run({"ports", "--json"}).json();
    EXPECT_EQ(json.at("summary"), Json::parse(R"({"stp_instance":"20:4"})"));
    ASSERT_EQ(json.at("rows").size(), 2U);
    EXPECT_EQ(json.at("rows").at(0), Json::parse(R"({"port":2,"default_vid":10,"ifx":2,"attr_exclude":"0x140",
        "version":5,"mode":"trunk","default_mode":"access","fwd_state":"0:3,64:1","tag_vlan":[20,21,22],
        "allow_vlan":[10,4094],"member_of":null})"));
    EXPECT_EQ(json.at("rows").at(1).at("mode"), 99);
}

TEST_F(InspectTables, ports_are_chosen_by_index_and_by_membership) {
    make_ports();
    make_vlans();
    for (const int32_t ifx : {1, 2, 3, 63})
        plug(ifx);
    vl_initial_vlan_entry(10, 1);
    vl_initial_vlan_entry(11, 1);
    vl_add_static_member(2, 10);
    vl_add_static_member(63, 11);
    EXPECT_EQ(column(run({"ports", "--json", "--port", "1-2,63"}).json(), "port"), (std::vector{1, 2, 63}));
    EXPECT_EQ(column(run({"ports", "--json", "--vlan", "10-11"}).json(), "port"), (std::vector{2, 63}));
    EXPECT_EQ(column(run({"ports", "--json", "--vlan", "11", "--port", "1-62"}).json(), "port"), std::vector<int>{});
}

TEST_F(InspectTables, ports_by_vlan_need_the_vlans) {
    make_ports();
    const Ran ran = run({"ports", "--vlan", "10"});
    EXPECT_EQ(ran.status, 2);
    EXPECT_NE(ran.err.find("segment VLAN-SHM "), std::string::npos) << ran.err;
}

TEST_F(InspectTables, groups_are_shown) {
    make_groups();
    vlan_group_creat_entry(9);
    vlan_group_creat_entry(128);
    vlan_group_set_default_vlan(9, 30);
    vlan_group_set_vlan_assign_mode(9, 2);
    vlanset members{};
    members.words[0] = 0x70;
    members.words[127] = 1U << 30;
    vlanset ignored{};
    uint8_t count = 0;
    vlan_group_set_member_vlan(9, &members, &ignored, &ignored, &count, &count);
    EXPECT_EQ(run({"groups"}).out, "GROUP  MODE  DEFAULT  COUNT  MEMBERS\n"
                                   "9      2     30       4      4-6,4094\n"
                                   "128    0     0        0      -\n");
    EXPECT_EQ(run({"groups", "--json", "--vlan", "6"}).json().at("rows"), Json::parse(R"([{"group":9,"id":9,
        "assign_mode":2,"member_count":4,"default_vid":30,"members":[4,5,6,4094]}])"));
    EXPECT_EQ(run({"groups", "--vlan", "7"}).out, "no groups\n");
}

TEST_F(InspectTables, json_has_a_line_for_each_row) {
    make_groups();
    const std::string head = R"({"table":"groups","vsd":)" + std::to_string(vsd()) + R"(,"summary":{},"rows":[)";
    EXPECT_EQ(run({"groups", "--json"}).out, head + "]}\n");
    vlan_group_creat_entry(1);
    vlan_group_creat_entry(2);
    EXPECT_EQ(run({"groups", "--json"}).out,
              head + "\n"
                     R"({"group":1,"id":1,"assign_mode":0,"member_count":0,"default_vid":0,"members":[]},)"
                     "\n"
                     R"({"group":2,"id":2,"assign_mode":0,"member_count":0,"default_vid":0,"members":[]})"
                     "\n]}\n");
}

TEST_F(InspectTables, protocols_are_shown) {
    make_vlans();
    uint32_t conflict = 0;
    bridge_proto_state_set(BRI_PROT_LLDP, &conflict);
    bridge_proto_set_prejudge(BRI_PROT_ERPS, 1U << BRI_PROT_MSTP | 1U << BRI_PROT_ERPS | 1U << BRI_PROT_RERP | 1);
    const Ran ran = run({"protocols"});
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out.substr(0, ran.out.find("5  ")), "NUMBER  PROTOCOL  ENABLED  BLOCKED-BY\n"
                                                      "1       mstp      no       0\n"
                                                      "2       gvrp      no       0\n"
                                                      "3       lldp      yes      0\n"
                                                      "4       erps      no       mstp|rerp\n");
    const Json rows = run({"protocols", "--json"}).json().at("rows");
    ASSERT_EQ(rows.size(), 13U);
    EXPECT_EQ(rows[3], Json::parse(R"({"number":4,"protocol":"erps","enabled":false,
        "blocked_by":"mstp|rerp","prejudge":"mstp|erps|rerp|0x1"})"));
}

TEST_F(InspectTables, exclusions_are_shown) {
    uint32_t conflict = 0;
    bridge_set_excflag(1, BRI_DOT1Q_TUNNEL | BRI_SECURE, 0, &conflict);
    bridge_set_excflag(8192, 0x80000000, 0, &conflict);
    bridge_set_excflag(0, BRI_PROMISCUOUS | BRI_HOST | BRI_MIR_DEST | BRI_DOT1X | BRI_MAC_COPY, 0, &conflict);
    EXPECT_EQ(run({"exclusions"}).out, "PORT  FLAGS\n"
                                       "0     mac-copy|dot1x|mirror-destination|host|promiscuous\n"
                                       "1     dot1q-tunnel|secure\n"
                                       "8192  0x80000000\n");
    EXPECT_EQ(run({"exclusions", "--json", "--port", "8192"}).json().at("rows"),
              Json::parse(R"([{"port":8192,"flags":"0x80000000"}])"));
}

TEST_F(InspectTables, segments_are_shown_with_their_locks) {
    make_all();
    const int before = faults::calls("semop");
    bridge_wr_lock(vlan_group_mng.lock);
    const Ran ran = run({"segments", "--json"});
    bridge_unlock(vlan_group_mng.lock);
    ASSERT_EQ(faults::calls("semop"), before + 2);
    EXPECT_EQ(ran.status, 0) << ran.err;
    const Json rows = ran.json().at("rows");
    ASSERT_EQ(rows.size(), 4U);
    const struct {
        const char *name;
        uint32_t base;
        size_t bytes;
    } expected[] = {{"SWPORT-SHM", 0x22220001, 135668},
                    {"VLAN-SHM", 0x11110001, 328272},
                    {"Port-Function-Mutex", 0x33330001, 32848},
                    {"VLAN-GROUP-SHM", 0x5A5B7C3D, 67156}};
    for (size_t index = 0; index < 4; ++index) {
        const auto key = static_cast<key_t>(expected[index].base + static_cast<uint32_t>(vsd()));
        EXPECT_EQ(rows[index].at("segment"), expected[index].name);
        EXPECT_EQ(rows[index].at("key"), static_cast<uint32_t>(key));
        EXPECT_EQ(rows[index].at("id"), shmget(key, 0, 0));
        EXPECT_EQ(rows[index].at("bytes"), expected[index].bytes);
        EXPECT_EQ(rows[index].at("needed"), expected[index].bytes);
        EXPECT_EQ(rows[index].at("attached"), 1);
        EXPECT_EQ(rows[index].at("permissions"), "0777");
        EXPECT_EQ(rows[index].at("made_by"), getpid());
        EXPECT_EQ(rows[index].at("lock_id"), semget(key, 0, 0));
        EXPECT_EQ(rows[index].at("lock"), index == 3 ? "held" : "free");
    }
}

TEST_F(InspectTables, segment_without_a_lock_is_shown) {
    make_groups();
    semctl(semget(static_cast<key_t>(0x5A5B7C3DU + static_cast<unsigned>(vsd())), 0, 0), 0, IPC_RMID);
    const Ran ran = run({"segments", "--json"});
    EXPECT_EQ(ran.status, 2);
    const Json rows = ran.json().at("rows");
    ASSERT_EQ(rows.size(), 1U);
    EXPECT_EQ(rows[0].at("lock"), "none");
    EXPECT_EQ(rows[0].at("lock_id"), nullptr);
}

TEST_F(InspectTables, other_device_is_looked_at_when_named) {
    make_vlans();
    vl_initial_vlan_entry(10, 1);
    const std::string own = std::to_string(vsd());
    setenv("VSDID", std::to_string(vsd() + 1).c_str(), 1);
    EXPECT_EQ(run({"vlans"}).status, 2);
    EXPECT_EQ(run({"vlans", "--vsd", own, "--json"}).json().at("rows").size(), 1U);
    setenv("VSDID", own.c_str(), 1);
    EXPECT_EQ(run({"vlans"}).status, 0);
}

TEST_F(InspectTables, texts_of_a_peer_are_shown_within_their_bound_and_harmless) {
    make_vlans();
    vl_initial_vlan_entry(10, 1);
    char *name = vl_get_vlan_entry(10)->name;
    std::memset(name, 'n', 36);
    vl_get_vlan_entry(10)->svi_state_a = 0x6E6E6E6E;
    EXPECT_EQ(run({"vlans", "--json"}).json().at("rows").at(0).at("name"), std::string(36, 'n'));
    std::strcpy(name, "a\x1b[2J\xff\\b");
    EXPECT_EQ(run({"vlans", "--json"}).json().at("rows").at(0).at("name"), "a\\x1b[2J\\xff\\x5cb");
    EXPECT_NE(run({"vlans"}).out.find("a\\x1b[2J\\xff\\x5cb"), std::string::npos);
}

} // namespace
