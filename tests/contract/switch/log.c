/* The syslog library of a made-up switch. */
#include <stdarg.h>
#include <stdio.h>

void printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...);

void printk_syslog_ext(int level, const char *module, const char *tag, int output, const char *format, ...) {
    va_list values;
    printf("log %d %s/%s %d: ", level, module, tag, output);
    va_start(values, format);
    vprintf(format, values);
    va_end(values);
    puts("");
}
