#include "sandbox/trace.h"

#include "sandbox/parse.h"

#include <utility>

namespace sandbox {

namespace {

constexpr size_t kHistoryRecords = 4096;
constexpr size_t kHistoryBytes = size_t{4} << 20;

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
    ++depth_;
    const Record &known = history_.back(); // stays where it is, also when a reader adds more
    for (const auto &reader : readers_)
        if (*reader)
            (*reader)(known);
    if (--depth_ == 0)
        readers_.remove_if([](const auto &reader) { return !*reader; });
}

void Trace::note(std::string text, std::vector<Client> clients) {
    Record record;
    record.note = std::move(text);
    record.clients = std::move(clients);
    add(std::move(record));
}

Trace::Subscription Trace::subscribe(Reader reader) {
    const auto held = std::make_shared<Reader>(std::move(reader));
    readers_.push_back(held);
    return {nullptr, [held](void *) { *held = nullptr; }};
}

std::string record_text(const Record &record) {
    const std::string bytes = ", " + std::to_string(size_of(record)) + " bytes";
    const std::string result = record.result.empty() ? "" : ", " + record.result;
    switch (record.kind) {
    case Kind::kRequest:
        return escaped(sender_of(record) + ": sent " + event_text(record.type) + bytes + result);
    case Kind::kRefusal:
        return escaped(sender_of(record) + ": " + event_text(record.type) + " ignored" + result);
    case Kind::kEvent:
        return escaped("event " + event_text(record.type) + " to " + receivers_of(record) + bytes + result);
    case Kind::kNote:
        break;
    }
    return escaped((record.clients.empty() ? "" : sender_of(record) + ": ") + record.note);
}

Fields record_json(const Record &record) {
    Fields json = {{"number", record.number},
                   {"time", static_cast<double>(record.time.count()) / 1e6},
                   {"kind", kKinds[static_cast<size_t>(record.kind)]}};
    Fields clients = Fields::array();
    for (const Client &client : record.clients)
        clients.push_back(client->name.empty() ? std::to_string(client->id) : client->name);
    json["clients"] = clients;
    if (record.kind == Kind::kNote) {
        json["note"] = record.note;
        return json;
    }
    json["type"] = record.type;
    json["event"] = event_text(record.type);
    json["payload"] = record.payload != nullptr ? to_hex({record.payload->data(), record.payload->size()}) : "";
    json["result"] = record.result;
    return json;
}

} // namespace sandbox
