// The commands about the sandbox itself and about clients: what they are told, and how the server treats them.
#include "sandbox/sandbox.h"
#include "wire/value.h"

#include <algorithm>

namespace sandbox {

namespace {

// A call's target, everybody unless its first word is @..., and the words behind that.
std::pair<Target, std::string> take_target(const Call &call) {
    const bool given = !call.words.empty() && call.words[0][0] == '@';
    return {Target(given ? call.words[0] : ""), call.rest(given ? 1 : 0)};
}

// For what concerns those alone that are there.
void must_be_there(Sandbox &sandbox, const Call &call, const Target &target) {
    if (!target.all() && sandbox.bridge.server.for_each(target, [](const Connection &) {}) == 0)
        throw std::invalid_argument(call.command + ": there is no client " + target.word());
}

Answer counted(const Call &call, unsigned count) {
    return Answer().say("{command}: {clients} clients", {{"command", call.command}, {"clients", count}});
}

Answer counted_there(const Call &call, unsigned count) {
    if (count == 0 && !call.words.empty())
        throw std::invalid_argument(call.command + ": there is no client " + Target(call.words[0]).word());
    return counted(call, count);
}

Outcome role(Sandbox &sandbox, const Call &call) {
    const auto [target, word] = take_target(call);
    Synchronisation &synchronisation = sandbox.bridge.synchronisation;
    if (word.empty() && target.all())
        return Answer().say("role: {role}", {{"role", synchronisation.slave() ? "slave" : "master"}});
    refuse_if(word != "master" && word != "slave", "no such role: " + word);
    must_be_there(sandbox, call, target);
    const unsigned count = synchronisation.set_role(target, word == "slave");
    return Answer().say("role: {role}, {clients} clients", {{"role", word}, {"clients", count}});
}

Outcome switchover(Sandbox &sandbox, const Call &call) {
    const auto [target, half] = take_target(call);
    refuse_if(!half.empty() && half != "begin" && half != "end", "begin or end, not " + half);
    must_be_there(sandbox, call, target);
    if (half != "end")
        sandbox.bridge.synchronisation.begin_switchover(target);
    if (half != "begin")
        sandbox.bridge.synchronisation.end_switchover(target);
    return Answer().say("switchover: {switchover}", {{"switchover", half.empty() ? "begin and end" : half}});
}

// The answer of a command that sends one.
Answer sent(const std::string &command, uint32_t type, unsigned count) {
    return Answer().say(command + " {event}: to {clients} clients", {{"event", event_text(type)}, {"clients", count}});
}

// "ifx=3 mode=trunk", or bytes as they stand.
Outcome event(Sandbox &sandbox, const Call &call) {
    const auto [target, text] = take_target(call);
    const size_t blank = text.find(' ');
    refuse_if(text.empty(), "which event?");
    const uint32_t type = parse_event(text.substr(0, blank));
    const std::string words = blank == std::string::npos ? "" : text.substr(blank + 1);
    const bool fields = words.find_first_of("={") != std::string::npos;
    const Buffer payload =
        fields ? wire::parse_text(wire::payload_of(type, wire::Direction::kToClient), words) : wire::parse_hex(words);
    refuse_if(payload.size() > BRI_PAYLOAD_MAX, "more than a message can carry");
    return sent("event", type, sandbox.bridge.announcer.announce(type, payload, target));
}

Outcome raw(Sandbox &sandbox, const Call &call) {
    const auto [target, words] = take_target(call);
    const Buffer bytes = wire::parse_hex(words);
    const unsigned count = sandbox.bridge.server.for_each(target, [&](Connection &client) { client.send(bytes); });
    return Answer().say("raw: to {clients} clients", {{"clients", count}});
}

Outcome clients(Sandbox &sandbox, const Call &) {
    Answer answer{"clients"};
    sandbox.bridge.server.for_each(Target(), [&](const Connection &client) {
        answer.row("clients",
                   "  {id} {name} pid {pid} events {events} messages {messages} sent {sent} queued {queue} {state}",
                   client.fields());
    });
    return answer.total("clients");
}

// --- a client's debugging ---

struct Named {
    const char *name;
    uint32_t type;
};

constexpr Named kSwitches[] = {
    {"vlan", DEBUG_EVENT_VLAN}, {"mac", DEBUG_EVENT_MAC}, {"qinq", DEBUG_EVENT_QINQ},
    {"vmap", DEBUG_EVENT_VMAP}, {"msg", DEBUG_EVENT_MSG}, {"pvlan", DEBUG_EVENT_PVLAN},
};

constexpr Named kShows[] = {
    {"flags", DEBUG_EVENT_SHOW_FLAGS}, {"vlan", DEBUG_EVENT_SHOW_VLAN},     {"mac", DEBUG_EVENT_SHOW_MAC_STATISTIC},
    {"cache", DEBUG_EVENT_SHOW_CACHE}, {"swport", DEBUG_EVENT_SHOW_SWPORT}, {"delay", DEBUG_EVENT_SHOW_DELAY},
};

std::string alternatives(std::span<const Named> rows) {
    std::string text;
    for (const Named &row : rows)
        text += (text.empty() ? "" : "|") + std::string(row.name);
    return text;
}

uint32_t find_named(std::span<const Named> rows, const std::string &name) {
    for (const Named &row : rows)
        if (name == row.name)
            return row.type;
    throw std::invalid_argument(alternatives(rows) + ", not " + name);
}

// What most of the messages carry: a word that nobody reads, and the value.
Message value_message(uint32_t type, uint32_t value) {
    return {type, buffer_of(bytes_of(wire::debug_switch{0, value}))};
}

// A delay may be negative, which ends it and with it the client's timer; 0 keeps the timer going, without a pause.
uint32_t delay_of(const std::string &text) {
    const bool negative = text[0] == '-';
    const uint32_t seconds = parse_number(text.substr(negative ? 1 : 0), INT32_MAX);
    return negative ? 0 - seconds : seconds;
}

// Pairs of a field's name and its value, behind "mac filter".
Message mac_filter(const Words &words) {
    bri_mac_filter filter{};
    filter.enable = 1;
    refuse_if(words.size() % 2 != 0, "mac filter without the value of " + words.back());
    for (size_t i = 2; i < words.size(); i += 2) {
        const std::string &field = words[i];
        const std::string &value = words[i + 1];
        if (field == "vid")
            filter.vid = static_cast<uint16_t>(parse_number(value, UINT16_MAX));
        else if (field == "mac")
            parse_mac(value, filter.mac);
        else if (field == "ifx")
            filter.ifx = parse_number(value);
        else
            throw std::invalid_argument("vid, mac or ifx, not " + field);
    }
    return {DEBUG_EVENT_MAC, buffer_of(bytes_of(filter))};
}

Message debug_message(const Words &words) {
    if (words.size() >= 2 && words[0] == "mac" && words[1] == "filter")
        return mac_filter(words);
    refuse_if(words.size() != 2, "debug what? (try help)");
    if (words[0] == "delay")
        return value_message(DEBUG_EVENT_MSG_DELAY, delay_of(words[1]));
    if (words[0] == "show")
        return {find_named(kShows, words[1])};
    const uint32_t type = find_named(kSwitches, words[0]);
    bri_mac_filter any{};
    any.enable = word_as<bool>(words[1]) ? 1 : 0;
    return type == DEBUG_EVENT_MAC ? Message{type, buffer_of(bytes_of(any))} : value_message(type, any.enable);
}

Outcome debug(Sandbox &sandbox, const Call &call) {
    const std::string target = (call.words[0][0] == '@' ? "" : "@") + call.words[0];
    const Message message = debug_message(Words(call.words.begin() + 1, call.words.end()));
    const unsigned count = sandbox.bridge.announcer.announce(message.type, message.payload, Target(target));
    refuse_if(count == 0, "no such client: " + call.words[0]);
    return sent("debug", message.type, count);
}

// --- the sandbox itself ---

Outcome help(Sandbox &, const Call &call) {
    Answer answer = command_help(all_commands(), call.rest());
    if (call.words.empty())
        answer
            .say("  @CLIENT is @ and a client's number or name; without it a command is for all clients. TYPE is a "
                 "number or a")
            .say("  name such as VLAN_EVENT_RENAME; HEX is pairs of hexadecimal digits, with blanks where you like.");
    if (call.words.empty() || call.words[0] == "debug")
        answer.say("  WHAT of debug: " + alternatives(kSwitches) + " on|off; mac filter [vid N] [mac ADDRESS] [ifx N];")
            .say("  delay SECONDS, -1 for none; show " + alternatives(kShows) + ".");
    return answer;
}

Outcome last_records(Sandbox &sandbox, const Call &call) {
    const std::deque<Record> &history = sandbox.trace.history();
    const size_t wanted = call.words.empty() ? 50 : parse_number(call.words[0]);
    Answer answer{"records"};
    for (size_t i = history.size() - std::min(wanted, history.size()); i < history.size(); ++i)
        answer.row("records", "{text}", {{"text", record_text(history[i])}, {"record", record_json(history[i])}});
    return answer.total("records");
}

constexpr Command kClientCommands[] = {
    {"print", "[TEXT...]", "print a line",
     [](Sandbox &, const Call &call) -> Outcome {
         return Answer().say("{text}", {{"text", call.rest()}});
     }},
    {"trace", "[N]", "the last N things that have happened, 50", last_records},
    {"random seed", "N", "begin the random numbers anew",
     [](Sandbox &sandbox, const Call &call) -> Outcome {
         sandbox.random.seed(parse_number(call.words[0]));
         return Answer();
     }},
    {"help", "[WORD]", "this list, or what begins with the word", help},
    {"quit", "", "end the server",
     [](Sandbox &sandbox, const Call &) -> Outcome {
         sandbox.end();
         return Answer();
     }},
    {"role", "[@CLIENT] [master|slave]", "tell the clients their role, or show it", role},
    {"switchover", "[@CLIENT] [begin|end]", "make a slave take over as master; one half or both", switchover},
    {"sync hold", "[@CLIENT]", "who registers under that name is told its role and the begin of the data, and no more",
     operation<&Synchronisation::hold>},
    {"sync next", "[@CLIENT]", "those are told the end of the data; then that they are synchronised",
     operation<&Synchronisation::next, counted>},
    {"sync go", "[@CLIENT]", "those are told all that is left, and nobody is held any more",
     operation<&Synchronisation::go, counted>},
    {"event", "[@CLIENT] TYPE [FIELD=VALUE...|HEX...]", "send an event to the clients that registered it", event},
    {"raw", "[@CLIENT] HEX...", "write bytes to the connections as they stand", raw},
    {"stall", "[@CLIENT]", "stop reading and writing, like a server that hangs",
     operation<&Server::stall, counted_there>},
    {"resume", "[@CLIENT]", "end a stall", operation<&Server::resume, counted_there>},
    {"restart", "[SECONDS]", "close everything and listen again, after a while", operation<&Server::restart, counted>},
    {"clients", "", "list the connections", clients},
    {"debug", "CLIENT WHAT WORD...", "switch a client's debugging, delay its events, make it print itself", debug},
};

// The newest one of that number or name.
Fields client_value(Sandbox &sandbox, const Words &keys) {
    Fields found = nullptr;
    sandbox.bridge.server.for_each(Target(keys[0]), [&](const Connection &client) { found = client.fields(); });
    return found;
}

Fields clients_value(Sandbox &sandbox, const Words &) {
    unsigned registered = 0;
    const auto look = [&](const Connection &client) { registered += client.registration.complete ? 1U : 0U; };
    const unsigned count = sandbox.bridge.server.for_each(Target(), look);
    return {{"count", count}, {"registered", registered}};
}

constexpr Value kClientValues[] = {
    {"client", "CLIENT", client_value},
    {"clients", "", clients_value},
};

} // namespace

const Family client_commands = kClientCommands;
const Values client_values = kClientValues;

} // namespace sandbox
