// What every test stands on: an own VSDID and TMPDIR, the doubles, and nothing left behind.
#pragma once

#include "tests/support/bytes.h"
#include "tests/support/faults.h"
#include "tests/support/log_sink.h"
#include "tests/support/loop.h"
#include "tests/support/sets.h"

#include <bridge/bridge.h>

#include <gtest/gtest.h>

#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace test {

// An own VSDID and TMPDIR; at the end the directory, the four segments and the four semaphores of that VSDID are
// removed. Several processes of one test share them by fork.
class Env : public ::testing::Test {
  protected:
    Env();
    ~Env() override;
    Env(const Env &) = delete;
    Env &operator=(const Env &) = delete;

    [[nodiscard]] const std::string &tmpdir() const { return tmpdir_; }
    [[nodiscard]] int vsd() const { return vsd_; }
    // Writes a file below TMPDIR and gives its path.
    std::string write_file(const std::string &name, const std::string &content) const;

  private:
    std::string tmpdir_;
    int vsd_;
};

// Switches debug flags on for a test.
inline void debug_on(std::initializer_list<int> flags) {
    for (const int flag : flags)
        g_bri_clnt_dbg[flag] = 1;
}

// Expects that a line with this text was written as often as said, the first of them in this category.
void expect_line(const std::string &text, const LogCategory &category, int times = 1);

// Open descriptors of this process.
int open_descriptors();

} // namespace test
