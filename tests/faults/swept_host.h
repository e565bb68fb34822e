// Where a swept operation runs: a host process with nothing, with a started client, or with one that is connected to a
// server, has a kernel, a port and a VLAN.
#pragma once

#include "tests/support/kernel.h"
#include "tests/support/server.h"
#include "tests/support/test.h"

#include <functional>
#include <optional>

namespace test {

enum class Level { kBare, kStarted, kConnected };

class SweptHost : public Env {
  public:
    static constexpr int32_t kPort = 1;
    static constexpr uint16_t kVlan = 10;

    explicit SweptHost(Level level);
    ~SweptHost() override;
    SweptHost(const SweptHost &) = delete;
    SweptHost &operator=(const SweptHost &) = delete;

    void TestBody() override {}
    using Env::write_file;

    static bri_clnt_ctx &ctx() { return *g_bridge_client; }
    static Loop &loop() { return Loop::get(); }
    // The batch to the server, as the timer does.
    static void tick();
    [[nodiscard]] int key(uint32_t base) const { return static_cast<int>(base + static_cast<uint32_t>(vsd())); }

    // Takes the connection that a client has made meanwhile.
    void accept();
    // Messages of a type that have reached the server since the last call.
    int arrived(uint32_t type);
    // Brings back what a failure may have taken: connection, kernel channel, empty batch, one job of each kind.
    void settle();

    // What must not grow.
    struct Holdings {
        int blocks;
        int descriptors;
        int mappings;
        bool operator==(const Holdings &) const = default;
    };
    [[nodiscard]] Holdings holdings() const;

    std::function<void()> at_end; // what the destructor does first
    Kernel kernel;
    Peer peer;
    uint32_t handled = 0; // calls of the host's handler

  private:
    void start();
    void connect();
    void reconnect();
    void make_tables() const;
    Level level_;
    std::optional<Server> server_;
};

} // namespace test
