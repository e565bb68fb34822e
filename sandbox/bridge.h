// What the bridge server does with its clients' messages: registrations, data synchronisation, origin data, requests.
#pragma once

#include "sandbox/addresses.h"
#include "sandbox/kernel_link.h"
#include "sandbox/topology.h"
#include "sandbox/vlans.h"

namespace sandbox {

class Bridge : private ConnectionOwner {
    Trace &trace_;
    Rules &rules_;
    Detour detour_;

  public:
    Bridge(Loop &loop, const std::string &tmpdir, Trace &trace, Rules &rules, bool slave);

    // Its parts, each of which may use those above it.
    Server server;
    Announcer announcer;
    Synchronisation synchronisation;
    KernelLink kernel;
    Addresses addresses;
    Ports ports;
    SuperVlans supers;
    Prejudge prejudge;
    Vlans vlans;
    Topology topology;
    Groups groups;

    void note(const std::string &text) { trace_.note(text); }

  private:
    void on_message(Connection &client, uint32_t type, Bytes payload) override;
    void on_lost(Connection &client, const std::string &why) override;
    void on_drained() override { trace_.changed(); }
    void on_falling_behind() override { server.bound_queues(); }

    void take_kernel_news(uint32_t type, Bytes data);
    void carry_out(Connection &client, uint32_t type, Bytes payload);
    void refuse(const Connection &client, uint32_t type, Bytes payload, const std::string &why);
    void register_client(Connection &client, Bytes payload);
    void answer_origin_request(Connection &client, Bytes payload);
};

} // namespace sandbox
