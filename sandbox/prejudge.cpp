#include "sandbox/prejudge.h"

namespace sandbox {

namespace {

// The library of a slave, or of a client that lacks the server's data, drops the question, and no answer would come.
bool listens(const Connection &client) {
    return !client.slave && client.sync_step > 1;
}

} // namespace

Prejudge::Prejudge(Loop &loop, Server &server, Announcer &announcer)
    : server_(server), announcer_(announcer), limit_(loop, [this] { time_out(); }),
      next_(loop, [this] { begin_next(); }), lost_(loop, [this] { forget_lost(); }) {}

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
    if (question)
        send_question(*question);
    if (waiting_.empty())
        settle("");
    else
        limit_.start(patience_);
}

void Prejudge::send_question(const Message &question) {
    type_ = question.type;
    server_.for_each(Target(), [&](Connection &client) {
        if (!gets(client, type_) || !listens(client))
            return;
        announcer_.tell(client, {question});
        if (client.open())
            waiting_.insert(client.id());
    });
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
