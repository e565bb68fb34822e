#include "shared/netlink_frame.h"
#include "tests/support/kernel.h"

#include <unistd.h>

namespace {

using namespace test;
namespace netlink = bri::netlink;

class NetlinkFrame : public Env {
  protected:
    // The bytes of a request whose payload is `size` bytes of `fill`; empty when it was refused.
    static Packet built(uint16_t type, uint16_t attr_type, size_t size, uint8_t fill) {
        const Packet payload(size, fill);
        auto request = std::make_unique<netlink::Request>();
        std::memset(static_cast<void *>(request.get()), 0xA5, sizeof *request); // stale stack bytes must not go out
        if (!request->build(type, attr_type, {payload.data(), payload.size()}))
            return {};
        return {request->bytes().data, request->bytes().data + request->bytes().size};
    }
    static uint16_t id_in(const Packet &answer, const char *name = "EF_BRIDGE") {
        const std::unique_ptr<uint8_t[]> exact(
            new uint8_t[answer.size()]); // a read past the end is a read past the heap
        std::copy(answer.begin(), answer.end(), exact.get());
        return netlink::family_id_in({exact.get(), answer.size()}, name);
    }
    static Packet text(const std::string &value) { return {value.begin(), value.end()}; }
    static Packet name_attr() { return netlink_attr(2, text(std::string("EF_BRIDGE", 10))); }
};

TEST_F(NetlinkFrame, a_request_is_laid_out_byte_by_byte) {
    const Packet bytes = built(0x1234, 7, 15, 0xEE);
    ASSERT_EQ(bytes.size(), 40U);
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 0), 40U);
    EXPECT_EQ(value_at<uint16_t>(bytes.data(), 4), 0x1234);
    EXPECT_EQ(value_at<uint16_t>(bytes.data(), 6), 1);
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 8), 0U);
    EXPECT_EQ(value_at<uint32_t>(bytes.data(), 12), static_cast<uint32_t>(getpid()));
    EXPECT_EQ(bytes[16], 3);
    EXPECT_EQ(bytes[17], 1);
    EXPECT_EQ(value_at<uint16_t>(bytes.data(), 18), 0);
    EXPECT_EQ(value_at<uint16_t>(bytes.data(), 20), 20);
    EXPECT_EQ(value_at<uint16_t>(bytes.data(), 22), 7);
    EXPECT_EQ(Packet(bytes.begin() + 24, bytes.begin() + 39), Packet(15, 0xEE));
    EXPECT_EQ(bytes[39], 0);
}

// nla_len is payload + 5; the whole is rounded up to a multiple of 4 and the padding is zero.
TEST_F(NetlinkFrame, every_payload_length_is_rounded_up_with_zeros) {
    for (size_t size = 0; size < 70; ++size) {
        const Packet bytes = built(20, 0, size, 0xEE);
        const size_t rounded = 20 + (size + 5 + 3) / 4 * 4;
        ASSERT_EQ(bytes.size(), rounded) << size;
        EXPECT_EQ(value_at<uint32_t>(bytes.data(), 0), rounded) << size;
        EXPECT_EQ(value_at<uint16_t>(bytes.data(), 20), size + 5) << size;
        for (size_t at = 24; at < rounded; ++at)
            EXPECT_EQ(bytes[at], at < 24 + size ? 0xEE : 0) << size << " at " << at;
    }
}

TEST_F(NetlinkFrame, a_payload_that_passes_the_area_with_its_padding_is_refused) {
    const Packet largest = built(20, 0, 19995, 1);
    ASSERT_EQ(largest.size(), 20020U);
    EXPECT_EQ(value_at<uint16_t>(largest.data(), 20), 20000);
    EXPECT_TRUE(built(20, 0, 19996, 1).empty());
    EXPECT_TRUE(built(20, 0, 65536, 1).empty());
}

TEST_F(NetlinkFrame, a_refused_payload_leaves_nothing_to_send) {
    auto request = std::make_unique<netlink::Request>();
    const Packet payload(30000, 1);
    ASSERT_TRUE(request->build(20, 0, {payload.data(), 8}));
    EXPECT_FALSE(request->build(20, 0, {payload.data(), payload.size()}));
    EXPECT_EQ(request->bytes().size, 0U);
    EXPECT_FALSE(request->build(20, 0, {payload.data(), SIZE_MAX}));
}

TEST_F(NetlinkFrame, the_resolution_asks_the_controller_for_the_name) {
    auto request = std::make_unique<netlink::Request>();
    ASSERT_TRUE(netlink::build_resolution(*request, "EF_BRIDGE"));
    const bri::Bytes bytes = request->bytes();
    ASSERT_EQ(bytes.size, 36U);
    EXPECT_EQ(value_at<uint32_t>(bytes.data, 0), 36U);
    EXPECT_EQ(value_at<uint16_t>(bytes.data, 4), 16);
    EXPECT_EQ(bytes.data[16], 3);
    EXPECT_EQ(value_at<uint16_t>(bytes.data, 20), 15);
    EXPECT_EQ(value_at<uint16_t>(bytes.data, 22), 2);
    EXPECT_EQ(std::memcmp(bytes.data + 24, "EF_BRIDGE\0\0", 12), 0);
}

