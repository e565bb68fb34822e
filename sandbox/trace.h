// The one stream of everything that happens: what clients send, what they are sent, what becomes of them. The console,
// trace files and whoever waits for something are its readers.
#pragma once

#include "sandbox/answer.h"
#include "sandbox/loop.h"
#include "sandbox/message.h"
#include "wire/event.h"

#include <deque>

namespace sandbox {

// A client as records name it: its number and, once it has registered, its name.
struct Party {
    unsigned id = 0;
    std::string name;

    [[nodiscard]] std::string text() const; // "client 3 (port_watch)"
    // "3" or "port_watch", with or without an @ before it.
    [[nodiscard]] bool is(std::string_view word) const;
};
using Client = std::shared_ptr<const Party>;

enum class Kind {
    kNote,    // in words: a client connected, the server listens
    kRequest, // a client sent a message
    kRefusal, // a request was not carried out; `result` says why
    kEvent    // a message for clients: the ones named have got it, unless `result` says what became of it
};

struct Record {
    Kind kind = Kind::kNote;
    std::vector<Client> clients; // who sent it, got it, or is spoken of
    uint32_t type = 0;
    Buffer payload;
    std::string result;  // empty when everything took its course; of a note, what it says
    uint64_t number = 0; // from 1; this and the time are the trace's to set
    Microseconds time{};
};

// Calls everybody who has subscribed, also when some of them go or come meanwhile.
template <class... Arguments> class Signal {
  public:
    using Reader = std::function<void(Arguments...)>;

    // Until what it gives is gone.
    [[nodiscard]] std::shared_ptr<void> subscribe(Reader reader) {
        const auto held = std::make_shared<Held>(Held{std::move(reader)});
        readers_.push_back(held);
        return {nullptr, [held](void *) { held->there = false; }};
    }
    void operator()(Arguments... arguments) {
        ++depth_;
        for (const auto &held : readers_)
            if (held->there)
                held->reader(arguments...);
        if (--depth_ == 0)
            readers_.remove_if([](const auto &held) { return !held->there; });
    }

  private:
    // One that has gone stays until nobody is being called: it may be the one that is.
    struct Held {
        Reader reader;
        bool there = true;
    };
    std::list<std::shared_ptr<Held>> readers_;
    unsigned depth_ = 0; // of calls inside of calls
};

class Trace {
  public:
    explicit Trace(const Loop &loop) : loop_(loop) {}

    void add(Record record);
    void note(std::string text, std::vector<Client> clients = {}) {
        add({Kind::kNote, std::move(clients), 0, {}, std::move(text)});
    }
    void message(Kind kind, std::vector<Client> clients, uint32_t type, Bytes payload, std::string result = {}) {
        add({kind, std::move(clients), type, buffer_of(payload), std::move(result)});
    }

    // Every record. Readers run inside of what they read about: they take note and act later.
    using Subscription = std::shared_ptr<void>;
    Signal<const Record &> records;
    // After every record, and by whoever changes something that others may wait for and leaves no record.
    Signal<> changed;

    // The last ones, oldest first: 2048 records or 512 KiB of payload, whichever is less.
    [[nodiscard]] const std::deque<Record> &history() const { return history_; }
    // The number of the newest record; 0 before the first.
    [[nodiscard]] uint64_t last() const { return last_; }

  private:
    const Loop &loop_;
    std::deque<Record> history_;
    size_t history_bytes_ = 0;
    uint64_t last_ = 0;
};

// The way that messages of a kind take.
wire::Direction direction_of(Kind kind);

// "VLAN_EVENT_RENAME(392)"; the number alone for a type without a name.
std::string event_text(uint32_t type);
// A record as a line for people, and as JSON.
std::string record_text(const Record &record);
Fields record_json(const Record &record);

// The trace in a file: one JSON object a line, written as it happens. Throws std::runtime_error when it cannot be made.
[[nodiscard]] Trace::Subscription write_records(Trace &trace, const std::string &path);
// The trace as lines on standard output, with the time in seconds at the begin of each when asked for.
[[nodiscard]] Trace::Subscription print_records(Trace &trace, bool with_time);

} // namespace sandbox
