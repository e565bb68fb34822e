#include "sandbox/command.h"
#include "tests/support/test.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using sandbox::Script;

std::string all(Script &script) {
    std::string text;
    while (const auto line = script.next())
        text += *line + ";";
    return text;
}

std::string run(std::initializer_list<const char *> lines) {
    Script script;
    for (const char *line : lines)
        script.add(line);
    return all(script);
}

TEST(Script, gives_commands_in_order_without_comments_and_empty_lines) {
    EXPECT_EQ(run({"a 1", "", "  # b", "c # d"}), "a 1;c # d;");
}

TEST(Script, repeats_a_command_and_a_block) {
    EXPECT_EQ(run({"repeat 2 a b", "c"}), "a b;a b;c;");
    EXPECT_EQ(run({"repeat 2", "a", "repeat 2 b", "end", "c"}), "a;b;b;a;b;b;c;");
    EXPECT_EQ(run({"repeat 2", "repeat 2", "a", "end", "b", "end"}), "a;a;b;a;a;b;");
    EXPECT_EQ(run({"repeat 0 a", "b"}), "b;");
}

TEST(Script, waits_for_the_end_of_a_block) {
    Script script;
    script.add("repeat 2");
    script.add("a");
    EXPECT_FALSE(script.next());
    script.add("end");
    EXPECT_EQ(all(script), "a;a;");
}

TEST(Script, refuses_a_repetition_without_a_number) {
    EXPECT_THROW(run({"repeat often a"}), std::invalid_argument);
    EXPECT_THROW(run({"repeat"}), std::invalid_argument);
}

struct ScriptFile : test::Env {};

TEST_F(ScriptFile, is_read_whole_and_no_directory) {
    Script script;
    script.add_file(write_file("script", "a\nb"));
    EXPECT_EQ(all(script), "a;b;");
    EXPECT_THROW(script.add_file(tmpdir()), std::runtime_error);
    EXPECT_THROW(script.add_file(tmpdir() + "/missing"), std::runtime_error);
}

} // namespace
