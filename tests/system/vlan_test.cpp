// Ports and VLANs of the sandbox server: what its commands and its clients' requests do to the shared tables, and what
// it announces.
#include "tests/system/workstation.h"

namespace {

using namespace test;

template <class Record> Record record_of(const Message &message) {
    Record record{};
    EXPECT_EQ(message.payload.size(), sizeof record) << message.type;
    if (message.payload.size() == sizeof record)
        std::memcpy(&record, message.payload.data(), sizeof record);
    return record;
}

bool operator==(const vlanset &left, const vlanset &right) {
    return std::memcmp(&left, &right, sizeof left) == 0;
}

// This process reads the tables as any client does.
struct SandboxVlans : Workstation {
    Process start_with_tables(const std::vector<std::string> &options = {}) const {
        Process sandbox = start_sandbox(options);
        sandbox.write_line("vlan patience 60000"); // a busy machine refuses nothing
        EXPECT_EQ(bridge_portdb_init(), 1);
        EXPECT_EQ(vl_vlandb_init(), 1);
        return sandbox;
    }
    // The one message of the next batch.
    static Message next_one(Peer &peer) {
        const std::vector<Message> messages = next(peer);
        EXPECT_EQ(messages.size(), 1U);
        return messages.empty() ? Message{} : messages[0];
    }
    template <class Record> static Record next_record(Peer &peer, uint32_t type) {
        const Message message = next_one(peer);
        EXPECT_EQ(message.type, type);
        return record_of<Record>(message);
    }
    // Runs commands, and returns when all have been.
    static void tell(Process &sandbox, std::initializer_list<const char *> lines) {
        static int marks = 0;
        for (const char *line : lines)
            sandbox.write_line(line);
        const std::string mark = "mark " + std::to_string(++marks);
        sandbox.write_line("print " + mark);
        EXPECT_TRUE(sandbox.shows(mark + "\n"));
        EXPECT_EQ(sandbox.count("error: ") - sandbox.count("error: vlan create "), 0) << sandbox.output(); // refused
    }
    static bool member(uint16_t vid, int ifx) { return vl_is_vlan_member(vid, ifx) != 0; }
};

TEST_F(SandboxVlans, new_port_stands_in_the_table_and_is_announced_with_all_that_it_has) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 10"});
    Peer client =
        register_client({VLAN_EVENT_CREATE_INTF, VLAN_EVENT_ADD_INTF, VLAN_EVENT_RANGE_ADD_INTF,
                         VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_MODIFY_INTF_ALLOWVL},
                        "raw");
    sandbox.write_line("port add 3 access 10");
    EXPECT_TRUE(sandbox.shows("\nport add 3 access 10: done\n"));
    ASSERT_NE(swport_get_spcb(3), nullptr);
    EXPECT_EQ(swport_get_spcb(3)->mode, uint32_t{BRI_PORT_ACCESS});
    EXPECT_EQ(swport_get_port_default_vid(3), 10);
    EXPECT_NE(swport_get_version(3), 0U);
    EXPECT_TRUE(member(10, 3));
    const auto port = next_record<vl_evt_intf_rec>(client, VLAN_EVENT_CREATE_INTF);
    EXPECT_EQ(port.ifx, 3U);
    EXPECT_EQ(port.mode, uint32_t{BRI_PORT_ACCESS});
    EXPECT_EQ(port.pvid, 10);
    EXPECT_EQ(next_record<vl_evt_intf_mode_rec>(client, VLAN_EVENT_MODIFY_INTF_MODE).mode, uint32_t{BRI_PORT_ACCESS});
    EXPECT_EQ(next_record<vl_evt_intf_pvid_rec>(client, VLAN_EVENT_MODIFY_INTF_PVID).pvid, 10);
    EXPECT_TRUE(next_record<vl_evt_intf_allow_rec>(client, VLAN_EVENT_MODIFY_INTF_ALLOWVL).allow == vlanset{});
    const auto joined = next_record<vl_evt_intf_vlan_rec>(client, VLAN_EVENT_ADD_INTF);
    EXPECT_EQ(joined.ifx, 3U);
    EXPECT_EQ(joined.vid, 10);
    EXPECT_EQ(joined.value, 3U);
}

