// Operations of the switch as what commands and requests do: a command's words and a request's fields become the
// operation's arguments, so that what both mean is one operation with another origin.
#pragma once

#include "sandbox/parse.h"
#include "sandbox/sandbox.h"

#include <tuple>

namespace sandbox {

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
