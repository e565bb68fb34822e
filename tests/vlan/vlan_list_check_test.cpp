// The checker of VLAN list text: what it accepts, and what it says of the rest.
#include "tests/support/children.h"
#include "tests/vlan/list_reference.h"
#include "tests/vlan/vlan_fixture.h"

#include <random>

namespace {

using namespace test;

class ListCheck : public MappedVlanTest {
  protected:
    char error[128] = "untouched";
    int check(const std::string &text) {
        std::strcpy(error, "untouched");
        return vl_clnt_check_vlan_set(text.c_str(), error, sizeof error);
    }
    void expect_accepted(const std::string &text) {
        EXPECT_EQ(check(text), 1) << text;
        EXPECT_STREQ(error, "untouched") << text;
    }
    void expect_refused(const std::string &text, const std::string &message) {
        EXPECT_EQ(check(text), 0) << text;
        EXPECT_EQ(error, message) << text;
    }
};

const std::string kRange = "vlanset input range error!\n";
std::string illegal(char found) {
    return std::string("illegal input character '") + found + "' found!\n";
}

TEST_F(ListCheck, accepts_ids_and_ranges) {
    for (const char *text : {"1", "4094", "1-4094", "1,2,3", "1-10,20,30-40", "10-5", "7-7", "0001", "00010-00020"})
        expect_accepted(text);
}

TEST_F(ListCheck, accepts_single_commas_at_either_end_and_spaces_at_the_end) {
    for (const char *text : {"1,2,", ",1", ",1,", "1   ", "1, ", ",", " ", "    ", ",  "})
        expect_accepted(text);
}

TEST_F(ListCheck, refuses_a_comma_behind_a_comma) {
    for (const char *text : {"1,,2", ",,", "1,,", ",,1", "1,2,,,3"})
        expect_refused(text, illegal(','));
}

TEST_F(ListCheck, refuses_every_other_character) {
    for (int code = 1; code < 256; ++code) {
        const char character = static_cast<char>(code);
        if ((character >= '0' && character <= '9') || character == ',' || character == '-')
            continue;
        expect_refused(std::string("1") + character + "2", illegal(character));
    }
}

TEST_F(ListCheck, refuses_spaces_before_the_end) {
    for (const char *text : {" 1", "1 ,2", "1, 2", "1 2", " ,"})
        expect_refused(text, illegal(' '));
}

TEST_F(ListCheck, refuses_the_word_that_the_formatters_write_for_all) {
    expect_refused("ALL", illegal('A'));
}

TEST_F(ListCheck, names_the_first_wrong_character) {
    expect_refused("5000,1x2y", illegal('x'));
    expect_refused("1\t", illegal('\t'));
    expect_refused("1\n", illegal('\n'));
}

TEST_F(ListCheck, refuses_ids_out_of_range) {
    for (const char *text : {"0", "4095", "5000", "1,0", "1,2,4095", "0-5", "5-0", "4095-1", "1-4095", "65537"})
        expect_refused(text, kRange);
}

TEST_F(ListCheck, writes_its_message_and_nothing_behind_it) {
    for (const auto &[text, message] : {std::pair<const char *, std::string>{"0", kRange}, {"1x", illegal('x')}}) {
        std::memset(error, 'e', sizeof error);
        EXPECT_EQ(vl_clnt_check_vlan_set(text, error, sizeof error), 0);
        const std::string written(message.c_str(), message.size() + 1);
        EXPECT_EQ(std::string(error, sizeof error), written + std::string(sizeof error - written.size(), 'e'));
    }
}

TEST_F(ListCheck, refuses_ranges_with_a_missing_end) {
    for (const char *text : {"-", "5-", "-5", "1,-", "--", "--5", "5--", "-5-", "5--6", "-5-6"})
        expect_refused(text, kRange);
}

TEST_F(ListCheck, refuses_a_second_dash_behind_a_good_range) {
    for (const char *text : {"3-5-7", "3-5-", "1,3-5-7", "1-2-3-4"})
        expect_refused(text, illegal('-'));
    expect_refused("0-5-7", kRange);
}

TEST_F(ListCheck, refuses_numbers_of_any_length) {
    for (const char *text : {"4294967297", "18446744073709551617", "99999999999999999999999999999999999999",
                             "1-4294967298", "4294967297-5", "-4294967295", "1-99999999999999999999999999999999"})
        expect_refused(text, kRange);
    expect_refused(repeat('9', 5000), kRange);
    expect_accepted(repeat('0', 5000) + "7");
}

TEST_F(ListCheck, asks_the_database_for_the_range) {
    vl_set_vlan_range(100, 200);
    expect_accepted("100-200");
    expect_refused("99", kRange);
    expect_refused("201", kRange);
    vl_set_vlan_range(0, 65535);
    expect_accepted("0");
    expect_accepted("0-65535");
    expect_refused("65536", kRange);
    expect_refused("0--0", illegal('-'));
}

TEST_F(ListCheck, without_a_text_or_room_for_the_message_refuses_silently) {
    std::strcpy(error, "untouched");
    EXPECT_EQ(vl_clnt_check_vlan_set(nullptr, error, sizeof error), 0);
    EXPECT_EQ(vl_clnt_check_vlan_set("", error, sizeof error), 0);
    EXPECT_EQ(vl_clnt_check_vlan_set("1", error, 127), 0);
    EXPECT_EQ(vl_clnt_check_vlan_set("x", error, 127), 0);
    EXPECT_EQ(vl_clnt_check_vlan_set("1", error, 0), 0);
    EXPECT_EQ(vl_clnt_check_vlan_set("1", nullptr, 128), 0);
    EXPECT_STREQ(error, "untouched");
    EXPECT_EQ(vl_clnt_check_vlan_set("1", error, 0xFFFFFFFF), 1);
}

TEST_F(ListCheck, writes_no_more_than_128_bytes_of_a_larger_buffer) {
    char large[140];
    for (const char *text : {"x", "5000", "3-5-7"}) {
        std::memset(large, '#', sizeof large);
        EXPECT_EQ(vl_clnt_check_vlan_set(text, large, 0xFFFFFFFF), 0) << text;
        EXPECT_EQ(std::string(large + 128, 12), repeat('#', 12)) << text;
    }
}

TEST_F(ListCheck, without_memory_refuses_and_logs) {
    debug_on({BRI_DBG_VLAN});
    faults::fail("malloc", 1, ENOMEM);
    EXPECT_EQ(check("1"), 0);
    EXPECT_STREQ(error, "untouched");
    EXPECT_EQ(log_text(), "memory not enough!\n");
    expect_vlan_log("memory not enough!\n");
    g_bri_clnt_dbg[BRI_DBG_VLAN] = 0;
    clear_log();
    faults::fail("malloc", 1, ENOMEM);
    EXPECT_EQ(check("1"), 0);
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ListCheck, leaves_the_text_as_it_was) {
    char text[] = ",1-2,3,  ";
    EXPECT_EQ(vl_clnt_check_vlan_set(text, error, sizeof error), 1);
    EXPECT_STREQ(text, ",1-2,3,  ");
}

TEST_F(ListCheck, logs_each_accepted_item) {
    check("7,3-5,9-8,0");
    EXPECT_TRUE(log_lines().empty());
    debug_on({BRI_DBG_VLAN});
    check("7,3-5,9-8,0");
    EXPECT_EQ(log_text(), "valid vid 7 read\n"
                          "valid vid range 3-5 read with ret 2\n"
                          "valid vid range 9-8 read with ret 2\n");
    for (const LogLine &line : log_lines())
        expect_vlan_log(line.text);
}

TEST_F(VlanTest, unmapped_database_has_no_range_for_a_list) {
    char error[128] = "";
    EXPECT_EQ(vl_clnt_check_vlan_set("1", error, sizeof error), 0);
    EXPECT_EQ(error, kRange);
    EXPECT_EQ(vl_clnt_check_vlan_set(",", error, sizeof error), 1);
}

// Texts near the grammar, against its plainest form; also what the parser makes of them.
TEST_F(ListCheck, agrees_with_the_plainest_form) {
    std::mt19937 random(1);
    const char *const pieces[] = {"1", "2", "9", "0",     "40", "4094", "4095", "-",
                                  "-", ",", ",", "65536", "12", " ",    "x"};
    unsigned accepted = 0;
    const unsigned rounds = test::scaled_histories(20000);
    for (unsigned round = 0; round < rounds; ++round) {
        const bool from_zero = round % 4 == 0;
        vl_set_vlan_range(from_zero ? 0 : 1, from_zero ? 4095 : 4094);
        std::string text;
        for (unsigned count = 1 + static_cast<unsigned>(random()) % 9; count > 0; --count)
            text += pieces[random() % (random() % 4 == 0 ? std::size(pieces) : std::size(pieces) - 4)];
        const reference::List plain = reference::read_list(text, from_zero ? 0 : 1, from_zero ? 4095 : 4094);
        ASSERT_EQ(check(text), plain.accepted ? 1 : 0) << text;
        ASSERT_EQ(error, plain.accepted ? "untouched" : plain.error) << text;
        vlanset set;
        ASSERT_EQ(vl_clnt_vlist_str_to_map(text.c_str(), &set, error, sizeof error), plain.accepted ? 0 : -2);
        accepted += plain.accepted ? 1U : 0U;
        for (unsigned vid = 0; plain.accepted && vid < 4096; ++vid)
            ASSERT_EQ(has(set, vid), plain.vids.count(static_cast<int>(vid)) != 0) << text << " " << vid;
    }
    EXPECT_GT(accepted, rounds / 20); // the texts are not all refused
}

} // namespace
