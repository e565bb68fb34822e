#include "sandbox/announcer.h"

#include <utility>

namespace sandbox {

namespace {

bool for_the_library(uint32_t type) {
    const uint32_t submodule = type >> 7;
    return submodule == BRI_SUBMOD_CLNT_MNG || submodule == BRI_SUBMOD_DEBUG;
}

Record event_record(uint32_t type, Bytes payload) {
    Record record;
    record.kind = Kind::kEvent;
    record.type = type;
    record.payload = payload_of(payload);
    return record;
}

} // namespace

bool gets(const Connection &client, uint32_t type) {
    return client.registration.complete() && (for_the_library(type) || client.registration.wants(type));
}

unsigned Announcer::announce(uint32_t type, Bytes payload, const Target &target) {
    Batch batch;
    batch.add(type, payload);
    Record record = event_record(type, payload);
    server_.for_each(target, [&](Connection &client) {
        if (!gets(client, type))
            return;
        record.clients.push_back(client.party());
        client.send(batch);
    });
    const auto count = static_cast<unsigned>(record.clients.size());
    trace_.add(std::move(record));
    return count;
}

void Announcer::tell(Connection &client, const std::vector<Message> &messages) {
    Batch batch;
    for (const auto &[type, payload] : messages) {
        if (!gets(client, type))
            continue;
        const Bytes bytes{payload.data(), payload.size()};
        if (!batch.add(type, bytes)) {
            client.send(std::exchange(batch, Batch()));
            batch.add(type, bytes);
        }
        Record record = event_record(type, bytes);
        record.clients.push_back(client.party());
        trace_.add(std::move(record));
    }
    if (!batch.empty())
        client.send(batch);
}

unsigned Announcer::send_raw(Bytes bytes, const Target &target) {
    return server_.for_each(target, [&](Connection &client) { client.send(bytes); });
}

} // namespace sandbox
