// The kernel's bridge module of the sandbox, as raw sockets of the kernel channel and raw clients see it.
#include "tests/support/kernel.h"
#include "tests/system/workstation.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace test;

constexpr uint16_t kFirstFamily = 35;
constexpr uint8_t kWhole = 0x0F;
constexpr uint32_t kDynamic = BRI_MAC_TYPE_DYNAMIC;
constexpr uint32_t kStatic = BRI_MAC_TYPE_STATIC;

// A netlink socket of a host, connected by the library that hosts preload.
class Channel {
  public:
    explicit Channel(const sockaddr_un &address, uint32_t groups = 0)
        : fd_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        EXPECT_EQ(connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        sockaddr_nl bound{};
        bound.nl_family = AF_NETLINK;
        bound.nl_groups = groups;
        send(packet_of(bound));
    }
    ~Channel() { close(fd_); }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    void send(const Packet &packet) const {
        EXPECT_EQ(::send(fd_, packet.data(), packet.size(), MSG_NOSIGNAL), static_cast<ssize_t>(packet.size()));
    }
    // The next message; empty when none comes.
    [[nodiscard]] Packet receive(int timeout_ms = kPatienceMs) const {
        pollfd descriptor{fd_, POLLIN, 0};
        Packet packet(65536);
        const ssize_t length =
            poll(&descriptor, 1, timeout_ms) > 0 ? recv(fd_, packet.data(), packet.size(), MSG_DONTWAIT) : 0;
        packet.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return packet;
    }
    // Asks the controller for the family: its answer.
    [[nodiscard]] Packet resolve() const {
        send(netlink_message(GENL_ID_CTRL, CTRL_CMD_GETFAMILY, netlink_attr(CTRL_ATTR_FAMILY_NAME, name())));
        return receive();
    }
    // A message to the family, framed as the library frames it.
    void tell(uint32_t type, const Packet &data, uint16_t family = kFirstFamily) const {
        const Packet payload = packet_of(type) + packet_of(static_cast<uint32_t>(data.size())) + data;
        send(netlink_message(family, 3, netlink_attr(0, payload)));
    }
    [[nodiscard]] Packet ask(uint32_t type, const Packet &data, uint16_t family = kFirstFamily) const {
        tell(type, data, family);
        return receive();
    }
    template <class Record> [[nodiscard]] Record ask_for(uint32_t type, const Record &record) const {
        const Packet answer = ask(type, packet_of(record));
        EXPECT_EQ(answer.size(), 24 + sizeof record);
        EXPECT_EQ(value_at<uint16_t>(answer.data(), 4), kFirstFamily);
        return answer.size() == 24 + sizeof record ? value_at<Record>(answer.data(), 24) : Record{};
    }

    static Packet name() {
        const std::string text = "EF_BRIDGE";
        Packet bytes(text.begin(), text.end());
        bytes.push_back(0);
        return bytes;
    }

  private:
    int fd_;
};

// 02:00:00:00:00:<last>
bri_mac_entry entry(uint8_t last, uint16_t vid, uint32_t ifx, uint32_t type, uint8_t field = kWhole) {
    bri_mac_entry result{};
    result.field = field;
    result.mac[0] = 2;
    result.mac[5] = last;
    result.bcast_id = vid;
    result.ifx = ifx;
    result.type = type;
    return result;
}
// What the controller answers for the family.
Packet family_message(uint16_t id) {
    return netlink_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY,
                           netlink_attr(CTRL_ATTR_FAMILY_NAME, Channel::name()) +
                               netlink_attr(CTRL_ATTR_FAMILY_ID, packet_of(id)));
}
bri_mac_msg record(uint32_t oper, const bri_mac_entry &of) {
    return {0, oper, of};
}
mvlan_msg host_vlan(uint32_t type, uint8_t last, uint16_t vlan, uint32_t ifx = 0) {
    mvlan_msg message{};
    message.ifx = ifx;
    message.entry.type = type;
    message.entry.mac[5] = last;
    std::memset(message.entry.mask, 0xFF, sizeof message.entry.mask);
    message.entry.vlan = vlan;
    message.entry.flag = 2;
    return message;
}

