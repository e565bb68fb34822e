// What the server tells the person or script that runs it: one line on standard output per call, written at once.
#pragma once

namespace sandbox {

__attribute__((format(printf, 1, 2))) void say(const char *format, ...);

} // namespace sandbox
