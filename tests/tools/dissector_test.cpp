// The analyser's dissector on recordings of both byte orders, made by wire/ and read by the analyser's command line.
#include "tests/system/workstation.h"
#include "tools/recording/writer.h"
#include "wire/batch.h"
#include "wire/text.h"

#include <algorithm>
#include <fstream>
#include <iterator>

namespace {

using namespace test;
using recording::Head;
using recording::Kind;
using recording::Way;
using wire::Order;

constexpr const char *kDissector = BRIDGE_DISSECTOR_DIR "/bridge.lua";

std::string text_of_file(const std::string &path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

bool contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

wire::Buffer batch(std::initializer_list<const char *> messages, wire::Direction direction, Order order) {
    std::vector<wire::ParsedMessage> parsed;
    for (const char *text : messages)
        parsed.push_back(wire::parse_message(text, direction, order));
    std::vector<wire::Message> all;
    for (const wire::ParsedMessage &each : parsed)
        all.push_back({each.type, each.payload, static_cast<uint32_t>(each.payload.size())});
    return wire::join(all, order);
}

class Dissector : public Env, public testing::WithParamInterface<Order> {
  protected:
    void SetUp() override {
        if (Process({"/bin/sh", "-c", "command -v tshark"}).wait() != 0)
            GTEST_SKIP() << "NOT TESTED: no tshark on this machine, the dissector was not run";
    }

    [[nodiscard]] static Order order() { return GetParam(); }
    [[nodiscard]] static Head head(Way way, Kind kind = Kind::kBatch) {
        return {.way = way, .kind = kind, .client = 7};
    }

    void add_to_client(std::initializer_list<const char *> messages) {
        add(head(Way::kToClient), batch(messages, wire::Direction::kToClient, order()));
    }
    void add_to_server(std::initializer_list<const char *> messages) {
        add(head(Way::kToServer), batch(messages, wire::Direction::kToServer, order()));
    }

    // What the analyser prints about the recording.
    [[nodiscard]] std::string read(std::vector<std::string> options) const {
        {
            recording::Writer writer(path(), {.program = "dissector-test", .vsd = 5, .order = order()});
            for (const auto &[head, bytes] : packets_)
                writer.add(head, bytes);
        }
        const std::string errors = tmpdir() + "/tshark-errors";
        std::vector<std::string> command{"/bin/sh", "-c", "exec tshark \"$@\" 2>" + errors,        "sh",
                                         "-n",      "-X", std::string("lua_script:") + kDissector, "-r",
                                         path()};
        command.insert(command.end(), options.begin(), options.end());
        Process program(command, {"HOME=" + tmpdir()});
        EXPECT_EQ(program.wait(60000), 0) << text_of_file(errors);
        program.drain();
        EXPECT_FALSE(contains(program.output(), "Lua Error")) << program.output();
        EXPECT_FALSE(contains(text_of_file(errors), "Lua:")) << text_of_file(errors);
        return program.output();
    }
    [[nodiscard]] std::string tree() const { return read({"-V"}); }
    // The numbers of the packets that a filter keeps.
    [[nodiscard]] std::string kept(const std::string &filter) const {
        std::string numbers = read({"-Y", filter, "-T", "fields", "-e", "frame.number"});
        std::ranges::replace(numbers, '\n', ' ');
        return numbers;
    }

    void add(const Head &head, wire::Buffer bytes) { packets_.emplace_back(head, std::move(bytes)); }
    [[nodiscard]] std::string path() const { return tmpdir() + "/recording.pcapng"; }

  private:
    std::vector<std::pair<Head, wire::Buffer>> packets_;
};

TEST_P(Dissector, shows_messages_by_their_fields) {
    add_to_client({"VLAN_EVENT_CREATE_INDEX vid=10 version=3 name=office mode=static",
                   "VLAN_EVENT_MODIFY_INTF_MODE ifx=5 mode=trunk"});
    const std::string text = tree();
    for (const char *line :
         {"Direction: to the client (1)", "Client: 7", "Messages: 2", "VLAN_EVENT_CREATE_INDEX\n", "vid: 10\n",
          "version: 3\n", "name: office\n", "mode: 1 (static)\n", "Type: 387\n", "ifx: 5\n", "(trunk)\n"})
        EXPECT_TRUE(contains(text, line)) << line << " in\n" << text;
    EXPECT_FALSE(contains(text, "Malformed")) << text;
}

TEST_P(Dissector, finds_packets_by_fields) {
    add_to_client({"VLAN_EVENT_CREATE_INDEX vid=10"});
    add_to_client({"VLAN_EVENT_CREATE_INDEX vid=11", "VLAN_EVENT_RENAME vid=10"});
    add_to_server({"MAC_EVENT_NOTIFY_ADDR oper=add mac=02:00:00:00:00:05 bcast_id=10 ifx=4 type=static"});
    EXPECT_EQ(kept("bridge.vlan.vid == 10"), "1 2 ");
    EXPECT_EQ(kept("bridge.vlan.vid == 11"), "2 ");
    EXPECT_EQ(kept("bridge.mac.mac == 02:00:00:00:00:05 && bridge.mac.type == 2"), "3 ");
    EXPECT_EQ(kept("bridge.event == \"VLAN_EVENT_RENAME\""), "2 ");
    EXPECT_EQ(kept("bridge.direction == 0"), "3 ");
}

TEST_P(Dissector, shows_sets_as_lists_and_finds_their_members) {
    add_to_client({"VLAN_EVENT_CREATE_RANGE vlans=1,10-13,20,4094"});
    add_to_server({"BRIDGE_EVENT_REG_MSG event_set=387,389 op=register pid=4242 name=stpd fresh=1"});
    const std::string text = tree();
    EXPECT_TRUE(contains(text, "vlans: 1,10-13,20,4094\n")) << text;
    EXPECT_TRUE(contains(text, "event_set: 387,389\n")) << text;
    EXPECT_TRUE(contains(text, "name: stpd\n")) << text;
    EXPECT_EQ(kept("bridge.vlan.vlans == 12"), "1 ");
    EXPECT_EQ(kept("bridge.vlan.vlans == 14"), "");
    EXPECT_EQ(kept("bridge.clnt_mng.event_set == 389"), "2 ");
}

TEST_P(Dissector, shows_runs_and_records_inside_records) {
    add_to_client({"MAC_EVENT_NOTIFY_ADDR {oper=add mac=02:00:00:00:00:05 field=mac|ifx ifx=4},{oper=del ifx=6}",
                   "L2TOP_EVENT_PORT_STATUS count=2 records={ifx=3 state=4},{ifx=9 state=1}"});
    const std::string text = tree();
    for (const char *line : {"[0]\n", "oper: 1 (add)\n", "mac: 02:00:00:00:00:05\n", "(mac|ifx)\n", "[1]\n", "ifx: 6\n",
                             "records[1]\n", "ifx: 9\n"})
        EXPECT_TRUE(contains(text, line)) << line << " in\n" << text;
    EXPECT_FALSE(contains(text, "Malformed")) << text;
}

TEST_P(Dissector, notes_what_is_wrong_with_a_batch) {
    const wire::Buffer good = batch({"VLAN_EVENT_CREATE_INDEX vid=10"}, wire::Direction::kToClient, order());
    const auto with = [&](auto change) {
        wire::Buffer bytes = good;
        change(bytes);
        add(head(Way::kToClient), bytes);
    };
    with([](wire::Buffer &) {});
    with([](wire::Buffer &bytes) { bytes.resize(5); });
    with([](wire::Buffer &bytes) { bytes.resize(bytes.size() - 3); });
    with([](wire::Buffer &bytes) { wire::store(bytes, 0, 4, order(), 20000); });
    with([](wire::Buffer &bytes) { wire::store(bytes, 4, 4, order(), 2); });
    with([](wire::Buffer &bytes) { bytes.resize(bytes.size() + 6); });
    with([](wire::Buffer &bytes) { wire::store(bytes, 8, 4, order(), 4000); });
    with([](wire::Buffer &bytes) { wire::store(bytes, 8, 4, order(), BRIDGE_EVENT_REG_MSG); });
    with([](wire::Buffer &bytes) { wire::store(bytes, 12, 4, order(), UINT32_MAX); });
    add_to_client({"VLAN_EVENT_CREATE_INDEX vid=10 length=3"});
    EXPECT_EQ(kept("bridge.cut"), "2 3 4 9 10 ");
    EXPECT_EQ(kept("bridge.too_large"), "4 ");
    EXPECT_EQ(kept("bridge.bad_count"), "5 ");
    EXPECT_EQ(kept("bridge.rest"), "6 ");
    EXPECT_EQ(kept("bridge.unknown"), "7 ");
    EXPECT_EQ(kept("bridge.wrong_way"), "8 ");
    EXPECT_EQ(kept("bridge.bad_head"), "");
}

TEST_P(Dissector, reads_the_kernel_channel) {
    wire::Buffer question = wire::parse_text(wire::one(wire::record_of<wire::ef_bridge_request>()),
                                             "nlmsg_len=60 nlmsg_pid=77 cmd=3 version=1 type=286 len=68", order());
    const wire::Payload asks = wire::payload_of(MAC_EVENT_CLIENT_FIND_FIRST, wire::Direction::kToKernel);
    const wire::Buffer key = wire::parse_text(asks, "key.bcast_id=10 key.mac=02:00:00:00:00:05", order());
    wire::store(question, 28, 4, order(), static_cast<uint32_t>(key.size()));
    question.insert(question.end(), key.begin(), key.end());
    wire::Buffer answer =
        wire::parse_text(wire::one(wire::record_of<wire::ef_bridge_answer>()), "nlmsg_len=60 nla_len=8", order());
    const wire::Buffer found = wire::parse_text(asks, "found=1 result.ifx=4", order());
    answer.insert(answer.end(), found.begin(), found.end());
    add(head(Way::kToServer, Kind::kKernel), question);
    add(head(Way::kToClient, Kind::kKernel), answer);
    const std::string text = tree();
    for (const char *line :
         {"MAC_EVENT_CLIENT_FIND_FIRST\n", "key.bcast_id: 10\n", "nlmsg_pid: 77\n", "found: 1\n", "result.ifx: 4\n"})
        EXPECT_TRUE(contains(text, line)) << line << " in\n" << text;
    EXPECT_EQ(kept("bridge.kernel.cmd == 3"), "1 ");
    EXPECT_EQ(kept("bridge.mac.found == 1"), "2 ");
    EXPECT_EQ(kept("bridge.cut"), "");
}

TEST_P(Dissector, reads_tables_and_connections) {
    using recording::Table;
    add({.kind = Kind::kTable, .table = Table::kVlans, .flags = recording::kStartValue}, {});
    add({.kind = Kind::kTable, .table = Table::kGroups, .flags = 0, .offset = 0x12345}, {1, 2, 3});
    add(head(Way::kToServer, Kind::kConnection), {0});
    add(head(Way::kToClient, Kind::kConnection), {2});
    add(head(Way::kToServer, Kind::kConnection), {});
    EXPECT_EQ(read({"-T", "fields", "-e", "_ws.col.Info"}), "start value of vlans: 0 bytes at 0x0\n"
                                                            "change of groups: 3 bytes at 0x12345\n"
                                                            "connected\nclosed by the server\n\n");
    EXPECT_EQ(kept("bridge.table == 3 && bridge.data == 01:02:03"), "2 ");
    EXPECT_EQ(kept("bridge.start_value == 1"), "1 ");
    EXPECT_EQ(kept("bridge.change == 2"), "4 ");
    EXPECT_EQ(kept("bridge.cut"), "5 ");
}

TEST_P(Dissector, leaves_messages_of_netlink_itself_alone) {
    wire::Buffer question(36);
    wire::store(question, 0, 4, order(), 36);
    wire::store(question, 4, 2, order(), 16); // the controller
    add(head(Way::kToServer, Kind::kKernel), question);
    wire::store(question, 4, 2, order(), 2);
    add(head(Way::kToClient, Kind::kKernel), question);
    EXPECT_EQ(read({"-T", "fields", "-e", "_ws.col.Info"}), "kernel asked: family look-up\nkernel answers: error\n");
}

TEST_P(Dissector, finds_the_section_header_that_the_writer_makes) {
    add_to_client({"VLAN_EVENT_CREATE_INDEX vid=10"});
    static_cast<void>(tree());
    Process program({"/bin/sh", "-c", "exec capinfos \"$0\"", path()});
    EXPECT_EQ(program.wait(), 0);
    program.drain();
    const std::string word = "{\"byte_order\":\"" + std::string(wire::is_big(order()) ? "big" : "little") + "\"";
    for (const std::string &text :
         {word + ",\"word_size\":8,\"library\":\"",
          std::string("\"vsdid\":5,\"tables\":[{\"name\":\"SWPORT-SHM\",\"size\":"),
          std::string("File type:           Wireshark/... - pcapng\n"), std::string("Encapsulation = USER 0"),
          std::string("precision:  nanoseconds"), std::string("Capture application: dissector-test "),
          std::string("Name = server\n"), std::string("Name = tables\n"), std::string("Name = kernel\n")})
        EXPECT_TRUE(contains(program.output(), text)) << text << " in\n" << program.output();
}

INSTANTIATE_TEST_SUITE_P(Orders, Dissector, testing::Values(Order::kLittle, Order::kBig),
                         [](const auto &each) { return std::string(each.param == Order::kBig ? "big" : "little"); });

TEST(DissectorFile, is_what_the_tables_give) {
    Process generator({BRIDGE_DISSECTOR, BRIDGE_DISSECTOR_DIR "/dissect.lua"});
    EXPECT_EQ(generator.wait(), 0);
    generator.drain();
    EXPECT_TRUE(generator.output() == text_of_file(kDissector))
        << "stale: bridge-dissector tools/dissector/dissect.lua >tools/dissector/bridge.lua";
}

} // namespace
