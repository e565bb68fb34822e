// The commands about the sandbox itself.
#include "sandbox/debug_commands.h"
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <algorithm>

namespace sandbox {

namespace {

Outcome help(Sandbox &, const Call &call) {
    Answer answer = command_help(all_commands(), call.rest());
    if (call.words.empty())
        answer
            .say("  @CLIENT is @ and a client's number or name; without it a command is for all clients. TYPE is a "
                 "number or a")
            .say("  name such as VLAN_EVENT_RENAME; HEX is pairs of hexadecimal digits, with blanks where you like.");
    if (call.words.empty() || call.words[0] == "debug")
        for (const std::string &line : debug_help())
            answer.say(line);
    return answer;
}

Outcome print(Sandbox &, const Call &call) {
    return Answer().say("{text}", {{"text", call.rest()}});
}

Outcome quit(Sandbox &sandbox, const Call &) {
    sandbox.end();
    return Answer();
}

Outcome last_records(Sandbox &sandbox, const Call &call) {
    const std::deque<Record> &history = sandbox.trace.history();
    const size_t wanted = call.words.empty() ? 50 : parse_number(call.words[0]);
    Answer answer;
    answer.begin("records");
    for (size_t i = history.size() - std::min(wanted, history.size()); i < history.size(); ++i)
        answer.row("records", "{text}", {{"text", record_text(history[i])}, {"record", record_json(history[i])}});
    return answer.say("records: {count}", {{"count", answer.json()["records"].size()}});
}

Outcome seed_random(Sandbox &sandbox, const Call &call) {
    sandbox.random.seed(parse_number(call.words[0]));
    return Answer();
}

constexpr Command kCoreCommands[] = {
    {"print", "[TEXT...]", "print a line", print},
    {"trace", "[N]", "the last N things that have happened, 50", last_records},
    {"random seed", "N", "begin the random numbers anew", seed_random},
    {"help", "[WORD]", "this list, or what begins with the word", help},
    {"quit", "", "end the server", quit},
};

} // namespace

Family core_commands() {
    return kCoreCommands;
}

} // namespace sandbox
