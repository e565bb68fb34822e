// The tables in shared memory as they change.
#pragma once

#include "tools/recording/writer.h"

#include <vector>

namespace recording {

// Keeps a copy of each table. Writes nothing into them. A table that is removed and made anew stays the old one here,
// as it does in every client that has it attached.
class Tables {
  public:
    explicit Tables(int32_t vsd);
    ~Tables();
    Tables(const Tables &) = delete;
    Tables &operator=(const Tables &) = delete;

    // Records what has changed since the last look, and the start values of tables that have come.
    void look(Writer &writer);

  private:
    struct Copy {
        Table number;
        const uint8_t *segment = nullptr; // attached, its header first; null while there is none
        wire::Buffer bytes;               // the data area, as recorded
    };
    bool attach(Copy &copy) const;
    static void compare(Copy &copy, Writer &writer, uint8_t flags);

    int32_t vsd_;
    std::vector<Copy> copies_;
};

} // namespace recording
