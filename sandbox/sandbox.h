// Everything that a command can reach.
#pragma once

#include "sandbox/bridge.h"
#include "sandbox/command.h"
#include "sandbox/loop.h"
#include "sandbox/trace.h"
#include "sandbox/traffic.h"

#include <map>
#include <random>
#include <string>

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
          bridge(loop, options.tmpdir, trace, rules, options.slave), traffic(loop, bridge.addresses()) {}

    // The kernel and the tables; not before the server listens, and so is the only one. Throws std::runtime_error.
    void open();
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
};

// The families of commands; each is a table in the file that its name tells.
Family core_commands();     // core_commands.cpp
Family client_commands();   // client_commands.cpp
Family wait_commands();     // wait_commands.cpp
Family rule_commands();     // rule_commands.cpp
Family port_commands();     // vlan_commands.cpp
Family link_commands();     // link_commands.cpp
Family vlan_commands();     // the same
Family mac_commands();      // mac_commands.cpp
Family group_commands();    // group_commands.cpp
Family super_commands();    // super_commands.cpp
Family topology_commands(); // topology_commands.cpp
std::span<const Family> all_commands();

// What a client shows of itself.
Fields client_fields(const Connection &client);

// Runs one line; one that says nothing is answered with nothing. Throws std::exception with the reason when it fails.
Outcome run_command(Sandbox &sandbox, const std::string &line, Session &session);

} // namespace sandbox
