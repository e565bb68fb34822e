// The helpers for sets of events, VLANs and ports, each kind swept whole.
#include "tests/support/test.h"

#include <bridge/sets.h>

#include <algorithm>
#include <set>

namespace {

// The functions of one kind under one name each, so that every test goes for all three.
#define KIND(name, set_type, prefix, greatest, text_size)                                                              \
    struct name {                                                                                                      \
        using Set = set_type;                                                                                          \
        static constexpr uint32_t kLast = greatest;                                                                    \
        static constexpr size_t kTextSize = text_size;                                                                 \
        static constexpr auto add = prefix##_add;                                                                      \
        static constexpr auto add_range = prefix##_add_range;                                                          \
        static constexpr auto remove = prefix##_remove;                                                                \
        static constexpr auto has = prefix##_has;                                                                      \
        static constexpr auto next = prefix##_next;                                                                    \
        static constexpr auto count = prefix##_count;                                                                  \
        static constexpr auto clear = prefix##_clear;                                                                  \
        static constexpr auto from_text = prefix##_from_text;                                                          \
        static constexpr auto to_text = prefix##_to_text;                                                              \
    }
KIND(Events, event_set, bri_event_set, 4095, BRI_SET_TEXT_SIZE);
KIND(Vlans, vlanset, bri_vlanset, 4094, BRI_SET_TEXT_SIZE);
KIND(Ports, bri_port_set, bri_port_set, 63, BRI_PORT_SET_TEXT_SIZE);
#undef KIND

template <class Kind> class Sets : public ::testing::Test {
  protected:
    using Set = typename Kind::Set;
    static constexpr uint32_t kLast = Kind::kLast;

    static Set of(const std::set<uint32_t> &ids) {
        Set set{};
        for (const uint32_t id : ids)
            EXPECT_EQ(Kind::add(&set, id), 0);
        return set;
    }
    static std::set<uint32_t> ids_in(const Set &set) {
        std::set<uint32_t> ids;
        for (uint32_t id = Kind::next(&set, 0); id != 0; id = Kind::next(&set, id))
            ids.insert(id);
        return ids;
    }
    static std::string text_of(const Set &set) {
        std::string text(Kind::kTextSize, 'x');
        const size_t length = Kind::to_text(&set, text.data(), text.size());
        EXPECT_LT(length, text.size());
        EXPECT_EQ(text.c_str()[length], '\0');
        return text.substr(0, length);
    }
    static bool same(const Set &one, const Set &other) { return std::memcmp(&one, &other, sizeof one) == 0; }
    static Set full() {
        Set set{};
        std::memset(&set, 0xFF, sizeof set);
        return set;
    }
};
using Kinds = ::testing::Types<Events, Vlans, Ports>;
TYPED_TEST_SUITE(Sets, Kinds, );

TYPED_TEST(Sets, add_sets_exactly_the_bit_of_the_interface) {
    for (uint32_t id = 1; id <= TestFixture::kLast; ++id) {
        typename TypeParam::Set expected{};
        expected.words[id / 32] = uint32_t{1} << id % 32;
        ASSERT_TRUE(this->same(this->of({id}), expected)) << id;
    }
}

TYPED_TEST(Sets, remove_takes_exactly_one_out) {
    for (uint32_t id = 1; id <= TestFixture::kLast; ++id) {
        typename TypeParam::Set set = this->full();
        typename TypeParam::Set expected = set;
        expected.words[id / 32] ^= uint32_t{1} << id % 32;
        ASSERT_EQ(TypeParam::remove(&set, id), 0);
        ASSERT_EQ(TypeParam::remove(&set, id), 0) << "one that is not there";
        ASSERT_TRUE(this->same(set, expected)) << id;
    }
}

TYPED_TEST(Sets, has_tells_of_each_number_by_itself) {
    for (uint32_t id = 1; id <= TestFixture::kLast; ++id) {
        const auto set = this->of({id});
        for (const uint32_t other : {id - 1, id, id + 1})
            ASSERT_EQ(TypeParam::has(&set, other), other == id ? 1 : 0) << other;
    }
}

TYPED_TEST(Sets, refuses_numbers_out_of_range) {
    for (const uint32_t id : {0U, TestFixture::kLast + 1, 4096U, 65537U, 0x80000001U, UINT32_MAX}) {
        typename TypeParam::Set set{};
        typename TypeParam::Set full = this->full();
        EXPECT_EQ(TypeParam::add(&set, id), -1) << id;
        EXPECT_EQ(TypeParam::add_range(&set, 1, id), -1) << id;
        EXPECT_EQ(TypeParam::add_range(&set, id, 1), -1) << id;
        EXPECT_TRUE(this->same(set, {})) << id;
        EXPECT_EQ(TypeParam::remove(&full, id), -1) << id;
        EXPECT_TRUE(this->same(full, this->full())) << id;
        EXPECT_EQ(TypeParam::has(&full, id), 0) << id;
    }
}

TYPED_TEST(Sets, next_finds_each_number_from_everywhere_below) {
    for (uint32_t id = 1; id <= TestFixture::kLast; ++id) {
        const auto set = this->of({id});
        for (const uint32_t after : {0U, id / 2, id - 1})
            ASSERT_EQ(TypeParam::next(&set, after), id) << after;
        for (const uint32_t after : {id, id + 1, TestFixture::kLast, TestFixture::kLast + 1, UINT32_MAX})
            ASSERT_EQ(TypeParam::next(&set, after), 0U) << after;
    }
}

TYPED_TEST(Sets, bits_that_are_no_numbers_are_not_told_of) {
    const auto set = this->full();
    EXPECT_EQ(TypeParam::count(&set), TestFixture::kLast);
    EXPECT_EQ(this->ids_in(set).size(), TestFixture::kLast);
    EXPECT_EQ(this->text_of(set), "1-" + std::to_string(TestFixture::kLast));
}

TYPED_TEST(Sets, count_is_how_many_were_added) {
    typename TypeParam::Set set{};
    for (uint32_t id = 1; id <= TestFixture::kLast; ++id) {
        ASSERT_EQ(TypeParam::count(&set), id - 1);
        TypeParam::add(&set, id);
    }
    EXPECT_EQ(TypeParam::count(&set), TestFixture::kLast);
}

TYPED_TEST(Sets, add_range_adds_both_ends_and_all_between_in_either_order) {
    for (uint32_t first = 1; first <= TestFixture::kLast; first += first < 70 ? 1 : 97)
        for (const uint32_t length : {0U, 1U, 30U, 31U, 32U, 33U}) {
            const uint32_t last = std::min(first + length, TestFixture::kLast);
            typename TypeParam::Set up{};
            typename TypeParam::Set down{};
            ASSERT_EQ(TypeParam::add_range(&up, first, last), 0);
            ASSERT_EQ(TypeParam::add_range(&down, last, first), 0);
            ASSERT_TRUE(this->same(up, down));
            ASSERT_EQ(TypeParam::count(&up), last - first + 1);
            ASSERT_EQ(TypeParam::next(&up, 0), first);
            ASSERT_EQ(TypeParam::has(&up, last), 1);
        }
}

TYPED_TEST(Sets, clear_empties_every_word) {
    auto set = this->full();
    TypeParam::clear(&set);
    EXPECT_TRUE(this->same(set, {}));
}

TYPED_TEST(Sets, text_writes_two_in_a_row_and_more_as_a_range) {
    EXPECT_EQ(this->text_of(this->of({})), "");
    EXPECT_EQ(this->text_of(this->of({7})), "7");
    EXPECT_EQ(this->text_of(this->of({1, 2, 4, 31, 32, 33, 63})), "1-2,4,31-33,63");
    EXPECT_EQ(this->text_of(this->of({TestFixture::kLast})), std::to_string(TestFixture::kLast));
}

TYPED_TEST(Sets, every_text_that_is_written_reads_back) {
    uint32_t state = 1;
    for (int round = 0; round < 200; ++round) {
        typename TypeParam::Set set{};
        for (uint32_t id = 1; id <= TestFixture::kLast; ++id) {
            state = state * 1664525 + 1013904223;
            if ((state >> 24 & 7) < static_cast<uint32_t>(round % 9))
                TypeParam::add(&set, id);
        }
        typename TypeParam::Set read = this->full();
        ASSERT_EQ(TypeParam::from_text(&read, this->text_of(set).c_str()), 0);
        ASSERT_TRUE(this->same(read, set)) << this->text_of(set);
    }
}

TYPED_TEST(Sets, the_longest_text_fits_exactly) {
    // Two of three numbers, begun anew where the numbers get a digit more.
    size_t longest = 0;
    for (unsigned phases = 0; phases < 81; ++phases) {
        typename TypeParam::Set set{};
        unsigned rest = phases;
        for (uint32_t first = 1; first <= TestFixture::kLast; first *= 10, rest /= 3)
            for (uint32_t id = first; id <= TestFixture::kLast && id < first * 10; ++id)
                if ((id - first + rest % 3) % 3 != 2)
                    TypeParam::add(&set, id);
        longest = std::max(longest, TypeParam::to_text(&set, nullptr, 0));
    }
    EXPECT_EQ(longest + 1, TypeParam::kTextSize);
}

TYPED_TEST(Sets, text_is_never_written_behind_its_end_and_no_item_is_cut) {
    const auto set = this->of({1, 2, 3, 9, 20, 21, 40});
    const std::string whole = "1-3,9,20-21,40";
    for (size_t size = 0; size <= whole.size() + 2; ++size) {
        std::string buffer(size + 4, 'x');
        ASSERT_EQ(TypeParam::to_text(&set, buffer.data(), size), whole.size());
        ASSERT_EQ(buffer.substr(size), "xxxx") << size;
        if (size == 0)
            continue;
        const std::string written = buffer.c_str();
        ASSERT_LT(written.size(), size);
        ASSERT_EQ(whole.substr(0, written.size()), written);
        ASSERT_TRUE(written.size() == whole.size() || whole[written.size()] == ',' || written.empty()) << written;
        ASSERT_TRUE(written.size() == whole.size() ||
                    size <= std::min(whole.find(',', written.size() + 1), whole.size()))
            << "an item more would have fitted behind " << written;
    }
}

TYPED_TEST(Sets, reads_numbers_and_ranges_in_any_order) {
    const std::vector<std::pair<const char *, std::set<uint32_t>>> rows{
        {"", {}},           {"1", {1}},   {"63", {63}},           {"007", {7}},        {"3-5", {3, 4, 5}},
        {"5-3", {3, 4, 5}}, {"4-4", {4}}, {"20,1-2", {1, 2, 20}}, {"1,1,1-2", {1, 2}}, {"000000000000000000009", {9}}};
    for (const auto &[text, ids] : rows) {
        auto set = this->full();
        EXPECT_EQ(TypeParam::from_text(&set, text), 0) << text;
        EXPECT_TRUE(this->same(set, this->of(ids))) << text;
    }
}

TYPED_TEST(Sets, refuses_every_other_text_and_leaves_the_set) {
    const std::string above = std::to_string(TestFixture::kLast + 1);
    const std::vector<std::string> rows{
        "0",     "0-3", "3-0",  above,  "1-" + above, above + "-1", "4294967297", "99999999999999999999999",
        ",",     ",1",  "1,",   "1,,2", "1-",         "-1",         "1-2-3",      "1--2",
        " 1",    "1 ",  "1, 2", "1\n",  "a",          "1a",         "0x10",       "+1",
        "1-2,x", "1;2", "none", "all"};
    const auto before = this->of({2, 3});
    for (const std::string &text : rows) {
        auto set = before;
        EXPECT_EQ(TypeParam::from_text(&set, text.c_str()), -1) << text;
        EXPECT_TRUE(this->same(set, before)) << text;
    }
    auto set = before;
    EXPECT_EQ(TypeParam::from_text(&set, nullptr), -1);
    EXPECT_TRUE(this->same(set, before));
}

} // namespace
