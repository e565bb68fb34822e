#include <qv_syslog.h>
#include <cstdarg>
#include <cstdio>
void printk_syslog_ext(int, const char *, const char *, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
}
