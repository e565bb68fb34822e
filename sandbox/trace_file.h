// The trace in a file: one JSON object a line, written as it happens.
#pragma once

#include "sandbox/trace.h"

#include <fstream>
#include <string>

namespace sandbox {

class TraceFile {
  public:
    // Throws std::runtime_error when the file cannot be made.
    TraceFile(Trace &trace, const std::string &path);

  private:
    std::ofstream file_;
    Trace::Subscription records_;
};

} // namespace sandbox
