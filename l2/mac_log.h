// Log lines of the MAC client. They pass the MAC debug filter beside the flag: lines about one entry when the entry
// matches, all others (entry null) always. Each begins with the client name.
#pragma once

#include "base/log.h"
#include "base/mac_text.h"

#include <bridge/debug.h>
#include <bridge/mac_client.h>

// NOLINTBEGIN(cppcoreguidelines-macro-usage): the arguments must not be evaluated while the flag is off
#define BRI_MAC_LOG(entry, ...)                                                                                        \
    do {                                                                                                               \
        if (::bri::log::kMac.on() && bri_clnt_match_mac_dbg_filter(entry) != 0)                                        \
            BRI_LOG_ALWAYS(::bri::log::kMac, __VA_ARGS__);                                                             \
    } while (false)
// NOLINTEND(cppcoreguidelines-macro-usage)
