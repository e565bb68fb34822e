// bridge-monitor: shows the events of the bridge service as they come.
#include "tools/command_line.h"
#include "tools/monitor/events.h"
#include "tools/monitor/monitor.h"
#include "wire/event.h"

#include <cstdlib>
#include <iostream>
#include <unistd.h>

namespace {

using namespace monitor;

enum Status { kFine = 0, kFailed = 1 };

struct Options {
    std::vector<std::string> words;
    std::string colour = "auto";
    bool list = false;
    Settings settings;
};

void describe(CLI::App &app, Options &options) {
    Settings &settings = options.settings;
    settings.name = "bridge-monitor";
    app.add_option("event", options.words,
                   "What to show: a group, an event by its name or number, a range FIRST-LAST (default: all). Of that "
                   "only what matches: port=IDS, vlan=IDS, mac=ADDRESS")
        ->type_name("[EVENT|FILTER]");
    app.add_flag("--json", settings.style.json, "A JSON object a line, the last one with the counters");
    app.add_flag("-t,--time", settings.style.time, "Begin each line with the time");
    app.add_flag("--summary", settings.style.summary, "Only count; show how often each event came at the end");
    app.add_option("--count", settings.count, "End after so many events")->check(CLI::PositiveNumber);
    app.add_option("--for", settings.seconds, "End after this time: seconds, or with a unit, as in 500ms or 2min")
        ->transform(
            CLI::AsNumberWithUnit(std::map<std::string, double>{{"ms", 0.001}, {"s", 1}, {"min", 60}, {"h", 3600}}))
        ->check(CLI::PositiveNumber)
        ->type_name("TIME");
    app.add_flag("--origin", settings.origin, "Ask for what there is already on every connection, not just the first");
    app.add_option("--name", settings.name, "The name told to the server")->capture_default_str();
    app.add_option("--color", options.colour, "Colours: auto (on a terminal), always, never")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->type_name("WHEN");
    app.add_flag("--list", options.list, "List the groups and events and end");
    app.footer("Ends with SIGINT or SIGTERM, and then shows the library's counters, in text on standard error.\n"
               "Exit status: 0 ended as asked; 1 there was no server, the library could not be started, or the output "
               "could not be written; 64 bad usage.");
}

bool is_coloured(const std::string &when) {
    const char *no_colour = std::getenv("NO_COLOR");
    const bool wanted = no_colour == nullptr || *no_colour == '\0';
    return when == "always" || (when == "auto" && wanted && isatty(STDOUT_FILENO) == 1);
}

void choose(Options &options) {
    std::vector<std::string> events;
    for (const std::string &word : options.words)
        if (word.find('=') != std::string::npos)
            options.settings.filter.add(word);
        else
            events.push_back(word);
    const Selection selection = select_events(events);
    options.settings.events = selection.events;
    options.settings.style.colour = is_coloured(options.colour);
    for (const uint32_t type : selection.questions)
        std::cerr << "bridge-monitor: " << wire::event_name(type)
                  << ": the server waits for an answer that a monitor does not give\n";
}

int show(const CLI::App & /*app*/, Options &options) {
    choose(options);
    if (options.list) {
        std::cout << known_words() << std::flush;
        return std::cout ? kFine : kFailed;
    }
    return monitor::run(options.settings) ? kFine : kFailed;
}

constexpr tools::Program<Options> kProgram = {"bridge-monitor", "Shows the events of the bridge service as they come.",
                                              describe, show, kFailed};

} // namespace

int main(int argc, char **argv) {
    return tools::main_of(kProgram, argc, argv);
}
