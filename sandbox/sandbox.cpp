#include "sandbox/sandbox.h"

#include <algorithm>
#include <stdexcept>

namespace sandbox {

namespace {

bool asks_for_help(const Words &line) {
    return line.size() == 2 && line[1] == "help";
}

} // namespace

void Sandbox::open() {
    bridge.kernel.open();
    Vlans::open();
    Groups::open();
}

std::span<const Family> all_commands() {
    static const Family families[] = {client_commands(), wait_commands(), switch_commands(), mac_commands(),
                                      rule_commands()};
    return families;
}

Outcome run_command(Sandbox &sandbox, const std::string &line, Session &session) {
    const Words words = split(line);
    if (words.empty())
        return Answer();
    if (asks_for_help(words)) // "vlan help"
        return command_help(all_commands(), words[0]);
    Call call{{}, {}, session};
    const Command &row = find_command(all_commands(), words, call);
    Outcome outcome = row.run(sandbox, call);
    if (!outcome.wait && outcome.answer.lines().empty())
        outcome.answer.say("{command}: done", {{"command", call.line}});
    return outcome;
}

} // namespace sandbox
