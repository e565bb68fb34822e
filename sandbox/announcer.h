// The one road of everything that goes to clients: rules, who wants it, their queues, the trace. And what a client is
// told about itself, its role and how far its data has come, and asked: whether VLANs may be created, a port change its
// mode.
#pragma once

#include "sandbox/rules.h"
#include "sandbox/server.h"

#include <set>

namespace sandbox {

class Announcer {
  public:
    Announcer(Loop &loop, Server &server, Trace &trace, Rules &rules)
        : server_(server), trace_(trace), rules_(rules),
          detour_(loop, [this](unsigned client, const Message &message) { deliver(client, message); }) {}

    // Sends an event to the clients that registered it; how many of them. Client-management and debug messages are for
    // the client library itself and go to every registered client.
    unsigned announce(uint32_t type, Bytes payload, const Target &target = Target());
    // That, for the parts of the switch: what they announce has happened.
    Announce everybody() {
        return [this](uint32_t type, Bytes payload) {
            on_change(type, payload);
            announce(type, payload);
        };
    }
    // Told before the clients are.
    Announce on_change = [](uint32_t, Bytes) {};
    // The same to one client, in one batch as far as they fit.
    void tell(Connection &client, const std::vector<Message> &messages);

  private:
    // Does with a message what the rules say; true when it is to go now.
    bool pass(const Connection &client, uint32_t type, Bytes payload);
    void send(Connection &client, Bytes batch, size_t messages);
    void deliver(unsigned id, const Message &message);

    Server &server_;
    Trace &trace_;
    Rules &rules_;
    Detour detour_;
};

// Whether the client is told of events of that type at all.
bool gets(const Connection &client, uint32_t type);

// After its registration a client is told its role, the begin and the end of the backup data and the end of the
// synchronisation; at once, or, held, one at a time.
class Synchronisation {
  public:
    Synchronisation(Server &server, Announcer &announcer, bool slave)
        : server_(server), announcer_(announcer), slave_(slave) {}

    void begin(Connection &client);

    // Those that register from now on stop behind the begin of the backup data.
    void hold(const Target &target);
    // The next one for those that stand; how many did.
    unsigned next(const Target &target) { return advance(target, 1); }
    // All that is left, and no more holding; how many stood.
    unsigned go(const Target &target);

    // The role of everybody, or, with a name or number, of one client, also when it comes back under that name.
    unsigned set_role(const Target &target, bool slave);
    [[nodiscard]] bool slave() const { return slave_; }
    // A slave takes over: begin makes it a master.
    void begin_switchover(const Target &target);
    void end_switchover(const Target &target) { announcer_.announce(BRIDGE_EVENT_SWITCHOVER_END, {}, target); }

  private:
    void keep_role(const Target &target, bool slave);
    // Up to that step; how many were behind it.
    unsigned advance(const Target &target, unsigned steps);

    Server &server_;
    Announcer &announcer_;
    bool slave_;
    std::map<std::string, bool> roles_; // slave?, by name, where it differs from everybody's
    bool hold_all_ = false;
    std::set<std::string> held_; // names
};

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
    void look_for_lost() { next_.start(Milliseconds(0)); }

    // How long the clients have for an answer.
    void set_patience(uint32_t milliseconds) { patience_ = Milliseconds(milliseconds); }

  private:
    struct Question {
        Word word;
        Settled settled;
    };

    void begin_next();
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
    Timer next_; // looks who is lost, and then for the next question
};

} // namespace sandbox
