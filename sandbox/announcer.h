// The one road of everything that goes to clients: rules, who wants it, their queues, the trace.
#pragma once

#include "sandbox/rules.h"
#include "sandbox/server.h"
#include "sandbox/trace.h"

#include <cstdint>
#include <map>
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
    Announcer(Loop &loop, Server &server, Trace &trace, Rules &rules)
        : server_(server), trace_(trace), rules_(rules), later_(loop) {}

    // Sends an event to the clients that registered it; how many of them. Client-management and debug messages are for
    // the client library itself and go to every registered client.
    unsigned announce(uint32_t type, Bytes payload, const Target &target = Target());
    // The same to one client, in one batch as far as they fit.
    void tell(Connection &client, const std::vector<Message> &messages);
    // Sends bytes as they stand, to every connection.
    unsigned send_raw(Bytes bytes, const Target &target);

  private:
    Verdict decide(const Connection &client, const Message &message);
    // Does with a message what the rules have decided; true when it is to go now.
    bool pass(const Connection &client, const Message &message, const Verdict &verdict);
    void send(Connection &client, const Batch &batch);
    void deliver(unsigned client, const Message &message);
    void record(const Message &message, std::vector<Client> clients, const std::string &result);

    Server &server_;
    Trace &trace_;
    Rules &rules_;
    Later later_;
    std::map<unsigned, std::vector<Message>> held_; // by client: they go behind the next one
};

// Whether the client is told of events of that type at all.
bool gets(const Connection &client, uint32_t type);

} // namespace sandbox