TEST_F(SandboxVlans, port_is_a_member_of_the_vlans_that_it_carries) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 1-4", "port add 5 trunk 1", "port allow 5 2-3,9"});
    EXPECT_TRUE(!member(1, 5) && member(2, 5) && member(3, 5) && !member(4, 5));
    EXPECT_EQ(swport_get_vlan_tag_rule(5, 2), BRI_TAG_TAGGED);
    Peer client = register_client({VLAN_EVENT_RANGE_ADD_INTF, VLAN_EVENT_RANGE_DEL_INTF}, "raw");
    tell(sandbox, {"port allow 5 3-4"});
    const auto left = next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_DEL_INTF);
    EXPECT_TRUE(left.vlans == set_of({2}));
    const auto joined = next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_ADD_INTF);
    EXPECT_EQ(joined.ifx, 5U);
    EXPECT_TRUE(joined.vlans == set_of({4}));
    EXPECT_TRUE(joined.tagged == set_of({4}));
    EXPECT_EQ(joined.kind, uint32_t{BRI_MEMBERSHIP_STATIC});
    tell(sandbox, {"port allow 5 3-4,9", "vlan create 9"});
    EXPECT_TRUE(member(9, 5)); // a new VLAN gets the ports that carry it
    tell(sandbox, {"port mode 5 access", "port pvid 5 2"});
    EXPECT_TRUE(!member(1, 5) && member(2, 5) && !member(3, 5) && !member(9, 5));
    tell(sandbox, {"port mode 5 route"});
    EXPECT_FALSE(member(2, 5));
    tell(sandbox, {"port allow 5 none", "port mode 5 hybrid", "port join 5 4", "port join 5 1", "port leave 5 1"});
    EXPECT_TRUE(!member(1, 5) && member(4, 5));
    tell(sandbox, {"port del 5"});
    EXPECT_EQ(swport_get_spcb(5), nullptr);
    EXPECT_FALSE(member(4, 5));
}

// Every process may write the tables; what stands there is no bound.
TEST_F(SandboxVlans, native_vlan_beyond_every_vlan_in_the_table_is_replaced) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 10", "port add 5 access 1"});
    for (const uint16_t wild : {uint16_t{4095}, uint16_t{4096}, uint16_t{0xFFFF}}) {
        swport_get_raw_spcb(5)->default_vid = wild;
        tell(sandbox, {"port pvid 5 10"});
        EXPECT_EQ(swport_get_port_default_vid(5), 10) << wild;
        EXPECT_TRUE(member(10, 5)) << wild;
    }
}

TEST_F(SandboxVlans, routed_port_that_becomes_a_switch_port_is_announced_like_a_new_one) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 7", "port add 5 route 7"});
    Peer client = register_client({VLAN_EVENT_CREATE_INTF, VLAN_EVENT_ADD_INTF, VLAN_EVENT_RANGE_ADD_INTF,
                                   VLAN_EVENT_RANGE_DEL_INTF, VLAN_EVENT_MODIFY_INTF_MODE, VLAN_EVENT_MODIFY_INTF_PVID,
                                   VLAN_EVENT_MODIFY_INTF_ALLOWVL, VLAN_EVENT_DYN_MEM_ADD_RANG},
                                  "raw");
    EXPECT_FALSE(member(7, 5));
    tell(sandbox, {"port mode 5 hybrid"});
    EXPECT_EQ(next_record<vl_evt_intf_rec>(client, VLAN_EVENT_CREATE_INTF).mode, uint32_t{BRI_PORT_HYBRID});
    EXPECT_EQ(next_record<vl_evt_intf_mode_rec>(client, VLAN_EVENT_MODIFY_INTF_MODE).ifx, 5U);
    EXPECT_EQ(next_record<vl_evt_intf_pvid_rec>(client, VLAN_EVENT_MODIFY_INTF_PVID).pvid, 7);
    EXPECT_EQ(next_record<vl_evt_intf_allow_rec>(client, VLAN_EVENT_MODIFY_INTF_ALLOWVL).ifx, 5U);
    // Dynamic memberships end with a mode that has none.
    client.send({{VLAN_EVENT_DYN_MEM_ADD_RANG, bytes_of(vl_port_vlanset_req{5, set_of({7})})}});
    EXPECT_TRUE(next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_ADD_INTF).vlans == set_of({7}));
    tell(sandbox, {"port mode 5 route", "port mode 5 hybrid"});
    EXPECT_FALSE(member(7, 5));
}

