// What every host must survive, told as stories, and what a daemon did in them.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/stage.h"

#include <set>

namespace sandbox {

// What can be seen of a daemon: its messages in the trace, and how much it runs.
//
// A request of a daemon, or an event that went to one.
struct Observed {
    bool request = false;
    std::string type;
    double time = 0; // seconds of the world, since its server began
    Fields fields;
};

// What is in the trace from that line on.
std::vector<Observed> observed_since(const World &world, size_t line);

// Whether it is what a daemon does with the switch: no registration, no talk about data, no answer to a question.
bool is_work(const Observed &message);
bool is_question(const Observed &message);
bool is_answer(const Observed &message, const std::string &question_type);
// Whether a VLAN or a port of that number is spoken of.
bool speaks_of(const Observed &message, unsigned vid, unsigned ifx);

// Looks at a process for that long, or longer on a busy machine: which part, of 1, its busiest thread ran of the time
// in which it was not waiting for a processor. Nothing where the kernel does not count that, or leaves it no time at
// all.
std::optional<double> busy_part(pid_t process, std::chrono::duration<double, std::nano> time);

inline constexpr const char *kDaemonOutput = "daemon.log"; // below the world's directory

// A script whose lines, with commas between, are commands of a Stage, or those below, which judge:
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
//
// $ stands for the number of its first client.
struct Story {
    const char *name;
    const char *help;
    const char *script;
};

enum class Judgement { kRight, kWrong, kOpen };

struct Point {
    std::string story;
    std::string name;
    Judgement verdict = Judgement::kOpen;
    std::string why; // what was seen, or why nothing can be said
};
const char *verdict_text(Judgement verdict);
Fields point_json(const Point &point);

// The types of the requests that a daemon sends as the master of a switch where nothing goes wrong.
struct Habits {
    std::set<std::string> at_start;
    std::set<std::string> at_work;
    bool names_new = false; // ports or VLANs that came
};

struct CheckOptions : StageOptions {
    std::string setup = "eight-ports"; // a script that makes the switch
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
