#include "wire/json.h"

#include "wire/draft.h"
#include "wire/value.h"

#include <stdexcept>

namespace wire {

namespace {

Json record_json(const Record &record, Bytes bytes, Order order);

Json records_json(const Record &record, const std::vector<Bytes> &records, Order order) {
    Json list = Json::array();
    for (const Bytes one : records)
        list.push_back(record_json(record, one, order));
    return list;
}

Json set_json(const Field &field, Bytes bytes, Order order) {
    Json list = Json::array();
    for (const unsigned id : ids_of(field, bytes, order)) {
        const Event *event = field.kind == Kind::kEventSet ? find_event(id) : nullptr;
        list.push_back(event != nullptr ? Json(event->name) : Json(id));
    }
    return list;
}

Json value_json(const Field &field, Bytes bytes, Order order) {
    if (field.is_set())
        return set_json(field, bytes, order);
    std::string text = value_text(field, bytes, order);
    const bool number = field.is_number() && field.kind != Kind::kFlags && field.count() == 1 &&
                        text.find_first_not_of("-0123456789") == std::string::npos;
    return number ? Json(std::stoll(text)) : Json(std::move(text));
}

Json record_json(const Record &record, Bytes bytes, Order order) {
    const View view(record, bytes);
    Json json = Json::object();
    for (const Field &field : record.fields) {
        if (!view.has(field))
            continue;
        if (field.record != nullptr)
            json[field.name] = records_json(*field.record, view.records(field), order);
        else if (!is_quiet(field, bytes) || (field.kind != Kind::kReserved && field.kind != Kind::kBytes))
            json[field.name] = value_json(field, bytes, order);
    }
    if (view.is_cut())
        json[std::string(kLength)] = bytes.size();
    if (!view.rest().empty())
        json[std::string(kRest)] = hex_text(view.rest());
    return json;
}

Buffer record_bytes(const Record &record, const Json &json, Order order);

Buffer records_bytes(const Record &record, const Json &json, Order order) {
    Buffer all;
    for (const Json &one : json) {
        const Buffer bytes = record_bytes(record, one, order);
        all.insert(all.end(), bytes.begin(), bytes.end());
    }
    return all;
}

// As value.h reads it: a string as it stands, a number, a set's array between commas.
std::string word_of(const std::string &name, const Json &value) {
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_number_integer())
        return value.dump();
    if (!value.is_array())
        throw std::invalid_argument("the field \"" + printable(name) + "\" cannot be " + value.dump().substr(0, 20));
    std::string words;
    for (const Json &one : value) {
        if (one.is_array())
            throw std::invalid_argument("the field \"" + printable(name) + "\" cannot hold an array");
        words += (words.empty() ? "" : ",") + word_of(name, one);
    }
    return words.empty() ? "none" : words;
}

Buffer record_bytes(const Record &record, const Json &json, Order order) {
    if (!json.is_object())
        throw std::invalid_argument("an object expected instead of " + json.dump().substr(0, 20));
    Draft draft(record, order);
    for (const auto &[name, value] : json.items()) {
        const Record *inner = draft.records_of(name);
        if (inner != nullptr && value.is_array())
            draft.set_records(name, records_bytes(*inner, value, order));
        else
            draft.set(name, word_of(name, value));
    }
    return draft.bytes();
}

} // namespace

Json json_of(const Payload &payload, Bytes bytes, Order order) {
    const Record &record = record_in(payload);
    return payload.shape == Shape::kRun ? records_json(record, pieces_of(bytes, record.size), order)
                                        : record_json(record, bytes, order);
}

Buffer parse_json(const Payload &payload, const Json &json, Order order) {
    const Record &record = record_in(payload);
    return payload.shape == Shape::kRun && json.is_array() ? records_bytes(record, json, order)
                                                           : record_bytes(record, json, order);
}

} // namespace wire
