// The books of a soak: what the server says it has sent on each connection, what each host says has reached its
// handlers, and whether the two agree.
//
// The server prints a line for everything that it does, in the order in which it does it; so the books know, message by
// message, what it has handed to each connection. A host must see exactly these, in this order, but for two exceptions:
// what comes while the host is slave is not for its handlers; and of a connection that the server ended - dropped, or
// died with - the end may be missing, namely what it had not written to the socket yet.
#pragma once

#include "tests/soak/link.h"
#include "tests/soak/records.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace soak {

constexpr unsigned kHosts = 8;

// Every other host has the layer on top of the library.
constexpr bool has_layer(int host) {
    return host % 2 == 1;
}

struct Report {
    unsigned long requests = 0, flood = 0, refused = 0, dropped = 0, cached = 0, delayed = 0, connects = 0, bad = 0,
                  late = 0, heap = 0;
};

struct HostBooks {
    std::vector<Seen> seen; // since the last verification
    uint32_t last_event = 0;
    std::array<uint32_t, kHosts> last_request{}; // of each host, as it came back
    Report report;
    unsigned reports = 0;
    std::vector<std::shared_ptr<Link>> links; // oldest first; the last one may be open
    unsigned registrations = 0;
    uint64_t flood = 0;             // received
    uint64_t sent = 0;              // to its handlers, which must see it
    uint64_t delivered = 0;         // to its handlers
    uint64_t lost = 0;              // not written when a connection ended
    uint32_t last_request_sent = 0; // the last one of its own that any host has seen come back
};

struct Totals {
    uint64_t connections = 0;
    uint64_t delivered = 0; // to handlers
    uint64_t held = 0;      // sent to slaves
    uint64_t requests = 0;  // of the hosts, received
    uint64_t unknown = 0;   // those among them of a connection none of whose requests came back to anybody
    uint64_t gaps = 0;      // requests missing between two connections
    uint64_t flood = 0;     // received
};

class Books {
  public:
    // What was told to the server, in the order of telling.
    void event_told(uint32_t type, uint32_t number, size_t size, int host);
    void debug_told(size_t size, int host);
    void drop_told(int host);
    void list_told() { ++lists_due_; }

    void server_line(const std::string &line);
    // It was killed, and all that it printed has been entered.
    void server_died();
    void host_line(unsigned host, const std::string &line);

    // Compares what was sent and what was seen since the last time, when everything must have arrived.
    void verify();

    // One open connection of every host, all of them registered.
    [[nodiscard]] bool all_registered() const;
    // Every list of connections that was told has come, and with it the answers to all that was told before.
    [[nodiscard]] bool all_listed() const { return lists_due_ == 0; }
    [[nodiscard]] bool all_written() const { return all_written_; }
    [[nodiscard]] unsigned kernel_listeners() const { return kernel_listeners_; }
    [[nodiscard]] unsigned starts() const { return starts_; } // how often a server began to listen

    std::array<HostBooks, kHosts> hosts;
    Totals totals;
    std::vector<std::string> faults;
    bool ending = false; // hosts may close their connections

  private:
    struct Told {
        char what; // event, debug, drop
        uint32_t type;
        uint32_t number;
        size_t size;
        int host; // -1: all
    };
    struct Request { // one that came in and was sent back
        std::shared_ptr<Link> sender;
        uint32_t number = 0; // 0: nobody has seen it yet
    };

    void fault(const std::string &text);
    void client_line(unsigned id, const std::string &rest, const std::string &name);
    void listed(const std::string &row);
    void register_link(Link &link, const std::string &name);
    static void origin_request(Link &link);
    void request_line(const std::shared_ptr<Link> &link, const std::string &rest);
    void told_line(char what, const std::string &line);
    void end_links(int host);
    void message(Link &link, size_t size);
    void item(Link &link, char kind, uint32_t number);
    void role(bool slave);
    void switchover(bool begin, bool end);
    std::shared_ptr<Link> find(unsigned id);
    template <class Fn> unsigned for_open(int host, Fn &&fn);
    void verify_host(unsigned host);
    void note_requests(unsigned host, size_t link, size_t items, size_t first_seen);
    void verify_request(const Request &request);

    std::vector<std::shared_ptr<Link>> links_; // of the server that lives, also those without a registration
    std::deque<Told> told_;
    std::vector<Request> requests_; // since the last verification
    bool slave_ = false;
    bool all_written_ = true;
    bool listing_written_ = true;
    unsigned lists_due_ = 0;
    unsigned starts_ = 0;
    unsigned kernel_listeners_ = 0;
};

} // namespace soak