TEST_F(SandboxVlans, one_vlan_s_life_is_announced_with_the_versions_of_the_table) {
    Process sandbox = start_with_tables();
    Peer client = register_client({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_RENAME,
                                   VLAN_EVENT_MODIFY_VLAN_MODE, VLAN_EVENT_SVI_CREATE_DESTROY},
                                  "raw");
    tell(sandbox, {"vlan create 7 dynamic", "vlan rename 7 lobby", "vlan mode 7 static", "vlan svi 7 900"});
    ASSERT_NE(vl_exist(7, BRI_VLAN_STATIC), 0);
    EXPECT_EQ(vl_get_svi_ifx(7), 900U);
    EXPECT_EQ(vl_is_created_by_cli(7), 1);
    const auto created = next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_CREATE_INDEX);
    EXPECT_EQ(created.vid, 7);
    EXPECT_EQ(created.version, 1);
    EXPECT_STREQ(created.name, "DVLAN0007");
    EXPECT_EQ(created.mode, uint32_t{BRI_VLAN_DYNAMIC});
    EXPECT_STREQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_RENAME).name, "lobby");
    EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_MODIFY_VLAN_MODE).mode, uint32_t{BRI_VLAN_STATIC});
    EXPECT_STREQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_RENAME).name, "VLAN0007"); // the table renames it
    const auto svi = next_record<vl_evt_svi_rec>(client, VLAN_EVENT_SVI_CREATE_DESTROY);
    EXPECT_EQ(svi.svi_ifx, 900U);
    EXPECT_EQ(svi.vid, 7);
    tell(sandbox, {"vlan delete 7", "vlan create 7"});
    EXPECT_EQ(next_record<vl_evt_svi_rec>(client, VLAN_EVENT_SVI_CREATE_DESTROY).svi_ifx, 0U);
    EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_DESTROY_INDEX).version, 1);
    EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_CREATE_INDEX).version, 2);
    EXPECT_EQ(vl_get_vlan_latest_version(7), 2);
}

TEST_F(SandboxVlans, several_vlans_are_announced_as_one_set_without_those_that_were_there) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 3", "vlan delete 3", "vlan create 2"});
    Peer client = register_client(
        {VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_DESTROY_RANGE, VLAN_EVENT_MODIFY_VLAN_MODE},
        "raw");
    tell(sandbox, {"vlan create 1-4 dynamic", "vlan delete 3-4094"});
    const auto created = next_record<vl_evt_vlanset_rec>(client, VLAN_EVENT_CREATE_RANGE);
    EXPECT_TRUE(created.vlans == set_of({1, 3, 4}));
    EXPECT_EQ(created.versions[1], 1);
    EXPECT_EQ(created.versions[2], 0);
    EXPECT_EQ(created.versions[3], 2);
    EXPECT_EQ(created.origin_data, 0U);
    for (const unsigned vid : {1U, 3U, 4U}) {
        const auto mode = next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_MODIFY_VLAN_MODE);
        EXPECT_EQ(mode.vid, vid);
        EXPECT_EQ(mode.mode, uint32_t{BRI_VLAN_DYNAMIC});
    }
    const auto deleted = next_record<vl_evt_vlanset_rec>(client, VLAN_EVENT_DESTROY_RANGE);
    EXPECT_TRUE(deleted.vlans == set_of({3, 4}));
    EXPECT_EQ(deleted.versions[3], 2);
    EXPECT_EQ(vl_get_vlan_number(), 2);
}

