// The parser of VLAN list text, and its two helpers.
#include "tests/vlan/vlan_fixture.h"

namespace {

using namespace test;

class ListParse : public MappedVlanTest {
  protected:
    char error[128] = "";
    vlanset set{};
    int parse(const std::string &text) { return vl_clnt_vlist_str_to_map(text.c_str(), &set, error, sizeof error); }
    void expect_set(const std::string &text, const vlanset &expected) {
        std::memset(&set, 0xFF, sizeof set);
        EXPECT_EQ(parse(text), 0) << text;
        EXPECT_EQ(bytes_of(set), bytes_of(expected)) << text;
    }
};

TEST_F(ListParse, sets_ids_and_ranges) {
    expect_set("1", set_of({1}));
    expect_set("4094", set_of({4094}));
    expect_set("1-3,31,32,63-65", set_of({1, 2, 3, 31, 32, 63, 64, 65}));
    expect_set("7-7", set_of({7}));
}

TEST_F(ListParse, sets_a_range_written_high_to_low) {
    expect_set("5-3", set_of({3, 4, 5}));
    expect_set("5-3,4,3-5", set_of({3, 4, 5}));
}

TEST_F(ListParse, sets_all_usable_ids) {
    EXPECT_EQ(parse("1-4094"), 0);
    for (unsigned vid = 0; vid < 4096; ++vid)
        ASSERT_EQ(has(set, vid), vid >= 1 && vid <= 4094) << vid;
}

TEST_F(ListParse, of_commas_and_spaces_is_empty) {
    expect_set(",", {});
    expect_set("   ", {});
    expect_set(",1,", set_of({1}));
    expect_set("1,2,  ", set_of({1, 2}));
}

TEST_F(ListParse, spaces_at_the_end_are_no_item) {
    debug_on({BRI_DBG_VLAN});
    expect_set("1,  ", set_of({1}));
    EXPECT_EQ(log_text(), "valid vid 1 read\n");
}

TEST_F(ListParse, null_arguments_give_minus_1) {
    EXPECT_EQ(vl_clnt_vlist_str_to_map(nullptr, &set, error, sizeof error), -1);
    EXPECT_EQ(vl_clnt_vlist_str_to_map("1", nullptr, error, sizeof error), -1);
    EXPECT_EQ(vl_clnt_vlist_str_to_map("1", &set, nullptr, 128), -1);
}

TEST_F(ListParse, refused_text_gives_minus_2_and_leaves_the_set) {
    set = set_of({9});
    EXPECT_EQ(parse("1,,2"), -2);
    EXPECT_STREQ(error, "illegal input character ',' found!\n");
    EXPECT_EQ(parse("4095"), -2);
    EXPECT_STREQ(error, "vlanset input range error!\n");
    EXPECT_EQ(parse(""), -2);
    EXPECT_EQ(vl_clnt_vlist_str_to_map("1", &set, error, 127), -2);
    EXPECT_EQ(bytes_of(set), bytes_of(set_of({9})));
}

TEST_F(ListParse, clips_to_usable_ids_whatever_the_database_range) {
    vl_set_vlan_range(0, 65535);
    debug_on({BRI_DBG_VLAN});
    expect_set("0,4095,5,4096,65535,4094", set_of({5, 4094}));
    for (const char *text : {"vlanset input range error 0!\n", "vlanset input range error 4095!\n",
                             "vlanset input range error 4096!\n", "vlanset input range error 65535!\n"})
        expect_vlan_log(text);
    EXPECT_STREQ(error, "");
}

TEST_F(ListParse, leaves_out_a_range_with_an_end_outside) {
    vl_set_vlan_range(0, 65535);
    debug_on({BRI_DBG_VLAN});
    expect_set("0-3,7,4000-4095,4095-2", set_of({7}));
    for (const char *text : {"vlanset input range error 0-3!\n", "vlanset input range error 4000-4095!\n",
                             "vlanset input range error 4095-2!\n"})
        expect_vlan_log(text);
}

TEST_F(ListParse, is_silent_with_the_flag_off) {
    vl_set_vlan_range(0, 65535);
    expect_set("0,0-3,7", set_of({7}));
    EXPECT_TRUE(log_lines().empty());
}

TEST_F(ListParse, reads_the_first_255_characters) {
    std::string text;
    for (int i = 0; i < 126; ++i)
        text += "1,";
    EXPECT_EQ(text.size(), 252U);
    expect_set(text + "23", set_of({1, 23}));
    expect_set(text + "234", set_of({1, 234}));
    expect_set(text + "2345", set_of({1, 234}));
    expect_set(text + "2-5", set_of({1, 2, 3, 4, 5}));
    expect_set(text + "2-51", set_of({1, 2, 3, 4, 5}));
    expect_set(text + "234,7", set_of({1, 234}));
}

TEST_F(ListParse, leaves_out_a_range_cut_at_its_dash) {
    std::string text;
    for (int i = 0; i < 126; ++i)
        text += "1,";
    debug_on({BRI_DBG_VLAN});
    expect_set(text + "20-30", set_of({1}));
    expect_vlan_log("vlanset input range error 20-0!\n");
}

TEST_F(VlanTest, trim_removes_every_space_and_nothing_else) {
    char text[] = "  1 - 2 ,\t3  ";
    vl_clnt_trim_str(text);
    EXPECT_STREQ(text, "1-2,\t3");
    char spaces[] = "   ";
    vl_clnt_trim_str(spaces);
    EXPECT_STREQ(spaces, "");
    char empty[] = "";
    vl_clnt_trim_str(empty);
    EXPECT_STREQ(empty, "");
    vl_clnt_trim_str(nullptr);
}

TEST_F(VlanTest, exchange_swaps_any_two_numbers) {
    int32_t a = INT32_MAX;
    int32_t b = INT32_MIN;
    vl_clnt_exchange_int(&a, &b);
    EXPECT_EQ(a, INT32_MIN);
    EXPECT_EQ(b, INT32_MAX);
    a = 2147483000;
    b = 2147483001;
    vl_clnt_exchange_int(&a, &b);
    EXPECT_EQ(a, 2147483001);
    EXPECT_EQ(b, 2147483000);
    vl_clnt_exchange_int(&a, nullptr);
    vl_clnt_exchange_int(nullptr, &b);
    vl_clnt_exchange_int(&a, &a);
    EXPECT_EQ(a, 2147483001);
    EXPECT_EQ(b, 2147483000);
}

} // namespace
