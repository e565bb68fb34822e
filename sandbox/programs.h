// The program's subcommands and what their command lines share.
#pragma once

#include <optional>
#include <string>

namespace CLI {
class App;
}

namespace sandbox {

inline constexpr int kBadUsage = 64; // exit status

// Each is a main of its own; argv[0] is the program's name. They throw std::exception with what went wrong.
int serve(int argc, char **argv);   // serve.cpp
int control(int argc, char **argv); // ctl.cpp
int run(int argc, char **argv);     // run.cpp
int clean(int argc, char **argv);   // clean.cpp
// The kernel's bridge module in a process of its own, for servers that come and go.
int kernel_main(int argc, char **argv); // kernel_main.cpp

// The subcommand that is named first, or the server.
int start(int argc, char **argv);
// "ctl, run"
std::string program_names();

// An exit status when there is nothing more to do: help was shown, or a word was not understood, which is said.
std::optional<int> parse_command_line(CLI::App &app, int argc, char **argv);

std::string environment(const char *name); // empty when unset
// How many times as fast as the wall's the clocks of a world run, the hosts' too: QV_THREAD_TIME_SCALE, 1 when unset.
double environment_time_scale();

} // namespace sandbox
