// bridge-sandbox run: a private world for one command, or for a script about daemons.
#include "sandbox/command.h"
#include "sandbox/programs.h"
#include "sandbox/stage.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>

namespace sandbox {

namespace {

constexpr size_t kLastLines = 50;

struct RunOptions : StageOptions {
    std::string script;
};

// The script decides: its last line's success is that of the run, whatever becomes of the daemon.
int run_script(Stage &stage, const std::string &path) {
    Script script;
    script.add_file(path);
    while (const std::optional<std::string> line = script.next()) {
        try {
            fail_if(is_told_to_end(), "interrupted");
            std::fputs(stage.run(*line).c_str(), stdout);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "bridge-sandbox: %s: %s: %s\n", escaped(path).c_str(), escaped(*line).c_str(),
                         escaped(error.what()).c_str());
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}

int run_command(const RunOptions &options) {
    const std::string script = options.script.empty() ? "" : find_script(options.script);
    Stage stage(options);
    if (!options.command.empty())
        stage.start_daemon({});
    const int status = script.empty() ? stage.wait_for_daemon() : run_script(stage, script);
    if (status != 0)
        std::fprintf(stderr, "bridge-sandbox: status %d; what happened last:\n%s", status,
                     last_of(stage.world.lines(options.log), kLastLines).c_str());
    return status;
}

} // namespace

int run(int argc, char **argv) {
    RunOptions options;
    options.time_scale = environment_time_scale();
    CLI::App app("Runs a command in a private world: an own TMPDIR and VSDID, a server, the kernel's bridge module. "
                 "Everything is removed at the end. The exit status is the command's; with a script, 0 or 1 as the "
                 "script went. When it fails, the last that happened is printed.");
    CLI::Option *script = app.add_option(
        "--script", options.script,
        "Commands of the server, and: server kill|start, daemon start [COMMAND...], daemon end|wait. A file, or the "
        "name of a scenario that comes with the program. The command is the daemon that they are about");
    script->type_name("FILE");
    add_time_scale(app, options.time_scale, "How many times as fast as the wall's all clocks run");
    app.add_flag_callback(
        "--json", [&] { options.log = Log::kRecords; }, "Print what happened last as JSON, a record a line");
    add_recording(app, options.recording);
    app.add_option("command", options.command, "The command and its arguments, behind --");
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    if (options.command.empty() && options.script.empty())
        return bad_usage("bridge-sandbox run: a command or a script is needed\n");
    end_on_signals();
    return run_command(options);
}

} // namespace sandbox
