// Every event type: its name, where it travels and what it carries there.
#pragma once

#include "wire/record.h"

namespace wire {

enum class Direction : uint8_t { kToClient, kToServer, kToKernel, kFromKernel };

enum class Shape : uint8_t {
    kNever,  // does not travel that way
    kNone,   // without a payload
    kRecord, // one record
    kRun,    // any number of records back to back
    kOpaque  // laid out by others
};

struct Payload {
    Shape shape = Shape::kNever;
    const Record *record = nullptr; // of kRecord and kRun, else null
    // The server's, of unknown layout on a switch: the record is what the sandbox makes of it.
    bool assumed = false;
};
[[nodiscard]] inline Payload one(const Record &record) {
    return {Shape::kRecord, &record};
}
[[nodiscard]] inline Payload run_of(const Record &record) {
    return {Shape::kRun, &record};
}

struct Event {
    uint32_t type;
    const char *name; // the identifier of events.h
    Payload to_client;
    Payload to_server;
    Payload to_kernel;
    Payload from_kernel; // the answer to a question
    bool local;          // the library raises it in its own process too, with what `to_client` says or nothing

    [[nodiscard]] const Payload &payload(Direction direction) const;
};

[[nodiscard]] const std::vector<Event> &all_events(); // rising by type

// Null when there is none.
[[nodiscard]] const Event *find_event(uint32_t type);
// By its identifier, or its number, decimal or 0x.
[[nodiscard]] const Event *find_event(std::string_view name_or_number);

// The identifier; the number for a type without one.
[[nodiscard]] std::string event_name(uint32_t type);

// The type that an identifier or a number up to 32 bits names, also one that is no event; throws std::invalid_argument
// with a line for people.
[[nodiscard]] uint32_t parse_event(std::string_view name_or_number);

// What a message of this type carries that way: kOpaque for an unknown type.
[[nodiscard]] Payload payload_of(uint32_t type, Direction direction);

} // namespace wire
