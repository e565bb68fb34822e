// One client's connection: its input split into messages, its output queued so that a slow client never holds the
// server.
#pragma once

#include "sandbox/batch.h"
#include "sandbox/loop.h"
#include "sandbox/registration.h"
#include "sandbox/trace.h"

#include <cstdint>
#include <string>

namespace sandbox {

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

class Connection {
  public:
    Connection(Loop &loop, evutil_socket_t descriptor, unsigned id, ConnectionOwner &owner);
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    void send(Bytes bytes);
    void send(const Batch &batch);

    // Stalled, it neither reads nor writes; what is sent meanwhile is queued.
    void stall();
    void resume();
    // Closes it now, with whatever is queued; nothing is reported any more.
    void close();
    // The same, and its owner is told.
    void lose(const std::string &why);

    Registration registration;
    unsigned sync_step = 0; // how many steps of its synchronisation it has been told

    [[nodiscard]] unsigned id() const { return id_; }
    // The client as records name it.
    [[nodiscard]] const Client &party() const;
    [[nodiscard]] std::string text() const { return party()->text(); }
    [[nodiscard]] bool open() const { return channel_ != nullptr; }
    [[nodiscard]] bool stalled() const { return stalled_; }
    [[nodiscard]] size_t queued() const;
    // Messages; the sent ones include those that are still queued.
    [[nodiscard]] uint64_t received() const { return received_; }
    [[nodiscard]] uint64_t sent() const { return sent_; }

  private:
    void on_readable();
    void take_messages(std::vector<uint8_t> &batch);

    BufferEvent channel_;
    unsigned id_;
    mutable Client party_;
    ConnectionOwner &owner_;
    bool stalled_ = false;
    uint64_t received_ = 0;
    uint64_t sent_ = 0;
};

} // namespace sandbox
