// What the bridge server does with its clients' messages: registrations, data synchronisation, origin data, requests.
#pragma once

#include "sandbox/addresses.h"
#include "sandbox/server.h"
#include "sandbox/vlans.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace sandbox {

class Bridge : private ConnectionOwner {
  public:
    Bridge(event_base *base, const std::string &tmpdir, bool slave);

    Server &server() { return server_; }
    Addresses &addresses() { return addresses_; }
    Vlans &vlans() { return vlans_; }
    // Called after anything that somebody may wait for: a message, a client more or less.
    std::function<void()> on_change = [] {};

    // Sends an event to the clients that want it; how many got it. Client-management and debug messages are for the
    // client library itself and go to every registered client.
    unsigned announce(uint32_t type, Bytes payload, const Target &target = Target());
    // Sends bytes as they stand, to every connection.
    unsigned send_raw(Bytes bytes, const Target &target);

    // The role that the clients are told: at their registration and now.
    void set_role(bool slave);
    [[nodiscard]] bool slave() const { return slave_; }
    // A slave takes over: begin makes this the master.
    void begin_switchover();
    void end_switchover();

    // Messages of that type since the start, from all clients.
    [[nodiscard]] uint64_t received(uint32_t type) const;

  private:
    void on_message(Connection &client, uint32_t type, Bytes payload) override;
    void on_lost(Connection &client, const std::string &why) override;

    void handle(Connection &client, uint32_t type, Bytes payload);
    void register_client(Connection &client, Bytes payload);
    void synchronise(Connection &client) const;
    void answer_origin_request(Connection &client, Bytes payload);

    Server server_;
    Addresses addresses_;
    Vlans vlans_;
    bool slave_;
    std::map<uint32_t, uint64_t> received_;
};

} // namespace sandbox
