// The program's subcommands and what their command lines share.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace sandbox {

inline constexpr int kBadUsage = 64; // exit status

// Mains of their own; argv[0] is the program's name. They throw std::exception with what went wrong.
int run(int argc, char **argv);
int check(int argc, char **argv);

// The subcommand that is named first, or the server.
int start(int argc, char **argv);
// Prints that where errors go; the exit status.
int bad_usage(const std::string &text);
// An exit status when there is nothing more to do: help was shown, or a word was not understood, which is said.
std::optional<int> parse_command_line(CLI::App &app, int argc, char **argv);

// The option --time-scale, 1 to 1000.
void add_time_scale(CLI::App &app, double &time_scale, const std::string &what);

// The option --record.
CLI::Option *add_recording(CLI::App &app, std::string &file);

// Removes what stands in shared memory of that number; how many objects. Throws std::runtime_error.
size_t remove_tables(int32_t vsd);

std::string environment(const char *name); // empty when unset
// How many times as fast as the wall's the clocks of a world run, the hosts' too: QV_THREAD_TIME_SCALE, 1 when unset.
double environment_time_scale();

} // namespace sandbox