// On a switch whose ports 3 to 6 are in VLANs 10 to 40.
struct SandboxKernel : Workstation {
    SandboxKernel() {
        run("vlan create 10-40");
        for (const char *port : {"3", "4", "5", "6"}) {
            run(std::string("port add ") + port + " trunk 1");
            run(std::string("port allow ") + port + " 10-40");
        }
    }
    Process sandbox = start_sandbox();

    void run(const std::string &command) { Workstation::run(sandbox, command); }
    // The table as `mac show` prints it, without the blanks in front.
    std::vector<std::string> shown(const std::string &table = "mac") {
        run("print the table");
        size_t at = sandbox.output().size() - 1;
        run(table + " show");
        std::vector<std::string> lines;
        while ((at = sandbox.output().find("\n  ", at)) != std::string::npos) {
            const size_t end = sandbox.output().find('\n', at + 1);
            lines.push_back(sandbox.output().substr(at + 3, end - at - 3));
            at = end;
        }
        return lines;
    }
    // Two addresses in one VLAN, the first in another VLAN as well, and one on another port.
    void fill_some() {
        run("mac add 02:00:00:00:00:05 10 3");
        run("mac add 02:00:00:00:00:05 11 3 static");
        run("mac add 02:00:00:00:00:01 10 3");
        run("mac add 02:00:00:00:00:07 10 4 security");
    }
    // What a client was told: the records of the next announcement.
    static std::vector<bri_mac_msg> announced(Peer &client) {
        const auto batch = client.read_batch();
        if (!batch || batch->types() != std::vector<uint32_t>{MAC_EVENT_NOTIFY_ADDR})
            return {};
        const ByteVec payload = batch->messages()[0].payload;
        std::vector<bri_mac_msg> records(payload.size() / sizeof(bri_mac_msg));
        std::memcpy(records.data(), payload.data(), records.size() * sizeof(bri_mac_msg));
        EXPECT_EQ(payload.size() % sizeof(bri_mac_msg), 0U);
        return records;
    }
    static void expect_announced(Peer &client, const std::vector<bri_mac_msg> &expected) {
        const std::vector<bri_mac_msg> told = announced(client);
        ASSERT_EQ(told.size(), expected.size());
        for (size_t i = 0; i < told.size(); ++i)
            EXPECT_EQ(test::bytes_of(told[i]), test::bytes_of(expected[i])) << i;
    }
};

TEST_F(SandboxKernel, walk_by_address_meets_every_address_once_and_in_order) {
    fill_some();
    const Channel channel(kernel_address());
    bri_mac_find_first query{};
    query.key.field = BRI_MAC_FIELD_MAC;
    const auto first = channel.ask_for(MAC_EVENT_CLIENT_FIND_FIRST, query);
    EXPECT_EQ(first.found, 1U);
    EXPECT_EQ(test::bytes_of(first.key), test::bytes_of(query.key));
    EXPECT_EQ(test::bytes_of(first.result), test::bytes_of(entry(1, 10, 3, kDynamic)));
    const std::vector<bri_mac_entry> rest = {entry(5, 10, 3, kDynamic), entry(5, 11, 3, kStatic),
                                             entry(7, 10, 4, BRI_MAC_TYPE_SECU)};
    bri_mac_find_next step{};
    step.current = first.result;
    for (const bri_mac_entry &expected : rest) {
        step.key = bri_mac_entry{};
        step.key.field = BRI_MAC_FIELD_MAC;
        std::memcpy(step.key.mac, step.current.mac, sizeof step.key.mac);
        step = channel.ask_for(MAC_EVENT_CLIENT_FIND_NEXT, step);
        EXPECT_EQ(step.found, 1U);
        EXPECT_EQ(test::bytes_of(step.result), test::bytes_of(expected));
        step.current = step.result;
        step.found = 0;
        step.result = {};
    }
    step = channel.ask_for(MAC_EVENT_CLIENT_FIND_NEXT, step);
    EXPECT_EQ(step.found, 0U);
    EXPECT_EQ(test::bytes_of(step.result), test::bytes_of(bri_mac_entry{}));
}

