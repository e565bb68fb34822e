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

// Keeps the times of a run. A measurement is named by its function and arguments. It may say how many `items` an
// iteration handles, by SetItemsProcessed; its time is then that of one item.
class Times : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &) override { return true; }
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &run : runs)
            if (run.error_occurred)
                fail(run);
            else if (run.run_type == Run::RT_Iteration)
                keep(run.run_name.function_name + (run.run_name.args.empty() ? "" : "/" + run.run_name.args), run);
    }
    [[nodiscard]] bool failed() const { return failed_; }

  protected:
    // In nanoseconds; 0 for what did not run.
    [[nodiscard]] double time_of(const std::string &name) const {
        const auto found = shortest_.find(name);
        return found != shortest_.end() ? found->second : 0;
    }
    [[nodiscard]] const std::vector<std::string> &names() const { return names_; } // in the order of the run

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

    std::map<std::string, double> shortest_;
    std::vector<std::string> names_;
    bool failed_ = false;
};

// Prints a line for each measurement, beside its limit when it has one.
class Ratios : public Times {
  public:
    explicit Ratios(std::span<const Pair> pairs) : pairs_(pairs) {}

    void Finalize() override {
        std::printf("%-28s %12s   %-20s %12s %8s\n", "", "ns", "beside", "ns", "times");
        for (const std::string &name : names())
            print(name);
        std::fflush(stdout);
    }

  private:
    void print(const std::string &name) const {
        const double time = time_of(name);
        std::printf("%-28s %12.1f", name.c_str(), time);
        for (const Pair &pair : pairs_)
            if (const double limit = time_of(pair.limit); name == pair.what && limit > 0)
                std::printf("   %-20s %12.1f %8.2f  %s", pair.limit, limit, time / limit, pair.note);
        std::puts("");
    }

    std::span<const Pair> pairs_;
};

// The whole of a benchmark program behind its set-up.
inline int run(const char *title, Times &reporter) {
    std::printf("%s; processor time, shortest of %d repetitions\n", title, kRepetitions);
    std::fflush(stdout);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return reporter.failed() ? EXIT_FAILURE : EXIT_SUCCESS;
}
inline int run(const char *title, std::span<const Pair> pairs) {
    Ratios reporter(pairs);
    return run(title, reporter);
}

} // namespace bench
