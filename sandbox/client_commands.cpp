// The commands about clients: what they are told, and how the server treats them.
#include "sandbox/debug_commands.h"
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"
#include "sandbox/values.h"
#include "wire/text.h"

#include <algorithm>
#include <stdexcept>

namespace sandbox {

namespace {

// A call's target, everybody unless its first word is @..., and the words behind that.
std::pair<Target, Words> take_target(const Call &call) {
    const bool given = !call.words.empty() && call.words[0][0] == '@';
    return {Target(given ? call.words[0] : ""), Words(call.words.begin() + (given ? 1 : 0), call.words.end())};
}

std::string join(const Words &words, size_t first) {
    std::string text;
    for (size_t i = first; i < words.size(); ++i)
        text += (i == first ? "" : " ") + words[i];
    return text;
}

Answer counted(const Call &call, unsigned count) {
    return Answer().say("{command}: {clients} clients", {{"command", call.command}, {"clients", count}});
}

Outcome role(Sandbox &sandbox, const Call &call) {
    const auto [target, rest] = take_target(call);
    Synchronisation &synchronisation = sandbox.bridge.synchronisation();
    const std::string word = join(rest, 0);
    if (word.empty() && target.all())
        return Answer().say("role: {role}", {{"role", synchronisation.slave() ? "slave" : "master"}});
    if (word != "master" && word != "slave")
        throw std::invalid_argument("no such role: " + word);
    const unsigned count = synchronisation.set_role(target, word == "slave");
    return Answer().say("role: {role}, {clients} clients", {{"role", word}, {"clients", count}});
}

Outcome switchover(Sandbox &sandbox, const Call &call) {
    const auto [target, rest] = take_target(call);
    const std::string half = join(rest, 0);
    if (!half.empty() && half != "begin" && half != "end")
        throw std::invalid_argument("begin or end, not " + half);
    if (half != "end")
        sandbox.bridge.synchronisation().begin_switchover(target);
    if (half != "begin")
        sandbox.bridge.synchronisation().end_switchover(target);
    return Answer().say("switchover: {switchover}", {{"switchover", half.empty() ? "begin and end" : half}});
}

Outcome hold_synchronisation(Sandbox &sandbox, const Call &call) {
    sandbox.bridge.synchronisation().hold(Target(call.rest()));
    return Answer();
}

Outcome next_step(Sandbox &sandbox, const Call &call) {
    return counted(call, sandbox.bridge.synchronisation().next(Target(call.rest())));
}

Outcome go_on(Sandbox &sandbox, const Call &call) {
    return counted(call, sandbox.bridge.synchronisation().go(Target(call.rest())));
}

// "ifx=3 mode=trunk", or bytes as they stand.
std::vector<uint8_t> payload_of(uint32_t type, const std::string &text) {
    const bool fields = text.find_first_of("={") != std::string::npos;
    return fields ? wire::parse_text(wire::payload_of(type, wire::Direction::kToClient), text) : parse_hex(text);
}

Outcome event(Sandbox &sandbox, const Call &call) {
    const auto [target, rest] = take_target(call);
    if (rest.empty())
        throw std::invalid_argument("which event?");
    const uint32_t type = parse_event(rest[0]);
    const std::vector<uint8_t> payload = payload_of(type, join(rest, 1));
    if (payload.size() > BRI_PAYLOAD_MAX)
        throw std::invalid_argument("more than a message can carry");
    const unsigned count = sandbox.bridge.announcer().announce(type, {payload.data(), payload.size()}, target);
    return Answer().say("event {event}: to {clients} clients", {{"event", event_text(type)}, {"clients", count}});
}

Outcome raw(Sandbox &sandbox, const Call &call) {
    const auto [target, rest] = take_target(call);
    const std::vector<uint8_t> bytes = parse_hex(join(rest, 0));
    const unsigned count = sandbox.bridge.announcer().send_raw({bytes.data(), bytes.size()}, target);
    return Answer().say("raw: to {clients} clients", {{"clients", count}});
}

Outcome stall(Sandbox &sandbox, const Call &call) {
    return counted(call, sandbox.bridge.server().stall(Target(call.rest())));
}

Outcome resume(Sandbox &sandbox, const Call &call) {
    return counted(call, sandbox.bridge.server().resume(Target(call.rest())));
}

Outcome restart(Sandbox &sandbox, const Call &call) {
    const Microseconds pause = call.words.empty() ? Microseconds(0) : parse_seconds(call.words[0]);
    const unsigned count = sandbox.bridge.server().drop(Target());
    sandbox.bridge.server().restart(pause);
    return counted(call, count);
}

Outcome clients(Sandbox &sandbox, const Call &) {
    Answer answer;
    answer.begin("clients");
    const unsigned count = sandbox.bridge.server().for_each(Target(), [&](const Connection &client) {
        answer.row("clients",
                   "  {id} {name} pid {pid} events {events} messages {messages} sent {sent} queued {queue} {state}",
                   client_fields(client));
    });
    return answer.say("clients: {count}", {{"count", count}});
}

Outcome debug(Sandbox &sandbox, const Call &call) {
    const std::string target = (call.words[0][0] == '@' ? "" : "@") + call.words[0];
    const auto [type, payload] = debug_message(Words(call.words.begin() + 1, call.words.end()));
    const unsigned count = sandbox.bridge.announcer().announce(type, {payload.data(), payload.size()}, Target(target));
    if (count == 0)
        throw std::invalid_argument("no such client: " + call.words[0]);
    return Answer().say("debug {event}: to {clients} clients", {{"event", event_text(type)}, {"clients", count}});
}

constexpr Command kCommands[] = {
    {"role", "[@CLIENT] [master|slave]", "tell the clients their role, or show it", role},
    {"switchover", "[@CLIENT] [begin|end]", "make a slave take over as master; one half or both", switchover},
    {"sync hold", "[@CLIENT]", "who registers is told its role and the begin of the data, and no more",
     hold_synchronisation},
    {"sync next", "[@CLIENT]", "those are told the end of the data; then that they are synchronised", next_step},
    {"sync go", "[@CLIENT]", "those are told all that is left, and nobody is held any more", go_on},
    {"event", "[@CLIENT] TYPE [FIELD=VALUE...|HEX...]", "send an event to the clients that registered it", event},
    {"raw", "[@CLIENT] HEX...", "write bytes to the connections as they stand", raw},
    {"stall", "[@CLIENT]", "stop reading and writing, like a server that hangs", stall},
    {"resume", "[@CLIENT]", "end a stall", resume},
    {"restart", "[SECONDS]", "close everything and listen again, after a while", restart},
    {"clients", "", "list the connections", clients},
    {"debug", "CLIENT WHAT WORD...", "switch a client's debugging, delay its events, make it print itself", debug},
};

// The newest one of that number or name.
Fields client_value(Sandbox &sandbox, const Words &keys) {
    Fields found = nullptr;
    sandbox.bridge.server().for_each(Target(keys[0]), [&](const Connection &client) { found = client_fields(client); });
    return found;
}

Fields clients_value(Sandbox &sandbox, const Words &) {
    return {{"count", sandbox.bridge.server().for_each(Target(), [](const Connection &) {})},
            {"registered", sandbox.bridge.server().registered()}};
}

constexpr Value kValues[] = {
    {"client", "CLIENT", client_value},
    {"clients", "", clients_value},
};

} // namespace

Fields client_fields(const Connection &client) {
    static constexpr const char *kSyncStates[] = {"none", "begun", "ended", "done"};
    const Registration &known = client.registration;
    Fields state = Fields::array();
    if (known.fresh())
        state.push_back("fresh");
    if (client.stalled())
        state.push_back("stalled");
    return {{"id", client.id()},
            {"name", known.complete() ? known.name() : "(not registered)"},
            {"pid", known.pid()},
            {"events", known.count()},
            {"messages", client.received()},
            {"sent", client.sent()},
            {"queue", client.queued()},
            {"registered", known.complete()},
            {"sync", kSyncStates[std::min(client.sync_step, kSynchronised)]},
            {"state", state}};
}

Family client_commands() {
    return kCommands;
}

Values client_values() {
    return kValues;
}

} // namespace sandbox
