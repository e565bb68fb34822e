#include "sandbox/synchronisation.h"

#include <bridge/events.h>

#include <iterator>

namespace sandbox {

namespace {

constexpr uint32_t kSteps[] = {BRIDGE_EVENT_BKUP_DATA_BEGIN, BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SYNC_DATA_END};
static_assert(std::size(kSteps) == kSynchronised);

} // namespace

// There is no data yet beyond the shared tables, so begin and end meet.
void Synchronisation::begin(Connection &client) {
    const uint8_t role = is_slave(client) ? 1 : 0;
    std::vector<Message> messages = {{BRIDGE_EVEVT_SERVER_STAT, {role}}};
    const bool held = hold_all_ || held_.count(client.registration.name()) != 0;
    client.sync_step = held ? 1 : kSynchronised;
    for (unsigned step = 0; step < client.sync_step; ++step)
        messages.push_back({kSteps[step]});
    announcer_.tell(client, messages);
}

void Synchronisation::hold(const Target &target) {
    hold_all_ = hold_all_ || target.all();
    server_.for_each(target, [&](const Connection &client) { held_.insert(client.registration.name()); });
    if (!target.all())
        held_.insert(target.word());
}

void Synchronisation::tell_next(Connection &client) {
    announcer_.tell(client, {{kSteps[client.sync_step++]}});
}

unsigned Synchronisation::next(const Target &target) {
    unsigned count = 0;
    server_.for_each(target, [&](Connection &client) {
        if (!client.registration.complete() || client.sync_step == kSynchronised)
            return;
        tell_next(client);
        ++count;
    });
    return count;
}

unsigned Synchronisation::go(const Target &target) {
    if (target.all()) {
        hold_all_ = false;
        held_.clear();
    } else
        held_.erase(target.word());
    unsigned count = 0;
    server_.for_each(target, [&](Connection &client) {
        held_.erase(client.registration.name());
        count += client.registration.complete() && client.sync_step < kSynchronised ? 1U : 0U;
        while (client.registration.complete() && client.sync_step < kSynchronised)
            tell_next(client);
    });
    return count;
}

bool Synchronisation::is_slave(const Connection &client) const {
    const auto own = roles_.find(client.registration.name());
    return own == roles_.end() ? slave_ : own->second;
}

unsigned Synchronisation::set_role(const Target &target, bool slave) {
    if (target.all()) {
        slave_ = slave;
        roles_.clear();
    } else
        roles_[target.word()] = slave;
    server_.for_each(target, [&](const Connection &client) {
        if (!target.all())
            roles_[client.registration.name()] = slave;
    });
    const uint8_t role = slave ? 1 : 0;
    return announcer_.announce(BRIDGE_EVEVT_SERVER_STAT, {&role, 1}, target);
}

unsigned Synchronisation::begin_switchover(const Target &target) {
    if (target.all()) {
        slave_ = false;
        roles_.clear();
    } else
        server_.for_each(target, [&](const Connection &client) { roles_[client.registration.name()] = false; });
    return announcer_.announce(BRIDGE_EVENT_SWITCHOVER_BEGIN, {}, target);
}

unsigned Synchronisation::end_switchover(const Target &target) {
    return announcer_.announce(BRIDGE_EVENT_SWITCHOVER_END, {}, target);
}

} // namespace sandbox
