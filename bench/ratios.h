// The output of a benchmark program: which measurement is held against which. Of the repetitions the shortest counts:
// what else runs on the machine only adds. Times are processor time.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace bench {

constexpr int kRepetitions = 5;

inline void repeated(benchmark::internal::Benchmark *bench) {
    bench->Repetitions(kRepetitions)->MinTime(0.1);
}

struct Pair {
    const char *what;
    const char *limit;
    const char *note = "";
};

// A line for each measurement, beside its limit when it has one. A measurement is named by its function and arguments.
// It may say how many `items` an iteration handles, by SetItemsProcessed; its time is then that of one item.
class Ratios : public benchmark::BenchmarkReporter {
  public:
    explicit Ratios(std::span<const Pair> pairs) : pairs_(pairs) {}

    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (run.error_occurred)
                fail(run);
            else if (run.run_type == Run::RT_Iteration)
                keep(run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args), run);
    }
    void Finalize() override {
        std::printf("%-28s %12s   %-20s %12s %8s\n", "", "ns", "beside", "ns", "times");
        for (const std::string &name : names_)
            print(name);
        std::fflush(stdout);
    }
    [[nodiscard]] bool failed() const { return failed_; }

  private:
    void keep(const std::string &name, const Run &run) {
        const auto items = run.counters.find("items_per_second");
        const double seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
        const double time = items != run.counters.end() ? 1e9 / items->second.value : 1e9 * seconds;
        const auto [entry, fresh] = shortest_.emplace(name, time);
        if (fresh)
            names_.push_back(name);
        else if (time < entry->second)
            entry->second = time;
    }
    void fail(const Run &run) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        failed_ = true;
    }
    void print(const std::string &name) const {
        const double time = shortest_.at(name);
        bool paired = false;
        for (const Pair &pair : pairs_) {
            const auto limit = shortest_.find(pair.limit);
            if (name != pair.what || limit == shortest_.end())
                continue;
            std::printf("%-28s %12.1f   %-20s %12.1f %8.2f   %s\n", pair.what, time, pair.limit, limit->second,
                        time / limit->second, pair.note);
            paired = true;
        }
        if (!paired)
            std::printf("%-28s %12.1f\n", name.c_str(), time);
    }

    std::span<const Pair> pairs_;
    std::vector<std::string> names_; // in the order of the run
    std::map<std::string, double> shortest_;
    bool failed_ = false;
};

// The whole of a benchmark program behind its set-up.
inline int run(const char *title, std::span<const Pair> pairs) {
    Ratios reporter(pairs);
    std::printf("%s; processor time, shortest of %d repetitions\n", title, kRepetitions);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.failed() ? EXIT_FAILURE : EXIT_SUCCESS;
}

} // namespace bench
