#include "sandbox/programs.h"

#include "sandbox/console.h"
#include "sandbox/kernel_link.h"
#include "sandbox/world.h"
#include "tools/tap/relay.h"
#include "wire/segments.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <iostream>
#include <sstream>

namespace sandbox {

namespace {

constexpr Milliseconds kRecordingPatience{5000}; // with a server that does not read what the last clients have left

constexpr const char *kNoPlace = "TMPDIR is not set";
constexpr const char *kUsage = "usage: bridge-sandbox ctl [--json] COMMAND...\n"
                               "Runs a command of the server in this TMPDIR and prints its answer (try: ctl help). The "
                               "exit status is 0, or 1\nwhen it fails. With - for the command, each line of standard "
                               "input is one, up to the first that fails.\n";

// Where a world is and how fast its clock runs, by its environment or by option.
void add_world_options(CLI::App &app, std::string &tmpdir, double &time_scale) {
    tmpdir = environment("TMPDIR");
    time_scale = environment_time_scale();
    app.add_option("--tmpdir", tmpdir, "Where clients look for it; TMPDIR by default")->type_name("DIR");
    add_time_scale(app, time_scale, "How many times as fast as the wall's clock its time runs");
}

// Between a server or a kernel and its clients, for a recording.
struct Recording {
    Recording(Loop &loop, const std::string &server, const std::string &clients, const std::string &file)
        : recorder(file, "bridge-sandbox", wire::vsd_of_environment()), relay(loop, server, clients, recorder) {}

    recording::Recorder recorder;
    tap::Relay relay;
};

// True when it went well.
bool run_one(ControlClient &client, const std::string &command, bool json) {
    const ControlClient::Reply reply = client.run(command, json);
    const bool to_output = reply.ok || json;
    std::fprintf(to_output ? stdout : stderr, "%s%s", to_output ? "" : "error: ", reply.text.c_str());
    std::fflush(stdout);
    return reply.ok;
}

// Each line's commands up to the first that fails. A repetition is taken apart here, as the server gives one answer to
// each command.
bool run_lines(ControlClient &client, std::istream &input, bool json) {
    Script script;
    for (std::string line; std::getline(input, line);) {
        script.add(line);
        while (const std::optional<std::string> command = script.next())
            if (!run_one(client, *command, json))
                return false;
    }
    fail_if(!script.empty(), "a repetition has no end");
    return true;
}

struct ServeOptions : Options {
    std::string role = "master";
    std::vector<std::string> scripts;
    std::string trace_file;
    std::string recording;
    std::string front;  // the clients' TMPDIR, which is another one than the server's when they are recorded
    std::string bridge; // to carry real frames
    bool fresh = false;
    bool quiet = false;
    bool with_time = false;
};

class Program {
  public:
    explicit Program(const ServeOptions &options)
        : options_(options), sandbox_(options), control_(sandbox_, options.front) {
        if (!options.quiet)
            console_ = print_records(sandbox_.trace, options.with_time);
        if (!options.trace_file.empty())
            trace_file_ = write_records(sandbox_.trace, options.trace_file);
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
        if (!options_.bridge.empty())
            sandbox_.back_end = open_back_end(sandbox_, options_.tmpdir, options_.bridge);
        control_.listen();
        if (!options_.recording.empty())
            recording_.emplace(sandbox_.loop, options_.tmpdir, options_.front, options_.recording);
        say("listening at " + escaped(socket_path(options_.front, ".server_socket")) + ", VSDID " +
            std::to_string(vsd) + ", seed " + std::to_string(options_.seed));
        if (found != 0)
            say("the tables of VSDID " + std::to_string(vsd) + " were there already; --fresh begins without them");
        const StandardInput input(sandbox_.loop, add_stream([](const std::string &error) {
                                      say("error: " + escaped(error));
                                      return true;
                                  }));
        sandbox_.loop.run();
        if (sandbox_.back_end != nullptr)
            sandbox_.back_end->restore();
        return exit_code_;
    }

  private:
    CommandStream &add_stream(std::function<bool(const std::string &)> failed) {
        const auto answered = [](const Answer &answer) {
            for (const std::string &line : answer.lines())
                say(line);
        };
        return streams_.emplace_back(sandbox_, answered, std::move(failed));
    }

    const ServeOptions &options_;
    Sandbox sandbox_;
    Control control_;
    std::optional<Recording> recording_;
    Trace::Subscription console_;
    Trace::Subscription trace_file_;
    std::list<CommandStream> streams_;
    EndOnSignals signals_{sandbox_.loop, [this] { sandbox_.end(); }};
    int exit_code_ = EXIT_SUCCESS;
};

// A descriptor that stands for a standard stream must not become a socket.
void open_standard_streams() {
    int fd = 0;
    while ((fd = open("/dev/null", O_RDWR)) >= 0 && fd <= STDERR_FILENO) {
    }
    close(fd);
}

} // namespace

int bad_usage(const std::string &text) {
    std::fputs(text.c_str(), stderr);
    return kBadUsage;
}

std::optional<int> parse_command_line(CLI::App &app, int argc, char **argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success &help) {
        return app.exit(help);
    } catch (const CLI::ParseError &error) {
        return bad_usage("bridge-sandbox: " + escaped(error.what()) + "\n");
    }
}

