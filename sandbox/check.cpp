// bridge-sandbox check: what every host must survive, tried on a daemon.
#include "sandbox/check_story.h"
#include "sandbox/programs.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace sandbox {

namespace {

// The first one learns.
constexpr Story kStories[] = {
    {"start", "a switch that runs; VLANs, links and addresses come and go", "begin, learn 3001, idle 3, stops"},
    {"questions", "VLANs and the mode of a port are asked about before they change", "begin, answers 3100"},
    {"killed", "the server is killed, and another one finds its tables",
     "begin, server kill, idle 3, server start, again, do 3201, acts, server kill, stops"},
    {"changed", "the server is away for a while, and its tables change meanwhile",
     "begin, restart 3, vlan create 3301, vlan delete 20, port add 62 trunk 1, again, asks 3301"},
    {"slave", "the daemon is a slave from its start", "role slave, begin, do 3401, silent sends nothing as a slave"},
    {"late", "a slave that has all of the server's data takes over",
     "role slave, begin, vlan create 3501, port add 62 trunk 1, switchover begin, silent waits for the end of the "
     "switch-over, switchover end, asks 3501, do 3511, acts"},
    {"early", "a slave takes over before it has all of the server's data",
     "role slave, sync hold, begin, vlan create 3601, port add 62 trunk 1, switchover, do 3611, silent waits for the "
     "server's data, sync go, asks 3601, do 3621, acts"},
    {"kernel", "the kernel's bridge module goes and comes back empty",
     "begin, kernel down, idle 3, kernel up, addresses, do 3701, acts"},
    {"delay", "the daemon is told to hold its events back, and gets them together",
     "begin, vlan patience 10000, debug $ delay 3, do 3801, acts, debug $ delay -1, do 3811, acts"},
    {"slow", "the server neither reads nor writes for a while",
     "begin, stall, do 3901, idle 3, resume, acts, do 3911, acts, stall, stops"},
};

std::string check_usage() {
    std::string text = "Plays stories with a daemon, each in a private world, and tells what it did in them. What it "
                       "sends when nothing goes wrong is the measure; what cannot be judged by that is said. The exit "
                       "status is 0, 1 when a point is wrong, 64 for words that are not understood.\nStories:";
    for (const Story &story : kStories) {
        std::string name = story.name;
        name.resize(12, ' ');
        text += "\n  " + name + story.help;
    }
    return text;
}

std::vector<std::string> story_names() {
    std::vector<std::string> names;
    for (const Story &story : kStories)
        names.emplace_back(story.name);
    return names;
}

void print(const Point &point) {
    std::printf("%-10s %-38s %-10s %s\n", point.story.c_str(), point.name.c_str(), verdict_text(point.verdict),
                point.why.c_str());
    std::fflush(stdout);
}

// All of it once more, for programs, or the sum; the exit status.
int sum_up(const std::vector<Point> &points, bool json) {
    Answer answer{"points"};
    for (const Point &point : points)
        answer.element("points", "", point_json(point));
    const auto count = [&](Judgement verdict) { return std::ranges::count(points, verdict, &Point::verdict); };
    answer.say(
        "{right} right, {wrong} wrong, {open} not judged",
        {{"right", count(Judgement::kRight)}, {"wrong", count(Judgement::kWrong)}, {"open", count(Judgement::kOpen)}});
    say(json ? answer.json().dump() : answer.lines().back());
    return count(Judgement::kWrong) == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

bool has_point(const Played &played, Judgement verdict, const std::string &name = "") {
    return std::ranges::any_of(played.points, [&](const Point &point) {
        return point.verdict == verdict && (name.empty() || point.name == name);
    });
}

int play_all(const CheckOptions &options, const std::string &only, bool json) {
    std::vector<Point> points;
    Habits habits;
    for (const Story &story : kStories) {
        const bool first = &story == kStories;
        if (!first && !only.empty() && only != story.name)
            continue;
        const Played played = play(story, options, habits);
        // The others would say the same of a daemon that does not come up.
        const bool hopeless = first && !has_point(played, Judgement::kRight, "registers");
        if (!hopeless && !only.empty() && only != story.name)
            continue;
        points.insert(points.end(), played.points.begin(), played.points.end());
        if (!json)
            std::ranges::for_each(played.points, print);
        if (!only.empty() && has_point(played, Judgement::kWrong))
            std::fputs(played.log.c_str(), stderr);
        if (hopeless)
            break;
    }
    return sum_up(points, json);
}

} // namespace

int check(int argc, char **argv) {
    CheckOptions options{{.time_scale = 10, .log = Log::kRecords, .daemon_output = kDaemonOutput}};
    std::string only;
    bool json = false;
    CLI::App app(check_usage());
    app.add_flag("--json", json, "Tell it all as one JSON object");
    add_time_scale(app, options.time_scale, "How many times as fast as the wall's all clocks run; 10");
    app.add_option("--only", only, "Tell one story, and when something is wrong what happened in it")
        ->check(CLI::IsMember(story_names()))
        ->type_name("STORY");
    app.add_option("--script", options.setup, "Commands that make the switch; by default it has ports 1 to 8")
        ->type_name("FILE");
    app.add_option("command", options.command, "The daemon and its arguments, behind --; it stays in the foreground")
        ->required();
    if (const std::optional<int> status = parse_command_line(app, argc, argv))
        return *status;
    end_on_signals();
    return play_all(options, only, json);
}

} // namespace sandbox
