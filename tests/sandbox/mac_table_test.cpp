// The table of MAC addresses: learning, moving, ageing, its limits. Time is what the test says it is.
#include "sandbox/mac_table.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using namespace sandbox;
using std::chrono::seconds;

constexpr uint8_t kWhole = 0x0F;

// 02:00:00:00:<number>
bri_mac_entry entry(uint16_t number, uint16_t vid, uint32_t ifx, uint32_t type = BRI_MAC_TYPE_DYNAMIC) {
    bri_mac_entry result{};
    result.field = kWhole;
    result.mac[0] = 2;
    result.mac[4] = static_cast<uint8_t>(number >> 8);
    result.mac[5] = static_cast<uint8_t>(number);
    result.bcast_id = vid;
    result.ifx = ifx;
    result.type = type;
    return result;
}

// "+1@3" for an add of address 1 on port 3, "-1@3" for a delete.
std::string text_of(const MacChanges &records) {
    std::string text;
    for (const bri_mac_msg &record : records)
        text += std::string(text.empty() ? "" : " ") + (record.oper == BRI_MAC_ADD ? "+" : "-") +
                std::to_string(record.entry.mac[4] << 8 | record.entry.mac[5]) + "@" + std::to_string(record.entry.ifx);
    return text;
}

struct Table : MacTable {
    // What changed by the one step.
    std::string seen(const bri_mac_entry &frame, Seen expected, Microseconds now = seconds(0)) {
        news = {};
        EXPECT_EQ(see(frame, now, news), expected);
        return text_of(news.changes);
    }
    std::string applied(bri_mac_oper oper, const bri_mac_entry &of, Microseconds now = seconds(0)) {
        news = {};
        apply({0, oper, of}, now, news);
        return text_of(news.changes);
    }
    std::string expired(Microseconds now) {
        news = {};
        expire(now, news);
        return text_of(news.changes);
    }
    MacNews news;
};

TEST(MacTable, frame_is_learned_once) {
    Table table;
    EXPECT_EQ(table.seen(entry(1, 10, 3), Seen::kLearned), "+1@3");
    EXPECT_EQ(table.news.changes[0].entry.type, uint32_t{BRI_MAC_TYPE_DYNAMIC});
    EXPECT_EQ(table.news.changes[0].entry.field, kWhole);
    EXPECT_EQ(table.seen(entry(1, 10, 3), Seen::kRefreshed), "");
    EXPECT_EQ(table.seen(entry(1, 11, 3), Seen::kLearned), "+1@3"); // another domain
    EXPECT_EQ(table.size(), 2U);
}

TEST(MacTable, frame_on_another_port_moves_the_address) {
    Table table;
    table.seen(entry(1, 10, 3), Seen::kLearned);
    EXPECT_EQ(table.seen(entry(1, 10, 4), Seen::kMoved), "+1@4");
    EXPECT_EQ(text_of(table.news.moved), "+1@4");
    EXPECT_EQ(table.size(), 1U);
}

TEST(MacTable, configured_address_stays_where_it_is) {
    Table table;
    table.applied(BRI_MAC_ADD, entry(1, 10, 3, BRI_MAC_TYPE_STATIC));
    EXPECT_EQ(table.seen(entry(1, 10, 4), Seen::kConfigured), "");
    EXPECT_EQ(table.seen(entry(1, 10, 3), Seen::kConfigured), "");
    EXPECT_TRUE(table.first(entry(1, 10, 3, BRI_MAC_TYPE_STATIC)));
}

TEST(MacTable, learning_can_be_off_everywhere_or_on_a_port) {
    Table table;
    bri_port_set_add(&table.settings.quiet_ports, 3);
    EXPECT_EQ(table.seen(entry(1, 10, 3), Seen::kPortLearningOff), "");
    EXPECT_EQ(table.seen(entry(1, 10, 4), Seen::kLearned), "+1@4");
    EXPECT_EQ(table.seen(entry(1, 10, 3), Seen::kPortLearningOff), ""); // nor does it move there
    table.settings.learn_disable = 1;
    EXPECT_EQ(table.seen(entry(2, 10, 4), Seen::kLearningOff), "");
    EXPECT_EQ(table.seen(entry(3, 10, 1U << 20), Seen::kLearningOff), "");
    EXPECT_EQ(table.size(), 1U);
}

