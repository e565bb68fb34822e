// Plays a recording to a daemon: a world of its own, in which the server and the kernel do what they did.
#pragma once

#include "tools/recording/reader.h"
#include "tools/replay/choice.h"

#include <string>
#include <vector>

namespace replay {

struct Settings {
    Choice choice;
    double speed = 1;    // times the original; 0: as fast as the daemon reads
    double patience = 5; // seconds that are waited for the daemon at most
    bool stop = false;   // behind the last packet, until Enter
    bool step = false;
    bool compare = false;
    std::vector<std::string> command;
};

enum Status { kFine = 0, kDiffers = 1, kFailed = 2 };

// Standard error gets what the daemon sent; its own output goes where this process's goes. Throws std::runtime_error.
[[nodiscard]] Status play(const recording::Recording &recording, const Settings &settings);

} // namespace replay
