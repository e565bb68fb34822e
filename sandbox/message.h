// What everybody here speaks of: bytes and messages, who is told of them, and words that other processes write too.
#pragma once

#include "wire/bytes.h"

#include <bridge/events.h>

#include <functional>
#include <stdexcept>
#include <string>

namespace sandbox {

using wire::append;
using wire::Buffer;
using wire::Bytes;
using wire::bytes_of;
using wire::object_of;

// Sends an event to the clients that registered it.
using Announce = std::function<void(uint32_t type, Bytes payload)>;

inline Buffer buffer_of(Bytes bytes) {
    return {bytes.begin(), bytes.end()};
}

// A run of records back to back; one that is cut at its end is passed over.
template <class Record> std::vector<Record> records_of(Bytes run) {
    std::vector<Record> records;
    for (; run.size() >= sizeof(Record); run = run.subspan(sizeof(Record)))
        records.push_back(object_of<Record>(run));
    return records;
}
template <class Record> Bytes run_of(const std::vector<Record> &records) {
    return {reinterpret_cast<const uint8_t *>(records.data()), records.size() * sizeof(Record)};
}

// One message, whole.
struct Message {
    uint32_t type;
    Buffer payload = {};
};

// Operations and commands refuse with a reason for people.
inline void refuse_if(bool refused, const std::string &reason) {
    if (refused)
        throw std::invalid_argument(reason);
}
// That something cannot be done at all, which no command can mend.
inline void fail_if(bool failed, const std::string &reason) {
    if (failed)
        throw std::runtime_error(reason);
}
inline void refuse_for(const std::string &reason) { // empty: there is none
    refuse_if(!reason.empty(), reason);
}

// Words in shared memory.
template <class T> T load(const T &word) {
    return __atomic_load_n(&word, __ATOMIC_RELAXED);
}
template <class T> void store(T &word, std::type_identity_t<T> value) {
    __atomic_store_n(&word, value, __ATOMIC_RELAXED);
}

} // namespace sandbox