TEST_F(SandboxKernel, first_look_up_obeys_the_fields_of_its_key) {
    fill_some();
    const Channel channel(kernel_address());
    const struct {
        bri_mac_entry key;
        std::optional<bri_mac_entry> result;
    } cases[] = {
        {entry(2, 0, 0, 0, 0x01), entry(5, 10, 3, kDynamic)}, // where to start
        {entry(8, 0, 0, 0, 0x01), std::nullopt},
        {entry(0, 0, 4, 0, 0x02), entry(7, 10, 4, BRI_MAC_TYPE_SECU)},
        {entry(0, 0, 5, 0, 0x02), std::nullopt},
        {entry(0, 0, 3, kStatic, 0x06), entry(5, 11, 3, kStatic)},
        {entry(0, 0, 4, kStatic, 0x06), std::nullopt},
        {entry(5, 11, 0, 0, 0x09), entry(5, 11, 3, kStatic)}, // the one
        {entry(5, 12, 0, 0, 0x09), std::nullopt},
        {entry(2, 10, 0, 0, 0x09), std::nullopt},
    };
    for (const auto &row : cases) {
        bri_mac_find_first query{};
        query.key = row.key;
        const auto answer = channel.ask_for(MAC_EVENT_CLIENT_FIND_FIRST, query);
        EXPECT_EQ(answer.found, row.result ? 1U : 0U) << int{row.key.field};
        EXPECT_EQ(test::bytes_of(answer.result), test::bytes_of(row.result.value_or(bri_mac_entry{})))
            << int{row.key.field};
    }
}

TEST_F(SandboxKernel, walk_by_port_stays_on_it) {
    fill_some();
    run("mac add 02:00:00:00:00:06 10 3");
    const Channel channel(kernel_address());
    bri_mac_find_next step{};
    step.key = entry(0, 0, 3, 0, BRI_MAC_FIELD_IFX);
    step.key.mac[0] = 0;
    step.current = entry(5, 11, 3, kStatic);
    const auto next = channel.ask_for(MAC_EVENT_CLIENT_FIND_NEXT, step);
    EXPECT_EQ(next.found, 1U);
    EXPECT_EQ(test::bytes_of(next.result), test::bytes_of(entry(6, 10, 3, kDynamic)));
    step.current = next.result;
    EXPECT_EQ(channel.ask_for(MAC_EVENT_CLIENT_FIND_NEXT, step).found, 0U);
}

TEST_F(SandboxKernel, vlan_of_a_host_is_found_by_its_address_and_zero_without_an_entry) {
    run("mvlan add 00:00:00:00:00:09 40 6");
    const Channel channel(kernel_address());
    mvlan_msg query = host_vlan(2, 9, 0);
    std::memset(query.entry.mask, 0, sizeof query.entry.mask);
    const auto known = channel.ask_for(MVLAN_EVENT_NOTIFY_ENTRY, query);
    EXPECT_EQ(known.ifx, 6U);
    EXPECT_EQ(known.entry.vlan, 40U);
    EXPECT_EQ(known.entry.flag, 2U);
    query.entry.mac[5] = 8;
    query.entry.vlan = 77;
    EXPECT_EQ(channel.ask_for(MVLAN_EVENT_NOTIFY_ENTRY, query).entry.vlan, 0U);
}

TEST_F(SandboxKernel, vlan_entry_with_the_longest_mask_wins) {
    Peer client = register_client({}, "raw");
    mvlan_msg wide = host_vlan(0, 0, 20);
    wide.entry.mask[5] = 0;
    client.send({{MVLAN_EVENT_NOTIFY_ENTRY, test::bytes_of(wide)},
                 {MVLAN_EVENT_NOTIFY_ENTRY, test::bytes_of(host_vlan(0, 9, 30))}});
    EXPECT_TRUE(sandbox.shows("sent MVLAN_EVENT_NOTIFY_ENTRY(515), 28 bytes"));
    EXPECT_TRUE(sandbox.shows("sent MVLAN_EVENT_NOTIFY_ENTRY(515), 28 bytes"));
    const Channel channel(kernel_address());
    EXPECT_EQ(channel.ask_for(MVLAN_EVENT_NOTIFY_ENTRY, host_vlan(2, 9, 0)).entry.vlan, 30U);
    EXPECT_EQ(channel.ask_for(MVLAN_EVENT_NOTIFY_ENTRY, host_vlan(2, 8, 0)).entry.vlan, 20U);
}

