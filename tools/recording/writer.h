// A recording being written, block by block. A disk that is full ends the recording, with a line on standard error, and
// nothing else.
#pragma once

#include "tools/recording/format.h"
#include "wire/bytes.h"

#include <string>

namespace recording {

// What stands in the section header.
struct Origin {
    std::string program; // that writes
    int32_t vsd = 0;     // the number whose tables are recorded
    wire::Order order = wire::Order::kNative;
    unsigned word_size = sizeof(void *);
};

class Writer {
  public:
    // Makes the file anew. Throws std::runtime_error.
    Writer(std::string path, Origin origin);
    ~Writer(); // writes what is left
    Writer(const Writer &) = delete;
    Writer &operator=(const Writer &) = delete;

    // A packet of now. The byte order in its head is that of the recording. Throws nothing.
    void add(Head head, wire::Bytes bytes);
    // Writes what was added, up to the last whole packet that there is room for.
    void flush();

  private:
    void add_section();
    void add_interface(const char *name);
    void begin_block(uint32_t type);
    void end_block();
    void put(uint32_t value, size_t width = sizeof(uint32_t));
    void put_padded(wire::Bytes bytes);
    void put_option(uint16_t code, wire::Bytes bytes);
    void give_up();

    std::string path_;
    Origin origin_;
    int fd_;
    wire::Buffer blocks_;  // not yet written
    size_t block_ = 0;     // where the newest begins
    uint64_t written_ = 0; // bytes in the file, all of whole blocks
    bool ended_ = false;
};

} // namespace recording