TEST_F(SandboxVlans, tables_outlive_the_server) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"port add 1 trunk 1", "port allow 1 all", "vlan create 20-30"});
    sandbox.signal(SIGKILL);
    EXPECT_EQ(sandbox.wait(), 1000 + SIGKILL);
    Process next_server = start_sandbox();
    next_server.write_line("port show");
    EXPECT_TRUE(next_server.shows("  port 1 TRUNK native 1 allows 1-4094 member of 20-30\nports: 1\n"));
    next_server.write_line("vlan delete 21-30");
    next_server.write_line("vlan show");
    EXPECT_TRUE(next_server.shows("  vlan 20 VLAN0020 static version 1 svi 0 ports 1\nvlans: 1\n"));
}

TEST_F(SandboxVlans, bad_commands_are_told_and_change_nothing) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"port add 1 access 1", "vlan create 5", "vlan svi 5 9"});
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"port", "error: no such command: port (try help port)"},
        {"port fly 1", "error: no such command: port fly (try help port)"},
        {"port add 1 trunk", "error: usage: port add IFX MODE PVID"},
        {"port add 1 trunk 2", "error: there is a port 1 already"},
        {"port add 0 trunk 2", "error: no port number: 0"},
        {"port add 64 trunk 2", "error: no port number: 64"},
        {"port add 2 bridge 2", "error: no such port mode: bridge"},
        {"port add 2 trunk 0", "error: no VLAN id: 0"},
        {"port mode 2 trunk", "error: no port 2"},
        {"port join 1 5", "error: port 1 is an access or a routed port"},
        {"port leave 1 5", "error: port 1 is an access or a routed port"},
        {"port pvid 1 4095", "error: not a number up to 4094: 4095"},
        {"port allow 1 1-4095", "error: not a VLAN list: 1-4095"},
        {"vlan create", "error: usage: vlan create LIST [MODE]"},
        {"vlan create 0", "error: not a VLAN list: 0"},
        {"vlan create 6 private", "error: no such VLAN mode: private"},
        {"vlan rename 6 x", "error: no VLAN 6"},
        {"vlan rename 5 123456789-123456789-123456789-123456", "error: a name has 1 to 35 characters"},
        {"vlan svi 5 8", "error: VLAN 5 has the SVI 9"},
        {"vlan create 5", "vlan create: they exist already"},
    };
    for (const auto &[command, error] : cases) {
        sandbox.write_line(command);
        EXPECT_TRUE(sandbox.shows(error)) << command;
    }
    sandbox.write_line("vlan show");
    EXPECT_TRUE(sandbox.shows("  vlan 5 VLAN0005 static version 1 svi 9 ports none\nvlans: 1\n"));
    sandbox.write_line("port show");
    EXPECT_TRUE(sandbox.shows("  port 1 ACCESS native 1 allows none member of none\nports: 1\n"));
}

struct SandboxRequests : SandboxVlans {
    template <class Record> static void send(Peer &client, uint32_t type, const Record &record) {
        client.send({{type, bytes_of(record)}});
    }
    // A request that comes back shows that everything before it has been done.
    static void settle(Peer &client) {
        client.send({{VLAN_EVENT_SET_VSWPT_NUM, {1}}});
        EXPECT_EQ(next_one(client), (Message{VLAN_EVENT_SET_VSWPT_NUM, {1}}));
    }
    static vl_evt_vlan_rec vlan(uint16_t vid) {
        vl_evt_vlan_rec record{};
        record.vid = vid;
        return record;
    }
    static vl_dyn_member_req port_vlan(uint32_t ifx, uint16_t vid) {
        vl_dyn_member_req record{};
        record.ifx = ifx;
        record.vid = vid;
        return record;
    }
};

