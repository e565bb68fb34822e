// What the rounds gave, and how it is told: the table, its JSON, and the program's status.
#pragma once

#include "bench/rows.h"

#include <string>
#include <vector>

namespace bench {

struct Result {
    const Row *row = nullptr;
    std::string missing;  // why one of the sides cannot be measured here; empty when both can
    bool skipped = false; // nothing is measured; a row whose goal is for ours alone is, also without the other side
    bool failed = false;
    std::vector<double> ours, beside, ratios;
};

// What the run was, for the head of what is told.
struct Run {
    unsigned rounds;
    unsigned seed;
};

// The library that a measurement needs and that is not part of this tree; null for others.
const Peer *peer_of(const std::string &measurement);

// A row before its first round; the reasons why its sides cannot be measured, empty when they can.
Result row_to_measure(const Row &row, const std::string &ours_missing, const std::string &beside_missing);

// 1 when a measurement failed or a figure that no machine changes misses its goal, else 0.
int status_of(const std::vector<Result> &results);

std::string as_table(const std::vector<Result> &results, const Run &run);
std::string as_json(const std::vector<Result> &results, const Run &run);

} // namespace bench
