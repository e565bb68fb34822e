// What can be seen of a daemon: its messages in the trace, and how much it runs.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/world.h"

#include <chrono>
#include <map>
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

// How much each thread of a process has run and has waited for a processor.
class Processor {
  public:
    explicit Processor(pid_t process);
    // The part of the time that a processor was free for it in which its busiest thread ran, of 1, since this was made;
    // negative when the system does not tell.
    [[nodiscard]] double busy() const;

  private:
    struct Times {
        double ran;
        double waited;
    };
    [[nodiscard]] std::map<std::string, Times> times() const;

    pid_t process_;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::map<std::string, Times> before_;
};

} // namespace sandbox
