#include "sandbox/stage.h"

#include "sandbox/command.h"

#include <algorithm>
#include <csignal>

namespace sandbox {

namespace {

constexpr std::chrono::seconds kEndPatience{3};

void must_be_well(int status) {
    fail_if(status != 0, "the daemon ended with status " + std::to_string(status));
}

void end(Stage &stage) {
    const std::optional<int> status = stage.end_daemon();
    fail_if(!status, "the daemon does not end");
    must_be_well(*status);
}

// The lines about the world's processes; the others are for the server.
constexpr struct {
    const char *words;
    void (*run)(Stage &stage, const Words &rest);
} kStageLines[] = {
    {"server kill", [](Stage &stage, const Words &) { stage.world.kill_server(); }},
    {"server start", [](Stage &stage, const Words &) { stage.world.start_server(); }},
    {"daemon start", [](Stage &stage, const Words &rest) { stage.start_daemon(rest); }},
    {"daemon end", [](Stage &stage, const Words &) { end(stage); }},
    {"daemon wait", [](Stage &stage, const Words &) { must_be_well(stage.wait_for_daemon()); }},
};

} // namespace

Stage::Stage(StageOptions options)
    : world(options.time_scale, options.log, options.recording), options_(std::move(options)) {
    world.start_kernel();
    world.start_server();
}

std::string Stage::run(const std::string &line) {
    const Words words = split(line);
    for (const auto &row : kStageLines)
        if (words.size() > 1 && words[0] + " " + words[1] == row.words) {
            row.run(*this, Words(words.begin() + 2, words.end()));
            return "";
        }
    const ControlClient::Reply reply = world.run(line);
    fail_if(!reply.ok, reply.text.substr(0, reply.text.find('\n')));
    return reply.text;
}

pid_t Stage::daemon() const {
    fail_if(daemons_.empty(), "no daemon runs");
    return daemons_.back();
}

void Stage::start_daemon(const std::vector<std::string> &command) {
    const std::vector<std::string> &words = command.empty() ? options_.command : command;
    fail_if(words.empty(), "start which daemon?");
    const std::string &output = options_.daemon_output;
    daemons_.push_back(world.start(words, output.empty() ? output : world.directory() + "/" + output));
}

std::optional<int> Stage::end_daemon() {
    kill(daemon(), SIGTERM);
    const std::optional<int> status = World::ended(daemon(), kEndPatience);
    if (!status)
        kill(daemon(), SIGKILL);
    daemons_.pop_back();
    return status;
}

int Stage::wait_for_daemon() {
    const int status = World::wait(daemon());
    daemons_.pop_back();
    return status;
}

std::optional<int> Stage::daemon_ended() {
    if (daemons_.empty())
        return std::nullopt;
    const std::optional<int> status = World::ended(daemon(), std::chrono::milliseconds(0));
    if (status)
        daemons_.pop_back();
    return status;
}

} // namespace sandbox
