// Payloads as people and scripts see and write them.
#include "tests/support/test.h"
#include "wire/batch.h"
#include "wire/json.h"
#include "wire/text.h"
#include "wire/value.h"

namespace {

using namespace wire;

template <class Fn> std::string complaint_of(Fn &&fn) {
    try {
        fn();
    } catch (const std::invalid_argument &error) {
        return error.what();
    }
    return "no complaint";
}
std::string refusal(const char *record, const char *text) {
    return complaint_of([&] { (void)parse_text(one(*find_record(record)), text); });
}
uint32_t bit(unsigned id) {
    return uint32_t{1} << id % 32;
}

TEST(WireText, record_is_one_word_a_field) {
    vl_evt_intf_rec record{};
    record.ifx = 3;
    record.mode = BRI_PORT_TRUNK;
    record.pvid = 10;
    EXPECT_EQ(text_of(record), "ifx=3 mode=trunk pvid=10");
    EXPECT_EQ(json_of(record).dump(), R"({"ifx":3,"mode":"trunk","pvid":10})");
}

TEST(WireText, fields_are_read_in_any_order_and_missing_ones_are_0) {
    const auto record = parse_text_as<vl_evt_intf_rec>("  pvid=0x0a  mode=Trunk ");
    EXPECT_EQ(record.ifx, 0U);
    EXPECT_EQ(record.mode, uint32_t{BRI_PORT_TRUNK});
    EXPECT_EQ(record.pvid, 10U);
    EXPECT_EQ(parse_text_as<vl_evt_intf_rec>("mode=2").mode, 2U);
    const Buffer bytes = parse_json(one(record_of<vl_evt_intf_rec>()), Json::parse(R"({"pvid":"0x0a","mode":2})"));
    EXPECT_EQ(object_of<vl_evt_intf_rec>(bytes).pvid, 10U);
}

TEST(WireText, each_kind_of_value_has_its_form) {
    vl_evt_intf_vlanset_rec members{};
    members.ifx = 7;
    members.kind = 9;
    for (const unsigned vid : {1U, 2U, 20U, 21U, 22U, 4095U})
        members.vlans.words[vid / 32] |= bit(vid);
    EXPECT_EQ(text_of(members), "ifx=7 vlans=1,2,20-22,4095 tagged=none kind=9");

    bri_mac_msg mac{};
    mac.oper = BRI_MAC_ADD;
    mac.entry = {1, {}, 0x4B, {2, 0, 0, 0, 0, 0xAB}, 10, 3, BRI_MAC_TYPE_STATIC, {}};
    EXPECT_EQ(text_of(mac), "oper=add flags=forced field=mac|ifx|bcast_id|0x40 mac=02:00:00:00:00:ab bcast_id=10 ifx=3 "
                            "type=static");

    bri_reg_msg registration{};
    for (const unsigned type : {392U, 400U, 420U, 500U, 501U, 502U})
        registration.event_set.words[type / 32] |= bit(type);
    std::strcpy(registration.name, "my daemon");
    EXPECT_EQ(text_of(registration),
              "event_set=VLAN_EVENT_RENAME,VLAN_EVENT_DEFAULT_INTF,420,500-502 op=withdraw pid=0 "
              "name=\"my daemon\" fresh=0");

    vl_evt_vlanset_rec set{};
    set.versions[1] = set.versions[2] = 3;
    set.versions[4095] = 1;
    EXPECT_EQ(text_of(set), "vlans=none versions=1-2:3,4095:1 origin_data=0");

    vl_stat statistics{};
    statistics.cur_vlan_num = -2;
    statistics.server[1] = 5;
    EXPECT_EQ(text_of(statistics), "min_vid=0 max_vid=0 max_vlan_num=0 cur_vlan_num=-2 max_svi_num=0 cur_svi_num=0 "
                                   "total_del_times=0 server=0x0005");
    bri_proto_registry registry{};
    registry.prejudge[1] = 1U << BRI_PROT_ERPS | 1U << 20;
    EXPECT_EQ(text_of(registry), "state=0 prejudge=1:erps|0x100000");
}

TEST(WireText, sets_are_read_in_every_form) {
    const auto words = [](const char *text) {
        return parse_text_as<vl_port_vlanset_req>(std::string("vlans=") + text).vlans;
    };
    EXPECT_EQ(text_of(words("20,1-3,2")), "words=1-3,20");
    EXPECT_EQ(text_of(words("all")), "words=1-4094");
    EXPECT_EQ(text_of(words("none")), "words=none");
    EXPECT_EQ(parse_text_as<vle>("members=0,63").members[1], 0x80000000U);
    const auto registration = parse_text_as<bri_reg_msg>("event_set=VLAN_EVENT_RENAME,400-402,0x101");
    EXPECT_EQ(text_of(registration.event_set),
              "words=MAC_EVENT_SYNC_DATA_BEGIN,VLAN_EVENT_RENAME,VLAN_EVENT_DEFAULT_INTF,VLAN_EVENT_INTF_STATE,"
              "VLAN_EVENT_ADD_INTF");
    EXPECT_EQ(text_of(parse_text_as<bri_reg_msg>("event_set=all").event_set), "words=all");
}

TEST(WireText, numbers_have_the_words_of_their_field_alone_too) {
    const Field &protocols = *record_of<bri_proto_registry>().find("state");
    EXPECT_EQ(parse_number(protocols, "mstp|erps"), 1U << BRI_PROT_MSTP | 1U << BRI_PROT_ERPS);
    EXPECT_EQ(number_text(protocols, 1U << BRI_PROT_MSTP | 1U << BRI_PROT_ERPS), "mstp|erps");
    EXPECT_EQ(parse_number(protocols, "none"), 0U);
    EXPECT_EQ(parse_text_as<bri_proto_registry>("state=none").state, 0U);
    EXPECT_EQ(complaint_of([&] { (void)parse_number(protocols, "mstp|none"); }).find("\"none\" is no number"), 0U);
    const Field &mode = *record_of<vl_evt_intf_rec>().find("mode");
    EXPECT_EQ(parse_number(mode, "trunk"), static_cast<uint32_t>(BRI_PORT_TRUNK));
    EXPECT_EQ(number_text(mode, 77), "77");
}

TEST(WireText, control_characters_of_names_are_escaped_and_come_back) {
    vl_evt_vlan_rec record{};
    std::strcpy(record.name, "a\x1b[2J\"\xff\\b{=}");
    EXPECT_EQ(text_of(record), R"(vid=0 version=0 name="a\x1b[2J\x22\xff\x5cb{=}" occasion=none mode=0)");
    EXPECT_STREQ(parse_text_as<vl_evt_vlan_rec>(text_of(record)).name, record.name);
    EXPECT_STREQ(parse_text_as<vl_evt_vlan_rec>("name=\"two words\"").name, "two words");
    EXPECT_EQ(json_of(record).at("name"), R"(a\x1b[2J\x22\xff\x5cb{=})");
    const char field[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(printable(field, sizeof field), "abcd");
}

TEST(WireText, unknown_field_is_answered_with_those_that_there_are) {
    EXPECT_EQ(refusal("vl_evt_intf_mode_rec", "ifx=1 vlan=2"),
              "no field \"vlan\" in vl_evt_intf_mode_rec; it has ifx mode");
    EXPECT_EQ(complaint_of([] { (void)parse_message("VLAN_EVENT_DEFAULT_RANGE vid=1", Direction::kToClient); }),
              "no field \"vid\": nothing is known of this payload");
    EXPECT_EQ(complaint_of([] { (void)parse_message("VLAN_EVENT_RENAM vid=1", Direction::kToClient); }),
              "no such event: VLAN_EVENT_RENAM");
}

TEST(WireText, values_that_do_not_fit_are_refused_by_name) {
    const struct {
        const char *record;
        const char *text;
        const char *refusal;
    } rows[] = {
        {"vl_evt_vlan_rec", "vid=65536", "vid: \"65536\" is no number up to 65535"},
        {"vl_evt_vlan_rec", "vid=ten", "vid: \"ten\" is no number"},
        {"vl_evt_vlan_rec", "vid=", "vid: \"\" is no number"},
        {"vl_evt_vlan_rec", "vid=-1", "vid: \"-1\" is no number"},
        {"vl_evt_vlan_rec", "vid=1 vid=2", "the field \"vid\" stands twice"},
        {"vl_evt_vlan_rec", "vid 1", "\"=\" expected at \" 1\""},
        {"vl_evt_vlan_rec", "name=\"a", "a closing quotation mark expected at \"a\""},
        {"vl_evt_vlan_rec", "name=a\\n", "name: \"a\\x5cn\" has a backslash that does not begin \\xHH"},
        {"vl_evt_vlan_rec", "name=123456789012345678901234567890123456x",
         "name: \"123456789012345678901234567890123456x\" is longer than 36 bytes"},
        {"vl_evt_vlan_rec", "mode=fast", "mode: \"fast\" is no number and none of static dynamic super"},
        {"vl_stat", "cur_vlan_num=-2147483649", "cur_vlan_num: \"2147483649\" is no number up to 2147483648"},
        {"vlanset", "words=4096", "words: \"4096\" is no number up to 4095"},
        {"vlanset", "words=9-1", "words: \"9-1\" runs backwards"},
        {"vlanset", "words=1,,2", "words: \"\" is no number up to 4095"},
        {"bri_mac_entry", "mac=02:00:00:00:00", "mac: \"02:00:00:00:00\" is no address such as 02:00:00:00:00:01"},
        {"bri_mac_entry", "mac=02:00:00:00:00:0x",
         "mac: \"02:00:00:00:00:0x\" is no address such as 02:00:00:00:00:01"},
        {"vl_vswpt_req", "first=0x123", "first: \"0x123\" has half a byte"},
        {"vl_vswpt_req", "first=0x12zz", "first: \"12zz\" is not hexadecimal"},
        {"bri_proto_registry", "prejudge=14:1", "prejudge: \"14\" is no number up to 13"},
        {"bri_proto_registry", "prejudge=1", "prejudge: \"1\" is not of the form index:number"},
        {"l2top_port_status_batch", "count=1 records=3", "\"{\" expected at \"3\""},
        {"l2top_port_status_batch", "records={}*65", "the field \"records\" takes 64 records at most"},
        {"vlan_reply", "rest=0x00 rest=0x00", "\"rest\" stands twice"},
        {"vlan_reply", "length=1 rest=0x0000", "\"rest\" is longer than \"length\""},
        {"vlan_reply", "result=1 }", "nothing more expected at \"}\""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(refusal(row.record, row.text), row.refusal);
}

TEST(WireText, payload_that_ends_early_is_shown_as_far_as_it_goes) {
    const vl_evt_intf_pvid_rec record{3, 10, 0};
    const Bytes bytes = bytes_of(record);
    const Payload payload = one(record_of<vl_evt_intf_pvid_rec>());
    EXPECT_EQ(text_of(payload, bytes.first(4)), "ifx=3 length=4");
    EXPECT_EQ(text_of(payload, Bytes(bytes.first(5)), Order::kLittle), "ifx=3 length=5 rest=0x0a");
    EXPECT_EQ(text_of(payload, {}), "length=0");
    EXPECT_EQ(json_of(payload, bytes.first(5), Order::kLittle).dump(), R"({"ifx":3,"length":5,"rest":"0x0a"})");
}

TEST(WireText, surplus_and_unknown_bytes_are_shown_behind) {
    const Buffer bytes{0, 0, 0, 1, 0xAB};
    EXPECT_EQ(message_text(VLAN_EVENT_CREATE_PREJ, Direction::kToServer, bytes, Order::kBig),
              "VLAN_EVENT_CREATE_PREJ result=1 rest=0xab");
    EXPECT_EQ(message_text(420, Direction::kToClient, bytes), "420 rest=0x00000001ab");
    EXPECT_EQ(message_text(BRIDGE_EVENT_BKUP_DATA_END, Direction::kToClient, {}), "BRIDGE_EVENT_BKUP_DATA_END");
    EXPECT_EQ(message_text(BRIDGE_EVENT_BKUP_DATA_END, Direction::kToClient, Bytes(bytes).first(1)),
              "BRIDGE_EVENT_BKUP_DATA_END rest=0x00");
}

TEST(WireText, records_in_a_record_stand_in_braces) {
    const ParsedMessage message = parse_message(
        "L2TOP_EVENT_PORT_STATUS count=3 records={ifx=1 instance=all state=3},{}*2,{ifx=2}", Direction::kToServer);
    ASSERT_EQ(message.payload.size(), 4U + 4 * 20);
    EXPECT_EQ(message_text(message.type, Direction::kToServer, message.payload),
              "L2TOP_EVENT_PORT_STATUS count=3 records={ifx=1 instance=all state=3 param=0 flag=0},{}*2,"
              "{ifx=2 instance=0 state=0 param=0 flag=0}");
    EXPECT_EQ(parse_message("L2TOP_EVENT_PORT_STATUS", Direction::kToServer).payload.size(), 4U);
    const Json json = json_of(one(record_of<l2top_port_status_batch>()), message.payload);
    EXPECT_EQ(json.at("records").size(), 4U);
    EXPECT_EQ(json.at("records")[0].at("instance"), "all");
}

TEST(WireText, run_of_one_record_needs_no_braces) {
    const ParsedMessage one = parse_message("MAC_EVENT_NOTIFY_ADDR oper=add", Direction::kToClient);
    EXPECT_EQ(one.payload.size(), 40U);
    const ParsedMessage two = parse_message("MAC_EVENT_NOTIFY_ADDR {oper=add},{oper=del}", Direction::kToClient);
    EXPECT_EQ(two.payload.size(), 80U);
    EXPECT_EQ(parse_message("MAC_EVENT_NOTIFY_ADDR", Direction::kToClient).payload.size(), 0U);
    EXPECT_EQ(message_text(one.type, Direction::kToClient, one.payload).find('{'), std::string::npos);
    EXPECT_NE(message_text(two.type, Direction::kToClient, two.payload).find("},{oper=del"), std::string::npos);
}

TEST(WireText, numbers_are_read_and_written_in_the_order_that_is_asked_for) {
    const Payload payload = one(record_of<vl_evt_intf_pvid_rec>());
    EXPECT_EQ(parse_text(payload, "ifx=1 pvid=0x203", Order::kBig), (Buffer{0, 0, 0, 1, 2, 3, 0, 0}));
    EXPECT_EQ(parse_text(payload, "ifx=1 pvid=0x203", Order::kLittle), (Buffer{1, 0, 0, 0, 3, 2, 0, 0}));
}

TEST(WireText, batch_is_a_line_a_message_and_one_for_what_is_wrong) {
    Buffer batch = join({{VLAN_EVENT_CREATE_PREJ, Buffer{0, 0, 0, 1}, 0}}, Order::kBig);
    EXPECT_EQ(batch_text(batch, Direction::kToServer, Order::kBig),
              (std::vector<std::string>{"VLAN_EVENT_CREATE_PREJ result=1"}));
    batch.back() = 2;
    batch.push_back(7);
    batch[7] = 2;
    EXPECT_EQ(batch_text(batch, Direction::kToServer, Order::kBig),
              (std::vector<std::string>{"VLAN_EVENT_CREATE_PREJ result=2", "! msg_len=12 in a batch of 21 bytes",
                                        "! msg_cnt=2 in front of 1 messages", "! rest=0x07"}));
}

TEST(WireText, filter_holds_when_every_named_field_agrees) {
    const Payload payload = one(record_of<vl_evt_intf_vlanset_rec>());
    const Buffer bytes = parse_text(payload, "ifx=3 vlans=1-10 kind=static");
    for (const char *yes : {"", "ifx=3", "vlans=2,5 ifx=3", "vlans=none", "kind=static vlans=1-10"})
        EXPECT_TRUE(Filter(payload, yes).matches(bytes)) << yes;
    for (const char *no : {"ifx=4", "vlans=10-11", "ifx=3 kind=dynamic", "ifx=0"})
        EXPECT_FALSE(Filter(payload, no).matches(bytes)) << no;
    EXPECT_TRUE(Filter(payload, "ifx=3").matches(parse_text(payload, "ifx=3", Order::kBig), Order::kBig));
    EXPECT_FALSE(Filter(payload, "kind=0").matches(Bytes(bytes).first(100))) << "not there";
    EXPECT_THROW(Filter(payload, "port=3"), std::invalid_argument);
    const Payload run = run_of(record_of<bri_mac_msg>());
    const Buffer records = parse_text(run, "{oper=add ifx=1},{oper=del ifx=2}");
    EXPECT_TRUE(Filter(run, "oper=del ifx=2").matches(records));
    EXPECT_FALSE(Filter(run, "oper=add ifx=2").matches(records));
    EXPECT_TRUE(Filter().matches(bytes));
}

TEST(WireText, filter_looks_into_the_records_at_a_messages_end) {
    const Payload payload = one(record_of<l2top_port_status_batch>());
    const Buffer bytes = parse_text(payload, "count=2 records={ifx=1 state=2},{ifx=3 instance=1 state=1}");
    for (const char *yes : {"ifx=1 state=2", " ifx=3 instance=1", "count=2"})
        EXPECT_TRUE(Filter(payload, yes).matches(bytes)) << yes;
    for (const char *no : {"ifx=1 state=1", "ifx=4", "count=1"})
        EXPECT_FALSE(Filter(payload, no).matches(bytes)) << no;
    EXPECT_FALSE(Filter(payload, "ifx=0").matches(Bytes(bytes).first(1))) << "no records";
    EXPECT_THROW(Filter(payload, "port=3"), std::invalid_argument);
}

TEST(WireText, sets_are_arrays_in_json) {
    const auto request = parse_text_as<vl_port_vlanset_req>("ifx=1 vlans=2-4");
    EXPECT_EQ(json_of(request).dump(), R"({"ifx":1,"vlans":[2,3,4]})");
    const auto registration = parse_text_as<bri_reg_msg>("event_set=VLAN_EVENT_RENAME,420");
    EXPECT_EQ(json_of(registration.event_set).dump(), R"({"words":["VLAN_EVENT_RENAME",420]})");
    for (const char *text : {R"({"ifx":1,"vlans":[2,"3-4"]})", R"({"ifx":1,"vlans":"2-4"})"})
        EXPECT_EQ(parse_json(one(record_of<vl_port_vlanset_req>()), Json::parse(text)),
                  parse_text(one(record_of<vl_port_vlanset_req>()), "ifx=1 vlans=2-4"));
    EXPECT_EQ(json_of(vle{}).dump(),
              R"({"proxy":0,"vswpt_num":0,"created_by_cli":0,"version":0,"vid":0,"manage_vid":0,"ref":0,"mode":0,)"
              R"("svi_ifx":0,"up_mem":0,"create_time":0,"name":"","svi_state_a":0,"svi_state_b":0,"members":[]})");
}

TEST(WireText, json_of_another_form_is_refused) {
    const Payload payload = one(record_of<l2top_port_status_batch>());
    for (const char *text : {"[]", "3", R"({"count":true})", R"({"count":[]})", R"({"count":[[1]]})",
                             R"({"records":3})", R"({"x":1})", R"({"records":[3]})", R"({"count":1.5})"})
        EXPECT_THROW((void)parse_json(payload, Json::parse(text)), std::invalid_argument) << text;
}

} // namespace
