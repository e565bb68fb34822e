// The host: a client of the bridge server that shows what it is told.
#pragma once

#include "tools/monitor/filter.h"
#include "tools/monitor/output.h"

#include <bridge/events.h>

#include <optional>
#include <string>

struct qv_thread_master;

namespace monitor {

struct Settings {
    std::string name;   // the client's, for the server
    event_set events{}; // to register for
    Filter filter;      // what of them is shown
    Style style;
    bool origin = false; // ask for the origin data on every connection
    uint64_t count = 0;  // ends after so many events that were shown; 0: never
    double seconds = 0;  // ends after this time; 0: never
};

// Starts the library, whose state lives as long as the process, and runs until a signal, the count or the time ends it.
// True when a server was reached and all output was taken; what was not so is told on standard error.
[[nodiscard]] bool run(const Settings &settings);

} // namespace monitor
