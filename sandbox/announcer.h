// The one road of everything that goes to clients: rules, who wants it, their queues, the trace. And what a client is
// told about itself: its role, and how far its data has come.
#pragma once

#include "sandbox/rules.h"
#include "sandbox/server.h"

#include <map>
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
    // That, for the parts of the switch.
    Announce everybody() {
        return [this](uint32_t type, Bytes payload) { announce(type, payload); };
    }
    // The same to one client, in one batch as far as they fit.
    void tell(Connection &client, const std::vector<Message> &messages);

  private:
    // Does with a message what the rules say; true when it is to go now.
    bool pass(const Connection &client, uint32_t type, Bytes payload);
    void send(Connection &client, Bytes batch, size_t messages);
    void deliver(unsigned client, const Message &message);

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

} // namespace sandbox
