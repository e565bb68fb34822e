// bridge-sandbox: a switch on a workstation.
#include "sandbox/programs.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>

namespace sandbox {

namespace {

constexpr struct {
    const char *name;
    int (*main)(int argc, char **argv);
} kPrograms[] = {
    {"clean", clean},
    {"ctl", control},
    {"kernel", kernel_main},
    {"run", run},
};

int start(int argc, char **argv) {
    for (const auto &program : kPrograms)
        if (argc > 1 && std::strcmp(argv[1], program.name) == 0)
            return program.main(argc - 1, argv + 1);
    return serve(argc, argv);
}

} // namespace

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

} // namespace sandbox

// NOLINTNEXTLINE(bugprone-exception-escape): out of memory before there is anything to say it with
int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    try {
        return sandbox::start(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "bridge-sandbox: %s\n", error.what());
        return EXIT_FAILURE;
    }
}
