#include "base/shared_word.h"
#include "tests/support/children.h"
#include "tests/support/test.h"

#include <pthread.h>

namespace {

using namespace bri;

TEST(shared_word, set_bits_unless_sets_when_nothing_is_barred) {
    uint32_t word = 0x5;
    EXPECT_EQ(word::set_bits_unless(word, 0x12U, 0xAU), 0U);
    EXPECT_EQ(word, 0x17U);
    EXPECT_EQ(word::set_bits_unless(word, 0x80000000U, 0U), 0U);
    EXPECT_EQ(word, 0x80000017U);
}

TEST(shared_word, set_bits_unless_gives_the_barred_bits_and_changes_nothing) {
    uint32_t word = 0x15;
    EXPECT_EQ(word::set_bits_unless(word, 0x40U, 0x1CU), 0x14U);
    EXPECT_EQ(word, 0x15U);
}

// Two threads claim the same word with bits that bar each other, again and again; both never hold it.
struct Contest {
    uint32_t arrived = 0;
    uint32_t word = 0;
    uint32_t holders = 0;
    uint32_t clashes = 0;
};
struct Claimant {
    Contest *contest;
    uint32_t bit;
};

void *claim(void *arg) {
    const auto [contest, bit] = *static_cast<Claimant *>(arg);
    test::meet(contest->arrived, 2);
    for (int round = 0; round < test::scaled(3000000); ++round) {
        if (word::set_bits_unless(contest->word, bit, 3U) != 0)
            continue;
        if (word::add(contest->holders, 1U) != 0)
            word::add(contest->clashes, 1U);
        word::add(contest->holders, UINT32_MAX);
        word::clear_bits(contest->word, bit);
    }
    return nullptr;
}

TEST(shared_word, bits_that_bar_each_other_are_never_set_together) {
    Contest contest;
    Claimant claimants[2] = {{&contest, 1}, {&contest, 2}};
    pthread_t threads[2];
    for (int index = 0; index < 2; ++index)
        ASSERT_EQ(pthread_create(&threads[index], nullptr, claim, &claimants[index]), 0);
    for (const pthread_t thread : threads)
        pthread_join(thread, nullptr);
    EXPECT_EQ(contest.clashes, 0U);
    EXPECT_EQ(contest.word, 0U);
}

} // namespace
