// What the system says about processes and what they leave behind.
#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

namespace soak {

struct Figures {
    long rss_kb = 0;  // resident
    long data_kb = 0; // private data, resident or not
    int descriptors = 0;
};
Figures figures_of(pid_t pid);

// The segments and semaphores of one virtual switch device. Clients make and never remove them.
struct SharedTables {
    int segments = 0;
    int attached = 0; // processes, over all segments
    int semaphores = 0;
};
SharedTables shared_tables(int vsd);
void remove_shared_tables(int vsd);
// Segments that these processes made, whatever their keys.
int segments_made_by(const std::vector<pid_t> &pids);

} // namespace soak
