// bridge-replay: plays a recording of the bridge service to a daemon.
#include "sandbox/world.h"
#include "tools/command_line.h"
#include "tools/replay/player.h"

#include <csignal>

namespace {

using namespace replay;

struct Options {
    std::string file;
    std::string client;
    std::string speed = "1";
    size_t until = SIZE_MAX;
    Settings settings;
};

constexpr const char *kMax = "max";
constexpr double kLeastSpeed = 0.001;
constexpr double kMostSpeed = 1000;
constexpr double kMostPatience = 3600;

std::string fault_of_speed(const std::string &word) {
    double speed = 0;
    const bool fits = CLI::detail::lexical_cast(word, speed) && speed >= kLeastSpeed && speed <= kMostSpeed;
    return fits || word == kMax ? std::string() : word + " is neither max nor a number from 0.001 to 1000";
}

void describe(CLI::App &app, Options &options) {
    Settings &settings = options.settings;
    app.add_option("file", options.file, "The recording")->required()->type_name("FILE");
    app.add_option("command", settings.command, "The daemon and its arguments, behind --")->required();
    app.add_option("--client", options.client, "Whose part it plays, where the recording has several: name or number")
        ->type_name("NAME|N");
    app.add_option("--speed", options.speed, "How many times as fast as it was, or max: as fast as it reads")
        ->check(fault_of_speed)
        ->type_name("N|max")
        ->capture_default_str();
    app.add_option("--until", options.until, "Stop behind this packet, until Enter")
        ->check(CLI::PositiveNumber)
        ->type_name("N");
    app.add_flag("--step", settings.step, "Wait for Enter before each packet that is for the daemon");
    app.add_flag("--compare", settings.compare, "Say where what the daemon sends differs from the recording");
    app.add_option("--patience", settings.patience, "Seconds that are waited for what the daemon did in the recording")
        ->check(CLI::Range(0.0, kMostPatience))
        ->type_name("SECONDS")
        ->capture_default_str();
    app.footer("The daemon has its output; what it sends to the server is shown on standard error.\n"
               "Exit status: 0 played; 1 --compare found a difference; 2 the recording cannot be read or the daemon "
               "ended early; 64 bad usage.");
}

int play_file(const CLI::App & /*app*/, Options &options) {
    Settings &settings = options.settings;
    settings.speed = options.speed == kMax ? 0 : std::stod(options.speed);
    const recording::Recording recording = recording::read_file(options.file, options.until);
    settings.stop = recording.packets.size() == options.until;
    settings.choice = choose(recording.packets, options.client);
    sandbox::end_on_signals();
    std::signal(SIGPIPE, SIG_IGN); // a daemon that goes, or nobody who reads our lines
    return play(recording, settings);
}

constexpr tools::Program<Options> kProgram = {
    "bridge-replay", "Plays a recording of the bridge service to a daemon, in a world of its own.", describe, play_file,
    kFailed};

} // namespace

int main(int argc, char **argv) {
    return tools::main_of(kProgram, argc, argv);
}
