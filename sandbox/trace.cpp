#include "sandbox/trace.h"

#include "wire/json.h"
#include "wire/text.h"

#include <cerrno>
#include <fstream>

namespace sandbox {

namespace {

constexpr size_t kHistoryRecords = 2048;
constexpr size_t kHistoryBytes = size_t{512} << 10;

constexpr const char *kKinds[] = {"note", "request", "refusal", "event"}; // by Kind

wire::Payload payload_of(const Record &record) {
    return wire::payload_of(record.type, direction_of(record.kind));
}

// Cut for people, who find the rest in a trace file.
std::string fields_text(const Record &record) {
    constexpr size_t longest = 200;
    if (record.payload.empty())
        return "";
    std::string text = wire::text_of(payload_of(record), record.payload);
    if (text.size() > longest)
        text.replace(longest, std::string::npos, " ...");
    return ": " + text;
}

} // namespace

std::string Party::text() const {
    return "client " + std::to_string(id) + (name.empty() ? "" : " (" + name + ")");
}

bool Party::is(std::string_view word) const {
    if (!word.empty() && word[0] == '@')
        word.remove_prefix(1);
    return word == std::to_string(id) || (!name.empty() && word == name);
}

void Trace::add(Record record) {
    record.number = ++last_;
    record.time = loop_.now();
    history_bytes_ += record.payload.size();
    history_.push_back(std::move(record));
    while (history_.size() > kHistoryRecords || (history_bytes_ > kHistoryBytes && history_.size() > 1)) {
        history_bytes_ -= history_.front().payload.size();
        history_.pop_front();
    }
    records(history_.back()); // stays where it is, also when a reader adds more
    changed();
}

wire::Direction direction_of(Kind kind) {
    return kind == Kind::kEvent ? wire::Direction::kToClient : wire::Direction::kToServer;
}

std::string event_text(uint32_t type) {
    const std::string number = std::to_string(type);
    return wire::find_event(type) != nullptr ? wire::event_name(type) + "(" + number + ")" : number;
}

std::string record_text(const Record &record) {
    const std::string sender = record.clients.empty() ? "server" : record.clients[0]->text();
    const std::string message = event_text(record.type) + ", " + std::to_string(record.payload.size()) + " bytes";
    const std::string result = record.result.empty() ? "" : ", " + record.result;
    const size_t count = record.clients.size();
    switch (record.kind) {
    case Kind::kRequest:
        return escaped(sender + ": sent " + message + result + fields_text(record));
    case Kind::kRefusal:
        return escaped(sender + ": " + event_text(record.type) + " ignored" + result);
    case Kind::kEvent:
        return escaped("event " + message + ", to " + (count == 1 ? sender : std::to_string(count) + " clients") +
                       result + fields_text(record));
    case Kind::kNote:
        break;
    }
    return escaped((count == 0 ? "" : sender + ": ") + record.result);
}

Fields record_json(const Record &record) {
    const bool note = record.kind == Kind::kNote;
    Fields clients = Fields::array();
    for (const Client &client : record.clients)
        clients.push_back(client->name.empty() ? std::to_string(client->id) : client->name);
    Fields json = {{"number", record.number},
                   {"time", static_cast<double>(record.time.count()) / 1e6},
                   {"kind", kKinds[static_cast<size_t>(record.kind)]},
                   {"clients", clients}};
    if (!note)
        json["type"] = wire::event_name(record.type);
    if (!record.payload.empty())
        json["fields"] = wire::json_of(payload_of(record), record.payload);
    if (note || !record.result.empty())
        json[note ? "note" : "result"] = record.result;
    return json;
}

Trace::Subscription write_records(Trace &trace, const std::string &path) {
    const auto file = std::make_shared<std::ofstream>(path);
    if (!*file)
        throw std::runtime_error("cannot write " + path + ": " + std::strerror(errno));
    return trace.records.subscribe([file](const Record &record) { *file << record_json(record).dump() << std::endl; });
}

Trace::Subscription print_records(Trace &trace, bool with_time) {
    return trace.records.subscribe([with_time](const Record &record) {
        char time[32] = "";
        if (with_time)
            std::snprintf(time, sizeof time, "%10.6f ", static_cast<double>(record.time.count()) / 1e6);
        say(time + record_text(record));
    });
}

} // namespace sandbox
