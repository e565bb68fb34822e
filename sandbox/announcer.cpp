#include "sandbox/announcer.h"

#include "wire/batch.h"

#include <algorithm>
#include <iterator>

namespace sandbox {

namespace {

constexpr uint32_t kSteps[] = {BRIDGE_EVENT_BKUP_DATA_BEGIN, BRIDGE_EVENT_BKUP_DATA_END, BRIDGE_EVENT_SYNC_DATA_END};
static_assert(std::size(kSteps) == kSynchronised);

// What every client's library takes; the question about addresses is one that no host registers.
bool for_the_library(uint32_t type) {
    const uint32_t submodule = type >> 7;
    return submodule == BRI_SUBMOD_CLNT_MNG || submodule == BRI_SUBMOD_DEBUG || type == RESEARCH_EVENT_SS_ORIGIN_MAC;
}

// The library of a slave, or of a client that lacks the server's data, drops the question, and no answer would come.
bool listens(const Connection &client) {
    return !client.slave && client.sync_step > 1;
}

} // namespace

bool gets(const Connection &client, uint32_t type) {
    return client.registration.complete &&
           (for_the_library(type) || bri_event_set_has(&client.registration.types, type) != 0);
}

unsigned Announcer::announce(uint32_t type, Bytes payload, const Target &target) {
    const Buffer batch = wire::join({{type, payload}});
    std::vector<Client> told;
    unsigned count = 0;
    server_.for_each(target, [&](Connection &client) {
        if (!gets(client, type))
            return;
        ++count;
        if (!pass(client, type, payload))
            return;
        told.push_back(client.party());
        client.send(batch, 1);
    });
    if (!told.empty() || count == 0)
        trace_.message(Kind::kEvent, told, type, payload);
    for (const Client &client : told) // behind it, in the trace too
        detour_.release(client->id);
    return count;
}

void Announcer::tell(Connection &client, const std::vector<Message> &messages) {
    std::vector<wire::Message> batch;
    size_t size = 0;
    const auto flush = [&] {
        if (!batch.empty())
            send(client, wire::join(batch), batch.size());
        batch.clear();
        size = 0;
    };
    for (const Message &message : messages) {
        if (!gets(client, message.type) || !pass(client, message.type, message.payload))
            continue;
        const size_t more = sizeof(bri_msg_hdr) + message.payload.size();
        if (size + more > BRI_BATCH_MSG_MAX)
            flush();
        batch.push_back({message.type, message.payload});
        size += more;
        trace_.message(Kind::kEvent, {client.party()}, message.type, message.payload);
    }
    flush();
}

bool Announcer::pass(const Connection &client, uint32_t type, Bytes payload) {
    if (rules_.empty())
        return true;
    const Verdict verdict = rules_.decide(Kind::kEvent, type, payload, *client.party());
    if (verdict.fault == Fault::kNone)
        return true;
    trace_.message(Kind::kEvent, {client.party()}, type, payload, verdict.text());
    return detour_.pass(client.id(), {type, buffer_of(payload)}, verdict);
}

void Announcer::send(Connection &client, Bytes batch, size_t messages) {
    client.send(batch, messages);
    detour_.release(client.id());
}

// The client may have gone meanwhile.
void Announcer::deliver(unsigned id, const Message &message) {
    server_.with(id, [&](Connection &client) {
        if (!gets(client, message.type))
            return;
        trace_.message(Kind::kEvent, {client.party()}, message.type, message.payload);
        send(client, wire::join({{message.type, message.payload}}), 1);
    });
}

// There is no data yet beyond the shared tables, so begin and end meet.
void Synchronisation::begin(Connection &client) {
    const std::string &name = client.registration.name;
    const auto own = roles_.find(name);
    client.slave = own == roles_.end() ? slave_ : own->second;
    std::vector<Message> messages = {{BRIDGE_EVEVT_SERVER_STAT, {uint8_t{client.slave}}}};
    client.sync_step = hold_all_ || held_.count(name) != 0 ? 1 : kSynchronised;
    for (unsigned step = 0; step < client.sync_step; ++step)
        messages.push_back({kSteps[step]});
    announcer_.tell(client, messages);
}

void Synchronisation::hold(const Target &target) {
    hold_all_ = hold_all_ || target.all();
    server_.for_each(target, [&](const Connection &client) { held_.insert(client.registration.name); });
    if (!target.all())
        held_.insert(target.word());
}

unsigned Synchronisation::advance(const Target &target, unsigned steps) {
    unsigned count = 0;
    server_.for_each(target, [&](Connection &client) {
        if (!client.registration.complete || client.sync_step == kSynchronised)
            return;
        const unsigned end = std::min(client.sync_step + steps, kSynchronised);
        while (client.sync_step < end)
            announcer_.tell(client, {{kSteps[client.sync_step++]}});
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
    server_.for_each(target, [&](const Connection &client) { held_.erase(client.registration.name); });
    return advance(target, kSynchronised);
}

void Synchronisation::keep_role(const Target &target, bool slave) {
    if (target.all()) {
        slave_ = slave;
        roles_.clear();
    }
    server_.for_each(target, [&](Connection &client) {
        client.slave = slave;
        if (!target.all())
            roles_[client.registration.name] = slave;
    });
}

unsigned Synchronisation::set_role(const Target &target, bool slave) {
    keep_role(target, slave);
    const uint8_t role = slave ? 1 : 0;
    return announcer_.announce(BRIDGE_EVEVT_SERVER_STAT, bytes_of(role), target);
}

void Synchronisation::begin_switchover(const Target &target) {
    keep_role(target, false);
    announcer_.announce(BRIDGE_EVENT_SWITCHOVER_BEGIN, {}, target);
}

Prejudge::Prejudge(Loop &loop, Server &server, Announcer &announcer)
    : server_(server), announcer_(announcer), limit_(loop, [this] { time_out(); }), next_(loop, [this] {
          forget_lost();
          begin_next();
      }) {}

void Prejudge::ask(Word word, Settled settled) {
    questions_.push_back({std::move(word), std::move(settled)});
    if (!asking_ && questions_.size() == 1)
        begin_next();
}

void Prejudge::begin_next() {
    if (asking_ || questions_.empty())
        return;
    const std::optional<Message> question = questions_.front().word();
    waiting_.clear();
    asking_ = true;
    type_ = question ? question->type : 0;
    server_.for_each(Target(), [&](Connection &client) {
        if (!question || !gets(client, type_) || !listens(client))
            return;
        announcer_.tell(client, {*question});
        if (client.open())
            waiting_.insert(client.id());
    });
    if (waiting_.empty())
        settle("");
    else
        limit_.start(patience_);
}

void Prejudge::answer(const Connection &client, uint32_t type, const std::string &objection) {
    const auto late = overdue_.find({client.id(), type});
    if (late != overdue_.end()) {
        if (--late->second == 0)
            overdue_.erase(late);
        return;
    }
    if (!asking_ || type != type_ || waiting_.erase(client.id()) == 0)
        return;
    if (!objection.empty())
        settle(client.party()->text() + " " + objection);
    else if (waiting_.empty())
        settle("");
}

void Prejudge::forget_lost() {
    std::set<unsigned> there;
    server_.for_each(Target(), [&](const Connection &client) { there.insert(client.id()); });
    std::erase_if(overdue_, [&](const auto &entry) { return there.count(entry.first.first) == 0; });
    std::erase_if(waiting_, [&](unsigned id) { return there.count(id) == 0; });
    if (asking_ && waiting_.empty())
        settle("");
}

// Who has not answered by now will do so later, and must not answer the next question by that.
void Prejudge::settle(const std::string &refusal) {
    limit_.cancel();
    for (const unsigned id : waiting_)
        ++overdue_[{id, type_}];
    waiting_.clear();
    const Question question = std::move(questions_.front());
    questions_.pop_front();
    asking_ = false;
    question.settled(refusal);
    if (!questions_.empty())
        next_.start(Milliseconds(0));
}

} // namespace sandbox
