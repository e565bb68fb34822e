// The tables in shared memory, as they were in the recording.
#pragma once

#include "tools/recording/reader.h"

#include <bridge/ipc.h>

namespace replay {

class Tables {
  public:
    // Makes those of the VSDID of the environment as a server makes them, empty. Throws std::runtime_error.
    Tables();
    ~Tables();
    Tables(const Tables &) = delete;
    Tables &operator=(const Tables &) = delete;

    // A packet of kind kTable. False when it is not about a place in a table, and nothing has changed.
    bool apply(const recording::Packet &change);

  private:
    struct Table {
        size_t size;                  // bytes of its data
        std::vector<uint32_t> places; // of each byte that was recorded in the other byte order
        bri_shm_handle *memory;       // attached
    };

    std::vector<Table> tables_;
};

} // namespace replay
