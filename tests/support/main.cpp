// Runs the tests of one program. The library's state lives as long as its process, so a run that names more than one
// test gives each a process of its own, as ctest does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fnmatch.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// Whether the name fits one of the colon-separated patterns.
bool fits(const std::string &name, const std::string &patterns) {
    std::istringstream in(patterns);
    for (std::string pattern; std::getline(in, pattern, ':');)
        if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0)
            return true;
    return false;
}

// Tests that fit a pattern before the filter's first dash, or any where there is none, and none behind it.
std::vector<std::string> selected(const std::string &filter) {
    const size_t dash = std::min(filter.find('-'), filter.size());
    const std::string wanted = dash == 0 ? "*" : filter.substr(0, dash);
    const std::string unwanted = filter.substr(std::min(dash + 1, filter.size()));
    std::vector<std::string> names;
    const auto &unit = *testing::UnitTest::GetInstance();
    for (int s = 0; s < unit.total_test_suite_count(); ++s) {
        const auto &suite = *unit.GetTestSuite(s);
        for (int t = 0; t < suite.total_test_count(); ++t) {
            const std::string name = std::string(suite.name()) + "." + suite.GetTestInfo(t)->name();
            if (fits(name, wanted) && !fits(name, unwanted))
                names.push_back(name);
        }
    }
    return names;
}

// What ctest and the parent take for a test that was skipped.
constexpr int kSkipped = 77;

int run_one() {
    const int status = RUN_ALL_TESTS();
    return status == 0 && testing::UnitTest::GetInstance()->skipped_test_count() != 0 ? kSkipped : status;
}

// An emulated processor takes its time for the destructors of all registered tests.
[[noreturn]] void leave(int status) {
#ifdef BRIDGE_EMULATED
    const bool emulated = true;
#else
    const bool emulated = std::getenv("BRIDGE_MODULE") != nullptr; // a lab machine, see children.h
#endif
    if (!emulated)
        std::exit(status);
    std::fflush(nullptr);
    _exit(status);
}

int run_in_child(const std::string &name) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        testing::GTEST_FLAG(filter) = name;
        leave(run_one());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class Rehearsal : public testing::Test {
    void TestBody() override {}
};

// What an emulator has translated for a process, its forks inherit: the parent goes once through what GoogleTest does
// for a test, which the children would translate anew each.
void rehearse() {
    testing::RegisterTest("Rehearsal", "passes", nullptr, nullptr, __FILE__, __LINE__, [] { return new Rehearsal; });
    testing::GTEST_FLAG(filter) = "Rehearsal.passes";
    if (RUN_ALL_TESTS() != 0)
        std::abort();
}

// All of them skipped counts as skipped.
int run_each(const std::vector<std::string> &names) {
    rehearse();
    size_t failed = 0;
    size_t skipped = 0;
    for (const std::string &name : names)
        switch (run_in_child(name)) {
        case 0:
            break;
        case kSkipped:
            ++skipped;
            break;
        default:
            ++failed;
            std::printf("FAILED: %s\n", name.c_str());
        }
    std::printf("%zu tests, %zu failed, %zu skipped\n", names.size(), failed, skipped);
    if (failed != 0 || names.empty())
        return 1;
    return skipped == names.size() ? kSkipped : 0;
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    const std::vector<std::string> names = selected(testing::GTEST_FLAG(filter));
    if (testing::GTEST_FLAG(list_tests))
        return RUN_ALL_TESTS();
    return names.size() == 1 ? run_one() : run_each(names);
}
