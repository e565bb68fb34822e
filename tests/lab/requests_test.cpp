// Requests of every length and shape at the kernel's module, as no host of the library sends them: each is answered or
// refused, and the module is none the worse for it.
#include "tests/lab/module_fixture.h"
#include "tests/support/children.h"
#include "tests/support/kernel.h"

#include <random>
#include <sys/socket.h>

namespace {

using namespace test;

// A socket of the kernel's generic netlink. Whatever the kernel has to say is there when send() returns.
class Channel {
  public:
    Channel() {
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        const char name[] = "EF_BRIDGE";
        send(request(GENL_ID_CTRL, netlink_attr(CTRL_ATTR_FAMILY_NAME, {name, name + sizeof name})));
        const Packet answer = receive();
        EXPECT_GE(answer.size(), 42U);
        family_ = answer.size() < 42 ? uint16_t{0} : value_at<uint16_t>(answer.data(), 40);
    }
    ~Channel() { close(fd_); }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    [[nodiscard]] uint16_t family() const { return family_; }
    [[nodiscard]] static Packet request(uint16_t type, const Packet &body) {
        Packet packet = netlink_message(type, CTRL_CMD_GETFAMILY, body); // the same number as that of data
        put_at(packet.data(), 6, static_cast<uint16_t>(NLM_F_REQUEST));
        return packet;
    }
    // What a host says: type, length and data.
    [[nodiscard]] Packet said(uint32_t type, uint32_t claimed, const Packet &data) const {
        return request(family_, netlink_attr(0, packet_of(type) + packet_of(claimed) + data));
    }
    void send(const Packet &packet) const {
        const sockaddr_nl kernel{AF_NETLINK, 0, 0, 0};
        EXPECT_EQ(
            sendto(fd_, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel),
            static_cast<ssize_t>(packet.size()));
    }
    // Empty when there is nothing.
    [[nodiscard]] Packet receive() const {
        Packet packet(20020);
        const ssize_t length = recv(fd_, packet.data(), packet.size(), MSG_DONTWAIT);
        packet.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
        return packet;
    }
    [[nodiscard]] Packet answer_to(const Packet &packet) const {
        send(packet);
        Packet answer = receive();
        EXPECT_EQ(receive(), Packet());
        return answer;
    }

  private:
    int fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
    uint16_t family_ = 0;
};

// The error that a message says, 0 for an answer of the family and for nothing.
int error_of(const Packet &answer) {
    if (answer.size() < 20 || value_at<uint16_t>(answer.data(), 4) != NLMSG_ERROR)
        return 0;
    return value_at<int32_t>(answer.data(), 16);
}

// What the module takes, and how it answers.
constexpr struct {
    uint32_t type;
    uint32_t least; // bytes
    bool question;  // answered in as many bytes; else there is no answer
} kKnown[] = {
    {MAC_EVENT_CLIENT_FIND_FIRST, sizeof(bri_mac_find_first), true},
    {MAC_EVENT_CLIENT_FIND_NEXT, sizeof(bri_mac_find_next), true},
    {MVLAN_EVENT_NOTIFY_ENTRY, sizeof(mvlan_msg), true},
    {MAC_EVENT_SS_NOTIFY_ADDR, 0, false},
    {MAC_EVENT_DYN_CHECK_BEGIN, 0, false},
    {MAC_EVENT_DYN_CHECK_END, 0, false},
};

class ModuleRequests : public ModuleHost {
  protected:
    // The module still answers as it should.
    void TearDown() override {
        tell("clear");
        tell("mac add 02:00:00:00:00:05 10 3 2");
        bri_mac_entry entry;
        EXPECT_EQ(look_up({2, 0, 0, 0, 0, 5}, 10, entry), 0);
        EXPECT_EQ(module_figure("addresses"), 1);
        ModuleHost::TearDown();
    }