TEST_F(SandboxRequests, vlans_are_created_deleted_and_rolled_back) {
    Process sandbox = start_with_tables();
    Peer client = register_client(
        {VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_DESTROY_RANGE, VLAN_EVENT_SET_VSWPT_NUM}, "raw");
    send(client, VLAN_EVENT_CREATE_INDEX, vlan(6));
    EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_CREATE_INDEX).version, 1);
    EXPECT_NE(vl_exist(6, BRI_VLAN_STATIC), 0);
    EXPECT_EQ(vl_is_created_by_cli(6), 0);
    send(client, VLAN_EVENT_DESTROY_INDEX, vlan(6));
    EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_DESTROY_INDEX).version, 1);
    EXPECT_EQ(vl_exist(6, 0), 0);
    tell(sandbox, {"vlan create 1-4"});
    vl_evt_vlanset_rec back{};
    back.vlans = set_of({2});
    send(client, VLAN_EVENT_DESTROY_RANGE, back);
    EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_DESTROY_INDEX).vid, 2);
    back.vlans = set_of({0, 1, 2, 3, 4095});
    send(client, VLAN_EVENT_DESTROY_RANGE, back);
    EXPECT_TRUE(next_record<vl_evt_vlanset_rec>(client, VLAN_EVENT_DESTROY_RANGE).vlans == set_of({1, 3}));
    EXPECT_TRUE(vl_exist(4, 0) != 0 && vl_get_vlan_number() == 1);
}

TEST_F(SandboxRequests, ports_get_native_allowed_and_dynamic_vlans) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 1-5", "port add 9 trunk 1"});
    Peer client = register_client(
        {VLAN_EVENT_RANGE_ADD_INTF, VLAN_EVENT_RANGE_DEL_INTF, VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_SET_VSWPT_NUM},
        "raw");
    send(client, VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec{9, 5, 0});
    EXPECT_EQ(next_record<vl_evt_intf_pvid_rec>(client, VLAN_EVENT_MODIFY_INTF_PVID).pvid, 5);
    EXPECT_EQ(swport_get_port_default_vid(9), 5);
    send(client, VLAN_EVENT_SP_ADD_ALLOW_VLAN, vl_port_vlanset_req{9, set_of({1, 2})});
    EXPECT_TRUE(next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_ADD_INTF).vlans == set_of({1, 2}));
    EXPECT_TRUE(swport_is_allow_vlan(9, 2) && member(2, 9));
    send(client, VLAN_EVENT_SET_ADD_DYN_INTF, port_vlan(9, 3));
    const auto dynamic = next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_ADD_INTF);
    EXPECT_TRUE(dynamic.vlans == set_of({3}));
    EXPECT_EQ(dynamic.kind, uint32_t{BRI_MEMBERSHIP_DYNAMIC});
    send(client, VLAN_EVENT_DYN_MEM_ADD_RANG, vl_port_vlanset_req{9, set_of({2, 4, 5, 600})});
    EXPECT_TRUE(next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_ADD_INTF).vlans == set_of({4, 5}));
    send(client, VLAN_EVENT_SET_DEL_DYN_INTF, port_vlan(9, 3));
    EXPECT_TRUE(next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_DEL_INTF).vlans == set_of({3}));
    send(client, VLAN_EVENT_SP_RMV_ALLOW_VLAN, vl_port_vlanset_req{9, set_of({1, 2})});
    EXPECT_TRUE(next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_DEL_INTF).vlans == set_of({1}));
    EXPECT_TRUE(!swport_is_allow_vlan(9, 2) && member(2, 9)); // 2 is a dynamic one too
    send(client, VLAN_EVENT_DYN_MEM_DEL_RANG, vl_port_vlanset_req{9, set_of({2, 4})});
    EXPECT_TRUE(next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_DEL_INTF).vlans == set_of({2, 4}));
    send(client, VLAN_EVENT_SP_RMV_SUB_IF_VLAN, vl_port_vlanset_req{9, set_of({1, 5})});
    EXPECT_TRUE(next_record<vl_evt_intf_vlanset_rec>(client, VLAN_EVENT_RANGE_DEL_INTF).vlans == set_of({5}));
    settle(client);
}

