// A switch whose frames are real: three hosts, a bridge between them, and the sandbox server that drives it.
#pragma once

#include "tests/frames/lan.h"
#include "tests/system/workstation.h"

#include <csignal>
#include <memory>
#include <unistd.h>

namespace test {

inline constexpr int kSoon = 15000; // an emulated processor shared by many
inline constexpr int kNever = 300;

class Frames : public Workstation {
  protected:
    void SetUp() override {
        std::string why_not;
        if (!enter_lan(why_not))
            GTEST_SKIP() << why_not;
        for (const char *device : {"p1", "p2", "p3"})
            hosts.push_back(std::make_unique<LanHost>(device));
        start();
    }
    void TearDown() override {
        if (!server)
            return;
        EXPECT_EQ(server->count("error: "), 0) << server->output();
        EXPECT_EQ(server->end(), 0) << server->output();
    }
    void start() { server.emplace(start_sandbox({"--bridge", "br0"})); }
    void kill_it() {
        server->signal(SIGKILL);
        EXPECT_EQ(server->wait(), 1000 + SIGKILL);
    }
    void say(const std::string &command) { run(*server, command); }
    // VLANs 10 and 20; ports 1 and 2 in VLAN 10, port 3 a trunk of both, whose native VLAN is 10.
    void begin() {
        for (const char *command : {"vlan create 10,20", "port add 1 access 10 dev p1", "port add 2 access 10 dev p2",
                                    "port add 3 trunk 10 dev p3", "port allow 3 10,20", "wait port 1 link is up",
                                    "wait port 2 link is up", "wait port 3 link is up"})
            say(command);
    }
    [[nodiscard]] const LanHost &host(size_t which) const { return *hosts[which - 1]; }

    // The tag with which a frame of one host comes to another; one is sent again until one comes.
    std::optional<uint16_t> passes(size_t from, size_t to, uint16_t vid = 0, const Address &target = kEverybody) {
        return passes(from, to, vid, target, address(static_cast<uint8_t>(from)));
    }
    std::optional<uint16_t> passes(size_t from, size_t to, uint16_t vid, const Address &target, const Address &source) {
        for (int time = 0; time < kSoon; time += 100) {
            host(from).send(target, source, ++number, vid);
            if (const auto tag = host(to).receives(number, 100))
                return tag;
        }
        return std::nullopt;
    }
    // The same where none is to come.
    bool is_stopped(size_t from, size_t to, uint16_t vid = 0, const Address &target = kEverybody) {
        host(from).send(target, address(static_cast<uint8_t>(from)), ++number, vid);
        return !host(to).receives(number, kNever);
    }
    static std::string entry(const Address &mac) {
        return output_of("bridge fdb show br br0 | grep -i " + text_of(mac) + " | grep 'vlan 10'");
    }
    // Until the command prints that.
    static testing::AssertionResult prints(const std::string &line, const std::string &text) {
        for (int time = 0; time < kSoon; time += 50, usleep(50000))
            if (output_of(line).find(text) != std::string::npos)
                return testing::AssertionSuccess();
        return testing::AssertionFailure() << line << ":\n" << output_of(line) << "without " << text;
    }

    std::vector<std::unique_ptr<LanHost>> hosts;
    std::optional<Process> server;
    uint32_t number = 0;
};

// The same without any right of the machine's root.
class FramesOfAnybody : public Frames {
  protected:
    void SetUp() override {
        std::string why_not;
        if (!leave_root(tmpdir(), why_not))
            GTEST_SKIP() << why_not;
        Frames::SetUp();
    }
};

} // namespace test
