// bridge-sandbox without a subcommand: the server itself.
#include "sandbox/console.h"
#include "sandbox/control.h"
#include "sandbox/local_socket.h"
#include "sandbox/programs.h"
#include "sandbox/trace.h"
#include "wire/segments.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <list>
#include <optional>
#include <stdexcept>
#include <unistd.h>

namespace sandbox {

namespace {

struct ServeOptions : Options {
    std::string role = "master";
    std::vector<std::string> scripts;
    std::string trace_file;
    bool fresh = false;
    bool quiet = false;
    bool with_time = false;
};

class Program {
  public:
    explicit Program(const ServeOptions &options)
        : options_(options), sandbox_(options), control_(sandbox_, options.tmpdir) {
        if (!options.quiet)
            console_ = print_records(sandbox_.trace, options.with_time);
        if (!options.trace_file.empty())
            trace_file_ = write_records(sandbox_.trace, options.trace_file);
        for (const int number : {SIGINT, SIGTERM})
            end_on(number);
        for (const std::string &path : options.scripts)
            add_stream([this, path](const std::string &error) {
                std::fprintf(stderr, "bridge-sandbox: error in %s: %s\n", path.c_str(), escaped(error).c_str());
                exit_code_ = EXIT_FAILURE;
                sandbox_.end();
                return false;
            }).add_script(path);
    }

    int run() {
        const int32_t vsd = wire::vsd_of_environment();
        sandbox_.bridge.server.listen(); // before it touches what may belong to another server
        if (options_.fresh)
            remove_tables(vsd);
        const size_t found = wire::system_objects(vsd).size();
        sandbox_.open();
        control_.listen();
        say("listening at %s, VSDID %d, seed %llu", escaped(sandbox_.bridge.server.path()).c_str(), vsd,
            static_cast<unsigned long long>(options_.seed));
        if (found != 0)
            say("the tables of VSDID %d were there already; --fresh begins without them", vsd);
        const StandardInput input(sandbox_.loop, add_stream([](const std::string &error) {
                                      say("error: %s", escaped(error).c_str());
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
        const auto end = [](evutil_socket_t, short, void *sandbox) { static_cast<Sandbox *>(sandbox)->end(); };
        signals_.emplace_back(evsignal_new(sandbox_.loop.base(), number, end, &sandbox_));
        event_add(signals_.back().get(), nullptr);
    }

    const ServeOptions &options_;
    Sandbox sandbox_;
    Control control_;
    Trace::Subscription console_;
    Trace::Subscription trace_file_;
    std::list<CommandStream> streams_;
    std::list<Event> signals_;
    int exit_code_ = EXIT_SUCCESS;
};

// A descriptor that stands for a standard stream must not become a socket.
void open_standard_streams() {
    while (true) {
        const int fd = open("/dev/null", O_RDWR);
        if (fd > STDERR_FILENO || fd < 0) {
            close(fd);
            return;
        }
    }
}

} // namespace

int serve(int argc, char **argv) {
    ServeOptions options;
    options.tmpdir = environment("TMPDIR");
    options.time_scale = environment_time_scale();
    CLI::App app("A bridge server for workstations: host daemons connect to it as they do on the switch. It takes "
                 "commands on standard input (try help), from scripts and through \"bridge-sandbox ctl\".\n"
                 "Other subcommands: " +
                 program_names());
    app.add_option("--tmpdir", options.tmpdir, "Where clients look for the server; TMPDIR by default")
        ->type_name("DIR");
    app.add_option("--script", options.scripts, "Commands to run first; a failing one ends the server with status 1")
        ->type_name("FILE");
    app.add_option("--role", options.role, "The clients' role: master or slave")
        ->check(CLI::IsMember({"master", "slave"}));
    app.add_flag("--fresh", options.fresh, "Remove the tables in shared memory that an earlier server left");
    app.add_option("--time-scale", options.time_scale, "How many times as fast as the wall's its clock runs")
        ->check(CLI::Range(1.0, 1000.0));
    app.add_option("--seed", options.seed, "Where its random numbers begin");
    app.add_option("--trace", options.trace_file, "Write everything that happens there, a JSON object a line")
        ->type_name("FILE");
    app.add_flag("-q,--quiet", options.quiet, "Print the answers to commands alone");
    app.add_flag("-t,--time", options.with_time, "Print the time of everything that happens");
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    options.slave = options.role == "slave";
    if (options.tmpdir.empty())
        throw std::runtime_error("TMPDIR is not set");
    open_standard_streams();
    return Program(options).run();
}

} // namespace sandbox
