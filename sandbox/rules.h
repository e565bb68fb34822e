// What goes wrong on purpose: rules about messages of clients and for clients.
#pragma once

#include "sandbox/pattern.h"

#include <cstdint>
#include <list>
#include <random>
#include <string>

namespace sandbox {

enum class Fault {
    kNone,
    kRefuse,    // a request is refused as the switch does it
    kDrop,      // it is lost
    kDelay,     // it comes later; what follows overtakes it
    kDuplicate, // it comes twice
    kReorder    // it comes behind the next one
};

// What the rules have decided about one message and one client.
struct Verdict {
    Fault fault = Fault::kNone;
    Microseconds delay{};
    unsigned rule = 0; // its number

    [[nodiscard]] std::string text() const; // "dropped by rule 2"; empty without a fault
};

class Rules {
  public:
    // FAULT [event|request] TYPE [FIELD=VALUE...] [@CLIENT] [by SECONDS] [once|N times|chance P [seed S]]; what is left
    // out is an event, for refuse a request. Gives the rule's number. Throws std::invalid_argument.
    unsigned add(const std::string &fault, const Words &words, std::mt19937_64 &random);
    // How many; 0 stands for all.
    unsigned remove(unsigned number);

    // The first rule that is about this message decides, and is used up by it.
    Verdict decide(Kind kind, uint32_t type, Bytes payload, const Party &client);

    [[nodiscard]] bool empty() const { return rules_.empty(); }
    [[nodiscard]] Answer show() const;

  private:
    struct Rule {
        Rule(unsigned rule, std::string words, Fault what, Kind about, MessagePattern which)
            : number(rule), text(std::move(words)), fault(what), kind(about), pattern(std::move(which)) {}

        unsigned number;
        std::string text;
        Fault fault;
        Kind kind;
        MessagePattern pattern;
        Microseconds delay{};
        uint64_t left = UINT64_MAX; // how often it still applies
        double chance = 1;
        std::mt19937_64 random;
        uint64_t applied = 0;
    };

    std::list<Rule> rules_;
    unsigned next_number_ = 1;
};

} // namespace sandbox
