// Everything that a command can reach.
#pragma once

#include "sandbox/back_end.h"
#include "sandbox/bridge.h"
#include "sandbox/parse.h"

#include <tuple>

namespace sandbox {

struct Options {
    std::string tmpdir;
    bool slave = false;
    double time_scale = 1;
    uint64_t seed = std::random_device()();
};

struct Sandbox {
    explicit Sandbox(const Options &options)
        : loop(options.time_scale), trace(loop), random(options.seed),
          bridge(loop, options.tmpdir, trace, rules, options.slave), traffic(loop, bridge.addresses) {}

    // The kernel and the tables; not before the server listens, and so is the only one. Throws std::runtime_error.
    void open() {
        bridge.kernel.open();
        Vlans::open();
        Groups::open();
    }
    // No more commands are run, and the loop ends.
    void end() {
        ending = true;
        loop.end();
    }

    bool ending = false;
    std::map<std::string, uint64_t> marks; // names for places in the trace
    Loop loop;
    Trace trace;
    std::mt19937_64 random; // all randomness comes from here
    Rules rules;
    Bridge bridge;
    Traffic traffic;
    std::unique_ptr<BackEnd> back_end; // null without one
};

// The families of commands; each is a table in the file that its name tells, rules.cpp for the last one.
extern const Family client_commands;
extern const Family wait_commands;
extern const Family switch_commands;
extern const Family mac_commands;
extern const Family rule_commands;
std::span<const Family> all_commands();

// Runs one line; one that says nothing is answered with nothing. Throws std::exception with the reason when it fails.
Outcome run_command(Sandbox &sandbox, const std::string &line, Session &session);

// --- Operations of the switch as what commands and requests do: a command's words and a request's fields become the
// --- operation's arguments, so that what both mean is one operation with another origin.

template <class Part> Part &part_of(Bridge &bridge) {
    return std::get<Part &>(std::tie(bridge.server, bridge.synchronisation, bridge.ports, bridge.supers, bridge.vlans,
                                     bridge.prejudge, bridge.topology, bridge.groups, bridge.addresses));
}

template <class Function> struct Signature;
template <class P, class Result, class... Arguments> struct Signature<Result (P::*)(Arguments...)> {
    using Part = P;
    using Indices = std::index_sequence_for<Arguments...>;
    template <size_t Index> using Argument = std::decay_t<std::tuple_element_t<Index, std::tuple<Arguments...>>>;
};

// One of the words, which may lack: then it is 0, all VLANs or everybody.
template <class T> T word_or(const Call &call, size_t index) {
    constexpr bool target = std::is_same_v<T, Target>;
    const std::string lacking = target ? "" : std::is_same_v<T, vlanset> ? "all" : "0";
    const std::string word = index < call.words.size() ? call.words[index] : lacking;
    refuse_if(target && !word.empty() && word[0] != '@', "usage: " + call.command + " [@CLIENT], not " + word);
    return word_as<T>(word);
}

// A command whose words are the operation's arguments; `Tell` makes the answer of what that gives, if anything does.
template <auto Operation, auto Tell = nullptr> Outcome operation(Sandbox &sandbox, const Call &call) {
    using S = Signature<decltype(Operation)>;
    auto &part = part_of<typename S::Part>(sandbox.bridge);
    return [&]<size_t... Index>(std::index_sequence<Index...>)->Answer {
        const auto run = [&] {
            return (part.*Operation)(word_or<typename S::template Argument<Index>>(call, Index)...);
        };
        if constexpr (std::is_null_pointer_v<decltype(Tell)>)
            return run(), Answer();
        else
            return Tell(call, run());
    }
    (typename S::Indices());
}
// A command that shows something.
template <auto Show> Outcome show(Sandbox &, const Call &) {
    return Show();
}

template <class Member> struct MemberOf;
template <class Record, class Value> struct MemberOf<Value Record::*> { using Whole = Record; };
// A field as an argument; the one VLAN of a record as the set that the operation takes.
template <class Argument, class Field> Argument field_as(const Field &field) {
    if constexpr (std::is_same_v<Argument, vlanset> && std::is_integral_v<Field>)
        return only(field);
    else
        return static_cast<Argument>(field);
}

// A request of which these fields are the operation's arguments.
template <auto Operation, auto First, auto... Rest> void request(Bridge &bridge, const Connection &, Bytes payload) {
    using S = Signature<decltype(Operation)>;
    const auto record = object_of<typename MemberOf<decltype(First)>::Whole>(payload);
    const auto fields = std::tuple(record.*First, record.*Rest...);
    [&]<size_t... Index>(std::index_sequence<Index...>) {
        (part_of<typename S::Part>(bridge).*
         Operation)(field_as<typename S::template Argument<Index>>(std::get<Index>(fields))...);
    }
    (typename S::Indices());
}
// A request whose record is the operation's argument.
template <auto Operation> void whole_request(Bridge &bridge, const Connection &, Bytes payload) {
    using S = Signature<decltype(Operation)>;
    (part_of<typename S::Part>(bridge).*Operation)(object_of<typename S::template Argument<0>>(payload));
}

} // namespace sandbox
