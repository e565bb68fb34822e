// VLAN sets as compressed text: in the log, and line by line in a caller's buffer.
#include "tests/vlan/vlan_fixture.h"

#include <random>

namespace {

using namespace test;

// The lists without the column in front.
std::vector<std::string> shown(const vlanset &set, uint32_t width) {
    clear_log();
    vl_clnt_show_vlanlist(&set, width);
    std::vector<std::string> lines;
    for (const LogLine &line : log_lines()) {
        EXPECT_EQ(line.category(), kShownLine);
        EXPECT_EQ(line.format, "%-25s %s\n");
        EXPECT_EQ(line.text.substr(0, 26), repeat(' ', 26));
        EXPECT_EQ(line.text.back(), '\n');
        lines.push_back(line.text.substr(26, line.text.size() - 27));
    }
    return lines;
}

using Lines = std::vector<std::string>;

class ListShow : public VlanTest {};

TEST_F(ListShow, compresses_runs) {
    EXPECT_EQ(shown(set_of({1, 2, 3, 5, 31, 32, 33, 4093, 4094}), 80), (Lines{"1-3,5,31-33,4093-4094"}));
    EXPECT_EQ(shown(set_of({7}), 80), (Lines{"7"}));
    EXPECT_EQ(shown(set_of({7, 8}), 80), (Lines{"7-8"}));
}

TEST_F(ListShow, empty_set_is_one_empty_line) {
    EXPECT_EQ(shown({}, 80), (Lines{""}));
    EXPECT_EQ(log_text(), repeat(' ', 26) + "\n");
}

TEST_F(ListShow, null_is_no_line) {
    vl_clnt_show_vlanlist(nullptr, 80);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ListShow, full_set_is_all) {
    vlanset all;
    std::memset(&all, 0xFF, sizeof all);
    EXPECT_EQ(shown(all, 80), (Lines{"ALL"}));
    all.words[0] &= ~1U;
    EXPECT_EQ(shown(all, 1), (Lines{"ALL"}));
    all.words[0] &= ~2U;
    EXPECT_EQ(shown(all, 80), (Lines{"2-4094"}));
    std::memset(&all, 0xFF, sizeof all);
    all.words[127] &= ~(1U << 30);
    EXPECT_EQ(shown(all, 80), (Lines{"1-4093"}));
}

TEST_F(ListShow, vlan_0_and_4095_are_not_shown) {
    EXPECT_EQ(shown(set_of({0, 4095}), 80), (Lines{""}));
}

TEST_F(ListShow, line_is_filled_up_to_the_width) {
    const vlanset set = set_of({10, 12, 14, 16});
    EXPECT_EQ(shown(set, 11), (Lines{"10,12,14,16"}));
    EXPECT_EQ(shown(set, 10), (Lines{"10,12,14", "16"}));
    EXPECT_EQ(shown(set, 8), (Lines{"10,12,14", "16"}));
    EXPECT_EQ(shown(set, 7), (Lines{"10,12", "14,16"}));
}

TEST_F(ListShow, item_wider_than_the_line_stands_alone) {
    EXPECT_EQ(shown(set_of({10, 1000, 1001, 12}), 0), (Lines{"10", "12", "1000-1001"}));
    EXPECT_EQ(shown(set_of({1000, 1001, 1003}), 5), (Lines{"1000-1001", "1003"}));
}

TEST_F(ListShow, width_beyond_the_line_is_cut_to_it) {
    vlanset set{};
    for (unsigned vid = 1000; vid < 1200; vid += 2)
        add_to(set, vid);
    const Lines at_most = shown(set, 255);
    EXPECT_EQ(at_most.size(), 2U);
    EXPECT_EQ(at_most[0].size(), 254U); // 51 items of 4 and 50 commas
    EXPECT_EQ(shown(set, 256), at_most);
    EXPECT_EQ(shown(set, 1000), at_most);
    EXPECT_EQ(shown(set, 0xFFFFFFFF), at_most);
    EXPECT_EQ(shown(set, 254), at_most);
    EXPECT_EQ(shown(set, 253)[0].size(), 249U);
}

TEST_F(ListShow, line_of_exactly_255_characters_fits) {
    for (const unsigned second : {12U, 120U}) {
        vlanset set = set_of({10, second});
        for (unsigned vid = 1000; vid < 1100; vid += 2)
            add_to(set, vid);
        const Lines lines = shown(set, 255); // "10,12," and 50 items of 4 with 49 commas; or one character more
        EXPECT_EQ(lines.size(), second == 12 ? 1U : 2U);
        EXPECT_EQ(lines[0].size(), second == 12 ? 255U : 251U);
    }
}

TEST_F(ListShow, is_written_whatever_the_flags) {
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    EXPECT_EQ(shown(set_of({7}), 80).size(), 1U);
}

// One line in a caller's buffer ---------------------------------------------------------------------------------------

class LineFormat : public VlanTest {
  protected:
    char buf[160];
    LineFormat() { std::memset(buf, '#', sizeof buf); }
    // Text and result, "2,4>6".
    std::string line(const vlanset &set, int start, int most) {
        const int next = vl_clnt_vlist_vlan_line_format(buf, &set, start, most);
        return std::string(buf) + ">" + std::to_string(next);
    }
};

TEST_F(LineFormat, compresses_runs) {
    EXPECT_EQ(line(set_of({1, 2, 3, 5, 31, 32, 4093, 4094}), 1, 20), "1-3,5,31-32,4093-4094>0");
    EXPECT_EQ(line(set_of({7}), 1, 20), "7>0");
    EXPECT_EQ(line({}, 1, 20), ">0");
}

TEST_F(LineFormat, null_pointers_give_0) {
    vlanset set = set_of({1});
    EXPECT_EQ(vl_clnt_vlist_vlan_line_format(nullptr, &set, 1, 20), 0);
    EXPECT_EQ(vl_clnt_vlist_vlan_line_format(buf, nullptr, 1, 20), 0);
    EXPECT_EQ(buf[0], '#');
}

TEST_F(LineFormat, never_writes_all) {
    vlanset all;
    std::memset(&all, 0xFF, sizeof all);
    EXPECT_EQ(line(all, 1, 20), "1-4094>0");
}

TEST_F(LineFormat, starts_where_it_is_told) {
    const vlanset set = set_of({1, 2, 3, 4, 9});
    EXPECT_EQ(line(set, 3, 20), "3-4,9>0");
    EXPECT_EQ(line(set, 5, 20), "9>0");
    EXPECT_EQ(line(set, 10, 20), ">0");
    EXPECT_EQ(line(set_of({4094}), 4094, 20), "4094>0");
    EXPECT_EQ(line(set_of({4094, 4095}), 4095, 20), ">0");
    EXPECT_EQ(line(set, INT32_MAX, 20), ">0");
}

TEST_F(LineFormat, start_below_0_begins_at_0) {
    const vlanset set = set_of({0, 1, 5});
    EXPECT_EQ(line(set, 0, 20), "0-1,5>0");
    EXPECT_EQ(line(set, -1, 20), "0-1,5>0");
    EXPECT_EQ(line(set, INT32_MIN, 20), "0-1,5>0");
    EXPECT_EQ(line(set, 1, 20), "1,5>0");
}

TEST_F(LineFormat, ends_with_the_id_that_the_next_line_begins_with) {
    const vlanset set = set_of({2, 4, 6, 8, 10});
    EXPECT_EQ(line(set, 1, 3), "2,4,6>6");
    EXPECT_EQ(line(set, 6, 3), "6,8,10>10");
    EXPECT_EQ(line(set, 10, 3), "10>0");
}

TEST_F(LineFormat, closed_range_counts_two) {
    const vlanset set = set_of({1, 2, 4, 5, 7, 9});
    EXPECT_EQ(line(set, 1, 2), "1-2,4>4");
    EXPECT_EQ(line(set, 1, 3), "1-2,4>4");
    EXPECT_EQ(line(set, 1, 4), "1-2,4-5,7>7");
    EXPECT_EQ(line(set, 1, 5), "1-2,4-5,7>7");
    EXPECT_EQ(line(set, 1, 6), "1-2,4-5,7,9>9");
    EXPECT_EQ(line(set, 1, 7), "1-2,4-5,7,9>0");
}

TEST_F(LineFormat, cut_id_is_written_alone_also_when_it_begins_a_run) {
    EXPECT_EQ(line(set_of({1, 3, 4, 5}), 1, 2), "1,3>3");
}

TEST_F(LineFormat, limit_below_2_ends_at_the_second_item) {
    const vlanset set = set_of({2, 4, 6});
    for (const int most : {1, 0, -1, INT32_MIN})
        EXPECT_EQ(line(set, 1, most), "2,4>4") << most;
    EXPECT_EQ(line(set_of({2, 3}), 1, 0), "2-3>0");
}

TEST_F(LineFormat, limit_is_20_at_most) {
    vlanset set{};
    for (unsigned vid = 2; vid <= 50; vid += 2)
        add_to(set, vid);
    EXPECT_EQ(line(set, 1, 30), "2,4,6,8,10,12,14,16,18,20,22,24,26,28,30,32,34,36,38,40>40");
    EXPECT_EQ(line(set, 1, INT32_MAX), "2,4,6,8,10,12,14,16,18,20,22,24,26,28,30,32,34,36,38,40>40");
    EXPECT_EQ(line(set, 40, 30), "40,42,44,46,48,50>0");
}

// The longest line there is: 19 items, then a range that ends behind the limit.
TEST_F(LineFormat, longest_line_stays_below_129_characters) {
    vlanset set{};
    for (const unsigned vid : {1000U, 1001U, 1003U, 1005U})
        add_to(set, vid);
    for (unsigned vid = 1007; vid < 1100; vid += 3)
        for (const unsigned id : {vid, vid + 1})
            add_to(set, id);
    size_t longest = 0;
    for (int start = 1000; start != 0;) {
        start = vl_clnt_vlist_vlan_line_format(buf, &set, start, 4094);
        longest = std::max(longest, std::strlen(buf));
    }
    EXPECT_GE(longest, 104U);
    EXPECT_LT(longest, 129U);
}

// Line after line gives the whole set again, whatever it is.
TEST_F(LineFormat, lines_together_tell_the_whole_set) {
    std::mt19937 random(1);
    for (int round = 0; round < 50; ++round) {
        vlanset set{};
        for (uint32_t &word : set.words)
            word = static_cast<uint32_t>(round % 2 == 0 ? random() & random() & random() : random() | random());
        set.words[0] &= ~1U;
        set.words[127] &= ~(1U << 31);
        vlanset told{};
        int start = 1;
        do {
            const int next = vl_clnt_vlist_vlan_line_format(buf, &set, start, 20);
            ASSERT_TRUE(next == 0 || next > start);
            for (const char *at = buf; *at != '\0';) {
                char *end = nullptr;
                const long first = std::strtol(at, &end, 10);
                const long last = *end == '-' ? std::strtol(end + 1, &end, 10) : first;
                for (long vid = first; vid <= last; ++vid)
                    add_to(told, static_cast<unsigned>(vid));
                at = *end == ',' ? end + 1 : end;
            }
            start = next;
        } while (start != 0);
        ASSERT_EQ(bytes_of(told), bytes_of(set));
    }
}

} // namespace
