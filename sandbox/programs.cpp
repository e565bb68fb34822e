// The subcommands by their names, and what their command lines share.
#include "sandbox/programs.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>

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

} // namespace sandbox