TEST_F(SandboxRequests, request_that_makes_no_sense_is_ignored) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 1", "port add 9 trunk 1"});
    Peer client =
        register_client({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_DESTROY_RANGE,
                         VLAN_EVENT_CREATE_PREJ, VLAN_EVENT_CREATE_RANGE_PREJ, VLAN_EVENT_RANGE_ADD_INTF,
                         VLAN_EVENT_RANGE_DEL_INTF, VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_MODIFY_INTF_ALLOWVL,
                         VLAN_EVENT_SET_ADD_DYN_INTF, VLAN_EVENT_SET_DEL_DYN_INTF, VLAN_EVENT_DYN_MEM_ADD_RANG,
                         VLAN_EVENT_DYN_MEM_DEL_RANG, VLAN_EVENT_SP_ADD_ALLOW_VLAN, VLAN_EVENT_SP_RMV_ALLOW_VLAN,
                         VLAN_EVENT_SET_VSWPT_NUM, VLAN_EVENT_SP_RMV_SUB_IF_VLAN},
                        "raw");
    for (const uint32_t type :
         {VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_DESTROY_INDEX, VLAN_EVENT_DESTROY_RANGE, VLAN_EVENT_CREATE_PREJ,
          VLAN_EVENT_CREATE_RANGE_PREJ, VLAN_EVENT_MODIFY_INTF_PVID, VLAN_EVENT_SET_ADD_DYN_INTF,
          VLAN_EVENT_SET_DEL_DYN_INTF, VLAN_EVENT_DYN_MEM_ADD_RANG, VLAN_EVENT_DYN_MEM_DEL_RANG,
          VLAN_EVENT_SP_ADD_ALLOW_VLAN, VLAN_EVENT_SP_RMV_ALLOW_VLAN, VLAN_EVENT_SP_RMV_SUB_IF_VLAN}) {
        client.send({{type, {1, 2, 3}}, {type, {}}, {type, ByteVec(9000)}});
        EXPECT_TRUE(sandbox.shows("(" + std::to_string(type) + ") ignored, 9000 bytes")) << type;
    }
    for (const uint16_t vid : {uint16_t{0}, uint16_t{4095}, uint16_t{65535}}) {
        send(client, VLAN_EVENT_CREATE_INDEX, vlan(vid));
        send(client, VLAN_EVENT_DESTROY_INDEX, vlan(vid));
        send(client, VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec{9, vid, 0});
        send(client, VLAN_EVENT_SET_ADD_DYN_INTF, port_vlan(9, vid));
    }
    for (const uint32_t ifx : {0U, 8U, 64U, 0xffffffffU}) {
        send(client, VLAN_EVENT_MODIFY_INTF_PVID, vl_evt_intf_pvid_rec{ifx, 1, 0});
        send(client, VLAN_EVENT_SET_ADD_DYN_INTF, port_vlan(ifx, 1));
        send(client, VLAN_EVENT_SP_ADD_ALLOW_VLAN, vl_port_vlanset_req{ifx, set_of({1})});
        EXPECT_TRUE(sandbox.shows("(417) ignored, no port " + std::to_string(ifx)));
    }
    settle(client); // nothing was announced before
    sandbox.write_line("vlan show");
    EXPECT_TRUE(sandbox.shows("  vlan 1 VLAN0001 static version 1 svi 0 ports none\nvlans: 1\n"));
}

// Clients that answer the question before a creation by hand.
struct SandboxPrejudge : SandboxRequests {
    static void answer(Peer &client, uint32_t result) { send(client, VLAN_EVENT_CREATE_PREJ, result); }
    static void expect_question(Peer &client, uint16_t vid) {
        EXPECT_EQ(next_record<vl_evt_vlan_rec>(client, VLAN_EVENT_CREATE_PREJ).vid, vid);
    }
};

TEST_F(SandboxPrejudge, vlan_is_created_when_everybody_who_was_asked_accepts) {
    Process sandbox = start_with_tables();
    Peer first = register_client({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_PREJ}, "first");
    Peer second = register_client({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_PREJ}, "second");
    Peer other = register_client({VLAN_EVENT_CREATE_INDEX}, "other");
    sandbox.write_line("vlan create 50");
    expect_question(first, 50);
    expect_question(second, 50);
    answer(first, 0);
    EXPECT_FALSE(first.readable(20)); // one answer is missing
    EXPECT_EQ(vl_exist(50, 0), 0);
    answer(second, 0);
    for (Peer *client : {&first, &second, &other})
        EXPECT_EQ(next_record<vl_evt_vlan_rec>(*client, VLAN_EVENT_CREATE_INDEX).vid, 50);
    EXPECT_TRUE(sandbox.shows("vlan create 50: done\n"));
}

