// bridge-sandbox: a bridge server for workstations.
#include "sandbox/console.h"
#include "sandbox/console_lines.h"
#include "sandbox/kernel_main.h"
#include "sandbox/output.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace sandbox;

class Program {
  public:
    Program(const Options &options, const std::vector<std::string> &scripts)
        : sandbox_(options), console_(sandbox_.trace, false) {
        for (const int number : {SIGINT, SIGTERM})
            end_on(number);
        for (const std::string &path : scripts)
            add_stream([this, path](const std::string &error) {
                say("error in %s: %s", path.c_str(), error.c_str());
                exit_code_ = EXIT_FAILURE;
                sandbox_.end();
                return false;
            }).add_script(path);
    }

    int run() {
        sandbox_.open();
        say("listening at %s", sandbox_.bridge.server().path().c_str());
        const StandardInput input(sandbox_.loop, add_stream([](const std::string &error) {
                                      say("error: %s", error.c_str());
                                      return true;
                                  }));
        sandbox_.loop.run();
        return exit_code_;
    }

  private:
    CommandStream &add_stream(std::function<bool(const std::string &)> failed) {
        const auto answered = [](const Answer &answer) {
            for (const std::string &line : answer.lines())
                say("%s", line.c_str());
        };
        return streams_.emplace_back(sandbox_, StreamOwner{answered, std::move(failed)});
    }
    void end_on(int number) {
        const auto end = [](evutil_socket_t, short, void *loop) { static_cast<Loop *>(loop)->end(); };
        signals_.emplace_back(evsignal_new(sandbox_.loop.base(), number, end, &sandbox_.loop));
        event_add(signals_.back().get(), nullptr);
    }

    Sandbox sandbox_;
    ConsoleLines console_;
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
    std::signal(SIGPIPE, SIG_IGN);
    try {
        if (argc > 1 && std::strcmp(argv[1], "kernel") == 0)
            return kernel_main(argc - 1, argv + 1);
        Options options;
        std::vector<std::string> scripts;
        options.tmpdir = environment("TMPDIR");
        std::string role = "master";
        CLI::App app("A bridge server for workstations: host daemons connect to it as they do on the switch. It takes "
                     "commands on standard input (try help) and from scripts.");
        app.add_option("--tmpdir", options.tmpdir, "Where clients look for the server; TMPDIR by default")
            ->type_name("DIR");
        app.add_option("--script", scripts, "Commands to run first; a failing one ends the server with status 1")
            ->type_name("FILE");
        app.add_option("--role", role, "The clients' role: master or slave")->check(CLI::IsMember({"master", "slave"}));
        CLI11_PARSE(app, argc, argv);
        options.slave = role == "slave";
        if (options.tmpdir.empty())
            throw std::runtime_error("TMPDIR is not set");
        return Program(options, scripts).run();
    } catch (const std::exception &error) {
        std::fprintf(stderr, "bridge-sandbox: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
