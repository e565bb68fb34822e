// bridge-monitor run as a program beside a sandbox server.
#pragma once

#include "tests/support/children.h"
#include "tests/system/workstation.h"

#include <nlohmann/json.hpp>

#include <csignal>
#include <fstream>
#include <sstream>

namespace test {

class Monitor : public Workstation {
  protected:
    using Words = std::vector<std::string>;

    // The program with its standard error in a file of its own.
    [[nodiscard]] Process start(const Words &words, Words environment = {}) const {
        Words command{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>" + error_path(), BRIDGE_MONITOR};
        command.insert(command.end(), words.begin(), words.end());
        const Words host = host_environment();
        environment.insert(environment.end(), host.begin(), host.end());
        return Process(command, environment);
    }

    // The same, behind the VLANs and ports that the tables told it at the start.
    [[nodiscard]] Process follow(Process &server, const Words &words, const Words &environment = {}) const {
        Process program = start(words, environment);
        run(server, "wait request BRIDGE_EVENT_ORI_DATA_REQUEST from bridge-monitor");
        return program;
    }
    // A slave is told nothing at the start.
    [[nodiscard]] Process follow_as_slave(Process &server, const Words &words, const Words &environment = {}) const {
        Process program = start(words, environment);
        run(server, "wait client bridge-monitor registered");
        return program;
    }

    // Asks it to end; what it printed in all.
    [[nodiscard]] static std::string output_of(Process &program, int signal = SIGINT) {
        program.signal(signal);
        EXPECT_EQ(program.wait(), 0);
        program.drain();
        return program.output();
    }

    [[nodiscard]] std::string errors() const {
        std::stringstream text;
        text << std::ifstream(error_path()).rdbuf();
        return text.str();
    }

    // The objects of lines of JSON.
    [[nodiscard]] static std::vector<nlohmann::ordered_json> objects(const std::string &text) {
        std::vector<nlohmann::ordered_json> all;
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
            all.push_back(nlohmann::ordered_json::parse(line));
        return all;
    }

    // A program that ends by itself, without a server: its status.
    [[nodiscard]] int status_of(const Words &words) const { return start(words).wait().value_or(-1); }

  private:
    [[nodiscard]] std::string error_path() const { return tmpdir() + "/monitor-errors"; }
};

} // namespace test
