#include <gtest/gtest.h>
#include <qv_syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <syslog.h>
#include <unistd.h>
#include <vector>

namespace {

struct SystemLine {
    int level;
    std::string text;
};
std::vector<SystemLine> g_system_lines;

} // namespace

// In the place of syslog(3): the libraries find the program's own first.
extern "C" __attribute__((visibility("default"))) void syslog(int level, const char *format, ...) {
    char text[2048];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof text, format, values);
    va_end(values);
    g_system_lines.push_back({level, text});
}

namespace {

// Each test is a process of its own, so each sees its own environment read.
struct SyslogTest : testing::Test {
    SyslogTest() {
        unsetenv("QV_SYSLOG");
        unsetenv("QV_SYSLOG_LEVEL");
    }
};

// What `body` writes to a descriptor.
template <class Body> std::string written_to(int descriptor, Body &&body) {
    char name[] = "/tmp/bri.XXXXXX";
    const int file = mkstemp(name);
    unlink(name);
    std::fflush(nullptr);
    const int kept = dup(descriptor);
    dup2(file, descriptor);
    body();
    dup2(kept, descriptor);
    close(kept);
    std::string text(static_cast<size_t>(lseek(file, 0, SEEK_END)), '\0');
    EXPECT_EQ(pread(file, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    close(file);
    return text;
}
template <class Body> std::string on_stderr(Body &&body) {
    return written_to(2, body);
}
template <class Body> std::string on_stdout(Body &&body) {
    return written_to(1, body);
}

void line(int level, const char *module, const char *tag, int output, const char *text) {
    printk_syslog_ext(level, module, tag, output, "%s", text);
}

TEST_F(SyslogTest, ordinary_line_goes_to_standard_error_with_level_module_and_tag) {
    EXPECT_EQ(on_stdout([] {
                  EXPECT_EQ(on_stderr([] { printk_syslog_ext(7, "BRIDGE", "LIB_DEBUG", 1, "[%s] n %d\n", "host", 5); }),
                            "debug BRIDGE/LIB_DEBUG: [host] n 5\n");
              }),
              "");
    EXPECT_TRUE(g_system_lines.empty());
}

TEST_F(SyslogTest, every_level_has_its_name) {
    const char *names[] = {"emerg", "alert", "crit", "err", "warning", "notice", "info", "debug"};
    for (int level = 0; level < 8; ++level)
        EXPECT_EQ(on_stderr([&] { line(level, "M", "T", 1, "x"); }), std::string(names[level]) + " M/T: x\n");
    EXPECT_EQ(on_stderr([] { line(-1, "M", "T", 1, "x"); }), "emerg M/T: x\n");
    EXPECT_EQ(on_stderr([] { line(99, "M", "T", 1, "x"); }), "debug M/T: x\n");
}

TEST_F(SyslogTest, missing_line_end_is_added_and_a_given_one_kept_single) {
    EXPECT_EQ(on_stderr([] {
                  line(5, "M", "T", 1, "no end");
                  line(5, "M", "T", 1, "end\n");
                  line(5, "M", "T", 1, "\n");
                  line(5, "M", "T", 1, "");
                  line(5, "M", "T", 1, "two\nlines\n");
              }),
              "notice M/T: no end\nnotice M/T: end\nnotice M/T:\nnotice M/T:\nnotice M/T: two\nnotice M/T: lines\n");
}

TEST_F(SyslogTest, shown_line_goes_to_standard_output_bare) {
    EXPECT_EQ(on_stderr([] {
                  EXPECT_EQ(on_stdout([] {
                                line(7, "BRIDGE", "DEBUG", 2, " Cache-msg number: 3\n");
                                line(7, "BRIDGE", "DEBUG", 2, "no end");
                                line(7, "\nBRIDGE", "DEBUG", 2, "set off\n");
                                line(7, "BRIDGE", "DEBUG", 2, "");
                            }),
                            " Cache-msg number: 3\nno end\n\nset off\n\n");
              }),
              "");
}

TEST_F(SyslogTest, module_that_begins_with_a_line_end_sets_the_line_off) {
    EXPECT_EQ(on_stderr([] { line(7, "\nBRIDGE", "DEBUG", 1, "x\n"); }), "\ndebug BRIDGE/DEBUG: x\n");
}

TEST_F(SyslogTest, environment_sends_ordinary_lines_to_the_system_log) {
    setenv("QV_SYSLOG", "syslog", 1);
    EXPECT_EQ(on_stderr([] {
                  line(5, "MVLAN", "QUERY", 1, "one\ntwo");
                  line(7, "\nBRIDGE", "DEBUG", 1, "three\n");
                  line(7, "BRIDGE", "LIB_DEBUG", 1, "\n");
                  line(-3, "M", "T", 1, "four\n");
              }),
              "");
    EXPECT_EQ(on_stdout([] { line(7, "BRIDGE", "DEBUG", 2, "shown\n"); }), "shown\n");
    ASSERT_EQ(g_system_lines.size(), 4U);
    EXPECT_EQ(g_system_lines[0].level, 5);
    EXPECT_EQ(g_system_lines[0].text, "MVLAN/QUERY: one");
    EXPECT_EQ(g_system_lines[1].text, "MVLAN/QUERY: two");
    EXPECT_EQ(g_system_lines[2].level, 7);
    EXPECT_EQ(g_system_lines[2].text, "BRIDGE/DEBUG: three");
    EXPECT_EQ(g_system_lines[3].level, 0);
}

TEST_F(SyslogTest, threshold_leaves_out_higher_levels_but_not_shown_lines) {
    setenv("QV_SYSLOG_LEVEL", "5", 1);
    EXPECT_EQ(on_stderr([] {
                  line(4, "M", "T", 1, "warning");
                  line(5, "M", "T", 1, "notice");
                  line(6, "M", "T", 1, "info");
                  line(7, "M", "T", 1, "debug");
              }),
              "warning M/T: warning\nnotice M/T: notice\n");
    EXPECT_EQ(on_stdout([] { line(7, "M", "T", 2, "shown"); }), "shown\n");
}

TEST_F(SyslogTest, threshold_that_is_no_level_leaves_nothing_out) {
    setenv("QV_SYSLOG_LEVEL", "55", 1);
    EXPECT_EQ(on_stderr([] { line(7, "M", "T", 1, "x"); }), "debug M/T: x\n");
}

TEST_F(SyslogTest, long_text_is_written_whole) {
    const std::string text(20000, 'y');
    EXPECT_EQ(on_stderr([&] { line(7, "M", "T", 1, text.c_str()); }), "debug M/T: " + text + "\n");
    const std::string edge(511, 'z');
    EXPECT_EQ(on_stdout([&] { line(7, "M", "T", 2, edge.c_str()); }), edge + "\n");
    const std::string over(512, 'z');
    EXPECT_EQ(on_stdout([&] { line(7, "M", "T", 2, over.c_str()); }), over + "\n");
}

TEST_F(SyslogTest, missing_texts_are_survived) {
    // Called past the compiler's check of the format.
    void (*const volatile unchecked)(int, const char *, const char *, int, const char *, ...) = printk_syslog_ext;
    EXPECT_EQ(on_stderr([&] {
                  line(7, nullptr, nullptr, 1, "x");
                  unchecked(7, "M", "T", 1, nullptr);
              }),
              "debug -/-: x\n");
}

TEST_F(SyslogTest, errno_is_kept) {
    on_stderr([] {
        errno = ENOENT;
        line(7, "M", "T", 1, "x");
        EXPECT_EQ(errno, ENOENT);
        close(2);
        line(7, "M", "T", 1, "nowhere to write");
        EXPECT_EQ(errno, ENOENT);
    });
}

} // namespace