TEST_F(SandboxKernel, records_of_a_client_change_the_table_and_each_change_is_announced) {
    Peer client = register_client({MAC_EVENT_NOTIFY_ADDR}, "raw");
    const auto send = [&](const std::vector<bri_mac_msg> &records) {
        ByteVec run;
        for (const bri_mac_msg &one : records)
            run = run + test::bytes_of(one);
        client.send({{MAC_EVENT_NOTIFY_ADDR, run}});
    };
    const bri_mac_entry fixed = entry(1, 10, 3, kStatic);
    const bri_mac_entry learned = entry(2, 10, 3, kDynamic);
    send({record(BRI_MAC_ADD, fixed), record(BRI_MAC_ADD, learned)});
    expect_announced(client, {record(BRI_MAC_ADD, fixed), record(BRI_MAC_ADD, learned)});
    EXPECT_EQ(shown(), (std::vector<std::string>{"02:00:00:00:00:01 VLAN 10 port 3 static",
                                                 "02:00:00:00:00:02 VLAN 10 port 3 dynamic"}));
    // Nothing new, an address that learning may not move, records without an operation, a domain or an end.
    send({record(BRI_MAC_ADD, fixed), record(BRI_MAC_ADD, entry(1, 10, 4, kDynamic)), record(7, entry(9, 9, 9, 1)),
          record(BRI_MAC_ADD, entry(9, 10, 3, kStatic, 0x07))});
    client.send({{MAC_EVENT_NOTIFY_ADDR, ByteVec(39, 1)}});
    send({record(BRI_MAC_ADD, entry(2, 10, 4, kDynamic))});
    expect_announced(client, {record(BRI_MAC_ADD, entry(2, 10, 4, kDynamic))});
    bri_mac_entry all_static{};
    all_static.field = BRI_MAC_FIELD_TYPE;
    all_static.type = kStatic;
    send({record(BRI_MAC_DEL, all_static)});
    expect_announced(client, {record(BRI_MAC_DEL, fixed)});
    send({record(BRI_MAC_DEL, entry(2, 0, 0, kDynamic, 0x05))});
    expect_announced(client, {record(BRI_MAC_DEL, entry(2, 10, 4, kDynamic))});
    EXPECT_EQ(shown(), std::vector<std::string>{});
}

TEST_F(SandboxKernel, bypass_rollback_and_deletes_by_vlan_come_back_as_events_and_change_the_table) {
    const uint32_t passed_on[] = {MAC_EVENT_BYPASS_ADDR, MAC_EVENT_ROLLBACK_ADDR, MAC_EVENT_DEL_DYN_ON_VLANMAP,
                                  MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP};
    Peer client = register_client({passed_on[0], passed_on[1], passed_on[2], passed_on[3]}, "raw");
    const auto ask = [&](uint32_t type, const ByteVec &payload) {
        client.send({{type, payload}});
        const auto batch = client.read_batch();
        ASSERT_TRUE(batch);
        EXPECT_EQ(batch->messages(), (std::vector<Message>{{type, payload}}));
    };
    fill_some();
    ask(MAC_EVENT_BYPASS_ADDR, test::bytes_of(record(BRI_MAC_ADD, entry(9, 12, 5, kDynamic))));
    ask(MAC_EVENT_ROLLBACK_ADDR, test::bytes_of(record(BRI_MAC_DEL, entry(7, 10, 0, 0, 0x09))));
    EXPECT_EQ(shown(), (std::vector<std::string>{
                           "02:00:00:00:00:01 VLAN 10 port 3 dynamic", "02:00:00:00:00:05 VLAN 10 port 3 dynamic",
                           "02:00:00:00:00:05 VLAN 11 port 3 static", "02:00:00:00:00:09 VLAN 12 port 5 dynamic"}));
    bri_mac_vlanmap_del request{};
    request.ifx = 5;
    request.vlans.words[10 >> 5] = 1U << 10 | 1U << 11;
    ask(MAC_EVENT_DEL_DYN_ON_INTF_VLANMAP, test::bytes_of(request)); // the port has none of them
    EXPECT_EQ(shown().size(), 4U);
    client.send({{MAC_EVENT_DEL_DYN_ON_VLANMAP, ByteVec(519, 0xFF)}}); // cut
    EXPECT_TRUE(sandbox.shows("MAC_EVENT_DEL_DYN_ON_VLANMAP(267) ignored, 519 bytes"));
    EXPECT_EQ(shown().size(), 4U);
    request.ifx = 0;
    ask(MAC_EVENT_DEL_DYN_ON_VLANMAP, test::bytes_of(request));
    EXPECT_EQ(shown(), (std::vector<std::string>{"02:00:00:00:00:05 VLAN 11 port 3 static",
                                                 "02:00:00:00:00:09 VLAN 12 port 5 dynamic"}));
}

