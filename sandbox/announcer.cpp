#include "sandbox/announcer.h"

#include <utility>

namespace sandbox {

namespace {

// What every client's library takes; the question about addresses is one that no host registers.
bool for_the_library(uint32_t type) {
    const uint32_t submodule = type >> 7;
    return submodule == BRI_SUBMOD_CLNT_MNG || submodule == BRI_SUBMOD_DEBUG || type == RESEARCH_EVENT_SS_ORIGIN_MAC;
}

Batch batch_of(const Message &message) {
    Batch batch;
    batch.add(message.type, message.bytes());
    return batch;
}

} // namespace

bool gets(const Connection &client, uint32_t type) {
    return client.registration.complete() && (for_the_library(type) || client.registration.wants(type));
}

unsigned Announcer::announce(uint32_t type, Bytes payload, const Target &target) {
    const Message message{type, {payload.data, payload.data + payload.size}};
    const Batch batch = batch_of(message);
    std::vector<Client> told;
    unsigned count = 0;
    server_.for_each(target, [&](Connection &client) {
        if (!gets(client, type))
            return;
        ++count;
        if (!pass(client, message, decide(client, message)))
            return;
        told.push_back(client.party());
        send(client, batch);
    });
    if (!told.empty() || count == 0)
        record(message, std::move(told), "");
    return count;
}

void Announcer::tell(Connection &client, const std::vector<Message> &messages) {
    Batch batch;
    for (const Message &message : messages) {
        if (!gets(client, message.type) || !pass(client, message, decide(client, message)))
            continue;
        if (!batch.add(message.type, message.bytes())) {
            send(client, std::exchange(batch, Batch()));
            batch.add(message.type, message.bytes());
        }
        record(message, {client.party()}, "");
    }
    if (!batch.empty())
        send(client, batch);
}

unsigned Announcer::send_raw(Bytes bytes, const Target &target) {
    return server_.for_each(target, [&](Connection &client) { client.send(bytes); });
}

Verdict Announcer::decide(const Connection &client, const Message &message) {
    return rules_.empty() ? Verdict() : rules_.decide(Kind::kEvent, message.type, message.bytes(), *client.party());
}

bool Announcer::pass(const Connection &client, const Message &message, const Verdict &verdict) {
    if (verdict.fault == Fault::kNone)
        return true;
    record(message, {client.party()}, verdict.text());
    const unsigned id = client.id();
    if (verdict.fault == Fault::kDelay)
        later_.after(verdict.delay, [this, id, message] { deliver(id, message); });
    else if (verdict.fault == Fault::kReorder)
        held_[id].push_back(message);
    else if (verdict.fault == Fault::kDuplicate)
        later_.after(Microseconds(0), [this, id, message] { deliver(id, message); });
    return verdict.fault == Fault::kDuplicate;
}

// The messages that were held go behind this one.
void Announcer::send(Connection &client, const Batch &batch) {
    client.send(batch);
    const auto held = held_.find(client.id());
    if (held == held_.end())
        return;
    const std::vector<Message> messages = std::move(held->second);
    held_.erase(held);
    for (const Message &message : messages)
        deliver(client.id(), message);
}

// The client may have gone meanwhile.
void Announcer::deliver(unsigned id, const Message &message) {
    server_.for_each(Target("@" + std::to_string(id)), [&](Connection &client) {
        if (client.id() != id || !gets(client, message.type))
            return;
        record(message, {client.party()}, "");
        send(client, batch_of(message));
    });
}

void Announcer::record(const Message &message, std::vector<Client> clients, const std::string &result) {
    Record record;
    record.kind = Kind::kEvent;
    record.type = message.type;
    record.payload = payload_of(message.bytes());
    record.clients = std::move(clients);
    record.result = result;
    trace_.add(std::move(record));
}

} // namespace sandbox
