// The question to the clients whether something may be done: VLANs be created, a port change its mode.
#pragma once

#include "sandbox/announcer.h"

#include <deque>
#include <optional>

namespace sandbox {

// One question is out at a time, because an answer does not say which one it belongs to; the others wait in order.
// Every client that registered the question is asked and every one must accept. A client that has gone need not.
class Prejudge {
  public:
    Prejudge(Loop &loop, Server &server, Announcer &announcer);

    // `word` gives the question when its turn has come; none is settled at once. `settled` is told why it was refused,
    // nothing when it was accepted.
    using Word = std::function<std::optional<Message>()>;
    using Settled = std::function<void(const std::string &refusal)>;
    void ask(Word word, Settled settled);

    // An answer: the type of the question, and what the client did instead of accepting, "refused"; empty when it
    // accepted.
    void answer(const Connection &client, uint32_t type, const std::string &objection);
    // Some client is gone. Safe in the middle of an announcement: what follows from it happens later.
    void look_for_lost() { lost_.start(Milliseconds(0)); }

    // How long the clients have for an answer.
    void set_patience(uint32_t milliseconds) { patience_ = Milliseconds(milliseconds); }

  private:
    struct Question {
        Word word;
        Settled settled;
    };

    void begin_next();
    void send_question(const Message &question);
    void settle(const std::string &refusal);
    void time_out() { settle(std::to_string(waiting_.size()) + " clients did not answer in time"); }
    void forget_lost();

    Server &server_;
    Announcer &announcer_;
    std::deque<Question> questions_; // the first one is out when asking_
    bool asking_ = false;
    uint32_t type_ = 0;
    std::set<unsigned> waiting_;                                // ids of the clients that have not answered yet
    std::map<std::pair<unsigned, uint32_t>, unsigned> overdue_; // answers by client and type that come too late
    Milliseconds patience_{3000};
    Timer limit_;
    Timer next_;
    Timer lost_;
};

} // namespace sandbox
