// bridge-sandbox ctl: commands for a server that runs.
#include "sandbox/control_client.h"
#include "sandbox/programs.h"
#include "sandbox/script.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace sandbox {

namespace {

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

} // namespace sandbox
