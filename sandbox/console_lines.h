// The trace as lines on standard output.
#pragma once

#include "sandbox/trace.h"

namespace sandbox {

class ConsoleLines {
  public:
    // With the time, in seconds, at the begin of each line when asked for.
    ConsoleLines(Trace &trace, bool with_time);

  private:
    Trace::Subscription records_;
};

} // namespace sandbox
