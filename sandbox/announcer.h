// The one road of everything that goes to clients: who wants it, their queues, the trace.
#pragma once

#include "sandbox/server.h"
#include "sandbox/trace.h"

#include <cstdint>
#include <string>
#include <vector>

namespace sandbox {

// One message, whole.
struct Message {
    uint32_t type;
    std::vector<uint8_t> payload = {};

    [[nodiscard]] Bytes bytes() const { return {payload.data(), payload.size()}; }
};

class Announcer {
  public:
    Announcer(Server &server, Trace &trace) : server_(server), trace_(trace) {}

    // Sends an event to the clients that registered it; how many of them. Client-management and debug messages are for
    // the client library itself and go to every registered client.
    unsigned announce(uint32_t type, Bytes payload, const Target &target = Target());
    // The same to one client, in one batch as far as they fit.
    void tell(Connection &client, const std::vector<Message> &messages);
    // Sends bytes as they stand, to every connection.
    unsigned send_raw(Bytes bytes, const Target &target);

  private:
    Server &server_;
    Trace &trace_;
};

// Whether the client is told of events of that type at all.
bool gets(const Connection &client, uint32_t type);

} // namespace sandbox
