#include "tests/support/log_sink.h"

#include "tests/support/effects.h"
#include "tests/support/faults.h"

#include <qv_syslog.h>

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace test {

namespace {
std::mutex guard;
}

std::vector<LogLine> &log_lines() {
    static std::vector<LogLine> lines;
    return lines;
}

void clear_log() {
    const faults::Pause pause;
    log_lines().clear();
}

int times_logged(const std::string &text) {
    int times = 0;
    for (const LogLine &line : log_lines())
        times += line.text == text ? 1 : 0;
    return times;
}

bool logged(const std::string &text) {
    return times_logged(text) != 0;
}

LogLine log_line(const std::string &text) {
    for (const LogLine &line : log_lines())
        if (line.text == text)
            return line;
    return LogLine{{-1, "", "", -1}, "", ""};
}

std::string log_text() {
    std::string all;
    for (const LogLine &line : log_lines())
        all += line.text;
    return all;
}

std::ostream &operator<<(std::ostream &out, const LogCategory &category) {
    return out << "level " << category.level << ", \"" << category.module << "\", \"" << category.tag << "\", output "
               << category.output;
}

} // namespace test

void printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...) {
    const test::faults::Pause pause;
    const int error = errno;
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    {
        const std::lock_guard lock(test::guard);
        test::log_lines().push_back({{level, module, tag, output}, format, text});
        test::tell_effect(text);
    }
    errno = error;
}
