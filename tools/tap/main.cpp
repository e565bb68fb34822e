// bridge-tap: records what a daemon and a bridge server say to each other.
#include "sandbox/world.h"
#include "tools/command_line.h"
#include "tools/tap/relay.h"
#include "wire/segments.h"

#include <csignal>
#include <cstdlib>

namespace {

constexpr int kFailed = 1;

constexpr sandbox::Milliseconds kPatience{5000}; // with a server that does not read what the command has left

struct Options {
    std::string file = "bridge.pcapng";
    std::string server;
    std::string listen;
    std::vector<std::string> command;
};

void describe(CLI::App &app, Options &options) {
    const char *tmpdir = std::getenv("TMPDIR");
    options.server = tmpdir != nullptr ? tmpdir : "";
    app.add_option("-o,--output", options.file, "The recording, for tshark and bridge-replay")
        ->capture_default_str()
        ->type_name("FILE");
    app.add_option("--server", options.server, "The TMPDIR of the server; by default the one of this program")
        ->type_name("DIR");
    app.add_option("--listen", options.listen,
                   "The TMPDIR for those that are recorded: another one, made when it is not there")
        ->type_name("DIR")
        ->required();
    app.add_option("command", options.command,
                   "A daemon and its arguments, behind --; without one, all that connect are recorded until a signal "
                   "comes");
    app.footer("SIGINT, SIGTERM and SIGHUP go on to the command.\n"
               "Exit status: the command's, 128 and the number of the signal that ended it; 1 the recording or the "
               "command could not be begun; 64 bad usage.");
}

class Tap {
  public:
    explicit Tap(const Options &options)
        : recorder_(options.file, "bridge-tap", wire::vsd_of_environment()),
          relay_(loop_, options.server, options.listen, recorder_) {
        const auto on_signal = [](evutil_socket_t number, short, void *self) {
            static_cast<Tap *>(self)->take_signal(static_cast<int>(number));
        };
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGCHLD})
            event_add(signals_.emplace_back(evsignal_new(loop_.base(), number, on_signal, this)).get(), nullptr);
        if (!options.command.empty())
            command_ = sandbox::spawn(options.command, sandbox::environment_with({"TMPDIR=" + options.listen}), {});
    }

    int run() {
        loop_.run();
        relay_.finish(kPatience);
        return status_;
    }

  private:
    void take_signal(int number) {
        if (number == SIGCHLD) {
            if (const std::optional<int> status = sandbox::World::ended(command_, {})) {
                status_ = *status;
                loop_.end();
            }
        } else if (command_ > 0) {
            kill(command_, number);
        } else
            loop_.end();
    }

    sandbox::Loop loop_;
    recording::Recorder recorder_;
    tap::Relay relay_;
    std::list<sandbox::Event> signals_;
    pid_t command_ = -1;
    int status_ = 0;
};

int record(const CLI::App & /*app*/, Options &options) {
    if (options.server.empty())
        throw CLI::RequiredError("--server, as TMPDIR is not set,");
    std::error_code ignored;
    if (std::filesystem::equivalent(options.server, options.listen, ignored))
        throw CLI::ValidationError("--listen", "is the server's own directory");
    return Tap(options).run();
}

constexpr tools::Program<Options> kProgram = {
    "bridge-tap", "Records what daemons and a bridge server say to each other.", describe, record, kFailed};

} // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    return tools::main_of(kProgram, argc, argv);
}
