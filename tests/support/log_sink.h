// Double of the syslog library: keeps every line.
#pragma once

#include <string>
#include <vector>

namespace test {

struct LogLine {
    int level;
    std::string module;
    std::string tag;
    int output;
    std::string format;
    std::string text; // the format with its values
};

// Lines since the last clear_log(), oldest first. Guarded; take it when no other thread logs.
std::vector<LogLine> &log_lines();
void clear_log();

// Whether a line with exactly this text was written, and how often.
bool logged(const std::string &text);
int times_logged(const std::string &text);
// The first line with this text; a line of level -1 when there is none.
LogLine log_line(const std::string &text);
// All texts joined, for comparing a whole print.
std::string log_text();

} // namespace test
