// The commands that wait.
#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <memory>
#include <stdexcept>

namespace sandbox {

namespace {

constexpr Microseconds kPatience{10000000}; // unless a command says otherwise

std::optional<Answer> not_yet() {
    return std::nullopt;
}

Microseconds limit_of(const Call &call, size_t index) {
    return call.words.size() > index ? parse_seconds(call.words[index]) : kPatience;
}

Outcome sleep(Sandbox &, const Call &call) {
    return Wait{not_yet, parse_seconds(call.words[0]), "", Answer().say("slept")};
}

Outcome wait_clients(Sandbox &sandbox, const Call &call) {
    const uint32_t wanted = parse_number(call.words[0]);
    const auto done = [&sandbox, wanted]() -> std::optional<Answer> {
        if (sandbox.bridge.server().registered() != wanted)
            return std::nullopt;
        return Answer().say("registered clients: {clients}", {{"clients", wanted}});
    };
    return Wait{done, limit_of(call, 1), "waited in vain for " + call.words[0] + " registered clients", {}};
}

// The first request of that type behind the one that the last such wait of the session has used up.
std::optional<Answer> next_request(const Trace &trace, uint32_t type, uint64_t &matched) {
    for (const Record &record : trace.history())
        if (record.number > matched && record.kind == Kind::kRequest && record.type == type) {
            matched = record.number;
            return Answer().say("{record}", {{"record", record_text(record)}});
        }
    return std::nullopt;
}

Outcome wait_event(Sandbox &sandbox, const Call &call) {
    const uint32_t type = parse_event(call.words[0]);
    uint64_t &matched = call.session.matched["request " + std::to_string(type)];
    return Wait{[&sandbox, type, &matched] { return next_request(sandbox.trace, type, matched); },
                limit_of(call, 1),
                "waited in vain for a message " + event_text(type),
                {}};
}

constexpr Command kCommands[] = {
    {"sleep", "SECONDS", "let time pass", sleep},
    {"wait-event", "TYPE [SECONDS]", "wait for the next message of that type from a client", wait_event},
    {"wait-clients", "N [SECONDS]", "wait until N clients are registered", wait_clients},
};

} // namespace

Family wait_commands() {
    return kCommands;
}

} // namespace sandbox
