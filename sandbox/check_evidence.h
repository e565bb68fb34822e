// What can be seen of a daemon: its messages in the trace, and how much it runs.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/world.h"

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace sandbox {

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

// Looks at a process for that long: which part, of 1, its busiest thread ran of the time in which it was not waiting
// for a processor, so that a busy machine makes no difference. Nothing where the kernel does not count that.
std::optional<double> busy_part(pid_t process, std::chrono::duration<double> time);

} // namespace sandbox
