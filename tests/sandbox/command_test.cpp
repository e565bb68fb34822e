#include "sandbox/command.h"
#include "sandbox/sandbox.h"

#include <gtest/gtest.h>

#include <set>
#include <stdexcept>

namespace {

using namespace sandbox;

Outcome nothing(Sandbox &, const Call &) {
    return Answer();
}

constexpr Command kRows[] = {
    {"fly", "[HIGH]", "", nothing},
    {"fly far", "WHERE [HOW [WHEN]]", "", nothing},
    {"sing", "NOTE...", "", nothing},
};
constexpr Family kFamilies[] = {kRows};

std::string found(const std::string &line) {
    Session session;
    Call call{{}, {}, session};
    try {
        const Command &row = find_command(kFamilies, split(line), call);
        return std::string(row.words) + "|" + call.rest();
    } catch (const std::invalid_argument &error) {
        return error.what();
    }
}

TEST(Arity, follows_from_the_arguments_text) {
    const auto arity = [](const char *text) { return std::pair(arity_of(text).least, arity_of(text).most); };
    EXPECT_EQ(arity(""), std::pair(size_t{0}, size_t{0}));
    EXPECT_EQ(arity("A B"), std::pair(size_t{2}, size_t{2}));
    EXPECT_EQ(arity("A [B [C]]"), std::pair(size_t{1}, size_t{3}));
    EXPECT_EQ(arity("[A|B] C D..."), std::pair(size_t{2}, SIZE_MAX));
}

TEST(FindCommand, takes_the_row_with_the_most_words) {
    EXPECT_EQ(found("fly"), "fly|");
    EXPECT_EQ(found("fly high"), "fly|high");
    EXPECT_EQ(found("fly far away"), "fly far|away");
    EXPECT_EQ(found("sing a b c # loudly"), "sing|a b c");
}

TEST(FindCommand, says_what_is_wrong) {
    EXPECT_EQ(found("walk"), "no such command: walk (try help)");
    EXPECT_EQ(found("fly far"), "usage: fly far WHERE [HOW [WHEN]]");
    EXPECT_EQ(found("fly far a b c d"), "usage: fly far WHERE [HOW [WHEN]]");
    EXPECT_EQ(found("sing"), "usage: sing NOTE...");
}

TEST(Commands, words_are_unique_and_every_row_has_a_help) {
    std::set<std::string> words;
    for (const Family family : all_commands())
        for (const Command &row : family) {
            EXPECT_TRUE(words.insert(row.words).second) << row.words;
            EXPECT_STRNE(row.help, "") << row.words;
            EXPECT_NE(row.run, nullptr) << row.words;
        }
}

TEST(Commands, help_tells_one_word_or_all) {
    const Answer one = command_help(all_commands(), "vlan");
    for (const Fields &row : one.json()["commands"])
        EXPECT_EQ(row["command"].get<std::string>().substr(0, 5), "vlan ");
    EXPECT_GT(command_help(all_commands(), "").lines().size(), one.lines().size());
    EXPECT_THROW(command_help(all_commands(), "fly"), std::invalid_argument);
}

// Of a command on a sandbox with no client and no table: why it is refused, or its answer, which is empty while it
// waits.
std::string outcome_of(const std::string &line) {
    const Options options{.tmpdir = "/nowhere"};
    Sandbox sandbox{options};
    Session session;
    try {
        const Outcome outcome = run_command(sandbox, line, session);
        const Answer *answer = std::get_if<Answer>(&outcome);
        return answer != nullptr ? answer->text() : ""; // it waits
    } catch (const std::exception &error) {
        return error.what();
    }
}

// A scenario whose line is misspelt must not pass.
TEST(Commands, refusal_that_is_wanted_is_not_that_of_a_misspelt_command) {
    EXPECT_EQ(outcome_of("fails vlan crate 25"), "no such command: vlan crate (try help vlan)");
    EXPECT_EQ(outcome_of("fails sleep"), "usage: sleep SECONDS");
    EXPECT_EQ(outcome_of("fails sleep long"), "not a number of seconds: long");
    EXPECT_EQ(outcome_of("fails wait reqest VLAN_EVENT_CREATE_INDEX").find("no such condition: reqest"), 0U);
    EXPECT_EQ(outcome_of("fails wait request VLAN_EVENT_CREATE"), "no such event: VLAN_EVENT_CREATE");
    EXPECT_EQ(outcome_of("fails fails print it"), "fails: it did not fail: it\n");
    EXPECT_EQ(outcome_of("fails print it"), "it did not fail: it");
}

TEST(Commands, order_is_asked_of_numbers_alone) {
    EXPECT_EQ(outcome_of("wait clients count > many"), "count > what number? Not many");
    EXPECT_EQ(outcome_of("wait clients count <= 3x"), "count <= what number? Not 3x");
    EXPECT_EQ(outcome_of("wait clients count >= nan"), "count >= what number? Not nan");
    EXPECT_EQ(outcome_of("wait clients count >= 0"), "");
}

TEST(Commands, target_that_is_not_there_or_lacks_its_sign_is_told) {
    EXPECT_EQ(outcome_of("stall nobody"), "usage: stall [@CLIENT], not nobody");
    EXPECT_EQ(outcome_of("sync hold nobody"), "usage: sync hold [@CLIENT], not nobody");
    EXPECT_EQ(outcome_of("stall @nobody"), "stall: there is no client nobody");
    EXPECT_EQ(outcome_of("resume @7"), "resume: there is no client 7");
    EXPECT_EQ(outcome_of("role @nobody slave"), "role: there is no client nobody");
    EXPECT_EQ(outcome_of("switchover @nobody"), "switchover: there is no client nobody");
    EXPECT_EQ(outcome_of("sync hold @later"), "sync hold @later: done\n"); // whoever comes under that name
    EXPECT_EQ(outcome_of("role slave"), "role: slave, 0 clients\n");
}

TEST(Commands, usage_is_told_of_a_word_that_is_not_understood) {
    EXPECT_EQ(outcome_of("port mode 3 trunk asks"), "usage: port mode IFX MODE [ask]");
}

TEST(Commands, target_without_a_name_is_refused) {
    for (const char *line : {"stall @", "sync hold @", "role @ slave", "drop @@"})
        EXPECT_EQ(outcome_of(line), "@ which client?") << line;
}

} // namespace