TEST_F(SandboxKernel, vlans_of_hosts_are_added_and_withdrawn_by_clients) {
    Peer client = register_client({MVLAN_EVENT_NOTIFY_ENTRY}, "raw");
    Peer other = register_client({MVLAN_EVENT_NOTIFY_ENTRY}, "other");
    const auto ask = [&](const mvlan_msg &request) {
        client.send({{MVLAN_EVENT_NOTIFY_ENTRY, test::bytes_of(request)}});
    };
    const auto expect_told = [](Peer &peer, const mvlan_msg &request) {
        const auto batch = peer.read_batch();
        ASSERT_TRUE(batch);
        EXPECT_EQ(batch->messages(), (std::vector<Message>{{MVLAN_EVENT_NOTIFY_ENTRY, test::bytes_of(request)}}));
    };
    ask(host_vlan(0, 9, 30));
    ask(host_vlan(0, 9, 31, 4)); // in its place
    for (Peer *peer : {&client, &other}) {
        expect_told(*peer, host_vlan(0, 9, 30));
        expect_told(*peer, host_vlan(0, 9, 31, 4));
    }
    EXPECT_EQ(shown("mvlan"), std::vector<std::string>{"00:00:00:00:00:09 mask ff:ff:ff:ff:ff:ff VLAN 31 port 4"});
    ask(host_vlan(1, 8, 0)); // has none
    ask(host_vlan(2, 9, 0)); // no question for the server
    ask(host_vlan(1, 9, 0));
    expect_told(client, host_vlan(1, 9, 0));
    EXPECT_EQ(shown("mvlan"), std::vector<std::string>{});
}

TEST_F(SandboxKernel, records_on_the_kernel_channel_are_taken_and_announced) {
    Peer client = register_client({MAC_EVENT_NOTIFY_ADDR}, "raw");
    const Channel channel(kernel_address(), 0x8000);
    const bri_mac_msg learned = record(BRI_MAC_ADD, entry(1, 10, 3, kDynamic));
    channel.tell(MAC_EVENT_SS_NOTIFY_ADDR, packet_of(learned) + Packet(7, 0xEE));
    expect_announced(client, {learned});
    EXPECT_TRUE(sandbox.shows("kernel: got MAC_EVENT_SS_NOTIFY_ADDR(274), 47 bytes"));
}

TEST_F(SandboxKernel, message_that_nobody_understands_is_refused_on_the_channel_too) {
    const Channel channel(kernel_address(), 0x8000);
    const Packet answer = channel.ask(999, {});
    EXPECT_EQ(value_at<uint16_t>(answer.data(), 4), NLMSG_ERROR);
    EXPECT_EQ(value_at<int32_t>(answer.data(), 16), -EOPNOTSUPP);
}

TEST_F(SandboxKernel, more_changes_than_a_message_holds_are_announced_in_several) {
    Peer client = register_client({MAC_EVENT_NOTIFY_ADDR}, "raw");
    run("mac fill 300 10 3");
    EXPECT_EQ(announced(client).size(), 256U);
    const std::vector<bri_mac_msg> rest = announced(client);
    ASSERT_EQ(rest.size(), 44U);
    const bri_mac_entry &last = rest.back().entry;
    EXPECT_EQ(ByteVec(last.mac, last.mac + 6), (ByteVec{6, 0, 0, 0, 1, 43}));
}