TEST_F(SandboxPrejudge, one_refusal_is_enough_and_a_late_answer_is_not_taken_for_the_next_question) {
    Process sandbox = start_with_tables();
    Peer first = register_client({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_PREJ}, "first");
    Peer second = register_client({VLAN_EVENT_CREATE_INDEX, VLAN_EVENT_CREATE_PREJ}, "second");
    send(second, VLAN_EVENT_CREATE_INDEX, vlan(51));
    expect_question(first, 51);
    answer(first, 7);
    EXPECT_TRUE(sandbox.shows("vlan create 51: client 1 (first) refused\n"));
    EXPECT_EQ(vl_exist(51, 0), 0);
    sandbox.write_line("vlan create 52");
    expect_question(first, 52);
    answer(first, 0);
    expect_question(second, 51);
    answer(second, 0);
    expect_question(second, 52);
    answer(second, 1);
    EXPECT_TRUE(sandbox.shows("vlan create 52: client 2 (second) refused\n"));
    EXPECT_FALSE(first.readable());
}

TEST_F(SandboxPrejudge, a_set_is_asked_and_refused_as_a_whole) {
    Process sandbox = start_with_tables();
    Peer client = register_client({VLAN_EVENT_CREATE_RANGE, VLAN_EVENT_CREATE_RANGE_PREJ}, "raw");
    tell(sandbox, {"vlan create 62"});
    vl_vlanset_reply reply{set_of({63}), 1};
    for (const uint32_t failure : {1U, 0U}) {
        sandbox.write_line("vlan create 61-64");
        EXPECT_EQ(next_one(client), (Message{VLAN_EVENT_CREATE_RANGE_PREJ, bytes_of(set_of({61, 63, 64}))}));
        reply.failure = failure;
        send(client, VLAN_EVENT_CREATE_RANGE_PREJ, reply);
    }
    EXPECT_TRUE(sandbox.shows("vlan create 61,63-64: client 1 (raw) refused\n"));
    EXPECT_TRUE(next_record<vl_evt_vlanset_rec>(client, VLAN_EVENT_CREATE_RANGE).vlans == set_of({61, 63, 64}));
}

TEST_F(SandboxPrejudge, client_that_is_silent_refuses_and_one_that_goes_does_not) {
    Process sandbox = start_with_tables();
    Peer silent = register_client({VLAN_EVENT_CREATE_PREJ}, "silent");
    {
        const Peer leaving = register_client({VLAN_EVENT_CREATE_PREJ}, "leaving");
        tell(sandbox, {"vlan patience 50"});
        sandbox.write_line("vlan create 71");
        EXPECT_TRUE(sandbox.shows("vlan create 71: 2 clients did not answer in time\n"));
        tell(sandbox, {"vlan patience 60000"});
        send(silent, VLAN_EVENT_CREATE_PREJ, uint32_t{0}); // too late
        EXPECT_TRUE(sandbox.shows("sent VLAN_EVENT_CREATE_PREJ"));
        sandbox.write_line("vlan create 72");
        expect_question(silent, 71);
        expect_question(silent, 72);
        answer(silent, 0);
        EXPECT_TRUE(sandbox.shows("sent VLAN_EVENT_CREATE_PREJ"));
    }
    EXPECT_TRUE(sandbox.shows("vlan create 72: done\n"));
    sandbox.write_line("vlan create 73");
    expect_question(silent, 73);
    silent.close();
    EXPECT_TRUE(sandbox.shows("vlan create 73: done\n"));
    EXPECT_EQ(vl_get_vlan_number(), 2);
}

// Host daemons of which each has a say.
struct Guards : SandboxVlans {
    Process start_guard(Process &sandbox, const std::string &name, const std::vector<std::string> &options = {}) const {
        Process guard = start_host(name, options, kVlanGuard);
        EXPECT_TRUE(sandbox.shows("(" + name + "): registered"));
        return guard;
    }
};

