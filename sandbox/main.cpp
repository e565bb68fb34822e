// bridge-sandbox: a switch on a workstation.
#include "frames/bridge.h"
#include "sandbox/answer.h"
#include "sandbox/programs.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

// NOLINTNEXTLINE(bugprone-exception-escape): out of memory before there is anything to say it with
int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
#ifdef BRIDGE_FRAMES
    sandbox::open_back_end = frames::open_bridge;
#endif
    try {
        return sandbox::start(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "bridge-sandbox: %s\n", sandbox::escaped(error.what()).c_str());
        // What the command line and the environment have wrong is an invalid argument.
        return dynamic_cast<const std::invalid_argument *>(&error) != nullptr ? sandbox::kBadUsage : EXIT_FAILURE;
    }
}
