#include "sandbox/trace.h"

#include "sandbox/parse.h"
#include "wire/json.h"
#include "wire/text.h"

#include <utility>

namespace sandbox {

namespace {

constexpr size_t kHistoryRecords = 2048;
constexpr size_t kHistoryBytes = size_t{512} << 10;

size_t size_of(const Record &record) {
    return record.payload != nullptr ? record.payload->size() : 0;
}

std::string sender_of(const Record &record) {
    return record.clients.empty() ? "server" : record.clients[0]->text();
}

std::string receivers_of(const Record &record) {
    return record.clients.size() == 1 ? record.clients[0]->text() : std::to_string(record.clients.size()) + " clients";
}

constexpr const char *kKinds[] = {"note", "request", "refusal", "event"}; // by Kind

// Cut for people, who find the rest in a trace file.
std::string fields_text(const Record &record) {
    constexpr size_t longest = 200;
    if (size_of(record) == 0)
        return "";
    std::string text = wire::text_of(wire::payload_of(record.type, direction_of(record.kind)), *record.payload);
    if (text.size() > longest)
        text.replace(longest, std::string::npos, " ...");
    return ": " + text;
}

} // namespace

Payload payload_of(Bytes bytes) {
    return std::make_shared<const std::vector<uint8_t>>(bytes.data, bytes.data + bytes.size);
}

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
    history_bytes_ += size_of(record);
    history_.push_back(std::move(record));
    while (history_.size() > kHistoryRecords || (history_bytes_ > kHistoryBytes && history_.size() > 1)) {
        history_bytes_ -= size_of(history_.front());
        history_.pop_front();
    }
    records(history_.back()); // stays where it is, also when a reader adds more
    changed();
}

void Trace::note(std::string text, std::vector<Client> clients) {
    Record record;
    record.note = std::move(text);
    record.clients = std::move(clients);
    add(std::move(record));
}

wire::Direction direction_of(Kind kind) {
    return kind == Kind::kEvent ? wire::Direction::kToClient : wire::Direction::kToServer;
}

std::string record_text(const Record &record) {
    const std::string message = event_text(record.type) + ", " + std::to_string(size_of(record)) + " bytes";
    const std::string result = record.result.empty() ? "" : ", " + record.result;
    switch (record.kind) {
    case Kind::kRequest:
        return escaped(sender_of(record) + ": sent " + message + result + fields_text(record));
    case Kind::kRefusal:
        return escaped(sender_of(record) + ": " + event_text(record.type) + " ignored" + result);
    case Kind::kEvent:
        return escaped("event " + message + ", to " + receivers_of(record) + result + fields_text(record));
    case Kind::kNote:
        break;
    }
    return escaped((record.clients.empty() ? "" : sender_of(record) + ": ") + record.note);
}

Fields record_json(const Record &record) {
    Fields clients = Fields::array();
    for (const Client &client : record.clients)
        clients.push_back(client->name.empty() ? std::to_string(client->id) : client->name);
    Fields json = {{"number", record.number},
                   {"time", static_cast<double>(record.time.count()) / 1e6},
                   {"kind", kKinds[static_cast<size_t>(record.kind)]},
                   {"clients", clients}};
    if (record.kind == Kind::kNote) {
        json["note"] = record.note;
        return json;
    }
    json["type"] = wire::event_name(record.type);
    if (size_of(record) != 0)
        json["fields"] = wire::json_of(wire::payload_of(record.type, direction_of(record.kind)), *record.payload);
    if (!record.result.empty())
        json["result"] = record.result;
    return json;
}

} // namespace sandbox