TEST_F(Guards, vlan_that_one_of_two_guards_refuses_is_not_created) {
    Process sandbox = start_with_tables();
    Process first = start_guard(sandbox, "first");
    Process second = start_guard(sandbox, "second", {"-r", "40", "-r", "45"});
    sandbox.write_line("vlan create 40");
    EXPECT_TRUE(first.shows("first: VLAN 40 asked: accepted\n"));
    EXPECT_TRUE(second.shows("second: VLAN 40 asked: refused\n"));
    EXPECT_TRUE(sandbox.shows("vlan create 40: client 2 (second) refused\n"));
    EXPECT_EQ(vl_exist(40, 0), 0);
    sandbox.write_line("vlan create 44-46");
    EXPECT_TRUE(second.shows("second: VLANs 44-46 asked: refused because of 45\n"));
    EXPECT_TRUE(sandbox.shows("vlan create 44-46: client 2 (second) refused\n"));
    EXPECT_EQ(vl_get_vlan_number(), 0);
    sandbox.write_line("vlan create 41");
    for (Process *guard : {&first, &second}) {
        EXPECT_TRUE(guard->shows(": VLAN 41 created, version 1\n"));
        EXPECT_EQ(guard->count("created"), 1);
        EXPECT_EQ(guard->end(), 0);
    }
    EXPECT_EQ(sandbox.end(), 0);
}

TEST_F(Guards, vlan_that_both_accept_is_in_the_table_and_both_see_it_with_its_version) {
    Process sandbox = start_with_tables();
    tell(sandbox, {"vlan create 40", "vlan delete 40"});
    Process first = start_guard(sandbox, "first");
    Process second = start_guard(sandbox, "second");
    sandbox.write_line("vlan create 40");
    for (const std::string name : {"first", "second"}) {
        Process &guard = name == "first" ? first : second;
        EXPECT_TRUE(guard.shows(name + ": VLAN 40 asked: accepted\n" + name + ": VLAN 40 created, version 2\n"));
    }
    EXPECT_TRUE(sandbox.shows("vlan create 40: done\n"));
    EXPECT_NE(vl_exist(40, BRI_VLAN_STATIC), 0);
    EXPECT_EQ(vl_get_vlan_latest_version(40), 2);
    for (Process *process : {&first, &second, &sandbox})
        EXPECT_EQ(process->end(), 0);
}

TEST_F(Guards, one_vlan_of_a_set_is_taken_back_by_a_guard_that_had_accepted_it) {
    Process sandbox = start_with_tables();
    Process first = start_guard(sandbox, "first");
    Process second = start_guard(sandbox, "second", {"-b", "62"});
    sandbox.write_line("vlan create 61-63");
    EXPECT_TRUE(second.shows("second: VLANs 61-63 asked: accepted\n"));
    EXPECT_TRUE(second.shows("second: VLAN 62 created, version 1\nsecond: VLAN 62 taken back\n"));
    EXPECT_TRUE(sandbox.shows("client 2 (second): sent VLAN_EVENT_DESTROY_RANGE(390), 8708 bytes"));
    EXPECT_TRUE(first.shows("first: VLAN 63 created, version 1\nfirst: VLAN 62 deleted, version 1\n"));
    EXPECT_TRUE(second.shows("second: VLAN 62 deleted, version 1\n"));
    EXPECT_TRUE(vl_exist(61, 0) != 0 && vl_exist(62, 0) == 0 && vl_exist(63, 0) != 0);
    for (Process *process : {&first, &second, &sandbox})
        EXPECT_EQ(process->end(), 0);
}

TEST_F(Guards, command_line_that_is_not_understood_is_refused) {
    const std::vector<std::vector<std::string>> cases = {{"-x"},        {"-r"},     {"-r", "0"}, {"-r", "4095"},
                                                         {"-r", "4-5"}, {"-b", ""}, {"-b"},      {"surplus"}};
    for (const auto &options : cases) {
        Process guard = start_host("guard", options, kVlanGuard);
        EXPECT_EQ(guard.wait(), 2);
        EXPECT_TRUE(guard.shows("usage: vlan_guard [-n NAME]"));
    }
}

} // namespace