TEST_F(SandboxKernel, client_that_asks_for_the_data_gets_both_tables) {
    Peer client = register_client({MAC_EVENT_SYNC_DATA_BEGIN, MAC_EVENT_SYNC_DATA_END, MAC_EVENT_NOTIFY_ADDR,
                                   MVLAN_EVENT_NOTIFY_ENTRY, MVLAN_EVENT_SYNC_DATA_END},
                                  "raw");
    run("mac fill 257 10 3");
    run("mvlan add 00:00:00:00:00:09 40");
    for (int message = 0; message < 3; ++message)
        ASSERT_TRUE(client.read_batch()); // the announcements
    Peer other = register_client({MAC_EVENT_NOTIFY_ADDR, MVLAN_EVENT_NOTIFY_ENTRY}, "other");
    for (const uint32_t submodule : {BRI_SUBMOD_MAC, BRI_SUBMOD_MVLAN})
        client.send({{BRIDGE_EVENT_ORI_DATA_REQUEST, test::bytes_of(submodule)}});
    std::vector<Message> all;
    for (int message = 0; message < 6; ++message)
        if (const auto batch = client.read_batch())
            all.push_back(batch->messages().at(0));
    ASSERT_EQ(all.size(), 6U);
    const auto size = [](size_t records) { return records * sizeof(bri_mac_msg); };
    EXPECT_EQ(all[0], (Message{MAC_EVENT_SYNC_DATA_BEGIN, {}}));
    EXPECT_EQ(all[1].type, uint32_t{MAC_EVENT_NOTIFY_ADDR});
    EXPECT_EQ(all[1].payload.size(), size(256));
    bri_mac_entry last = entry(0, 10, 3, kDynamic);
    const uint8_t mac[6] = {6, 0, 0, 0, 1, 0};
    std::memcpy(last.mac, mac, sizeof mac);
    EXPECT_EQ(all[2], (Message{MAC_EVENT_NOTIFY_ADDR, test::bytes_of(record(BRI_MAC_ADD, last))}));
    EXPECT_EQ(all[3], (Message{MAC_EVENT_SYNC_DATA_END, {}}));
    EXPECT_EQ(all[4], (Message{MVLAN_EVENT_NOTIFY_ENTRY, test::bytes_of(host_vlan(0, 9, 40))}));
    EXPECT_EQ(all[5], (Message{MVLAN_EVENT_SYNC_DATA_END, {}}));
    EXPECT_FALSE(other.readable());
}

TEST_F(SandboxKernel, check_of_dynamic_addresses_drops_those_that_are_not_told_again) {
    fill_some();
    Peer client = register_client({MAC_EVENT_NOTIFY_ADDR}, "raw");
    const Channel channel(kernel_address(), 0x8000);
    channel.tell(MAC_EVENT_DYN_CHECK_END, {}); // no check is on
    channel.tell(MAC_EVENT_DYN_CHECK_BEGIN, {});
    channel.tell(MAC_EVENT_SS_NOTIFY_ADDR, packet_of(record(BRI_MAC_ADD, entry(5, 10, 3, kDynamic))));
    channel.tell(MAC_EVENT_DYN_CHECK_END, {});
    expect_announced(client, {record(BRI_MAC_DEL, entry(1, 10, 3, kDynamic))});
    EXPECT_EQ(shown().size(), 3U);
}

TEST_F(SandboxKernel, check_of_configured_addresses_concerns_the_type_that_it_names) {
    fill_some();
    Peer client = register_client({MAC_EVENT_NOTIFY_ADDR}, "raw");
    const auto check = [&](uint32_t type) {
        client.send(
            {{MAC_EVENT_NONDYN_CHECK_BEGIN, test::bytes_of(type)}, {MAC_EVENT_NONDYN_CHECK_END, test::bytes_of(type)}});
    };
    check(BRI_MAC_TYPE_FILTER);
    check(kStatic);
    expect_announced(client, {record(BRI_MAC_DEL, entry(5, 11, 3, kStatic))});
    check(0);
    expect_announced(client, {record(BRI_MAC_DEL, entry(7, 10, 4, BRI_MAC_TYPE_SECU))});
    EXPECT_EQ(shown().size(), 2U);
}

