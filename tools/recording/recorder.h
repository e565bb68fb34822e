// Records what passes between clients and a server, with the tables as they were at each moment.
#pragma once

#include "tools/recording/tables.h"

namespace recording {

// One direction of a client's connection: what has come of the batch that is not yet whole.
struct Stream {
    uint32_t client = 0;
    Way way = Way::kToServer;
    wire::Buffer begun = {};
    bool broken = false; // does not keep to batches any more: what comes is recorded as it comes
};

class Recorder {
  public:
    // Begins with the start values of the tables. Throws std::runtime_error.
    Recorder(const std::string &path, const std::string &program, int32_t vsd);

    // Each is in the file when it returns, unless the disk is full. Before the bytes go on, so that whoever gets them
    // cannot change a table because of them before it was looked at.
    void pass(Stream &stream, wire::Bytes bytes);
    void end(Stream &stream);
    void kernel_message(uint32_t client, Way way, wire::Bytes bytes);
    void connection(uint32_t client, Change change);

  private:
    Writer writer_;
    Tables tables_;
};

} // namespace recording
