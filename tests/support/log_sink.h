// Double of the syslog library: keeps every line.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace test {

// What the readers of the system log sort lines by.
struct LogCategory {
    int level;
    std::string module;
    std::string tag;
    int output; // 1: an ordinary line, 2: one that somebody asked to see
    bool operator==(const LogCategory &) const = default;
};
std::ostream &operator<<(std::ostream &out, const LogCategory &category);

inline const LogCategory kClientLine{7, "BRIDGE", "LIB_DEBUG", 1};
inline const LogCategory kSemLine{7, "BRIDGE", "SEM", 1};
inline const LogCategory kShmLine{7, "BRIDGE", "SHM", 1};
inline const LogCategory kPortDbLine{7, "BRIDGE", "PORT-DB", 1};
inline const LogCategory kVlanDbLine{7, "BRIDGE", "VLAN-DB", 1};
inline const LogCategory kVlanLine{7, "VLIB", "DEBUG", 1};
inline const LogCategory kMacLine{7, "MAC", "CLIENT_DEBUG", 1};
inline const LogCategory kShownHead{7, "\nBRIDGE", "DEBUG", 2};
inline const LogCategory kShownLine{7, "BRIDGE", "DEBUG", 2};
inline const LogCategory kMvlanNotice{5, "MVLAN", "QUERY", 1};

struct LogLine : LogCategory {
    [[nodiscard]] const LogCategory &category() const { return *this; }
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