TEST_F(SandboxKernel, question_that_nobody_understands_is_refused) {
    const Channel channel(kernel_address());
    const auto error_of = [](const Packet &answer) {
        EXPECT_EQ(value_at<uint16_t>(answer.data(), 4), NLMSG_ERROR);
        return value_at<int32_t>(answer.data(), 16);
    };
    EXPECT_EQ(error_of(channel.ask(MAC_EVENT_SERVER_FIND_FIRST, Packet(68))), -EOPNOTSUPP);
    EXPECT_EQ(error_of(channel.ask(MAC_EVENT_CLIENT_FIND_FIRST, Packet(67))), -EINVAL);
    EXPECT_EQ(error_of(channel.ask(MAC_EVENT_CLIENT_FIND_NEXT, Packet(99))), -EINVAL);
    EXPECT_EQ(error_of(channel.ask(MVLAN_EVENT_NOTIFY_ENTRY, Packet(27))), -EINVAL);
    const Packet longer = packet_of(uint32_t{MAC_EVENT_CLIENT_FIND_FIRST}) + packet_of(uint32_t{69}) + Packet(68);
    channel.send(netlink_message(kFirstFamily, 3, netlink_attr(0, longer)));
    EXPECT_EQ(error_of(channel.receive()), -EINVAL);
    channel.send(netlink_message(kFirstFamily, 3, {}));
    EXPECT_EQ(error_of(channel.receive()), -EINVAL);
    EXPECT_EQ(error_of(channel.ask(MAC_EVENT_CLIENT_FIND_FIRST, Packet(68), kFirstFamily + 1)), -ENOENT);
}

TEST_F(SandboxKernel, states_change_the_answers) {
    fill_some();
    const Channel channel(kernel_address());
    const Packet question = packet_of(bri_mac_find_first{});
    const auto type_of = [](const Packet &answer) { return value_at<uint16_t>(answer.data(), 4); };
    run("kernel error 16");
    const Packet refused = channel.ask(MAC_EVENT_CLIENT_FIND_FIRST, question);
    EXPECT_EQ(type_of(refused), NLMSG_ERROR);
    EXPECT_EQ(value_at<int32_t>(refused.data(), 16), -EBUSY);
    run("kernel error");
    EXPECT_EQ(value_at<int32_t>(channel.ask(MAC_EVENT_CLIENT_FIND_FIRST, question).data(), 16), -EIO);
    run("kernel long");
    const Packet longer = channel.ask(MAC_EVENT_CLIENT_FIND_FIRST, question);
    EXPECT_EQ(type_of(longer), kFirstFamily);
    EXPECT_GT(value_at<uint32_t>(longer.data(), 0), 10248U);
    EXPECT_EQ(longer.size(), value_at<uint32_t>(longer.data(), 0));
    run("kernel silent");
    channel.tell(MAC_EVENT_CLIENT_FIND_FIRST, question);
    EXPECT_TRUE(channel.receive(50).empty());
    EXPECT_EQ(channel.resolve(), family_message(kFirstFamily)); // the controller's part
    run("kernel up");
    EXPECT_EQ(type_of(channel.ask(MAC_EVENT_CLIENT_FIND_FIRST, question)), kFirstFamily);
    run("kernel");
    EXPECT_EQ(sandbox.count("kernel: up, 1 sockets, 0 listen, family 35, 4 addresses\n"), 1);
}

TEST_F(SandboxKernel, module_that_refuses_or_is_silent_takes_no_address) {
    const Channel listener(kernel_address(), 0x8000);
    const Packet learned = packet_of(record(BRI_MAC_ADD, entry(1, 10, 3, kDynamic)));
    run("kernel error 16");
    listener.tell(MAC_EVENT_SS_NOTIFY_ADDR, learned);
    const Packet refused = listener.receive(); // so that the host's channel ends
    EXPECT_EQ(value_at<uint16_t>(refused.data(), 4), NLMSG_ERROR);
    EXPECT_EQ(value_at<int32_t>(refused.data(), 16), -EBUSY);
    run("kernel silent");
    listener.tell(MAC_EVENT_SS_NOTIFY_ADDR, learned);
    EXPECT_TRUE(sandbox.shows("kernel: got MAC_EVENT_SS_NOTIFY_ADDR(274), 40 bytes"));
    EXPECT_EQ(shown(), std::vector<std::string>{});
    run("kernel long");
    listener.tell(MAC_EVENT_SS_NOTIFY_ADDR, learned);
    EXPECT_TRUE(sandbox.shows("kernel: got MAC_EVENT_SS_NOTIFY_ADDR(274), 40 bytes"));
    EXPECT_EQ(shown(), std::vector<std::string>{"02:00:00:00:00:01 VLAN 10 port 3 dynamic"});
    EXPECT_TRUE(listener.receive(50).empty());
}

