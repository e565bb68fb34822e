// bridge-sandbox run: a private world for one command, or for a script about it.
#include "sandbox/command.h"
#include "sandbox/programs.h"
#include "sandbox/script.h"
#include "sandbox/world.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

namespace sandbox {

namespace {

constexpr size_t kLastLines = 50;

struct RunOptions {
    std::string script;
    double time_scale = environment_time_scale();
    std::vector<std::string> command;
};

class Stage {
  public:
    explicit Stage(const RunOptions &options) : options_(options), world_(options.time_scale) {
        end_on_signals();
        world_.start_kernel();
        world_.start_server();
        daemon_ = world_.start(options.command);
    }

    int run() {
        const int status = options_.script.empty() ? World::wait(daemon_) : run_script();
        if (status != 0)
            std::fprintf(stderr, "bridge-sandbox: status %d; what happened last:\n%s", status,
                         world_.last_lines(kLastLines).c_str());
        return status;
    }

  private:
    // The script decides: its last line's success is that of the run, whatever becomes of the daemon.
    int run_script() {
        Script script;
        script.add_file(options_.script);
        while (const std::optional<std::string> line = script.next()) {
            try {
                if (is_told_to_end())
                    throw std::runtime_error("interrupted");
                run_line(*line);
            } catch (const std::exception &error) {
                std::fprintf(stderr, "bridge-sandbox: %s: %s: %s\n", options_.script.c_str(), line->c_str(),
                             error.what());
                return EXIT_FAILURE;
            }
        }
        return EXIT_SUCCESS;
    }

    struct Row {
        const char *words;
        void (Stage::*run)();
    };
    static const Row kRows[];

    void run_line(const std::string &line);
    void kill_server() { world_.kill_server(); }
    void start_server() { world_.start_server(); }
    void end_daemon() {
        kill(daemon_, SIGTERM);
        wait_for_daemon();
    }
    void start_daemon() { daemon_ = world_.start(options_.command); }
    void wait_for_daemon() {
        const int status = World::wait(daemon_);
        if (status != 0)
            throw std::runtime_error("the daemon ended with status " + std::to_string(status));
    }

    const RunOptions &options_;
    World world_;
    pid_t daemon_ = -1;
};

const Stage::Row Stage::kRows[] = {
    {"server kill", &Stage::kill_server},     {"server start", &Stage::start_server},
    {"daemon end", &Stage::end_daemon},       {"daemon start", &Stage::start_daemon},
    {"daemon wait", &Stage::wait_for_daemon},
};

// The lines about the world's processes are for this program, the others for the server.
void Stage::run_line(const std::string &line) {
    std::string words;
    for (const std::string &word : split(line))
        words += (words.empty() ? "" : " ") + word;
    for (const Row &row : kRows)
        if (words == row.words)
            return (this->*row.run)();
    const ControlClient::Reply reply = world_.run(line);
    if (!reply.ok)
        throw std::runtime_error(reply.text.substr(0, reply.text.find('\n')));
    std::fputs(reply.text.c_str(), stdout);
}

} // namespace

int run(int argc, char **argv) {
    RunOptions options;
    CLI::App app("Runs a command in a private world: an own TMPDIR and VSDID, a server, the kernel's bridge module. "
                 "Everything is removed at the end. The exit status is the command's; with a script, 0 or 1 as the "
                 "script went.");
    app.add_option("--script", options.script,
                   "Commands of the server, and: server kill|start, daemon start|end|wait. The command is the daemon "
                   "that they are about")
        ->type_name("FILE");
    app.add_option("--time-scale", options.time_scale, "How many times as fast as the wall's all clocks run")
        ->check(CLI::Range(1.0, 1000.0));
    app.add_option("command", options.command, "The command and its arguments, behind --")->required();
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    return Stage(options).run();
}

} // namespace sandbox
