// What the bridge server does with its clients' messages: registrations, data synchronisation, origin data, requests.
#pragma once

#include "sandbox/addresses.h"
#include "sandbox/announcer.h"
#include "sandbox/groups.h"
#include "sandbox/kernel_link.h"
#include "sandbox/server.h"
#include "sandbox/synchronisation.h"
#include "sandbox/topology.h"
#include "sandbox/vlans.h"

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace sandbox {

class Bridge : private ConnectionOwner {
  public:
    Bridge(Loop &loop, const std::string &tmpdir, Trace &trace, Rules &rules, bool slave);

    Server &server() { return server_; }
    Addresses &addresses() { return addresses_; }
    KernelLink &kernel() { return kernel_; }
    Vlans &vlans() { return vlans_; }
    Topology &topology() { return topology_; }
    Groups &groups() { return groups_; }
    Announcer &announcer() { return announcer_; }
    Trace &trace() { return trace_; }
    Synchronisation &synchronisation() { return synchronisation_; }

  private:
    void on_message(Connection &client, uint32_t type, Bytes payload) override;
    void on_lost(Connection &client, const std::string &why) override;
    void on_drained() override { trace_.changed(); }
    void on_falling_behind() override { server_.bound_queues(); }

    void take_kernel_news(uint32_t type, Bytes data);
    // Does with a request what the rules have decided; true when it is to be carried out now.
    bool pass(const Connection &client, const Message &request, const Verdict &verdict);
    void carry_out(Connection &client, uint32_t type, Bytes payload);
    void carry_out_later(unsigned client, const Message &request);
    void apply(Connection &client, uint32_t type, Bytes payload);
    void refuse(const Connection &client, uint32_t type, Bytes payload, const std::string &why);
    void register_client(Connection &client, Bytes payload);
    void answer_origin_request(Connection &client, Bytes payload);

    Trace &trace_;
    Rules &rules_;
    Later later_;
    std::map<unsigned, std::vector<Message>> held_; // requests by client: they come behind the next one
    Server server_;
    Announcer announcer_;
    Synchronisation synchronisation_;
    KernelLink kernel_;
    Addresses addresses_;
    Vlans vlans_;
    Topology topology_;
    Groups groups_;
};

} // namespace sandbox
