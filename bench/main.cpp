// bench: measures the library beside the limits of its paths and beside other libraries, and prints one table.
//
// Each figure is taken in a fresh process, which may run with another build of the library. In a round every row has
// its turn, in random order, and so have its two sides: whatever else the machine does meets both. What counts is the
// median of the rounds' ratios. Status 1 when a figure that the machine cannot change misses its goal, or when a
// measurement fails.
#include "bench/measure.h"
#include "bench/report.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <random>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace bench;

struct Options {
    bool quick = false;
    bool as_json = false;
    unsigned rounds = 9;
    unsigned seed = std::random_device{}();
    std::string only;   // part of the rows' names
    std::string before; // build trees
    std::string silent;
    std::string growth; // where the curves go, instead of the table
    std::string server; // the program for `clients`, and what makes the load
    std::string load;
    std::vector<std::string> measure; // name, size, seconds: one figure, in this process
};
Options g_options;

const Measurement *find(const std::string &name) {
    for (const auto all : {messages(), pairs(), peers(), lookups(), replays(), requests(), hosts()})
        for (const Measurement &measurement : all)
            if (name == measurement.name)
                return &measurement;
    return nullptr;
}

// In place of what was shown before, for who looks on.
void show_progress(const std::string &what) {
    if (isatty(STDERR_FILENO) != 0)
        std::fprintf(stderr, "\r\033[K%s", what.c_str());
}

// --- one figure

std::string libraries_of(Library library) {
    const std::string &tree = library == Library::kBefore ? g_options.before : g_options.silent;
    return tree + "/client:" + tree + "/platform:" + tree + "/host";
}

// Why a side cannot be measured here; empty when it can.
std::string missing(const Side &side) {
    if (side.measurement == nullptr)
        return "";
    if (side.library == Library::kBefore && g_options.before.empty())
        return "no earlier build (--before)";
    if (side.library == Library::kSilent && g_options.silent.empty())
        return "no build without lines (--silent)";
    if (const Peer *peer = peer_of(side.measurement); peer != nullptr && find(side.measurement) == nullptr)
        return std::string(peer->name) + " was not there when this was built (Debian's " + peer->package + ")";
    return "";
}

[[noreturn]] void become_measurement(const Side &side, int output) {
    dup2(output, STDOUT_FILENO);
    if (side.library != Library::kThis)
        setenv("LD_LIBRARY_PATH", libraries_of(side.library).c_str(), 1);
    const std::string size = std::to_string(side.size);
    execl("/proc/self/exe", "bench", "--measure", side.measurement, size.c_str(), g_options.quick ? "0.02" : "0.1",
          nullptr);
    _exit(127);
}

