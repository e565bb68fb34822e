// The commands about faults on purpose.
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <stdexcept>

namespace sandbox {

namespace {

Outcome add(Sandbox &sandbox, const Call &call) {
    const unsigned number = sandbox.rules.add(call.command, call.words, sandbox.random);
    return Answer().say("rule {rule}: {text}", {{"rule", number}, {"text", call.command + " " + call.rest()}});
}

Outcome show(Sandbox &sandbox, const Call &) {
    return sandbox.rules.show();
}

// "drop" and "drop @CLIENT" close connections; behind it, an event's name makes a rule.
Outcome drop(Sandbox &sandbox, const Call &call) {
    if (!call.words.empty() && (call.words.size() > 1 || call.words[0][0] != '@'))
        return add(sandbox, call);
    return Answer().say("drop: {clients} clients", {{"clients", sandbox.bridge.server().drop(Target(call.rest()))}});
}

Outcome remove(Sandbox &sandbox, const Call &call) {
    const uint32_t number = call.words.empty() ? 0 : parse_number(call.words[0]);
    const unsigned count = sandbox.rules.remove(number);
    if (count == 0 && number != 0)
        throw std::invalid_argument("no rule " + call.words[0]);
    return Answer().say("rules: {removed} removed", {{"removed", count}});
}

constexpr const char *kPattern = "[event|request] TYPE [FIELD=VALUE...] [@CLIENT] [once|N times|chance P [seed S]]";

constexpr Command kRuleCommands[] = {
    {"refuse", kPattern, "requests like that are refused as the switch does it", add},
    {"drop", "[@CLIENT|RULE...]", "close connections; with an event's name: messages like that are lost", drop},
    {"delay", "RULE... by SECONDS", "they come later, and others overtake them", add},
    {"duplicate", "RULE...", "they come twice", add},
    {"reorder", "RULE...", "they come behind the next one", add},
    {"rules", "", "the rules, and how often each was applied", show},
    {"rules clear", "[N]", "take one away, or all", remove},
};

} // namespace

Family rule_commands() {
    return kRuleCommands;
}

} // namespace sandbox
