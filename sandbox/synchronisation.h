// What a client is told about itself: its role, and how far its data has come.
#pragma once

#include "sandbox/announcer.h"
#include "sandbox/server.h"

#include <map>
#include <set>
#include <string>

namespace sandbox {

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
    unsigned next(const Target &target);
    // All that is left, and no more holding; how many stood.
    unsigned go(const Target &target);

    // The role of everybody, or, with a name or number, of one client, also when it comes back under that name.
    unsigned set_role(const Target &target, bool slave);
    [[nodiscard]] bool slave() const { return slave_; }
    // A slave takes over: begin makes it a master.
    unsigned begin_switchover(const Target &target);
    unsigned end_switchover(const Target &target);

  private:
    [[nodiscard]] bool is_slave(const Connection &client) const;
    void tell_next(Connection &client);

    Server &server_;
    Announcer &announcer_;
    bool slave_;
    std::map<std::string, bool> roles_; // slave?, by name, where it differs from everybody's
    bool hold_all_ = false;
    std::set<std::string> held_; // names
};

} // namespace sandbox