std::optional<double> take(const Side &side) {
    int output[2];
    if (pipe(output) != 0)
        return std::nullopt;
    const pid_t child = fork();
    if (child == 0)
        become_measurement(side, output[1]);
    close(output[1]);
    std::string text;
    char piece[256];
    for (ssize_t got = 0; (got = read(output[0], piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<size_t>(got));
    close(output[0]);
    int status = 0;
    waitpid(child, &status, 0);
    double figure = 0;
    const bool done = WIFEXITED(status) && WEXITSTATUS(status) == 0 && std::sscanf(text.c_str(), "%lf", &figure) == 1;
    return done ? std::optional(figure) : std::nullopt;
}

// --- the table

// Both sides of a row, if the other one is here, one straight behind the other.
void measure(Result &result, std::mt19937 &random) {
    const Row &row = *result.row;
    std::optional<double> ours;
    std::optional<double> beside;
    const bool both = row.beside_name != nullptr && result.missing.empty();
    const bool ours_first = random() % 2 == 0;
    if (ours_first)
        ours = take(row.ours);
    if (both)
        beside = take(row.beside);
    if (!ours_first)
        ours = take(row.ours);
    if (!ours || (both && !beside)) {
        result.failed = true;
        return;
    }
    result.ours.push_back(*ours);
    if (!beside)
        return;
    result.beside.push_back(*beside);
    result.ratios.push_back(row.goal == Goal::kAtLeast ? *beside / *ours : *ours / *beside);
}

std::vector<Result> chosen_rows() {
    std::vector<Result> results;
    for (const Row &row : kRows)
        if (std::string(row.what).find(g_options.only) != std::string::npos)
            results.push_back(row_to_measure(row, missing(row.ours), missing(row.beside)));
    return results;
}

// A figure that no machine changes is taken once.
void measure_rows(std::vector<Result> &results) {
    std::mt19937 random(g_options.seed);
    std::vector<size_t> order(results.size());
    for (size_t index = 0; index < order.size(); ++index)
        order[index] = index;
    for (unsigned round = 0; round < g_options.rounds; ++round) {
        std::shuffle(order.begin(), order.end(), random);
        for (const size_t index : order)
            if (Result &result = results[index];
                !result.skipped && !result.failed && !(round > 0 && result.row->counted))
                measure(result, random);
        show_progress("round " + std::to_string(round + 1) + " of " + std::to_string(g_options.rounds));
    }
    show_progress("");
}

int table() {
    std::vector<Result> results = chosen_rows();
    if (results.empty()) {
        std::fprintf(stderr, "No row's name holds \"%s\".\n", g_options.only.c_str());
        return 2;
    }
    measure_rows(results);
    const Run run{g_options.rounds, g_options.seed};
    std::fputs((g_options.as_json ? as_json : as_table)(results, run).c_str(), stdout);
    return status_of(results);
}

// --- the curves

// Deliveries a second by a server with so many clients, each of which wants a quarter of what is offered.
std::optional<double> deliveries(unsigned clients) {
    const std::string command =
        g_options.load + " " + g_options.server + " 1000000 0.2 " + std::to_string(clients) + " 2>&1";
    FILE *told = popen(command.c_str(), "r");
    if (told == nullptr)
        return std::nullopt;
    double figure = 0;
    char line[512];
    bool found = false;
    while (std::fgets(line, sizeof line, told) != nullptr)
        if (const char *at = std::strstr(line, " s: "); at != nullptr && std::strstr(line, "in order") != nullptr)
            found = std::sscanf(at, " s: %lf", &figure) == 1;
    return pclose(told) == 0 && found ? std::optional(figure) : std::nullopt;
}

std::optional<double> point(const Curve &curve, unsigned size) {
    std::vector<double> figures;
    for (int taken = 0; taken < 3; ++taken)
        if (const auto figure =
                std::strcmp(curve.measurement, "clients") == 0 ? deliveries(size) : take({curve.measurement, size}))
            figures.push_back(*figure);
    return figures.empty() ? std::nullopt : std::optional(median(figures));
}

// {plot: {curve: [[number, figure]...]}}
int curves() {
    nlohmann::ordered_json plots; // the curves of the table's order, ours first
    for (const Curve &curve : kCurves)
        for (const unsigned size : curve.sizes) {
            if (size == 0)
                break;
            show_progress(std::string(curve.plot) + ", " + std::to_string(size - curve.offset));
            const auto figure = point(curve, size);
            if (!figure) {
                std::fprintf(stderr, "%s %u: no figure\n", curve.measurement, size);
                return 1;
            }
            plots[curve.plot][curve.name].push_back({size - curve.offset, *figure});
        }
    show_progress("");
    std::ofstream growth(g_options.growth);
    growth << plots.dump() << '\n';
    if (growth.flush())
        return 0;
    std::fprintf(stderr, "%s cannot be written\n", g_options.growth.c_str());
    return 1;
}

int measure_here() {
    const Measurement *measurement = find(g_options.measure[0]);
    if (measurement == nullptr)
        return 2;
    g_budget = std::stod(g_options.measure[2]);
    alarm(60); // a measurement that hangs has failed
    std::printf("%.9g\n", measurement->take(static_cast<unsigned>(std::stoul(g_options.measure[1]))));
    return 0;
}

void add_options(CLI::App &app) {
    app.add_flag("--quick", g_options.quick,
                 "a glance in less than a minute: 3 rounds, not 9, of a fifth of the time each");
    app.add_flag("--json", g_options.as_json, "the table as JSON");
    app.add_option("--rounds", g_options.rounds, "how often each row is measured")->check(CLI::PositiveNumber);
    app.add_option("--seed", g_options.seed, "of the random order");
    app.add_option("--only", g_options.only, "the rows whose name holds this");
    app.add_option("--before", g_options.before, "a build tree of an earlier state, for the rows beside it");
    app.add_option("--silent", g_options.silent, "a build tree without log lines, for the row beside it");
    app.add_option("--growth", g_options.growth, "write how costs grow to this file, as JSON, instead of the table");
    app.add_option("--server", g_options.server, "the program of the server, for its growth with clients");
    app.add_option("--load", g_options.load, "the program that makes its load");
    app.add_option("--measure", g_options.measure, "one figure: NAME SIZE SECONDS")->expected(3);
}

} // namespace

int main(int argc, char **argv) {
    CLI::App app("The library beside the limits of its paths.");
    add_options(app);
    CLI11_PARSE(app, argc, argv);
    if (!g_options.measure.empty())
        return measure_here();
    if (g_options.quick && app.count("--rounds") == 0)
        g_options.rounds = 3;
    return g_options.growth.empty() ? table() : curves();
}
