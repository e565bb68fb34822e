#include "base/bits.h"
#include "tests/support/test.h"

namespace {

using namespace bri;

TEST(bits, for_each_visits_the_set_bits_of_the_range_in_rising_order) {
    uint32_t words[128] = {};
    for (const unsigned bit : {0U, 1U, 31U, 32U, 63U, 64U, 4094U, 4095U})
        bits::set(words, bit);
    std::vector<unsigned> seen;
    bits::for_each(words, 1, 4094, [&](unsigned bit) { seen.push_back(bit); });
    EXPECT_EQ(seen, (std::vector<unsigned>{1, 31, 32, 63, 64, 4094}));
}

TEST(bits, for_each_ends_when_the_function_says_so) {
    uint32_t words[2] = {0xFFFFFFFF, 0xFFFFFFFF};
    std::vector<unsigned> seen;
    bits::for_each(words, 30, 63, [&](unsigned bit) {
        seen.push_back(bit);
        return bit < 33;
    });
    EXPECT_EQ(seen, (std::vector<unsigned>{30, 31, 32, 33}));
}

TEST(bits, for_each_agrees_with_a_bit_by_bit_walk_on_every_pair_of_bounds) {
    uint32_t words[3] = {0x80000001, 0xA5A5A5A5, 0x7FFFFFFE};
    for (unsigned first = 0; first < 96; ++first)
        for (unsigned last = 0; last < 96; ++last) {
            std::vector<unsigned> seen;
            std::vector<unsigned> expected;
            bits::for_each(words, first, last, [&](unsigned bit) { seen.push_back(bit); });
            for (unsigned bit = first; bit <= last; ++bit)
                if ((words[bit / 32] >> (bit % 32) & 1) != 0)
                    expected.push_back(bit);
            ASSERT_EQ(seen, expected) << first << ".." << last;
        }
}

TEST(bits, private_changes_touch_their_bit_alone) {
    uint32_t words[2] = {0xFFFFFFFF, 0};
    bits::clear(words, 7);
    bits::set(words, 39);
    EXPECT_EQ(words[0], ~(1U << 7));
    EXPECT_EQ(words[1], 1U << 7);
    EXPECT_FALSE(bits::test(words, 7));
    EXPECT_TRUE(bits::test(words, 8));
    EXPECT_TRUE(bits::test(words, 39));
}

TEST(bits, sets_are_counted_merged_and_taken_out_word_by_word) {
    uint32_t words[3] = {0x80000001, 0, 0x0F};
    const uint32_t other[3] = {0x80000002, 0x10, 0x03};
    EXPECT_EQ(bits::count(words, 3), 6U);
    EXPECT_EQ(bits::count(words, 2), 2U);
    bits::merge(words, other, 2);
    EXPECT_EQ(words[0], 0x80000003U);
    EXPECT_EQ(words[1], 0x10U);
    EXPECT_EQ(words[2], 0x0FU);
    bits::remove(words, other, 3);
    EXPECT_EQ(words[0], 1U);
    EXPECT_EQ(words[1], 0U);
    EXPECT_EQ(words[2], 0x0CU);
    EXPECT_TRUE(bits::any(words, 1));
    EXPECT_FALSE(bits::any(words + 1, 1));
}

TEST(bits, shared_changes_tell_whether_the_bit_changed) {
    uint32_t words[2] = {};
    EXPECT_TRUE(bits::set_shared(words, 40));
    EXPECT_FALSE(bits::set_shared(words, 40));
    EXPECT_EQ(words[1], 1U << 8);
    EXPECT_TRUE(bits::clear_shared(words, 40));
    EXPECT_FALSE(bits::clear_shared(words, 40));
    EXPECT_FALSE(bits::any(words, 2));
}

} // namespace
