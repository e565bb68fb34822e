// A switch as far as a daemon's mirror of it goes: ports, VLANs and members in the shared tables, which it writes as
// the server does, its addresses, and one connection whose messages wait until they are let out.
#pragma once

#include "tests/support/server.h"

#include <bridge/bridge.h>

#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace test {

// What is compared: all that a mirror can know.
struct Contents {
    struct Port {
        uint32_t mode;
        uint16_t pvid;
        bool operator==(const Port &) const = default;
    };
    std::set<uint16_t> vlans;
    std::map<uint32_t, Port> ports;
    std::set<std::pair<uint32_t, uint16_t>> members;            // port and VLAN
    std::map<std::pair<uint8_t, uint16_t>, uint32_t> addresses; // last byte and VLAN; port

    // Members of VLANs that exist.
    [[nodiscard]] std::set<std::pair<uint32_t, uint16_t>> live_members() const;
    [[nodiscard]] bool same_tables(const Contents &other) const;
    [[nodiscard]] std::string text() const;
};

class SwitchModel {
  public:
    SwitchModel() : server_(std::make_unique<Server>()) {}

    // What the shared tables hold, and the addresses.
    [[nodiscard]] Contents contents() const;

    // Changes, in the tables at once. What makes no sense at the moment changes nothing.
    void create_vlans(uint16_t first, uint16_t last);
    void delete_vlans(uint16_t first, uint16_t last);
    void add_port(uint32_t ifx, uint32_t mode, uint16_t pvid);
    void remove_port(uint32_t ifx);
    void set_mode(uint32_t ifx, uint32_t mode);
    void set_pvid(uint32_t ifx, uint16_t pvid);
    void join(uint32_t ifx, uint16_t vid);
    void leave(uint32_t ifx, uint16_t vid);
    void learn(uint8_t mac, uint32_t where); // on a port and VLAN that there is
    void forget(uint32_t which);
    void forget_all();

    // The connection. serve() takes what has come; a request for addresses is answered unless it is to be lost.
    void serve();
    void lose_questions(unsigned count) { lost_questions_ = count; } // the next ones
    void let_out(size_t messages);
    void let_all_out() { let_out(queue_.size()); }
    void drop();
    void stop_listening() { server_.reset(); }
    void listen();

    // Who registers gets the begin of the backup data, and the rest with go_on().
    void hold_synchronisation(bool hold) { hold_ = hold; }
    void go_on();
    void synchronise_again();
    void set_role(bool slave);
    void begin_switchover();
    void end_switchover();

    [[nodiscard]] bool all_out() const { return queue_.empty(); }
    [[nodiscard]] bool registered() const { return registered_; }
    // What the answers had that were let out: those that the daemon may be reading, the last one at the end.
    [[nodiscard]] const std::vector<Contents> &answered() const { return answered_; }
    // It has read all of them.
    void all_read();

  private:
    struct Waiting {
        Message message;
        std::shared_ptr<Contents> answered; // at the end of an answer
    };

    void tell(uint32_t type, const ByteVec &payload = {});
    template <class T> void tell_record(uint32_t type, const T &record) { tell(type, bytes_of(record)); }
    void tell_vlans(uint32_t one, uint32_t range, uint16_t first, uint16_t last, const std::set<uint16_t> &vids);
    void tell_port(uint32_t ifx);
    void tell_address(uint32_t oper, uint8_t mac, uint16_t vid, uint32_t ifx);
    void member(uint32_t ifx, uint16_t vid, bool is);
    void refresh_access(uint32_t ifx);
    void introduce();
    void answer_question();

    std::unique_ptr<Server> server_;
    Peer peer_;
    std::deque<Waiting> queue_;
    std::deque<Message> held_; // of a synchronisation that has begun
    std::map<std::pair<uint8_t, uint16_t>, uint32_t> addresses_;
    std::vector<Contents> answered_{1};
    unsigned lost_questions_ = 0; // still to be lost
    bool hold_ = false;
    bool registered_ = false;
    bool slave_ = false;
};

} // namespace test
