// What goes wrong on purpose: rules about messages of clients and for clients.
#pragma once

#include "sandbox/command.h"
#include "sandbox/trace.h"
#include "wire/text.h"

#include <random>

namespace sandbox {

// Which messages a rule or a condition is about, as words: "VLAN_EVENT_CREATE_INDEX vid=10 @authd".
class MessagePattern {
  public:
    // Takes TYPE [FIELD=VALUE...] [@CLIENT | from CLIENT | to CLIENT] from the words, beginning at `next`, which is
    // then the first word that is none of that. Throws std::invalid_argument.
    MessagePattern(Kind kind, const Words &words, size_t &next);

    [[nodiscard]] bool matches(Kind kind, uint32_t type, Bytes payload, const Party &client) const;
    // Of that kind, about one of those clients; what was not delivered is no event.
    [[nodiscard]] bool matches(const Record &record) const;

  private:
    Kind kind_;
    uint32_t type_;
    wire::Filter filter_;
    std::string client_;
};

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
    unsigned remove(unsigned number) {
        return static_cast<unsigned>(
            rules_.remove_if([&](const Rule &rule) { return number == 0 || rule.number == number; }));
    }

    // The first rule that is about this message decides, and is used up by it.
    Verdict decide(Kind kind, uint32_t type, Bytes payload, const Party &client);

    [[nodiscard]] bool empty() const { return rules_.empty(); }
    [[nodiscard]] Answer show() const;

  private:
    struct Rule {
        unsigned number;
        std::string text;
        Fault fault;
        MessagePattern pattern;
        Microseconds delay{};
        uint64_t left = UINT64_MAX; // how often it still applies
        double chance = 1;
        std::mt19937_64 random{};
        uint64_t applied = 0;
    };

    std::list<Rule> rules_;
    unsigned next_number_ = 1;
};

// Where the messages of one road go that do not go straight.
class Detour {
  public:
    // `arrive` gets those that come later, with their client's number.
    using Arrive = std::function<void(unsigned client, const Message &message)>;
    Detour(Loop &loop, Arrive arrive) : loop_(loop), arrive_(std::move(arrive)) {}

    // Does what the rules have decided; true when the message goes straight on, too.
    bool pass(unsigned client, const Message &message, const Verdict &verdict);
    // One of the client's messages has gone straight on: those that were to come behind it do.
    void release(unsigned client);

  private:
    Loop &loop_;
    Arrive arrive_;
    std::list<Timer> later_;
    std::map<unsigned, std::vector<Message>> held_;
};

} // namespace sandbox
