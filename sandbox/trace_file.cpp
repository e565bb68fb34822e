#include "sandbox/trace_file.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace sandbox {

TraceFile::TraceFile(Trace &trace, const std::string &path) : file_(path) {
    if (!file_)
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    records_ =
        trace.records.subscribe([this](const Record &record) { file_ << record_json(record).dump() << std::endl; });
}

} // namespace sandbox