TEST_F(SandboxKernel, module_takes_its_tables_along_and_comes_back_under_another_id) {
    fill_some();
    run("mvlan add 00:00:00:00:00:09 40");
    const Channel listener(kernel_address(), 0x8000);
    const Channel channel(kernel_address());
    EXPECT_EQ(listener.resolve(), family_message(kFirstFamily));
    EXPECT_EQ(channel.resolve(), family_message(kFirstFamily));
    run("kernel down");
    const Packet notice = listener.receive();
    EXPECT_EQ(value_at<uint16_t>(notice.data(), 4), GENL_ID_CTRL);
    EXPECT_EQ(notice[16], CTRL_CMD_DELFAMILY);
    EXPECT_EQ(value_at<int32_t>(channel.resolve().data(), 16), -ENOENT);
    run("kernel down"); // tells nobody twice
    EXPECT_TRUE(listener.receive(50).empty());
    run("kernel up");
    EXPECT_EQ(channel.resolve(), family_message(kFirstFamily + 1));
    EXPECT_EQ(shown(), std::vector<std::string>{});
    EXPECT_EQ(shown("mvlan"), std::vector<std::string>{});
    const Packet stale = channel.ask(MAC_EVENT_CLIENT_FIND_FIRST, Packet(68));
    EXPECT_EQ(value_at<int32_t>(stale.data(), 16), -ENOENT);
}

TEST_F(SandboxKernel, bad_commands_about_addresses_are_told) {
    const std::vector<std::pair<const char *, const char *>> cases = {
        {"mac", "no such command: mac (try help mac)"},
        {"mac fly", "no such command: mac fly (try help mac)"},
        {"mac add 02:00:00:00:00:01 1", "usage: mac add MAC VID IFX [TYPE]"},
        {"mac add 02:00:00:00:00:01 * 1", "an address to add is named whole"},
        {"mac add 02:00:00:00:00:1 1 1", "not a MAC address: 02:00:00:00:00:1"},
        {"mac add 02:00:00:00:00:0g 1 1", "not a MAC address: 02:00:00:00:00:0g"},
        {"mac add 02:00:00:00:00:01 4095 1", "not a number up to 4094: 4095"},
        {"mac add 02:00:00:00:00:01 1 1 odd", "no such type of address: odd"},
        {"mac fill 1000001 1 1", "not a number up to 1000000"},
        {"mvlan delete 00:00:00:00:00:09", "no such entry"},
        {"kernel up 5", "only error takes a number"},
        {"kernel error 4096", "not a number up to 4095"},
    };
    for (const auto &[command, error] : cases) {
        sandbox.write_line(command);
        EXPECT_TRUE(sandbox.shows(std::string("error: ") + error)) << command;
    }
    EXPECT_EQ(shown(), std::vector<std::string>{});
}

TEST_F(SandboxKernel, delete_by_command_takes_what_its_words_select) {
    fill_some();
    run("mac delete * 10 3");
    EXPECT_EQ(shown(), (std::vector<std::string>{"02:00:00:00:00:05 VLAN 11 port 3 static",
                                                 "02:00:00:00:00:07 VLAN 10 port 4 security"}));
    run("mac delete * * * security");
    EXPECT_EQ(shown().size(), 1U);
    run("mac delete *");
    EXPECT_EQ(shown(), std::vector<std::string>{});
    run("mac help");
    EXPECT_EQ(sandbox.count("\n  mac fill "), 1);
}

} // namespace
