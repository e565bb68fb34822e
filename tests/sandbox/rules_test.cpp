#include "sandbox/rules.h"

#include <bridge/events.h>
#include <bridge/vlan_client.h>

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using namespace sandbox;

struct RulesTest : testing::Test {
    unsigned add(const std::string &line) {
        const Words words = split(line);
        return rules.add(words[0], {words.begin() + 1, words.end()}, random);
    }
    std::string error(const std::string &line) {
        try {
            add(line);
        } catch (const std::invalid_argument &refused) {
            return refused.what();
        }
        return "";
    }
    Fault decide(Kind kind, uint16_t vid, const char *client = "authd") {
        vl_evt_vlan_rec record{};
        record.vid = vid;
        return rules.decide(kind, VLAN_EVENT_CREATE_INDEX, bytes_of(record), {1, client}).fault;
    }

    std::mt19937_64 random{1};
    Rules rules;
};

TEST_F(RulesTest, concern_a_kind_a_type_fields_and_a_client) {
    add("drop VLAN_EVENT_CREATE_INDEX vid=10 @authd");
    EXPECT_EQ(decide(Kind::kEvent, 10), Fault::kDrop);
    EXPECT_EQ(decide(Kind::kEvent, 11), Fault::kNone);
    EXPECT_EQ(decide(Kind::kRequest, 10), Fault::kNone);
    EXPECT_EQ(decide(Kind::kEvent, 10, "stpd"), Fault::kNone);
    add("refuse VLAN_EVENT_CREATE_INDEX");
    EXPECT_EQ(decide(Kind::kRequest, 11), Fault::kRefuse);
    EXPECT_EQ(rules.remove(1), 1U);
    EXPECT_EQ(decide(Kind::kEvent, 10), Fault::kNone);
}

TEST_F(RulesTest, apply_as_often_as_they_say) {
    add("drop VLAN_EVENT_CREATE_INDEX once");
    add("duplicate VLAN_EVENT_CREATE_INDEX 2 times");
    EXPECT_EQ(decide(Kind::kEvent, 1), Fault::kDrop);
    EXPECT_EQ(decide(Kind::kEvent, 1), Fault::kDuplicate);
    EXPECT_EQ(decide(Kind::kEvent, 1), Fault::kDuplicate);
    EXPECT_EQ(decide(Kind::kEvent, 1), Fault::kNone);
}

TEST_F(RulesTest, chance_is_the_same_for_the_same_seed) {
    const auto pattern = [&] {
        rules.remove(0);
        add("drop VLAN_EVENT_CREATE_INDEX chance 0.5 seed 7");
        std::string text;
        for (int i = 0; i < 64; ++i)
            text += decide(Kind::kEvent, 1) == Fault::kDrop ? 'x' : '.';
        return text;
    };
    const std::string first = pattern();
    EXPECT_EQ(pattern(), first);
    EXPECT_NE(first.find('x'), std::string::npos);
    EXPECT_NE(first.find('.'), std::string::npos);
}

TEST_F(RulesTest, that_make_no_sense_are_told) {
    EXPECT_EQ(error("drop"), "the event is missing");
    EXPECT_EQ(error("drop NO_EVENT"), "no such event: NO_EVENT");
    EXPECT_NE(error("drop VLAN_EVENT_CREATE_INDEX colour=1").find("colour"), std::string::npos);
    EXPECT_EQ(error("drop VLAN_EVENT_CREATE_INDEX soon"), "not understood: soon");
    EXPECT_EQ(error("delay VLAN_EVENT_CREATE_INDEX"), "delay by how many seconds?");
    EXPECT_EQ(error("drop VLAN_EVENT_CREATE_INDEX by 1"), "only delay takes a time");
    EXPECT_EQ(error("drop VLAN_EVENT_CREATE_INDEX chance 2"), "not a chance between 0 and 1: 2");
    EXPECT_EQ(error("refuse event VLAN_EVENT_CREATE_INDEX"), "only a request can be refused");
    EXPECT_EQ(rules.remove(0), 0U);
}

} // namespace