TEST(MacTable, unseen_address_ages_and_a_seen_one_does_not) {
    Table table;
    table.settings.age = seconds(300);
    table.seen(entry(1, 10, 3), Seen::kLearned, seconds(0));
    table.seen(entry(2, 10, 3), Seen::kLearned, seconds(10));
    EXPECT_EQ(table.next_expiry(), seconds(300));
    table.seen(entry(1, 10, 3), Seen::kRefreshed, seconds(20));
    EXPECT_EQ(table.next_expiry(), seconds(310));
    EXPECT_EQ(table.expired(seconds(310) - Microseconds(1)), "");
    EXPECT_EQ(table.expired(seconds(310)), "-2@3");
    EXPECT_EQ(table.expired(seconds(400)), "-1@3");
    EXPECT_EQ(table.next_expiry(), std::nullopt);
}

TEST(MacTable, only_learned_addresses_age) {
    Table table;
    table.applied(BRI_MAC_ADD, entry(1, 10, 3, BRI_MAC_TYPE_STATIC));
    table.applied(BRI_MAC_ADD, entry(2, 10, 3));
    table.applied(BRI_MAC_ADD, entry(2, 10, 3, BRI_MAC_TYPE_SECU)); // no longer learned
    EXPECT_EQ(table.next_expiry(), std::nullopt);
    EXPECT_EQ(table.expired(seconds(100000)), "");
    table.seen(entry(3, 10, 3), Seen::kLearned);
    table.settings.age = seconds(0);
    EXPECT_EQ(table.expired(seconds(100000)), "");
}

TEST(MacTable, age_keeps_to_the_range) {
    MacSettings settings;
    const struct {
        uint32_t age, min, max, step, allowed;
    } cases[] = {{300, 0, 0, 0, 300},  {300, 10, 60, 10, 60},
                 {5, 10, 60, 10, 10},  {37, 10, 60, 10, 30},
                 {37, 10, 60, 0, 37},  {0, 10, 60, 10, 0},
                 {59, 10, 55, 10, 50}, {300, 60, 10, 1, 60},
                 {9, 0, 60, 7, 7},     {UINT32_MAX, 0, UINT32_MAX, 0, UINT32_MAX}};
    for (const auto &row : cases) {
        settings.age = seconds(row.age);
        settings.range = {row.min, row.max, row.step};
        EXPECT_EQ(settings.allowed_age(), seconds(row.allowed)) << row.age << " in " << row.min << ".." << row.max;
    }
}

TEST(MacTable, full_table_learns_nothing_and_says_so_once_until_there_was_room) {
    Table table;
    table.settings.room.total_num = 2;
    table.seen(entry(1, 10, 3), Seen::kLearned);
    table.seen(entry(2, 10, 3), Seen::kLearned);
    EXPECT_EQ(table.seen(entry(3, 10, 3), Seen::kFull), "");
    EXPECT_EQ(text_of(table.news.exceeded), "+3@3");
    table.seen(entry(4, 10, 3), Seen::kFull);
    EXPECT_EQ(text_of(table.news.exceeded), "");
    EXPECT_EQ(table.seen(entry(1, 10, 4), Seen::kMoved), "+1@4"); // needs none
    EXPECT_EQ(table.applied(BRI_MAC_DEL, entry(1, 10, 4)), "-1@4");
    table.seen(entry(4, 10, 3), Seen::kLearned);
    table.seen(entry(5, 10, 3), Seen::kFull);
    EXPECT_EQ(text_of(table.news.exceeded), "+5@3");
}

