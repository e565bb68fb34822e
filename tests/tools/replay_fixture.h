// Sessions of a workstation's daemons recorded, and played to daemons.
#pragma once

#include "tests/system/workstation.h"
#include "tools/recording/reader.h"
#include "wire/batch.h"
#include "wire/segments.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

namespace test {

// What mac_table reads in the kernel's table, and then what the server tells it, each in its order. The two come by
// sockets of their own, and a recording has when they were sent, not which of them a busy daemon took first.
inline constexpr const char *kOfWalks[] = {"addresses", ":   entry ", " entries"};
inline std::string by_channel(const std::string &output) {
    std::string walks;
    std::string rest;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        const bool walked =
            std::ranges::any_of(kOfWalks, [&](const char *word) { return line.find(word) != std::string::npos; });
        (walked ? walks : rest) += line + '\n';
    }
    return walks + rest;
}

class Replay : public Workstation {
  protected:
    using Words = std::vector<std::string>;

    [[nodiscard]] std::string file() const { return tmpdir() + "/session.pcapng"; }
    [[nodiscard]] static std::string example(const std::string &name) {
        return std::filesystem::path(kPortWatch).parent_path().string() + "/" + name;
    }

    [[nodiscard]] Process start_recorded_server(const Words &more = {}) const {
        Words options{"--record", file()};
        options.insert(options.end(), more.begin(), more.end());
        return start_sandbox(options);
    }
    [[nodiscard]] static Process start_daemon(const Words &words) {
        Words command = words;
        command[0] = example(words[0]);
        return Process(command, host_environment());
    }
    // What it has printed in all.
    static std::string end_of(Process &daemon) {
        EXPECT_EQ(daemon.end(), 0);
        daemon.drain();
        return daemon.output();
    }

    // The program with its own lines in a file; what comes is the daemon's.
    [[nodiscard]] Process start_replay(const Words &options, const Words &daemon) const {
        Words command{"/bin/sh", "-c", "exec \"$0\" \"$@\" 2>" + tmpdir() + "/lines", BRIDGE_REPLAY};
        command.insert(command.end(), options.begin(), options.end());
        command.emplace_back("--");
        command.insert(command.end(), daemon.begin(), daemon.end());
        return Process(command, {"ASAN_OPTIONS=verify_asan_link_order=0"});
    }
    struct Played {
        int status;
        std::string daemon;
        std::string lines;
    };
    [[nodiscard]] Played play(const Words &options, const Words &daemon) const {
        Process program = start_replay(options, daemon);
        const int status = program.wait(60000).value_or(-1);
        program.drain();
        return {status, program.output(), lines()};
    }
    [[nodiscard]] std::string lines() const { return text_in(tmpdir() + "/lines"); }
    [[nodiscard]] static std::string text_in(const std::string &path) {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    static ::testing::AssertionResult has(const std::string &text, const std::string &part) {
        return text.find(part) != std::string::npos ? ::testing::AssertionSuccess()
                                                    : ::testing::AssertionFailure() << "no " << part << " in\n"
                                                                                    << text;
    }
};

} // namespace test