std::string environment(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

void add_time_scale(CLI::App &app, double &time_scale, const std::string &what) {
    const auto is_scale = [](const std::string &word) {
        double value = 0;
        const bool fits = CLI::detail::lexical_cast(word, value) && value >= 1 && value <= 1000; // nan is neither
        return fits ? std::string() : word + " is no number from 1 to 1000";
    };
    app.add_option("--time-scale", time_scale, what)->check(is_scale);
}

double environment_time_scale() {
    const double scale = std::strtod(environment("QV_THREAD_TIME_SCALE").c_str(), nullptr);
    return scale >= 1 && scale <= 1000 ? scale : 1;
}

CLI::Option *add_recording(CLI::App &app, std::string &file) {
    return app.add_option("--record", file, "Record what clients and server say there, for tshark and bridge-replay")
        ->type_name("FILE");
}

size_t remove_tables(int32_t vsd) {
    const std::vector<wire::SystemObject> objects = wire::system_objects(vsd);
    for (const wire::SystemObject &object : objects)
        if (!wire::remove(object))
            throw std::runtime_error("cannot remove the " + wire::text_of(object) + ": " + std::strerror(errno));
    return objects.size();
}

namespace {

int clean(int argc, char **argv) {
    CLI::App app("Removes the tables in shared memory of this VSDID. A process that has them open keeps them, but no "
                 "other one finds them any more.");
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    const int32_t vsd = wire::vsd_of_environment();
    say("VSDID " + std::to_string(vsd) + ": " + std::to_string(remove_tables(vsd)) + " objects removed");
    return EXIT_SUCCESS;
}

int control(int argc, char **argv) {
    Words words(argv + 1, argv + argc);
    const bool json = std::erase(words, "--json") != 0;
    for (const std::string &word : words) {
        if (word == "--help" || word == "-h") {
            std::fputs(kUsage, stdout);
            return EXIT_SUCCESS;
        }
        if (word.starts_with("--"))
            return bad_usage("bridge-sandbox ctl: no such option: " + escaped(word) + "\n" + kUsage);
    }
    const std::string command = join(words);
    if (command.empty())
        return bad_usage(kUsage);
    fail_if(environment("TMPDIR").empty(), kNoPlace);
    ControlClient client(environment("TMPDIR"));
    std::istringstream one(command);
    return run_lines(client, command == "-" ? std::cin : one, json) ? EXIT_SUCCESS : EXIT_FAILURE;
}

// The kernel's bridge module in a process of its own, for servers that come and go.
int kernel_main(int argc, char **argv) {
    std::string tmpdir;
    std::string file;
    double time_scale = 1;
    CLI::App app("The kernel's bridge module of a workstation, in a process of its own: it keeps its addresses when "
                 "the server ends. Start it before the server.");
    add_world_options(app, tmpdir, time_scale);
    add_recording(app, file)->description("Record what clients say that have " + std::string(kRecorded + 1) +
                                          " below its TMPDIR for theirs");
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    fail_if(tmpdir.empty(), kNoPlace);
    Loop loop(time_scale);
    const EndOnSignals signals(loop, [&loop] { loop.end(); });
    KernelService kernel(loop, tmpdir);
    kernel.listen();
    std::optional<Recording> recording;
    if (!file.empty())
        recording.emplace(loop, tmpdir, tmpdir + kRecorded, file);
    say("listening at " + kernel.path());
    loop.run();
    if (recording)
        recording->relay.finish(kRecordingPatience);
    return EXIT_SUCCESS;
}

// Each is a main of its own; argv[0] is the program's name. They throw std::exception with what went wrong.
constexpr struct {
    const char *name;
    int (*main)(int argc, char **argv);
} kPrograms[] = {
    {"check", check}, {"clean", clean}, {"ctl", control}, {"kernel", kernel_main}, {"run", run},
};

// "ctl, run"
std::string program_names() {
    std::string names;
    for (const auto &program : kPrograms)
        names += (names.empty() ? "" : ", ") + std::string(program.name);
    return names;
}

int serve(int argc, char **argv) {
    ServeOptions options;
    CLI::App app("A bridge server for workstations: host daemons connect to it as they do on the switch. It takes "
                 "commands on standard input (try help), from scripts and through \"bridge-sandbox ctl\".\n"
                 "Other subcommands: " +
                 program_names());
    add_world_options(app, options.tmpdir, options.time_scale);
    app.add_option("--script", options.scripts, "Commands to run first; a failing one ends the server with status 1")
        ->type_name("FILE");
    app.add_option("--role", options.role, "The clients' role: master or slave")
        ->check(CLI::IsMember({"master", "slave"}));
    if (open_back_end != nullptr)
        app.add_option("--bridge", options.bridge, "A Linux bridge that does what the switch says, and is followed")
            ->type_name("NAME");
    app.add_flag("--fresh", options.fresh, "Remove the tables in shared memory that an earlier server left");
    app.add_option("--seed", options.seed, "Where its random numbers begin")->check([](const std::string &word) {
        return word[0] == '-' ? word + " is below 0" : std::string();
    });
    app.add_option("--trace", options.trace_file, "Write everything that happens there, a JSON object a line")
        ->type_name("FILE");
    add_recording(app, options.recording);
    app.add_flag("-q,--quiet", options.quiet, "Print the answers to commands alone");
    app.add_flag("-t,--time", options.with_time, "Print the time of everything that happens");
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    options.slave = options.role == "slave";
    fail_if(options.tmpdir.empty(), kNoPlace);
    open_standard_streams();
    options.front = options.tmpdir;
    if (options.recording.empty())
        return Program(options).run();
    options.tmpdir += "/srv"; // the clients find the recording in its place
    const tap::Place place(options.tmpdir);
    return Program(options).run();
}

} // namespace

int start(int argc, char **argv) {
    for (const auto &program : kPrograms)
        if (argc > 1 && std::strcmp(argv[1], program.name) == 0)
            return program.main(argc - 1, argv + 1);
    return serve(argc, argv);
}

} // namespace sandbox
