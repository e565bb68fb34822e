// Memory figures from a text in the format of /proc/meminfo.
#pragma once

#include <bridge/services.h>

#include <cstdio>

namespace bri::client {

// Fills the figures of `info`, which the caller has cleared, from the lines of a file. 0, or -1 when a figure that the
// library needs is missing or 0.
int read_mem_info(FILE *file, bri_sys_mem_info &info);

} // namespace bri::client
