#include "bench/report.h"

#include "bench/measure.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <gnu/libc-version.h>
#include <map>
#include <sys/utsname.h>
#include <unistd.h>

namespace bench {
namespace {

using nlohmann::json;

bool missed(const Result &result) {
    const Row &row = *result.row;
    switch (row.goal) {
    case Goal::kAtMost:
        return median(result.ratios) > row.limit;
    case Goal::kAtLeast:
        return median(result.ratios) < row.limit;
    case Goal::kUnder:
        return median(result.ours) > row.limit;
    case Goal::kNone:
        break;
    }
    return false;
}

const char *verdict(const Result &result) {
    if (result.failed)
        return "FAILED";
    if (result.skipped)
        return "skipped";
    if (result.row->goal == Goal::kNone)
        return "";
    return missed(result) ? "missed" : "met";
}

std::string figure(double value, const char *unit) {
    char text[48];
    const bool time = std::strcmp(unit, "ns") == 0;
    if (time && value >= 1e4)
        std::snprintf(text, sizeof text, "%.1f us", value / 1e3);
    else
        std::snprintf(text, sizeof text, time || std::strcmp(unit, "s") == 0 ? "%.2f %s" : "%.0f %s", value, unit);
    return text;
}

// The median, where there is one.
std::string figure(const std::vector<double> &values, const char *unit) {
    return values.empty() ? "" : figure(median(values), unit);
}

std::string goal_of(const Row &row) {
    char text[48];
    if (row.goal == Goal::kNone)
        return "";
    if (row.goal == Goal::kUnder)
        return "<= " + figure(row.limit, row.unit);
    std::snprintf(text, sizeof text, row.goal == Goal::kAtMost ? "<= %.4g" : ">= %.4g", row.limit);
    return text;
}

std::string ratio_of(const Result &result) {
    if (result.ratios.empty())
        return "";
    const auto [least, most] = std::minmax_element(result.ratios.begin(), result.ratios.end());
    char text[64];
    std::snprintf(text, sizeof text, "%.3g (%.3g to %.3g)", median(result.ratios), *least, *most);
    return text;
}

std::string line(const std::string &what, const std::string &ours, const std::string &beside_name,
                 const std::string &beside, const std::string &ratio, const std::string &goal, const char *verdict) {
    char text[256];
    std::snprintf(text, sizeof text, "%-32s %14s  %-20s %14s  %-30s %-15s %s", what.c_str(), ours.c_str(),
                  beside_name.c_str(), beside.c_str(), ratio.c_str(), goal.c_str(), verdict);
    std::string all = text;
    all.erase(all.find_last_not_of(' ') + 1);
    return all + "\n";
}

std::string line_of(const Result &result) {
    const Row &row = *result.row;
    return line(row.what, figure(result.ours, row.unit), row.beside_name != nullptr ? row.beside_name : "",
                figure(result.beside, row.unit), ratio_of(result), goal_of(row), verdict(result));
}

// A line for each thing that is not there.
std::string what_is_missing(const std::vector<Result> &results) {
    std::map<std::string, unsigned> rows;
    for (const Result &result : results)
        if (!result.missing.empty())
            ++rows[result.missing];
    std::string text;
    for (const auto &[reason, count] : rows)
        text += "skipped: " + reason + "; " + std::to_string(count) + (count == 1 ? " row" : " rows") + "\n";
    return text;
}

json machine() {
    utsname system{};
    uname(&system);
    return {{"kernel", system.release},
            {"processor", system.machine},
            {"processors", sysconf(_SC_NPROCESSORS_ONLN)},
            {"compiler", __VERSION__},
            {"c_library", gnu_get_libc_version()}};
}

json object_of(const Result &result) {
    const Row &row = *result.row;
    json object = {{"row", row.what}, {"unit", row.unit}, {"counted", row.counted}};
    if (result.skipped)
        object["skipped"] = result.missing;
    else
        object.update({{"ours", median(result.ours)}, {"verdict", verdict(result)}});
    if (row.beside_name != nullptr)
        object["beside_name"] = row.beside_name;
    if (!result.ratios.empty()) {
        const auto [least, most] = std::minmax_element(result.ratios.begin(), result.ratios.end());
        object.update({{"beside", median(result.beside)},
                       {"ratio", median(result.ratios)},
                       {"ratio_min", *least},
                       {"ratio_max", *most}});
    }
    if (row.goal != Goal::kNone)
        object["goal"] = goal_of(row);
    return object;
}

} // namespace

const Peer *peer_of(const std::string &measurement) {
    const auto *const peer = std::find_if(std::begin(kPeers), std::end(kPeers), [&](const Peer &each) {
        const size_t length = std::strlen(each.suffix);
        return measurement.size() > length &&
               measurement.compare(measurement.size() - length, length, each.suffix) == 0;
    });
    return peer != std::end(kPeers) ? peer : nullptr;
}

Result row_to_measure(const Row &row, const std::string &ours_missing, const std::string &beside_missing) {
    Result result;
    result.row = &row;
    result.missing = ours_missing.empty() ? beside_missing : ours_missing;
    result.skipped = !ours_missing.empty() || (!beside_missing.empty() && row.goal != Goal::kUnder);
    return result;
}

int status_of(const std::vector<Result> &results) {
    return std::any_of(results.begin(), results.end(),
                       [](const Result &result) {
                           return result.failed || (result.row->counted && !result.skipped && missed(result));
                       })
               ? 1
               : 0;
}

std::string as_table(const std::vector<Result> &results, const Run &run) {
    std::string text = "Medians of " + std::to_string(run.rounds) + " rounds in random order, seed " +
                       std::to_string(run.seed) + "; processor time.\n" +
                       "The ratio is ours by beside, for goals \">=\" beside by ours.\n\n" +
                       line("", "ours", "beside", "", "ratio (min to max)", "goal", "");
    for (const Result &result : results)
        text += line_of(result);
    return text + what_is_missing(results);
}

std::string as_json(const std::vector<Result> &results, const Run &run) {
    json rows = json::array();
    for (const Result &result : results)
        rows.push_back(object_of(result));
    const json all = {{"rounds", run.rounds}, {"seed", run.seed}, {"machine", machine()}, {"rows", rows}};
    return all.dump(2) + "\n";
}

} // namespace bench
