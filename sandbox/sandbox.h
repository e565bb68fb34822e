// Everything that a command can reach.
#pragma once

#include "sandbox/back_end.h"
#include "sandbox/bridge.h"

namespace sandbox {

struct Options {
    std::string tmpdir;
    bool slave = false;
    double time_scale = 1;
    uint64_t seed = std::random_device()();
};

struct Sandbox {
    explicit Sandbox(const Options &options)
        : loop(options.time_scale), trace(loop), random(options.seed),
          bridge(loop, options.tmpdir, trace, rules, options.slave), traffic(loop, bridge.addresses) {}

    // The kernel and the tables; not before the server listens, and so is the only one. Throws std::runtime_error.
    void open() {
        bridge.kernel.open();
        Vlans::open();
        Groups::open();
    }
    // No more commands are run, and the loop ends.
    void end() {
        ending = true;
        loop.end();
    }

    bool ending = false;
    std::map<std::string, uint64_t> marks; // names for places in the trace
    Loop loop;
    Trace trace;
    std::mt19937_64 random; // all randomness comes from here
    Rules rules;
    Bridge bridge;
    Traffic traffic;
    std::unique_ptr<BackEnd> back_end; // null without one
};

// The families of commands; each is a table in the file that its name tells, rules.cpp for the last one.
extern const Family client_commands;
extern const Family wait_commands;
extern const Family switch_commands;
extern const Family mac_commands;
extern const Family rule_commands;
std::span<const Family> all_commands();

// Runs one line; one that says nothing is answered with nothing. Throws std::exception with the reason when it fails.
Outcome run_command(Sandbox &sandbox, const std::string &line, Session &session);

} // namespace sandbox
