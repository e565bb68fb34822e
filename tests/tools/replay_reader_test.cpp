// Recordings as the writer makes them, cut at every byte, and damaged.
#include "tests/support/test.h"
#include "tools/recording/reader.h"
#include "tools/recording/writer.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>

namespace {

using namespace recording;
using wire::Buffer;
using wire::Order;

class ReplayReader : public test::Env, public testing::WithParamInterface<Order> {
  protected:
    // Of each kind one packet.
    [[nodiscard]] Buffer recorded() const {
        const std::string path = tmpdir() + "/recording";
        {
            Writer writer(path, {"bridge-tap", 3, GetParam(), 4});
            writer.add({.way = Way::kToClient,
                        .kind = Kind::kTable,
                        .table = Table::kVlans,
                        .flags = kStartValue,
                        .offset = 0x01020304},
                       Buffer{1, 2, 3, 4, 5});
            writer.add({.way = Way::kToClient, .kind = Kind::kConnection, .client = 7}, Buffer{0});
            writer.add({.way = Way::kToServer, .kind = Kind::kBatch, .client = 7}, Buffer(8));
            writer.add({.way = Way::kToServer, .kind = Kind::kKernel, .client = 7}, Buffer(20));
        }
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    // The line that tells what is wrong; empty when nothing is.
    [[nodiscard]] static std::string fault_of(const Buffer &bytes) {
        try {
            (void)read(bytes, "day.pcapng");
            return "";
        } catch (const std::runtime_error &error) {
            return error.what();
        }
    }
    // With the bytes behind the first packet's block header changed.
    [[nodiscard]] Buffer with(size_t offset, uint8_t value) const {
        Buffer bytes = recorded();
        bytes[first_packet(bytes) + offset] = value;
        return bytes;
    }
    [[nodiscard]] static size_t first_packet(const Buffer &bytes) {
        const Buffer body{1, 2, 3, 4, 5};
        const auto found = std::search(bytes.begin(), bytes.end(), body.begin(), body.end());
        return static_cast<size_t>(found - bytes.begin()) - kHeadSize;
    }
};

TEST_P(ReplayReader, reads_what_was_written) {
    const auto found = read(recorded(), "");
    ASSERT_EQ(found.packets.size(), 4U);
    const Packet &change = found.packets[0];
    EXPECT_EQ(change.number, 1U);
    EXPECT_EQ(change.order(), GetParam());
    EXPECT_EQ(change.head.kind, Kind::kTable);
    EXPECT_EQ(change.head.table, Table::kVlans);
    EXPECT_EQ(change.head.flags, kStartValue);
    EXPECT_EQ(change.head.offset, 0x01020304U);
    EXPECT_TRUE(std::ranges::equal(change.body, Buffer{1, 2, 3, 4, 5}));
    EXPECT_EQ(found.packets[1].head.client, 7U);
    EXPECT_EQ(found.packets[2].head.way, Way::kToServer);
    EXPECT_EQ(found.packets[3].head.kind, Kind::kKernel);
    EXPECT_GE(found.packets[3].time, change.time);
    EXPECT_GT(change.time, std::chrono::hours(24 * 365 * 50)) << "since 1970";
}

TEST_P(ReplayReader, reads_no_further_than_asked) {
    Buffer bytes = recorded();
    bytes.resize(bytes.size() - 1);
    EXPECT_EQ(fault_of(bytes), "day.pcapng is cut behind packet 3; --until 3 plays what is whole");
    EXPECT_EQ(read(bytes, "", 3).packets.size(), 3U);
}

TEST_P(ReplayReader, tells_where_it_is_cut_at_whatever_byte) {
    const Buffer whole = recorded();
    size_t most = 0;
    for (size_t size = 0; size < whole.size(); ++size) {
        Buffer cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        cut.shrink_to_fit();
        const std::string fault = fault_of(cut);
        const bool is_end_of_a_block = fault.empty();
        if (is_end_of_a_block)
            most = std::max(most, read(cut, "").packets.size());
        else
            EXPECT_TRUE(fault.find(" is cut behind packet ") != std::string::npos ||
                        fault == "day.pcapng is no recording of the bridge service")
                << size << ": " << fault;
    }
    EXPECT_EQ(most, 3U);
}

TEST_P(ReplayReader, tells_of_damage) {
    const size_t size_word = 2; // of the head: its byte order, which is 0 or 1
    EXPECT_EQ(fault_of(with(0, 9)), "day.pcapng is damaged at packet 1: a head of version 9");
    EXPECT_EQ(fault_of(with(size_word, 2)), "day.pcapng is damaged at packet 1: a head that says nothing");
    EXPECT_EQ(fault_of(with(3, 4)), "day.pcapng is damaged at packet 1: a head that says nothing");
}

// What comes out of it does not matter: nothing is read outside, as the sanitizers see, and it ends.
TEST_P(ReplayReader, survives_random_damage) {
    const Buffer whole = recorded();
    std::mt19937 random(11);
    size_t refused = 0;
    for (unsigned round = 0; round < 5000; ++round) {
        Buffer bytes = whole;
        bytes.shrink_to_fit();
        for (unsigned changes = 0; changes <= round % 4; ++changes)
            bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
        refused += fault_of(bytes).empty() ? 0U : 1U;
    }
    EXPECT_GT(refused, 500U);
    EXPECT_LT(refused, 5000U);
}

INSTANTIATE_TEST_SUITE_P(Orders, ReplayReader, testing::Values(Order::kLittle, Order::kBig),
                         [](const auto &each) { return std::string(each.param == Order::kBig ? "big" : "little"); });

TEST(ReplayReaderFile, of_another_program_is_refused) {
    const auto fault = [](const Buffer &bytes) {
        try {
            (void)read(bytes, "x");
            return std::string();
        } catch (const std::runtime_error &error) {
            return std::string(error.what());
        }
    };
    const std::string foreign = "x is no recording of the bridge service";
    EXPECT_EQ(fault({}), foreign);
    EXPECT_EQ(fault(Buffer(1000, 'a')), foreign);
    // A section without a comment, as capture programs write it.
    EXPECT_EQ(fault({0x0A, 0x0D, 0x0D, 0x0A, 28,   0,    0,    0,    0x4D, 0x3C, 0x2B, 0x1A, 1, 0,
                     0,    0,    0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 28,   0,    0, 0}),
              foreign);
    EXPECT_THROW((void)read_file("/nowhere/day.pcapng"), std::runtime_error);
}

} // namespace
