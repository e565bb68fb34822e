// One client's connection: what it told about itself, its input split into messages, its output queued so that a slow
// client never holds the server.
#pragma once

#include "sandbox/trace.h"

#include <event2/buffer.h>

namespace sandbox {

using EventBuffer = std::unique_ptr<evbuffer, Releaser<evbuffer_free>>;

// What a client told about itself and the events it wants.
struct Registration {
    // Takes one registration message. True when it was a full one, which names the client and replaces its set; the
    // others add to the set or take from it.
    bool take(const bri_reg_msg &message);

    event_set types{};
    bool complete = false; // a full one has come
    std::string name;
    uint32_t pid = 0;
    bool fresh = false;
};

class Connection;

inline constexpr unsigned kSynchronised = 3; // steps of a synchronisation

// Who gets what a connection receives. Neither call may destroy the connection.
class ConnectionOwner {
  public:
    virtual void on_message(Connection &client, uint32_t type, Bytes payload) = 0;
    virtual void on_lost(Connection &client, const std::string &why) = 0;
    virtual void on_drained() = 0;        // what was queued has been written
    virtual void on_falling_behind() = 0; // much is queued

  protected:
    ~ConnectionOwner() = default;
};

class Connection : Pinned {
  public:
    Connection(Loop &loop, evutil_socket_t descriptor, unsigned id, ConnectionOwner &owner);

    // A batch of that many messages, or bytes as they stand.
    void send(Bytes bytes, size_t messages = 0);

    // Stalled, it neither reads nor writes; what is sent meanwhile is queued.
    void stall();
    void resume();
    // Closes it now, with whatever is queued; nothing is reported any more.
    void close();
    // The same, and its owner is told.
    void lose(const std::string &why);

    // Takes what the client tells about itself; true when it was all.
    bool take_registration(const bri_reg_msg &message);

    Registration registration;
    bool slave = false;     // what it has been told
    unsigned sync_step = 0; // how many steps of its synchronisation it has been told

    [[nodiscard]] unsigned id() const { return id_; }
    // The client as records name it.
    [[nodiscard]] const Client &party() const { return party_; }
    [[nodiscard]] bool open() const { return channel_ != nullptr; }
    [[nodiscard]] size_t queued() const;
    [[nodiscard]] Fields fields() const; // what it shows of itself

  private:
    void flush();
    void on_readable();
    void take_messages(Bytes bytes);

    BufferEvent channel_;
    // What is sent in one round of the loop, which goes out at its end by one call of the system. The rest is the
    // channel's, that waits until it may be written.
    EventBuffer sent_now_;
    Event flush_;
    unsigned id_;
    Client party_;
    ConnectionOwner &owner_;
    bool stalled_ = false;
    uint64_t received_ = 0;
    uint64_t sent_ = 0; // messages, those included that are still queued
};

} // namespace sandbox
