// bridge-inspect run as a program against segments that the library made.
#pragma once

#include "tests/support/children.h"
#include "tests/support/test.h"

#include <nlohmann/json.hpp>

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>

namespace test {

using Json = nlohmann::ordered_json;
using Args = std::vector<std::string>;

struct Ran {
    int status;
    std::string out;
    std::string err;

    [[nodiscard]] Json json() const { return Json::parse(out); }
};

// Replaces a child's image; never comes back.
[[noreturn]] inline void become_inspect(const Args &args) {
    std::vector<char *> argv{const_cast<char *>(BRIDGE_INSPECT)};
    for (const std::string &arg : args)
        argv.push_back(const_cast<char *>(arg.c_str()));
    argv.push_back(nullptr);
    execv(BRIDGE_INSPECT, argv.data());
    _exit(127);
}

// A run whose output is read while it goes on.
class Running {
  public:
    explicit Running(const Args &args) {
        int ends[2];
        if (pipe(ends) != 0)
            throw std::runtime_error("no pipe");
        child_ = start_child([&]() -> int {
            dup2(ends[1], STDOUT_FILENO);
            close(ends[0]);
            close(ends[1]);
            become_inspect(args);
        });
        close(ends[1]);
        out_ = fdopen(ends[0], "r");
    }
    ~Running() {
        kill(child_, SIGTERM);
        wait_for(child_);
        std::fclose(out_);
    }
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    // The next line, without its end; empty at the end of the output.
    std::string line() {
        std::string text;
        for (int byte = std::fgetc(out_); byte != EOF && byte != '\n'; byte = std::fgetc(out_))
            text += static_cast<char>(byte);
        return text;
    }

    // Between the two the program does not look.
    void pause() const { kill(child_, SIGSTOP); }
    void resume() const { kill(child_, SIGCONT); }

  private:
    pid_t child_;
    FILE *out_;
};

class Inspect : public Env {
  protected:
    // Runs the program to its end; its output goes to `out_path` when there is one.
    [[nodiscard]] Ran run(const Args &args, const char *out_path = nullptr) const {
        const std::string out = out_path != nullptr ? out_path : tmpdir() + "/out";
        const std::string err = tmpdir() + "/err";
        const int status = wait_for(start_child([&]() -> int {
            dup2(open(out.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), STDOUT_FILENO);
            dup2(open(err.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), STDERR_FILENO);
            become_inspect(args);
        }));
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, out_path == nullptr ? text_of(out) : "", text_of(err)};
    }

    static void make_ports() { ASSERT_EQ(bridge_portdb_init(), 1); }
    static void make_vlans() {
        ASSERT_EQ(vl_vlandb_init(), 1);
        vl_set_vlan_range(1, 4094);
    }
    static void make_groups() { ASSERT_EQ(vlan_group_shm_init(), 1); }
    // Sets nothing, but makes the segment.
    static void make_exclusions() { ASSERT_EQ(bridge_unset_excflag(1, 1), 0); }
    static void make_all() {
        make_ports();
        make_vlans();
        make_groups();
        make_exclusions();
    }
    static spcb &plug(int32_t ifx) {
        spcb &port = *swport_get_raw_spcb(ifx);
        port.ifx = static_cast<uint32_t>(ifx);
        return port;
    }

  private:
    static std::string text_of(const std::string &path) {
        std::stringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }
};

} // namespace test