TEST(MacTable, static_and_filter_addresses_have_shares_of_their_own) {
    Table table;
    table.settings.room = {1, 0, MacSettings::kNoLimit};
    EXPECT_EQ(table.applied(BRI_MAC_ADD, entry(1, 10, 3, BRI_MAC_TYPE_STATIC)), "+1@3");
    EXPECT_EQ(table.applied(BRI_MAC_ADD, entry(1, 10, 4, BRI_MAC_TYPE_STATIC)), "+1@4"); // the same one
    EXPECT_EQ(table.applied(BRI_MAC_ADD, entry(2, 10, 3, BRI_MAC_TYPE_STATIC)), "");
    EXPECT_EQ(text_of(table.news.exceeded), "+2@3");
    EXPECT_EQ(table.applied(BRI_MAC_ADD, entry(3, 10, 0, BRI_MAC_TYPE_FILTER)), "");
    EXPECT_EQ(table.applied(BRI_MAC_ADD, entry(4, 10, 3, BRI_MAC_TYPE_SECU)), "+4@3");
    table.seen(entry(5, 10, 3), Seen::kLearned);
    EXPECT_EQ(table.applied(BRI_MAC_ADD, entry(5, 10, 3, BRI_MAC_TYPE_STATIC)), ""); // its type would be another
    EXPECT_EQ(table.count(BRI_MAC_TYPE_STATIC), 1U);
    EXPECT_EQ(table.count(BRI_MAC_TYPE_DYNAMIC), 1U);
}

TEST(MacTable, counts_follow_every_change) {
    Table table;
    table.seen(entry(1, 10, 3), Seen::kLearned);
    table.applied(BRI_MAC_ADD, entry(1, 10, 3, BRI_MAC_TYPE_STATIC));
    EXPECT_EQ(table.count(BRI_MAC_TYPE_DYNAMIC), 0U);
    EXPECT_EQ(table.count(BRI_MAC_TYPE_STATIC), 1U);
    table.applied(BRI_MAC_ADD, entry(2, 10, 3, 77)); // no type that anybody knows
    EXPECT_EQ(table.count(77), 0U);
    table.clear();
    EXPECT_EQ(table.count(BRI_MAC_TYPE_STATIC), 0U);
    EXPECT_EQ(table.size(), 0U);
}

TEST(MacTable, delete_takes_what_its_fields_select) {
    Table table;
    for (const bri_mac_entry &one : {entry(1, 10, 3), entry(1, 11, 3), entry(2, 10, 4), entry(3, 10, 3, 2)})
        table.applied(BRI_MAC_ADD, one);
    const auto deleted = [&](uint8_t field, bri_mac_entry of) {
        of.field = field;
        return table.applied(BRI_MAC_DEL, of);
    };
    EXPECT_EQ(deleted(0x0B, entry(2, 10, 3)), "");
    EXPECT_EQ(deleted(0x01, entry(1, 0, 0)), "-1@3 -1@3");
    EXPECT_EQ(deleted(0x06, entry(0, 0, 3)), "");
    EXPECT_EQ(deleted(0x04, entry(0, 0, 0)), "-2@4");
    EXPECT_EQ(deleted(0x00, entry(0, 0, 0)), "-3@3");
}

TEST(MacTable, check_spares_the_addresses_that_are_seen_or_added_again) {
    Table table;
    for (uint16_t number = 1; number <= 3; ++number)
        table.seen(entry(number, 10, 3), Seen::kLearned);
    table.applied(BRI_MAC_ADD, entry(4, 10, 3, BRI_MAC_TYPE_STATIC));
    table.begin_check(is_dynamic);
    table.seen(entry(1, 10, 3), Seen::kRefreshed);
    table.applied(BRI_MAC_ADD, entry(2, 10, 3));
    table.news = {};
    table.end_check(is_dynamic, table.news);
    EXPECT_EQ(text_of(table.news.changes), "-3@3");
}

TEST(MacTable, removed_addresses_are_out_of_the_ageing_too) {
    Table table;
    for (uint16_t number = 1; number <= 1000; ++number)
        table.seen(entry(number, 10, number % 8), Seen::kLearned, Microseconds(number));
    table.remove_if([](const bri_mac_entry &one) { return one.ifx != 3; }, table.news);
    EXPECT_EQ(table.size(), 125U);
    table.expired(seconds(1000));
    EXPECT_EQ(table.news.changes.size(), 125U);
    EXPECT_EQ(table.size(), 0U);
}

} // namespace