TEST_F(NetlinkFrame, the_process_id_is_that_of_the_sender) {
    faults::hooks.getpid = [] { return pid_t{0x12345678}; };
    EXPECT_EQ(value_at<uint32_t>(built(20, 0, 1, 0).data(), 12), 0x12345678U);
}

TEST_F(NetlinkFrame, the_family_id_is_the_second_attribute) {
    EXPECT_EQ(id_in(family_answer("EF_BRIDGE", 27)), 27);
    EXPECT_EQ(id_in(family_answer("EF_BRIDGE", 0xFFFF)), 0xFFFF);
    EXPECT_EQ(id_in(family_answer("nlctrl", 16), "nlctrl"), 16);
}

TEST_F(NetlinkFrame, only_the_error_type_and_the_lengths_of_an_answer_are_judged) {
    Packet answer = family_answer("EF_BRIDGE", 27);
    put_at<uint16_t>(answer.data(), 4, 99); // any other type will do
    EXPECT_EQ(id_in(answer), 27);
    put_at<uint16_t>(answer.data(), 4, 2);
    EXPECT_EQ(id_in(answer), 0);
}

TEST_F(NetlinkFrame, an_answer_that_announces_more_than_arrived_gives_no_id) {
    Packet answer = family_answer("EF_BRIDGE", 27);
    put_at(answer.data(), 0, static_cast<uint32_t>(answer.size() + 1));
    EXPECT_EQ(id_in(answer), 0);
    for (const uint32_t length : {0U, 1U, 15U, 16U, 19U, 20U, 23U, 24U, 0x80000000U, 0xFFFFFFFFU}) {
        put_at(answer.data(), 0, length);
        EXPECT_EQ(id_in(answer), 0) << length;
    }
}

// The answer is cut to every length, once with its own length word and once with one that fits what is left.
TEST_F(NetlinkFrame, an_answer_cut_anywhere_is_read_within_its_bounds) {
    const Packet whole = family_answer("EF_BRIDGE", 27);
    const size_t id_ends = 20 + 16 + 4 + 2;
    for (size_t size = 0; size < whole.size(); ++size) {
        Packet cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(id_in(cut), 0) << size;
        if (size < 4)
            continue;
        put_at(cut.data(), 0, static_cast<uint32_t>(size));
        EXPECT_EQ(id_in(cut), size >= id_ends ? 27 : 0) << size;
    }
}

TEST_F(NetlinkFrame, the_first_attribute_must_be_exactly_the_name) {
    const Packet id = netlink_attr(1, packet_of(uint16_t{27}));
    const auto with_name = [&](const std::string &name) {
        return id_in(netlink_message(16, 1, netlink_attr(2, text(name)) + id));
    };
    EXPECT_EQ(with_name(std::string("EF_BRIDGE", 10)), 27);
    EXPECT_EQ(with_name("EF_BRIDGE"), 27); // the NUL may be missing
    EXPECT_EQ(with_name("EF_BRIDG"), 0);
    EXPECT_EQ(with_name("EF_BRIDGES"), 0);
    EXPECT_EQ(with_name("ef_bridge"), 0);
    EXPECT_EQ(with_name(""), 0);
    EXPECT_EQ(id_in(netlink_message(16, 1, id + netlink_attr(2, text("EF_BRIDGE")))), 0);
}

TEST_F(NetlinkFrame, the_second_attribute_must_be_the_id) {
    EXPECT_EQ(id_in(netlink_message(16, 1, name_attr())), 0);
    EXPECT_EQ(id_in(netlink_message(16, 1, name_attr() + netlink_attr(3, packet_of(uint32_t{27})))), 0);
    EXPECT_EQ(id_in(netlink_message(16, 1, name_attr() + netlink_attr(1, {27}))), 0);
    EXPECT_EQ(id_in(netlink_message(16, 1, name_attr() + netlink_attr(1, {}))), 0);
    EXPECT_EQ(id_in(netlink_message(16, 1, name_attr() + netlink_attr(1, packet_of(uint32_t{0x00270027})))), 0x27);
}

TEST_F(NetlinkFrame, attribute_lengths_are_bounded_before_a_step) {
    for (const uint16_t length : {uint16_t{0}, uint16_t{3}, uint16_t{4}, uint16_t{0x7FFF}, uint16_t{0xFFFF}}) {
        Packet answer = family_answer("EF_BRIDGE", 27);
        put_at(answer.data(), 20, length);
        EXPECT_EQ(id_in(answer), 0) << length;
        answer = family_answer("EF_BRIDGE", 27);
        put_at(answer.data(), 36, length);
        EXPECT_EQ(id_in(answer), 0) << length;
    }
}

TEST_F(NetlinkFrame, the_iterator_steps_over_attributes_until_the_bytes_end) {
    const Packet bytes = netlink_attr(5, {1}) + netlink_attr(6, {}) + netlink_attr(7, {1, 2, 3, 4});
    std::vector<std::pair<uint16_t, size_t>> seen;
    for (netlink::AttrIterator attr({bytes.data(), bytes.size()}); attr.ok(); attr.next())
        seen.emplace_back(attr.type(), attr.payload().size);
    EXPECT_EQ(seen, (std::vector<std::pair<uint16_t, size_t>>{{5, 1}, {6, 0}, {7, 4}}));
}

} // namespace
