#include "sandbox/console_lines.h"

#include "sandbox/output.h"

namespace sandbox {

ConsoleLines::ConsoleLines(Trace &trace, bool with_time) {
    records_ = trace.records.subscribe([with_time](const Record &record) {
        const std::string text = record_text(record);
        if (with_time)
            say("%10.6f %s", static_cast<double>(record.time.count()) / 1e6, text.c_str());
        else
            say("%s", text.c_str());
    });
}

} // namespace sandbox
