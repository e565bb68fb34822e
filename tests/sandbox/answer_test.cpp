#include "sandbox/answer.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using sandbox::Answer;
using sandbox::escaped;
using sandbox::Fields;
using sandbox::fill;

TEST(Answer, line_and_object_have_the_same_fields) {
    Answer answer;
    answer.say("vlan {vid} {name}", {{"vid", 10}, {"name", "lobby"}});
    EXPECT_EQ(answer.text(), "vlan 10 lobby\n");
    EXPECT_EQ(answer.json().dump(), R"({"vid":10,"name":"lobby"})");
}

TEST(Answer, rows_become_the_elements_of_a_list) {
    Answer answer;
    answer.row("vlans", "{vid}", {{"vid", 1}}).row("vlans", "{vid}", {{"vid", 2}}).say("{count}", {{"count", 2}});
    EXPECT_EQ(answer.text(), "1\n2\n2\n");
    EXPECT_EQ(answer.json().dump(), R"({"vlans":[{"vid":1},{"vid":2}],"count":2})");
}

TEST(Answer, empty_list_is_there_once_begun) {
    EXPECT_EQ(Answer({"vlans"}).json().dump(), R"({"vlans":[]})");
    EXPECT_EQ(Answer().json().dump(), "{}");
}

TEST(Fill, empty_field_takes_the_blank_before_it_along) {
    EXPECT_EQ(fill("a {x} b", {{"x", ""}}), "a b");
    EXPECT_EQ(fill("a {x}", {{"x", Fields::array()}}), "a");
    EXPECT_EQ(fill("{x}", {{"x", nullptr}}), "");
}

TEST(Fill, array_is_its_elements_with_blanks_between) {
    EXPECT_EQ(fill("ports {p}.", {{"p", {1, 2, 30}}}), "ports 1 2 30.");
}

TEST(Fill, unknown_field_is_a_mistake_of_the_program) {
    EXPECT_THROW(fill("{y}", {{"x", 1}}), std::logic_error);
    EXPECT_THROW(fill("{x", {{"x", 1}}), std::logic_error);
}

TEST(Fill, control_characters_of_values_are_escaped) {
    EXPECT_EQ(fill("{x}", {{"x", "a\nb\x1b[2J\\"}}), "a\\nb\\x1b[2J\\\\");
    EXPECT_EQ(escaped(std::string_view("\0\x7f\tz", 4)), "\\x00\\x7f\\tz");
}

} // namespace
