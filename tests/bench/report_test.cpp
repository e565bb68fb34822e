// How the benchmark judges and tells what it measured.
#include "bench/report.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace {

using namespace bench;

constexpr Row kTime{"a time", {"path"}, "bare", {"path_bare"}, Goal::kAtMost, 1.5};
constexpr Row kTimesBetter{"a peer", {"path"}, "libzmq", {"path_zmq"}, Goal::kAtLeast, 8};
constexpr Row kBytes{"bytes", {"memory"}, "before", {"memory"}, Goal::kUnder, 100, "bytes", true};
constexpr Row kCalls{"calls", {"allocations"}, nullptr, kNothing, Goal::kUnder, 0, "calls", true};
constexpr Run kRun{3, 7};

Result measured(const Row &row, std::vector<double> ours, std::vector<double> beside = {}) {
    Result result = row_to_measure(row, "", "");
    for (size_t round = 0; round < beside.size(); ++round)
        result.ratios.push_back(row.goal == Goal::kAtLeast ? beside[round] / ours[round] : ours[round] / beside[round]);
    result.ours = std::move(ours);
    result.beside = std::move(beside);
    return result;
}

std::string verdict_of(const Result &result) {
    return nlohmann::json::parse(as_json({result}, kRun))["rows"][0].value("verdict", "none");
}

unsigned count(const std::string &text, const std::string &part) {
    unsigned found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

TEST(BenchReport, missed_time_is_told_and_no_failure) {
    for (const Result &result : {measured(kTime, {9, 2, 8}, {1, 1, 1}), measured(kTimesBetter, {1}, {7})}) {
        EXPECT_EQ(verdict_of(result), "missed");
        EXPECT_EQ(status_of({result}), 0);
    }
}

TEST(BenchReport, missed_bytes_or_calls_fail) {
    for (const Result &result : {measured(kBytes, {101}, {200}), measured(kCalls, {1})}) {
        EXPECT_EQ(verdict_of(result), "missed");
        EXPECT_EQ(status_of({measured(kTime, {1}, {1}), result}), 1);
    }
}

TEST(BenchReport, goal_itself_is_met) {
    for (const Result &result : {measured(kTime, {9, 1.5, 1}, {1, 1, 1}), measured(kTimesBetter, {1}, {8}),
                                 measured(kBytes, {100}, {200}), measured(kCalls, {0})}) {
        EXPECT_EQ(verdict_of(result), "met");
        EXPECT_EQ(status_of({result}), 0);
    }
}

TEST(BenchReport, failed_measurement_fails) {
    Result result = row_to_measure(kTime, "", "");
    result.failed = true;
    EXPECT_EQ(verdict_of(result), "FAILED");
    EXPECT_EQ(status_of({result}), 1);
}

TEST(BenchReport, peer_is_known_by_its_measurements) {
    EXPECT_STREQ(peer_of("messages_zmq")->name, "libzmq");
    EXPECT_STREQ(peer_of("reply_sd_bus")->name, "sd-bus");
    EXPECT_STREQ(peer_of("member_test_lmdb")->name, "LMDB");
    EXPECT_STREQ(peer_of("member_test_sqlite")->name, "SQLite");
    for (const char *own : {"messages", "messages_bare", "zmq", ""})
        EXPECT_EQ(peer_of(own), nullptr) << own;
}

// Else a row beside something else could be skipped as if a peer were missing.
TEST(BenchReport, rows_beside_a_peer_and_no_others_are_measured_by_it) {
    for (const Row &row : kRows) {
        EXPECT_EQ(peer_of(row.ours.measurement), nullptr) << row.what;
        if (row.beside_name == nullptr)
            continue;
        const Peer *peer = peer_of(row.beside.measurement);
        const auto *const named = std::find_if(std::begin(kPeers), std::end(kPeers), [&](const Peer &each) {
            return std::string(row.beside_name).starts_with(each.name);
        });
        EXPECT_EQ(peer, named != std::end(kPeers) ? named : nullptr) << row.what << " beside " << row.beside_name;
    }
}

TEST(BenchReport, rows_of_a_missing_peer_are_skipped_with_one_line) {
    const std::vector<Result> results = {row_to_measure(kTimesBetter, "", "no libzmq"),
                                         row_to_measure(kTime, "", "no libzmq"), measured(kTime, {1}, {1})};
    EXPECT_EQ(status_of(results), 0);
    const std::string text = as_table(results, kRun);
    EXPECT_EQ(count(text, " skipped\n"), 2U) << text;
    EXPECT_EQ(count(text, "skipped: no libzmq; 2 rows\n"), 1U) << text;
    EXPECT_EQ(count(text, " met\n"), 1U) << text;
    const auto rows = nlohmann::json::parse(as_json(results, kRun))["rows"];
    EXPECT_EQ(rows[0]["skipped"], "no libzmq");
    EXPECT_FALSE(rows[0].contains("verdict"));
    EXPECT_FALSE(rows[2].contains("skipped"));
}

TEST(BenchReport, goal_for_ours_alone_holds_without_the_other_side) {
    Result result = row_to_measure(kBytes, "", "no earlier build");
    EXPECT_FALSE(result.skipped);
    result.ours = {101};
    EXPECT_EQ(status_of({result}), 1);
    EXPECT_TRUE(row_to_measure(kBytes, "nothing", "").skipped);
}

} // namespace
