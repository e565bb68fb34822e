// The question to the clients whether VLANs may be created.
#pragma once

#include "sandbox/announcer.h"
#include "sandbox/loop.h"
#include "sandbox/server.h"
#include "sandbox/vlan_sets.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>

namespace sandbox {

// One question is out at a time, because an answer does not say which one it belongs to; the others wait in order.
// Every client that registered the question is asked and every one must accept. A client that has gone need not.
class Prejudge {
  public:
    Prejudge(Loop &loop, Server &server, Announcer &announcer);

    // `vlans` gives the set when its turn has come; an empty one is settled without a question. `settled` is told that
    // set and why it was refused, nothing when it was accepted.
    using Vlans = std::function<vlanset()>;
    using Settled = std::function<void(const vlanset &vlans, const std::string &refusal)>;
    void ask(Vlans vlans, Settled settled);

    // An answer: the type of the question, and its result word.
    void answer(const Connection &client, uint32_t type, bool accepted);
    // Some client is gone. Safe in the middle of an announcement: what follows from it happens later.
    void look_for_lost() { lost_.start(Milliseconds(0)); }

    // How long the clients have for an answer.
    void set_patience(Milliseconds patience) { patience_ = patience; }
    [[nodiscard]] Milliseconds patience() const { return patience_; }

  private:
    struct Question {
        Vlans vlans;
        Settled settled;
    };

    void begin_next();
    void send_question();
    void settle(const std::string &refusal);
    void time_out();
    void forget_lost();

    Server &server_;
    Announcer &announcer_;
    std::deque<Question> questions_; // the first one is out when asking_
    bool asking_ = false;
    uint32_t type_ = 0;
    vlanset vlans_{};
    std::set<unsigned> waiting_;                                // ids of the clients that have not answered yet
    std::map<std::pair<unsigned, uint32_t>, unsigned> overdue_; // answers by client and type that come too late
    Milliseconds patience_{3000};
    Timer limit_;
    Timer next_;
    Timer lost_;
};

} // namespace sandbox
