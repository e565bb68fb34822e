// How the programs here begin with their command line, and how they end when something goes wrong.
#pragma once

#include <CLI/CLI.hpp>

#include <exception>
#include <iostream>
#include <stdexcept>

namespace tools {

inline constexpr int kBadUsage = 64;

template <class Options> struct Program {
    const char *name;
    const char *purpose;
    void (*describe)(CLI::App &app, Options &options);
    // The status to end with; std::invalid_argument tells of bad usage.
    int (*run)(const CLI::App &app, Options &options);
    int failed; // the status after any other exception
};

// One line for people; gives the status to end with.
inline int fail(const char *program, int status, const std::exception &error) {
    std::cerr << program << ": " << error.what() << '\n';
    return status;
}

// What main gives. Help that was asked for is no failure.
template <class Options> int main_of(const Program<Options> &program, int argc, char **argv) {
    try {
        Options options;
        CLI::App app(program.purpose, program.name);
        program.describe(app, options);
        try {
            app.parse(argc, argv);
            return program.run(app, options);
        } catch (const CLI::ParseError &error) {
            return app.exit(error) == 0 ? 0 : kBadUsage;
        }
    } catch (const std::invalid_argument &error) {
        return fail(program.name, kBadUsage, error);
    } catch (const std::exception &error) {
        return fail(program.name, program.failed, error);
    }
}

} // namespace tools
