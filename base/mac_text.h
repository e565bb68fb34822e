// A MAC address in log lines: three groups of four hexadecimal digits.
#pragma once

// NOLINTBEGIN(cppcoreguidelines-macro-usage): a format and its arguments, checked by the compiler where they are used
#define BRI_MAC_FMT       "%02x%02x.%02x%02x.%02x%02x"
#define BRI_MAC_ARGS(mac) (mac)[0], (mac)[1], (mac)[2], (mac)[3], (mac)[4], (mac)[5]
// NOLINTEND(cppcoreguidelines-macro-usage)
