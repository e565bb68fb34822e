// bridge-sandbox: a bridge server for workstations.
#include "sandbox/bridge.h"
#include "sandbox/commands.h"
#include "sandbox/console.h"
#include "sandbox/output.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace sandbox;

struct Options {
    std::string tmpdir;
    std::vector<std::string> scripts;
    bool slave = false;
};

class Program {
  public:
    explicit Program(const Options &options)
        : base_(event_base_new()), bridge_(base_.get(), options.tmpdir, options.slave),
          kernel_(base_.get(), options.tmpdir, bridge_.addresses()),
          commands_(bridge_, kernel_, [this] { event_base_loopbreak(base_.get()); }) {
        bridge_.on_change = [this] {
            for (CommandStream &stream : streams_)
                stream.wake();
        };
        for (const int number : {SIGINT, SIGTERM})
            end_on(number);
        for (const std::string &path : options.scripts)
            add_script(add_stream([this, path](const std::string &error) {
                           say("error in %s: %s", path.c_str(), error.c_str());
                           exit_code_ = EXIT_FAILURE;
                           event_base_loopbreak(base_.get());
                           return false;
                       }),
                       path);
    }

    int run() {
        bridge_.server().listen();
        kernel_.listen();
        Vlans::open(); // not before this is the only server
        say("listening at %s", bridge_.server().path().c_str());
        const StandardInput input(base_.get(), add_stream([](const std::string &error) {
                                      say("error: %s", error.c_str());
                                      return true;
                                  }));
        event_base_dispatch(base_.get());
        return exit_code_;
    }

  private:
    CommandStream &add_stream(CommandStream::Failed failed) {
        return streams_.emplace_back(base_.get(), commands_, std::move(failed));
    }
    void end_on(int number) {
        const auto end = [](evutil_socket_t, short, void *base) {
            event_base_loopbreak(static_cast<event_base *>(base));
        };
        signals_.emplace_back(evsignal_new(base_.get(), number, end, base_.get()));
        event_add(signals_.back().get(), nullptr);
    }

    EventBase base_;
    Bridge bridge_;
    Kernel kernel_;
    Commands commands_;
    std::list<CommandStream> streams_;
    std::list<Event> signals_;
    int exit_code_ = EXIT_SUCCESS;
};

std::string environment(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

} // namespace

// NOLINTNEXTLINE(bugprone-exception-escape): out of memory before there is anything to say it with
int main(int argc, char **argv) {
    try {
        Options options;
        options.tmpdir = environment("TMPDIR");
        std::string role = "master";
        CLI::App app("A bridge server for workstations: host daemons connect to it as they do on the switch. It takes "
                     "commands on standard input (try help) and from scripts.");
        app.add_option("--tmpdir", options.tmpdir, "Where clients look for the server; TMPDIR by default")
            ->type_name("DIR");
        app.add_option("--script", options.scripts,
                       "Commands to run first; a failing one ends the server with status 1")
            ->type_name("FILE");
        app.add_option("--role", role, "The clients' role: master or slave")->check(CLI::IsMember({"master", "slave"}));
        CLI11_PARSE(app, argc, argv);
        options.slave = role == "slave";
        std::signal(SIGPIPE, SIG_IGN);
        if (options.tmpdir.empty())
            throw std::runtime_error("TMPDIR is not set");
        return Program(options).run();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "bridge-sandbox: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
