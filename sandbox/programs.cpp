#include "sandbox/programs.h"

#include "sandbox/kernel_link.h"
#include "sandbox/local_socket.h"
#include "sandbox/script.h"
#include "wire/segments.h"

#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace sandbox {

namespace {

constexpr struct {
    const char *name;
    int (*main)(int argc, char **argv);
} kPrograms[] = {
    {"check", check},
    {"clean", clean},
    {"ctl", control},
    {"kernel", kernel_main},
    {"run", run},
};

constexpr const char *kUsage = "usage: bridge-sandbox ctl [--json] COMMAND...\n"
                               "Runs a command of the server in this TMPDIR and prints its answer (try: ctl help). The "
                               "exit status is 0, or 1\nwhen it fails. With - for the command, each line of standard "
                               "input is one, up to the first that fails.\n";

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
    if (!script.empty())
        throw std::runtime_error("a repetition has no end");
    return true;
}

} // namespace

int start(int argc, char **argv) {
    for (const auto &program : kPrograms)
        if (argc > 1 && std::strcmp(argv[1], program.name) == 0)
            return program.main(argc - 1, argv + 1);
    return serve(argc, argv);
}

std::string program_names() {
    std::string names;
    for (const auto &program : kPrograms)
        names += (names.empty() ? "" : ", ") + std::string(program.name);
    return names;
}

std::optional<int> parse_command_line(CLI::App &app, int argc, char **argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success &help) {
        return app.exit(help);
    } catch (const CLI::ParseError &error) {
        std::fprintf(stderr, "bridge-sandbox: %s\n", error.what());
        return kBadUsage;
    }
}

std::string environment(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

double environment_time_scale() {
    const double scale = std::strtod(environment("QV_THREAD_TIME_SCALE").c_str(), nullptr);
    return scale >= 1 && scale <= 1000 ? scale : 1;
}

int clean(int argc, char **argv) {
    CLI::App app("Removes the tables in shared memory of this VSDID. A process that has them open keeps them, but no "
                 "other one finds them any more.");
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    const int32_t vsd = wire::vsd_of_environment();
    say("VSDID %d: %zu objects removed", vsd, remove_tables(vsd));
    return EXIT_SUCCESS;
}

size_t remove_tables(int32_t vsd) {
    const std::vector<wire::SystemObject> objects = wire::system_objects(vsd);
    for (const wire::SystemObject &object : objects)
        if (!wire::remove(object))
            throw std::runtime_error("cannot remove the " + wire::text_of(object) + ": " + std::strerror(errno));
    return objects.size();
}

int control(int argc, char **argv) {
    bool json = false;
    std::string command;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        if (word == "--help" || word == "-h") {
            std::fputs(kUsage, stdout);
            return EXIT_SUCCESS;
        }
        if (word == "--json") {
            json = true;
        } else if (word.substr(0, 2) == "--") {
            std::fprintf(stderr, "bridge-sandbox ctl: no such option: %s\n%s", word.c_str(), kUsage);
            return kBadUsage;
        } else
            command += (command.empty() ? "" : " ") + word;
    }
    if (command.empty()) {
        std::fputs(kUsage, stderr);
        return kBadUsage;
    }
    if (environment("TMPDIR").empty())
        throw std::runtime_error("TMPDIR is not set");
    ControlClient client(environment("TMPDIR"));
    std::istringstream one(command);
    return run_lines(client, command == "-" ? std::cin : one, json) ? EXIT_SUCCESS : EXIT_FAILURE;
}

int kernel_main(int argc, char **argv) {
    std::string tmpdir = environment("TMPDIR");
    double time_scale = environment_time_scale();
    CLI::App app("The kernel's bridge module of a workstation, in a process of its own: it keeps its addresses when "
                 "the server ends. Start it before the server.");
    app.add_option("--tmpdir", tmpdir, "Where clients look for it; TMPDIR by default")->type_name("DIR");
    app.add_option("--time-scale", time_scale, "How many times as fast as the wall's clock its time runs")
        ->check(CLI::Range(0.001, 100000.0));
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    if (tmpdir.empty())
        throw std::runtime_error("TMPDIR is not set");
    Loop loop(time_scale);
    const auto end = [](evutil_socket_t, short, void *subject) { static_cast<Loop *>(subject)->end(); };
    const Event interrupted(evsignal_new(loop.base(), SIGINT, end, &loop));
    const Event terminated(evsignal_new(loop.base(), SIGTERM, end, &loop));
    event_add(interrupted.get(), nullptr);
    event_add(terminated.get(), nullptr);
    KernelService kernel(loop, tmpdir);
    kernel.listen();
    say("listening at %s", kernel.path().c_str());
    loop.run();
    return EXIT_SUCCESS;
}

} // namespace sandbox
