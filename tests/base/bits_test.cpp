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
    const bits::SharedSet set(words);
    EXPECT_TRUE(set.set(40));
    EXPECT_FALSE(set.set(40));
    EXPECT_EQ(words[1], 1U << 8);
    EXPECT_TRUE(set.test(40));
    EXPECT_TRUE(set.clear(40));
    EXPECT_FALSE(set.clear(40));
    EXPECT_FALSE(bits::any(words, 2));
}

TEST(bits, shared_changes_of_a_word_give_the_bits_that_changed) {
    uint32_t words[2] = {0xFF, 0x0F};
    const bits::SharedSet set(words);
    EXPECT_EQ(set.add(1, 0x3C), 0x30U);
    EXPECT_EQ(words[1], 0x3FU);
    EXPECT_EQ(set.take(1, 0xF0), 0x30U);
    EXPECT_EQ(words[1], 0x0FU);
    EXPECT_EQ(words[0], 0xFFU);
    set.reset(2);
    EXPECT_FALSE(bits::any(words, 2));
}

TEST(bits, a_shared_set_may_be_none) {
    uint32_t words[2] = {};
    EXPECT_FALSE(bits::SharedSet(nullptr));
    EXPECT_TRUE(bits::SharedSet(words));
    EXPECT_TRUE(bits::SharedSet(words).is(words));
    EXPECT_FALSE(bits::SharedSet(words).is(words + 1));
}

// What changes a private set does not take one in shared memory, nor the words of a record that is only read.
template <class Words>
concept privately_changed = requires(Words words) {
    bits::set(words, 1U);
};
static_assert(privately_changed<uint32_t *>);
static_assert(!privately_changed<bits::SharedSet> && !privately_changed<const uint32_t *>);

} // namespace
