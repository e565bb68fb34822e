// Payloads as JSON, with the fields, words and rules of text.h.
//
//     {"ifx": 3, "mode": "trunk", "pvid": 10, "allow": [1, 2, 3]}
//
// A number is a JSON number, its name where it has one; a set is an array, of events with their names. Everything else
// is the text that value.h gives: arrays, flags, addresses, bytes, and texts, with \xHH for what is not printable.
// Records inside a record are an array of objects, a run is an array. Every field that is there is a member, but
// reserved and foreign bytes that are 0. "length" and "rest" stand for what they stand for in texts. When read,
// whatever a text may hold may stand as a string.
//
// What reads throws std::invalid_argument with one line for people, also for JSON of another form.
#pragma once

#include "wire/bytes.h"
#include "wire/event.h"

#include <nlohmann/json.hpp>

namespace wire {

using Json = nlohmann::ordered_json; // members keep the order in which they were put in

[[nodiscard]] Json json_of(const Payload &payload, Bytes bytes, Order order = Order::kNative);
[[nodiscard]] Buffer parse_json(const Payload &payload, const Json &json, Order order = Order::kNative);

template <class T> [[nodiscard]] Json json_of(const T &object) {
    return json_of(one(record_of<T>()), bytes_of(object));
}

} // namespace wire
