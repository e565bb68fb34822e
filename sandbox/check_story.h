// What every host must survive, told as stories, and what a daemon did in them.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/stage.h"

#include <functional>
#include <set>
#include <span>
#include <string>
#include <vector>

namespace sandbox {

// A script whose lines are commands of a Stage, or those below, which judge:
//
//   begin          starts the daemon, which must register
//   learn V        what it does by itself, and about VLANs, links and addresses that come and go: its habits
//   again          it must register once more
//   do V           VLANs V to V+2, links and addresses come and go
//   acts           it must do something about that, as far as it has that habit
//   asks V         it must know of VLAN V and of port kNewPort, which came while it did not listen
//   silent WHAT    it must send nothing for a while; WHAT is the name of that point
//   answers V      it must answer the questions before VLANs are created and a port's mode changes
//   addresses      it must give the kernel its own addresses once more
//   idle T         it must not use the processor all the time
//   stops          it must end when it is told to
//   try COMMAND    a command that a daemon may refuse
//
// $ stands for the number of its first client.
struct Story {
    const char *name;
    const char *help;
    const char *script;
};
std::span<const Story> all_stories(); // the first one learns

enum class Judgement { kRight, kWrong, kOpen };

struct Point {
    std::string story;
    std::string name;
    Judgement verdict = Judgement::kOpen;
    std::string why; // what was seen, or why nothing can be said
};
Fields point_json(const Point &point);

// The types of the requests that a daemon sends as the master of a switch where nothing goes wrong.
struct Habits {
    std::set<std::string> at_start;
    std::set<std::string> at_work;
    bool names_new = false; // ports or VLANs that came
};

struct CheckOptions {
    double time_scale = 10;
    std::string setup; // a script that makes the switch; empty for one of eight ports
    std::vector<std::string> daemon;
};

// What a story showed, and for people what happened last.
struct Played {
    std::vector<Point> points;
    std::string log;
};
// Plays a story in a world of its own. The first one sets the habits, the others look at them. Throws
// std::runtime_error when it cannot be played.
Played play(const Story &story, const CheckOptions &options, Habits &habits);

} // namespace sandbox
