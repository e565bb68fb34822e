// bridge-sandbox: a switch on a workstation.
#include "sandbox/programs.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>

// NOLINTNEXTLINE(bugprone-exception-escape): out of memory before there is anything to say it with
int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return sandbox::start(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "bridge-sandbox: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