    const Channel channel_;
};

TEST_F(ModuleRequests, data_of_every_length_are_answered_or_refused) {
    for (const auto &[type, least, question] : kKnown)
        for (uint32_t length = 0; length <= 130; ++length) {
            const Packet answer = channel_.answer_to(channel_.said(type, length, Packet(length)));
            const bool taken = length >= least;
            ASSERT_EQ(error_of(answer), taken ? 0 : -EINVAL) << type << " " << length;
            if (taken) {
                ASSERT_EQ(answer.size(), question ? 24 + least : 0) << type << " " << length;
            }
        }
}

TEST_F(ModuleRequests, length_word_that_claims_more_than_there_is_is_refused) {
    for (const auto &row : kKnown)
        for (const uint32_t claimed : {133U, 0x7FFFFFF8U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFF4U, 0xFFFFFFFFU})
            EXPECT_EQ(error_of(channel_.answer_to(channel_.said(row.type, claimed, Packet(132)))), -EINVAL)
                << row.type << " " << claimed;
}

TEST_F(ModuleRequests, attribute_that_is_not_whole_is_refused) {
    for (size_t length = 0; length < 12; ++length)
        EXPECT_EQ(error_of(channel_.answer_to(Channel::request(channel_.family(), Packet(length)))), -EINVAL) << length;
}

TEST_F(ModuleRequests, length_of_the_attribute_is_not_looked_at) {
    const Packet data(sizeof(bri_mac_find_first));
    for (const uint16_t length : std::initializer_list<uint16_t>{0, 1, 3, 4, 5, 11, 12, 255, 0x7FFF, 0xFFFF}) {
        Packet packet = channel_.said(MAC_EVENT_CLIENT_FIND_FIRST, sizeof(bri_mac_find_first), data);
        put_at(packet.data(), 20, length);
        EXPECT_EQ(channel_.answer_to(packet).size(), 24 + data.size()) << length;
    }
}

TEST_F(ModuleRequests, types_and_commands_that_it_does_not_know_are_refused) {
    for (const uint32_t type : {0U, 1U, 12345U, 0x80000000U, 0xFFFFFFFFU})
        EXPECT_EQ(error_of(channel_.answer_to(channel_.said(type, 4, Packet(4)))), -EOPNOTSUPP) << type;
    for (const uint8_t command : std::initializer_list<uint8_t>{0, 1, 2, 4, 255}) {
        Packet packet = channel_.said(MAC_EVENT_DYN_CHECK_BEGIN, 0, {});
        put_at(packet.data(), 16, command);
        EXPECT_EQ(error_of(channel_.answer_to(packet)), -EOPNOTSUPP) << int{command};
    }
}

// Known types as often as not, with lengths that fit about half of the time.
TEST_F(ModuleRequests, thrown_at_it_at_random_leave_it_whole) {
    std::mt19937 random(20260122); // the same each time
    const auto pick = [&](uint32_t end) { return static_cast<uint32_t>(random() % end); };
    for (int count = 0; count < 4000; ++count) {
        Packet data(pick(2) != 0 ? pick(200) : pick(4000));
        for (uint8_t &byte : data)
            byte = static_cast<uint8_t>(pick(4) != 0 ? pick(4) : random());
        const uint32_t type = pick(4) != 0 ? kKnown[pick(std::size(kKnown))].type : static_cast<uint32_t>(random());
        const auto length = static_cast<uint32_t>(data.size());
        Packet packet = channel_.said(type, pick(4) != 0 ? length : pick(2 * length + 1), data);
        if (pick(4) == 0)
            packet[16 + pick(static_cast<uint32_t>(packet.size()) - 16)] = static_cast<uint8_t>(random());
        if (pick(8) == 0)
            put_at(packet.data(), 0, 16 + pick(static_cast<uint32_t>(packet.size()) - 15)); // a part of it
        channel_.send(packet);
        while (!channel_.receive().empty()) {
        }
    }
    EXPECT_LE(module_figure("addresses"), 65536);
}

} // namespace
