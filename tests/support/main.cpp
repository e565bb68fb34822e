// Runs the tests of one program. The library's state lives as long as its process, so a run that names more than one
// test gives each a process of its own, as ctest does.
#include <gtest/gtest.h>

#include <cstdio>
#include <fnmatch.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

// Tests whose name fits one of the colon-separated patterns.
std::vector<std::string> selected(const std::string &filter) {
    std::vector<std::string> names;
    const auto &unit = *testing::UnitTest::GetInstance();
    for (int s = 0; s < unit.total_test_suite_count(); ++s) {
        const auto &suite = *unit.GetTestSuite(s);
        for (int t = 0; t < suite.total_test_count(); ++t) {
            const std::string name = std::string(suite.name()) + "." + suite.GetTestInfo(t)->name();
            std::istringstream patterns(filter);
            for (std::string pattern; std::getline(patterns, pattern, ':');)
                if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) {
                    names.push_back(name);
                    break;
                }
        }
    }
    return names;
}

int run_in_child(const std::string &name) {
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        testing::GTEST_FLAG(filter) = name;
        std::exit(RUN_ALL_TESTS());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    const std::string filter = testing::GTEST_FLAG(filter);
    const std::vector<std::string> names = selected(filter);
    if (testing::GTEST_FLAG(list_tests) || names.size() == 1)
        return RUN_ALL_TESTS();
    int failed = 0;
    for (const std::string &name : names)
        if (run_in_child(name) != 0) {
            ++failed;
            std::printf("FAILED: %s\n", name.c_str());
        }
    std::printf("%zu tests, %d failed\n", names.size(), failed);
    return failed == 0 && !names.empty() ? 0 : 1;
}
