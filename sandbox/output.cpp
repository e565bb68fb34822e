#include "sandbox/output.h"

#include <cstdarg>
#include <cstdio>

namespace sandbox {

void say(const char *format, ...) {
    va_list values;
    va_start(values, format);
    std::vprintf(format, values);
    va_end(values);
    std::putchar('\n');
    std::fflush(stdout);
}

} // namespace sandbox
